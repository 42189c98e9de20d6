// The patch chain run after every read: group ids of files that predate
// them, group properties, qualifiers, patient sex, stages, bookmarks and
// sections.  Old files are built by hand.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "status/GroupDefaults.h"
#include "status/IntStsFile.h"
#include "status/StsArchive.h"

using statustest::Bytes;
using statustest::Description;
using statustest::GroupFields;
using statustest::ItemFields;
using statustest::StringArray;
using testsupport::AssertRecorder;

namespace {

struct GroupSpec {
    unsigned type, extent;
    std::string name;
    std::vector<std::string> groupKeys = {};
    std::vector<std::string> itemKeys = {};
};

// Owns the groups it puts in the array.
struct Groups {
    CObArray array;
    std::vector<std::unique_ptr<CStatusGroup>> owned;
    CStatusGroup* Add(const GroupSpec& s) {
        owned.push_back(std::make_unique<CStatusGroup>("", s.name.c_str(), "", s.type, 0, s.extent, -1, "", 0, 0, 1, 0));
        for (const auto& k : s.groupKeys) owned.back()->AddGroupProperty(k.c_str(), "", "1");
        for (const auto& k : s.itemKeys) owned.back()->AddProperty(k.c_str(), "");
        array.Add(owned.back().get());
        return owned.back().get();
    }
    std::string Id(int i) const { return owned[static_cast<size_t>(i)]->GetGroupID(); }
};

std::string IdOf(const GroupSpec& spec) {
    Groups g;
    g.Add(spec);
    CIntStsFile::PatchGroupIDs(g.array);
    return g.Id(0);
}

// Version 2 group data: no id; a null montage reference and index -1.
Bytes GroupV2(const std::string& name, unsigned type, unsigned extent, unsigned flags,
              const std::vector<std::string>& groupKeys, const std::vector<std::string>& itemKeys) {
    Bytes b;
    b.u16(2).str(name).str("").u32(type).u32(flags).u32(extent).u16(0).u16(0xFFFF);
    b.u32(0x00FF00).u32(0).str("");
    b.append(StringArray(itemKeys)).append(StringArray(itemKeys));
    std::vector<std::string> values(groupKeys.size(), "1");
    b.append(StringArray(groupKeys)).append(StringArray(groupKeys)).append(StringArray(values));
    return b;
}

}  // namespace

TEST(StsPatchTest, WellKnownIdsByTypeExtentNameAndKeys) {
    using S = GroupSpec;
    struct Row {
        GroupSpec spec;
        const char* id;
    } rows[] = {
        {S{0, 0, "Physical Break"}, groupid::kDiscontinuity},
        {S{0, 1, "Discontinuity"}, groupid::kDiscontinuity},
        {S{1, 1, "PushButton Section"}, groupid::kPushButtonSection},
        {S{1, 0, "Scheduled Section"}, groupid::kScheduledSection},
        {S{1, 1, "Calibration Section"}, groupid::kCalibrationSection},
        {S{1, 1, "sample section"}, groupid::kGeneric},  // names are compared with case
        {S{3, 0, "Bookmarks", {"DetChan", "DetAlwOn", "AnalogTrig"}, {"MaxAbsAmp", "Sens"}}, groupid::kBookmarks},
        {S{3, 0, "Traces as Observed"}, groupid::kTracesAsObserved},
        {S{3, 0, "Calibration Label"}, groupid::kCalibrationLabel},
        {S{3, 0, "Trig", {"detchan", "DETALWON", "DigitalTrig"}}, groupid::kTrigger},
        {S{3, 0, "Trig", {"DetChan", "DetAlwOn"}}, groupid::kGeneric},
        {S{3, 0, "A", {}, {"MaxAbsAmp", "Sens"}}, groupid::kArtifact},
        {S{3, 0, "Q", {}, {"RWidth", "QRSAmp"}}, groupid::kQrs},
        {S{3, 1, "Q", {}, {"RWidth", "QRSAmp"}}, groupid::kGeneric},
        {S{3, 1, "Resp_PAP", {"EVTLEN", "APNPER", "HYPPER"}}, groupid::kRespiratoryPap},
        {S{3, 1, "Resp", {"EVTLEN", "APNPER", "HYPPER"}}, groupid::kRespiratory},
        {S{3, 1, "Sat", {"MINDUR", "BASELINEWINDUR"}}, groupid::kDesaturation},
        {S{3, 1, "Sat", {"MINDUR"}}, groupid::kGeneric},
        {S{3, 1, "PLM", {"PLMDetChan", "LMMinDur", "LMMaxDur", "MinInterMovInterv"}}, groupid::kPeriodicLimbMovement},
        {S{3, 1, "LM", {"LMMinDur", "LMMaxDur", "MinInterMovInterv", "PLMDetChan"}}, groupid::kLimbMovement},
        {S{3, 1, "LM", {"LMMinDur", "PLMDetChan", "LMMaxDur", "MinInterMovInterv"}}, groupid::kPeriodicLimbMovement},
        {S{3, 1, "Fuseaux", {"SPNPWRTHR", "MINSPNDUR", "ARTREJTHR"}}, groupid::kSpindle},
        {S{4, 1, "Stades", {"EpochLength"}}, groupid::kSleepStages},
        {S{4, 0, "Stades", {"EpochLength"}}, groupid::kGeneric},
        {S{5, 1, "Hyperventilation"}, groupid::kHyperventilation},
        {S{5, 1, "Post Hyperventilation"}, groupid::kPostHyperventilation},
        {S{2, 0, "PushButton Detection"}, groupid::kPushButtonDetection},
        {S{2, 0, "T", {"DetChan", "DetAlwOn", "DigitalTrig"}}, groupid::kTrigger},
        {S{2, 0, "E", {}, {"Amep", "Duep"}}, groupid::kEpiDetection},
        {S{2, 0, "E", {"X"}, {"Amep", "Duep"}}, groupid::kGeneric},
        {S{2, 0, "R", {"DetFreq", "MaxCoVar"}}, groupid::kRhythmDetection},
        {S{2, 0, "M", {"Rhythmic", "MultSpk", "SpkAmpThr"}}, groupid::kMultiSpikeDetection},
        {S{2, 0, "P", {}, {"DurHw1", "AmpHw1", "EegState", "DerPts"}}, groupid::kSpikeStateDetection},
        {S{2, 0, "P", {}, {"DurHw1", "AmpHw1"}}, groupid::kSpikeDetection},
        {S{2, 0, "P", {}, {"DurHw1", "AmpHw1", "DerPts"}}, groupid::kSpikeDerDetection},
        {S{2, 0, "C", {}, {"SeizTemplAmpEpoch", "SeizTemplFreqEpoch", "SeizTemplCoefVar"}}, groupid::kSeizureDetection},
        {S{2, 1, "P", {}, {"DurHw1", "AmpHw1"}}, groupid::kGeneric},
    };
    for (const auto& row : rows) EXPECT_EQ(IdOf(row.spec), row.id) << row.spec.name;
    EXPECT_EQ(IdOf(S{3, 1, "F", {"SPNPWRTHR", "MINSPNDUR", "ARTREJTHR"}}), "258EE925-A6B1-11d1-8B40-008029ED91B7");
}

TEST(StsPatchTest, HeartRateGroupsSectionGroupsAndFilesThatHaveIds) {
    Groups g;
    g.Add({3, 1, "RR 1", {}, {"Mean", "STD", "NumberOfRR"}});
    g.Add({3, 1, "RR 2", {}, {"NumberOfRR", "STD", "Mean"}});
    g.Add({2, 0, "Spike Detection", {}, {"DurHw1", "AmpHw1"}});
    g.Add({1, 1, "Spike Detection Section"});
    g.Add({1, 1, "Seizure Section"});
    g.Add({2, 0, "Seizures", {}, {"SeizTemplAmpEpoch", "SeizTemplFreqEpoch", "SeizTemplCoefVar"}});
    CIntStsFile::PatchGroupIDs(g.array);
    EXPECT_EQ(g.Id(0), groupid::kHeartRate);
    EXPECT_EQ(g.Id(1), groupid::kHeartRateOther);
    EXPECT_EQ(g.Id(2), groupid::kSpikeDetection);
    EXPECT_EQ(g.Id(3), groupid::kSpikeSection);  // kept when its own turn came
    EXPECT_EQ(g.Id(4), groupid::kGeneric);       // "Seizures" has no section group
    EXPECT_EQ(g.Id(5), groupid::kSeizureDetection);

    EXPECT_EQ(CIntStsFile::FindCorrespPrcSecGroup(g.array, "spike detection"), g.owned[3].get());
    EXPECT_EQ(CIntStsFile::FindCorrespPrcSecGroup(g.array, "Spike"), g.owned[3].get());
    EXPECT_EQ(CIntStsFile::FindCorrespPrcSecGroup(g.array, "Spike Det"), nullptr);
    EXPECT_EQ(CIntStsFile::FindCorrespPrcSecGroup(g.array, ""), nullptr);

    // The first group already has an id: nothing changes, not even later groups.
    Groups h;
    h.Add({3, 0, "Bookmarks"})->SetGroupID("X");
    h.Add({3, 0, "Bookmarks"});
    CIntStsFile::PatchGroupIDs(h.array);
    EXPECT_EQ(h.Id(0), "X");
    EXPECT_EQ(h.Id(1), "");
}

TEST(StsPatchTest, OldFileGetsIdsNamesQualifiersAndSex) {
    Description d;
    d.patient.SetSex(2);
    Bytes withTwo = statustest::ObjectBytes(d.patient);
    d.patient.SetSex(1);
    Bytes withOne = statustest::ObjectBytes(d.patient);
    // The one byte where the two differ is the sex: make it 5.
    size_t sexAt = 0;
    while (withTwo.data[sexAt] == withOne.data[sexAt]) ++sexAt;

    Bytes archive = d.Prefix();
    size_t patientAt = 2 + statustest::ObjectBytes(d.header).data.size();
    archive.data[patientAt + sexAt] = 5;

    AssertRecorder asserts;  // old groups carry no montage
    archive.append(statustest::GroupList({
        GroupV2("Bookmarks", 3, 0, 0, {}, {}),
        GroupV2("Sample Section", 1, 1, 1, {}, {}),
        GroupV2("Detecteur", 2, 0, 4, {}, {"Amep", "Duep"}),
        GroupV2("Calibration Section", 1, 1, 0xFFFFFFFF, {}, {}),
        GroupV2("Stades", 4, 1, 0, {"EpochLength"}, {}),
    }));
    archive.append(statustest::ItemList({}, 5));
    CIntStsFile sts;
    sts.LoadFromMemory(archive.data.data(), archive.data.size());
    EXPECT_EQ(sts.GetPatientInfo()->GetSex(), 0);
    ASSERT_EQ(sts.GetNumGroups(), 5u);
    const CStatusGroup* bookmarks = sts.GetGroupAt(0);
    EXPECT_EQ(bookmarks->GetGroupID(), groupid::kBookmarks);
    EXPECT_EQ(bookmarks->GetGroupDescription(), "Signets");  // default description
    EXPECT_EQ(sts.GetGroupAt(1)->GetGroupFlags(), 1u);
    EXPECT_EQ(sts.GetGroupAt(2)->GetGroupID(), groupid::kEpiDetection);
    EXPECT_EQ(sts.GetGroupAt(2)->GetGroupFlags(), 0u);
    EXPECT_EQ(sts.GetGroupAt(2)->GetPropertyDescriptionAt(0), "Amep");  // descriptions kept
    EXPECT_EQ(sts.GetGroupAt(3)->GetGroupFlags(), 0u);
    const CStatusGroup* stages = sts.GetGroupAt(4);
    EXPECT_EQ(stages->GetGroupID(), groupid::kSleepStages);
    EXPECT_EQ(stages->GetGroupPropertyDescriptionAt(0), "EpochLength");
}

TEST(StsPatchTest, GroupPropertiesGetDefaultDescriptions) {
    Groups g;
    CStatusGroup* stages = g.Add({4, 1, "", {"EpochLength"}, {"Custom"}});
    stages->SetGroupID(groupid::kSleepStages);
    CStatusGroup* other = g.Add({4, 1, "", {"EpochLength"}});
    other->SetGroupID("12345678-0000-0000-0000-000000000000");
    CIntStsFile::PatchGroupProperties(g.array);
    EXPECT_EQ(stages->GetGroupName(), "Sleep Stages");
    EXPECT_EQ(stages->GetGroupDescription(), "Stades de sommeil");
    EXPECT_EQ(stages->GetGroupPropertyDescriptionAt(0), "Durée d'une époque (s)");
    EXPECT_EQ(stages->GetPropertyDescriptionAt(0), "");  // unknown key
    EXPECT_EQ(other->GetGroupName(), "");                 // not a well-known group
    EXPECT_EQ(other->GetGroupPropertyDescriptionAt(0), "");
    EXPECT_EQ(GetDependentGroupId(groupid::kSpikeDerDetection), groupid::kSpikeSection);
    EXPECT_EQ(GetDependentGroupId(groupid::kBookmarks), "");
}

TEST(StsPatchTest, StagesBookmarksAndSectionsAreMadeConsistent) {
    Description d;
    GroupFields stage;
    stage.id = groupid::kSleepStages;
    stage.name = "Stades";
    stage.type = 4;
    stage.extent = 0;
    stage.itemKeys = stage.itemDescs = {"Score"};
    GroupFields bookmarks;
    bookmarks.extent = 1;
    GroupFields section;
    section.id = groupid::kSampleSection;
    section.name = "Sample Section";
    section.type = 1;
    section.extent = 0;

    ItemFields epoch;  // a 20-second epoch without its property value
    epoch.begin = 0;
    epoch.end = 5120;
    epoch.endTime = 46000.0 + 20.0 / 86400.0;
    ItemFields mark;  // a bookmark with a duration
    mark.groupIndex = 1;
    mark.begin = 100;
    mark.end = 900;
    mark.beginTime = 46000.1;
    mark.endTime = 46000.2;
    mark.channel = "Fp1";
    ItemFields reversed;  // a section stored end first, with a wrong end time
    reversed.groupIndex = 2;
    reversed.begin = 2560;
    reversed.end = 512;
    reversed.beginTime = 46000.0;
    reversed.endTime = 46000.5;

    Bytes archive = d.Prefix();
    archive.append(statustest::GroupList(
        {statustest::GroupV7(stage), statustest::GroupV7(bookmarks), statustest::GroupV7(section)}));
    archive.append(statustest::ItemList(
        {statustest::ItemV4(epoch), statustest::ItemV4(mark), statustest::ItemV4(reversed)}, 3));
    CIntStsFile sts;
    sts.LoadFromMemory(archive.data.data(), archive.data.size());

    const CStatusGroup* stages = sts.GetGroupAt(0);
    EXPECT_EQ(stages->GetGroupExtent(), 1u);
    EXPECT_EQ(stages->GetGroupPropertyValueAt("EpochLength"), "20");
    EXPECT_EQ(sts.GetGroupAt(1)->GetGroupExtent(), 0u);
    EXPECT_EQ(sts.GetGroupAt(2)->GetGroupExtent(), 1u);

    ASSERT_EQ(sts.GetNumStatusItems(), 3u);
    const CStatusItem* first = sts.GetStatusItemAt(0);
    EXPECT_EQ(first->GetGroup(), stages);
    EXPECT_EQ(first->GetPropertyValues().GetCount(), 1);
    const CStatusItem* mk = sts.GetStatusItemAt(1);
    EXPECT_EQ(mk->GetEndSample(), 100);
    EXPECT_EQ(mk->GetEndTime(), CSDateTime(46000.1));
    EXPECT_EQ(mk->GetChannel(), "Fp1");  // the montage has no channels to judge by
    const CStatusItem* sec = sts.GetStatusItemAt(2);
    EXPECT_EQ(sec->GetBeginSample(), 512);
    EXPECT_EQ(sec->GetEndSample(), 2560);
    EXPECT_NEAR((sec->GetEndTime() - sec->GetBeginTime()).GetTotalSeconds(), 8.0, 1e-3);
}
