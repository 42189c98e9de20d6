#include <gtest/gtest.h>

#include <string>

#include "montage/MontageFixtures.h"
#include "montage/mtgs.h"
#include "support/TestSupport.h"

using montagetest::BuildReferential;
using testsupport::AssertRecorder;
using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

namespace {
std::string Labels(const CLogicalMontage& m) {
    std::string s;
    for (unsigned i = 0; i < m.GetNumChannels(); ++i) s += (i ? "," : "") + m.GetLabel(i);
    return s;
}
}  // namespace

TEST(ReformatedMontage, ChannelsAreCheckedByCompiling) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    EXPECT_EQ(ref->GetRecordingMontage(), rec);
    EXPECT_TRUE(ref->AddChannel("Fp1-F3", "FP1-F3", 0xAA));
    EXPECT_TRUE(ref->AddChannel("Ecg x2", "2*ecg", 0xBB));
    EXPECT_FALSE(ref->AddChannel("bad", "FP1-ECG", 0));   // units differ
    EXPECT_FALSE(ref->AddChannel("bad", "FP1-O1", 0));    // no such channel
    EXPECT_FALSE(ref->AddChannel("bad", "", 0));
    EXPECT_EQ(ref->GetNumChannels(), 2u);
    EXPECT_EQ(ref->GetFrequency(0), 256u);
    EXPECT_EQ(ref->GetType(0), 1u);
    EXPECT_EQ(ref->GetUnit(0), 1u);
    EXPECT_EQ(ref->GetFrequency(1), 128u);
    EXPECT_EQ(ref->GetType(1), 8u);
    EXPECT_EQ(ref->GetUnit(1), 2u);
    EXPECT_EQ(ref->GetColor(1), 0xBBu);
    EXPECT_EQ(ref->GetSamplesChannel(1), 32u);
    EXPECT_EQ(ref->GetSpikeOptions(0), 0u);

    ref->SetSpikeOptions(0, 9);
    EXPECT_TRUE(ref->ReplaceChannel(0, "C3-P3", "C3-P3", 0xCC));
    EXPECT_EQ(ref->GetLabel(0), "C3-P3");
    EXPECT_EQ(ref->GetSpikeOptions(0), 9u);
    EXPECT_FALSE(ref->ReplaceChannel(0, "x", "C3-", 0));
    EXPECT_EQ(ref->GetFormula(0), "C3-P3");
    EXPECT_TRUE(ref->InsertChannel(0, "One", "1", 0));  // a constant needs no input
    EXPECT_EQ(ref->GetFrequency(0), 0u);
    EXPECT_EQ(Labels(*ref), "One,C3-P3,Ecg x2");
    EXPECT_TRUE(ref->DeleteChannel(0));
    EXPECT_EQ(Labels(*ref), "C3-P3,Ecg x2");

    AssertRecorder asserts;
    EXPECT_FALSE(ref->DeleteChannel(5));
    EXPECT_FALSE(ref->InsertChannel(5, "x", "FP1", 0));
    EXPECT_EQ(asserts.hits.size(), 2u);
}

TEST(ReformatedMontage, AtMost128Channels) {
    CPhysicalMontage pm;
    CReformatedMontage* ref = BuildReferential(pm)->CreateReformatedMontage();
    for (int i = 0; i < 128; ++i) ASSERT_TRUE(ref->AddChannel(std::to_string(i).c_str(), "FP1", 0));
    EXPECT_FALSE(ref->AddChannel("129", "FP1", 0));
    EXPECT_FALSE(ref->InsertChannel(0, "129", "FP1", 0));
    EXPECT_EQ(ref->GetNumChannels(), 128u);
}

TEST(ReformatedMontage, Globals) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    EXPECT_TRUE(ref->AddGlobal("AVG", "(FP1+F3+C3+P3)/4"));
    EXPECT_FALSE(ref->AddGlobal("avg", "FP1"));        // name taken
    EXPECT_FALSE(ref->AddGlobal("1X", "FP1"));         // not a valid name
    EXPECT_FALSE(ref->AddGlobal("M2", "AVG*2"));       // a macro cannot use a macro
    EXPECT_FALSE(ref->AddGlobal("M3", "FP1+ECG"));
    EXPECT_TRUE(ref->InsertGlobal(0, "HALF", "FP1/2"));
    EXPECT_STREQ(ref->GetGlobalName(1u), "AVG");
    EXPECT_STREQ(ref->GetGlobalFormula("avg"), "(FP1+F3+C3+P3)/4");
    EXPECT_EQ(ref->GetGlobalFormula("none"), nullptr);
    ASSERT_TRUE(ref->AddChannel("Fp1-avg", "FP1-AVG", 0));
    ASSERT_TRUE(ref->AddChannel("C3-avg", "C3 - avg", 0));

    EXPECT_FALSE(ref->DeleteGlobal(1));                 // in use
    EXPECT_TRUE(ref->DeleteGlobal(0));
    EXPECT_EQ(ref->GetNumGlobals(), 1u);

    // Renaming follows into the channels; a formula that breaks them is refused.
    EXPECT_TRUE(ref->ReplaceGlobal(0, "MEAN", "(FP1+F3)/2"));
    EXPECT_EQ(ref->GetFormula(0), "FP1-MEAN");
    EXPECT_EQ(ref->GetFormula(1), "C3 - MEAN");
    EXPECT_FALSE(ref->ReplaceGlobal(0, "MEAN", "ECG"));
    EXPECT_FALSE(ref->ReplaceGlobal(0, "X", "FP1-"));
    EXPECT_STREQ(ref->GetGlobalName(0u), "MEAN");
    EXPECT_STREQ(ref->GetGlobalFormula(0u), "(FP1+F3)/2");
    EXPECT_TRUE(ref->AddGlobal("OTHER", "P3"));
    EXPECT_FALSE(ref->ReplaceGlobal(1, "mean", "P3"));  // another global's name

    // A global named like an input never reached the channels: no rewrite.
    EXPECT_EQ(ref->CarryChangeGlobal("FP1", "ZZ"), 0);

    int channels = 0;
    EXPECT_EQ(ref->CarryDeleteGlobal("MEAN", &channels), 2);
    EXPECT_EQ(channels, 2);
    EXPECT_EQ(ref->GetNumChannels(), 0u);
    EXPECT_TRUE(ref->DeleteGlobal(0));

    CLogicalMontage& asBase = *rec;
    AssertRecorder asserts;
    EXPECT_EQ(asBase.GetNumGlobals(), 0u);
    EXPECT_EQ(asBase.GetGlobalName(0), nullptr);
    EXPECT_EQ(asserts.hits.size(), 1u);
}

TEST(ReformatedMontage, MoveAndSwap) {
    CPhysicalMontage pm;
    CReformatedMontage* ref = BuildReferential(pm)->CreateReformatedMontage();
    ref->AddChannel("A", "FP1", 1);
    ref->AddChannel("B", "F3", 2);
    ref->AddChannel("C", "ECG", 3);
    CWordArray order;
    for (WORD w : {2, 0, 1}) order.Add(w);
    ASSERT_TRUE(ref->MoveChannel(&order));
    EXPECT_EQ(Labels(*ref), "C,A,B");
    EXPECT_EQ(ref->GetFormula(0), "ECG");
    EXPECT_EQ(ref->GetColor(0), 3u);
    EXPECT_EQ(ref->GetFrequency(0), 128u);
    ASSERT_TRUE(ref->SwapChannel(0, 2));
    EXPECT_EQ(Labels(*ref), "B,A,C");
    EXPECT_EQ(ref->GetUnit(2), 2u);

    CWordArray repeated;
    for (WORD w : {0, 0, 1}) repeated.Add(w);
    EXPECT_FALSE(ref->MoveChannel(&repeated));
    AssertRecorder asserts;
    CWordArray shortOrder;
    shortOrder.Add(0);
    EXPECT_FALSE(ref->MoveChannel(&shortOrder));
    EXPECT_FALSE(ref->MoveChannel(nullptr));
    EXPECT_EQ(asserts.hits.size(), 2u);
    EXPECT_EQ(Labels(*ref), "B,A,C");
}

TEST(ReformatedMontage, NamesAndLabelsAcrossSiblings) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* a = rec->CreateReformatedMontage();
    CReformatedMontage* b = rec->CreateReformatedMontage();
    EXPECT_TRUE(a->SetMontageName("Bipolar"));
    EXPECT_FALSE(b->SetMontageName("BIPOLAR"));
    EXPECT_TRUE(a->SetMontageName("bipolar"));  // its own name in another case
    a->AddChannel("Fp1-F3", "FP1-F3", 0);
    EXPECT_TRUE(b->IsRefChLabelFoundElseInRecMtg("FP1-f3"));
    EXPECT_FALSE(a->IsRefChLabelFoundElseInRecMtg("FP1-f3"));
    EXPECT_EQ(rec->GetReformatedMontage("BIPOLAR"), a);
    EXPECT_TRUE(rec->DeleteReformatedMontage(a));
    EXPECT_EQ(rec->GetNumReformatedMontages(), 1u);
    CReformatedMontage stray;
    EXPECT_FALSE(rec->DeleteReformatedMontage(&stray));
}

TEST(ReformatedMontage, ImportsKeepWhatCompiles) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ref->SetMontageName("Mixed");
    ref->AddGlobal("AVG", "(FP1+F3)/2");
    ref->AddGlobal("CE", "C3");
    ref->AddChannel("a", "FP1-AVG", 0);
    ref->AddChannel("b", "CE-P3", 0);
    ref->AddChannel("e", "ECG", 0);

    // Another physical montage without Fp1 and Ecg.
    CPhysicalMontage other;
    for (const char* n : {"F3", "C3", "P3", "A1"}) montagetest::AddStd(other, n);
    CRecordingMontage* imported = other.ImportRecordingMontage(rec, "Imported", 99);
    ASSERT_NE(imported, nullptr);
    EXPECT_EQ(imported->GetPhysicalMontage(), &other);
    EXPECT_EQ(Labels(*imported), "F3-A1,C3-A1,P3-A1");
    ASSERT_EQ(imported->GetNumReformatedMontages(), 1u);
    CReformatedMontage* copy = imported->GetReformatedMontageAt(0);
    EXPECT_STREQ(copy->GetMontageName(), "Mixed");
    EXPECT_EQ(copy->GetNumGlobals(), 1u);
    EXPECT_EQ(Labels(*copy), "b");
    EXPECT_EQ(other.ImportRecordingMontage(rec, "imported", 0), nullptr);  // name taken
    CPhysicalMontage empty;
    EXPECT_EQ(empty.ImportRecordingMontage(rec, "x", 0), nullptr);        // nothing fits

    EXPECT_EQ(rec->ImportReformatedMontage(ref), nullptr);                 // name taken
    CReformatedMontage* twin = rec->ImportReformatedMontage(ref, "Twin");
    ASSERT_NE(twin, nullptr);
    EXPECT_EQ(Labels(*twin), "a,b,e");
}

TEST(ReformatedMontageArchive, StoredForm) {
    CReformatedMontage ref;
    ref.SetMontageName("V");
    ASSERT_TRUE(ref.AddChannel("one", "1", 0x12));
    ASSERT_TRUE(ref.AddGlobal("K", "2"));
    auto bytes = StoreToBytes([&](CArchive& ar) { ref.Serialize(ar); });
    Bytes expect;
    expect.u16(7).str("V").u16(1);
    // A formula that reads no channel has frequency 0 and a type and unit
    // that the compiler leaves unknown (65535).
    expect.u16(1).u16(0).u16(1).u16(0xFFFF).u16(1).u16(0xFFFF).u16(1).u16(0).u16(1).u16(0).u16(1).u32(0x12);
    expect.u16(0);  // no recording montage
    expect.u16(1).str("one").u16(1).str("1").u16(1).str("K").u16(1).str("2");
    EXPECT_EQ(bytes, expect.data);
    CReformatedMontage back;
    LoadFromBytes(bytes, [&](CArchive& ar) { back.Serialize(ar); });
    EXPECT_TRUE(back == ref);
}

namespace {
Bytes RefBytes(const std::vector<std::string>& labels, const std::vector<std::string>& formulas) {
    const unsigned n = static_cast<unsigned>(labels.size());
    Bytes b;
    b.u16(7).str("M").u16(n);
    for (int a = 0; a < 5; ++a) {
        b.u16(n);
        for (unsigned i = 0; i < n; ++i) b.u16(0);
    }
    b.u16(n);
    for (unsigned i = 0; i < n; ++i) b.u32(0);
    b.u16(0);
    b.u16(n);
    for (const auto& l : labels) b.str(l);
    b.u16(static_cast<unsigned>(formulas.size()));
    for (const auto& f : formulas) b.str(f);
    b.u16(0).u16(0);
    return b;
}
}  // namespace

TEST(ReformatedMontageArchive, LabelRepairsOnLoad) {
    CReformatedMontage ref;
    LoadFromBytes(RefBytes({"", "", "", "SEP2"}, {"1", "1", "1", "1"}).data,
                  [&](CArchive& ar) { ref.Serialize(ar); });
    EXPECT_EQ(Labels(ref), "SEP1,SEP3,SEP4,SEP2");

    CReformatedMontage spaces;
    LoadFromBytes(RefBytes({"(FP1 - F3) + (C3-P3)", "FP1 - F3 + C3 - 1", "(FP1 - F3) + (C3-P3)"},
                           {"(FP1 - F3) + (C3-P3)", "FP1 - F3 + C3 - 1", "(FP1 - F3)+(C3-P3)"})
                      .data,
                  [&](CArchive& ar) { spaces.Serialize(ar); });
    EXPECT_EQ(spaces.GetLabel(0), "(FP1-F3)+(C3-P3)");
    EXPECT_EQ(spaces.GetLabel(1), "FP1 - F3 + C3 - 1");   // 17 characters keep their spaces
    EXPECT_EQ(spaces.GetLabel(2), "(FP1 - F3) + (C3-P3)");  // not its own formula
}

TEST(ReformatedMontageArchive, MismatchedArraysAreRefused) {
    CReformatedMontage ref;
    auto load = [&](const Bytes& b) { LoadFromBytes(b.data, [&](CArchive& ar) { ref.Serialize(ar); }); };
    EXPECT_THROW(load(RefBytes({"a", "b"}, {"1"})), CArchiveException);
    EXPECT_EQ(ref.GetNumChannels(), 0u);
    Bytes globals = RefBytes({"a"}, {"1"});
    globals.data.resize(globals.data.size() - 4);
    globals.u16(1).str("G").u16(0);  // a name without its formula
    EXPECT_THROW(load(globals), CArchiveException);
    EXPECT_EQ(ref.GetNumGlobals(), 0u);
}

TEST(SigViewMontages, CrosswalkFollowsEdits) {
    CPhysicalMontage pm;
    CRecordingMontage* base = BuildReferential(pm);
    auto* view = new CSigViewRecMtg(&pm);
    *view = *base;
    ASSERT_TRUE(pm.AddRecordingMontage(view));
    EXPECT_TRUE(view->SetMontageName("View"));
    CReformatedMontage* created = view->CreateReformatedMontage();
    ASSERT_TRUE(created->IsKindOf(RUNTIME_CLASS(CSigViewRefMtg)));
    auto* ref = static_cast<CSigViewRefMtg*>(created);
    for (const char* f : {"FP1", "F3", "C3", "P3"}) ASSERT_TRUE(ref->AddChannel(f, f, 0));
    ref->ResetChanCrsWlk();
    EXPECT_EQ(ref->GetChanCrsWlkNewToOrg(2), 2);

    CWordArray order;
    for (WORD w : {3, 2, 1, 0}) order.Add(w);
    ASSERT_TRUE(ref->MoveChannel(&order));     // P3 C3 F3 FP1
    ASSERT_TRUE(ref->DeleteChannel(1));        // P3 F3 FP1
    ASSERT_TRUE(ref->InsertChannel(0, "ECG", "ECG", 0));  // ECG P3 F3 FP1
    ASSERT_TRUE(ref->SwapChannel(2, 3));       // ECG P3 FP1 F3
    ASSERT_TRUE(ref->ReplaceChannel(1, "P3x", "P3*2", 0));
    EXPECT_EQ(Labels(*ref), "ECG,P3x,FP1,F3");
    EXPECT_EQ(ref->GetChanCrsWlkNewToOrg(0), 0xFFFF);
    EXPECT_EQ(ref->GetChanCrsWlkNewToOrg(1), 3);
    EXPECT_EQ(ref->GetChanCrsWlkNewToOrg(2), 0);
    EXPECT_EQ(ref->GetChanCrsWlkNewToOrg(3), 1);
    EXPECT_EQ(ref->GetChanCrsWlkOrgToNew(1), 3);
    EXPECT_EQ(ref->GetChanCrsWlkOrgToNew(2), 0xFFFF);  // deleted
    {
        AssertRecorder asserts;
        EXPECT_EQ(ref->GetChanCrsWlkNewToOrg(4), 0xFFFF);
        EXPECT_EQ(asserts.hits.size(), 1u);
    }
    ref->ResetChanCrsWlk();
    EXPECT_EQ(ref->GetChanCrsWlkOrgToNew(3), 3);

    // A copy keeps the viewer's classes.
    CPhysicalMontage copy(pm);
    CRecordingMontage* viewCopy = copy.GetRecordingMontage("View");
    ASSERT_NE(viewCopy, nullptr);
    EXPECT_TRUE(viewCopy->IsKindOf(RUNTIME_CLASS(CSigViewRecMtg)));
    EXPECT_TRUE(viewCopy->GetReformatedMontageAt(0)->IsKindOf(RUNTIME_CLASS(CSigViewRefMtg)));

    // Archived and read back: the crosswalk restarts as the identity.
    auto bytes = StoreToBytes([&](CArchive& ar) { ar << &pm; });
    LoadFromBytes(bytes, [&](CArchive& ar) {
        CPhysicalMontage* back = nullptr;
        ar >> back;
        std::unique_ptr<CPhysicalMontage> owner(back);
        auto* loaded = static_cast<CSigViewRefMtg*>(back->GetRecordingMontage("View")->GetReformatedMontageAt(0));
        EXPECT_EQ(loaded->GetChanCrsWlkNewToOrg(0), 0);
        EXPECT_EQ(loaded->GetChanCrsWlkNewToOrg(3), 3);
        EXPECT_TRUE(*back == pm);
    });

    ref->Empty();
    EXPECT_EQ(ref->GetNumChannels(), 0u);
    EXPECT_EQ(ref->GetChanCrsWlkOrgToNew(0), 0xFFFF);
}
