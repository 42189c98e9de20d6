// The native codec: archive form and stored record layout byte by byte, and
// copies that stay in bounds when a record does not have the codec's shape.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "records/stdcodec.h"
#include "support/TestSupport.h"

using testsupport::AssertRecorder;
using testsupport::Bytes;

namespace {

Bytes CodecArchive(std::vector<unsigned> counts, unsigned version = 1) {
    unsigned size = 8;
    for (unsigned c : counts) size += 2 * c;
    Bytes b;
    b.u16(version).u16(static_cast<unsigned>(counts.size())).u16(size).u16(64);
    for (unsigned c : counts) b.u16(c);
    return b;
}

std::unique_ptr<CStdCoDec> MakeCodec(std::vector<unsigned> counts) {
    auto codec = std::make_unique<CStdCoDec>();
    testsupport::LoadFromBytes(CodecArchive(counts).data, [&](CArchive& ar) { codec->Serialize(ar); });
    return codec;
}

// A record whose sample (c, i) is 100 * c + i, at a fixed time.
std::unique_ptr<CRawSigRec> MakeRecord(const CStdCoDec& codec) {
    std::unique_ptr<CRawSigRec> rec(codec.CreateCompatibleRawSigRec());
    rec->SetTime(CSDateTime(45000.25));
    for (unsigned c = 0; c < rec->GetNumChannels(); ++c)
        for (unsigned i = 0; i < rec->GetNumSamples(c); ++i) rec->SetAt(c, i, static_cast<short>(100 * c + i));
    return rec;
}

class OtherCoDec : public CSigCoDec {
public:
    const CRuntimeClass* GetRuntimeClass() const override { return RUNTIME_CLASS(CSigCoDec); }
    unsigned GetCompRecSize() const override { return 0; }
    unsigned GetNumChannels() const override { return 0; }
    unsigned GetSamplesRecord() const override { return 0; }
    unsigned short* GetSamplesChannel() const override { return nullptr; }
    CRawSigRec* CreateCompatibleRawSigRec() const override { return nullptr; }
    CFmtSigRec* CreateCompatibleFmtSigRec() const override { return nullptr; }
    void Compress(CRawSigRec*, CByteArray*) override {}
    void DeCompress(CByteArray*, CRawSigRec*) override {}
};

}  // namespace

TEST(StdCoDecTest, ArchiveFormRoundTripsByteByByte) {
    auto codec = MakeCodec({256, 256, 128});
    EXPECT_EQ(codec->GetNumChannels(), 3u);
    EXPECT_EQ(codec->GetCompRecSize(), 1288u);
    EXPECT_EQ(codec->GetSamplesRecord(), 64u);
    EXPECT_EQ(codec->GetSamplesChannel()[2], 128);
    auto bytes = testsupport::StoreToBytes([&](CArchive& ar) { codec->Serialize(ar); });
    EXPECT_EQ(bytes, CodecArchive({256, 256, 128}).data);

    // As an object: class record, then the same fields.
    auto asObject = testsupport::StoreToBytes([&](CArchive& ar) { ar.WriteObject(codec.get()); });
    EXPECT_EQ(asObject, Bytes().newClass("CStdCoDec").append(CodecArchive({256, 256, 128})).data);
    testsupport::LoadFromBytes(asObject, [&](CArchive& ar) {
        std::unique_ptr<CObject> ob(ar.ReadObject(RUNTIME_CLASS(CSigCoDec)));
        auto* read = dynamic_cast<CStdCoDec*>(ob.get());
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(read->GetCompRecSize(), 1288u);
        EXPECT_EQ(read->GetSamplesChannel()[0], 256);
    });
}

TEST(StdCoDecTest, NewerOrTruncatedArchiveIsRefusedAndLeavesCodecAsItWas) {
    auto codec = MakeCodec({4, 2});
    auto newer = CodecArchive({1}, 2).data;
    try {
        testsupport::LoadFromBytes(newer, [&](CArchive& ar) { codec->Serialize(ar); });
        FAIL();
    } catch (CArchiveException& e) {
        EXPECT_EQ(e.m_cause, CArchiveException::badSchema);
    }
    // The channel count claims far more values than remain.
    Bytes lying;
    lying.u16(1).u16(60000).u16(20).u16(64).u16(4);
    try {
        testsupport::LoadFromBytes(lying.data, [&](CArchive& ar) { codec->Serialize(ar); });
        FAIL();
    } catch (CArchiveException& e) {
        EXPECT_EQ(e.m_cause, CArchiveException::endOfFile);
    }
    EXPECT_EQ(codec->GetNumChannels(), 2u);
    EXPECT_EQ(codec->GetCompRecSize(), 20u);
}

TEST(StdCoDecTest, StoredRecordLayoutIsTimeThenChannelsOneAfterAnother) {
    auto codec = MakeCodec({256, 256, 128});
    auto rec = MakeRecord(*codec);
    CByteArray image;
    codec->Compress(rec.get(), &image);
    ASSERT_EQ(image.GetSize(), 1288);
    Bytes expected;
    expected.f64(45000.25);
    for (unsigned c = 0; c < 3; ++c)
        for (unsigned i = 0; i < (c == 2 ? 128u : 256u); ++i) expected.u16(100 * c + i);
    EXPECT_EQ(image.Vector(), expected.data);
    // Channel 2 begins at byte 8 + 1024.
    EXPECT_EQ(image[1032], 200);
    EXPECT_EQ(image[1033], 0);

    CRawSigRec back;
    back.Create(3, codec->GetSamplesChannel());
    codec->DeCompress(&image, &back);
    EXPECT_EQ(back.GetTime(), CSDateTime(45000.25));
    for (unsigned c = 0; c < 3; ++c)
        for (unsigned i = 0; i < back.GetNumSamples(c); ++i) ASSERT_EQ(back.GetAt(c, i), short(100 * c + i));
    CByteArray again;
    codec->Compress(&back, &again);
    EXPECT_EQ(again.Vector(), image.Vector());
}

TEST(StdCoDecTest, NegativeSamplesAreLittleEndianTwosComplement) {
    auto codec = MakeCodec({2});
    CRawSigRec rec(1, codec->GetSamplesChannel());
    rec.SetAt(0, 0, -2);
    rec.SetAt(0, 1, 0x1234);
    CByteArray image;
    codec->Compress(&rec, &image);
    EXPECT_EQ(image.Vector(), Bytes().f64(0.0).u16(0xFFFE).u16(0x1234).data);
}

TEST(StdCoDecTest, MismatchedRecordAssertsAndCopiesOnlyWhatFits) {
    auto codec = MakeCodec({4, 4});
    AssertRecorder asserts;
    // Channel 1 of the record is short and there is no channel 2 at all.
    unsigned short small[] = {4, 2};
    CRawSigRec rec(2, small);
    for (unsigned i = 0; i < 4; ++i) rec.SetAt(0, i, short(i + 1));
    rec.SetAt(1, 0, 7);
    rec.SetAt(1, 1, 8);
    CByteArray image;
    codec->Compress(&rec, &image);
    EXPECT_TRUE(asserts.Saw("stdcodec", 111));
    EXPECT_EQ(image.Vector(), Bytes().f64(0.0).u16(1).u16(2).u16(3).u16(4).u16(7).u16(8).u16(0).u16(0).data);

    // A record with more channels and samples than the codec receives only
    // the codec's samples; the rest is untouched.
    asserts.hits.clear();
    unsigned short big[] = {6, 6, 6};
    CRawSigRec wide(3, big);
    wide.SetAll(-1);
    codec->DeCompress(&image, &wide);
    EXPECT_TRUE(asserts.Saw("stdcodec", 131));
    EXPECT_EQ(wide.GetAt(0, 3), 4);
    EXPECT_EQ(wide.GetAt(1, 1), 8);
    EXPECT_EQ(wide.GetAt(1, 4), 0);  // beyond the image's samples: cleared
    EXPECT_EQ(wide.GetAt(2, 0), -1);

    // An empty record takes nothing and gives nothing.
    CRawSigRec empty;
    codec->DeCompress(&image, &empty);
    codec->Compress(&empty, &image);
    EXPECT_EQ(image.GetSize(), 24);
}

TEST(StdCoDecTest, ImageOfTheWrongSizeIsResizedNotOverRead) {
    auto codec = MakeCodec({4});
    CByteArray shortImage;
    shortImage.SetSize(10);
    CRawSigRec rec(1, codec->GetSamplesChannel());
    codec->DeCompress(&shortImage, &rec);
    EXPECT_EQ(shortImage.GetSize(), 16);
    EXPECT_EQ(rec.GetAt(0, 3), 0);

    CStdCoDec none;  // record size 0: nothing can be coded
    EXPECT_THROW(none.DeCompress(&shortImage, &rec), CInvalidArgException);
    EXPECT_THROW(none.Compress(&rec, &shortImage), CInvalidArgException);
}

TEST(StdCoDecTest, AssignmentCopiesOnlyFromItsOwnClass) {
    auto codec = MakeCodec({3, 5});
    CStdCoDec copy;
    copy = *codec;
    EXPECT_EQ(copy.GetCompRecSize(), 24u);
    EXPECT_EQ(copy.GetSamplesChannel()[1], 5);
    EXPECT_NE(copy.GetSamplesChannel(), codec->GetSamplesChannel());
    std::unique_ptr<CFmtSigRec> fmt(copy.CreateCompatibleFmtSigRec());
    EXPECT_EQ(fmt->GetNumSamples(1), 5u);

    AssertRecorder asserts;
    OtherCoDec other;
    copy = static_cast<const CSigCoDec&>(other);
    EXPECT_TRUE(asserts.Saw("stdcodec", 51));
    EXPECT_EQ(copy.GetNumChannels(), 2u);
    static_cast<CSigCoDec&>(other) = copy;
    EXPECT_TRUE(asserts.Saw("SIGCODEC", 22));
}

#include "montage/mtgs.h"

TEST(StdCoDecTest, ShapeFromARecordingMontage) {
    CPhysicalMontage physical("Mtg", 0);
    for (const char* e : {"Fp1", "F3", "C3", "O1"}) physical.AddElectrode(e, CPolar3D());
    CRecordingMontage* rec = physical.CreateRecordingMontage();
    ASSERT_NE(rec, nullptr);
    ASSERT_TRUE(rec->SetSamplesRecord(256));
    ASSERT_TRUE(rec->SetBaseFrequency(256));
    ASSERT_TRUE(rec->AddChannel("Fp1", "F3", 1, 1, 256, 0, 0, ""));
    ASSERT_TRUE(rec->AddChannel("C3", "O1", 1, 1, 256, 0, 0, ""));
    ASSERT_TRUE(rec->AddChannel("O1", "", 1, 1, 128, 0, 0, ""));
    ASSERT_EQ(rec->GetSamplesChannel(0), 256u);
    ASSERT_EQ(rec->GetSamplesChannel(2), 128u);

    CStdCoDec codec(rec);
    EXPECT_EQ(codec.GetNumChannels(), 3u);
    EXPECT_EQ(codec.GetSamplesRecord(), 64u);
    EXPECT_EQ(codec.GetCompRecSize(), 1288u);
    auto bytes = testsupport::StoreToBytes([&](CArchive& ar) { codec.Serialize(ar); });
    EXPECT_EQ(bytes, CodecArchive({256, 256, 128}).data);
}
