#include <gtest/gtest.h>

#include <string>

#include "montage/MontageFixtures.h"
#include "montage/mtgs.h"
#include "sigfile/FormatDriver.h"
#include "support/TestSupport.h"

using montagetest::AddStd;
using montagetest::BuildReferential;
using montagetest::NewGrid;
using testsupport::AssertRecorder;
using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

TEST(StdElectrodes, TableOrderCodesAndPositions) {
    using PM = CPhysicalMontage;
    EXPECT_EQ(PM::GetNumStdElectrode(), 158u);
    const std::pair<unsigned, const char*> rows[] = {{0, "Loc"},  {3, "Sp2"},   {4, "Nz"},    {34, "FT10"},
                                                     {35, "A1"},  {47, "A2"},   {78, "Iz"},   {79, "REF"},
                                                     {85, "P8"},  {86, "Chin"}, {98, "Eref26"}, {111, "Kinn"},
                                                     {131, "Mic"}, {146, "DC1"}, {157, "DC12"}};
    for (const auto& [i, name] : rows) EXPECT_STREQ(PM::GetStdElecName(i), name) << i;
    EXPECT_EQ(PM::GetStdElecName(158), nullptr);

    struct Codes {
        const char* name;
        unsigned type, unit;
    };
    for (const Codes& c : {Codes{"Loc", 7, 1}, {"T2", 1, 1}, {"EMG3b", 3, 1}, {"Euni3", 23, 1}, {"Abd", 24, 1},
                           {"AP2", 18, 5}, {"Ecg", 8, 2}, {"Ps", 17, 2}, {"PHOT", 17, 16}, {"Ebip2", 29, 1},
                           {"Temp", 21, 10}, {"OXY", 5, 4}, {"PRate", 25, 12}, {"POS", 22, 2}, {"Light", 27, 15},
                           {"MARK", 28, 16}, {"PLTH", 32, 16}, {"Cb2", 9, 1}, {"DC7", 9, 2}, {"nope", 1, 1}}) {
        EXPECT_EQ(PM::GetStdElecTypeCode(c.name), c.type) << c.name;
        EXPECT_EQ(PM::GetStdElecUnitCode(c.name), c.unit) << c.name;
    }
    EXPECT_EQ(PM::GetStdElecTypeCode(0u), 7u);
    EXPECT_EQ(PM::GetStdElecTypeCode(500u), 1u);
    EXPECT_EQ(PM::GetStdElecUnitCode(500u), 1u);
    EXPECT_STREQ(PM::GetStdElecType("ecg"), "ECG");
    EXPECT_STREQ(PM::GetStdElecUnit("Ecg"), "mV");
    EXPECT_STREQ(PM::GetStdElecUnit("Fp1"), "\xC2\xB5V");
    EXPECT_STREQ(PM::GetStdElecType(0u), "EOG");
    EXPECT_STREQ(VhlGetTraceTypeName(5), "SpO2");
    EXPECT_STREQ(VhlGetUnitName(4), "%");
    EXPECT_STREQ(VhlGetTraceTypeName(999), "");

    EXPECT_EQ(PM::GetStdElecPosition("fz"), CPolar3D(1.0, 45, 90));
    EXPECT_EQ(PM::GetStdElecPosition("A1"), CPolar3D(-1.0, 120, 180));
    EXPECT_EQ(PM::GetStdElecPosition("A2"), CPolar3D(-1.0, 120, 0));
    EXPECT_EQ(PM::GetStdElecPosition("Sp1"), CPolar3D(-1.0, 0, 0));
    EXPECT_EQ(PM::GetStdElecPosition("T8"), CPolar3D(1.0, 90, 0));
    EXPECT_EQ(PM::GetStdElecPosition("unknown"), CPolar3D(-1.0, 0, 0));
    EXPECT_EQ(PM::GetStdElecPosition(4u), CPolar3D(1.0, 112.5, 90));
    EXPECT_TRUE(PM::IsStdElec("cz"));
    EXPECT_FALSE(PM::IsStdElec("Cx"));

    int onMap = 0;
    for (unsigned i = 0; i < PM::GetNumStdElectrode(); ++i) onMap += PM::IsOnMap(PM::GetStdElecName(i));
    EXPECT_EQ(onMap, 41);  // every map name but Pg1 and Pg2 is a standard electrode
    EXPECT_TRUE(PM::IsOnMap("pg2"));
    EXPECT_FALSE(PM::IsOnMap("AF3"));
}

TEST(PhysicalMontage, ElectrodeInsertionRules) {
    CPhysicalMontage pm("m", 3);
    EXPECT_EQ(pm.GetMapType(), 3u);
    EXPECT_TRUE(pm.AddElectrode("Fp1", CPolar3D(1, 90, 108)));
    EXPECT_FALSE(pm.AddElectrode("FP1", CPolar3D()));   // same name in another case
    EXPECT_FALSE(pm.AddElectrode("", CPolar3D()));
    EXPECT_FALSE(pm.AddElectrode(nullptr, CPolar3D()));
    EXPECT_FALSE(pm.AddElectrode("[X]", CPolar3D()));   // groups come as objects
    EXPECT_TRUE(pm.AddElectrode(NewGrid("[G]", 3, 4)));
    EXPECT_FALSE(pm.AddElectrode("g12", CPolar3D()));   // the grid could produce it
    EXPECT_TRUE(pm.AddElectrode("G13", CPolar3D()));
    EXPECT_TRUE(pm.InsertElectrode(0u, "Cz", CPolar3D(1, 0, 0)));
    EXPECT_STREQ(pm.GetElectrodeName(0), "Cz");
    EXPECT_EQ(pm.GetElectrodePosition(1), CPolar3D(1, 90, 108));
    EXPECT_EQ(pm.GetNumElectrodes(), 4u);
    EXPECT_EQ(pm.GetElectrodeNumber("G13"), 3);
    EXPECT_EQ(pm.GetElectrodeNumber("g13"), -1);

    // Group refusals: a name in use, a plain entry it could produce, a
    // contact another group could produce.  A refused group stays the caller's.
    CElecGroup* clash = NewGrid("[G]", 1, 1);
    EXPECT_FALSE(pm.AddElectrode(clash));
    delete clash;
    CElecGroup* producesCz = NewGrid("[C]", 8, 8);  // C... never Cz, but Fp1 is safe too
    EXPECT_TRUE(pm.AddElectrode(producesCz));
    CElecGroup* producesG13 = NewGrid("[G1]", 1, 3);  // G13 is a plain entry
    EXPECT_FALSE(pm.AddElectrode(producesG13));
    delete producesG13;
    CElecGroup* overlap = NewGrid("[G1]", 1, 2);      // G11, G12 come from [G] (12 contacts)
    EXPECT_FALSE(pm.AddElectrode(overlap));
    delete overlap;
    EXPECT_TRUE(pm.IsElecGroup(2u));
    EXPECT_FALSE(pm.IsElecGroup(0u));
    EXPECT_TRUE(pm.IsElecOfGroup("g6"));
    EXPECT_TRUE(pm.IsElectrodeOfMontage("C64"));
    EXPECT_FALSE(pm.IsElectrodeOfMontage("C65"));
    EXPECT_EQ(pm.GetElecGroup("[g]")->GetElectrodeCount(), 12);

    AssertRecorder asserts;
    EXPECT_FALSE(pm.InsertElectrode(99u, "X", CPolar3D()));
    ASSERT_FALSE(asserts.hits.empty());
    EXPECT_EQ(asserts.hits[0].first, "mtgs");
    EXPECT_THROW(pm.GetElectrodeName(99), CInvalidArgException);
}

TEST(PhysicalMontage, DepthAndPositions) {
    CPhysicalMontage pm;
    AddStd(pm, "Ecg");  // a sensor without a head position
    AddStd(pm, "Cz");
    pm.AddElectrode("Hip", CPolar3D(0.5, 60, 200));
    EXPECT_TRUE(pm.IsDepthElectrode(0));
    EXPECT_FALSE(pm.IsDepthElectrode(1));
    EXPECT_TRUE(pm.IsDepthElectrode(2));
    pm.SetElectrodePosition(1, CPolar3D(0.9, 1, 2));
    EXPECT_TRUE(pm.IsDepthElectrode(1));
}

TEST(PhysicalMontage, DeletionIsRefusedWhileUsed) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    const unsigned a1 = static_cast<unsigned>(pm.GetElectrodeNumber("A1"));
    EXPECT_FALSE(pm.DeleteElectrode(a1));  // every channel's reference
    const unsigned fp1 = static_cast<unsigned>(pm.GetElectrodeNumber("Fp1"));
    EXPECT_FALSE(pm.DeleteElectrode(fp1));
    EXPECT_TRUE(pm.CheckElectrode("Fp1"));
    EXPECT_FALSE(pm.CheckElectrode("fp1"));  // case-sensitive

    const unsigned g = static_cast<unsigned>(pm.GetElectrodeNumber("[G]"));
    ASSERT_TRUE(rec->AddChannel("G1", "A1", 1, 1, 256, 0, 0, ""));
    EXPECT_FALSE(pm.DeleteElectrode(g));
    ASSERT_TRUE(rec->DeleteChannel(5));
    ASSERT_TRUE(rec->AddChannel("Fp1", "G2", 1, 1, 256, 0, 0, ""));
    EXPECT_TRUE(pm.DeleteElectrode(g));  // contacts used only as reference do not hold a group
    EXPECT_EQ(pm.GetElecGroup("[G]"), nullptr);
    EXPECT_EQ(pm.GetNumElecGroups(), 0);

    const unsigned hip = static_cast<unsigned>(pm.GetElectrodeNumber("Hip"));
    EXPECT_TRUE(pm.DeleteElectrode(hip));
    EXPECT_EQ(pm.GetElectrodeNumber("Hip"), -1);
    const unsigned n = pm.GetNumElectrodes();
    EXPECT_TRUE(pm.DeleteElectrodeConfirmed(fp1));
    EXPECT_EQ(pm.GetNumElectrodes(), n - 1);
    EXPECT_STREQ(pm.GetElectrodeName(fp1), "F3");
    EXPECT_EQ(pm.GetElectrodePosition(fp1), CPhysicalMontage::GetStdElecPosition("F3"));
}

TEST(PhysicalMontage, RecordingMontageList) {
    CPhysicalMontage pm;
    EXPECT_FALSE(PhysicalMontageHasRecordingMontage(nullptr));
    EXPECT_FALSE(PhysicalMontageHasRecordingMontage(&pm));
    CRecordingMontage* a = BuildReferential(pm);
    EXPECT_TRUE(PhysicalMontageHasRecordingMontage(&pm));
    auto* b = new CRecordingMontage;
    EXPECT_TRUE(pm.InsertRecordingMontageAt(0, b));
    EXPECT_EQ(b->GetPhysicalMontage(), &pm);
    EXPECT_FALSE(pm.AddRecordingMontage(b));  // already there
    EXPECT_TRUE(b->SetMontageName("Bipolar"));
    EXPECT_FALSE(b->SetMontageName("ref a1"));
    EXPECT_EQ(pm.GetRecordingMontage("Ref A1"), a);
    EXPECT_EQ(pm.GetRecordingMontage("ref a1"), nullptr);
    CRecordingMontage stray;
    EXPECT_FALSE(pm.DeleteRecordingMontage(&stray));
    EXPECT_TRUE(pm.DeleteRecordingMontage("Bipolar"));
    EXPECT_EQ(pm.GetNumRecordingMontages(), 1);
    EXPECT_TRUE(pm.DeleteRecordingMontage(0));
    EXPECT_EQ(pm.GetNumRecordingMontages(), 0);
}

TEST(PhysicalMontage, CopyIsDeepAndRepointed) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ref->SetMontageName("Bip");
    ASSERT_TRUE(ref->AddChannel("Fp1-F3", "FP1-F3", 0));
    CPhysicalMontage copy(pm);
    EXPECT_TRUE(copy == pm);
    ASSERT_EQ(copy.GetNumRecordingMontages(), 1);
    CRecordingMontage* crec = copy.GetRecordingMontageAt(0);
    EXPECT_NE(crec, rec);
    EXPECT_EQ(crec->GetPhysicalMontage(), &copy);
    EXPECT_EQ(crec->GetReformatedMontageAt(0)->GetRecordingMontage(), crec);
    EXPECT_NE(copy.GetElecGroupAt(0), pm.GetElecGroupAt(0));
    copy.SetElectrodePosition(0, CPolar3D(1, 2, 3));
    EXPECT_TRUE(copy != pm);
    CPhysicalMontage assigned;
    assigned = pm;
    EXPECT_TRUE(assigned == pm);
    ref->ReplaceChannel(0, "x", "FP1-C3", 0);
    EXPECT_FALSE(assigned == pm);
}

TEST(PhysicalMontage, RenamedElectrodeIsFollowedEverywhere) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ASSERT_TRUE(ref->AddGlobal("AVG", "(FP1+F3+C3+P3)/4"));
    ASSERT_TRUE(ref->AddChannel("Fp1-F3", "FP1-F3", 0));
    ASSERT_TRUE(ref->AddChannel("fp1-avg", "fp1-AVG", 0));
    ASSERT_TRUE(ref->AddChannel("C3", "C3", 0));

    const unsigned fp1 = static_cast<unsigned>(pm.GetElectrodeNumber("Fp1"));
    EXPECT_FALSE(pm.SetElectrodeName(fp1, "f3"));   // taken
    EXPECT_FALSE(pm.SetElectrodeName(fp1, "G4"));   // the grid's
    EXPECT_FALSE(pm.SetElectrodeName(fp1, ""));
    EXPECT_FALSE(pm.SetElectrodeName(static_cast<unsigned>(pm.GetElectrodeNumber("[G]")), "X"));
    EXPECT_TRUE(pm.SetElectrodeName(fp1, "Fp1x"));
    EXPECT_STREQ(rec->GetElectrodeName1(0), "Fp1x");
    EXPECT_EQ(rec->GetLabel(0), "Fp1x-A1");
    EXPECT_STREQ(ref->GetGlobalFormula(0u), "(Fp1x+F3+C3+P3)/4");
    EXPECT_EQ(ref->GetFormula(0), "Fp1x-F3");
    EXPECT_EQ(ref->GetLabel(0), "Fp1x-F3");
    EXPECT_EQ(ref->GetFormula(1), "Fp1x-AVG");
    EXPECT_EQ(ref->GetFormula(2), "C3");
    EXPECT_TRUE(ref->CompilesWith());

    // The reference follows too, in every channel.
    int montages = 0, channels = 0;
    EXPECT_EQ(pm.CarryChangeElectrode("A1", "A2", &montages, &channels), 5);
    EXPECT_EQ(montages, 1);
    EXPECT_EQ(channels, 5);
    EXPECT_STREQ(rec->GetElectrodeName2(4), "A2");
}

TEST(PhysicalMontage, CarryDeleteElectrodeRemovesDependants) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ASSERT_TRUE(ref->AddGlobal("AVG", "(FP1+F3)/2"));
    ASSERT_TRUE(ref->AddGlobal("MID", "(C3+P3)/2"));
    ASSERT_TRUE(ref->AddChannel("a", "FP1-AVG", 0));
    ASSERT_TRUE(ref->AddChannel("b", "C3-MID", 0));
    ASSERT_TRUE(ref->AddChannel("c", "F3", 0));
    int montages = 0, channels = 0;
    EXPECT_EQ(pm.CarryDeleteElectrode("fp1", &montages, &channels), 1);
    EXPECT_EQ(montages, 1);
    EXPECT_EQ(channels, 1);
    EXPECT_EQ(rec->GetNumChannels(), 4u);
    ASSERT_EQ(ref->GetNumGlobals(), 1u);
    EXPECT_STREQ(ref->GetGlobalName(0u), "MID");
    ASSERT_EQ(ref->GetNumChannels(), 2u);
    EXPECT_EQ(ref->GetLabel(0), "b");
    EXPECT_TRUE(pm.DeleteElectrode(static_cast<unsigned>(pm.GetElectrodeNumber("Fp1"))));
}

TEST(PhysicalMontage, ReplaceGroupFollowsContactsByPosition) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ASSERT_TRUE(rec->AddChannel("G1", "A1", 1, 1, 256, 0, 0, ""));
    ASSERT_TRUE(rec->AddChannel("G2", "A1", 1, 1, 256, 0, 0, ""));
    ASSERT_TRUE(ref->AddChannel("G1-G2", "G1-G2", 0));
    const unsigned entry = static_cast<unsigned>(pm.GetElectrodeNumber("[G]"));

    // Numbered from the other corner, the contacts trade names: G1 <-> G2.
    int t[18][8] = {};
    for (auto& row : t)
        for (int& v : row) v = 1;
    auto* mirrored = new CElecGroup("[G]", 0, 3, 2, &t, 2.0, 1.0, 255, 1, 2);
    ASSERT_TRUE(pm.ReplaceElecGroupAt(entry, mirrored));
    EXPECT_EQ(pm.GetElecGroup("[G]"), mirrored);
    EXPECT_STREQ(rec->GetElectrodeName1(5), "G2");
    EXPECT_STREQ(rec->GetElectrodeName1(6), "G1");
    EXPECT_EQ(ref->GetFormula(0), "G2-G1");

    // Renamed group: contacts follow under the new base name.
    auto* renamed = new CElecGroup("[H]", 0, 3, 2, &t, 2.0, 1.0, 255, 1, 2);
    ASSERT_TRUE(pm.ReplaceElecGroupAt(entry, renamed));
    EXPECT_STREQ(pm.GetElectrodeName(entry), "[H]");
    EXPECT_STREQ(rec->GetElectrodeName1(5), "H2");
    EXPECT_EQ(ref->GetFormula(0), "H2-H1");

    // A group that loses a used contact is refused and stays the caller's.
    int one[18][8] = {};
    one[2][1] = 1;
    auto* small = new CElecGroup("[H]", 0, 3, 2, &one, 2.0, 1.0, 255, 1, 1);
    EXPECT_FALSE(pm.ReplaceElecGroupAt(entry, small));
    delete small;
    CElecGroup* k = NewGrid("[K]", 1, 1);
    EXPECT_FALSE(pm.ReplaceElecGroupAt(0u, k));  // entry 0 is not a group
    delete k;
}
