// Spectral records: shape, power, averaging, smoothing and archive form.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "spectral/Fft.h"
#include "spectral/Specrec.h"
#include "support/TestSupport.h"

using testsupport::Bytes;

namespace {

int ArchiveCause(const std::vector<BYTE>& bytes) {
    try {
        testsupport::LoadFromBytes(bytes, [](CArchive& ar) {
            CSpecRec rec;
            rec.Serialize(ar);
        });
    } catch (const CArchiveException& e) {
        return e.m_cause;
    }
    return -1;
}

// A record of 2 channels of 2 and 1 values, resolution 0.5 Hz.
Bytes SmallRecordBytes(unsigned version) {
    Bytes b;
    b.u16(version).f32(0.5f).u16(2).f64(46000.25).u16(2).u16(0).u16(2).u16(3);
    b.f32(1.5f).f32(-2.0f).f32(1e-12f);
    return b;
}

}  // namespace

TEST(SpecRec, CreateShapes) {
    testsupport::AssertRecorder asserts;
    CSpecRec rec;
    const WORD counts[3] = {4, 0, 7};
    ASSERT_EQ(rec.Create(0.25f, 3, counts), 1);
    EXPECT_EQ(rec.GetNumChannels(), 3u);
    EXPECT_EQ(rec.GetNumFreq(0), 4u);
    EXPECT_EQ(rec.GetNumFreq(1), 0u);
    EXPECT_EQ(rec.GetNumFreq(2), 7u);
    EXPECT_EQ(rec.GetNumFreq(3), 0u);
    EXPECT_EQ(rec.GetMaxNumFreq(), 7u);
    EXPECT_EQ(rec.GetNumValues(), 11u);
    EXPECT_FLOAT_EQ(rec.GetFreqRes(), 0.25f);
    rec.SetAt(2, 6, 5.0f);
    EXPECT_EQ(rec.GetAt(2)[6], 5.0f);
    EXPECT_EQ(rec.GetData()[10], 5.0f);

    ASSERT_EQ(rec.Create(1.0f, 21, WORD(256)), 1);
    EXPECT_EQ(rec.GetNumValues(), 21u * 256u);
    EXPECT_EQ(rec.GetMaxNumFreq(), 256u);
    EXPECT_TRUE(asserts.hits.empty());

    // More than 65535 values cannot be addressed by the 16-bit offsets.
    EXPECT_EQ(rec.Create(1.0f, 2, WORD(40000)), 0);
    EXPECT_EQ(rec.GetNumChannels(), 0u);
    rec.SetAt(0, 0, 1.0f);
    EXPECT_EQ(rec.GetAt(0, 0), 0.0f);
    EXPECT_EQ(asserts.hits.size(), 3u);
}

TEST(SpecRec, TransformSqrtAndAveraging) {
    testsupport::AssertRecorder asserts;
    const WORD counts[2] = {3, 2};
    CFftRec fft(2.0, 2, counts);
    fft.SetTime(CSDateTime(2026, 5, 4, 3, 2, 1));
    fft.SetAt(0, 0, CComplex(3, 4));
    fft.SetAt(0, 2, CComplex(-1, 0));
    fft.SetAt(1, 1, CComplex(0, -2));

    CSpecRec spec;
    spec.Create(0.5f, 2, counts);
    ASSERT_EQ(spec.Transform(fft), 1);
    EXPECT_EQ(spec.GetTime(), fft.GetTime());
    EXPECT_EQ(spec.GetAt(0, 0), 25.0f);
    EXPECT_EQ(spec.GetAt(0, 1), 0.0f);
    EXPECT_EQ(spec.GetAt(0, 2), 1.0f);
    EXPECT_EQ(spec.GetAt(1, 1), 4.0f);

    CSpecRec sum(spec);
    sum += spec;
    sum += spec;
    sum /= 3.0f;
    EXPECT_EQ(sum.GetAt(0, 0), 25.0f);
    sum.Sqrt();
    EXPECT_EQ(sum.GetAt(0, 0), 5.0f);
    EXPECT_EQ(sum.GetAt(1, 1), 2.0f);
    EXPECT_TRUE(asserts.hits.empty());

    // Shapes that differ are asserted and leave the record as it was.
    CSpecRec other;
    other.Create(0.5f, 2, WORD(3));
    other.SetAt(0, 0, 7.0f);
    EXPECT_EQ(other.Transform(fft), 0);
    other += spec;
    EXPECT_EQ(other.GetAt(0, 0), 7.0f);
    EXPECT_EQ(asserts.hits.size(), 2u);
}

// Triangular weights (m - j) / m^2 with m = width / 2 + 1; the first
// width / 2 + 2 and the last m values of every channel become 0.  On
// x[i] = i^2 the smoothed value is i^2 + 2 (1^2 w1 + 2^2 w2 + ...).
TEST(SpecRec, SmoothWindowKeepsOnlyTheInnerValues) {
    const WORD counts[4] = {10, 12, 4, 6};
    CSpecRec rec;
    rec.Create(1.0f, 4, counts);
    for (unsigned c = 0; c < 4; ++c)
        for (unsigned i = 0; i < counts[c]; ++i) rec.SetAt(c, i, float(i * i));
    CSpecRec wide(rec);
    CSpecRec none(rec);

    rec.SmoothWindow(2);  // weights 1/2, 1/4
    for (unsigned i = 0; i < 10; ++i) {
        if (i >= 3 && i <= 7)
            EXPECT_FLOAT_EQ(rec.GetAt(0, i), i * i + 0.5f) << i;
        else
            EXPECT_EQ(rec.GetAt(0, i), 0.0f) << i;
    }
    for (unsigned i = 0; i < 12; ++i) EXPECT_EQ(rec.GetAt(1, i) != 0.0f, i >= 3 && i <= 9) << i;
    for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(rec.GetAt(2, i), 0.0f);  // too short for the window

    wide.SmoothWindow(5);  // as 4: weights 3/9, 2/9, 1/9
    for (unsigned i = 0; i < 12; ++i) {
        if (i >= 4 && i <= 8)
            EXPECT_NEAR(wide.GetAt(1, i), i * i + 4.0f / 3.0f, 1e-4) << i;
        else
            EXPECT_EQ(wide.GetAt(1, i), 0.0f) << i;
    }

    none.SmoothWindow(0);  // weight 1: the values themselves, edges cleared
    for (unsigned i = 0; i < 6; ++i) EXPECT_EQ(none.GetAt(3, i), (i >= 2 && i <= 4) ? float(i * i) : 0.0f) << i;
}

TEST(SpecRec, ArchiveFormByHand) {
    CSpecRec rec;
    const WORD counts[2] = {2, 1};
    rec.Create(0.5f, 2, counts);
    rec.SetTime(CSDateTime(46000.25));
    rec.SetAt(0, 0, 1.5f);
    rec.SetAt(0, 1, -2.0f);
    rec.SetAt(1, 0, 1e-12f);
    auto bytes = testsupport::StoreToBytes([&](CArchive& ar) { rec.Serialize(ar); });
    EXPECT_EQ(bytes, SmallRecordBytes(1).data);

    CSpecRec back;
    testsupport::LoadFromBytes(bytes, [&](CArchive& ar) { back.Serialize(ar); });
    EXPECT_TRUE(back.HasSameShape(rec));
    EXPECT_EQ(back.GetMaxNumFreq(), 2u);
    EXPECT_EQ(back.GetTime(), CSDateTime(46000.25));
    EXPECT_EQ(back.GetAt(0, 1), -2.0f);
    EXPECT_EQ(back.GetAt(1, 0), 1e-12f);

    // An empty record: no channels, one offset.
    CSpecRec empty;
    auto emptyBytes = testsupport::StoreToBytes([&](CArchive& ar) { empty.Serialize(ar); });
    EXPECT_EQ(emptyBytes, Bytes().u16(1).f32(0).u16(0).f64(0).u16(0).u16(0).data);

    // As an object in an archive.
    auto objBytes = testsupport::StoreToBytes([&](CArchive& ar) { ar.WriteObject(&rec); });
    EXPECT_EQ(objBytes, Bytes().newClass("CSpecRec").append(SmallRecordBytes(1)).data);
    testsupport::LoadFromBytes(objBytes, [&](CArchive& ar) {
        std::unique_ptr<CObject> obj(ar.ReadObject(RUNTIME_CLASS(CSpecRec)));
        ASSERT_NE(obj, nullptr);
        EXPECT_EQ(static_cast<CSpecRec*>(obj.get())->GetAt(0, 0), 1.5f);
    });
}

TEST(SpecRec, LoadRefusesNewerVersionsAndHostileCounts) {
    EXPECT_EQ(ArchiveCause(SmallRecordBytes(0).data), -1);
    EXPECT_EQ(ArchiveCause(SmallRecordBytes(2).data), CArchiveException::badSchema);

    // 60000 channels announced, 6 bytes of offsets present.
    Bytes many;
    many.u16(1).f32(0.5f).u16(2).f64(0).u16(60000).u16(0).u16(1).u16(2);
    EXPECT_EQ(ArchiveCause(many.data), CArchiveException::endOfFile);

    // Values announced beyond the data.
    Bytes shortValues;
    shortValues.u16(1).f32(0.5f).u16(60000).f64(0).u16(1).u16(0).u16(60000).f32(1);
    EXPECT_EQ(ArchiveCause(shortValues.data), CArchiveException::endOfFile);

    // Offsets that go backwards, that do not start at 0, or a channel longer
    // than the stored maximum.
    Bytes backwards;
    backwards.u16(1).f32(0.5f).u16(2).f64(0).u16(2).u16(0).u16(2).u16(1).f32(1).f32(2);
    EXPECT_EQ(ArchiveCause(backwards.data), CArchiveException::genericException);
    Bytes notZero;
    notZero.u16(1).f32(0.5f).u16(2).f64(0).u16(1).u16(1).u16(2).f32(1).f32(2);
    EXPECT_EQ(ArchiveCause(notZero.data), CArchiveException::genericException);
    Bytes overMax;
    overMax.u16(1).f32(0.5f).u16(1).f64(0).u16(1).u16(0).u16(2).f32(1).f32(2);
    EXPECT_EQ(ArchiveCause(overMax.data), CArchiveException::genericException);

    // Every truncation of a valid record fails cleanly.
    const auto full = SmallRecordBytes(1).data;
    for (size_t len = 0; len < full.size(); ++len) {
        std::vector<BYTE> cut(full.begin(), full.begin() + len);
        EXPECT_EQ(ArchiveCause(cut), CArchiveException::endOfFile) << len;
    }

    // A failed load leaves the record as it was.
    CSpecRec rec;
    rec.Create(2.0f, 1, WORD(3));
    try {
        testsupport::LoadFromBytes(backwards.data, [&](CArchive& ar) { rec.Serialize(ar); });
    } catch (const CArchiveException&) {
    }
    EXPECT_EQ(rec.GetNumFreq(0), 3u);
    EXPECT_EQ(rec.GetFreqRes(), 2.0f);
}
