// Signal records: shapes, assignment, assertions and the archive form.
#include <gtest/gtest.h>

#include <memory>

#include "records/SigRec.h"
#include "support/TestSupport.h"

using testsupport::AssertRecorder;
using testsupport::Bytes;

TEST(SigRecTest, PerChannelCountsBuildTheStartTable) {
    unsigned short counts[] = {4, 2, 0};
    CRawSigRec rec(3, counts);
    EXPECT_EQ(rec.GetNumChannels(), 3u);
    EXPECT_EQ(rec.GetNumSamples(), 4u);
    EXPECT_EQ(rec.GetTotalSamples(), 6u);
    const unsigned short* start = rec.GetStartTable();
    EXPECT_EQ(std::vector<unsigned short>(start, start + 4), (std::vector<unsigned short>{0, 4, 6, 6}));
    EXPECT_EQ(rec.GetNumSamples(2), 0u);

    CFmtSigRec even(2, 5u);
    EXPECT_EQ(even.GetNumSamples(1), 5u);
    EXPECT_EQ(even.GetTotalSamples(), 10u);
}

TEST(SigRecTest, ChannelIndexAssertions) {
    AssertRecorder asserts;
    CRawSigRec rec(2, 3u);
    EXPECT_EQ(rec.GetNumSamples(2), 0u);  // one past the last channel: allowed
    EXPECT_TRUE(asserts.hits.empty());
    rec.GetNumSamples(3);
    EXPECT_TRUE(asserts.Saw("RSIGREC", 133));
    CFmtSigRec fmt(2, 3u);
    fmt.SetAt(2, 1.0f);
    EXPECT_TRUE(asserts.Saw("FSIGREC", 176));
    fmt.SetAt(1, 2.5f);
    EXPECT_EQ(fmt.GetAt(1, 2), 2.5f);
    EXPECT_EQ(fmt.GetAt(0, 0), 0.0f);
}

TEST(SigRecTest, AssignmentReusesSameShapeAndRebuildsOtherShapes) {
    CRawSigRec a(2, 4u), b(2, 4u);
    b.SetAll(7);
    b.SetTime(CSDateTime(45000.5));
    short* before = a.GetData();
    a = b;
    EXPECT_EQ(a.GetData(), before);
    EXPECT_EQ(a.GetAt(1, 3), 7);
    EXPECT_EQ(a.GetTime(), CSDateTime(45000.5));

    unsigned short counts[] = {1, 2, 3};
    CRawSigRec c(3, counts);
    c.SetAt(2, 2, 9);
    a = c;
    EXPECT_EQ(a.GetNumChannels(), 3u);
    EXPECT_EQ(a.GetNumSamples(2), 3u);
    EXPECT_EQ(a.GetAt(2, 2), 9);
    EXPECT_EQ(a.GetNumSamples(), 3u);
}

TEST(SigRecTest, ArchiveFormIsByteExactAndRoundTrips) {
    unsigned short counts[] = {2, 1};
    CRawSigRec rec(2, counts);
    rec.SetTime(CSDateTime(40000.25));
    rec.SetAt(0, 0, -1);
    rec.SetAt(0, 1, 2);
    rec.SetAt(1, 0, 300);
    auto bytes = testsupport::StoreToBytes([&](CArchive& ar) { ar.WriteObject(&rec); });
    Bytes expected;
    expected.newClass("CRawSigRec").u16(1).f64(40000.25).u16(2).u16(2).u16(0).u16(2).u16(3);
    expected.u16(0xFFFF).u16(2).u16(300);
    EXPECT_EQ(bytes, expected.data);

    testsupport::LoadFromBytes(bytes, [&](CArchive& ar) {
        CRawSigRec* back = nullptr;
        ar >> back;
        std::unique_ptr<CRawSigRec> owner(back);
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(back->GetTime(), rec.GetTime());
        EXPECT_EQ(back->GetNumSamples(0), 2u);
        EXPECT_EQ(back->GetAt(0, 0), -1);
        EXPECT_EQ(back->GetAt(1, 0), 300);
    });

    CFmtSigRec fmt(1, 1u);
    fmt.SetAt(0, 0, 0.5f);
    auto fbytes = testsupport::StoreToBytes([&](CArchive& ar) { fmt.Serialize(ar); });
    EXPECT_EQ(fbytes, Bytes().u16(1).f64(0.0).u16(1).u16(1).u16(0).u16(1).f32(0.5f).data);
}

TEST(SigRecTest, VersionZeroReadsVersionTwoIsRefused) {
    auto v0 = Bytes().u16(0).f64(1.0).u16(1).u16(1).u16(0).u16(1).u16(42).data;
    testsupport::LoadFromBytes(v0, [](CArchive& ar) {
        CRawSigRec r;
        r.Serialize(ar);
        EXPECT_EQ(r.GetAt(0, 0), 42);
    });
    auto v2 = Bytes().u16(2).f64(1.0).u16(1).u16(1).u16(0).u16(1).u16(42).data;
    testsupport::LoadFromBytes(v2, [](CArchive& ar) {
        CRawSigRec r(1, 1u);
        r.SetAt(0, 0, 5);
        try {
            r.Serialize(ar);
            FAIL() << "version 2 accepted";
        } catch (const CArchiveException& e) {
            EXPECT_EQ(e.m_cause, CArchiveException::badSchema);
        }
        EXPECT_EQ(r.GetAt(0, 0), 5);  // nothing changed
    });
}

TEST(SigRecTest, DamagedStartTablesAreRefused) {
    // A decreasing table would point channels outside the samples.
    auto bad = Bytes().u16(1).f64(0).u16(2).u16(4).u16(0).u16(4).u16(1).data;
    for (int i = 0; i < 4; ++i) bad.push_back(0);
    EXPECT_THROW(testsupport::LoadFromBytes(bad, [](CArchive& ar) { CRawSigRec r; r.Serialize(ar); }), CArchiveException);
    // A table that claims more samples than the data holds.
    auto shortData = Bytes().u16(1).f64(0).u16(1).u16(60000).u16(0).u16(60000).u16(1).data;
    EXPECT_THROW(testsupport::LoadFromBytes(shortData, [](CArchive& ar) { CFmtSigRec r; r.Serialize(ar); }),
                 CArchiveException);
}
