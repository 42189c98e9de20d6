// The EDF+ / BDF+ drivers' create-copy: any open recording written as an
// EDF+ or BDF+ file (rules in EdfExport.h).
#include <algorithm>
#include <map>
#include <cmath>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "formats/edf/EdfDescribe.h"
#include "formats/edf/EdfExport.h"
#include "formats/edf/EdfNative.h"
#include "formats/edf/EdfWriter.h"
#include "platform/strings/EdfStrings.h"
#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "recording/ptntinfo.h"
#include "sigfile/FormatDriver.h"
#include "sigfile/RecordSource.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace edf {
namespace {

// Seconds from `origin` to `t`, without the millisecond rounding of time
// spans: record times of fast rates need the microseconds.
double SecondsBetween(const CSDateTime& origin, const CSDateTime& t) { return (t.GetValue() - origin.GetValue()) * 86400.0; }

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

// A dimension text in the ASCII the header allows ("µV" is written "uV").
std::string AsciiUnit(const std::string& unit) {
    if (unit == "\xC2\xB5V" || unit == "\xCE\xBCV") return "uV";
    if (unit == "\xC2\xB0" "C") return "degC";
    return TransliterateAscii(unit);
}

// How the samples of one output signal are produced.
struct Plan {
    enum Kind { Digital, Fitted, Computed } kind = Digital;
    unsigned channel = 0;  // record channel or computed output
    double scale = 1, offset = 0;  // Fitted, Computed: digital = round(value x scale + offset)
};

// The physical limits as 8-character texts for a mapping kept digital
// sample for sample: each limit is rounded to the closest text that fits,
// which moves no sample by more than the larger of the two roundings; that
// must stay under half a digital step.
bool FitLimitsToFields(EdfSignal& s, std::string& error) {
    const double step = std::fabs(s.Gain());
    double lo = RoundEdfNumber(s.physicalMin, 8), hi = RoundEdfNumber(s.physicalMax, 8);
    if (!std::isfinite(lo) || !std::isfinite(hi) || lo == hi ||
        std::max(std::fabs(lo - s.physicalMin), std::fabs(hi - s.physicalMax)) > 0.5 * step) {
        error = StrFormat(LoadResString(IDS_EDF_ERR_LIMITS).c_str(), s.label.c_str(), s.physicalMin, s.physicalMax,
                          s.unit.c_str());
        return false;
    }
    s.physicalMin = lo;
    s.physicalMax = hi;
    return true;
}

// Limits for values spread over the whole digital range: the smallest
// 8-character texts that hold [lo, hi].
void LimitsAround(EdfSignal& s, double lo, double hi) {
    if (!(lo <= hi)) lo = hi = 0;
    if (lo == hi) {
        lo -= 1;
        hi += 1;
    }
    const double margin = 1e-6 * (hi - lo);
    double a = RoundEdfNumber(lo - margin, 8), b = RoundEdfNumber(hi + margin, 8);
    // Rounding may have moved a limit inward: step it outward.
    for (int i = 0; i < 8 && std::isfinite(a) && a > lo; ++i) a = RoundEdfNumber(a - (hi - lo) * std::ldexp(1.0, i - 20), 8);
    for (int i = 0; i < 8 && std::isfinite(b) && b < hi; ++i) b = RoundEdfNumber(b + (hi - lo) * std::ldexp(1.0, i - 20), 8);
    s.physicalMin = std::isfinite(a) ? a : lo;
    s.physicalMax = std::isfinite(b) ? b : hi;
}

struct PendingAnnotation {
    double onset = 0;  // seconds from the first exported record
    std::optional<double> duration;
    std::string text;
};

class Copier {
public:
    Copier(CSigFile& file, const std::string& out, const CSigFileCopyOptions& options, EdfFormat format,
           CProgressInfo* progress, bool measureDigital)
        : m_file(file), m_out(out), m_options(options), m_format(format), m_progress(progress),
          m_measureDigital(measureDigital) {}

    bool Run(std::string& error);
    // True when a stored sample lay outside its channel's declared digital
    // range: the copy must be made again with ranges measured on the data.
    bool OutOfLimits() const { return m_outOfLimits; }

private:
    bool ChooseSignals(std::string& error);
    bool ChooseRecords(std::string& error);
    bool MeasureRanges(std::string& error);
    bool ReadRecord(long r, std::string& error);
    std::vector<EdfAnnotation> Annotations(const CSDateTime& origin, double end) const;
    bool WriteAnnotationsOnly(std::string& error);
    bool CanCopyRawRecords() const;
    bool CopyRawRecords(EdfWriter& writer, const EdfAnnotationPlan& plan, const CSDateTime& origin, std::string& error);

    CSigFile& m_file;
    std::string m_out;
    const CSigFileCopyOptions& m_options;
    EdfFormat m_format;
    CProgressInfo* m_progress;
    bool m_measureDigital;
    bool m_outOfLimits = false;

    CComputedMontage m_computed;
    std::unique_ptr<CDerivedSource> m_derived;
    std::vector<EdfSignal> m_signals;
    std::vector<Plan> m_plans;
    long m_first = 0, m_end = 0;
    int m_group = 1;         // source records per EDF record (when not cut to the source's own records)
    double m_duration = 0;   // seconds per source record
    double m_recordSeconds = 0;           // seconds per EDF record
    std::map<long, unsigned> m_partial;   // source records holding signal in their first samples only
    unsigned m_basePerRecord = 0;         // base samples of a source record
    std::unique_ptr<CDigSigRec> m_digital;
    std::unique_ptr<CFmtSigRec> m_values;
    std::vector<std::vector<LONG>> m_samples;
};

bool Copier::ChooseSignals(std::string& error) {
    if (!m_computed.Choose(m_file, m_options.montage, m_options.derives, error)) return false;
    const LONG lim0 = DigitalLimitMin(m_format), lim1 = DigitalLimitMax(m_format);
    if (CReformatedMontage* ref = m_computed.Get()) {
        m_derived = std::make_unique<CDerivedSource>(m_file, ref);
        std::string why;
        if (!m_derived->Compile(&why)) {
            error = StrFormat(LoadResString(IDS_EDF_ERR_MONTAGE).c_str(), ref->GetMontageName()) + (why.empty() ? "" : "\n" + why);
            return false;
        }
        for (unsigned c = 0; c < m_derived->GetNumChannels(); ++c) {
            if (!m_options.channels.empty() &&
                std::none_of(m_options.channels.begin(), m_options.channels.end(),
                             [&](const std::string& l) { return EqualsNoCase(l, m_derived->GetLabel(c)); }))
                continue;
            EdfSignal s;
            s.label = m_derived->GetLabel(c);
            s.transducer = VhlGetTraceTypeName(m_derived->GetType(c));
            s.unit = EdfUnitText(m_derived->GetUnit(c));
            s.digitalMin = lim0;
            s.digitalMax = lim1;
            s.samplesPerRecord = int(m_derived->GetSamplesRec(c));
            m_signals.push_back(s);
            m_plans.push_back({Plan::Computed, c});
        }
    } else {
        const CPhysicalMontage* physical = m_file.GetPhysicalMontage();
        std::vector<unsigned> channels;
        for (unsigned c = 0; c < m_file.GetNumChannels(); ++c) channels.push_back(c);
        if (!m_options.channels.empty()) {
            channels.clear();
            for (const std::string& label : m_options.channels) {
                int found = -1;
                for (unsigned c = 0; c < m_file.GetNumChannels() && found < 0; ++c) {
                    CSigChannelInfo info;
                    m_file.GetChannelInfo(c, &info);
                    const unsigned m = c / kMaxMontageChannels, k = c % kMaxMontageChannels;
                    const bool alias = physical && int(m) < physical->GetNumRecordingMontages() &&
                                       k < physical->GetRecordingMontageAt(int(m))->GetNumChannels() &&
                                       EqualsNoCase(physical->GetRecordingMontageAt(int(m))->GetLabel(k), label);
                    if (EqualsNoCase(info.label, label) || alias) found = int(c);
                }
                if (found < 0) {
                    error = StrFormat(LoadResString(IDS_EDF_ERR_CHANNEL).c_str(), label.c_str());
                    return false;
                }
                channels.push_back(unsigned(found));
            }
        }
        for (unsigned c : channels) {
            CSigChannelInfo info;
            m_file.GetChannelInfo(c, &info);
            EdfSignal s;
            s.label = info.label;
            s.transducer = info.transducer;
            s.prefilter = info.prefilter;
            s.unit = AsciiUnit(info.unit);
            s.samplesPerRecord = int(m_file.GetSamplesChannel(c));
            s.physicalMin = info.physicalMin;
            s.physicalMax = info.physicalMax;
            s.digitalMin = info.digitalMin;
            s.digitalMax = info.digitalMax;
            Plan plan{Plan::Digital, c};
            if (info.digitalMin < lim0 || info.digitalMax > lim1 || info.digitalMin >= info.digitalMax ||
                info.physicalMin == info.physicalMax) {
                // Wider than the format (24 bits into EDF): the values are
                // spread over the format's range, fitted to what the data use.
                plan.kind = Plan::Fitted;
                s.digitalMin = lim0;
                s.digitalMax = lim1;
            } else if (std::string why; !FitLimitsToFields(s, why)) {
                // Limits that 8 characters cannot hold closely enough (a
                // range far from zero): the values are spread over the
                // format's range instead, fitted to what the data use.
                plan.kind = Plan::Fitted;
                s.digitalMin = lim0;
                s.digitalMax = lim1;
            }
            m_signals.push_back(s);
            m_plans.push_back(plan);
        }
    }
    return true;
}

bool Copier::ChooseRecords(std::string& error) {
    const long count = m_file.GetNumRecords();
    m_first = m_options.firstRecord;
    m_end = m_options.endRecord < 0 ? count : m_options.endRecord;
    if (m_first < 0 || m_first > m_end || m_end > count) {
        error = StrFormat(LoadResString(IDS_EDF_ERR_RANGE).c_str(), m_first, m_end, count);
        return false;
    }
    m_duration = m_file.GetRecordDuration();
    // Records whose duration has no exact 8-character text are grouped.
    m_group = 0;
    for (int k = 1; k <= 1000 && !m_group; ++k) {
        const double d = m_duration * k;
        const double text = RoundEdfNumber(d, 8);
        if (std::isfinite(text) && std::fabs(text - d) <= 1e-9 * d) m_group = k;
    }
    if (!m_group || !(m_duration > 0)) {
        error = StrFormat(LoadResString(IDS_EDF_ERR_DURATION).c_str(), m_duration);
        return false;
    }
    m_file.GetPartialRecords(&m_partial);
    const CPhysicalMontage* physical = m_file.GetPhysicalMontage();
    m_basePerRecord = physical && physical->GetNumRecordingMontages() > 0
                          ? physical->GetRecordingMontageAt(0)->GetSamplesRecord()
                          : 0;
    // A recording converted from a file of other records is cut back into
    // records of that file's duration when every signal has a whole number
    // of samples in one: the same records as the file it came from.
    const double source = m_file.GetSourceRecordDuration();
    bool cut = source > 0 && std::fabs(source - m_duration * m_group) > 1e-9 * source &&
               std::fabs(RoundEdfNumber(source, 8) - source) <= 1e-9 * source;
    std::vector<int> perRecord;
    for (const EdfSignal& s : m_signals) {
        const double x = s.samplesPerRecord * source / m_duration;
        cut = cut && std::fabs(x - std::round(x)) < 1e-6 && x >= 0.5 && x < 1e7;
        perRecord.push_back(int(std::lround(x)));
    }
    m_recordSeconds = cut ? source : m_duration * m_group;
    for (size_t i = 0; i < m_signals.size(); ++i)
        m_signals[i].samplesPerRecord = cut ? perRecord[i] : m_signals[i].samplesPerRecord * m_group;
    return true;
}

bool Copier::ReadRecord(long r, std::string& error) {
    m_file.MoveTo(r);
    bool ok = true;
    if (m_derived) ok = m_derived->Read(r, *m_values) != 0;
    else {
        ok = m_file.ReadDigital(m_digital.get()) != 0;
    }
    if (!ok) error = StrFormat(LoadResString(IDS_EDF_ERR_READ).c_str(), r);
    return ok;
}

// Fitted and computed signals: the range their values use, over the records
// exported, gives their physical limits.
bool Copier::MeasureRanges(std::string& error) {
    std::vector<double> lo(m_signals.size(), HUGE_VAL), hi(m_signals.size(), -HUGE_VAL);
    bool any = m_measureDigital;
    for (const Plan& p : m_plans) any = any || p.kind != Plan::Digital;
    if (!any) return true;
    for (long r = m_first; r < m_end; ++r) {
        if (!ReadRecord(r, error)) return false;
        for (size_t i = 0; i < m_plans.size(); ++i) {
            const Plan& p = m_plans[i];
            if (p.kind == Plan::Digital && !m_measureDigital) continue;
            if (p.kind == Plan::Computed) {
                const float* v = m_values->GetAt(p.channel);
                for (unsigned k = 0; k < m_values->GetNumSamples(p.channel); ++k) {
                    lo[i] = std::min<double>(lo[i], v[k]);
                    hi[i] = std::max<double>(hi[i], v[k]);
                }
            } else {
                const LONG* d = m_digital->GetAt(p.channel);
                for (unsigned k = 0; k < m_digital->GetNumSamples(p.channel); ++k) {
                    lo[i] = std::min<double>(lo[i], d[k]);
                    hi[i] = std::max<double>(hi[i], d[k]);
                }
            }
        }
    }
    for (size_t i = 0; i < m_plans.size(); ++i) {
        Plan& p = m_plans[i];
        EdfSignal& s = m_signals[i];
        if (p.kind == Plan::Digital) {
            if (!m_measureDigital || !(lo[i] <= hi[i])) continue;
            // Samples beyond the declared range: the range is widened to hold
            // them, the mapping kept; when that cannot be written, the values
            // are spread over the format's range instead.
            const LONG dmin = LONG(std::min<double>(s.digitalMin, lo[i])), dmax = LONG(std::max<double>(s.digitalMax, hi[i]));
            if (dmin == s.digitalMin && dmax == s.digitalMax) continue;
            CSigChannelInfo info;
            m_file.GetChannelInfo(p.channel, &info);
            const double gain = (info.physicalMax - info.physicalMin) / (double(info.digitalMax) - info.digitalMin);
            EdfSignal wider = s;
            wider.digitalMin = dmin;
            wider.digitalMax = dmax;
            wider.physicalMin = info.physicalMin + (double(dmin) - info.digitalMin) * gain;
            wider.physicalMax = info.physicalMax + (double(dmax) - info.digitalMax) * gain;
            std::string ignored;
            if (dmin >= DigitalLimitMin(m_format) && dmax <= DigitalLimitMax(m_format) && FitLimitsToFields(wider, ignored)) {
                s = wider;
                continue;
            }
            p.kind = Plan::Fitted;
            s.digitalMin = DigitalLimitMin(m_format);
            s.digitalMax = DigitalLimitMax(m_format);
        }
        if (p.kind == Plan::Fitted) {
            // Stored samples of the source, in its own physical mapping.
            CSigChannelInfo info;
            m_file.GetChannelInfo(p.channel, &info);
            const double gain = (info.physicalMax - info.physicalMin) / (double(info.digitalMax) - info.digitalMin);
            const double offset = info.physicalMin - info.digitalMin * gain;
            double a = lo[i] <= hi[i] ? lo[i] * gain + offset : 0, b = lo[i] <= hi[i] ? hi[i] * gain + offset : 0;
            if (a > b) std::swap(a, b);
            LimitsAround(s, a, b);
            // digital out = (phys - pmin) x k + dmin, with phys = d x gain + offset
            const double k = (double(s.digitalMax) - s.digitalMin) / (s.physicalMax - s.physicalMin);
            p.scale = gain * k;
            p.offset = (offset - s.physicalMin) * k + s.digitalMin;
        } else {
            LimitsAround(s, lo[i], hi[i]);
            const double k = (double(s.digitalMax) - s.digitalMin) / (s.physicalMax - s.physicalMin);
            p.scale = k;
            p.offset = s.digitalMin - s.physicalMin * k;
        }
    }
    return true;
}

std::vector<EdfAnnotation> Copier::Annotations(const CSDateTime& origin, double end) const {
    // Every item of the recording (all of them for a whole export, those of
    // the exported stretch otherwise), discontinuities excepted: the record
    // times carry those.
    const bool whole = m_first == 0 && m_end == m_file.GetNumRecords();
    // Trigger items read from a channel that is exported too: the channel
    // carries their codes already.
    std::set<std::string> exportedChannels;
    for (const Plan& p : m_plans) {
        unsigned k = 0;
        const CRecordingMontage* rec = p.kind != Plan::Computed ? RecordingMontageOfChannel(m_file, p.channel, &k) : nullptr;
        if (rec) exportedChannels.insert(ToUpperAscii(rec->GetLabel(k)));
    }
    std::vector<EdfAnnotation> out;
    for (unsigned i = 0; i < m_file.GetNumStatusItems(); ++i) {
        const CStatusItem* item = m_file.GetStatusItemAt(i);
        if (!item || !item->GetGroup() || EqualsNoCase(item->GetGroup()->GetGroupID(), groupid::kDiscontinuity)) continue;
        if (EqualsNoCase(item->GetGroup()->GetGroupID(), groupid::kTrigger) && !item->GetChannel().empty() &&
            exportedChannels.count(ToUpperAscii(item->GetChannel())))
            continue;
        EdfAnnotation a;
        a.onset = SecondsBetween(origin, item->GetBeginTime());
        const double duration = SecondsBetween(item->GetBeginTime(), item->GetEndTime());
        if (duration > 5e-7) a.duration = std::round(duration * 1e6) / 1e6;
        a.onset = std::round(a.onset * 1e6) / 1e6;
        if (!whole && (a.onset < 0 || a.onset >= end)) continue;
        a.text = TextOfItem(*item);
        out.push_back(a);
    }
    std::stable_sort(out.begin(), out.end(), [](const EdfAnnotation& a, const EdfAnnotation& b) { return a.onset < b.onset; });
    return out;
}

// A recording without channels (a hypnogram, a list of scored events):
// records of no duration, one annotation each, as such files are written.
bool Copier::WriteAnnotationsOnly(std::string& error) {
    EdfHeader header = BuildHeader(m_file, m_format);
    header.recordDuration = 0;
    header.start = m_file.GetFileHeader() ? m_file.GetFileHeader()->GetCreationDateTime() : CSDateTime();
    const std::vector<EdfAnnotation> all = Annotations(header.start, HUGE_VAL);
    size_t room = BuildTimeKeepingTal(0).size();
    for (const EdfAnnotation& a : all) room = std::max(room, BuildTimeKeepingTal(0).size() + BuildTal(a.onset + 1, a.duration, &a.text).size());
    EdfWriter writer;
    if (!writer.Open(m_out, header, {}, room, error)) return false;
    const std::vector<std::vector<LONG>> none;
    if (all.empty() && !writer.WriteRecord(0, none, {}, error)) return false;
    for (const EdfAnnotation& a : all)
        if (!writer.WriteRecord(0, none, {a}, error)) return false;
    return writer.Close(error);
}

bool Copier::Run(std::string& error) {
    if (!ChooseSignals(error)) return false;
    if (m_signals.empty() && m_file.GetNumChannels() == 0) return WriteAnnotationsOnly(error);
    if (m_signals.empty()) {
        error = LoadResString(IDS_EDF_ERR_NO_SIGNAL);
        return false;
    }
    if (!ChooseRecords(error)) return false;
    m_digital = std::make_unique<CDigSigRec>();
    m_values.reset(m_derived ? m_derived->CreateCompatibleFmtSigRec() : new CFmtSigRec);
    if (!MeasureRanges(error)) return false;

    EdfHeader header = BuildHeader(m_file, m_format);
    header.recordDuration = m_recordSeconds;
    const long records = m_end - m_first;
    // Seconds of signal the exported records hold (without the repeated
    // samples that complete a partial record).
    double signalSeconds = double(records) * m_duration;
    for (const auto& [record, fill] : m_partial)
        if (record >= m_first && record < m_end && m_basePerRecord)
            signalSeconds -= m_duration * double(m_basePerRecord - fill) / m_basePerRecord;
    // Annotations are planned on the nominal record starts; real starts
    // (after gaps) only move them later, and readers take an annotation's
    // time from its onset, not from the record that carries it.
    std::vector<double> nominal;
    const long planned = std::max(1L, long(std::ceil(signalSeconds / m_recordSeconds - 1e-6)));
    for (long k = 0; k < planned; ++k) nominal.push_back(double(k) * m_recordSeconds);
    CSDateTime origin;
    if (records > 0) {
        if (!ReadRecord(m_first, error)) return false;
        origin = m_derived ? m_values->GetTime() : m_digital->GetTime();
    } else {
        origin = m_file.GetFileHeader() ? m_file.GetFileHeader()->GetCreationDateTime() : CSDateTime();
    }
    // Onsets are counted from the first exported record; a part of the
    // recording keeps the items that begin up to the end of its last record.
    double span = double(records) * m_duration;
    if (records > 1 && (m_first != 0 || m_end != m_file.GetNumRecords())) {
        if (!ReadRecord(m_end - 1, error)) return false;
        span = SecondsBetween(origin, m_derived ? m_values->GetTime() : m_digital->GetTime()) + m_duration;
        if (!ReadRecord(m_first, error)) return false;
    }
    const std::vector<EdfAnnotation> annotations = Annotations(origin, span);
    header.start = origin;
    const EdfAnnotationPlan plan = PlanAnnotations(nominal, annotations, EdfStartFraction(origin));
    size_t most = 0;
    for (const auto& r : plan.perRecord) most = std::max(most, r.size());
    const size_t room = plan.bytesPerRecord + (most + 1) * 8;

    EdfWriter writer;
    if (!writer.Open(m_out, header, m_signals, room, error)) return false;
    if (m_progress) m_progress->SetRange(ULONGLONG(records));
    if (CanCopyRawRecords()) return CopyRawRecords(writer, plan, origin, error) && writer.Close(error);
    // Samples flow from the source's records into the EDF records through one
    // queue per signal: an EDF record is written when every queue holds its
    // share, so its records need not be made of whole source records.
    std::vector<std::vector<LONG>> queues(m_signals.size());
    size_t head = 0;  // samples of every queue already written, in units of records
    m_samples.assign(m_signals.size(), {});
    for (size_t i = 0; i < m_signals.size(); ++i) m_samples[i].assign(size_t(m_signals[i].samplesPerRecord), 0);
    double queueStart = 0;  // time of the first queued sample
    double previous = 0;
    size_t written = 0;
    std::vector<const LONG*> pointers(m_signals.size());
    auto writeRecord = [&](bool pad) {
        for (size_t i = 0; i < queues.size(); ++i) {
            const size_t n = m_samples[i].size();
            const size_t from = head * n;
            if (!pad) {
                pointers[i] = queues[i].data() + from;  // a whole record is queued: written from the queue
                continue;
            }
            for (size_t k = 0; k < n; ++k) {
                if (from + k < queues[i].size()) m_samples[i][k] = queues[i][from + k];
                else m_samples[i][k] = !queues[i].empty() ? queues[i].back() : 0;
            }
            pointers[i] = m_samples[i].data();
        }
        const std::vector<EdfAnnotation> none;
        const auto& carried = written < plan.perRecord.size() ? plan.perRecord[written] : none;
        ++written;
        ++head;
        const bool ok = writer.WriteRecord(queueStart, pointers.data(), pointers.size(), carried, error);
        queueStart += m_recordSeconds;
        return ok;
    };
    auto complete = [&]() {
        for (size_t i = 0; i < queues.size(); ++i)
            if (queues[i].size() < (head + 1) * m_samples[i].size()) return false;
        return true;
    };
    auto compact = [&]() {
        for (size_t i = 0; i < queues.size(); ++i)
            queues[i].erase(queues[i].begin(), queues[i].begin() + long(std::min(queues[i].size(), head * m_samples[i].size())));
        head = 0;
    };
    // Writes what is queued, completing a partial last record by repeating its last samples.
    auto flush = [&]() {
        bool any = false;
        for (size_t i = 0; i < queues.size(); ++i) any = any || queues[i].size() > head * m_samples[i].size();
        const bool ok = !any || writeRecord(true);
        for (auto& q : queues) q.clear();
        head = 0;
        return ok;
    };
    for (long r = m_first; r < m_end; ++r) {
        if (r != m_first && !ReadRecord(r, error)) return false;
        const CSDateTime t = m_derived ? m_values->GetTime() : m_digital->GetTime();
        double start = SecondsBetween(origin, t);
        if (r != m_first) {
            const double follow = previous + m_duration;
            // Record times carry a little rounding: a record within a
            // thousandth of its duration of the previous end follows it.
            if (std::fabs(start - follow) <= 1e-3 * m_duration + 1e-6 || start < follow) start = follow;
            else if (!flush()) return false;  // a gap ends the record
        }
        previous = start;
        bool empty = true;
        for (const auto& q : queues) empty = empty && q.empty();
        if (empty) queueStart = start;
        // A record that holds signal in its first samples only gives those.
        const auto partial = m_partial.find(r);
        for (size_t i = 0; i < m_plans.size(); ++i) {
            const Plan& p = m_plans[i];
            std::vector<LONG>& out = queues[i];
            const EdfSignal& s = m_signals[i];
            unsigned n = p.kind == Plan::Computed ? m_values->GetNumSamples(p.channel) : m_digital->GetNumSamples(p.channel);
            if (partial != m_partial.end() && m_basePerRecord)
                n = unsigned(std::min<double>(n, std::round(double(n) * partial->second / m_basePerRecord)));
            if (p.kind == Plan::Computed) {
                const float* v = m_values->GetAt(p.channel);
                for (unsigned k = 0; k < n; ++k)
                    out.push_back(LONG(std::clamp(std::round(v[k] * p.scale + p.offset), double(s.digitalMin), double(s.digitalMax))));
            } else {
                const LONG* d = m_digital->GetAt(p.channel);
                if (p.kind == Plan::Digital) {
                    for (unsigned k = 0; k < n; ++k) {
                        if (d[k] < s.digitalMin || d[k] > s.digitalMax) {
                            m_outOfLimits = true;
                            writer.Abort();
                            return false;
                        }
                        out.push_back(d[k]);
                    }
                } else {
                    for (unsigned k = 0; k < n; ++k)
                        out.push_back(LONG(std::clamp(std::round(d[k] * p.scale + p.offset), double(s.digitalMin), double(s.digitalMax))));
                }
            }
        }
        while (complete())
            if (!writeRecord(false)) return false;
        if (head > 64) compact();
        if (m_progress) {
            m_progress->SetPos(ULONGLONG(r - m_first + 1));
            if (m_progress->IsCancelled()) {
                error = LoadResString(IDS_EDF_ERR_CANCELLED);
                return false;
            }
        }
    }
    if (!flush()) return false;
    return writer.Close(error);
}

// A native recording exported whole-record for whole-record to 16-bit EDF,
// every channel as stored: each record's 16-bit samples go into the file as
// they are, without the queues.
bool Copier::CanCopyRawRecords() const {
    if (m_derived || m_file.GetFormat() != SIGFILE_FORMAT_NATIVE || SampleBytes(m_format) != 2) return false;
    if (std::fabs(m_recordSeconds - m_duration) > 1e-12 * m_duration) return false;
    for (const auto& [record, fill] : m_partial)
        if (record >= m_first && record < m_end) return false;
    for (size_t i = 0; i < m_plans.size(); ++i) {
        const EdfSignal& s = m_signals[i];
        if (m_plans[i].kind != Plan::Digital || s.digitalMin != -32768 || s.digitalMax != 32767 ||
            s.samplesPerRecord != int(m_file.GetSamplesChannel(m_plans[i].channel)))
            return false;
    }
    return true;
}

bool Copier::CopyRawRecords(EdfWriter& writer, const EdfAnnotationPlan& plan, const CSDateTime& origin,
                            std::string& error) {
    std::unique_ptr<CRawSigRec> raw(m_file.CreateCompatibleRawSigRec());
    if (!raw) {
        error = StrFormat(LoadResString(IDS_EDF_ERR_READ).c_str(), m_first);
        return false;
    }
    std::vector<const short*> pointers(m_plans.size());
    const std::vector<EdfAnnotation> none;
    double previous = 0;
    for (long r = m_first; r < m_end; ++r) {
        m_file.MoveTo(r);
        if (!m_file.Read(raw.get())) {
            error = StrFormat(LoadResString(IDS_EDF_ERR_READ).c_str(), r);
            return false;
        }
        double start = SecondsBetween(origin, raw->GetTime());
        // Record times carry a little rounding: a record within a thousandth
        // of its duration of the previous end follows it.
        if (r != m_first && (std::fabs(start - (previous + m_duration)) <= 1e-3 * m_duration + 1e-6 ||
                             start < previous + m_duration))
            start = previous + m_duration;
        previous = start;
        for (size_t i = 0; i < m_plans.size(); ++i) pointers[i] = raw->GetAt(m_plans[i].channel);
        const size_t written = size_t(r - m_first);
        const auto& carried = written < plan.perRecord.size() ? plan.perRecord[written] : none;
        if (!writer.WriteRecord(start, pointers.data(), pointers.size(), carried, error)) return false;
        if (m_progress) {
            m_progress->SetPos(ULONGLONG(r - m_first + 1));
            if (m_progress->IsCancelled()) {
                error = LoadResString(IDS_EDF_ERR_CANCELLED);
                return false;
            }
        }
    }
    return true;
}

}  // namespace

int CreateEdfCopy(CSigFile* source, const char* out, const CSigFileCopyOptions& options, EdfFormat format,
                  std::string* errorOut, CProgressInfo* progress) {
    std::string localError;
    std::string& error = errorOut ? *errorOut : localError;
    error.clear();
    if (!source || !out || !*out) {
        error = LoadResString(IDS_EDF_ERR_NO_NAME);
        return 0;
    }
    if (IsFileOfRecording(source->GetFileName(), out)) {
        error = StrFormat(LoadResString(IDS_EDF_ERR_OWN_FILE).c_str(), out, source->GetFileName());
        return 0;
    }
    try {
        Copier copier(*source, out, options, format, progress, false);
        if (copier.Run(error)) return 1;
        if (copier.OutOfLimits()) {
            error.clear();
            Copier measured(*source, out, options, format, progress, true);
            if (measured.Run(error)) return 1;
        }
    } catch (const std::bad_alloc&) {
        error = std::string(out) + " : " + LoadResString(IDS_EDF_ERR_MEMORY);
    } catch (const CException& e) {
        error = std::string(out) + " : " + e.GetMessageText();
    }
    if (error.empty()) error = std::string(out) + " : " + LoadResString(IDS_EDF_ERR_EXPORT);
    return 0;
}

int ExportEdf(const char* name, const char* out, const EdfExportOptions& options, std::string* errorOut) {
    std::string localError;
    std::string& error = errorOut ? *errorOut : localError;
    long code = 0;
    CSigFilePtr file(name ? CSigFile::Open(name, 1, &code) : nullptr);
    if (!file) {
        error = NativeErrorText(name, code);
        return 0;
    }
    CSigFileCopyOptions copy;
    copy.montage = options.montage;
    copy.firstRecord = options.firstRecord;
    copy.endRecord = options.endRecord;
    const EdfFormat format = out && EqualsNoCase(ExtractExt(out), ".bdf") ? EdfFormat::BdfPlus : EdfFormat::EdfPlus;
    return CreateEdfCopy(file.get(), out, copy, format, &error, nullptr);
}

}  // namespace edf
