// Status groups: editing rules and every archive version, byte by byte.
#include <gtest/gtest.h>

#include <memory>

#include "montage/mtgs.h"
#include "status/StatusBytes.h"
#include "status/stsitm.h"

using statustest::Bytes;
using statustest::GroupFields;
using statustest::StringArray;
using testsupport::AssertRecorder;

namespace {

std::unique_ptr<CStatusGroup> LoadGroup(const Bytes& data) {
    auto g = std::make_unique<CStatusGroup>();
    testsupport::LoadFromBytes(data.data, [&](CArchive& ar) { g->Serialize(ar); });
    return g;
}

int LoadCause(const Bytes& data) {
    try {
        LoadGroup(data);
    } catch (CArchiveException& e) {
        return e.m_cause;
    }
    return -1;
}

}  // namespace

TEST(StatusGroupTest, Version7StoresEveryFieldInOrder) {
    CStatusGroup g("6F69D0AB-5C98-496C-81F7-577C816CFF6F", "Pointes", "Détection de pointes", 2, 0, 0, 0, "Fp1-F3",
                   0x0000FF, 3, 1, 0);
    g.AddDefaultEvent("Pointe", 0x0000FF);
    g.AddDefaultEvent("Onde lente", 0x00FF00);
    g.SetGroupEventNameType(1);
    g.AddProperty("DurHw1", "Durée");
    g.AddProperty("AmpHw1", "Amplitude");
    g.AddGroupProperty("SpkAmpThr", "Seuil", "70");

    GroupFields f;
    f.id = "6F69D0AB-5C98-496C-81F7-577C816CFF6F";
    f.name = "Pointes";
    f.description = "D\xE9tection de pointes";
    f.type = 2;
    f.channelType = 0;
    f.channel = "Fp1-F3";
    f.color = 0x0000FF;
    f.access = 3;
    f.defaultNames = {"Pointe", "Onde lente"};
    f.defaultColors = {0x0000FF, 0x00FF00};
    f.eventNameType = 1;
    f.itemKeys = {"DurHw1", "AmpHw1"};
    f.itemDescs = {"Dur\xE9" "e", "Amplitude"};
    f.groupKeys = {"SpkAmpThr"};
    f.groupDescs = {"Seuil"};
    f.groupValues = {"70"};
    auto bytes = testsupport::StoreToBytes([&](CArchive& ar) { g.Serialize(ar); });
    EXPECT_EQ(bytes, statustest::GroupV7(f).data);

    auto back = LoadGroup(statustest::GroupV7(f));
    EXPECT_TRUE(*back == g);
    EXPECT_EQ(back->GetGroupPropertyValueAt("spkampthr"), "70");
    EXPECT_EQ(back->GetPropertyDescriptionAt(0), "Durée");
}

TEST(StatusGroupTest, Versions6And5ConvertDefaultEvents) {
    // Version 6: arrays are stored but a stage group (type 4) has free names.
    Bytes v6;
    v6.u16(6).str("F4B8F3EE-8AC2-4EFC-BC86-2A55AF130A6C").str("Stades").str("");
    v6.u32(4).u32(0).u32(1).i32(-2).str("").u32(0x112233).u32(1);
    v6.append(StringArray({"W", "N1"})).u16(2).u32(1).u32(2).u32(1);  // names, colours, visibility
    v6.append(StringArray({})).append(StringArray({}));
    v6.append(StringArray({"EpochLength"})).append(StringArray({"Epoque"})).append(StringArray({"30"}));
    auto stages = LoadGroup(v6);
    EXPECT_EQ(stages->GetGroupEventNameType(), 0u);
    EXPECT_EQ(stages->GetNumDefaultEventNames(), 0);
    EXPECT_EQ(stages->GetGroupChannelType(), -2);
    EXPECT_EQ(stages->GetGroupPropertyValueAt("EpochLength"), "30");

    // Version 5: one comma-separated string of names, all in the group colour.
    Bytes v5;
    v5.u16(5).str("").str("Artefacts").str("");
    v5.u32(3).u32(0).u32(0).i32(-1).str("").u32(0x445566).u32(0);
    v5.str("Mouvement,Electrode").u32(0);  // names, visibility 0
    v5.append(StringArray({"Sens"})).append(StringArray({"Sensibilite"}));
    v5.append(StringArray({})).append(StringArray({})).append(StringArray({}));
    auto artefacts = LoadGroup(v5);
    ASSERT_EQ(artefacts->GetNumDefaultEventNames(), 2);
    EXPECT_EQ(artefacts->GetDefaultEventNameAt(1), "Electrode");
    EXPECT_EQ(artefacts->GetDefaultEventColorAt(0), 0x445566u);
    EXPECT_EQ(artefacts->GetDefaultEventColorAt(1), 0x445566u);
    EXPECT_EQ(artefacts->GetGroupEventNameType(), 1u);
    EXPECT_EQ(artefacts->GetGroupVisibility(), 0u);
    EXPECT_EQ(artefacts->GetPropertyKeyAt(0), "Sens");

    // A detection group without default names: free names.
    Bytes empty5 = v5;
    empty5.data.clear();
    empty5.u16(5).str("").str("X").str("").u32(2).u32(0).u32(0).i32(-1).str("").u32(0).u32(0).str("").u32(1);
    empty5.append(StringArray({})).append(StringArray({}));
    empty5.append(StringArray({})).append(StringArray({})).append(StringArray({}));
    EXPECT_EQ(LoadGroup(empty5)->GetGroupEventNameType(), 0u);
}

TEST(StatusGroupTest, Version4HasNoVisibilityAndVersion2NoId) {
    Bytes v4;
    v4.u16(4).str("99E65CBA-9E82-417A-90A7-B398116464A2").str("Annotation").str("Notes");
    v4.u32(3).u32(0).u32(0).i32(0).str("C3").u32(7).u32(5).str("");
    v4.append(StringArray({})).append(StringArray({}));
    v4.append(StringArray({"k"})).append(StringArray({"d"})).append(StringArray({"v"}));
    auto g4 = LoadGroup(v4);
    EXPECT_EQ(g4->GetGroupID(), "99E65CBA-9E82-417A-90A7-B398116464A2");
    EXPECT_EQ(g4->GetGroupVisibility(), 1u);
    EXPECT_EQ(g4->GetGroupChannel(), "C3");
    EXPECT_EQ(g4->GetGroupAccess(), 5u);

    // Version 2: no id; montage reference (none here) and channel index -2.
    AssertRecorder asserts;
    Bytes v2;
    v2.u16(2).str("Annotation").str("").u32(3).u32(0).u32(0);
    v2.u16(0).u16(static_cast<unsigned>(-2));
    v2.u32(9).u32(0).str("A,B");
    v2.append(StringArray({})).append(StringArray({}));
    v2.append(StringArray({"g"})).append(StringArray({"gd"})).append(StringArray({"gv"}));
    auto g2 = LoadGroup(v2);
    EXPECT_EQ(g2->GetGroupID(), "");
    EXPECT_EQ(g2->GetGroupChannelType(), -2);
    EXPECT_EQ(g2->GetNumDefaultEventNames(), 2);
    EXPECT_EQ(g2->GetGroupNumProperties(), 1);
    EXPECT_TRUE(asserts.Saw("stsitm", 275));  // no montage object

    // Versions 1 and 0 have no group properties.
    for (unsigned version : {1u, 0u}) {
        Bytes old;
        old.u16(version).str("Annotation").str("").u32(3).u32(0).u32(0);
        old.u16(0).u16(static_cast<unsigned>(-1));
        old.u32(9).u32(0).str("");
        old.append(StringArray({"i"})).append(StringArray({"id"}));
        auto g = LoadGroup(old);
        EXPECT_EQ(g->GetGroupChannelType(), -1);
        EXPECT_EQ(g->GetGroupNumProperties(), 0);
        EXPECT_EQ(g->GetNumProperties(), 1);
        EXPECT_EQ(g->GetGroupVisibility(), 1u);
    }
}

TEST(StatusGroupTest, NewerOrDamagedArchiveIsRefusedAndGroupUnchanged) {
    Bytes v8;
    v8.u16(8).str("x");
    EXPECT_EQ(LoadCause(v8), CArchiveException::badSchema);

    GroupFields f;
    Bytes whole = statustest::GroupV7(f);
    Bytes cut;
    cut.data.assign(whole.data.begin(), whole.data.end() - 3);
    EXPECT_EQ(LoadCause(cut), CArchiveException::endOfFile);

    CStatusGroup g("id", "Keep", "", 3, 0, 0, -1, "", 1, 0, 1, 0);
    try {
        testsupport::LoadFromBytes(cut.data, [&](CArchive& ar) { g.Serialize(ar); });
    } catch (CArchiveException&) {
    }
    EXPECT_EQ(g.GetGroupName(), "Keep");

    // A count that claims more strings than the file holds.
    Bytes lying;
    lying.u16(7).str("").str("").str("").u32(0).u32(0).u32(0).i32(0).str("").u32(0).u32(0);
    lying.u16(0xFFFF).u32(100000000);
    EXPECT_EQ(LoadCause(lying), CArchiveException::endOfFile);
}

TEST(StatusGroupTest, RangeAndEventNameRules) {
    AssertRecorder asserts;
    CStatusGroup g;
    g.SetGroupTypeAndExtent(6, 2);
    EXPECT_TRUE(asserts.Saw("stsitm", 445));
    EXPECT_TRUE(asserts.Saw("stsitm", 446));
    g.SetGroupAccess(8);
    EXPECT_TRUE(asserts.Saw("stsitm", 468));

    asserts.hits.clear();
    g.SetGroupTypeAndExtent(1, 1);
    g.SetGroupEventNameType(1);  // sections name their events freely
    EXPECT_TRUE(asserts.Saw("stsitm", 482));
    EXPECT_EQ(g.GetGroupEventNameType(), 0u);

    asserts.hits.clear();
    g.SetGroupTypeAndExtent(3, 0);
    g.SetGroupEventNameType(2);
    EXPECT_TRUE(asserts.Saw("stsitm", 482));
    g.AddDefaultEvent("A", 1);
    g.InsertDefaultEventAt(0, "B", 2);
    g.SetGroupEventNameType(1);
    EXPECT_EQ(g.GetGroupEventNameType(), 1u);
    EXPECT_EQ(g.GetDefaultEventNameAt(0), "B");
    g.SetDefaultEventAt(1, "C", 3);
    EXPECT_EQ(g.GetDefaultEventColorAt(1), 3u);
    g.DeleteDefaultEventAt(0);
    EXPECT_EQ(g.GetDefaultEventNameAt(0), "C");
    EXPECT_THROW(g.DeleteDefaultEventAt(4), CInvalidArgException);
    g.SetGroupEventNameType(0);
    EXPECT_EQ(g.GetNumDefaultEventNames(), 0);
}

TEST(StatusGroupTest, PropertyEditing) {
    AssertRecorder asserts;
    CStatusGroup g;
    EXPECT_EQ(g.AddProperty("Mean", "Moyenne"), 1);
    EXPECT_EQ(g.AddProperty("MEAN", "autre"), 0);
    EXPECT_EQ(g.AddProperty("", "x"), 0);
    EXPECT_TRUE(asserts.Saw("stsitm", 653));
    EXPECT_EQ(g.SetPropertyDescriptionAt("mean", "Moy."), 1);
    EXPECT_EQ(g.GetPropertyDescriptionAt(0), "Moy.");
    EXPECT_EQ(g.SetPropertyDescriptionAt("STD", "Ecart"), 1);
    EXPECT_EQ(g.GetNumProperties(), 2);

    EXPECT_EQ(g.AddGroupProperty("Seuil", nullptr, "1"), 0);
    EXPECT_TRUE(asserts.Saw("stsitm", 627));
    EXPECT_EQ(g.AddGroupProperty("Seuil", "Seuil d'amplitude", nullptr), 1);
    EXPECT_EQ(g.GetGroupPropertyValueAt("SEUIL"), "");
    EXPECT_EQ(g.AddGroupProperty("seuil", "x", "2"), 0);
    EXPECT_EQ(g.SetGroupPropertyAt("seuil", "80"), 1);
    EXPECT_EQ(g.GetGroupPropertyValueAt(0), "80");
    EXPECT_EQ(g.SetGroupPropertyAt("Absent", "1"), 0);
    EXPECT_TRUE(asserts.Saw("stsitm", 622));
    EXPECT_EQ(g.GetGroupPropertyValueAt("Absent"), "");

    // Item keys are removed only while their index is below the number of
    // group properties (one here): "Mean" goes, "STD" stays.
    EXPECT_EQ(g.DeleteProperty("STD"), 0);
    EXPECT_EQ(g.DeleteProperty("mean"), 1);
    EXPECT_EQ(g.GetPropertyKeyAt(0), "STD");
    EXPECT_EQ(g.DeleteGroupProperty("SEUIL"), 1);
    EXPECT_EQ(g.DeleteGroupProperty("SEUIL"), 0);
    EXPECT_EQ(g.GetGroupNumProperties(), 0);

    CStatusGroup copy;
    copy = g;
    EXPECT_TRUE(copy == g);
}

TEST(StatusGroupTest, Version3TakesTheChannelNameFromTheStoredMontage) {
    const Bytes montage = statustest::OldRecordingMontage();
    AssertRecorder asserts;
    for (int index : {1, 0, 5}) {
        Bytes v3;
        v3.u16(3).str("99E65CBA-9E82-417A-90A7-B398116464A2").str("Annotation").str("").u32(3).u32(0).u32(0);
        v3.append(montage).u16(static_cast<unsigned>(index));
        v3.u32(9).u32(0).str("");
        v3.append(StringArray({})).append(StringArray({}));
        v3.append(StringArray({})).append(StringArray({})).append(StringArray({}));
        auto g = LoadGroup(v3);
        EXPECT_EQ(g->GetGroupID(), "99E65CBA-9E82-417A-90A7-B398116464A2");
        EXPECT_EQ(g->GetGroupChannelType(), 0);
        EXPECT_EQ(g->GetGroupChannel(), index == 1 ? "C3" : index == 0 ? "Fp1-F3" : "");
    }
    EXPECT_TRUE(asserts.hits.empty());

    // Something that is not a montage is refused.
    Bytes wrong;
    wrong.u16(3).str("").str("").str("").u32(3).u32(0).u32(0).newClass("CStringArray").u16(0).u16(0);
    EXPECT_EQ(LoadCause(wrong), CArchiveException::badClass);
}
