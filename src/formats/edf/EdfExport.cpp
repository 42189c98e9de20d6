// Export of a recording to EDF+ / BDF+ (conventions in EdfExport.h).
#include "formats/edf/EdfExport.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "formula/RFMT.h"
#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "formats/edf/EdfNative.h"
#include "formats/edf/EdfWriter.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace edf {

std::string AnnotationTextOf(const std::string& group, bool annotationGroup, const std::string& name) {
    if (annotationGroup && name.find(": ") == std::string::npos) return name;
    return group + ": " + name;
}

void SplitAnnotationText(const std::string& text, std::string& group, std::string& name) {
    size_t colon = text.find(": ");
    if (colon == std::string::npos || colon == 0) {
        group.clear();
        name = text;
        return;
    }
    group = text.substr(0, colon);
    name = text.substr(colon + 2);
}

bool ParseRecordRange(const std::string& text, long& first, long& end) {
    size_t colon = text.find(':');
    if (colon == std::string::npos || text.find(':', colon + 1) != std::string::npos) return false;
    auto number = [](const std::string& s, long& v, long empty) {
        if (s.empty()) {
            v = empty;
            return true;
        }
        LONGLONG n = 0;
        if (!ParseEdfInteger(s, n) || n < 0 || n > 0x7FFFFFFF) return false;
        v = long(n);
        return true;
    };
    return number(text.substr(0, colon), first, 0) && number(text.substr(colon + 1), end, -1);
}

namespace {


EdfHeader BuildHeader(const CSigFile& file, EdfFormat format) {
    EdfHeader h;
    h.format = format;
    if (const CPatientInfo* p = file.GetPatientInfo()) {
        h.patient.code = p->GetPatientId1();
        h.patient.sex = p->GetSex() == 1 ? 'M' : p->GetSex() == 2 ? 'F' : 0;
        if (p->GetBirthDate().GetValue() > 1.0 && p->GetBirthDate().GetYear() > 1800) {
            h.patient.birthYear = p->GetBirthDate().GetYear();
            h.patient.birthMonth = p->GetBirthDate().GetMonth();
            h.patient.birthDay = p->GetBirthDate().GetDay();
        }
        std::string name = p->GetLastName();
        if (!p->GetFirstName().empty()) name += (name.empty() ? "" : " ") + p->GetFirstName();
        h.patient.name = name;
    }
    if (const CFileHeader* fh = file.GetFileHeader()) {
        h.recording.adminCode = fh->GetFileDesc();
        h.recording.technician = fh->GetCreatedBy();
        h.recording.equipment = fh->GetInstitution();
    }
    return h;
}

// Values of the channels of a reformatted montage, record after record.
class FormulaSource {
public:
    FormulaSource(CSigFile& file, CReformatedMontage& montage) : m_file(file), m_montage(montage) {}

    bool Compile(std::string& error) {
        if (!m_engine.Compile(&m_montage)) {
            error = "Le montage « " + std::string(m_montage.GetMontageName()) + " » ne se compile pas";
            return false;
        }
        return true;
    }
    unsigned Channels() const { return m_engine.GetNumChannels(); }
    unsigned Samples(unsigned c) const { return m_engine.GetSamplesRec(c); }

    // Computes record r of [first, end): the engine's span around it, records
    // outside the recording replaced by the nearest one.
    bool Compute(long r, long count, bool restart, CFmtSigRec& out) {
        const int lo = m_engine.GetFirstRecOfs(), hi = m_engine.GetLastRecOfs();
        auto load = [&](long k, CFmtSigRec& rec) {
            k = std::clamp(k, 0L, count - 1);
            m_file.MoveTo(k);
            return m_file.Read(&rec) != 0;
        };
        if (restart) {
            m_span.clear();
            for (int o = lo; o <= hi; ++o) {
                m_span.push_back(std::make_unique<CFmtSigRec>());
                if (!load(r + o, *m_span.back())) return false;
            }
            std::vector<const CFmtSigRec*> ptrs;
            for (auto& s : m_span) ptrs.push_back(s.get());
            return m_engine.Eval(ptrs.data(), &out, 1) != 0;
        }
        if (!m_newest) m_newest = std::make_unique<CFmtSigRec>();
        if (!load(r + hi, *m_newest)) return false;
        const CFmtSigRec* p = m_newest.get();
        return m_engine.Eval(&p, &out, 0) != 0;
    }

    CCReformater& Engine() { return m_engine; }

private:
    CSigFile& m_file;
    CReformatedMontage& m_montage;
    CCReformater m_engine;
    std::vector<std::unique_ptr<CFmtSigRec>> m_span;
    std::unique_ptr<CFmtSigRec> m_newest;
};

struct PendingAnnotation {
    LONG beginSample = 0;
    LONG endSample = 0;
    std::string text;
};

}  // namespace

int ExportEdf(const char* sigName, const char* out, const EdfExportOptions& options, std::string* errorOut) {
    std::string localError;
    std::string& error = errorOut ? *errorOut : localError;
    error.clear();
    if (!sigName || !out || !*out) {
        error = "Nom de fichier manquant";
        return 0;
    }
    const EdfFormat format = EqualsNoCase(ExtractExt(out), ".bdf") ? EdfFormat::BdfPlus : EdfFormat::EdfPlus;
    if (IsFileOfRecording(sigName, out)) {
        error = std::string(out) + " est un fichier de l'enregistrement " + sigName + " : l'exportation ne peut l'écraser";
        return 0;
    }

    long code = 0;
    CSigFilePtr file(CSigFile::Open(sigName, 1, &code));
    if (!file) {
        error = NativeErrorText(sigName, code);
        return 0;
    }
    const CPhysicalMontage* physical = file->GetPhysicalMontage();
    const CCalibration* calibration = file->GetCalibration();
    CRecordingMontage* recording = physical ? physical->GetRecordingMontageAt(0) : nullptr;
    if (!recording || !calibration || recording->GetBaseFrequency() == 0) {
        error = std::string(sigName) + " : montage d'enregistrement ou calibration absents";
        return 0;
    }
    const long count = file->GetNumRecords();
    const long first = options.firstRecord;
    const long end = options.endRecord < 0 ? count : options.endRecord;
    if (first < 0 || first > end || end > count) {
        error = StrFormat("Les enregistrements %ld à %ld sortent de l'enregistrement (%ld enregistrements)", first,
                          end, count);
        return 0;
    }
    const unsigned spr = recording->GetSamplesRecord();
    const double base = recording->GetBaseFrequency();
    const double duration = spr / base;
    if (RecordsPerEdfRecord(int(spr), base) != 1) {
        error = StrFormat("La durée d'un enregistrement (%u échantillons à %.0f Hz) ne s'écrit pas dans le champ de "
                          "8 caractères d'un fichier EDF",
                          spr, base);
        return 0;
    }

    // Signals.
    EdfHeader header = BuildHeader(*file, format);
    header.recordDuration = duration;
    std::vector<EdfSignal> signals;
    std::unique_ptr<FormulaSource> formulas;
    if (options.montage.empty()) {
        for (unsigned c = 0; c < file->GetNumChannels() && c < recording->GetNumChannels(); ++c) {
            EdfSignal s;
            s.label = recording->GetLabel(c);
            s.transducer = VhlGetTraceTypeName(recording->GetType(c));
            s.prefilter = recording->GetPreprocessing(c);
            s.unit = EdfUnitText(recording->GetUnit(c));
            s.digitalMin = calibration->GetAdMin();
            s.digitalMax = calibration->GetAdMax();
            s.physicalMin = calibration->AdToWorld(c, calibration->GetAdMin());
            s.physicalMax = calibration->AdToWorld(c, calibration->GetAdMax());
            s.samplesPerRecord = int(file->GetSamplesChannel(c));
            signals.push_back(s);
        }
    } else {
        CReformatedMontage* montage = recording->GetReformatedMontage(options.montage.c_str());
        if (!montage) {
            error = "Aucun montage reformaté ne s'appelle « " + options.montage + " »";
            return 0;
        }
        formulas = std::make_unique<FormulaSource>(*file, *montage);
        if (!formulas->Compile(error)) return 0;
        for (unsigned c = 0; c < formulas->Channels(); ++c) {
            EdfSignal s;
            s.label = montage->GetLabel(c);
            s.transducer = VhlGetTraceTypeName(formulas->Engine().GetType(c));
            s.unit = EdfUnitText(formulas->Engine().GetUnit(c));
            s.digitalMin = DigitalLimitMin(format);
            s.digitalMax = DigitalLimitMax(format);
            s.samplesPerRecord = int(formulas->Samples(c));
            signals.push_back(s);
        }
        // First pass: the range of every channel.
        std::vector<double> lo(signals.size(), HUGE_VAL), hi(signals.size(), -HUGE_VAL);
        CFmtSigRec values;
        std::vector<unsigned short> counts;
        for (unsigned c = 0; c < formulas->Channels(); ++c) counts.push_back((unsigned short)formulas->Samples(c));
        values.Create(formulas->Channels(), counts.data());
        for (long r = first; r < end; ++r) {
            if (!formulas->Compute(r, count, r == first, values)) {
                error = StrFormat("Lecture de l'enregistrement %ld impossible", r);
                return 0;
            }
            for (unsigned c = 0; c < values.GetNumChannels(); ++c)
                for (unsigned k = 0; k < values.GetNumSamples(c); ++k) {
                    double v = values.GetAt(c, k);
                    lo[c] = std::min(lo[c], v);
                    hi[c] = std::max(hi[c], v);
                }
        }
        for (size_t c = 0; c < signals.size(); ++c) {
            if (!(lo[c] <= hi[c])) lo[c] = hi[c] = 0;
            if (lo[c] == hi[c]) {
                lo[c] -= 1;
                hi[c] += 1;
            }
            signals[c].physicalMin = lo[c];
            signals[c].physicalMax = hi[c];
        }
    }
    // FitPhysicalUnit may move a signal into a smaller unit: computed values
    // are scaled alike, and digitised against the range as written.
    std::vector<double> scale(signals.size(), 1.0);
    for (size_t c = 0; c < signals.size(); ++c) {
        EdfSignal& s = signals[c];
        const double before = s.physicalMax - s.physicalMin;
        if (!FitPhysicalUnit(s)) {
            error = "Le signal « " + s.label + " » a des limites physiques qui ne s'écrivent pas en 8 caractères";
            return 0;
        }
        if (before != 0) scale[c] = std::round((s.physicalMax - s.physicalMin) / before);
    }
    // The 8-character fields round a computed range by up to 1e-6 of its
    // width: it is widened first so that the written range holds every value.
    if (formulas)
        for (size_t c = 0; c < signals.size(); ++c) {
            EdfSignal& s = signals[c];
            const double margin = 2e-6 * (s.physicalMax - s.physicalMin);
            std::string text;
            double written = 0;
            if (FormatEdfNumber(s.physicalMin - margin, 8, text, s.physicalMax - s.physicalMin) &&
                ParseEdfNumber(text, written))
                s.physicalMin = written;
            if (FormatEdfNumber(s.physicalMax + margin, 8, text, s.physicalMax - s.physicalMin) &&
                ParseEdfNumber(text, written))
                s.physicalMax = written;
        }

    // Annotations, placed by their begin sample; times are filled in when
    // their record is read.
    std::vector<PendingAnnotation> pending;
    const LONGLONG firstSample = LONGLONG(first) * spr, endSample = LONGLONG(end) * spr;
    for (unsigned i = 0; i < file->GetNumStatusItems(); ++i) {
        const CStatusItem* item = file->GetStatusItemAt(i);
        if (!item || item->GetBeginSample() < firstSample || item->GetBeginSample() >= endSample) continue;
        const CStatusGroup* group = item->GetGroup();
        std::string groupName = group ? group->GetGroupName() : "";
        if (group && groupName.empty()) groupName = GetDefaultGroupName(group->GetGroupID().c_str());
        const bool annotation = !group || EqualsNoCase(group->GetGroupID(), groupid::kAnnotation);
        pending.push_back({item->GetBeginSample(), std::max(item->GetEndSample(), item->GetBeginSample()),
                           AnnotationTextOf(groupName, annotation, item->GetName())});
    }
    std::stable_sort(pending.begin(), pending.end(),
                     [](const PendingAnnotation& a, const PendingAnnotation& b) { return a.beginSample < b.beginSample; });
    std::vector<double> nominalStarts;
    for (long r = first; r < end; ++r) nominalStarts.push_back((r - first) * duration);
    std::vector<EdfAnnotation> nominal;
    for (const PendingAnnotation& p : pending) {
        EdfAnnotation a;
        a.onset = (p.beginSample - firstSample) / base;
        if (p.endSample > p.beginSample) a.duration = (p.endSample - p.beginSample) / base;
        a.text = p.text;
        nominal.push_back(a);
    }
    EdfAnnotationPlan plan = PlanAnnotations(nominalStarts, nominal);
    // Real onsets may take more digits than the nominal ones (after a gap).
    size_t most = 0;
    for (const auto& r : plan.perRecord) most = std::max(most, r.size());
    const size_t room = plan.bytesPerRecord + (most + 1) * 8;

    // Second pass: the records.
    std::unique_ptr<CRawSigRec> raw(file->CreateCompatibleRawSigRec());
    CFmtSigRec values;
    if (formulas) {
        std::vector<unsigned short> counts;
        for (unsigned c = 0; c < formulas->Channels(); ++c) counts.push_back((unsigned short)formulas->Samples(c));
        values.Create(formulas->Channels(), counts.data());
    }
    std::vector<std::vector<LONG>> samples(formulas ? signals.size() : 0);
    for (size_t c = 0; c < samples.size(); ++c) samples[c].resize(size_t(signals[c].samplesPerRecord));
    std::vector<const short*> channels(signals.size());
    std::vector<double> starts;  // actual starts of the written records
    CSDateTime origin;
    EdfWriter writer;
    size_t nextPending = 0;
    std::vector<EdfAnnotation> now;
    for (long r = first; r < end || (r == first && first == end); ++r) {
        if (first == end) {
            // No record: a valid file with the header alone.
            header.start = file->GetFileHeader() ? file->GetFileHeader()->GetCreationDateTime() : CSDateTime();
            if (!writer.Open(out, header, signals, room, error)) return 0;
            break;
        }
        file->MoveTo(r);
        if (!file->Read(raw.get())) {
            error = StrFormat("Lecture de l'enregistrement %ld impossible", r);
            return 0;
        }
        double start = 0;
        if (r == first) {
            origin = raw->GetTime();
            header.start = origin;
            if (!writer.Open(out, header, signals, room, error)) return 0;
        } else {
            start = (raw->GetTime() - origin).GetTotalSeconds();
            const double follow = starts.back() + duration;
            // Record times carry about a microsecond of rounding: a record
            // within a tenth of a sample of the previous end follows it.
            if (std::fabs(start - follow) < 0.1 / base || start < follow) start = follow;
        }
        starts.push_back(start);
        if (formulas) {
            if (!formulas->Compute(r, count, r == first, values)) {
                error = StrFormat("Lecture de l'enregistrement %ld impossible", r);
                return 0;
            }
            for (size_t c = 0; c < signals.size(); ++c) {
                const EdfSignal& s = signals[c];
                const double k = (double(s.digitalMax) - s.digitalMin) / (s.physicalMax - s.physicalMin);
                const double toUnit = scale[c];
                for (size_t j = 0; j < samples[c].size(); ++j) {
                    double v = double(values.GetAt(unsigned(c), unsigned(j))) * toUnit;
                    double d = std::round((v - s.physicalMin) * k) + s.digitalMin;
                    samples[c][j] = LONG(std::clamp(d, double(s.digitalMin), double(s.digitalMax)));
                }
            }
        }
        now.clear();
        for (const EdfAnnotation& a : plan.perRecord[size_t(r - first)]) {
            // The plan keeps the annotations' order across records.
            EdfAnnotation real = a;
            if (nextPending < pending.size()) {
                const PendingAnnotation& p = pending[nextPending++];
                const long home = p.beginSample / LONG(spr) - first;
                if (home >= 0 && size_t(home) < starts.size())
                    real.onset = starts[size_t(home)] + (p.beginSample % LONG(spr)) / base;
            }
            now.push_back(real);
        }
        if (formulas) {
            if (!writer.WriteRecord(start, samples, now, error)) return 0;
        } else {
            // The raw 16-bit samples go to the file as they are.
            for (size_t c = 0; c < signals.size(); ++c) channels[c] = raw->GetAt(unsigned(c));
            if (!writer.WriteRecord(start, channels.data(), channels.size(), now, error)) return 0;
        }
    }
    return writer.Close(error) ? 1 : 0;
}

}  // namespace edf
