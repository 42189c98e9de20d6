#include "formats/edf/EdfSigFile.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>

#include "formats/edf/EdfDescribe.h"
#include "formats/edf/EdfNative.h"
#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "platform/strings/EdfStrings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "records/SigCoDec.h"
#include "status/GroupDefaults.h"
#include "status/IntStsFile.h"
#include "status/stsitm.h"

IMPLEMENT_DYNAMIC(CEdfSigFile, CIntSigFile)

namespace {

constexpr size_t kTimeBytes = 8;
constexpr unsigned kMaxRecordSamples = 65535;

inline LONG Sample16(const BYTE* p) { return LONG(int16_t(uint16_t(p[0] | p[1] << 8))); }
inline LONG Sample24(const BYTE* p) {
    const uint32_t u = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16;
    return LONG(int32_t(u << 8) >> 8);
}

// Volts per unit of a voltage dimension; 0 for any other dimension.
double VoltsPerUnit(const std::string& unit) {
    if (unit == "V") return 1.0;
    if (unit == "mV") return 1e-3;
    if (unit == "uV" || unit == "\xC2\xB5V" || unit == "\xCE\xBCV") return 1e-6;
    if (unit == "nV") return 1e-9;
    return 0.0;
}

// The codec of a (sub-)record image: its time, then each signal's samples
// of 2 or 3 bytes.  Decoding shifts each sample right by its channel's
// shift; the format is read-only, so nothing is ever encoded.
class CEdfCoDec : public CSigCoDec {
    DECLARE_DYNAMIC(CEdfCoDec)
public:
    CEdfCoDec(std::vector<unsigned short> counts, std::vector<unsigned> shifts, int width)
        : m_counts(std::move(counts)), m_shifts(std::move(shifts)), m_width(width) {
        size_t size = kTimeBytes;
        for (unsigned short n : m_counts) {
            size += size_t(n) * size_t(width);
            m_max = std::max<unsigned>(m_max, n);
        }
        m_size = unsigned(size);
    }
    unsigned GetCompRecSize() const override { return m_size; }
    unsigned GetNumChannels() const override { return unsigned(m_counts.size()); }
    unsigned GetSamplesRecord() const override { return m_max; }
    unsigned short* GetSamplesChannel() const override { return const_cast<unsigned short*>(m_counts.data()); }
    CRawSigRec* CreateCompatibleRawSigRec() const override {
        return new CRawSigRec(GetNumChannels(), GetSamplesChannel());
    }
    CFmtSigRec* CreateCompatibleFmtSigRec() const override {
        return new CFmtSigRec(GetNumChannels(), GetSamplesChannel());
    }
    void Compress(CRawSigRec*, CByteArray*) override {}
    void DeCompress(CByteArray* from, CRawSigRec* to) override {
        if (!from || !to || size_t(from->GetSize()) < m_size) return;
        const BYTE* in = from->GetData();
        double t = 0;
        std::memcpy(&t, in, kTimeBytes);
        to->SetTime(CSDateTime(t));
        const bool shapeOk = to->GetNumChannels() == m_counts.size();
        size_t offset = kTimeBytes;
        for (unsigned c = 0; c < m_counts.size(); ++c) {
            const unsigned n = m_counts[c];
            if (shapeOk && to->GetNumSamples(c) == n) {
                short* out = to->GetAt(c);
                const BYTE* p = in + offset;
                const unsigned s = m_shifts[c];
                if (m_width == 2) {
                    for (unsigned i = 0; i < n; ++i, p += 2) out[i] = short(Sample16(p) >> s);
                } else {
                    for (unsigned i = 0; i < n; ++i, p += 3)
                        out[i] = short(std::clamp<LONG>(Sample24(p) >> s, -32768, 32767));
                }
            }
            offset += size_t(n) * size_t(m_width);
        }
    }

private:
    std::vector<unsigned short> m_counts;
    std::vector<unsigned> m_shifts;
    int m_width;
    unsigned m_size = 0;
    unsigned m_max = 0;
};
IMPLEMENT_DYNAMIC(CEdfCoDec, CSigCoDec)

}  // namespace

CEdfSigFile::CEdfSigFile() = default;
CEdfSigFile::~CEdfSigFile() = default;

CEdfSigFile* CEdfSigFile::Open(const char* name, long* error, std::string* message) {
    return OpenBuilt(std::unique_ptr<CEdfSigFile>(new CEdfSigFile), name, error, message,
                     [name](CEdfSigFile& file, std::string& why) -> long {
                         file.m_strFileName = name;
                         return file.m_reader.Open(name, why) && file.Build(why) ? 0L : long(ERROR_BAD_FORMAT);
                     });
}

bool CEdfSigFile::ChooseSplit(std::string& error) {
    const auto& signals = m_reader.Signals();
    unsigned long long total = 0;
    for (const edf::EdfSignal& s : signals) total += unsigned(s.samplesPerRecord);
    m_split = 1;
    if (total <= kMaxRecordSamples) return true;
    // The smallest k that divides every count and brings the record within
    // the signal record's 65535 samples.
    const unsigned long long first = signals.empty() ? 1 : unsigned(signals.front().samplesPerRecord);
    for (unsigned long long k = 2; k <= first; ++k) {
        if (total / k > kMaxRecordSamples || total % k) continue;
        bool divides = true;
        for (const edf::EdfSignal& s : signals) divides = divides && unsigned(s.samplesPerRecord) % k == 0;
        if (divides) {
            m_split = unsigned(k);
            m_notes.push_back(StrFormat(LoadResString(IDS_EDF_NOTE_SPLIT).c_str(), total, m_split));
            return true;
        }
    }
    error = StrFormat(LoadResString(IDS_EDF_ERR_RECORD_TOO_BIG).c_str(), total);
    return false;
}

bool CEdfSigFile::Build(std::string& error) {
    m_notes = m_reader.Notes();
    m_width = edf::SampleBytes(m_reader.Header().format);
    if (!ChooseSplit(error)) return false;
    const double duration = m_reader.Header().recordDuration;
    m_subDuration = duration / m_split;
    const auto& signals = m_reader.Signals();

    // Unique labels and the channels' value conversions.
    std::vector<std::string> labels, duplicated;
    for (const edf::EdfSignal& s : signals) labels.push_back(s.label);
    labels = edf::UniqueLabels(labels, &duplicated);
    for (const std::string& d : duplicated)
        m_notes.push_back(StrFormat(LoadResString(IDS_EDF_NOTE_DUPLICATE_LABEL).c_str(), d.c_str()));
    unsigned maxSamples = 0;
    for (size_t i = 0; i < signals.size(); ++i) {
        const edf::EdfSignal& s = signals[i];
        Channel ch;
        ch.label = labels[i];
        ch.offset = m_reader.SignalOffset(i);
        ch.samples = unsigned(s.samplesPerRecord) / m_split;
        const double gain = s.Gain();
        const double offset = s.physicalMin - double(s.digitalMin) * gain;
        double factor = 1;
        edf::UnitCodeOfText(s.unit, factor);
        ch.worldScale = gain * factor;
        ch.worldOffset = offset * factor;
        const double volts = VoltsPerUnit(s.unit);
        ch.voltScale = volts > 0 ? gain * volts : gain;
        ch.voltOffset = volts > 0 ? offset * volts : offset;
        while ((LONGLONG(s.digitalMin) >> ch.shift) < -32768 || (LONGLONG(s.digitalMax) >> ch.shift) > 32767) ++ch.shift;
        maxSamples = std::max(maxSamples, ch.samples);
        m_channels.push_back(ch);
    }
    m_trueFrequency = m_subDuration > 0 && maxSamples ? maxSamples / m_subDuration : 0.0;

    std::vector<unsigned short> counts;
    std::vector<unsigned> shifts;
    for (const Channel& ch : m_channels) {
        counts.push_back(static_cast<unsigned short>(ch.samples));
        shifts.push_back(ch.shift);
    }
    SetSigCoDec(new CEdfCoDec(counts, shifts, m_width));
    Describe();
    AddAnnotations();
    m_pStsFile->SetNumRecords(m_channels.empty() ? 0 : long(m_reader.RecordCount() * m_split));
    m_pStsFile->SetReadOnly();
    m_pStsFile->ClearChanged();
    m_nCurrentRecord = 0;
    return true;
}

void CEdfSigFile::Describe() {
    const edf::EdfHeader& h = m_reader.Header();
    const auto& signals = m_reader.Signals();
    const CSDateTime first = m_reader.Header().start + CSTimeSpan(m_reader.RecordCount() > 0 ? m_reader.RecordStart(0) : 0.0);

    edf::EdfPatient patient;
    edf::EdfRecordingId recording;
    int y = 0, mo = 0, d = 0;
    const bool plusPatient = edf::ParsePatientField(h.patientField, patient);
    const bool plusRecording = edf::ParseRecordingField(h.recordingField, recording, y, mo, d);
    auto header = std::make_unique<CFileHeader>(plusRecording ? recording.adminCode : h.recordingField,
                                                plusRecording ? recording.equipment : "", 0, first);
    auto info = std::make_unique<CPatientInfo>();
    if (plusPatient) {
        info->SetPatientId1(patient.code, CPatientInfo::kMaxPatientId);
        const size_t space = patient.name.find(' ');
        info->SetLastName(patient.name.substr(0, space), CPatientInfo::kMaxName);
        if (space != std::string::npos) info->SetFirstName(patient.name.substr(space + 1), CPatientInfo::kMaxName);
        info->SetSex(patient.sex == 'M' ? 1 : patient.sex == 'F' ? 2 : 0);
        if (patient.birthYear > 0) info->SetBirthDate(CSDateTime(patient.birthYear, patient.birthMonth, patient.birthDay));
        info->SetComment(patient.additional, CPatientInfo::kMaxComment);
    } else {
        const size_t space = h.patientField.find(' ');
        info->SetPatientId1(h.patientField.substr(0, space), CPatientInfo::kMaxPatientId);
    }
    info->SetUserFieldP1(h.patientField, CPatientInfo::kMaxUserField);
    info->SetUserFieldP2(h.recordingField, CPatientInfo::kMaxUserField);

    // Montages: electrodes from the labels, 128 channels per recording montage.
    auto montage = std::make_unique<CPhysicalMontage>(edf::IsBdf(h.format) ? "BDF" : "EDF", 0);
    std::vector<edf::LabelParts> parts;
    unsigned base = 1, spr = 1;
    for (size_t i = 0; i < signals.size(); ++i) {
        parts.push_back(edf::SplitLabel(m_channels[i].label, i));
        for (const std::string& e : {parts.back().elec1, parts.back().elec2}) {
            if (e.empty() || montage->IsElectrodeOfMontage(e.c_str())) continue;
            const CPolar3D where =
                CPhysicalMontage::IsStdElec(e.c_str()) ? CPhysicalMontage::GetStdElecPosition(e.c_str()) : CPolar3D();
            if (!montage->AddElectrode(e.c_str(), where)) parts.back().elec1 = StrFormat("S%zu", i + 1);
        }
        if (!montage->IsElectrodeOfMontage(parts.back().elec1.c_str()))
            montage->AddElectrode(parts.back().elec1.c_str(), CPolar3D());
        base = std::max(base, unsigned(std::max(1L, std::lround(GetChannelFrequency(unsigned(i))))));
        spr = std::max(spr, m_channels[i].samples);
    }
    auto calibration = std::make_unique<CCalibration>(unsigned(std::min<size_t>(signals.size(), kMaxMontageChannels)),
                                                      -32768, -0.0032768f, 32767, 0.0032767f, m_trueFrequency);
    CRecordingMontage* rec = nullptr;
    for (size_t i = 0; i < signals.size(); ++i) {
        if (i % kMaxMontageChannels == 0) {
            rec = montage->CreateRecordingMontage();
            rec->SetMontageName(signals.size() > kMaxMontageChannels
                                    ? StrFormat("Signaux %zu-%zu", i + 1, std::min(signals.size(), i + kMaxMontageChannels)).c_str()
                                    : "");
            rec->SetRecordShapeConfirmed(std::min(spr, 65535u), std::min(base, 65535u));
        }
        const edf::EdfSignal& s = signals[i];
        const bool standard = CPhysicalMontage::IsStdElec(parts[i].elec1.c_str());
        unsigned type = edf::TypeCodeOfText(s.transducer);
        if (!type) type = parts[i].type;
        if (!type) type = CPhysicalMontage::GetStdElecTypeCode(parts[i].elec1.c_str());
        double factor = 1;
        unsigned unit = edf::UnitCodeOfText(s.unit, factor);
        if (!unit) unit = standard ? CPhysicalMontage::GetStdElecUnitCode(parts[i].elec1.c_str()) : 16;
        const unsigned frequency = unsigned(std::clamp(std::lround(GetChannelFrequency(unsigned(i))), 1L, 65535L));
        rec->AppendChannelConfirmed(parts[i].elec1.c_str(), parts[i].elec2.c_str(), type, unit, frequency, 0, 0,
                                    s.prefilter.c_str());
        rec->SetSamplesChannelConfirmed(rec->GetNumChannels() - 1, m_channels[i].samples);
        if (i < kMaxMontageChannels) {
            const Channel& ch = m_channels[i];
            const long ad1 = long(LONGLONG(s.digitalMin) >> ch.shift), ad2 = long(LONGLONG(s.digitalMax) >> ch.shift);
            const double w1 = double(s.digitalMin) * ch.worldScale + ch.worldOffset;
            const double w2 = double(s.digitalMax) * ch.worldScale + ch.worldOffset;
            if (ad1 < ad2)
                calibration->SetCalibFromPoints(unsigned(i), ad1, float(calibration->AdToVolt(int(ad1))), float(w1), ad2,
                                                float(calibration->AdToVolt(int(ad2))), float(w2));
        }
    }
    if (signals.size() > kMaxMontageChannels)
        m_notes.push_back(StrFormat(LoadResString(IDS_EDF_NOTE_MANY_SIGNALS).c_str(), signals.size(),
                                    unsigned(kMaxMontageChannels)));
    m_pStsFile->SetFileHeader(header.release());
    m_pStsFile->SetPatientInfo(info.release());
    m_pStsFile->SetPhysicalMontage(montage.release());
    m_pStsFile->SetCalibration(calibration.release());
}

double CEdfSigFile::RecordStartSeconds(long record) const {
    const LONGLONG fileRecord = record / LONGLONG(m_split);
    const unsigned part = unsigned(record % LONGLONG(m_split));
    return m_reader.RecordStart(fileRecord) + part * m_subDuration;
}

CSDateTime CEdfSigFile::RecordTime(long record) const {
    return m_reader.Header().start + CSTimeSpan(RecordStartSeconds(record));
}

void CEdfSigFile::AddAnnotations() {
    const CSDateTime origin = m_reader.Header().start;
    const long records = m_channels.empty() ? 0 : long(m_reader.RecordCount() * m_split);
    const double spr = m_channels.empty() ? 0 : double(GetSamplesRecord());
    const double frequency = m_trueFrequency;
    std::vector<double> starts;  // seconds, of every (sub-)record
    for (long r = 0; r < records; ++r) starts.push_back(RecordStartSeconds(r));

    // The base sample of a time (seconds from the header's start).
    auto sampleAt = [&](double t) -> LONG {
        double s = 0;
        if (starts.empty() || frequency <= 0) s = 0;
        else {
            auto it = std::upper_bound(starts.begin(), starts.end(), t + 0.5 / frequency);
            const size_t r = it == starts.begin() ? 0 : size_t(it - starts.begin()) - 1;
            s = double(r) * spr + std::round((t - starts[r]) * frequency);
        }
        if (std::isnan(s)) s = 0;
        return LONG(std::clamp(s, -2147483647.0, 2147483647.0));
    };

    std::map<std::string, CStatusGroup*> groups;
    auto groupOf = [&](const edf::AnnotationTarget& t, bool duration) {
        CStatusGroup*& g = groups[t.groupId];
        if (!g) {
            g = new CStatusGroup(t.groupId.c_str(), t.groupName.c_str(), GetDefaultGroupDesc(t.groupId.c_str()).c_str(),
                                 t.groupType, 0, t.groupType == 4 || duration ? 1 : 0, -1, "", 0, 0, 1, 0);
            if (t.groupType == 4) g->AddGroupProperty("EpochLength", GetGroupPropertyDesc(t.groupId.c_str(), "EpochLength").c_str(), "30");
            m_pStsFile->AddGroup(g);
        }
        if (duration && g->GetGroupExtent() == 0) {
            g->SetGroupTypeAndExtent(g->GetGroupType(), 1);
        }
        return g;
    };

    // Discontinuities: a record that does not follow the one before it.
    if (m_reader.Header().discontinuous) {
        for (long r = 1; r < records; ++r) {
            if (std::fabs(starts[size_t(r)] - (starts[size_t(r) - 1] + m_subDuration)) <= 1e-3 * m_subDuration + 1e-6)
                continue;
            edf::AnnotationTarget t;
            t.groupId = groupid::kDiscontinuity;
            t.groupName = GetDefaultGroupName(groupid::kDiscontinuity);
            t.groupType = 0;
            CStatusGroup* g = groupOf(t, false);
            const LONG s = LONG(double(r) * spr);
            const CSDateTime when = origin + CSTimeSpan(starts[size_t(r)]);
            m_pStsFile->AddStatusItem(new CStatusItem(g, s, when, s, when, "", "", "", 0, 1));
        }
    }
    for (const edf::EdfAnnotation& a : m_reader.Annotations()) {
        const edf::AnnotationTarget t = edf::TargetOfAnnotation(a.text);
        const double seconds = a.duration.value_or(0.0);
        CStatusGroup* g = groupOf(t, seconds > 0);
        const LONG begin = sampleAt(a.onset);
        double length = std::round(seconds * frequency);
        if (std::isnan(length)) length = 0;
        const LONG end = LONG(std::clamp(double(begin) + length, double(begin), 2147483647.0));
        // A stage keeps the text it was scored with.
        const std::string comments = t.groupType == 4 && t.itemName != a.text ? a.text : "";
        auto* item = new CStatusItem(g, begin, origin + CSTimeSpan(a.onset), end, origin + CSTimeSpan(a.onset + seconds),
                                     "", t.itemName.c_str(), comments.c_str(), 0, 1);
        item->FitPropertiesToGroup();
        m_pStsFile->AddStatusItem(item);
    }
}

int CEdfSigFile::Close() {
    m_reader.Close();
    return CIntSigFile::Close();
}

LONGLONG CEdfSigFile::GetFileSize() const { return LONGLONG(VhlGetFileSize(m_strFileName)); }

unsigned CEdfSigFile::GetFormat() const {
    return edf::IsBdf(m_reader.Header().format) ? SIGFILE_FORMAT_BDF : SIGFILE_FORMAT_EDF;
}

double CEdfSigFile::GetChannelFrequency(unsigned channel) const {
    if (channel >= m_channels.size() || m_subDuration <= 0) return 0.0;
    return m_channels[channel].samples / m_subDuration;
}

int CEdfSigFile::GetChannelInfo(unsigned channel, CSigChannelInfo* info) const {
    if (!info || channel >= m_channels.size()) return 0;
    const edf::EdfSignal& s = m_reader.Signals()[channel];
    info->label = m_channels[channel].label;
    info->unit = s.unit;
    info->transducer = s.transducer;
    info->prefilter = s.prefilter;
    info->frequency = GetChannelFrequency(channel);
    info->physicalMin = s.physicalMin;
    info->physicalMax = s.physicalMax;
    info->digitalMin = s.digitalMin;
    info->digitalMax = s.digitalMax;
    info->bits = unsigned(m_width * 8);
    return 1;
}

void CEdfSigFile::GetFormatNotes(CStringArray* notes) const {
    if (!notes) return;
    notes->RemoveAll();
    for (const std::string& n : m_notes) notes->Add(n);
}

const BYTE* CEdfSigFile::RecordBytes(long record, unsigned& part) {
    part = unsigned(record % long(m_split));
    std::string why;
    const BYTE* bytes = m_reader.RecordBytes(record / long(m_split), why);
    if (!bytes) SetIOError(ERROR_READ_FAULT);
    return bytes;
}

int CEdfSigFile::Load(DWORD record, CObject* object) {
    auto* image = static_cast<CByteArray*>(object);
    if (!m_pCoDec || long(record) >= GetNumRecords()) return 0;
    unsigned part = 0;
    const BYTE* bytes = RecordBytes(long(record), part);
    if (!bytes) return 0;
    image->SetSize(int(m_pCoDec->GetCompRecSize()));
    BYTE* out = image->GetData();
    const double t = RecordTime(long(record)).GetValue();
    std::memcpy(out, &t, kTimeBytes);
    size_t at = kTimeBytes;
    for (const Channel& ch : m_channels) {
        const size_t n = size_t(ch.samples) * size_t(m_width);
        std::memcpy(out + at, bytes + ch.offset + part * n, n);
        at += n;
    }
    return 1;
}

int CEdfSigFile::ReadValues(CFmtSigRec* record, bool volts) {
    if (!record || IsIOError() || !m_pCoDec) return 0;
    const long current = GetCurrentRecord();
    if (current < 0 || current >= GetNumRecords()) return 0;
    unsigned part = 0;
    const BYTE* bytes = RecordBytes(current, part);
    if (!bytes) return 0;
    if (!HasCodecShape(record)) record->Create(m_pCoDec->GetNumChannels(), m_pCoDec->GetSamplesChannel());
    record->SetTime(RecordTime(current));
    for (unsigned c = 0; c < m_channels.size(); ++c) {
        const Channel& ch = m_channels[c];
        const double scale = volts ? ch.voltScale : ch.worldScale, offset = volts ? ch.voltOffset : ch.worldOffset;
        float* out = record->GetAt(c);
        const unsigned n = ch.samples;
        const BYTE* p = bytes + ch.offset + size_t(part) * n * size_t(m_width);
        if (m_width == 2) {
            for (unsigned i = 0; i < n; ++i, p += 2) out[i] = float(double(Sample16(p)) * scale + offset);
        } else {
            for (unsigned i = 0; i < n; ++i, p += 3) out[i] = float(double(Sample24(p)) * scale + offset);
        }
    }
    return 1;
}

int CEdfSigFile::ReadDigital(CDigSigRec* record) {
    if (!record || IsIOError() || !m_pCoDec) return 0;
    const long current = GetCurrentRecord();
    if (current < 0 || current >= GetNumRecords()) return 0;
    unsigned part = 0;
    const BYTE* bytes = RecordBytes(current, part);
    if (!bytes) return 0;
    bool same = record->GetNumChannels() == m_channels.size();
    for (unsigned c = 0; same && c < m_channels.size(); ++c) same = record->GetNumSamples(c) == m_channels[c].samples;
    if (!same) record->Create(m_pCoDec->GetNumChannels(), m_pCoDec->GetSamplesChannel());
    record->SetTime(RecordTime(current));
    for (unsigned c = 0; c < m_channels.size(); ++c) {
        const Channel& ch = m_channels[c];
        LONG* out = record->GetAt(c);
        const BYTE* p = bytes + ch.offset + size_t(part) * ch.samples * size_t(m_width);
        if (m_width == 2)
            for (unsigned i = 0; i < ch.samples; ++i, p += 2) out[i] = Sample16(p);
        else
            for (unsigned i = 0; i < ch.samples; ++i, p += 3) out[i] = Sample24(p);
    }
    return 1;
}

int CEdfSigFile::Read(CFmtSigRec* record) { return ReadValues(record, false); }
int CEdfSigFile::ReadAsVolts(CFmtSigRec* record) { return ReadValues(record, true); }
