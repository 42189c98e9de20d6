// The operations of CSigFile that look into a recording's description: the
// montage rule of Create, the 24-hour duration rule, the consistency check
// of the status items and the repair of channel names after a montage change.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cmath>
#include <memory>
#include <set>
#include <string>

#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "platform/strings/StatusStrings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "sigfile/FormatDriver.h"
#include "status/GroupDefaults.h"
#include "status/StatusCheck.h"
#include "status/stsitm.h"

bool PhysicalMontageHasRecordingMontage(const CPhysicalMontage* montage) {
    return montage != nullptr && montage->GetNumRecordingMontages() > 0 &&
           montage->GetRecordingMontageAt(0) != nullptr;
}

// ---------------------------------------------------------------------------
// What a native-like recording says of its channels: recording montage 0
// names them, the calibration gives their ranges.

double CSigFile::GetRecordDuration() const {
    const double frequency = GetTrueFrequency();
    return frequency > 0.0 ? GetSamplesRecord() / frequency : 0.0;
}

double CSigFile::GetChannelFrequency(unsigned channel) const {
    const double frequency = GetTrueFrequency();
    const unsigned samples = GetSamplesRecord();
    if (channel >= GetNumChannels() || samples == 0) return 0.0;
    return frequency * GetSamplesChannel(channel) / samples;
}

int CSigFile::GetChannelInfo(unsigned channel, CSigChannelInfo* info) const {
    if (!info || channel >= GetNumChannels()) return 0;
    *info = CSigChannelInfo();
    info->frequency = GetChannelFrequency(channel);
    const CPhysicalMontage* physical = GetPhysicalMontage();
    const CRecordingMontage* rec =
        physical && physical->GetNumRecordingMontages() > 0 ? physical->GetRecordingMontageAt(0) : nullptr;
    if (rec && channel < rec->GetNumChannels()) {
        info->label = rec->GetLabel(channel);
        info->unit = VhlGetUnitName(rec->GetUnit(channel));
        info->transducer = VhlGetTraceTypeName(rec->GetType(channel));
        info->prefilter = rec->GetPreprocessing(channel) ? rec->GetPreprocessing(channel) : "";
    }
    const CCalibration* calibration = GetCalibration();
    if (calibration && channel < calibration->GetNumChannels()) {
        info->digitalMin = calibration->GetAdMin();
        info->digitalMax = calibration->GetAdMax();
        info->physicalMin = calibration->AdToWorld(channel, calibration->GetAdMin());
        info->physicalMax = calibration->AdToWorld(channel, calibration->GetAdMax());
    }
    // A converted recording keeps how its source file described the
    // channel, as long as the channel still has the label it came with.
    for (unsigned g = 0; g < GetNumGroups(); ++g) {
        const CStatusGroup* group = GetGroupAt(g);
        if (!group || !EqualsNoCase(group->GetGroupID(), groupid::kChannelDescriptions)) continue;
        const std::string value = group->GetGroupPropertyValueAt(StrFormat("CH%u", channel).c_str());
        std::vector<std::string> parts;
        size_t from = 0;
        for (size_t at; (at = value.find('\x1F', from)) != std::string::npos; from = at + 1)
            parts.push_back(value.substr(from, at - from));
        parts.push_back(value.substr(from));
        if (parts.size() >= 4 && rec && channel < rec->GetNumChannels() && parts[0] == rec->GetLabel(channel)) {
            info->label = parts[1];
            info->unit = parts[2];
            info->transducer = parts[3];
        }
    }
    return 1;
}

void CSigFile::GetFormatNotes(CStringArray* notes) const {
    if (notes) notes->RemoveAll();
}

namespace {

// A property of the channel descriptions group that a conversion wrote.
std::string ConversionProperty(const CSigFile& file, const char* key) {
    for (unsigned g = 0; g < file.GetNumGroups(); ++g) {
        const CStatusGroup* group = file.GetGroupAt(g);
        if (group && EqualsNoCase(group->GetGroupID(), groupid::kChannelDescriptions))
            return group->GetGroupPropertyValueAt(key);
    }
    return {};
}

}  // namespace

const CRecordingMontage* RecordingMontageOfChannel(const CSigFile& file, unsigned channel, unsigned* index) {
    const CPhysicalMontage* physical = file.GetPhysicalMontage();
    const unsigned m = channel / kMaxMontageChannels, k = channel % kMaxMontageChannels;
    if (!physical || int(m) >= physical->GetNumRecordingMontages()) return nullptr;
    const CRecordingMontage* rec = physical->GetRecordingMontageAt(int(m));
    if (!rec || k >= rec->GetNumChannels()) return nullptr;
    if (index) *index = k;
    return rec;
}

// "PARTIAL" holds "record:samples" pairs separated by commas.
void CSigFile::GetPartialRecords(std::map<long, unsigned>* fills) const {
    if (!fills) return;
    fills->clear();
    const std::string text = ConversionProperty(*this, kPartialRecordsKey);
    const long records = GetNumRecords();
    const CPhysicalMontage* physical = GetPhysicalMontage();
    const unsigned perRecord = physical && physical->GetNumRecordingMontages() > 0
                                   ? physical->GetRecordingMontageAt(0)->GetSamplesRecord()
                                   : 0;
    for (const std::string& pair : SplitWords(text, ",")) {
        long record = -1, samples = 0;
        if (std::sscanf(pair.c_str(), "%ld:%ld", &record, &samples) != 2) continue;
        // A damaged list never hides a whole record nor names one that does not exist.
        if (record >= 0 && record < records && samples > 0 && static_cast<unsigned long>(samples) < perRecord)
            (*fills)[record] = static_cast<unsigned>(samples);
    }
}

double CSigFile::GetSourceRecordDuration() const {
    const std::string text = ConversionProperty(*this, kSourceRecordKey);
    char* end = nullptr;
    const double seconds = text.empty() ? 0.0 : std::strtod(text.c_str(), &end);
    return std::isfinite(seconds) && seconds > 0 && seconds < 1e6 && end && *end == '\0' ? seconds : 0.0;
}

int CSigFile::IsDurationWithin24hrs(const CSigFile* file) {
    if (!file) return 1;
    const CFileHeader* header = file->GetFileHeader();
    const CSDateTime creation = header ? header->GetCreationDateTime() : CSDateTime();
    const CStatusItem* latest = nullptr;
    for (unsigned i = 0; i < file->GetNumStatusItems(); ++i) {
        const CStatusItem* item = file->GetStatusItemAt(i);
        if (!item || !item->GetGroup() || item->GetGroup()->GetGroupExtent() != 1) continue;
        if (!latest || item->GetEndTime() > latest->GetEndTime()) latest = item;
    }
    if (!latest) return 1;
    // One second more than a day: a recording of exactly 24 hours passes.
    return (latest->GetEndTime() - creation) < CSTimeSpan(86401.0) ? 1 : 0;
}

namespace {

// The channels a status object may name: the physical montage's electrodes
// and the labels of its recording and reformatted montages.
std::set<std::string> MontageChannels(const CPhysicalMontage* montage) {
    std::set<std::string> names;
    for (unsigned e = 0; e < montage->GetNumElectrodes(); ++e)
        if (const char* name = montage->GetElectrodeName(e)) names.insert(name);
    for (int m = 0; m < montage->GetNumRecordingMontages(); ++m) {
        const CRecordingMontage* rec = montage->GetRecordingMontageAt(m);
        if (!rec) continue;
        for (unsigned c = 0; c < rec->GetNumChannels(); ++c) names.insert(rec->GetLabel(c));
        for (unsigned r = 0; r < rec->GetNumReformatedMontages(); ++r) {
            const CReformatedMontage* ref = rec->GetReformatedMontageAt(r);
            for (unsigned c = 0; ref && c < ref->GetNumChannels(); ++c) names.insert(ref->GetLabel(c));
        }
    }
    return names;
}

}  // namespace

// Groups and items name channels by their labels.  After the physical
// montage was replaced, a group that named a channel the new montage no
// longer has concerns all channels instead (channel type -1, no name), and an
// item naming such a channel loses the name; everything else is untouched.
void CSigFile::UpdateNewPhyMtgToStsGrpsItms(CPhysicalMontage* montage) {
    if (!montage) return;
    const std::set<std::string> channels = MontageChannels(montage);
    for (unsigned g = 0; g < GetNumGroups(); ++g) {
        const CStatusGroup* group = GetGroupAt(g);
        if (!group || group->GetGroupChannelType() != 0 || channels.count(group->GetGroupChannel())) continue;
        CStatusGroup changed(*group);
        changed.SetGroupChannelAndType("", -1);
        UpdateGroupAt(g, &changed);
    }
    for (unsigned i = 0; i < GetNumStatusItems(); ++i) {
        const CStatusItem* item = GetStatusItemAt(i);
        if (!item || item->GetChannel().empty() || channels.count(item->GetChannel())) continue;
        CStatusItem changed(*item);
        changed.SetChannel("");
        UpdateStatusItemAt(i, &changed);
    }
}

// Rules of the check, for each item in index order:
// 1. its group is one of the file's groups;
// 2. its begin sample is not after its end sample, nor its begin time after
//    its end time;
// 3. by the group's type: a discontinuity (type 0) is a point (begin sample =
//    end sample); a section (type 1) or a stage (type 4) is a stretch of at
//    least one sample;
// 4. the sample range and the time range give the same duration, within one
//    second plus one sample period at the true frequency (records carry
//    their own times, so a small drift is normal);
// 5. the sample range lies inside the recording: 0 <= begin, end <= records
//    x samples per record.
// Items of the off-recording notes group (412A523B-...) are kept with a time
// only: rules 4 and 5 do not apply to them.
int ValidateStatusItems(CSigFile* file, CStringArray* findings) {
    if (!file) return 0;
    std::set<const CStatusGroup*> groups;
    for (unsigned g = 0; g < file->GetNumGroups(); ++g) groups.insert(file->GetGroupAt(g));
    const double frequency = file->GetTrueFrequency();
    // Samples per record at the base frequency: the recording montage's own
    // (a native codec always says 64, whatever the montage records).
    const CPhysicalMontage* physical = file->GetPhysicalMontage();
    const CRecordingMontage* rec0 =
        physical && physical->GetNumRecordingMontages() > 0 ? physical->GetRecordingMontageAt(0) : nullptr;
    const long long perRecord = rec0 && rec0->GetSamplesRecord() ? rec0->GetSamplesRecord() : file->GetSamplesRecord();
    const long long totalSamples = static_cast<long long>(file->GetNumRecords()) * perRecord;
    int problems = 0;
    auto report = [&](unsigned index, const CStatusItem* item, UINT what) {
        ++problems;
        if (findings)
            findings->Add(StrFormat(LoadResString(IDS_STS_FINDING).c_str(), index, item->GetName().c_str(),
                                    static_cast<int>(item->GetBeginSample()), static_cast<int>(item->GetEndSample()),
                                    LoadResString(what).c_str()));
    };
    for (unsigned i = 0; i < file->GetNumStatusItems(); ++i) {
        const CStatusItem* item = file->GetStatusItemAt(i);
        if (!item) continue;
        const CStatusGroup* group = item->GetGroup();
        if (!group || !groups.count(group)) {
            report(i, item, IDS_STS_UNKNOWN_GROUP);
            continue;
        }
        const long long begin = item->GetBeginSample(), end = item->GetEndSample();
        if (begin > end) report(i, item, IDS_STS_END_BEFORE_BEGIN_SAMPLES);
        if (item->GetEndTime() < item->GetBeginTime()) report(i, item, IDS_STS_END_BEFORE_BEGIN_TIME);
        if (group->GetGroupType() == 0 && begin != end) report(i, item, IDS_STS_DISCONTINUITY_SPAN);
        if ((group->GetGroupType() == 1 || group->GetGroupType() == 4) && end <= begin)
            report(i, item, IDS_STS_SECTION_EMPTY);
        if (EqualsNoCase(group->GetGroupID(), groupid::kOffRecordingNotes)) continue;
        if (frequency > 0.0) {
            double bySamples = static_cast<double>(end - begin) / frequency;
            double byTime = (item->GetEndTime() - item->GetBeginTime()).GetTotalSeconds();
            if (std::fabs(bySamples - byTime) > 1.0 + 1.0 / frequency)
                report(i, item, IDS_STS_DURATIONS_DIFFER);
        }
        // (a recording without channels or records holds events only: they have no records to lie in)
        const bool eventsOnly = file->GetNumChannels() == 0 && file->GetNumRecords() == 0;
        if (!eventsOnly && (begin < 0 || end > totalSamples)) report(i, item, IDS_STS_OUTSIDE);
    }
    return problems == 0 ? 1 : 0;
}

// Shows what the check found in one message box (at most 20 lines).
int ValidateStatusItems(CSigFile* file) {
    CStringArray findings;
    int ok = ValidateStatusItems(file, &findings);
    if (!ok && findings.GetSize() > 0) {
        std::string text;
        const int shown = std::min(findings.GetSize(), 20);
        for (int i = 0; i < shown; ++i) text += findings[i] + "\n";
        if (findings.GetSize() > shown)
            text += StrFormat(LoadResString(IDS_STS_MORE).c_str(), findings.GetSize() - shown);
        AfxMessageBox(text);
    }
    return ok;
}
