// The native driver's create-copy (rules in NativeCreateCopy.h).
#include "formats/native/NativeCreateCopy.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <vector>

#include "montage/mtgs.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "formats/native/STDSIGFI.h"
#include "platform/Strings.h"
#include "platform/strings/NativeStrings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/RecordSource.h"
#include "sigfile/Resampler.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace {

constexpr int kRecordSamples = 64;
constexpr int kAdMin = -32768, kAdMax = 32767;
constexpr float kVoltMin = -0.0032768f, kVoltMax = 0.0032767f;

double SecondsBetween(const CSDateTime& a, const CSDateTime& b) { return (b.GetValue() - a.GetValue()) * 86400.0; }

bool IsTriggerLabel(const std::string& label) {
    const std::string l = ToUpperAscii(label);
    return l == "STATUS" || l == "TRIGGER" || l.rfind("STI", 0) == 0 || l.rfind("TRIGGER ", 0) == 0;
}

// One channel of the new recording.
struct Channel {
    unsigned source = 0;   // record channel, or output of the computed montage
    CSigChannelInfo info;  // as the source describes it
    std::string elec1, elec2, preprocessing;
    unsigned type = 1, unit = 1;
    unsigned color = 0, underSampling = 0;
    double rate = 0;       // source rate
    unsigned target = 0;   // stored rate
    unsigned samples = 0;  // per native record
    bool resampled = false;
    bool trigger = false;  // codes become trigger items
    enum Mode { Copy16, Shift, Spread, Trigger } mode = Copy16;
    double gain = 1, offset = 0;  // world = source value x gain + offset
    double lo = HUGE_VAL, hi = -HUGE_VAL;  // range of the source values used
    std::unique_ptr<CResampler> resampler;
    std::vector<double> queue;
    size_t head = 0;
    // Trigger codes: the code in force, where it began (seconds), its value.
    LONG code = 0;
    double codeStart = 0;
    size_t Queued() const { return queue.size() - head; }
};

// Rounding half away from zero, like std::round, without a library call or
// a data-dependent branch per sample: values beyond +-1e15 (far outside
// any stored range) are taken at that bound, not a number gives 0.
inline double RoundHalfAway(double x) {
    if (x != x) return 0;
    x = std::min(std::max(x, -1e15), 1e15);
    return double(static_cast<long long>(x + std::copysign(0.5, x)));
}

struct TriggerEvent {
    double begin, end;
    LONG code;
    size_t channel;  // the trigger channel whose code it is
};

class NativeCopier {
public:
    NativeCopier(CSigFile& file, const std::string& out, const CSigFileCopyOptions& options, CProgressInfo* progress,
                 std::vector<std::string>& notes)
        : m_file(file), m_out(out), m_options(options), m_progress(progress), m_notes(notes) {}

    bool Run(std::string& error);

private:
    bool ChooseChannels(std::string& error);
    bool ChooseRates(std::string& error);
    bool Read(long r, std::string& error);
    const double* Values(size_t c, unsigned& n);
    bool MeasureRanges(std::string& error);
    bool Describe(std::string& error);
    bool CopyRecords(CSigFile& target, std::string& error);
    // Source records that are each a whole number of native records of
    // 16-bit samples kept as stored: the records are cut up, no queues.
    unsigned WholeRecordFactor() const;
    bool CopyWholeRecords(CSigFile& target, unsigned factor, std::string& error);
    void Push(Channel& ch, const double* values, unsigned n, double recordStart);
    bool Emit(CSigFile& target, bool pad, std::string& error);
    bool WriteNextRecord(CSigFile& target, std::string& error);
    void EndSegment();
    void CopyItems(CSigFile& target);
    bool RunEventsOnly(std::string& error);
    bool Finish(CSigFilePtr target, const std::string& temp, bool ok, std::string& error);
    LONG SampleAt(double seconds) const;

    CSigFile& m_file;
    std::string m_out;
    const CSigFileCopyOptions& m_options;
    CProgressInfo* m_progress;
    std::vector<std::string>& m_notes;

    CComputedMontage m_computed;
    std::unique_ptr<CDerivedSource> m_derived;
    std::vector<Channel> m_channels;
    unsigned m_base = 0;
    long m_first = 0, m_end = 0;
    double m_duration = 0;  // of a source record

    std::unique_ptr<CDigSigRec> m_digital;
    std::unique_ptr<CFmtSigRec> m_values;
    std::vector<double> m_scratch;

    std::unique_ptr<CFileHeader> m_header;
    std::unique_ptr<CPatientInfo> m_patient;
    std::unique_ptr<CPhysicalMontage> m_montage;
    std::unique_ptr<CCalibration> m_calibration;

    CSDateTime m_origin;
    std::vector<double> m_recordStarts;  // seconds from the origin, per native record
    double m_segmentStart = 0;
    long m_segmentRecords = 0;
    long m_padded = 0;
    std::map<long, unsigned> m_partial;       // native record -> base samples holding signal
    std::map<long, unsigned> m_sourcePartial;  // the same, of the source's records
    unsigned m_sourcePerRecord = 0;            // base samples of a source record
    std::unique_ptr<CRawSigRec> m_record;
    std::vector<TriggerEvent> m_triggers;
};

bool NativeCopier::ChooseChannels(std::string& error) {
    if (!m_computed.Choose(m_file, m_options.montage, m_options.derives, error)) return false;
    const CPhysicalMontage* physical = m_file.GetPhysicalMontage();
    if (CReformatedMontage* ref = m_computed.Get()) {
        m_derived = std::make_unique<CDerivedSource>(m_file, ref);
        std::string why;
        if (!m_derived->Compile(&why)) {
            error = StrFormat(LoadResString(IDS_NATIVE_ERR_MONTAGE).c_str(), ref->GetMontageName()) +
                    (why.empty() ? "" : "\n" + why);
            return false;
        }
        for (unsigned c = 0; c < m_derived->GetNumChannels(); ++c) {
            if (!m_options.channels.empty() &&
                std::none_of(m_options.channels.begin(), m_options.channels.end(),
                             [&](const std::string& l) { return EqualsNoCase(l, m_derived->GetLabel(c)); }))
                continue;
            Channel ch;
            ch.source = c;
            ch.info.label = m_derived->GetLabel(c);
            ch.info.unit = VhlGetUnitName(m_derived->GetUnit(c));
            ch.info.transducer = VhlGetTraceTypeName(m_derived->GetType(c));
            const std::string label = ch.info.label;
            const size_t dash = label.find('-');
            ch.elec1 = dash != std::string::npos && dash > 0 ? label.substr(0, dash) : label;
            ch.elec2 = dash != std::string::npos && dash > 0 ? label.substr(dash + 1) : "";
            ch.type = m_derived->GetType(c);
            ch.unit = m_derived->GetUnit(c);
            ch.rate = m_file.GetRecordDuration() > 0 ? m_derived->GetSamplesRec(c) / m_file.GetRecordDuration() : 0;
            ch.mode = Channel::Spread;
            m_channels.push_back(std::move(ch));
        }
    } else {
        std::vector<unsigned> chosen;
        auto montageOf = [&](unsigned c) -> std::pair<const CRecordingMontage*, unsigned> {
            const unsigned m = c / kMaxMontageChannels, k = c % kMaxMontageChannels;
            if (!physical || int(m) >= physical->GetNumRecordingMontages()) return {nullptr, 0};
            const CRecordingMontage* rec = physical->GetRecordingMontageAt(int(m));
            return {rec && k < rec->GetNumChannels() ? rec : nullptr, k};
        };
        if (m_options.channels.empty()) {
            for (unsigned c = 0; c < m_file.GetNumChannels(); ++c) chosen.push_back(c);
        } else {
            for (const std::string& label : m_options.channels) {
                int found = -1;
                for (unsigned c = 0; c < m_file.GetNumChannels() && found < 0; ++c) {
                    CSigChannelInfo info;
                    m_file.GetChannelInfo(c, &info);
                    auto [rec, k] = montageOf(c);
                    if (EqualsNoCase(info.label, label) || (rec && EqualsNoCase(rec->GetLabel(k), label))) found = int(c);
                }
                if (found < 0) {
                    error = StrFormat(LoadResString(IDS_NATIVE_ERR_CHANNEL).c_str(), label.c_str());
                    return false;
                }
                chosen.push_back(unsigned(found));
            }
            // What the selection leaves out is named.
            std::string left;
            for (unsigned c = 0; c < m_file.GetNumChannels(); ++c)
                if (std::find(chosen.begin(), chosen.end(), c) == chosen.end()) {
                    CSigChannelInfo info;
                    m_file.GetChannelInfo(c, &info);
                    left += (left.empty() ? "" : ", ") + info.label;
                }
            if (!left.empty()) m_notes.push_back(StrFormat(LoadResString(IDS_NATIVE_NOTE_LEFT_OUT).c_str(), left.c_str()));
        }
        for (unsigned c : chosen) {
            Channel ch;
            ch.source = c;
            m_file.GetChannelInfo(c, &ch.info);
            auto [rec, k] = montageOf(c);
            if (rec) {
                ch.elec1 = rec->GetElectrodeName1(k);
                ch.elec2 = rec->GetElectrodeName2(k);
                ch.type = rec->GetType(k);
                ch.unit = rec->GetUnit(k);
                ch.color = rec->GetColor(k);
                ch.underSampling = rec->GetUnderSamplingMethod(k);
                ch.preprocessing = rec->GetPreprocessing(k) ? rec->GetPreprocessing(k) : "";
            } else {
                ch.elec1 = ch.info.label;
            }
            ch.rate = m_file.GetChannelFrequency(c);
            const CSigChannelInfo& i = ch.info;
            if (i.digitalMax > i.digitalMin && i.physicalMax != i.physicalMin) {
                ch.gain = (i.physicalMax - i.physicalMin) / (double(i.digitalMax) - i.digitalMin);
                ch.offset = i.physicalMin - i.digitalMin * ch.gain;
                // A dimension without a unit code of its own: "nV" is kept in µV.
                if (i.unit == "nV") {
                    ch.gain *= 1e-3;
                    ch.offset *= 1e-3;
                }
            }
            ch.trigger = IsTriggerLabel(i.label);
            // Stored samples that fit 16 bits go through as they are (a
            // trigger channel too: its codes are also items); a wider
            // trigger channel keeps its lower 16 bits, the code bits.
            if (i.digitalMin >= kAdMin && i.digitalMax <= kAdMax) ch.mode = Channel::Copy16;
            else if (ch.trigger) ch.mode = Channel::Trigger;
            else ch.mode = Channel::Shift;  // or Spread, once the range used is known
            m_channels.push_back(std::move(ch));
        }
    }
    if (m_channels.empty()) {
        error = LoadResString(IDS_NATIVE_ERR_NO_CHANNEL);
        return false;
    }
    if (m_channels.size() > kMaxMontageChannels) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_TOO_MANY).c_str(), m_channels.size(), kMaxMontageChannels);
        return false;
    }
    return true;
}

bool NativeCopier::ChooseRates(std::string& error) {
    double highest = 0;
    for (const Channel& ch : m_channels) highest = std::max(highest, ch.rate);
    if (!(highest > 0)) {
        error = LoadResString(IDS_NATIVE_ERR_NO_CHANNEL);
        return false;
    }
    // Without resampling: a whole base, and every rate the base over 1, 2, 4 ... 64.
    std::string offenders;
    const double base = std::round(highest);
    const bool wholeBase = base >= 1 && std::fabs(highest - base) <= 1e-9 * base && base <= 65535;
    for (Channel& ch : m_channels) {
        bool fits = false;
        if (wholeBase)
            for (int k = 0; k <= 6 && !fits; ++k) {
                const double target = base / double(1 << k);
                if (std::fabs(target - std::round(target)) <= 1e-9 * target && std::fabs(ch.rate - target) <= 1e-9 * target) {
                    ch.target = unsigned(std::lround(target));
                    ch.samples = unsigned(kRecordSamples >> k);
                    fits = true;
                }
            }
        if (!fits) offenders += StrFormat("%s%s (%.6g Hz)", offenders.empty() ? "" : ", ", ch.info.label.c_str(), ch.rate);
    }
    if (offenders.empty()) {
        m_base = unsigned(base);
        return true;
    }
    if (!m_options.resample) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_RATES).c_str(), offenders.c_str());
        return false;
    }
    // Resampling: the highest rate rounded up to a whole hertz; every channel
    // at the lowest fitting rate not below its own.
    m_base = unsigned(std::ceil(highest - 1e-9));
    if (m_base > 65535) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_RATES).c_str(), offenders.c_str());
        return false;
    }
    std::string changed;
    for (Channel& ch : m_channels) {
        int k = 0;
        while (k < 6 && m_base % (2u << k) == 0 && double(m_base >> (k + 1)) >= ch.rate - 1e-9) ++k;
        ch.target = m_base >> k;
        ch.samples = unsigned(kRecordSamples >> k);
        ch.resampled = std::fabs(ch.rate - ch.target) > 1e-9 * ch.target;
        if (ch.resampled) {
            changed += StrFormat("%s%s %.6g -> %u Hz", changed.empty() ? "" : ", ", ch.info.label.c_str(), ch.rate, ch.target);
        }
    }
    if (!changed.empty()) m_notes.push_back(StrFormat(LoadResString(IDS_NATIVE_NOTE_RESAMPLED).c_str(), changed.c_str()));
    return true;
}

bool NativeCopier::Read(long r, std::string& error) {
    m_file.MoveTo(r);
    const int ok = m_derived ? m_derived->Read(r, *m_values) : m_file.ReadDigital(m_digital.get());
    if (!ok) error = StrFormat(LoadResString(IDS_NATIVE_ERR_READ).c_str(), r, m_file.GetFileName());
    return ok != 0;
}

// The values of channel c in the record just read: digital samples, or
// computed values in world units.
const double* NativeCopier::Values(size_t c, unsigned& n) {
    const Channel& ch = m_channels[c];
    if (m_derived) {
        n = m_values->GetNumSamples(ch.source);
        const float* v = m_values->GetAt(ch.source);
        m_scratch.assign(v, v + n);
    } else {
        n = m_digital->GetNumSamples(ch.source);
        const LONG* d = m_digital->GetAt(ch.source);
        m_scratch.assign(d, d + n);
    }
    return m_scratch.data();
}

// Channels that are fitted: the range of the values they use.
bool NativeCopier::MeasureRanges(std::string& error) {
    const bool any = std::any_of(m_channels.begin(), m_channels.end(),
                                 [](const Channel& ch) { return ch.mode == Channel::Shift || ch.mode == Channel::Spread; });
    if (!any) return true;
    for (long r = m_first; r < m_end; ++r) {
        if (!Read(r, error)) return false;
        for (size_t c = 0; c < m_channels.size(); ++c) {
            Channel& ch = m_channels[c];
            if (ch.mode != Channel::Shift && ch.mode != Channel::Spread) continue;
            unsigned n = 0;
            const double* v = Values(c, n);
            for (unsigned k = 0; k < n; ++k) {
                ch.lo = std::min(ch.lo, v[k]);
                ch.hi = std::max(ch.hi, v[k]);
            }
        }
    }
    for (Channel& ch : m_channels) {
        if (ch.mode != Channel::Shift && ch.mode != Channel::Spread) continue;
        if (!(ch.lo <= ch.hi)) ch.lo = ch.hi = 0;
        if (ch.mode == Channel::Shift && ch.hi - ch.lo > 65535) ch.mode = Channel::Spread;
        if (ch.mode == Channel::Spread && ch.hi == ch.lo) ch.hi = ch.lo + 1;
        if (ch.mode == Channel::Spread && !m_derived) {
            const double step = (ch.hi - ch.lo) / 65535.0 * std::fabs(ch.gain);
            m_notes.push_back(StrFormat(LoadResString(IDS_NATIVE_NOTE_FITTED).c_str(), ch.info.label.c_str(), step,
                                        ch.info.unit.c_str(), std::fabs(ch.gain), ch.info.unit.c_str()));
        }
    }
    return true;
}

bool NativeCopier::Describe(std::string& error) {
    const CFileHeader* h = m_file.GetFileHeader();
    m_header = std::make_unique<CFileHeader>(h ? h->GetFileDesc() : CString(), h ? h->GetInstitution() : CString(),
                                             h ? h->GetFileType() : 0, m_origin);
    m_patient = std::make_unique<CPatientInfo>(m_file.GetPatientInfo() ? *m_file.GetPatientInfo() : CPatientInfo());
    const CPhysicalMontage* source = m_file.GetPhysicalMontage();
    m_montage = std::make_unique<CPhysicalMontage>(source ? source->GetMontageName() : "", source ? source->GetMapType() : 0);
    CRecordingMontage* rec = m_montage->CreateRecordingMontage();
    const CRecordingMontage* sourceRec = source && source->GetNumRecordingMontages() > 0 ? source->GetRecordingMontageAt(0) : nullptr;
    if (sourceRec) rec->SetMontageName(sourceRec->GetMontageName());
    if (!rec->SetBaseFrequency(m_base)) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_BASE).c_str(), m_base);
        return false;
    }
    m_calibration = std::make_unique<CCalibration>(unsigned(m_channels.size()), kAdMin, kVoltMin, kAdMax, kVoltMax,
                                                   double(m_base));
    auto addElectrode = [&](const std::string& name) {
        if (name.empty() || m_montage->IsElectrodeOfMontage(name.c_str())) return true;
        CPolar3D where;
        const int at = source ? source->GetElectrodeNumber(name.c_str()) : -1;
        if (at >= 0) where = source->GetElectrodePosition(unsigned(at));
        else if (CPhysicalMontage::IsStdElec(name.c_str())) where = CPhysicalMontage::GetStdElecPosition(name.c_str());
        return m_montage->AddElectrode(name.c_str(), where) != 0;
    };
    for (size_t i = 0; i < m_channels.size(); ++i) {
        Channel& ch = m_channels[i];
        bool ok = addElectrode(ch.elec1) && addElectrode(ch.elec2) &&
                  rec->AddChannel(ch.elec1.c_str(), ch.elec2.c_str(), ch.type, ch.unit, ch.target, ch.color,
                                  ch.underSampling, ch.preprocessing.c_str());
        if (!ok) {
            // A label the montage cannot take as it is (a duplicate, a name
            // reserved for groups): the channel gets a sensor of its own.
            const std::string sensor = StrFormat("S%zu", i + 1);
            if (!addElectrode(sensor) || !rec->AddChannel(sensor.c_str(), "", ch.type, ch.unit, ch.target, ch.color,
                                                         ch.underSampling, ch.preprocessing.c_str())) {
                error = StrFormat(LoadResString(IDS_NATIVE_ERR_CHANNEL_MONTAGE).c_str(), ch.info.label.c_str());
                return false;
            }
            m_notes.push_back(StrFormat(LoadResString(IDS_NATIVE_NOTE_RENAMED).c_str(), ch.info.label.c_str(), sensor.c_str()));
            ch.elec1 = sensor;
            ch.elec2.clear();
        }
        // The calibration: two points of the stored 16-bit values.
        double ad1 = kAdMin, ad2 = kAdMax, w1 = 0, w2 = 0;
        switch (ch.mode) {
            case Channel::Copy16:
                if (ch.info.digitalMax > ch.info.digitalMin) {
                    ad1 = ch.info.digitalMin;
                    ad2 = ch.info.digitalMax;
                }
                w1 = ad1 * ch.gain + ch.offset;
                w2 = ad2 * ch.gain + ch.offset;
                break;
            case Channel::Shift:  // raw = d - lo - 32768
                w1 = ch.lo * ch.gain + ch.offset;
                w2 = (ch.lo + 65535.0) * ch.gain + ch.offset;
                break;
            case Channel::Spread:
                w1 = m_derived ? ch.lo : ch.lo * ch.gain + ch.offset;
                w2 = m_derived ? ch.hi : ch.hi * ch.gain + ch.offset;
                break;
            case Channel::Trigger:  // raw = code - 32768: the world value is the code
                w1 = 0;
                w2 = 65535;
                break;
        }
        if (w1 == w2) w2 = w1 + 1;
        m_calibration->SetCalibFromPoints(unsigned(i), long(ad1), float(m_calibration->AdToVolt(int(ad1))), float(w1),
                                          long(ad2), float(m_calibration->AdToVolt(int(ad2))), float(w2));
    }
    // The source's computed montages that still compile over these channels.
    for (unsigned r = 0; sourceRec && !m_derived && r < sourceRec->GetNumReformatedMontages(); ++r)
        rec->ImportReformatedMontage(sourceRec->GetReformatedMontageAt(r));
    return true;
}

void NativeCopier::Push(Channel& ch, const double* values, unsigned n, double recordStart) {
    if (ch.trigger) {
        // Codes change where a sample differs from the one before.
        const bool wide = ch.info.bits > 16;
        for (unsigned k = 0; k < n; ++k) {
            const LONG code = wide ? (LONG(values[k]) & 0xFFFF) : LONG(values[k]);
            const double t = recordStart + k / ch.rate;
            if (code != ch.code) {
                if (ch.code != 0) m_triggers.push_back({ch.codeStart, t, ch.code, size_t(&ch - m_channels.data())});
                ch.code = code;
                ch.codeStart = t;
            }
        }
    }
    if (!ch.resampled) {
        ch.queue.insert(ch.queue.end(), values, values + n);
    } else if (ch.trigger) {
        // Codes are held, never interpolated.
        const double ratio = ch.rate / ch.target;
        for (unsigned k = 0; k < n; ++k) {
            const double from = (k) / ratio, to = (k + 1) / ratio;
            for (long j = long(std::ceil(from - 1e-9)); j < long(std::ceil(to - 1e-9)); ++j) ch.queue.push_back(values[k]);
        }
    } else {
        if (!ch.resampler) ch.resampler = std::make_unique<CResampler>(ch.rate, double(ch.target));
        ch.resampler->Push(values, n, ch.queue);
    }
}

// Writes the filled record as the next one of the target, timed in the
// current run of records.
bool NativeCopier::WriteNextRecord(CSigFile& target, std::string& error) {
    const double start = m_segmentStart + double(m_segmentRecords) * kRecordSamples / m_base;
    m_record->SetTime(m_origin + CSTimeSpan(start));
    m_recordStarts.push_back(start);
    ++m_segmentRecords;
    target.MoveTo(long(m_recordStarts.size()) - 1);
    if (!target.Write(m_record.get())) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_WRITE).c_str(), m_out.c_str(), target.GetIOError());
        return false;
    }
    return true;
}

bool NativeCopier::Emit(CSigFile& target, bool pad, std::string& error) {
    for (;;) {
        bool ready = true, any = false;
        for (const Channel& ch : m_channels) {
            ready = ready && ch.Queued() >= ch.samples;
            any = any || ch.Queued() > 0;
        }
        if (!ready && !(pad && any)) return true;
        if (!ready) {
            ++m_padded;
            // How much of the record holds signal: the channel that has most of its share queued.
            unsigned fill = 0;
            for (const Channel& ch : m_channels)
                if (ch.samples)
                    fill = std::max(fill, unsigned((std::min(ch.Queued(), size_t(ch.samples)) * kRecordSamples +
                                                    ch.samples - 1) / ch.samples));
            if (fill > 0 && fill < kRecordSamples) m_partial[long(m_recordStarts.size())] = fill;
        }
        for (size_t c = 0; c < m_channels.size(); ++c) {
            Channel& ch = m_channels[c];
            short* out = m_record->GetAt(unsigned(c));
            // The queued samples, then (a record completed at a gap or at the
            // end) the last one repeated.
            const size_t avail = std::min<size_t>(ch.samples, ch.Queued());
            const double* q = ch.queue.data() + ch.head;
            size_t take = avail;
            if (avail == 0 && !ch.queue.empty() && ch.samples) {
                q = &ch.queue.back();  // nothing left: the last sample consumed is repeated
                take = 1;
            }
            auto store = [&](auto convert) {
                for (size_t k = 0; k < take; ++k) out[k] = short(std::clamp(convert(q[k]), double(kAdMin), double(kAdMax)));
            };
            switch (ch.mode) {
                case Channel::Copy16: store([](double v) { return RoundHalfAway(v); }); break;
                case Channel::Shift: store([lo = ch.lo](double v) { return RoundHalfAway(v - lo) - 32768; }); break;
                case Channel::Spread: {
                    const double scale = 65535.0 / (ch.hi - ch.lo);
                    store([lo = ch.lo, scale](double v) { return RoundHalfAway((v - lo) * scale) - 32768; });
                    break;
                }
                case Channel::Trigger:
                    store([wide = ch.info.bits > 16](double v) {
                        if (!wide && v >= kAdMin && v <= kAdMax) return RoundHalfAway(v);
                        return double((wide ? (LONG(v) & 0xFFFF) : LONG(v)) & 0xFFFF) - 32768;
                    });
                    break;
            }
            ch.head += avail;
            const short fill = take ? out[take - 1] : short(0);
            for (size_t k = take; k < ch.samples; ++k) out[k] = fill;
            // Drop what was consumed, now and then.
            if (ch.head > 65536) {
                ch.queue.erase(ch.queue.begin(), ch.queue.begin() + long(ch.head));
                ch.head = 0;
            }
        }
        if (!WriteNextRecord(target, error)) return false;
    }
}

void NativeCopier::EndSegment() {
    for (Channel& ch : m_channels) {
        if (ch.resampler) {
            ch.resampler->Finish(ch.queue);
            ch.resampler.reset();
        }
    }
}

unsigned NativeCopier::WholeRecordFactor() const {
    if (m_derived || m_channels.empty() || !m_sourcePartial.empty() || !m_base) return 0;
    unsigned factor = 0;
    for (const Channel& ch : m_channels) {
        if (ch.mode != Channel::Copy16 || ch.resampled || ch.trigger || ch.info.bits > 16 || !ch.samples) return 0;
        const unsigned n = m_file.GetSamplesChannel(ch.source);
        if (n == 0 || n % ch.samples != 0 || (factor && n / ch.samples != factor)) return 0;
        factor = n / ch.samples;
    }
    const double nativeSeconds = double(kRecordSamples) / m_base;
    return std::fabs(m_duration - factor * nativeSeconds) <= 1e-9 * m_duration ? factor : 0;
}

bool NativeCopier::CopyWholeRecords(CSigFile& target, unsigned factor, std::string& error) {
    double previous = 0;
    for (long r = m_first; r < m_end; ++r) {
        if (!Read(r, error)) return false;
        double start = SecondsBetween(m_origin, m_digital->GetTime());
        if (r != m_first) {
            const double follow = previous + m_duration;
            if (std::fabs(start - follow) <= 1e-3 * m_duration + 1e-6 || start < follow) {
                start = follow;
            } else {
                m_segmentStart = start;  // a gap: a new run begins
                m_segmentRecords = 0;
            }
        }
        previous = start;
        for (unsigned q = 0; q < factor; ++q) {
            for (size_t c = 0; c < m_channels.size(); ++c) {
                const Channel& ch = m_channels[c];
                const LONG* d = m_digital->GetAt(ch.source) + size_t(q) * ch.samples;
                short* out = m_record->GetAt(unsigned(c));
                // Samples of at most 16 bits: narrowed as they are (a loop the compiler vectorises).
                for (unsigned k = 0; k < ch.samples; ++k) out[k] = static_cast<short>(d[k]);
            }
            if (!WriteNextRecord(target, error)) return false;
        }
        if (m_progress) {
            m_progress->SetPos(ULONGLONG(r - m_first + 1));
            if (m_progress->IsCancelled()) {
                error = LoadResString(IDS_NATIVE_ERR_CANCELLED);
                return false;
            }
        }
    }
    return true;
}

bool NativeCopier::CopyRecords(CSigFile& target, std::string& error) {
    m_record.reset(target.CreateCompatibleRawSigRec());
    m_file.GetPartialRecords(&m_sourcePartial);
    const CPhysicalMontage* sourceMontage = m_file.GetPhysicalMontage();
    m_sourcePerRecord = sourceMontage && sourceMontage->GetNumRecordingMontages() > 0
                            ? sourceMontage->GetRecordingMontageAt(0)->GetSamplesRecord()
                            : 0;
    if (const unsigned factor = WholeRecordFactor()) return CopyWholeRecords(target, factor, error);
    double previous = 0;
    for (long r = m_first; r < m_end; ++r) {
        if (!Read(r, error)) return false;
        const CSDateTime t = m_derived ? m_values->GetTime() : m_digital->GetTime();
        double start = SecondsBetween(m_origin, t);
        if (r != m_first) {
            const double follow = previous + m_duration;
            if (std::fabs(start - follow) <= 1e-3 * m_duration + 1e-6 || start < follow) {
                start = follow;
            } else {
                // A gap: the records before it are completed, a new run begins.
                EndSegment();
                if (!Emit(target, true, error)) return false;
                for (Channel& ch : m_channels) {
                    ch.queue.clear();
                    ch.head = 0;
                }
                m_segmentStart = start;
                m_segmentRecords = 0;
            }
        }
        previous = start;
        // A source record that holds signal in its first samples only gives those.
        const auto partial = m_sourcePartial.find(r);
        for (size_t c = 0; c < m_channels.size(); ++c) {
            unsigned n = 0;
            const double* v = Values(c, n);
            if (partial != m_sourcePartial.end() && m_sourcePerRecord)
                n = unsigned(std::min<double>(n, std::round(double(n) * partial->second / m_sourcePerRecord)));
            Push(m_channels[c], v, n, start);
        }
        if (!Emit(target, false, error)) return false;
        if (m_progress) {
            m_progress->SetPos(ULONGLONG(r - m_first + 1));
            if (m_progress->IsCancelled()) {
                error = LoadResString(IDS_NATIVE_ERR_CANCELLED);
                return false;
            }
        }
    }
    EndSegment();
    if (!Emit(target, true, error)) return false;
    // Codes still in force at the end.
    const double end = m_recordStarts.empty() ? 0 : m_recordStarts.back() + double(kRecordSamples) / m_base;
    for (Channel& ch : m_channels)
        if (ch.trigger && ch.code != 0) m_triggers.push_back({ch.codeStart, end, ch.code, size_t(&ch - m_channels.data())});
    if (m_padded) m_notes.push_back(StrFormat(LoadResString(IDS_NATIVE_NOTE_PADDED).c_str(), m_padded));
    return true;
}

// The base sample of a time (seconds from the origin): in the native record
// that holds it, extrapolated outside the records.
LONG NativeCopier::SampleAt(double t) const {
    double s = std::round(t * m_base);
    if (!m_recordStarts.empty()) {
        auto it = std::upper_bound(m_recordStarts.begin(), m_recordStarts.end(), t + 0.5 / m_base);
        const size_t r = it == m_recordStarts.begin() ? 0 : size_t(it - m_recordStarts.begin()) - 1;
        s = double(r) * kRecordSamples + std::round((t - m_recordStarts[r]) * m_base);
    }
    if (std::isnan(s)) s = 0;
    return LONG(std::clamp(s, -2147483647.0, 2147483647.0));
}

void NativeCopier::CopyItems(CSigFile& target) {
    std::map<const CStatusGroup*, CStatusGroup*> groups;
    auto groupFor = [&](const char* id, unsigned type, unsigned extent) {
        for (unsigned g = 0; g < target.GetNumGroups(); ++g)
            if (EqualsNoCase(target.GetGroupAt(g)->GetGroupID(), id)) return const_cast<CStatusGroup*>(target.GetGroupAt(g));
        auto* g = new CStatusGroup(id, GetDefaultGroupName(id).c_str(), GetDefaultGroupDesc(id).c_str(), type, 0,
                                   extent, -1, "", 0, 0, 1, 0);
        target.AddGroup(g);
        return g;
    };
    for (unsigned g = 0; g < m_file.GetNumGroups(); ++g) {
        const CStatusGroup* group = m_file.GetGroupAt(g);
        if (!group || EqualsNoCase(group->GetGroupID(), groupid::kDiscontinuity) ||
            EqualsNoCase(group->GetGroupID(), groupid::kChannelDescriptions))
            continue;
        auto* copy = new CStatusGroup(*group);
        target.AddGroup(copy);
        groups[group] = copy;
    }
    const double whole = m_recordStarts.empty() ? 0 : m_recordStarts.back() + double(kRecordSamples) / m_base;
    const bool all = m_first == 0 && m_end == m_file.GetNumRecords();
    for (unsigned i = 0; i < m_file.GetNumStatusItems(); ++i) {
        const CStatusItem* item = m_file.GetStatusItemAt(i);
        auto it = item ? groups.find(item->GetGroup()) : groups.end();
        if (it == groups.end()) continue;
        const double begin = SecondsBetween(m_origin, item->GetBeginTime());
        if (!all && (begin < 0 || begin >= whole)) continue;  // a part keeps its own items
        const double seconds = SecondsBetween(item->GetBeginTime(), item->GetEndTime());
        auto* copy = new CStatusItem(*item);
        copy->SetGroup(it->second);
        const LONG b = SampleAt(begin);
        const LONG e = LONG(std::clamp(double(b) + std::round(std::max(0.0, seconds) * m_base), double(b), 2147483647.0));
        copy->SetSampleRange(b, e);
        target.AddStatusItem(copy);
    }
    // Gaps between runs of records.
    for (size_t r = 1; r < m_recordStarts.size(); ++r) {
        if (std::fabs(m_recordStarts[r] - (m_recordStarts[r - 1] + double(kRecordSamples) / m_base)) < 1e-6) continue;
        CStatusGroup* g = groupFor(groupid::kDiscontinuity, 0, 0);
        const LONG s = LONG(r * kRecordSamples);
        const CSDateTime when = m_origin + CSTimeSpan(m_recordStarts[r]);
        target.AddStatusItem(new CStatusItem(g, s, when, s, when, "", "", "", 0, 1));
    }
    // Trigger codes.
    if (!m_triggers.empty()) {
        CStatusGroup* g = groupFor(groupid::kTrigger, 3, 1);
        const CRecordingMontage* montage = target.GetPhysicalMontage()->GetRecordingMontageAt(0);
        for (const TriggerEvent& e : m_triggers) {
            const LONG b = SampleAt(e.begin), end = std::max(b, SampleAt(e.end));
            // The item names the channel its code comes from.
            const std::string channel = montage && e.channel < montage->GetNumChannels()
                                            ? std::string(montage->GetLabel(unsigned(e.channel)))
                                            : std::string();
            target.AddStatusItem(new CStatusItem(g, b, m_origin + CSTimeSpan(e.begin), end, m_origin + CSTimeSpan(e.end),
                                                 channel.c_str(), std::to_string(e.code).c_str(), "", 0, 1));
        }
        m_notes.push_back(StrFormat(LoadResString(IDS_NATIVE_NOTE_TRIGGERS).c_str(), m_triggers.size()));
    }
    // How the source described the channels.
    auto* descriptions = new CStatusGroup(groupid::kChannelDescriptions,
                                          GetDefaultGroupName(groupid::kChannelDescriptions).c_str(),
                                          GetDefaultGroupDesc(groupid::kChannelDescriptions).c_str(), 3, 0, 0, -1, "", 0,
                                          0, 0, 0);
    const CRecordingMontage* rec = target.GetPhysicalMontage()->GetRecordingMontageAt(0);
    for (size_t c = 0; c < m_channels.size(); ++c) {
        const CSigChannelInfo& info = m_channels[c].info;
        const std::string value = std::string(rec->GetLabel(unsigned(c))) + '\x1F' + info.label + '\x1F' + info.unit +
                                  '\x1F' + info.transducer;
        descriptions->AddGroupProperty(StrFormat("CH%zu", c).c_str(), "", value.c_str());
    }
    // The source's record duration and the records that end a run of signal
    // before their end: a conversion back writes the same samples, no more.
    const double sourceRecord = m_file.GetSourceRecordDuration() > 0 ? m_file.GetSourceRecordDuration() : m_duration;
    if (sourceRecord > 0)
        descriptions->AddGroupProperty(kSourceRecordKey, "", StrFormat("%.17g", sourceRecord).c_str());
    if (!m_partial.empty()) {
        std::string list;
        for (const auto& [record, fill] : m_partial) list += (list.empty() ? "" : ",") + StrFormat("%ld:%u", record, fill);
        descriptions->AddGroupProperty(kPartialRecordsKey, "", list.c_str());
    }
    target.AddGroup(descriptions);
}

bool NativeCopier::Run(std::string& error) {
    if (m_file.GetNumChannels() == 0 && !m_computed.Get() && m_options.montage.empty() && m_options.derives.empty())
        return RunEventsOnly(error);
    if (!ChooseChannels(error) || !ChooseRates(error)) return false;
    const long count = m_file.GetNumRecords();
    m_first = m_options.firstRecord;
    m_end = m_options.endRecord < 0 ? count : m_options.endRecord;
    if (m_first < 0 || m_first > m_end || m_end > count || m_first == m_end) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_RANGE).c_str(), m_first, m_end, count);
        return false;
    }
    m_duration = m_file.GetRecordDuration();
    m_digital = std::make_unique<CDigSigRec>();
    m_values.reset(m_derived ? m_derived->CreateCompatibleFmtSigRec() : new CFmtSigRec);
    if (!MeasureRanges(error)) return false;
    if (!Read(m_first, error)) return false;
    m_origin = m_derived ? m_values->GetTime() : m_digital->GetTime();
    if (!Describe(error)) return false;

    // The new recording is built under a name of its own beside the target
    // and put in place whole when complete.
    const std::string temp = OwnedTemporaryName(m_out, "new");
    CSigFile::Delete(temp.c_str());
    long code = 0;
    CSigFilePtr target(CSigFile::Create(temp.c_str(), m_header.get(), m_patient.get(), m_montage.get(),
                                        m_calibration.get(), SIGFILE_FORMAT_NATIVE, &code, 1));
    if (!target) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_WRITE).c_str(), m_out.c_str(), code);
        return false;
    }
    if (m_progress) m_progress->SetRange(ULONGLONG(m_end - m_first));
    const bool ok = CopyRecords(*target, error);
    return Finish(std::move(target), temp, ok, error);
}

bool NativeCopier::Finish(CSigFilePtr target, const std::string& temp, bool ok, std::string& error) {
    if (ok) {
        CopyItems(*target);
        ok = target->Flush() != 0;
        if (!ok) error = StrFormat(LoadResString(IDS_NATIVE_ERR_WRITE).c_str(), m_out.c_str(), target->GetIOError());
    }
    target.reset();
    if (ok && !ReplaceRecording(temp, m_out)) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_WRITE).c_str(), m_out.c_str(), GetLastError());
        ok = false;
    }
    if (!ok) CSigFile::Delete(temp.c_str());
    return ok;
}

// A recording without channels (a hypnogram, scored events): a native
// recording of events only, their samples counted in seconds from its start.
bool NativeCopier::RunEventsOnly(std::string& error) {
    const CFileHeader* h = m_file.GetFileHeader();
    m_origin = h ? h->GetCreationDateTime() : CSDateTime();
    m_header = std::make_unique<CFileHeader>(h ? h->GetFileDesc() : CString(), h ? h->GetInstitution() : CString(),
                                             h ? h->GetFileType() : 0, m_origin);
    m_patient = std::make_unique<CPatientInfo>(m_file.GetPatientInfo() ? *m_file.GetPatientInfo() : CPatientInfo());
    m_montage = std::make_unique<CPhysicalMontage>("", 0);
    m_montage->CreateRecordingMontage()->SetBaseFrequency(1);
    m_calibration = std::make_unique<CCalibration>(0, kAdMin, kVoltMin, kAdMax, kVoltMax, 1.0);
    m_base = 1;
    m_end = 0;
    const std::string temp = OwnedTemporaryName(m_out, "new");
    long code = 0;
    CSigFilePtr target(CSigFile::Create(temp.c_str(), m_header.get(), m_patient.get(), m_montage.get(),
                                        m_calibration.get(), SIGFILE_FORMAT_NATIVE, &code, 1));
    if (!target) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_WRITE).c_str(), m_out.c_str(), code);
        return false;
    }
    return Finish(std::move(target), temp, true, error);
}

}  // namespace

int CreateNativeCopy(CSigFile* source, const char* to, const CSigFileCopyOptions& options, std::string* errorOut,
                     CProgressInfo* progress, std::vector<std::string>* notesOut) {
    std::string localError;
    std::string& error = errorOut ? *errorOut : localError;
    error.clear();
    std::vector<std::string> notes;
    if (!source || !to || !*to) {
        error = LoadResString(IDS_NATIVE_ERR_NO_NAME);
        return 0;
    }
    if (!EqualsNoCase(ExtractExt(to), ".SIG")) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_EXTENSION).c_str(), to);
        return 0;
    }
    if (IsFileOfRecording(to, source->GetFileName()) || IsFileOfRecording(source->GetFileName(), to)) {
        error = StrFormat(LoadResString(IDS_NATIVE_ERR_OWN_FILE).c_str(), to, source->GetFileName());
        return 0;
    }
    int ok = 0;
    try {
        NativeCopier copier(*source, to, options, progress, notes);
        ok = copier.Run(error) ? 1 : 0;
    } catch (const std::bad_alloc&) {
        error = std::string(to) + " : " + LoadResString(IDS_NATIVE_ERR_MEMORY);
    } catch (const CException& e) {
        error = std::string(to) + " : " + e.GetMessageText();
    }
    if (!ok && error.empty()) error = std::string(to) + " : " + LoadResString(IDS_NATIVE_ERR_IMPORT);
    if (notesOut) notesOut->insert(notesOut->end(), notes.begin(), notes.end());
    return ok;
}
