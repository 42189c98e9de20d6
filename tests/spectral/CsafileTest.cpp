// Spectral file pairs: header and data bytes, montage reduction,
// discontinuities, annotations, sharing, damaged files, pair operations.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "montage/mtgs.h"
#include "platform/File.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "spectral/Csafile.h"
#include "spectral/Specrec.h"
#include "support/TestSupport.h"

using testsupport::Bytes;

namespace {

// A head with two recording montages; "Rec" has a reformatted montage "Bip".
struct Head {
    CPhysicalMontage pm{"Head", 0};
    CRecordingMontage* other = nullptr;
    CRecordingMontage* rec = nullptr;
    CReformatedMontage* bip = nullptr;

    explicit Head(bool withOthers = true) {
        for (const char* e : {"Fp1", "F3", "C3", "A1"}) pm.AddElectrode(e, CPhysicalMontage::GetStdElecPosition(e));
        if (withOthers) {
            other = pm.CreateRecordingMontage();
            other->SetMontageName("Other");
            other->SetBaseFrequency(128);
            other->AddChannel("F3", "A1", 1, 1, 128, 0, 0, "");
        }
        rec = pm.CreateRecordingMontage();
        rec->SetMontageName("Rec");
        rec->SetSamplesRecord(256);
        rec->SetBaseFrequency(256);
        const bool all = withOthers;
        rec->AddChannel("Fp1", "A1", 1, 1, 256, RGB(255, 0, 0), 0, "");
        if (all) rec->AddChannel("F3", "A1", 1, 1, 128, RGB(0, 255, 0), 0, "");
        rec->AddChannel("C3", "A1", 1, 1, 256, RGB(0, 0, 255), 0, "");
        if (withOthers) {
            bip = rec->CreateReformatedMontage();
            bip->SetMontageName("Bip");
            bip->AddChannel("Fp1-C3", "Fp1-C3", 0);
            bip->AddChannel("Half F3", "F3/2", 0);
        }
    }
};

Bytes PatientBytes(const std::string& lastName) {
    Bytes b;
    b.u16(3).str("").str("").str(lastName).str("").f64(0).u16(0);
    for (int i = 0; i < 15; ++i) b.str("");
    return b;
}

std::vector<BYTE> ReadAll(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::vector<BYTE>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& name, const std::vector<BYTE>& bytes) {
    std::ofstream out(name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

const CSDateTime kStart(2026, 2, 1, 23, 0, 0);

// FFT epoch 2 s (0.5 Hz), mean removal, Hanning, 50 % overlap, analysis
// epochs of 10 s every 4 s, channels 0 and 2 of montage "Rec".
CCsaFile* CreateSample(const std::string& name, Head& head, long* error = nullptr) {
    CPatientInfo patient;
    patient.SetLastName("Dupont");
    const WORD selected[2] = {2, 0};
    return CCsaFile::Create(name.c_str(), "night.SIG", "ID-42", &patient, 2.0f, 1, 2, 50, 10.0f, 4.0f, head.rec, 2,
                            selected, error);
}

// A record whose values say where they are.
void Fill(CSpecRec& rec, double seconds, float tag) {
    rec.SetTime(kStart + CSTimeSpan(seconds));
    for (unsigned c = 0; c < rec.GetNumChannels(); ++c)
        for (unsigned f = 0; f < rec.GetNumFreq(c); ++f) rec.SetAt(c, f, tag + c * 1000.0f + f * 0.25f);
}

Bytes HeaderBytes(const std::vector<BYTE>& montage, const Bytes& tail) {
    Bytes b;
    b.u16(1).str("night.SIG").str("ID-42").append(PatientBytes("Dupont"));
    b.f32(2.0f).u16(1).u16(2).u16(50).f32(10.0f).f32(4.0f);
    b.data.insert(b.data.end(), montage.begin(), montage.end());
    return b.append(tail);
}

}  // namespace

class CsaFileTest : public testing::Test {
protected:
    testsupport::TempDir dir;
    std::string spc = dir / "night.SPC";
    std::string sph = dir / "night.SPH";
    Head head;
};

// The header is the archive of the table, the montage being the physical
// montage reduced to the selected channels of the recording montage.
TEST_F(CsaFileTest, CreateWritesTheHeaderAtOnce) {
    long error = -1;
    CCsaFile* file = CreateSample(spc, head, &error);
    ASSERT_NE(file, nullptr) << error;
    EXPECT_EQ(file->GetNumChannels(), 2u);
    EXPECT_EQ(file->GetChannelLabel(0), "Fp1-A1");
    EXPECT_EQ(file->GetChannelLabel(1), "C3-A1");
    EXPECT_EQ(file->GetChannelNumFreq(0), 256u);
    EXPECT_EQ(file->GetChannelSourceFreq(1), 256u);
    EXPECT_FLOAT_EQ(file->GetFreqRes(), 0.5f);
    EXPECT_FLOAT_EQ(file->GetChannelMaxFreq(0), 128.0f);
    EXPECT_FLOAT_EQ(file->GetMaxFreq(), 128.0f);
    EXPECT_EQ(file->GetRecordSize(), 8u + 4u * 512u);
    EXPECT_EQ(file->GetNumRecords(), 0u);
    EXPECT_EQ(file->GetPhysicalMontage()->GetNumRecordingMontages(), 1);
    EXPECT_EQ(file->GetLogicalMontage(), file->GetPhysicalMontage()->GetRecordingMontageAt(0));
    EXPECT_EQ(file->GetPhysicalMontage()->GetRecordingMontageAt(0)->GetNumReformatedMontages(), 0u);

    Head reduced(false);  // what the reduction must leave
    auto montage = testsupport::StoreToBytes([&](CArchive& ar) { ar.WriteObject(&reduced.pm); });
    Bytes empty;
    empty.u16(0).u16(0).u32(0);
    EXPECT_EQ(ReadAll(sph), HeaderBytes(montage, empty).data);
    EXPECT_EQ(VhlGetFileSize(spc), 0u);
    EXPECT_EQ(file->Close(), 1);
}

TEST_F(CsaFileTest, RecordsDiscontinuitiesAndAnnotationsRoundTrip) {
    testsupport::AssertRecorder asserts;
    CCsaFile* file = CreateSample(spc, head);
    ASSERT_NE(file, nullptr);
    std::unique_ptr<CSpecRec> rec(file->CreateCompatibleSpecRec());
    // Restart interval 4 s: a gap of 6 s (1.5 intervals) or more breaks the
    // sequence; the first record never does.
    const double times[] = {0, 4, 8, 18, 23, 29, 33, 37, 41, 45, 49};
    for (int i = 0; i < 11; ++i) {
        Fill(*rec, times[i], static_cast<float>(i));
        ASSERT_EQ(file->Write(*rec), 1) << i;
        EXPECT_EQ(file->GetCurRecIx(), static_cast<DWORD>(i + 1));
    }
    EXPECT_EQ(file->GetNumDiscontinuities(), 2);
    EXPECT_EQ(file->GetDiscontinuityAt(0), 3u);  // 10 s after the previous one
    EXPECT_EQ(file->GetDiscontinuityAt(1), 5u);  // exactly 6 s
    EXPECT_FALSE(file->IsDiscontinuityAt(4));    // 5 s
    EXPECT_TRUE(file->IsDiscontinuityAt(3));

    EXPECT_EQ(file->AddAnnotationAt(7, "Éveil"), 1);
    EXPECT_EQ(file->AddAnnotationAt(2, "artefact"), 1);
    EXPECT_EQ(file->AddAnnotationAt(2, "mouvement"), 1);  // replaces
    EXPECT_EQ(file->AddAnnotationAt(11, "past the end"), 0);
    EXPECT_EQ(file->AddAnnotationAt(9, "gone"), 1);
    EXPECT_EQ(file->DeleteAnnotationAt(9), 1);
    EXPECT_EQ(file->DeleteAnnotationAt(9), 0);

    // Reading back before closing goes through the cache.
    file->MoveTo(1);
    CSpecRec back;
    ASSERT_EQ(file->Read(back), 1);
    EXPECT_EQ(back.GetAt(1, 3), 1.0f + 1000.0f + 0.75f);
    EXPECT_EQ(asserts.hits.size(), 1u);  // the annotation past the end
    ASSERT_EQ(file->Close(), 1);

    // Data: 11 records of 8 + 4 x 512 bytes; record 3 by hand.
    auto data = ReadAll(spc);
    ASSERT_EQ(data.size(), 11u * 2056u);
    Bytes rec3;
    rec3.f64((kStart + CSTimeSpan(18.0)).GetValue());
    for (unsigned c = 0; c < 2; ++c)
        for (unsigned f = 0; f < 256; ++f) rec3.f32(3.0f + c * 1000.0f + f * 0.25f);
    EXPECT_TRUE(std::equal(rec3.data.begin(), rec3.data.end(), data.begin() + 3 * 2056));

    // Header tail: discontinuities, annotations in record order, count.
    Bytes tail;
    tail.u16(2).u32(3).u32(5).u16(2).u32(2).str("mouvement").u32(7).str("\xC9veil").u32(11);
    auto header = ReadAll(sph);
    ASSERT_GE(header.size(), tail.data.size());
    EXPECT_TRUE(std::equal(tail.data.begin(), tail.data.end(), header.end() - tail.data.size()));

    CCsaFile* ro = CCsaFile::Open(spc.c_str(), 1);
    ASSERT_NE(ro, nullptr);
    EXPECT_EQ(ro->GetNumRecords(), 11u);
    EXPECT_EQ(ro->GetSigFileName(), "night.SIG");
    EXPECT_EQ(ro->GetSigFileId(), "ID-42");
    EXPECT_EQ(ro->GetPatientInfo()->GetLastName(), "Dupont");
    EXPECT_FLOAT_EQ(ro->GetFftEpochLength(), 2.0f);
    EXPECT_EQ(ro->GetFftPreprocessing(), 1);
    EXPECT_EQ(ro->GetFftTapering(), 2);
    EXPECT_EQ(ro->GetPcOverlap(), 50);
    EXPECT_FLOAT_EQ(ro->GetCsaEpochLength(), 10.0f);
    EXPECT_FLOAT_EQ(ro->GetCsaRestartInterval(), 4.0f);
    EXPECT_EQ(ro->GetChannelLabel(1), "C3-A1");
    EXPECT_EQ(ro->GetChannelType(0), 1u);
    EXPECT_EQ(ro->GetChannelUnit(0), 1u);
    EXPECT_EQ(ro->GetNumDiscontinuities(), 2);
    EXPECT_EQ(ro->GetAnnotationAt(7), "Éveil");
    EXPECT_TRUE(ro->IsAnnotationAt(2));
    EXPECT_FALSE(ro->IsAnnotationAt(9));
    DWORD index = 0;
    CString text;
    ASSERT_EQ(ro->GetNumPairsAnnotRecIx(), 2);
    ASSERT_EQ(ro->GetPairAnnotRecIxAt(1, index, text), 1);
    EXPECT_EQ(index, 7u);
    EXPECT_EQ(text, "Éveil");
    EXPECT_EQ(ro->GetPairAnnotRecIxAt(2, index, text), 0);

    // Navigation and reads in an order the cache cannot simply follow.
    EXPECT_EQ(ro->MoveLast(), 1);
    EXPECT_EQ(ro->GetCurRecIx(), 10u);
    for (int i : {10, 0, 9, 1, 8, 2, 7, 3, 6, 4, 5, 10}) {
        ro->MoveTo(static_cast<DWORD>(i));
        ASSERT_EQ(ro->Read(back), 1);
        EXPECT_EQ(back.GetTime(), kStart + CSTimeSpan(times[i])) << i;
        EXPECT_EQ(back.GetAt(0, 255), i + 255 * 0.25f) << i;
        EXPECT_FLOAT_EQ(back.GetFreqRes(), 0.5f);
    }
    EXPECT_EQ(ro->MoveNext(), 0);  // to the end
    EXPECT_EQ(ro->GetCurRecIx(), 11u);
    EXPECT_EQ(ro->MoveNext(), 0);
    EXPECT_EQ(ro->GetCurRecIx(), 11u);
    EXPECT_EQ(ro->MovePrev(), 1);
    EXPECT_EQ(ro->MoveFirst(), 1);
    EXPECT_EQ(ro->MovePrev(), 0);
    EXPECT_EQ(ro->GetCurRecIx(), 0u);

    // Misuse of a read-only file is asserted and refused.
    asserts.hits.clear();
    ro->MoveTo(11);
    EXPECT_EQ(ro->Write(back), 0);
    EXPECT_EQ(ro->Read(back), 0);
    EXPECT_EQ(ro->AddAnnotationAt(1, "x"), 0);
    EXPECT_EQ(ro->MoveTo(12), 0);
    EXPECT_EQ(ro->GetCurRecIx(), 11u);
    EXPECT_GE(asserts.hits.size(), 4u);
    const auto headerBefore = ReadAll(sph);
    EXPECT_EQ(ro->Close(), 1);
    EXPECT_EQ(ReadAll(sph), headerBefore);  // a read-only close writes nothing
}

TEST_F(CsaFileTest, WritingAppendsOnlyAtTheEndWithTheFileShape) {
    testsupport::AssertRecorder asserts;
    CCsaFile* file = CreateSample(spc, head);
    ASSERT_NE(file, nullptr);
    std::unique_ptr<CSpecRec> rec(file->CreateCompatibleSpecRec());
    Fill(*rec, 0, 0);
    ASSERT_EQ(file->Write(*rec), 1);
    ASSERT_EQ(file->Write(*rec), 1);
    file->MoveFirst();
    EXPECT_EQ(file->Write(*rec), 0);  // not at the end
    file->MoveTo(2);
    CSpecRec wrongShape;
    wrongShape.Create(0.5f, 2, WORD(128));
    EXPECT_EQ(file->Write(wrongShape), 0);
    EXPECT_EQ(file->GetNumRecords(), 2u);
    EXPECT_EQ(asserts.hits.size(), 2u);

    // Reopened for writing, records are appended after the existing ones.
    ASSERT_EQ(file->Close(), 1);
    file = CCsaFile::Open(spc.c_str(), 0);
    ASSERT_NE(file, nullptr);
    file->MoveTo(file->GetNumRecords());
    Fill(*rec, 20, 2);  // 20 s later: a break
    ASSERT_EQ(file->Write(*rec), 1);
    EXPECT_TRUE(file->IsDiscontinuityAt(2));
    ASSERT_EQ(file->Close(), 1);
    EXPECT_EQ(VhlGetFileSize(spc), 3u * 2056u);
}

TEST_F(CsaFileTest, ReducesAReformattedMontageToTheSelectedChannels) {
    const WORD selected[1] = {1};
    CCsaFile* file = CCsaFile::Create(spc.c_str(), "", "", nullptr, 2.0f, 0, 0, 0, 2.0f, 2.0f, head.bip, 1, selected);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(file->GetNumChannels(), 1u);
    EXPECT_EQ(file->GetChannelLabel(0), "Half F3");
    EXPECT_EQ(file->GetChannelSourceFreq(0), 128u);
    EXPECT_EQ(file->GetChannelNumFreq(0), 128u);
    const CLogicalMontage* logical = file->GetLogicalMontage();
    ASSERT_TRUE(logical->IsKindOf(RUNTIME_CLASS(CReformatedMontage)));
    EXPECT_EQ(logical->GetFormula(0), "F3/2");
    // The recording montage keeps every channel the formulas may need.
    EXPECT_EQ(logical->GetRecordingMontage()->GetNumChannels(), 3u);
    ASSERT_EQ(file->Close(), 1);

    CCsaFile* back = CCsaFile::Open(spc.c_str(), 1);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->GetChannelLabel(0), "Half F3");
    EXPECT_EQ(back->GetRecordSize(), 8u + 4u * 128u);
    back->Close();
}

TEST_F(CsaFileTest, CreateRefusals) {
    testsupport::AssertRecorder asserts;
    const WORD ok[1] = {0};
    const WORD twice[2] = {0, 0};
    const WORD outOfRange[1] = {3};
    long error = 0;
    auto create = [&](const std::string& name, float epoch, const CLogicalMontage* m, unsigned n, const WORD* sel) {
        error = 0;
        return CCsaFile::Create(name.c_str(), "", "", nullptr, epoch, 0, 0, 0, epoch, epoch, m, n, sel, &error);
    };
    EXPECT_EQ(create(sph, 2.0f, head.rec, 1, ok), nullptr);
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(create(spc, 1.5f, head.rec, 1, ok), nullptr);  // 384 points
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(create(spc, 2.0f, head.rec, 2, twice), nullptr);
    EXPECT_EQ(create(spc, 2.0f, head.rec, 1, outOfRange), nullptr);
    EXPECT_EQ(create(spc, 2.0f, head.rec, 0, ok), nullptr);
    CRecordingMontage orphan;
    EXPECT_EQ(create(spc, 2.0f, &orphan, 1, ok), nullptr);
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(VhlCheckFileExist(spc));
    EXPECT_EQ(create(dir / "missing/x.SPC", 2.0f, head.rec, 1, ok), nullptr);
    EXPECT_TRUE(error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) << error;
    EXPECT_TRUE(asserts.hits.empty());
}

TEST_F(CsaFileTest, OpenNamesAndSharing) {
    CCsaFile* writer = CreateSample(spc, head);
    ASSERT_NE(writer, nullptr);
    long error = 0;
    EXPECT_EQ(CCsaFile::Open(sph.c_str(), 1, &error), nullptr);
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CCsaFile::Open((dir / "night.SIG").c_str(), 1, &error), nullptr);
    // A second writer is refused while the first holds the pair; readers are not.
    EXPECT_EQ(CCsaFile::Open(spc.c_str(), 0, &error), nullptr);
    EXPECT_EQ(error, ERROR_SHARING_VIOLATION);
    CCsaFile* reader = CCsaFile::Open(spc.c_str(), 1, &error);
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(reader->IsReadOnly());
    reader->Close();
    ASSERT_EQ(writer->Close(), 1);
    writer = CCsaFile::Open(spc.c_str(), 0, &error);
    ASSERT_NE(writer, nullptr);
    writer->Close();

    // Lower-case names pair with a lower-case header.
    Head other;
    std::string lower = dir / "day.spc";
    CCsaFile* file = CreateSample(lower, other);
    ASSERT_NE(file, nullptr);
    file->Close();
    EXPECT_TRUE(VhlCheckFileExist(dir / "day.sph"));
    file = CCsaFile::Open(lower.c_str(), 1);
    ASSERT_NE(file, nullptr);
    file->Close();
    EXPECT_EQ(CCsaFile::Open((dir / "absent.SPC").c_str(), 1, &error), nullptr);
    EXPECT_EQ(error, ERROR_FILE_NOT_FOUND);
}

TEST_F(CsaFileTest, HeaderVersionsAndDamagedHeaders) {
    testsupport::AssertRecorder asserts;  // damaged montages may assert while loading
    CCsaFile* file = CreateSample(spc, head);
    ASSERT_NE(file, nullptr);
    std::unique_ptr<CSpecRec> rec(file->CreateCompatibleSpecRec());
    Fill(*rec, 0, 0);
    file->Write(*rec);
    ASSERT_EQ(file->Close(), 1);
    const auto good = ReadAll(sph);

    auto openCause = [&](const std::vector<BYTE>& header) {
        WriteAll(sph, header);
        try {
            CCsaFile* f = CCsaFile::Open(spc.c_str(), 1);
            if (f) f->Close();
            return f ? -1 : -2;
        } catch (const CArchiveException& e) {
            return e.m_cause;
        }
    };
    auto version = good;
    version[0] = 0;
    EXPECT_EQ(openCause(version), CArchiveException::badSchema);
    version[0] = 2;
    EXPECT_EQ(openCause(version), -1);  // read like version 1
    version[0] = 0xFF;
    version[1] = 0xFF;
    EXPECT_EQ(openCause(version), -1);

    // Every truncation gives an archive exception.
    for (size_t len = 0; len < good.size(); ++len) {
        std::vector<BYTE> cut(good.begin(), good.begin() + len);
        int cause = openCause(cut);
        EXPECT_GE(cause, 0) << len;
    }
    // Every byte set to 0xFF in turn: the header reads, or raises an archive
    // exception; nothing else escapes.
    for (size_t at = 0; at < good.size(); ++at) {
        auto damaged = good;
        damaged[at] = 0xFF;
        WriteAll(sph, damaged);
        try {
            CCsaFile* f = CCsaFile::Open(spc.c_str(), 1);
            ASSERT_NE(f, nullptr) << at;
            f->Close();
        } catch (const CArchiveException&) {
        } catch (const std::exception& e) {
            ADD_FAILURE() << at << ": " << e.what();
        }
    }
    // A huge discontinuity count with nothing behind it.
    auto huge = good;
    const size_t tail = 2 + 2 + 4;  // counts of 0 discontinuities and 0 annotations, record count
    huge.resize(huge.size() - tail);
    Bytes b;
    b.u16(0xFFFF).u32(0x7FFFFFFF);
    huge.insert(huge.end(), b.data.begin(), b.data.end());
    EXPECT_EQ(openCause(huge), CArchiveException::endOfFile);
    // An FFT epoch that makes no layout.
    auto epoch = good;
    const size_t epochAt = 2 + 1 + 9 + 1 + 5 + PatientBytes("Dupont").data.size();
    Bytes nan;
    nan.f32(-1.0f);
    std::copy(nan.data.begin(), nan.data.end(), epoch.begin() + epochAt);
    EXPECT_EQ(openCause(epoch), CArchiveException::genericException);
    // A bad header leaves the pair free for the next writer.
    WriteAll(sph, good);
    CCsaFile* again = CCsaFile::Open(spc.c_str(), 0);
    ASSERT_NE(again, nullptr);
    again->Close();
}

// A data file shorter than the header says: only whole records count, and
// nothing is read past the end.
TEST_F(CsaFileTest, ShortDataFileIsNotOverRead) {
    CCsaFile* file = CreateSample(spc, head);
    ASSERT_NE(file, nullptr);
    std::unique_ptr<CSpecRec> rec(file->CreateCompatibleSpecRec());
    for (int i = 0; i < 4; ++i) {
        Fill(*rec, 4.0 * i, static_cast<float>(i));
        ASSERT_EQ(file->Write(*rec), 1);
    }
    ASSERT_EQ(file->Close(), 1);
    auto data = ReadAll(spc);
    data.resize(2 * 2056 + 1000);
    WriteAll(spc, data);
    CCsaFile* ro = CCsaFile::Open(spc.c_str(), 1);
    ASSERT_NE(ro, nullptr);
    EXPECT_EQ(ro->GetNumRecords(), 2u);
    ro->MoveLast();
    CSpecRec back;
    ASSERT_EQ(ro->Read(back), 1);
    EXPECT_EQ(back.GetAt(1, 0), 1001.0f);
    ro->Close();
}

TEST_F(CsaFileTest, CopyRenameAndDeleteThePair) {
    CCsaFile* file = CreateSample(spc, head);
    ASSERT_NE(file, nullptr);
    std::unique_ptr<CSpecRec> rec(file->CreateCompatibleSpecRec());
    Fill(*rec, 0, 5);
    file->Write(*rec);
    ASSERT_EQ(file->Close(), 1);
    const auto data = ReadAll(spc);
    const auto header = ReadAll(sph);

    class Progress : public CProgressInfo {
    public:
        void SetPos(ULONGLONG pos) override {
            CProgressInfo::SetPos(pos);
            ++calls;
        }
        int calls = 0;
    } progress;
    const std::string copy = dir / "copy.SPC";
    ASSERT_EQ(CCsaFile::Copy(spc.c_str(), copy.c_str(), &progress), 1);
    EXPECT_EQ(ReadAll(copy), data);
    EXPECT_EQ(ReadAll(dir / "copy.SPH"), header);
    EXPECT_EQ(progress.GetRange(), data.size() + header.size());
    EXPECT_GT(progress.calls, 0);

    // A failed copy leaves an existing target pair as it was.
    WriteAll(dir / "lone.SPC", {1, 2, 3});
    EXPECT_EQ(CCsaFile::Copy((dir / "lone.SPC").c_str(), copy.c_str()), 0);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ReadAll(copy), data);
    EXPECT_FALSE(VhlCheckFileExist(copy + ".copy-tmp"));
    EXPECT_EQ(CCsaFile::Copy(spc.c_str(), (dir / "x.SIG").c_str()), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);

    const std::string moved = dir / "moved.SPH";  // either name of the pair
    ASSERT_EQ(CCsaFile::Rename(copy.c_str(), moved.c_str()), 1);
    EXPECT_FALSE(VhlCheckFileExist(copy));
    EXPECT_EQ(ReadAll(dir / "moved.SPC"), data);
    EXPECT_EQ(ReadAll(moved), header);
    EXPECT_EQ(CCsaFile::Rename(copy.c_str(), moved.c_str()), 0);

    ASSERT_EQ(CCsaFile::Delete((dir / "moved.SPC").c_str()), 1);
    EXPECT_FALSE(VhlCheckFileExist(moved));
    EXPECT_FALSE(VhlCheckFileExist(dir / "moved.SPC"));
    EXPECT_EQ(CCsaFile::Delete((dir / "moved.SPC").c_str()), 0);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);

    CString base, ext;
    CCsaFile::GetFileNameExtension("/data/night.SPC", base, ext);
    EXPECT_EQ(base, "/data/night");
    EXPECT_EQ(ext, ".SPC");
}

// More records than the cache holds, written and then read back through it.
TEST_F(CsaFileTest, CacheWritesBackEveryRecord) {
    CCsaFile* file = CreateSample(spc, head);
    ASSERT_NE(file, nullptr);
    std::unique_ptr<CSpecRec> rec(file->CreateCompatibleSpecRec());
    const int count = 3 * CCsaFileCache::kEntries + 1;
    for (int i = 0; i < count; ++i) {
        Fill(*rec, 4.0 * i, static_cast<float>(i));
        ASSERT_EQ(file->Write(*rec), 1);
    }
    // Some records are on disk already, the newest still in the cache.
    EXPECT_LT(VhlGetFileSize(spc), static_cast<ULONGLONG>(count) * 2056u);
    EXPECT_GE(VhlGetFileSize(spc), static_cast<ULONGLONG>(count - CCsaFileCache::kEntries) * 2056u);
    CSpecRec back;
    for (int i = count - 1; i >= 0; i -= 3) {
        file->MoveTo(static_cast<DWORD>(i));
        ASSERT_EQ(file->Read(back), 1);
        EXPECT_EQ(back.GetAt(0, 1), i + 0.25f);
    }
    ASSERT_EQ(file->Close(), 1);
    EXPECT_EQ(VhlGetFileSize(spc), static_cast<ULONGLONG>(count) * 2056u);
}
