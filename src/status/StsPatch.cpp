// The patch chain that brings a status archive of any version up to date.
// It runs after every read, in a fixed order, whatever the file version.
#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "montage/mtgs.h"
#include "platform/Strings.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "status/GroupDefaults.h"
#include "status/IntStsFile.h"

namespace {

CStatusGroup* GroupAt(CObArray& groups, int i) { return static_cast<CStatusGroup*>(groups[i]); }

bool HasGroupKey(const CStatusGroup* g, const char* key) { return g->FindGroupProperty(key) >= 0; }
bool HasItemKey(const CStatusGroup* g, const char* key) { return g->FindProperty(key) >= 0; }

bool HasGroupKeys(const CStatusGroup* g, std::initializer_list<const char*> keys) {
    return std::all_of(keys.begin(), keys.end(), [g](const char* k) { return HasGroupKey(g, k); });
}
bool HasItemKeys(const CStatusGroup* g, std::initializer_list<const char*> keys) {
    return std::all_of(keys.begin(), keys.end(), [g](const char* k) { return HasItemKey(g, k); });
}
bool IsTriggerGroup(const CStatusGroup* g) {
    return HasGroupKeys(g, {"DetChan", "DetAlwOn"}) && (HasGroupKey(g, "DigitalTrig") || HasGroupKey(g, "AnalogTrig"));
}

// The limb-movement rule decides while the group keys are scanned in order:
// when the third of "LMMinDur", "LMMaxDur", "MinInterMovInterv" is found, the
// group is a periodic-limb-movement group only if "PLMDetChan" came before.
const char* LimbMovementId(const CStatusGroup* g) {
    bool minDur = false, maxDur = false, interval = false, plm = false;
    for (int i = 0; i < g->GetGroupNumProperties(); ++i) {
        const std::string& key = g->GetGroupPropertyKeyAt(i);
        if (EqualsNoCase(key, "PLMDetChan")) plm = true;
        else if (EqualsNoCase(key, "LMMinDur")) minDur = true;
        else if (EqualsNoCase(key, "LMMaxDur")) maxDur = true;
        else if (EqualsNoCase(key, "MinInterMovInterv")) interval = true;
        else continue;
        if (minDur && maxDur && interval) return plm ? groupid::kPeriodicLimbMovement : groupid::kLimbMovement;
    }
    return nullptr;
}

struct IdChoice {
    const char* id = nullptr;
    const char* sectionId = nullptr;  // for detection groups
};

IdChoice ChooseId(const CStatusGroup* g, int& heartRateGroups) {
    const std::string& name = g->GetGroupName();
    const unsigned type = g->GetGroupType();
    const unsigned extent = g->GetGroupExtent();
    switch (type) {
    case 0:
        if (name == "Discontinuity" || name == "Physical Break") return {groupid::kDiscontinuity};
        break;
    case 1:
        if (name == "Sample Section") return {groupid::kSampleSection};
        if (name == "Calibration Section") return {groupid::kCalibrationSection};
        if (name == "Push Button Section" || name == "PushButton Section") return {groupid::kPushButtonSection};
        if (name == "Scheduled Section") return {groupid::kScheduledSection};
        break;
    case 2:
        if (extent != 0) break;
        if (name == "Push Button Detection" || name == "PushButton Detection") return {groupid::kPushButtonDetection};
        if (IsTriggerGroup(g)) return {groupid::kTrigger};
        if (g->GetGroupNumProperties() == 0) {
            if (HasItemKeys(g, {"Amep", "Duep"})) return {groupid::kEpiDetection, groupid::kEpiRhythmSection};
        } else if (HasGroupKeys(g, {"DetFreq", "MaxCoVar"})) {
            return {groupid::kRhythmDetection, groupid::kEpiRhythmSection};
        }
        if (HasGroupKeys(g, {"Rhythmic", "MultSpk", "SpkAmpThr"}))
            return {groupid::kMultiSpikeDetection, groupid::kMultiSpikeSection};
        if (HasItemKeys(g, {"DurHw1", "AmpHw1"})) {
            if (HasItemKey(g, "EegState")) return {groupid::kSpikeStateDetection, groupid::kSpikeStateSection};
            if (!HasItemKey(g, "DerPts")) return {groupid::kSpikeDetection, groupid::kSpikeSection};
            return {groupid::kSpikeDerDetection, groupid::kSpikeSection};
        }
        if (HasItemKeys(g, {"SeizTemplAmpEpoch", "SeizTemplFreqEpoch", "SeizTemplCoefVar"}))
            return {groupid::kSeizureDetection, groupid::kSeizureSection};
        break;
    case 3:
        if (extent == 0) {
            if (name == "Annotation") return {groupid::kAnnotation};
            if (name == "Bookmarks") return {groupid::kBookmarks};
            if (name == "Traces as Observed") return {groupid::kTracesAsObserved};
            if (name == "Calibration Label") return {groupid::kCalibrationLabel};
            if (IsTriggerGroup(g)) return {groupid::kTrigger};
            if (HasItemKeys(g, {"MaxAbsAmp", "Sens"})) return {groupid::kArtifact};
            if (HasItemKeys(g, {"RWidth", "QRSAmp"})) return {groupid::kQrs};
        } else {
            if (HasGroupKeys(g, {"EVTLEN", "APNPER", "HYPPER"}))
                return {name.find("_PAP") != std::string::npos ? groupid::kRespiratoryPap : groupid::kRespiratory};
            if (HasGroupKey(g, "MINDUR") && (HasGroupKey(g, "THRESHOLD") || HasGroupKey(g, "BASELINEWINDUR")))
                return {groupid::kDesaturation};
            if (const char* id = LimbMovementId(g)) return {id};
            if (HasGroupKeys(g, {"SPNPWRTHR", "MINSPNDUR", "ARTREJTHR"})) return {groupid::kSpindle};
            if (HasItemKeys(g, {"Mean", "STD", "NumberOfRR"}))
                return {heartRateGroups++ == 0 ? groupid::kHeartRate : groupid::kHeartRateOther};
        }
        break;
    case 4:
        if (extent == 1 && HasGroupKey(g, "EpochLength")) return {groupid::kSleepStages};
        break;
    case 5:
        if (extent == 1 && name == "Hyperventilation") return {groupid::kHyperventilation};
        if (extent == 1 && name == "Post Hyperventilation") return {groupid::kPostHyperventilation};
        break;
    default:
        break;
    }
    return {};
}

// Groups whose items stand for a stretch of time.
bool IsSectionGroup(const CStatusGroup* g) { return g && g->GetGroupType() == 1; }
bool IsStageGroup(const CStatusGroup* g) { return g && g->GetGroupType() == 4; }
bool IsBookmarkGroup(const CStatusGroup* g) { return g && EqualsNoCase(g->GetGroupID(), groupid::kBookmarks); }

}  // namespace

// ---------------------------------------------------------------------------

int CIntStsFile::PatchStsInfo(CStsContent& c, WORD /*fileVersion*/) {
    PatchGroupIDs(c.groups);
    PatchGroupProperties(c.groups);
    PatchGroupQualifiers(c.groups);
    PatchPatientSex(c.patient.get());
    PatchStageEventProperties(c.groups, c.items);
    PatchBookmarkEventProperties(c.groups, c.items, c.montage.get());
    PatchSectionEvents(c.groups, c.items, c.calibration ? c.calibration->GetTrueFrequency() : 0.0);
    return 1;
}

void CIntStsFile::PatchGroupIDs(CObArray& groups) {
    if (groups.GetSize() == 0 || !GroupAt(groups, 0)->GetGroupID().empty()) return;
    int heartRateGroups = 0;
    // A section group named by an earlier detection group keeps the id it
    // was given when its own turn comes.
    std::unordered_set<const CStatusGroup*> sectionsGiven;
    for (int i = 0; i < groups.GetSize(); ++i) {
        CStatusGroup* g = GroupAt(groups, i);
        if (sectionsGiven.count(g)) continue;
        g->SetGroupID(groupid::kGeneric);
        IdChoice choice = ChooseId(g, heartRateGroups);
        if (!choice.id) continue;
        g->SetGroupID(choice.id);
        if (choice.sectionId) {
            if (CStatusGroup* section = FindCorrespPrcSecGroup(groups, g->GetGroupName().c_str())) {
                section->SetGroupID(choice.sectionId);
                sectionsGiven.insert(section);
            }
        }
    }
}

CStatusGroup* CIntStsFile::FindCorrespPrcSecGroup(const CObArray& groups, const char* detectionName) {
    if (!detectionName || !*detectionName) return nullptr;
    const std::string name(detectionName);
    const size_t n = Utf8Length(name);
    for (int i = 0; i < groups.GetSize(); ++i) {
        auto* g = static_cast<CStatusGroup*>(groups.GetAt(i));
        if (!IsSectionGroup(g)) continue;
        const std::string& candidate = g->GetGroupName();
        std::string head = Utf8Left(candidate, n);
        if (!EqualsNoCase(head, name)) continue;
        if (head.size() == candidate.size()) return g;
        char next = candidate[head.size()];
        if (next == ' ' || next == '-' || next == '_') return g;
    }
    return nullptr;
}

// Well-known groups get their default name and description when they have
// none, and every property key of theirs without a description gets the
// default description of that key.
void CIntStsFile::PatchGroupProperties(CObArray& groups) {
    for (int i = 0; i < groups.GetSize(); ++i) {
        CStatusGroup* g = GroupAt(groups, i);
        const char* id = g->GetGroupID().c_str();
        if (!IsWellKnownGroupId(id)) continue;
        if (g->GetGroupName().empty()) g->SetGroupName(GetDefaultGroupName(id).c_str());
        if (g->GetGroupDescription().empty()) g->SetGroupDescription(GetDefaultGroupDesc(id).c_str());
        for (int k = 0; k < g->GetGroupNumProperties(); ++k) {
            if (!g->GetGroupPropertyDescriptionAt(k).empty()) continue;
            std::string key = g->GetGroupPropertyKeyAt(k);
            CString desc = GetGroupPropertyDesc(id, key.c_str());
            if (!desc.empty()) g->SetGroupPropertyDescriptionAt(key.c_str(), desc.c_str());
        }
        for (int k = 0; k < g->GetNumProperties(); ++k) {
            if (!g->GetPropertyDescriptionAt(k).empty()) continue;
            std::string key = g->GetPropertyKeyAt(k);
            CString desc = GetGroupPropertyDesc(id, key.c_str());
            if (!desc.empty()) g->SetPropertyDescriptionAt(key.c_str(), desc.c_str());
        }
    }
}

void CIntStsFile::PatchGroupQualifiers(CObArray& groups) {
    for (int i = 0; i < groups.GetSize(); ++i) {
        CStatusGroup* g = GroupAt(groups, i);
        const int flags = static_cast<int>(g->GetGroupFlags());
        if (g->GetGroupType() == 1 && (flags < 0 || flags > 1)) g->SetGroupFlags(0);
        else if (g->GetGroupType() == 2 && flags != 0) g->SetGroupFlags(0);
    }
}

void CIntStsFile::PatchPatientSex(CPatientInfo* patient) {
    if (patient && patient->GetSex() >= 3) patient->SetSex(0);
}

// Sleep stages are scored epoch by epoch:
// - a stage group (type 4) always has extent 1 and free event names;
// - a stage group without the group property "EpochLength" gets it, with
//   the duration in whole seconds of its first item (when that lies between
//   1 s and 1 h, as a scoring epoch does), else 30 s, the usual epoch;
// - every item of a stage group carries one value per item property of its
//   group.
void CIntStsFile::PatchStageEventProperties(CObArray& groups, CStatusItemArray& items) {
    std::unordered_set<const CStatusGroup*> stages;
    for (int i = 0; i < groups.GetSize(); ++i) {
        CStatusGroup* g = GroupAt(groups, i);
        if (!IsStageGroup(g)) continue;
        stages.insert(g);
        if (g->GetGroupExtent() != 1) g->SetGroupTypeAndExtent(4, 1);
        if (g->GetGroupEventNameType() != 0) g->SetGroupEventNameType(0);
    }
    if (stages.empty()) return;
    std::unordered_map<const CStatusGroup*, const CStatusItem*> firstItem;
    for (int i = 0; i < items.GetSize(); ++i) {
        CStatusItem* item = items.GetItemAt(i);
        if (!stages.count(item->GetGroup())) continue;
        item->FitPropertiesToGroup();
        firstItem.emplace(item->GetGroup(), item);
    }
    for (int k = 0; k < groups.GetSize(); ++k) {
        CStatusGroup* g = GroupAt(groups, k);
        if (!stages.count(g) || g->FindGroupProperty("EpochLength") >= 0) continue;
        long seconds = 30;
        if (auto it = firstItem.find(g); it != firstItem.end()) {
            double s = (it->second->GetEndTime() - it->second->GetBeginTime()).GetTotalSeconds();
            if (s >= 1.0 && s <= 3600.0) seconds = std::lround(s);
        }
        g->AddGroupProperty("EpochLength", GetGroupPropertyDesc(g->GetGroupID().c_str(), "EpochLength").c_str(),
                            std::to_string(seconds).c_str());
    }
}

// A bookmark marks one moment of the recording:
// - the bookmark group is a point group (extent 0) with free names;
// - each bookmark ends where it begins (samples and times);
// - a bookmark whose channel is no channel of the physical montage (no label
//   of its recording montages, no electrode) concerns the whole recording
//   and loses the channel name.  Without a montage, or with one that has no
//   channels at all, there is nothing to judge by and channels are kept.
void CIntStsFile::PatchBookmarkEventProperties(CObArray& groups, CStatusItemArray& items,
                                               const CPhysicalMontage* montage) {
    std::unordered_set<const CStatusGroup*> bookmarks;
    for (int i = 0; i < groups.GetSize(); ++i) {
        CStatusGroup* g = GroupAt(groups, i);
        if (!IsBookmarkGroup(g)) continue;
        bookmarks.insert(g);
        if (g->GetGroupExtent() != 0) g->SetGroupTypeAndExtent(g->GetGroupType(), 0);
        if (g->GetGroupEventNameType() != 0) g->SetGroupEventNameType(0);
    }
    if (bookmarks.empty()) return;
    std::set<std::string> channels;
    if (montage) {
        for (unsigned e = 0; e < montage->GetNumElectrodes(); ++e)
            if (const char* name = montage->GetElectrodeName(e)) channels.insert(name);
        for (int m = 0; m < montage->GetNumRecordingMontages(); ++m) {
            const CRecordingMontage* rec = montage->GetRecordingMontageAt(m);
            for (unsigned c = 0; rec && c < rec->GetNumChannels(); ++c) channels.insert(rec->GetLabel(c));
        }
    }
    bool moved = false;
    for (int i = 0; i < items.GetSize(); ++i) {
        CStatusItem* item = items.GetItemAt(i);
        if (!bookmarks.count(item->GetGroup())) continue;
        if (item->GetEndSample() != item->GetBeginSample()) {
            item->SetSampleRange(item->GetBeginSample(), item->GetBeginSample());
            moved = true;
        }
        item->SetTimeRange(item->GetBeginTime(), item->GetBeginTime());
        if (!channels.empty() && !item->GetChannel().empty() && !channels.count(item->GetChannel()))
            item->SetChannel("");
        item->FitPropertiesToGroup();
    }
    if (moved) items.Sort();
}

// A section is a stretch of the recording:
// - a section group (type 1) has extent 1;
// - a section whose end sample lies before its begin sample has the two
//   exchanged, and the same for its times;
// - the sample range is what the signal is read by, so when the time range
//   disagrees with it by more than one sample period at the recording's true
//   frequency, the end time is recomputed from the begin time and the number
//   of samples.
void CIntStsFile::PatchSectionEvents(CObArray& groups, CStatusItemArray& items, double trueFrequency) {
    std::unordered_set<const CStatusGroup*> sections;
    for (int i = 0; i < groups.GetSize(); ++i) {
        CStatusGroup* g = GroupAt(groups, i);
        if (!IsSectionGroup(g)) continue;
        sections.insert(g);
        if (g->GetGroupExtent() != 1) g->SetGroupTypeAndExtent(1, 1);
    }
    if (sections.empty()) return;
    bool moved = false;
    for (int i = 0; i < items.GetSize(); ++i) {
        CStatusItem* item = items.GetItemAt(i);
        if (!sections.count(item->GetGroup())) continue;
        if (item->GetEndSample() < item->GetBeginSample()) {
            item->SetSampleRange(item->GetEndSample(), item->GetBeginSample());
            moved = true;
        }
        if (item->GetEndTime() < item->GetBeginTime()) item->SetTimeRange(item->GetEndTime(), item->GetBeginTime());
        if (trueFrequency > 0.0) {
            double bySamples =
                (static_cast<double>(item->GetEndSample()) - static_cast<double>(item->GetBeginSample())) /
                trueFrequency;
            double byTime = (item->GetEndTime() - item->GetBeginTime()).GetTotalSeconds();
            if (std::fabs(bySamples - byTime) > 1.0 / trueFrequency)
                item->SetTimeRange(item->GetBeginTime(), item->GetBeginTime() + CSTimeSpan(bySamples));
        }
    }
    if (moved) items.Sort();
}
