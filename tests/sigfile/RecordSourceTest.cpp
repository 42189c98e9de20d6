// The record source: one rule beyond the ends, derived records the same
// whatever order they are read in, and a recording montage computing each
// channel from its own channel.
#include <gtest/gtest.h>

#include <memory>

#include "montage/mtgs.h"
#include "sigfile/RecordSource.h"
#include "support/SmallRecording.h"
#include "support/TestSupport.h"

using namespace testsupport;

namespace {

// Two channels that share electrode 1 (C3-A1, C3-A2) and a third, with
// different values in every record.
CSigFilePtr MakeSharedElectrodeRecording(const std::string& name, long records) {
    auto d = DescribeRecording({256});
    d.montage = std::make_unique<CPhysicalMontage>("phys", 0);
    for (const char* e : {"C3", "A1", "A2", "O1"}) d.montage->AddElectrode(e, CPolar3D());
    CRecordingMontage* rec = d.montage->CreateRecordingMontage();
    rec->SetBaseFrequency(256);
    rec->AddChannel("C3", "A1", 1, 1, 256, 0, 0, "");
    rec->AddChannel("C3", "A2", 1, 1, 256, 0, 0, "");
    rec->AddChannel("O1", "A1", 1, 1, 128, 0, 0, "");
    d.calibration = std::make_unique<CCalibration>(3, -32768, -0.0032768f, 32767, 0.0032767f, 256.0);
    for (unsigned c = 0; c < 3; ++c) d.calibration->SetCalibFromGain(c, 1.0f, 0.0f, 1);
    long error = 0;
    CSigFilePtr file(CreateRecording(name, d, &error));
    EXPECT_TRUE(file) << error;
    if (!file) return file;
    std::unique_ptr<CRawSigRec> raw(file->CreateCompatibleRawSigRec());
    for (long r = 0; r < records; ++r) {
        FillRecord(*raw, r);
        file->MoveTo(r);
        EXPECT_TRUE(file->Write(raw.get()));
    }
    EXPECT_TRUE(file->Flush());
    return file;
}

}  // namespace

TEST(RecordSource, RecordsBeyondTheEndsHoldTheEdgeSamples) {
    TempDir dir;
    CSigFilePtr file = MakeSharedElectrodeRecording(dir / "rec.SIG", 5);
    ASSERT_TRUE(file);
    CRecordSource source(*file);
    std::unique_ptr<CFmtSigRec> rec(source.CreateCompatibleFmtSigRec()), first(source.CreateCompatibleFmtSigRec()),
        last(source.CreateCompatibleFmtSigRec());
    ASSERT_TRUE(source.Read(0, *first));
    ASSERT_TRUE(source.Read(4, *last));
    ASSERT_TRUE(source.Read(-3, *rec));
    for (unsigned c = 0; c < 3; ++c)
        for (unsigned s = 0; s < rec->GetNumSamples(c); ++s) EXPECT_EQ(rec->GetAt(c, s), first->GetAt(c, 0));
    EXPECT_NEAR((rec->GetTime() - first->GetTime()).GetTotalSeconds(), -0.75, 1e-3);
    ASSERT_TRUE(source.Read(7, *rec));
    for (unsigned c = 0; c < 3; ++c)
        for (unsigned s = 0; s < rec->GetNumSamples(c); ++s)
            EXPECT_EQ(rec->GetAt(c, s), last->GetAt(c, last->GetNumSamples(c) - 1));
}

TEST(RecordSource, ARecordingMontageComputesEachChannelFromItsOwn) {
    TempDir dir;
    CSigFilePtr file = MakeSharedElectrodeRecording(dir / "rec.SIG", 4);
    ASSERT_TRUE(file);
    CRecordingMontage* rec = file->GetPhysicalMontage()->GetRecordingMontageAt(0);
    CDerivedSource derived(*file, rec);
    std::string error;
    ASSERT_TRUE(derived.Compile(&error)) << error;
    ASSERT_EQ(derived.GetNumChannels(), 3u);
    CRecordSource plain(*file);
    std::unique_ptr<CFmtSigRec> a(derived.CreateCompatibleFmtSigRec()), b(plain.CreateCompatibleFmtSigRec());
    for (long r = 0; r < 4; ++r) {
        ASSERT_TRUE(derived.Read(r, *a));
        ASSERT_TRUE(plain.Read(r, *b));
        for (unsigned c = 0; c < 3; ++c)
            for (unsigned s = 0; s < b->GetNumSamples(c); ++s) ASSERT_EQ(a->GetAt(c, s), b->GetAt(c, s)) << r << c << s;
    }
}

// A filter reaches records before the current one: read in order or by
// jumps, every derived record must be the same.
TEST(RecordSource, DerivedRecordsDoNotDependOnTheReadingOrder) {
    TempDir dir;
    CSigFilePtr file = MakeSharedElectrodeRecording(dir / "rec.SIG", 12);
    ASSERT_TRUE(file);
    CRecordingMontage* rec = file->GetPhysicalMontage()->GetRecordingMontageAt(0);
    CReformatedMontage ref(rec);
    ASSERT_TRUE(ref.AddChannel("smooth", "FIR(C3,3,31,1,35)", 0));
    CDerivedSource inOrder(*file, &ref), jumping(*file, &ref);
    std::string error;
    ASSERT_TRUE(inOrder.Compile(&error)) << error;
    ASSERT_TRUE(jumping.Compile(&error)) << error;
    std::vector<std::unique_ptr<CFmtSigRec>> expected;
    for (long r = 0; r < 12; ++r) {
        expected.emplace_back(inOrder.CreateCompatibleFmtSigRec());
        ASSERT_TRUE(inOrder.Read(r, *expected.back()));
    }
    std::unique_ptr<CFmtSigRec> got(jumping.CreateCompatibleFmtSigRec());
    for (long r : {7L, 3L, 4L, 11L, 0L, 1L, 2L, 9L}) {
        ASSERT_TRUE(jumping.Read(r, *got));
        for (unsigned s = 0; s < got->GetNumSamples(0); ++s)
            ASSERT_FLOAT_EQ(got->GetAt(0, s), expected[size_t(r)]->GetAt(0, s)) << r << " " << s;
    }
}
