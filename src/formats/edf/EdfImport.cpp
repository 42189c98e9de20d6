// Import of EDF-family files into native recordings (rules in EdfImport.h).
#include "formats/edf/EdfImport.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "formats/edf/EdfBlocks.h"
#include "formats/edf/EdfExport.h"
#include "formats/edf/EdfNative.h"
#include "formats/edf/EdfReader.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace edf {
namespace {

constexpr int kAdMin = -32768, kAdMax = 32767;
constexpr float kVoltMin = -0.0032768f, kVoltMax = 0.0032767f;


// Electrodes and type of one signal label.
struct LabelParts {
    std::string elec1, elec2;
    unsigned type = 0;
};

LabelParts SplitLabel(const std::string& label, size_t index) {
    LabelParts p;
    std::string rest = label;
    size_t space = rest.find(' ');
    if (space != std::string::npos) {
        unsigned type = TypeCodeOfText(rest.substr(0, space));
        if (type) {
            p.type = type;
            rest = rest.substr(rest.find_first_not_of(' ', space) == std::string::npos
                                   ? rest.size()
                                   : rest.find_first_not_of(' ', space));
        }
    }
    size_t dash = rest.find('-');
    if (dash != std::string::npos && dash > 0 && dash + 1 < rest.size()) {
        p.elec1 = rest.substr(0, dash);
        p.elec2 = rest.substr(dash + 1);
    } else {
        p.elec1 = rest;
    }
    if (p.elec1.empty()) p.elec1 = StrFormat("S%zu", index + 1);
    // Brackets name electrode groups in a physical montage.
    for (std::string* e : {&p.elec1, &p.elec2})
        std::replace_if(e->begin(), e->end(), [](char c) { return c == '[' || c == ']'; }, '_');
    return p;
}

// A stable group id for a group name that is not a well-known one.
std::string GroupIdOf(const std::string& name) {
    unsigned long long h = 1469598103934665603ull, g = 1099511628211ull;
    for (unsigned char c : name) {
        h = (h ^ c) * 1099511628211ull;
        g = (g ^ c) * 6364136223846793005ull + 1442695040888963407ull;
    }
    return StrFormat("%08X-%04X-%04X-%04X-%012llX", unsigned(h >> 32), unsigned(h >> 16) & 0xFFFF,
                     unsigned(h) & 0xFFFF, unsigned(g >> 48), g & 0xFFFFFFFFFFFFull);
}

const char* const kKnownGroups[] = {
    groupid::kAnnotation,     groupid::kBookmarks,        groupid::kTracesAsObserved, groupid::kSleepStages,
    groupid::kArtifact,       groupid::kRespiratory,      groupid::kDesaturation,     groupid::kLimbMovement,
    groupid::kSpindle,        groupid::kSampleSection,    groupid::kTrigger,          groupid::kCalibrationLabel,
    groupid::kHyperventilation, groupid::kPostHyperventilation, groupid::kOffRecordingNotes};

std::string KnownGroupId(const std::string& name) {
    for (const char* id : kKnownGroups)
        if (GetDefaultGroupName(id) == name) return id;
    return {};
}

struct Channel {
    LabelParts parts;
    unsigned type = 1, unit = 1;
    double unitFactor = 1;
    bool mapped = false;  // digital values rescaled onto 16 bits
    LONG dmin = 0, dmax = 0;
};

class Importer {
public:
    Importer(const std::string& in, const std::string& out, const EdfImportOptions& options)
        : m_in(in), m_out(out), m_options(options) {}

    bool Run(std::string& error);

private:
    bool Rates(std::string& error);
    bool Describe(std::string& error);
    bool Records(CSigFile& file, std::string& error);
    int NativeRecordsPerFileRecord(const CRawSigRec& rec) const;
    bool CopyRecords(CSigFile& file, CRawSigRec& rec, int per, std::string& error);
    bool Put(CSigFile& file, CRawSigRec& rec, long r, double start, std::string& error);
    void Annotations(CSigFile& file);

    std::string m_in, m_out;
    EdfImportOptions m_options;
    EdfReader m_reader;
    int m_base = 0;
    std::vector<double> m_targetRates;
    bool m_resampled = false;  // some signal changes rate on the way in
    std::vector<int> m_samples;  // per native record
    std::vector<Channel> m_channels;
    std::unique_ptr<CFileHeader> m_header;
    std::unique_ptr<CPatientInfo> m_patient;
    std::unique_ptr<CPhysicalMontage> m_montage;
    std::unique_ptr<CCalibration> m_calibration;
    std::vector<double> m_recordStarts;  // seconds from the EDF start
    CSDateTime m_start;
};

bool Importer::Rates(std::string& error) {
    std::vector<std::string> labels;
    std::vector<double> rates;
    const double duration = m_reader.Header().recordDuration;
    for (const EdfSignal& s : m_reader.Signals()) {
        labels.push_back(s.label);
        rates.push_back(s.Rate(duration));
    }
    if (labels.size() > kMaxMontageChannels) {
        error = StrFormat("%zu signaux : un enregistrement natif en porte au plus %u", labels.size(),
                          kMaxMontageChannels);
        return false;
    }
    if (CheckNativeRates(labels, rates, m_base, m_samples, error)) {
        m_targetRates = rates;
        return true;
    }
    if (!m_options.resample || rates.empty()) return false;
    const double highest = *std::max_element(rates.begin(), rates.end());
    if (!(highest > 0) || highest > 65535) return false;
    m_base = int(std::ceil(highest - 1e-9));
    m_resampled = true;
    m_targetRates.clear();
    m_samples.clear();
    for (double r : rates) {
        double target = r == highest ? m_base : NativeRateFor(r, m_base);
        m_targetRates.push_back(target);
        m_samples.push_back(int(std::lround(kNativeRecordSamples * target / m_base)));
    }
    error.clear();
    return true;
}

bool Importer::Describe(std::string& error) {
    const EdfHeader& h = m_reader.Header();
    m_start = h.start + CSTimeSpan(m_reader.RecordCount() > 0 ? m_reader.RecordStart(0) : 0.0);
    m_header = std::make_unique<CFileHeader>(h.recording.adminCode, h.recording.equipment, 0, m_start);

    m_patient = std::make_unique<CPatientInfo>();
    m_patient->SetPatientId1(h.patient.code, CPatientInfo::kMaxPatientId);
    std::string name = h.patient.name;
    size_t space = name.find(' ');
    m_patient->SetLastName(name.substr(0, space), CPatientInfo::kMaxName);
    if (space != std::string::npos) m_patient->SetFirstName(name.substr(space + 1), CPatientInfo::kMaxName);
    m_patient->SetSex(h.patient.sex == 'M' ? 1 : h.patient.sex == 'F' ? 2 : 0);
    if (h.patient.birthYear > 0)
        m_patient->SetBirthDate(CSDateTime(h.patient.birthYear, h.patient.birthMonth, h.patient.birthDay));

    m_montage = std::make_unique<CPhysicalMontage>("EDF", 0);
    CRecordingMontage* recording = m_montage->CreateRecordingMontage();
    if (!recording->SetBaseFrequency(unsigned(m_base))) {
        error = StrFormat("Fréquence de base de %d Hz trop haute pour un enregistrement natif", m_base);
        return false;
    }
    m_calibration = std::make_unique<CCalibration>(unsigned(m_reader.Signals().size()), kAdMin, kVoltMin, kAdMax,
                                                   kVoltMax, double(m_base));
    for (size_t i = 0; i < m_reader.Signals().size(); ++i) {
        const EdfSignal& s = m_reader.Signals()[i];
        Channel ch;
        ch.parts = SplitLabel(s.label, i);
        for (const std::string& e : {ch.parts.elec1, ch.parts.elec2}) {
            if (e.empty() || m_montage->IsElectrodeOfMontage(e.c_str())) continue;
            CPolar3D where = CPhysicalMontage::IsStdElec(e.c_str()) ? CPhysicalMontage::GetStdElecPosition(e.c_str())
                                                                     : CPolar3D();
            if (!m_montage->AddElectrode(e.c_str(), where)) {
                error = "Signal « " + s.label + " » : l'électrode « " + e + " » ne peut entrer dans le montage";
                return false;
            }
        }
        const bool standard = CPhysicalMontage::IsStdElec(ch.parts.elec1.c_str());
        unsigned type = TypeCodeOfText(s.transducer);
        if (!type) type = ch.parts.type;
        if (!type) type = CPhysicalMontage::GetStdElecTypeCode(ch.parts.elec1.c_str());
        unsigned unit = UnitCodeOfText(s.unit, ch.unitFactor);
        if (!unit) unit = standard ? CPhysicalMontage::GetStdElecUnitCode(ch.parts.elec1.c_str()) : 16;
        ch.type = type;
        ch.unit = unit;
        const unsigned frequency = unsigned(std::lround(m_targetRates[i]));
        if (!recording->AddChannel(ch.parts.elec1.c_str(), ch.parts.elec2.c_str(), type, unit, frequency, 0, 0,
                                   s.prefilter.c_str())) {
            error = "Le signal « " + s.label + " » ne peut entrer dans le montage d'enregistrement (libellé en double ?)";
            return false;
        }
        ch.dmin = s.digitalMin;
        ch.dmax = s.digitalMax;
        ch.mapped = !FitsSixteenBits(s.digitalMin, s.digitalMax);
        const LONG adLo = ch.mapped ? kAdMin : s.digitalMin, adHi = ch.mapped ? kAdMax : s.digitalMax;
        const float w1 = float(s.physicalMin * ch.unitFactor), w2 = float(s.physicalMax * ch.unitFactor);
        m_calibration->SetCalibFromPoints(unsigned(i), adLo, float(m_calibration->AdToVolt(adLo)), w1, adHi,
                                          float(m_calibration->AdToVolt(adHi)), w2);
        m_channels.push_back(ch);
    }
    return true;
}

bool Importer::Records(CSigFile& file, std::string& error) {
    std::unique_ptr<CRawSigRec> rec(file.CreateCompatibleRawSigRec());
    // A 16-bit file whose records hold a whole number of native records of
    // every signal at its own rate is copied sample for sample.
    if (int per = NativeRecordsPerFileRecord(*rec)) return CopyRecords(file, *rec, per, error);
    EdfBlockReader blocks(m_reader, m_targetRates, double(kNativeRecordSamples) / m_base);
    EdfBlock block;
    long r = 0;
    const double edfOrigin = m_reader.RecordCount() > 0 ? m_reader.RecordStart(0) : 0.0;
    while (blocks.Next(block, error)) {
        for (size_t c = 0; c < m_channels.size(); ++c) {
            const Channel& ch = m_channels[c];
            short* out = rec->GetAt(unsigned(c));
            const unsigned n = rec->GetNumSamples(unsigned(c));
            const std::vector<LONG>& in = block.samples[c];
            if (!ch.mapped && in.size() >= n) {
                // The common case, kept simple enough to vectorise.
                const LONG* v = in.data();
                for (unsigned j = 0; j < n; ++j) out[j] = short(std::clamp<LONG>(v[j], kAdMin, kAdMax));
                continue;
            }
            const double k = ch.mapped ? 65535.0 / (double(ch.dmax) - double(ch.dmin)) : 0;
            for (unsigned j = 0; j < n; ++j) {
                LONG d = in.empty() ? 0 : in[std::min<size_t>(j, in.size() - 1)];
                if (ch.mapped) d = LONG(std::lround(kAdMin + (double(d) - ch.dmin) * k));
                out[j] = short(std::clamp<LONG>(d, kAdMin, kAdMax));
            }
        }
        if (!Put(file, *rec, r++, block.start - edfOrigin, error)) return false;
    }
    return error.empty();
}

bool Importer::Put(CSigFile& file, CRawSigRec& rec, long r, double start, std::string& error) {
    m_recordStarts.push_back(start);
    rec.SetTime(m_start + CSTimeSpan(start));
    file.MoveTo(r);
    if (!file.Write(&rec)) {
        error = NativeErrorText(m_out.c_str(), file.GetIOError());
        return false;
    }
    return true;
}

int Importer::NativeRecordsPerFileRecord(const CRawSigRec& rec) const {
    if (m_resampled || IsBdf(m_reader.Header().format)) return 0;
    int per = 0;
    for (size_t c = 0; c < m_channels.size(); ++c) {
        const int n = int(rec.GetNumSamples(unsigned(c)));
        const int file = m_reader.Signals()[c].samplesPerRecord;
        if (m_channels[c].mapped || n <= 0 || file % n != 0 || (per && file / n != per)) return 0;
        per = file / n;
    }
    return per;
}

bool Importer::CopyRecords(CSigFile& file, CRawSigRec& rec, int per, std::string& error) {
    const double blockDuration = double(kNativeRecordSamples) / m_base;
    const double edfOrigin = m_reader.RecordCount() > 0 ? m_reader.RecordStart(0) : 0.0;
    std::vector<size_t> offsets;
    for (size_t c = 0; c < m_channels.size(); ++c) offsets.push_back(m_reader.SignalOffset(c));
    double segmentStart = 0;
    LONGLONG blocksInSegment = 0;
    long r = 0;
    for (LONGLONG e = 0; e < m_reader.RecordCount(); ++e) {
        const BYTE* bytes = m_reader.RecordBytes(e, error);
        if (!bytes) return false;
        // Times as the general path gives them: from the start of each run
        // of contiguous records.
        if (e == 0 || !EdfRecordFollows(m_reader, e)) {
            segmentStart = m_reader.RecordStart(e);
            blocksInSegment = 0;
        }
        for (int j = 0; j < per; ++j, ++blocksInSegment) {
            for (size_t c = 0; c < m_channels.size(); ++c) {
                const size_t n = rec.GetNumSamples(unsigned(c));
                const BYTE* p = bytes + offsets[c] + size_t(j) * n * 2;
                short* out = rec.GetAt(unsigned(c));
                if constexpr (std::endian::native == std::endian::little)
                    std::memcpy(out, p, n * 2);
                else
                    for (size_t k = 0; k < n; ++k) out[k] = short(uint16_t(p[2 * k] | p[2 * k + 1] << 8));
            }
            if (!Put(file, rec, r++, segmentStart + double(blocksInSegment) * blockDuration - edfOrigin, error))
                return false;
        }
    }
    return true;
}

void Importer::Annotations(CSigFile& file) {
    const double edfOrigin = m_reader.RecordCount() > 0 ? m_reader.RecordStart(0) : 0.0;
    std::map<std::string, CStatusGroup*> groups;
    std::map<std::string, bool> hasDuration;
    struct Item {
        std::string group, name;
        double onset;
        std::optional<double> duration;
    };
    std::vector<Item> items;
    for (const EdfAnnotation& a : m_reader.Annotations()) {
        Item it;
        SplitAnnotationText(a.text, it.group, it.name);
        if (it.group.empty()) it.group = GetDefaultGroupName(groupid::kAnnotation);
        it.onset = a.onset - edfOrigin;
        it.duration = a.duration;
        if (a.duration && *a.duration > 0) hasDuration[it.group] = true;
        items.push_back(it);
    }
    const LONG spr = kNativeRecordSamples;
    const LONG total = LONG(m_recordStarts.size()) * spr;
    for (const Item& it : items) {
        CStatusGroup*& group = groups[it.group];
        if (!group) {
            std::string id = KnownGroupId(it.group);
            if (id.empty()) id = GroupIdOf(it.group);
            group = new CStatusGroup(id.c_str(), it.group.c_str(), GetDefaultGroupDesc(id.c_str()).c_str(), 3, 0,
                                     hasDuration[it.group] ? 1 : 0, -1, "", 0, 0, 1, 0);
            file.AddGroup(group);
        }
        // The native record holding the onset: the last one starting at or before it.
        auto at = std::upper_bound(m_recordStarts.begin(), m_recordStarts.end(), it.onset + 0.5 / m_base);
        const LONG record = at == m_recordStarts.begin() ? 0 : LONG(at - m_recordStarts.begin()) - 1;
        const double within = m_recordStarts.empty() ? it.onset : it.onset - m_recordStarts[size_t(record)];
        // In double, clamped: a hostile onset or duration cannot overflow.
        double first = std::round(double(record) * spr + within * m_base);
        if (std::isnan(first)) first = 0;
        const LONG begin = LONG(std::clamp(first, 0.0, double(std::max<LONG>(total - 1, 0))));
        double length = it.duration ? std::round(*it.duration * m_base) : 0.0;
        if (std::isnan(length)) length = 0;
        const LONG end = LONG(std::clamp(double(begin) + length, double(begin), 2147483647.0));
        const double seconds = it.duration.value_or(0.0);
        file.AddStatusItem(new CStatusItem(group, begin, m_start + CSTimeSpan(it.onset), end,
                                           m_start + CSTimeSpan(it.onset + seconds), "", it.name.c_str(), "", 0,
                                           1));
    }
}

bool Importer::Run(std::string& error) {
    if (ToUpper(ExtractExt(m_out)) != ".SIG") {
        error = m_out + " : un enregistrement natif porte l'extension .SIG";
        return false;
    }
    if (IsFileOfRecording(m_out, m_in)) {
        error = m_in + " est un fichier de l'enregistrement " + m_out + " : l'importation ne peut l'écraser";
        return false;
    }
    if (!m_reader.Open(m_in, error)) return false;  // the reader's messages name the file
    if (!Rates(error) || !Describe(error)) return false;

    // A temporary recording beside the target, renamed at the end.
    std::string temp;
    for (int i = 0; i < 1000 && temp.empty(); ++i) {
        std::string candidate = ExtractBase(m_out) + StrFormat("~edf%d", i) + ".SIG";
        if (!VhlCheckFileExist(candidate) && !VhlCheckFileExist(ExtractBase(candidate) + ".STS")) temp = candidate;
    }
    long code = 0;
    CSigFilePtr file(CSigFile::Create(temp.c_str(), m_header.get(), m_patient.get(),
                                                            m_montage.get(), m_calibration.get(),
                                                            SIGFILE_FORMAT_NATIVE, &code, 1));
    if (!file) {
        error = NativeErrorText(m_out.c_str(), code);
        return false;
    }
    bool ok = Records(*file, error);
    if (ok) {
        Annotations(*file);
        ok = file->Flush() != 0;
        if (!ok) error = NativeErrorText(m_out.c_str(), file->GetIOError());
    }
    file.reset();
    if (ok && VhlCheckFileExist(m_out) && !CSigFile::Delete(m_out.c_str())) {
        error = NativeErrorText(m_out.c_str(), GetLastError());
        ok = false;
    }
    if (ok && !CSigFile::Rename(temp.c_str(), m_out.c_str())) {
        error = NativeErrorText(m_out.c_str(), GetLastError());
        ok = false;
    }
    if (!ok) CSigFile::Delete(temp.c_str());
    return ok;
}

}  // namespace

int ImportEdf(const char* in, const char* outSig, const EdfImportOptions& options, std::string* errorOut) {
    std::string localError;
    std::string& error = errorOut ? *errorOut : localError;
    error.clear();
    if (!in || !outSig || !*in || !*outSig) {
        error = "Nom de fichier manquant";
        return 0;
    }
    Importer importer(in, outSig, options);
    if (importer.Run(error)) return 1;
    if (error.empty()) error = std::string(in) + " : importation impossible";
    return 0;
}

}  // namespace edf
