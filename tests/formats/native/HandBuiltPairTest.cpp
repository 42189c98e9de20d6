// A native recording whose ".STS" and ".SIG" are built byte by byte from the
// stored layouts, as another program of the suite would write them, opens
// and reads through CSigFile::Open.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "support/TestSupport.h"

using testsupport::Bytes;

namespace {
Bytes StatusFile() {
    Bytes b;
    b.u16(1);  // file version
    b.newClass("CFileHeader").u16(3).str("Nuit").str("Labo").u16(0).f64(46000.5);
    b.str("Tessaryn 5.0 1 b7").str("Tessaryn 5.1 0 b9");
    b.newClass("CPatientInfo").u16(3).str("ID-1").str("ID-2").str("Martin").str("H\xE9l\xE8ne").f64(30000.0).u16(2);
    for (int i = 0; i < 8; ++i) b.str("");  // address, city, state, country, zip, phones, comment
    b.str("1.70000000").str("60.00000000");
    for (int i = 0; i < 5; ++i) b.str("");  // user fields
    // Codec: two channels of 64 and 32 samples, 8 + 2 x 96 = 200 bytes a record.
    b.newClass("CStdCoDec").u16(1).u16(2).u16(200).u16(64).u16(64).u16(32);
    // Calibration: 0.1 uV per AD step over -32768..32767, world = microvolts.
    b.newClass("CCalibration").u16(3).f64(256.0).u16(0x8000).f32(-0.0032768f).u16(0x7FFF).f32(0.0032767f).u16(2);
    b.i32(-1).i32(-1).f32(0).f32(0).f32(0).f32(0).i32(-1).i32(-1).f32(0.0001f).f32(0.0001f).f32(100).f32(100);
    b.u16(0).u16(0).u16(0).u16(0).u16(0);  // no Bpos entries
    // Physical montage (class 9, object 10) with one recording montage.
    b.newClass("CPhysicalMontage").u16(7).str("Phys").u16(3).u16(3).str("REF").str("Fp1").str("Cz").u16(0);
    b.u16(9).f64(-1).f64(0).f64(0).f64(1).f64(90).f64(108).f64(1).f64(0).f64(0);
    b.u16(1).newClass("CRecordingMontage").u16(7).str("Rec").u16(2);
    b.u16(2).u16(256).u16(128).u16(2).u16(1).u16(1).u16(2).u16(1).u16(1).u16(2).u16(0).u16(0).u16(2).u16(0).u16(0);
    b.u16(2).u32(0xFF).u32(0xFF00);
    b.u16(10).u16(64).u16(256);  // the physical montage by reference, samples per record, base frequency
    b.u16(2).str("Fp1").str("Cz").u16(2).str("REF").str("REF").u16(2).u16(0).u16(0).u16(2).str("").str("");
    b.u16(0);        // no reformatted montages
    b.u16(0);        // no electrode groups
    b.i32(2);        // records
    b.u16(0).u16(0);  // no groups, no items
    return b;
}

Bytes DataFile() {
    Bytes b;
    for (int r = 0; r < 2; ++r) {
        b.f64(46000.5 + r * 0.25 / 86400.0);
        for (int s = 0; s < 64; ++s) b.u16(static_cast<unsigned>(r * 1000 + s));
        for (int s = 0; s < 32; ++s) b.u16(static_cast<unsigned>(-(s + 1)) & 0xFFFF);
    }
    return b;
}

void Write(const std::string& name, const Bytes& bytes) {
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data.data()), static_cast<std::streamsize>(bytes.data.size()));
}
}  // namespace

TEST(HandBuiltPairTest, OpensAndReadsAsStored) {
    testsupport::TempDir dir;
    Write(dir / "PAIR.STS", StatusFile());
    Write(dir / "PAIR.SIG", DataFile());
    long error = -2;
    std::unique_ptr<CSigFile> f(CSigFile::Open((dir / "PAIR.SIG").c_str(), 1, &error));
    ASSERT_TRUE(f) << error;
    EXPECT_EQ(f->GetFileHeader()->GetFileDesc(), "Nuit");
    EXPECT_EQ(f->GetFileHeader()->GetLastModifiedBy(), "Tessaryn 5.1 0 b9");
    EXPECT_EQ(f->GetPatientInfo()->GetFirstName(), "Hélène");
    EXPECT_EQ(f->GetPatientInfo()->GetSex(), 2);
    EXPECT_EQ(f->GetPhysicalMontage()->GetRecordingMontageAt(0)->GetLabel(0), "Fp1-REF");
    EXPECT_EQ(f->GetNumRecords(), 2);
    EXPECT_EQ(f->GetSamplesChannel(1), 32u);
    EXPECT_EQ(f->GetTrueFrequency(), 256.0);

    std::unique_ptr<CRawSigRec> raw(f->CreateCompatibleRawSigRec());
    f->MoveTo(1);
    ASSERT_TRUE(f->Read(raw.get()));
    EXPECT_EQ(raw->GetAt(0, 5), 1005);
    EXPECT_EQ(raw->GetAt(1, 31), -32);
    EXPECT_EQ(raw->GetTime(), CSDateTime(46000.5 + 0.25 / 86400.0));
    std::unique_ptr<CFmtSigRec> fmt(f->CreateCompatibleFmtSigRec());
    ASSERT_TRUE(f->Read(fmt.get()));
    EXPECT_NEAR(fmt->GetAt(0, 5), 100.5, 1e-3);  // 1005 steps of 0.1 uV
    EXPECT_NEAR(fmt->GetAt(1, 31), -3.2, 1e-3);
    f->Close();
}
