#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "montage/MontageFixtures.h"
#include "montage/mtgs.h"
#include "support/TestSupport.h"

using montagetest::BuildReferential;
using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

namespace {

// Two recording montages over one physical montage, each with a reformatted
// montage.
std::unique_ptr<CPhysicalMontage> BuildTwoRecordings() {
    auto pm = std::make_unique<CPhysicalMontage>();
    CRecordingMontage* a = BuildReferential(*pm);
    CReformatedMontage* ra = a->CreateReformatedMontage();
    ra->SetMontageName("Bipolar");
    ra->AddGlobal("AVG", "(FP1+F3+C3+P3)/4");
    ra->AddChannel("Fp1-F3", "FP1-F3", 0x10);
    ra->AddChannel("C3-avg", "C3-AVG", 0x20);
    CRecordingMontage* b = pm->CreateRecordingMontage();
    b->SetMontageName("Bipolar rec");
    b->SetBaseFrequency(512);
    b->SetSamplesRecord(128);
    b->AddChannel("Fp1", "F3", 1, 1, 512, 0, 0, "");
    b->AddChannel("G1", "G2", 1, 1, 256, 0, 2, "hp");
    CReformatedMontage* rb = b->CreateReformatedMontage();
    rb->SetMontageName("Inverse");
    rb->AddChannel("-Fp1", "-FP1", 0);
    return pm;
}

std::unique_ptr<CPhysicalMontage> LoadPhysical(const std::vector<BYTE>& bytes) {
    std::unique_ptr<CPhysicalMontage> pm;
    LoadFromBytes(bytes, [&](CArchive& ar) {
        CPhysicalMontage* p = nullptr;
        ar >> p;
        pm.reset(p);
    });
    return pm;
}

}  // namespace

TEST(PhysicalMontageArchive, RoundTripWithSharedPhysicalMontage) {
    auto pm = BuildTwoRecordings();
    auto bytes = StoreToBytes([&](CArchive& ar) { ar << pm.get(); });
    auto back = LoadPhysical(bytes);
    ASSERT_TRUE(back);
    EXPECT_TRUE(*back == *pm);
    ASSERT_EQ(back->GetNumRecordingMontages(), 2);
    for (int i = 0; i < 2; ++i) {
        CRecordingMontage* rec = back->GetRecordingMontageAt(i);
        EXPECT_EQ(rec->GetPhysicalMontage(), back.get());
        for (unsigned r = 0; r < rec->GetNumReformatedMontages(); ++r)
            EXPECT_EQ(rec->GetReformatedMontageAt(r)->GetRecordingMontage(), rec);
    }
    EXPECT_EQ(back->GetRecordingMontageAt(1)->GetSamplesChannel(1), 64u);
    EXPECT_EQ(back->GetRecordingMontageAt(0)->GetReformatedMontageAt(0)->GetFrequency(1), 256u);
    ASSERT_NE(back->GetElecGroup("[G]"), nullptr);
    EXPECT_EQ(back->GetElecGroup("[G]")->GetElectrodeCount(), 6);
    // The loaded montages can still be edited against each other.
    EXPECT_FALSE(back->GetRecordingMontageAt(1)->SetMontageName("REF A1"));
    EXPECT_FALSE(back->DeleteElectrode(static_cast<unsigned>(back->GetElectrodeNumber("F3"))));

    // Written again, the loaded montage gives the same bytes.
    auto again = StoreToBytes([&](CArchive& ar) { ar << back.get(); });
    EXPECT_EQ(again, bytes);
}

TEST(PhysicalMontageArchive, StoredForm) {
    CPhysicalMontage pm("P", 2);
    pm.AddElectrode("Cz", CPolar3D(1.0, 0.0, 0.0));
    auto bytes = StoreToBytes([&](CArchive& ar) { pm.Serialize(ar); });
    Bytes expect;
    expect.u16(7).str("P").u16(1).u16(1).str("Cz").u16(2).u16(3).f64(1.0).f64(0.0).f64(0.0).u16(0).u16(0);
    EXPECT_EQ(bytes, expect.data);
}

TEST(PhysicalMontageArchive, NewerSchemaLoadsAsIncompatible) {
    CPhysicalMontage pm;
    montagetest::AddStd(pm, "Cz");
    LoadFromBytes(Bytes().u16(8).str("Future").data, [&](CArchive& ar) { pm.Serialize(ar); });
    EXPECT_STREQ(pm.GetMontageName(), "<Montage Incompatible>");
    EXPECT_EQ(pm.GetNumElectrodes(), 0u);
    EXPECT_EQ(pm.GetNumRecordingMontages(), 0);
}

namespace {
// An old physical montage: Fz off the midline and a 10-contact strip whose
// contacts were stored across the first two rows of the table.
Bytes OldPhysical(unsigned schema) {
    Bytes b;
    b.u16(schema).str("Old").u16(4);
    b.u16(4).str("fz").str("Fz").str("[S]").str("Fz");
    b.u16(2);
    b.u16(12).f64(1).f64(45).f64(10).f64(1).f64(45).f64(80).f64(-1).f64(0).f64(0).f64(1).f64(45).f64(70);
    b.u16(0);  // no recording montage
    if (schema > 4) {
        b.u16(1).newClass("CElecGroup").u16(1).str("[S]").f64(1.0).f64(2.0);
        b.i32(1).i32(8).i32(10).i32(1).u32(255).i32(1);
        b.u16(10);
        for (int k = 0; k < 10; ++k) {
            if (k == 0) b.newClass("CElectrode");
            else b.u16(0x8003);
            b.u16(1).str("S" + std::to_string(k + 1)).i32(k < 8 ? 1 : 2).i32(k < 8 ? k + 1 : k - 7);
        }
    }
    return b;
}
}  // namespace

TEST(PhysicalMontageArchive, OldSchemaRepairs) {
    CPhysicalMontage pm;
    LoadFromBytes(OldPhysical(6).data, [&](CArchive& ar) { pm.Serialize(ar); });
    EXPECT_EQ(pm.GetMapType(), 2u);
    EXPECT_EQ(pm.GetElectrodePosition(0).azimuth, 10.0);  // "fz" is not Fz
    EXPECT_EQ(pm.GetElectrodePosition(1).azimuth, 90.0);
    EXPECT_EQ(pm.GetElectrodePosition(3).azimuth, 70.0);  // only the first Fz is repaired
    const CElecGroup* s = pm.GetElecGroup("[S]");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->GetElectrodeCount(), 10);
    for (int k = 0; k < 10; ++k) {
        EXPECT_EQ(*s->GetElectrodeAt(k)->GetPosition(), CPoint(k + 1, 1)) << k;
        EXPECT_EQ(s->GetElectrodeAt(k)->GetName(), "S" + std::to_string(k + 1));
    }
    EXPECT_EQ(s->IsElectrodeIncluded(9, 0), 1);

    // Schema 7 tables are taken as stored.
    CPhysicalMontage current;
    LoadFromBytes(OldPhysical(7).data, [&](CArchive& ar) { current.Serialize(ar); });
    EXPECT_EQ(*current.GetElecGroup("[S]")->GetElectrodeAt(9)->GetPosition(), CPoint(2, 2));

    // Before schema 5 there were no groups.
    CPhysicalMontage older;
    LoadFromBytes(OldPhysical(4).data, [&](CArchive& ar) { older.Serialize(ar); });
    EXPECT_EQ(older.GetNumElectrodes(), 4u);
    EXPECT_EQ(older.GetNumElecGroups(), 0);
    EXPECT_TRUE(older.IsElecGroup(2u));
}

TEST(PhysicalMontageArchive, MismatchedArraysAreRefused) {
    auto load = [](const Bytes& b) {
        CPhysicalMontage pm;
        LoadFromBytes(b.data, [&](CArchive& ar) { pm.Serialize(ar); });
    };
    // Two names for a count of one.
    EXPECT_THROW(load(Bytes().u16(7).str("x").u16(1).u16(2).str("a").str("b").u16(0).u16(3).f64(1).f64(1).f64(1)),
                 CArchiveException);
    // Positions for two entries with one name.
    EXPECT_THROW(load(Bytes().u16(7).str("x").u16(1).u16(1).str("a").u16(0).u16(6).f64(1).f64(1).f64(1).f64(1).f64(1).f64(1)),
                 CArchiveException);
    // A recording montage list holding an electrode group.
    Bytes wrong;
    wrong.u16(7).str("x").u16(0).u16(0).u16(0).u16(0).u16(1);
    CElecGroup g;
    auto gb = StoreToBytes([&](CArchive& ar) { ar << &g; });
    wrong.data.insert(wrong.data.end(), gb.begin(), gb.end());
    EXPECT_THROW(load(wrong), CArchiveException);
    // A count far beyond the data.
    EXPECT_THROW(load(Bytes().u16(7).str("x").u16(1).u16(0xFFFF).u32(0x7FFFFFFF)), CArchiveException);
}

TEST(PhysicalMontageArchive, TruncatedAndCorruptedArchivesNeverCrash) {
    auto pm = BuildTwoRecordings();
    auto bytes = StoreToBytes([&](CArchive& ar) { ar << pm.get(); });
    for (size_t n = 0; n < bytes.size(); ++n) {
        std::vector<BYTE> prefix(bytes.begin(), bytes.begin() + static_cast<long>(n));
        EXPECT_THROW(LoadPhysical(prefix), CArchiveException) << n;
    }
    // Every byte set to 0xFF in turn: loads or refuses, never more.
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::vector<BYTE> bad = bytes;
        bad[i] = 0xFF;
        try {
            auto loaded = LoadPhysical(bad);
            if (loaded) (void)(*loaded == *pm);
        } catch (const CException&) {
        }
    }
}
