// The operations of CSigFile that read the status items: the 24-hour rule,
// the consistency check and the channel repair after a montage change.  A
// small signal file over an in-memory status file stands in for a format.
#include <gtest/gtest.h>

#include <memory>

#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "sigfile/SIGFILE.h"
#include "status/GroupDefaults.h"
#include "status/IntStsFile.h"
#include "status/StatusCheck.h"
#include "support/TestSupport.h"

namespace {

class StatusOnlyFile : public CSigFile {
public:
    CIntStsFile sts;
    long records = 10;
    double frequency = 256.0;

    int Close() override { return 1; }
    int Flush() override { return 1; }
    LONGLONG GetFileSize() const override { return 0; }
    const char* GetFileName() const override { return ""; }
    int IsReadOnly() const override { return 0; }
    void SetReadOnly() override {}
    void ClearReadOnly() override {}
    int IsChanged() const override { return sts.IsChanged(); }
    void SetChanged() override {}
    void ClearChanged() override {}
    int IsIOError() const override { return 0; }
    void SetIOError(long) override {}
    void ClearIOError() override {}
    long GetIOError() const override { return 0; }
    const CFileHeader* GetFileHeader() const override { return sts.GetFileHeader(); }
    const CPatientInfo* GetPatientInfo() const override { return sts.GetPatientInfo(); }
    const CPhysicalMontage* GetPhysicalMontage() const override { return sts.GetPhysicalMontage(); }
    const CCalibration* GetCalibration() const override { return sts.GetCalibration(); }
    const CSigCoDec* GetSigCoDec() const override { return sts.GetSigCoDec(); }
    void SetFileHeader(CFileHeader* h) override { sts.SetFileHeader(h); }
    void SetPatientInfo(CPatientInfo* p) override { sts.SetPatientInfo(p); }
    void SetPhysicalMontage(CPhysicalMontage* m) override { sts.SetPhysicalMontage(m); }
    void SetCalibration(CCalibration* c) override { sts.SetCalibration(c); }
    double GetTrueFrequency() const override { return frequency; }
    CRawSigRec* CreateCompatibleRawSigRec() const override { return nullptr; }
    CFmtSigRec* CreateCompatibleFmtSigRec() const override { return nullptr; }
    unsigned GetNumChannels() const override { return 0; }
    unsigned GetSamplesRecord() const override { return 64; }
    unsigned GetSamplesChannel(unsigned) const override { return 0; }
    long GetCurrentRecord() const override { return 0; }
    long GetNumRecords() const override { return records; }
    int IsBOF() const override { return 1; }
    int IsEOF() const override { return 1; }
    void MoveTo(long) override {}
    void MoveFirst() override {}
    void MoveLast() override {}
    void MoveNext() override {}
    void MovePrev() override {}
    int Read(CFmtSigRec*) override { return 0; }
    int Read(CRawSigRec*) override { return 0; }
    int Read(CByteArray*) override { return 0; }
    int Write(CFmtSigRec*) override { return 0; }
    int Write(CRawSigRec*) override { return 0; }
    int ReadAsVolts(CFmtSigRec*) override { return 0; }
    int WriteAsVolts(CFmtSigRec*) override { return 0; }
    unsigned GetNumStatusItems() const override { return sts.GetNumStatusItems(); }
    const CStatusItem* GetStatusItemAt(unsigned i) const override { return sts.GetStatusItemAt(i); }
    void AddStatusItem(CStatusItem* item) override { sts.AddStatusItem(item); }
    void UpdateStatusItemAt(unsigned i, const CStatusItem* item) override { sts.UpdateStatusItemAt(i, item); }
    void DeleteStatusItemAt(unsigned i) override { sts.DeleteStatusItemAt(i); }
    unsigned GetNumGroups() const override { return sts.GetNumGroups(); }
    const CStatusGroup* GetGroupAt(unsigned i) const override { return sts.GetGroupAt(i); }
    void AddGroup(CStatusGroup* group) override { sts.AddGroup(group); }
    void UpdateGroupAt(unsigned i, const CStatusGroup* group) override { sts.UpdateGroupAt(i, group); }
    void DeleteGroupAt(unsigned i) override { sts.DeleteGroupAt(i); }

    CStatusGroup* AddGroup(const char* id, unsigned type, unsigned extent, int channelType = -1,
                           const char* channel = "") {
        auto* g = new CStatusGroup(id, "", "", type, 0, extent, channelType, channel, 0, 0, 1, 0);
        sts.AddGroup(g);
        return g;
    }
    // An item of group g from sample b to e, its times at 256 Hz from the
    // creation time plus shift seconds.
    void AddItem(CStatusGroup* g, LONG b, LONG e, double shift = 0.0, const char* channel = "") {
        CSDateTime start = GetFileHeader()->GetCreationDateTime();
        sts.AddStatusItem(new CStatusItem(g, b, start + CSTimeSpan(b / 256.0 + shift), e,
                                          start + CSTimeSpan(e / 256.0 + shift), channel, "", "", 0, 1));
    }
};

std::unique_ptr<StatusOnlyFile> NewFile() {
    auto f = std::make_unique<StatusOnlyFile>();
    auto* header = new CFileHeader;
    header->SetCreationDateTime(CSDateTime(2026, 1, 31, 22, 5, 0));
    f->SetFileHeader(header);
    return f;
}

}  // namespace

TEST(SigFileStatusTest, DurationRuleAllowsExactlyOneDayAndOneSecondLess) {
    EXPECT_EQ(CSigFile::IsDurationWithin24hrs(nullptr), 1);
    auto f = NewFile();
    CStatusGroup* point = f->AddGroup(groupid::kBookmarks, 3, 0);
    CStatusGroup* stretch = f->AddGroup(groupid::kSampleSection, 1, 1);
    const CSDateTime start = f->GetFileHeader()->GetCreationDateTime();
    // Points do not count, however late.
    f->sts.AddStatusItem(new CStatusItem(point, 0, start, 0, start + CSTimeSpan(200000.0), "", "", "", 0, 1));
    EXPECT_EQ(CSigFile::IsDurationWithin24hrs(f.get()), 1);

    f->sts.AddStatusItem(new CStatusItem(stretch, 0, start, 1, start + CSTimeSpan(86400.0), "", "", "", 0, 1));
    EXPECT_EQ(CSigFile::IsDurationWithin24hrs(f.get()), 1);
    f->sts.AddStatusItem(new CStatusItem(stretch, 2, start, 3, start + CSTimeSpan(86400.999), "", "", "", 0, 1));
    EXPECT_EQ(CSigFile::IsDurationWithin24hrs(f.get()), 1);
    f->sts.AddStatusItem(new CStatusItem(stretch, 4, start, 5, start + CSTimeSpan(86401.0), "", "", "", 0, 1));
    EXPECT_EQ(CSigFile::IsDurationWithin24hrs(f.get()), 0);
}

TEST(SigFileStatusTest, ValidationReportsEachInconsistency) {
    auto f = NewFile();  // 10 records of 64 samples
    CStatusGroup* breaks = f->AddGroup(groupid::kDiscontinuity, 0, 0);
    CStatusGroup* sections = f->AddGroup(groupid::kSampleSection, 1, 1);
    CStatusGroup* notes = f->AddGroup(groupid::kOffRecordingNotes, 3, 0);
    f->AddItem(breaks, 64, 64);
    f->AddItem(sections, 0, 640);
    f->AddItem(notes, -5000, 900, 3.0);  // notes are not held to the recording
    CStringArray findings;
    EXPECT_EQ(ValidateStatusItems(f.get(), &findings), 1);
    EXPECT_EQ(findings.GetSize(), 0);

    f->AddItem(breaks, 100, 110);     // a discontinuity with a duration
    f->AddItem(sections, 200, 200);   // a section without one
    f->AddItem(sections, 300, 700);   // beyond the last sample
    f->AddItem(sections, 10, 20, 5.0);   // times shifted as a whole: not a finding
    f->AddItem(sections, 400, 460);
    CStatusItem lengthened(*f->GetStatusItemAt(f->GetNumStatusItems() - 1));
    lengthened.SetTimeRange(lengthened.GetBeginTime(), lengthened.GetBeginTime() + CSTimeSpan(3.0));
    f->UpdateStatusItemAt(f->GetNumStatusItems() - 1, &lengthened);
    EXPECT_EQ(ValidateStatusItems(f.get(), &findings), 0);
    EXPECT_EQ(findings.GetSize(), 4);

    testsupport::MessageRecorder boxes;
    EXPECT_EQ(ValidateStatusItems(f.get()), 0);
    ASSERT_EQ(boxes.texts.size(), 1u);
    EXPECT_NE(boxes.texts[0].find("hors de l'enregistrement"), std::string::npos);
    EXPECT_EQ(ValidateStatusItems(nullptr), 0);
}

TEST(SigFileStatusTest, ChannelsUnknownToTheNewMontageAreDropped) {
    auto f = NewFile();
    CStatusGroup* onChannel = f->AddGroup(groupid::kAnnotation, 3, 0, 0, "Fp1-F3");
    CStatusGroup* gone = f->AddGroup(groupid::kBookmarks, 3, 0, 0, "T9-T10");
    f->AddItem(onChannel, 0, 0, 0.0, "Fp1-F3");
    f->AddItem(onChannel, 0, 0, 0.0, "T9-T10");
    f->AddItem(gone, 0, 0, 0.0, "Fp1");

    auto* montage = new CPhysicalMontage("Mtg", 0);
    montage->AddElectrode("Fp1", CPolar3D());
    montage->AddElectrode("F3", CPolar3D());
    CRecordingMontage* rec = montage->CreateRecordingMontage();
    ASSERT_NE(rec, nullptr);
    rec->SetBaseFrequency(256);
    ASSERT_NE(rec->AddChannel("Fp1", "F3", 1, 1, 256, 0, 0, ""), 0);
    f->SetPhysicalMontage(montage);
    f->UpdateNewPhyMtgToStsGrpsItms(montage);

    EXPECT_EQ(onChannel->GetGroupChannel(), "Fp1-F3");
    EXPECT_EQ(onChannel->GetGroupChannelType(), 0);
    EXPECT_EQ(gone->GetGroupChannel(), "");
    EXPECT_EQ(gone->GetGroupChannelType(), -1);
    EXPECT_EQ(f->GetStatusItemAt(0)->GetChannel(), "Fp1-F3");
    EXPECT_EQ(f->GetStatusItemAt(1)->GetChannel(), "");
    EXPECT_EQ(f->GetStatusItemAt(2)->GetChannel(), "Fp1");  // an electrode
}
