// Native recordings end to end: create, write, flush, reopen, read, the
// writer protocol's recovery, sharing, the static file operations and files
// built by hand from the stored layouts.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <memory>

#include "montage/mtgs.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "recording/calib.h"
#include "formats/native/STDSIGFI.h"
#include "records/SigCoDec.h"
#include "status/stsitm.h"
#include "support/SmallRecording.h"
#include "support/TestSupport.h"

using namespace testsupport;

namespace {
using FilePtr = CSigFilePtr;

std::vector<BYTE> ReadBytes(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::vector<BYTE>(std::istreambuf_iterator<char>(in), {});
}

void WriteBytes(const std::string& name, const std::vector<BYTE>& bytes) {
    std::ofstream(name, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

// Creates name with records 0..n-1 written, flushed and closed.
void MakeRecording(const std::string& name, long n, const std::vector<unsigned>& freqs = {256, 256, 128}) {
    auto d = DescribeRecording(freqs);
    long error = -2;
    FilePtr f(CreateRecording(name, d, &error));
    ASSERT_TRUE(f) << "error " << error;
    std::unique_ptr<CRawSigRec> rec(f->CreateCompatibleRawSigRec());
    for (long r = 0; r < n; ++r) {
        FillRecord(*rec, r);
        f->MoveTo(r);
        ASSERT_TRUE(f->Write(rec.get()));
    }
    ASSERT_TRUE(f->Flush());
}
}  // namespace

TEST(StdSigFileTest, WrittenRecordsReadBackAndLieBackToBackInTheDataFile) {
    TempDir dir;
    std::string name = dir / "night.SIG";
    MakeRecording(name, 100);
    EXPECT_EQ(GetSigFileFormat(name.c_str()), SIGFILE_FORMAT_NATIVE);
    EXPECT_FALSE(VhlCheckFileExist(dir / "night.ST$"));  // a closed writer leaves no working status

    long error = -2;
    FilePtr f(CSigFile::Open(name.c_str(), 1, &error));
    ASSERT_TRUE(f);
    EXPECT_EQ(error, 0);
    EXPECT_TRUE(f->IsReadOnly());
    EXPECT_EQ(f->GetNumRecords(), 100);
    EXPECT_EQ(f->GetNumChannels(), 3u);
    EXPECT_EQ(f->GetSamplesChannel(2), 32u);
    EXPECT_EQ(f->GetSigCoDec()->GetCompRecSize(), 8u + 2u * 160u);
    std::unique_ptr<CRawSigRec> rec(f->CreateCompatibleRawSigRec());
    for (long r = 0; r < 100; ++r) {
        f->MoveTo(r);
        ASSERT_TRUE(f->Read(rec.get()));
        ASSERT_TRUE(RecordMatches(*rec, r)) << r;
    }
    f->MoveTo(100);
    EXPECT_TRUE(f->IsEOF());
    EXPECT_FALSE(f->Read(rec.get()));

    // Record 5 in the data file: time, then channel 0, 1, 2 one after another.
    auto data = ReadBytes(name);
    ASSERT_EQ(data.size(), 100u * 328u);
    Bytes expected;
    FillRecord(*rec, 5);
    expected.f64(rec->GetTime().GetValue());
    for (unsigned c = 0; c < 3; ++c)
        for (unsigned s = 0; s < rec->GetNumSamples(c); ++s) expected.u16(static_cast<WORD>(SampleOf(5, c, s)));
    EXPECT_EQ(std::vector<BYTE>(data.begin() + 5 * 328, data.begin() + 6 * 328), expected.data);
}

TEST(StdSigFileTest, FormattedRecordsGoThroughTheCalibration) {
    TempDir dir;
    std::string name = dir / "fmt.SIG";
    auto d = DescribeRecording({256, 64});
    long error = 0;
    FilePtr f(CreateRecording(name, d, &error));
    ASSERT_TRUE(f);
    std::unique_ptr<CFmtSigRec> fmt(f->CreateCompatibleFmtSigRec());
    fmt->SetAll(12.3f);  // microvolts; 0.1 uV per step
    ASSERT_TRUE(f->Write(fmt.get()));
    f->MoveNext();
    fmt->SetAll(0.0001f);  // volts
    ASSERT_TRUE(f->WriteAsVolts(fmt.get()));
    // A record of another shape is refused rather than over-read.
    CFmtSigRec wrong(1, 3u);
    f->MoveNext();
    EXPECT_FALSE(f->Write(&wrong));
    EXPECT_EQ(f->GetNumRecords(), 2);

    std::unique_ptr<CRawSigRec> raw(f->CreateCompatibleRawSigRec());
    f->MoveFirst();
    ASSERT_TRUE(f->Read(raw.get()));
    EXPECT_EQ(raw->GetAt(0, 0), 123);  // (12.3 + 3276.8) uV at 0.1 uV per step from -32768
    EXPECT_EQ(raw->GetAt(1, 15), 123);
    CFmtSigRec back;  // any shape: the read gives it the file's
    ASSERT_TRUE(f->Read(&back));
    EXPECT_EQ(back.GetNumSamples(1), 16u);
    EXPECT_NEAR(back.GetAt(0, 0), 12.3f, 1e-4);
    f->MoveNext();
    ASSERT_TRUE(f->ReadAsVolts(&back));
    EXPECT_NEAR(back.GetAt(1, 0), 0.0001f, 1.5e-7);
}

TEST(StdSigFileTest, ASecondWriterGetsTheRecordingReadOnly) {
    TempDir dir;
    std::string name = dir / "shared.SIG";
    MakeRecording(name, 4);
    long error = -2;
    FilePtr writer(CSigFile::Open(name.c_str(), 0, &error));
    ASSERT_TRUE(writer);
    EXPECT_FALSE(writer->IsReadOnly());
    FilePtr second(CSigFile::Open(name.c_str(), 0, &error));
    ASSERT_TRUE(second);
    EXPECT_EQ(error, 0);
    EXPECT_TRUE(second->IsReadOnly());
    AssertRecorder asserts;
    std::unique_ptr<CRawSigRec> rec(second->CreateCompatibleRawSigRec());
    EXPECT_FALSE(second->Write(rec.get()));
    EXPECT_TRUE(asserts.Saw("IntSigFile", 241));
    // The static operations leave a recording alone while it is written.
    EXPECT_FALSE(CSigFile::Delete(name.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    EXPECT_FALSE(CSigFile::Rename(name.c_str(), (dir / "other.SIG").c_str()));
}

TEST(StdSigFileTest, AppendedRecordsAreSeenAfterFlushAndTheStatusIsReplacedWhole) {
    TempDir dir;
    std::string name = dir / "grow.SIG";
    MakeRecording(name, 10);
    long error = 0;
    FilePtr w(CSigFile::Open(name.c_str(), 0, &error));
    ASSERT_TRUE(w);
    EXPECT_TRUE(VhlCheckFileExist(dir / "grow.ST$"));
    std::unique_ptr<CRawSigRec> rec(w->CreateCompatibleRawSigRec());
    for (long r = 10; r < 50; ++r) {
        FillRecord(*rec, r);
        w->MoveTo(r);
        ASSERT_TRUE(w->Write(rec.get()));
    }
    // Before the flush a reader sees the old status.
    FilePtr before(CSigFile::Open(name.c_str(), 1, &error));
    EXPECT_EQ(before->GetNumRecords(), 10);
    ASSERT_TRUE(w->Flush());
    FilePtr after(CSigFile::Open(name.c_str(), 1, &error));
    ASSERT_EQ(after->GetNumRecords(), 50);
    after->MoveTo(49);
    ASSERT_TRUE(after->Read(rec.get()));
    EXPECT_TRUE(RecordMatches(*rec, 49));
    EXPECT_FALSE(VhlCheckFileExist(dir / "grow.$T$"));
}

TEST(StdSigFileTest, AnInterruptedWritersStatusIsRecoveredOnlyWhenComplete) {
    TempDir dir;
    std::string name = dir / "rec.SIG";
    MakeRecording(name, 10);
    std::vector<BYTE> status10 = ReadBytes(dir / "rec.STS");
    {
        long error = 0;
        FilePtr w(CSigFile::Open(name.c_str(), 0, &error));
        std::unique_ptr<CRawSigRec> rec(w->CreateCompatibleRawSigRec());
        for (long r = 10; r < 15; ++r) {
            FillRecord(*rec, r);
            w->MoveTo(r);
            w->Write(rec.get());
        }
    }
    std::vector<BYTE> status15 = ReadBytes(dir / "rec.STS");
    // A writer died after its working status was complete but before the
    // rename: readers read the working status (it names records the data
    // file holds) without restoring it; the next writer restores it.
    WriteBytes(dir / "rec.STS", status10);
    WriteBytes(dir / "rec.ST$", status15);
    long error = 0;
    {
        FilePtr reader(CSigFile::Open(name.c_str(), 1, &error));
        EXPECT_EQ(reader->GetNumRecords(), 15);
        EXPECT_TRUE(VhlCheckFileExist(dir / "rec.ST$"));
        EXPECT_EQ(ReadBytes(dir / "rec.STS"), status10);
    }
    {
        FilePtr w(CSigFile::Open(name.c_str(), 0, &error));
        ASSERT_TRUE(w);
        EXPECT_FALSE(w->IsReadOnly());
        EXPECT_EQ(w->GetNumRecords(), 15);
    }
    EXPECT_EQ(ReadBytes(dir / "rec.STS").size(), status15.size());
    EXPECT_FALSE(VhlCheckFileExist(dir / "rec.ST$"));

    // A writer died while writing its working status: it is discarded.
    WriteBytes(dir / "rec.ST$", std::vector<BYTE>(status15.begin(), status15.begin() + 40));
    FilePtr w(CSigFile::Open(name.c_str(), 0, &error));
    ASSERT_TRUE(w);
    EXPECT_EQ(w->GetNumRecords(), 15);
}

TEST(StdSigFileTest, DamagedOrMissingFilesGiveClearErrors) {
    TempDir dir;
    long error = 0;
    EXPECT_FALSE(CSigFile::Open((dir / "none.SIG").c_str(), 1, &error));
    EXPECT_EQ(error, ERROR_FILE_NOT_FOUND);

    std::string name = dir / "bad.SIG";
    MakeRecording(name, 3);
    auto sts = ReadBytes(dir / "bad.STS");
    for (size_t cut : {size_t{0}, size_t{1}, size_t{30}, sts.size() / 2, sts.size() - 1}) {
        WriteBytes(dir / "bad.STS", std::vector<BYTE>(sts.begin(), sts.begin() + static_cast<long>(cut)));
        EXPECT_FALSE(CSigFile::Open(name.c_str(), 1, &error)) << cut;
        EXPECT_EQ(error, ERROR_BAD_FORMAT) << cut;
    }
    // A newer status file version is refused; version 2 is still read.
    auto v3 = sts;
    v3[0] = 3;
    WriteBytes(dir / "bad.STS", v3);
    EXPECT_FALSE(CSigFile::Open(name.c_str(), 1, &error));
    auto v2 = sts;
    v2[0] = 2;
    WriteBytes(dir / "bad.STS", v2);
    FilePtr ok(CSigFile::Open(name.c_str(), 1, &error));
    EXPECT_TRUE(ok);

    // A data file shorter than the status says: the recording opens with
    // the records it holds, read-only even when asked for writing, and says
    // so; nothing past them reads.
    WriteBytes(dir / "bad.STS", sts);
    const long size = long(VhlGetFileSize(name)) / 3;  // the recording's 3 records
    ::truncate(name.c_str(), size * 2 + 10);
    FilePtr f(CSigFile::Open(name.c_str(), 0, &error));
    ASSERT_TRUE(f);
    EXPECT_EQ(f->GetNumRecords(), 2);
    EXPECT_TRUE(f->IsReadOnly());
    CStringArray notes;
    f->GetFormatNotes(&notes);
    ASSERT_EQ(notes.GetSize(), 1);
    EXPECT_NE(notes[0].find("3 enregistrements"), std::string::npos) << notes[0];
    std::unique_ptr<CRawSigRec> rec(f->CreateCompatibleRawSigRec());
    f->MoveTo(1);
    EXPECT_TRUE(f->Read(rec.get()));
    f->MoveTo(2);
    EXPECT_FALSE(f->Read(rec.get()));
    f->MoveTo(2);
    EXPECT_FALSE(f->Write(rec.get()));  // no record appended behind a short data file
}

TEST(StdSigFileTest, CreateRefusesBadArgumentsAndNames) {
    TempDir dir;
    auto d = DescribeRecording({256});
    long error = 0;
    EXPECT_FALSE(CSigFile::Create((dir / "x.SIG").c_str(), d.header.get(), d.patient.get(), d.montage.get(), nullptr,
                                  1, &error, 1));
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(CreateRecording(dir / "x.DAT", d, &error));
    EXPECT_EQ(error, ERROR_INVALID_NAME);
    CPhysicalMontage empty("none", 0);
    EXPECT_FALSE(CSigFile::Create((dir / "x.SIG").c_str(), d.header.get(), d.patient.get(), &empty,
                                  d.calibration.get(), 1, &error, 1));
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(VhlCheckFileExist(dir / "x.SIG"));
    // A recording kept in a folder of its own gets the folder made.
    FilePtr f(CreateRecording(dir / "N1/N1.SIG", d, &error));
    EXPECT_TRUE(f);
    EXPECT_TRUE(VhlCheckFileExist(dir / "N1/N1.STS"));
}

TEST(StdSigFileTest, CopyRenameDeleteAndQuickInfo) {
    TempDir dir;
    std::string a = dir / "a.SIG";
    MakeRecording(a, 8);
    std::ofstream(dir / "a.001") << "companion";
    CProgressInfo progress;
    ASSERT_TRUE(CSigFile::Copy(a.c_str(), (dir / "b.SIG").c_str(), &progress));
    EXPECT_EQ(progress.GetPos(), progress.GetRange());
    EXPECT_EQ(ReadBytes(dir / "b.SIG"), ReadBytes(a));
    EXPECT_TRUE(VhlCheckFileExist(dir / "b.001"));
    EXPECT_FALSE(VhlCheckFileExist(dir / "b.SI$"));

    EXPECT_FALSE(CSigFile::Rename((dir / "b.SIG").c_str(), a.c_str()));  // target exists
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
    ASSERT_TRUE(CSigFile::Rename((dir / "b.SIG").c_str(), (dir / "c.SIG").c_str()));
    EXPECT_FALSE(VhlCheckFileExist(dir / "b.STS"));
    EXPECT_TRUE(VhlCheckFileExist(dir / "c.001"));

    long error = -2;
    std::unique_ptr<CSigQuickInfo> info(CSigFile::GetFileQuickInfo((dir / "c.SIG").c_str(), &error));
    ASSERT_TRUE(info);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(info->m_strFirstName, "Hélène");
    EXPECT_EQ(info->m_strLastName, "Martin");
    EXPECT_EQ(info->m_creation, CSDateTime(2026, 1, 31, 22, 5, 0));
    EXPECT_EQ(info->m_nTotalSize, VhlGetFileSize(dir / "c.SIG") + VhlGetFileSize(dir / "c.STS"));

    ASSERT_TRUE(CSigFile::Delete((dir / "c.SIG").c_str()));
    EXPECT_FALSE(VhlCheckFileExist(dir / "c.SIG"));
    EXPECT_FALSE(VhlCheckFileExist(dir / "c.STS"));
    EXPECT_FALSE(VhlCheckFileExist(dir / "c.001"));
}

TEST(StdSigFileTest, VideoNeedsTheIndexAndAVideoFileInAFolderBasedRecording) {
    TempDir dir;
    std::string name = dir / "N2/N2.SIG";
    ::mkdir((dir / "N2").c_str(), 0777);
    MakeRecording(name, 1);
    ::mkdir((dir / "N2/DV").c_str(), 0777);
    std::ofstream(dir / "N2/DV/DV.MPX") << "idx";
    EXPECT_FALSE(CSigFile::HasDV(name.c_str()));
    std::ofstream(dir / "N2/DV/cam1.avi") << "12345";
    EXPECT_TRUE(CSigFile::HasDV(name.c_str()));
    EXPECT_EQ(CSigFile::GetDVSize(name.c_str()), 5u);
    EXPECT_EQ(CSigFile::GetDVIdxSize(name.c_str()), 3u);
    EXPECT_EQ(CSigFile::HasDV((dir / "other.SIG").c_str()), 0);
    EXPECT_TRUE(CStdSigFile::IsValidFormat("x.sig"));
    EXPECT_FALSE(CStdSigFile::IsValidFormat("x.STS"));
    EXPECT_FALSE(CStdSigFile::IsValidFormat("x.SIG.bak"));
}
