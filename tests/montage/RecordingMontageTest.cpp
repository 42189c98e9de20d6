#include <gtest/gtest.h>

#include <string>

#include "montage/MontageFixtures.h"
#include "montage/mtgs.h"
#include "support/TestSupport.h"

using montagetest::AddStd;
using montagetest::BuildReferential;
using testsupport::AssertRecorder;
using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

TEST(RecordingMontage, Labels) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    pm.AddElectrode("Electrode1", CPolar3D());
    pm.AddElectrode("Electrode2", CPolar3D());
    ASSERT_TRUE(rec->AddChannel("Fp1", "F3", 1, 1, 256, 0, 0, ""));
    ASSERT_TRUE(rec->AddChannel("Electrode1", "Electrode2", 1, 1, 256, 0, 0, ""));
    ASSERT_TRUE(rec->AddChannel("C3", "", 1, 1, 256, 0, 0, ""));
    ASSERT_TRUE(rec->AddChannel("\xC3\xA9lectrode1", nullptr, 1, 1, 256, 0, 0, "") == FALSE);  // not an electrode
    EXPECT_EQ(rec->GetLabel(5), "Fp1-F3");
    EXPECT_EQ(rec->GetLabel(6), "Electrod-Electrod");
    EXPECT_EQ(rec->GetLabel(7), "C3");
    EXPECT_EQ(rec->GetFormula(7), "C3");
    EXPECT_TRUE(rec->IsLabelUsed("Fp1-A1"));
    EXPECT_FALSE(rec->IsLabelUsed("FP1-A1"));
    // Labels are cut by characters, not bytes.
    pm.AddElectrode("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", CPolar3D());
    ASSERT_TRUE(rec->AddChannel("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", "A1", 1,
                                1, 256, 0, 0, ""));
    EXPECT_EQ(rec->GetLabel(8), "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9-A1");
}

TEST(RecordingMontage, FrequencyRules) {
    CPhysicalMontage pm;
    AddStd(pm, "Cz");
    AddStd(pm, "A1");
    CRecordingMontage* rec = pm.CreateRecordingMontage();
    EXPECT_EQ(rec->GetSamplesRecord(), 64u);
    EXPECT_EQ(rec->GetBaseFrequency(), 0u);
    EXPECT_FALSE(rec->AddChannel("Cz", "A1", 1, 1, 256, 0, 0, ""));  // above a base frequency of 0
    ASSERT_TRUE(rec->SetBaseFrequency(256));
    EXPECT_TRUE(rec->AddChannel("Cz", "A1", 1, 1, 256, 0, 0, ""));
    EXPECT_TRUE(rec->AddChannel("Cz", "", 1, 1, 128, 0, 0, ""));
    EXPECT_TRUE(rec->AddChannel("A1", "", 1, 1, 4, 0, 0, ""));
    EXPECT_FALSE(rec->AddChannel("A1", "Cz", 1, 1, 3, 0, 0, ""));    // not a divisor
    EXPECT_FALSE(rec->AddChannel("A1", "Cz", 1, 1, 2, 0, 0, ""));    // 128 samples exceed 64
    EXPECT_FALSE(rec->AddChannel("A1", "Cz", 1, 1, 0, 0, 0, ""));
    EXPECT_FALSE(rec->AddChannel("A1", "Cz", 1, 1, 512, 0, 0, ""));
    EXPECT_EQ(rec->GetSamplesChannel(0), 64u);
    EXPECT_EQ(rec->GetSamplesChannel(1), 32u);
    EXPECT_EQ(rec->GetSamplesChannel(2), 1u);

    EXPECT_FALSE(rec->SetBaseFrequency(128));   // below a channel's frequency
    EXPECT_FALSE(rec->SetBaseFrequency(384));   // 384 / 128 is whole but 384 / 256 is not
    EXPECT_FALSE(rec->SetBaseFrequency(512));   // 512 / 4 = 128 samples exceed 64
    EXPECT_EQ(rec->GetBaseFrequency(), 256u);
    EXPECT_FALSE(rec->SetSamplesRecord(32));    // 256 / 4 = 64 samples
    EXPECT_TRUE(rec->SetSamplesRecord(128));
    EXPECT_TRUE(rec->SetBaseFrequency(512));
    EXPECT_EQ(rec->GetSamplesChannel(2), 1u);
    EXPECT_FALSE(rec->SetFrequency(2, 5));
    EXPECT_TRUE(rec->SetFrequency(2, 8));
    EXPECT_EQ(rec->GetSamplesChannel(2), 2u);
}

TEST(RecordingMontage, InsertionRefusals) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CRecordingMontage orphan;
    orphan.SetBaseFrequency(256);
    EXPECT_FALSE(orphan.AddChannel("Fp1", "A1", 1, 1, 256, 0, 0, ""));  // no physical montage
    EXPECT_FALSE(orphan.SetMontageName("x"));

    EXPECT_FALSE(rec->AddChannel("Fp1", "a1", 1, 1, 256, 0, 0, ""));   // same pair, other case
    EXPECT_FALSE(rec->AddChannel("Oz", "A1", 1, 1, 256, 0, 0, ""));    // not in the montage
    EXPECT_FALSE(rec->AddChannel("Fp1", "Oz", 1, 1, 256, 0, 0, ""));
    EXPECT_FALSE(rec->AddChannel("[G]", "A1", 1, 1, 256, 0, 0, ""));   // a group is not an electrode
    EXPECT_FALSE(rec->AddChannel(nullptr, "A1", 1, 1, 256, 0, 0, ""));
    EXPECT_TRUE(rec->AddChannel("g6", "A1", 1, 1, 256, 0, 0, ""));     // a contact of the grid
    EXPECT_TRUE(rec->InsertChannel(0, "A1", "Fp1", 1, 1, 256, 7, 0, ""));
    EXPECT_EQ(rec->GetLabel(0), "A1-Fp1");
    EXPECT_EQ(rec->GetColor(0), 7u);
    EXPECT_EQ(rec->GetSpikeOptions(0), 0u);

    AssertRecorder asserts;
    EXPECT_FALSE(rec->InsertChannel(50, "Hip", "", 1, 1, 256, 0, 0, ""));  // beyond the end
    EXPECT_EQ(asserts.hits.size(), 1u);
}

TEST(RecordingMontage, AtMost128Channels) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = pm.CreateRecordingMontage();
    rec->SetBaseFrequency(256);
    for (int i = 0; i < 129; ++i) pm.AddElectrode(("E" + std::to_string(i)).c_str(), CPolar3D());
    for (int i = 0; i < 128; ++i)
        ASSERT_TRUE(rec->AddChannel(("E" + std::to_string(i)).c_str(), "", 1, 1, 256, 0, 0, "")) << i;
    EXPECT_FALSE(rec->AddChannel("E128", "", 1, 1, 256, 0, 0, ""));
    EXPECT_FALSE(rec->InsertChannel(0, "E128", "", 1, 1, 256, 0, 0, ""));
    EXPECT_EQ(rec->GetNumChannels(), 128u);
}

TEST(RecordingMontage, NamesAndLabelsAcrossSiblings) {
    CPhysicalMontage pm;
    CRecordingMontage* a = BuildReferential(pm);
    CRecordingMontage* b = pm.CreateRecordingMontage();
    b->SetBaseFrequency(256);
    ASSERT_TRUE(b->AddChannel("Fp1", "F3", 1, 1, 256, 0, 0, ""));
    EXPECT_FALSE(b->SetMontageName("REF A1"));
    EXPECT_TRUE(b->SetMontageName("Bip"));
    EXPECT_TRUE(b->IsRecChLabelFoundElseInRecMtg("fp1-a1"));
    EXPECT_FALSE(b->IsRecChLabelFoundElseInRecMtg("Fp1-F3"));
    EXPECT_TRUE(a->IsRecChLabelFoundElseInRecMtg("FP1-F3"));
    EXPECT_TRUE(a->HasDepthChannel());   // the Ecg sensor has no head position
    EXPECT_FALSE(a->IsDepthChannel(0));
    EXPECT_TRUE(a->IsDepthChannel(4));
    EXPECT_TRUE(a->CheckUsageElectrode("a1"));
    EXPECT_FALSE(a->CheckUsageElectrode("Hip"));
    EXPECT_EQ(a->FindInputChannel("c3"), 2);
    EXPECT_EQ(a->FindInputChannel("A1"), -1);
}

TEST(RecordingMontage, DeleteAndInUseByTrialCompilation) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ASSERT_TRUE(ref->AddGlobal("AVG", "(FP1+F3)/2"));
    ASSERT_TRUE(ref->AddChannel("C3-P3", "C3-P3", 0));
    EXPECT_TRUE(rec->CheckChannelInUse(0));   // through the global
    EXPECT_TRUE(rec->CheckChannelInUse(2));   // through a channel
    EXPECT_FALSE(rec->CheckChannelInUse(4));
    EXPECT_FALSE(rec->DeleteChannel(0));
    EXPECT_FALSE(rec->DeleteChannel(3));
    EXPECT_EQ(rec->GetNumChannels(), 5u);
    EXPECT_TRUE(rec->DeleteChannel(4));
    EXPECT_EQ(rec->GetNumChannels(), 4u);
    // With the channel gone, the derived channels still read the right inputs.
    EXPECT_TRUE(ref->CompilesWith());

    int montages = 0, channels = 0;
    EXPECT_EQ(rec->CarryDeleteRecordingChannel(2, &montages, &channels), 1);
    EXPECT_EQ(montages, 1);
    EXPECT_EQ(ref->GetNumChannels(), 0u);
    EXPECT_EQ(ref->GetNumGlobals(), 1u);
    EXPECT_EQ(rec->GetNumChannels(), 3u);
    EXPECT_EQ(rec->GetLabel(2), "P3-A1");
}

TEST(RecordingMontage, ReplaceChannelFollowsOrRefuses) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    AddStd(pm, "O1");
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ASSERT_TRUE(ref->AddChannel("Fp1-F3", "FP1-F3", 0));
    ASSERT_TRUE(ref->AddChannel("ECG", "ECG", 0));
    EXPECT_EQ(ref->GetFrequency(1), 128u);
    EXPECT_EQ(ref->GetUnit(1), 2u);

    // A new first electrode is followed by the formulas and labels.
    ASSERT_TRUE(rec->ReplaceChannel(0, "O1", "A1", 1, 1, 256, 5, 0, "x"));
    EXPECT_EQ(rec->GetLabel(0), "O1-A1");
    EXPECT_EQ(ref->GetFormula(0), "O1-F3");
    EXPECT_EQ(ref->GetLabel(0), "O1-F3");
    EXPECT_STREQ(rec->GetPreprocessing(0), "x");

    // A unit the derived channel cannot mix is refused, everything unchanged.
    EXPECT_FALSE(rec->ReplaceChannel(0, "Fp1", "A1", 1, 2, 256, 5, 0, ""));
    EXPECT_STREQ(rec->GetElectrodeName1(0), "O1");
    EXPECT_EQ(ref->GetFormula(0), "O1-F3");
    EXPECT_TRUE(rec->CheckChannelPropertyInConflict(1, 1, 2, 256));
    EXPECT_FALSE(rec->CheckChannelPropertyInConflict(4, 8, 3, 128));
    EXPECT_FALSE(rec->SetUnit(1, 2));
    EXPECT_FALSE(rec->SetFrequency(1, 128));  // a reference of another frequency
    EXPECT_TRUE(rec->SetUnit(4, 3));
    EXPECT_EQ(ref->GetUnit(1), 3u);           // derived channels follow
    EXPECT_TRUE(rec->SetFrequency(4, 64));
    EXPECT_EQ(ref->GetFrequency(1), 64u);
    EXPECT_EQ(ref->GetSamplesChannel(1), 16u);

    // Frequency and duplicate rules also hold on replacement.
    EXPECT_FALSE(rec->ReplaceChannel(1, "C3", "A1", 1, 1, 256, 0, 0, ""));
    EXPECT_FALSE(rec->ReplaceChannel(1, "F3", "A1", 1, 1, 3, 0, 0, ""));
    EXPECT_TRUE(rec->ReplaceChannel(1, "f3", "A1", 1, 1, 256, 0, 0, ""));  // itself, in another case
}

TEST(RecordingMontage, SwapChannels) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ASSERT_TRUE(ref->AddChannel("F", "FP1-F3", 0));
    ASSERT_TRUE(rec->SwapChannel(0, 4));
    EXPECT_EQ(rec->GetLabel(0), "Ecg-A1");
    EXPECT_EQ(rec->GetLabel(4), "Fp1-A1");
    EXPECT_EQ(rec->GetFrequency(0), 128u);
    EXPECT_EQ(rec->GetUnderSamplingMethod(0), 1u);
    EXPECT_TRUE(ref->CompilesWith());
    // Two channels answering to Fp1: the first is the one formulas read.
    ASSERT_TRUE(rec->AddChannel("Fp1", "", 1, 2, 256, 0, 0, ""));
    EXPECT_FALSE(rec->SwapChannel(4, 5));
    EXPECT_EQ(rec->GetLabel(4), "Fp1-A1");
}

TEST(RecordingMontageArchive, StoredFormIncludingTheLogicalPart) {
    CPhysicalMontage pm;
    for (const char* n : {"Fp1", "Ecg", "A1"}) AddStd(pm, n);
    CRecordingMontage rec(&pm);
    rec.SetMontageName("R");
    rec.SetBaseFrequency(256);
    ASSERT_TRUE(rec.AddChannel("Fp1", "A1", 1, 1, 256, 0xFF, 0, ""));
    ASSERT_TRUE(rec.AddChannel("Ecg", "A1", 8, 2, 128, 0xFF00, 1, "notch"));
    rec.SetSpikeOptions(0, 3);
    rec.SetSeizureOptions(1, 5);
    rec.SetPhysicalMontage(nullptr);
    auto bytes = StoreToBytes([&](CArchive& ar) { rec.Serialize(ar); });
    Bytes logical;
    logical.u16(7).str("R").u16(2);
    logical.u16(2).u16(256).u16(128);      // frequencies
    logical.u16(2).u16(1).u16(8);          // types
    logical.u16(2).u16(1).u16(2);          // units
    logical.u16(2).u16(3).u16(0);          // spike options
    logical.u16(2).u16(0).u16(5);          // seizure options
    logical.u16(2).u32(0xFF).u32(0xFF00);  // colours
    Bytes expect = logical;
    expect.u16(0);                                     // no physical montage
    expect.u16(64).u16(256);
    expect.u16(2).str("Fp1").str("Ecg");
    expect.u16(2).str("A1").str("A1");
    expect.u16(2).u16(0).u16(1);
    expect.u16(2).str("").str("notch");
    expect.u16(0);                                     // no reformatted montage
    EXPECT_EQ(bytes, expect.data);

    CRecordingMontage back;
    LoadFromBytes(bytes, [&](CArchive& ar) { back.Serialize(ar); });
    EXPECT_TRUE(back == rec);
    EXPECT_EQ(back.GetSeizureOptions(1), 5u);

    // The logical part alone, from a newer schema: only the name is set.
    CRecordingMontage future;
    LoadFromBytes(Bytes().u16(8).data, [&](CArchive& ar) { future.Serialize(ar); });
    EXPECT_STREQ(future.GetMontageName(), "<Montage Incompatible>");
    EXPECT_EQ(future.GetNumChannels(), 0u);
}

TEST(RecordingMontageArchive, PerChannelArraysMustMatchTheCount) {
    auto load = [](const Bytes& b) {
        CRecordingMontage rec;
        LoadFromBytes(b.data, [&](CArchive& ar) { rec.Serialize(ar); });
    };
    auto logical = [](unsigned count, unsigned colours) {
        Bytes b;
        b.u16(7).str("R").u16(count);
        for (int a = 0; a < 5; ++a) {
            b.u16(count);
            for (unsigned i = 0; i < count; ++i) b.u16(1);
        }
        b.u16(colours);
        for (unsigned i = 0; i < colours; ++i) b.u32(0);
        return b;
    };
    EXPECT_THROW(load(logical(2, 1)), CArchiveException);
    EXPECT_THROW(load(logical(200, 200)), CArchiveException);  // more than 128 channels
    Bytes shortNames = logical(2, 2);
    shortNames.u16(0).u16(64).u16(256).u16(1).str("Fp1");
    EXPECT_THROW(load(shortNames), CArchiveException);
    Bytes longNames = logical(1, 1);
    longNames.u16(0).u16(64).u16(256).u16(1).str("Fp1").u16(1).str("").u16(2).u16(0).u16(0);
    EXPECT_THROW(load(longNames), CArchiveException);
    // A word array whose count the data cannot hold.
    EXPECT_THROW(load(Bytes().u16(7).str("R").u16(1).u16(0xFFFF).u32(100000)), CArchiveException);
}
