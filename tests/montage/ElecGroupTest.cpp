#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "montage/ElecGroup.h"
#include "support/TestSupport.h"

using testsupport::AssertRecorder;
using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

namespace {

using Table = int[18][8];

void FillAll(Table& t) {
    for (auto& row : t)
        for (int& v : row) v = 1;
}

struct Expect {
    const char* name;
    int x, y;
};

void ExpectElectrodes(const CElecGroup& g, const std::vector<Expect>& expected) {
    ASSERT_EQ(g.GetElectrodeCount(), static_cast<int>(expected.size()));
    for (size_t i = 0; i < expected.size(); ++i) {
        const CElectrode* e = g.GetElectrodeAt(static_cast<int>(i));
        EXPECT_STREQ(e->GetName(), expected[i].name) << i;
        EXPECT_EQ(*e->GetPosition(), CPoint(expected[i].x, expected[i].y)) << expected[i].name;
    }
}

CElecGroup Grid(int rows, int cols, int seq, int origin, const Table& t) {
    return CElecGroup("[A]", 0, rows, cols, &t, 2.0, 1.0, 255, seq, origin);
}

}  // namespace

TEST(ElecGroup, DefaultGroup) {
    CElecGroup g;
    EXPECT_STREQ(g.GetName(), "[DefGp]");
    EXPECT_EQ(g.GetNumRow(), 1);
    EXPECT_EQ(g.GetNumCol(), 1);
    EXPECT_EQ(g.GetElectrodeCount(), 0);
    EXPECT_EQ(g.GetColor(), 255u);
    EXPECT_EQ(g.GetInterDistance(), 2.0);
    EXPECT_EQ(g.GetContactSize(), 1.0);
    EXPECT_EQ(g.GetType(), 0);
    EXPECT_EQ(g.GetNameSequence(), 1);
    EXPECT_EQ(g.GetOriginPoint(), 1);
}

TEST(ElecGroup, GridNumberingByOriginAndSequence) {
    Table t{};
    FillAll(t);
    ExpectElectrodes(Grid(2, 3, 1, 1, t),
                     {{"A1", 1, 1}, {"A2", 1, 2}, {"A3", 1, 3}, {"A4", 2, 1}, {"A5", 2, 2}, {"A6", 2, 3}});
    ExpectElectrodes(Grid(2, 3, 2, 1, t),
                     {{"A1", 1, 1}, {"A2", 2, 1}, {"A3", 1, 2}, {"A4", 2, 2}, {"A5", 1, 3}, {"A6", 2, 3}});
    ExpectElectrodes(Grid(2, 3, 1, 2, t),
                     {{"A1", 1, 3}, {"A2", 1, 2}, {"A3", 1, 1}, {"A4", 2, 3}, {"A5", 2, 2}, {"A6", 2, 1}});
    ExpectElectrodes(Grid(2, 3, 2, 2, t),
                     {{"A1", 1, 3}, {"A2", 2, 3}, {"A3", 1, 2}, {"A4", 2, 2}, {"A5", 1, 1}, {"A6", 2, 1}});
    ExpectElectrodes(Grid(2, 3, 1, 3, t),
                     {{"A1", 2, 1}, {"A2", 2, 2}, {"A3", 2, 3}, {"A4", 1, 1}, {"A5", 1, 2}, {"A6", 1, 3}});
    ExpectElectrodes(Grid(2, 3, 3, 3, t),
                     {{"A1", 2, 1}, {"A2", 1, 1}, {"A3", 2, 2}, {"A4", 1, 2}, {"A5", 2, 3}, {"A6", 1, 3}});
    ExpectElectrodes(Grid(2, 3, 1, 4, t),
                     {{"A1", 2, 3}, {"A2", 2, 2}, {"A3", 2, 1}, {"A4", 1, 3}, {"A5", 1, 2}, {"A6", 1, 1}});
    ExpectElectrodes(Grid(2, 3, 4, 4, t),
                     {{"A1", 2, 3}, {"A2", 1, 3}, {"A3", 2, 2}, {"A4", 1, 2}, {"A5", 2, 1}, {"A6", 1, 1}});
}

TEST(ElecGroup, EmptyPositionsLeaveGapsAndOnlyOnesCount) {
    Table t{};
    t[0][0] = 1;
    t[0][1] = 2;  // only 1 marks a contact
    t[1][0] = 1;
    t[1][1] = 1;
    ExpectElectrodes(Grid(2, 2, 1, 1, t), {{"A1", 1, 1}, {"A3", 2, 1}, {"A4", 2, 2}});
    // Entries outside rows x columns are ignored.
    Table u{};
    FillAll(u);
    ExpectElectrodes(Grid(1, 2, 1, 1, u), {{"A1", 1, 1}, {"A2", 1, 2}});
}

TEST(ElecGroup, StripAndDepthTypes) {
    Table t{};
    t[0][0] = 1;
    t[2][0] = 1;
    t[1][1] = 1;  // column 1 is never looked at by strips
    t[10][0] = 1;
    CElecGroup strip("[S]", 1, 12, 1, &t, 2.0, 1.0, 255, 1, 1);
    ExpectElectrodes(strip, {{"S1", 1, 1}, {"S3", 3, 1}, {"S11", 11, 1}});
    CElecGroup strip2("[S]", 2, 3, 2, &t, 2.0, 1.0, 255, 1, 1);
    ExpectElectrodes(strip2, {{"S1", 1, 1}, {"S3", 3, 1}});
    Table none{};
    CElecGroup depth("[D]", 3, 4, 1, &none, 2.0, 1.0, 255, 1, 1);
    ExpectElectrodes(depth, {{"D1", 1, 1}, {"D2", 2, 1}, {"D3", 3, 1}, {"D4", 4, 1}});
}

TEST(ElecGroup, SettersRebuildAndCheck) {
    Table t{};
    FillAll(t);
    CElecGroup g = Grid(2, 3, 1, 1, t);
    g.SetOriginPoint(4);
    EXPECT_STREQ(g.GetElectrodeAt(0)->GetName(), "A1");
    EXPECT_EQ(*g.GetElectrodeAt(0)->GetPosition(), CPoint(2, 3));
    g.SetName("[Grid]");
    EXPECT_STREQ(g.GetElectrodeAt(5)->GetName(), "Grid6");
    EXPECT_TRUE(g.IsElectrodeExist("grid4"));
    EXPECT_FALSE(g.IsElectrodeExist("Grid7"));
    EXPECT_FALSE(g.IsElectrodeExist(nullptr));
    g.SetGroupParams(3, 2, 1, &t);
    EXPECT_EQ(g.GetElectrodeCount(), 2);
    g.SetColor(0x123456);
    g.SetInterDistance(5.0);
    EXPECT_EQ(g.GetElectrodeCount(), 2);  // these setters do not rebuild
    EXPECT_EQ(g.GetColor(), 0x123456u);
    EXPECT_THROW(g.GetElectrodeAt(2), CInvalidArgException);

    AssertRecorder asserts;
    g.SetContactSize(-1.0);
    g.SetNameSequence(5);
    g.SetGroupParams(0, 9, 1, &t);  // 9 rows exceed a grid's limit of 8
    EXPECT_EQ(asserts.hits.size(), 3u);
    for (const auto& h : asserts.hits) EXPECT_EQ(h.first, "ElecGroup");
}

TEST(ElecGroup, ConstructorAssertsBadArguments) {
    Table t{};
    AssertRecorder asserts;
    CElecGroup g("NoBrackets", 7, 1, 9, &t, -1.0, 1.0, 0, 1, 1);
    // Too long, not bracketed, columns out of range, type out of range,
    // negative distance.
    EXPECT_EQ(asserts.hits.size(), 5u);
    EXPECT_EQ(g.GetElectrodeCount(), 0);  // an unknown type builds nothing
    AssertRecorder more;
    CElecGroup n(nullptr, 0, 1, 1, nullptr, 0.0, 0.0, 0, 1, 1);
    EXPECT_GE(more.hits.size(), 3u);  // null name, length, brackets, status
}

TEST(ElecGroup, NameRules) {
    EXPECT_TRUE(CElecGroup::IsElecGroup("[G]"));
    EXPECT_FALSE(CElecGroup::IsElecGroup("[X"));
    EXPECT_FALSE(CElecGroup::IsElecGroup(""));
    EXPECT_FALSE(CElecGroup::IsElecGroup(nullptr));
    EXPECT_TRUE(CElecGroup::CheckNameReservedInGroup("G", "g12", 3, 4));
    EXPECT_FALSE(CElecGroup::CheckNameReservedInGroup("G", "g12", 3, 3));
    EXPECT_TRUE(CElecGroup::CheckNameReservedInGroup("G", "G1", 1, 1));
    EXPECT_FALSE(CElecGroup::CheckNameReservedInGroup("G", "G0", 3, 3));
    EXPECT_FALSE(CElecGroup::CheckNameReservedInGroup("G", "G01", 3, 3));
    EXPECT_FALSE(CElecGroup::CheckNameReservedInGroup("G", "G", 3, 3));
    EXPECT_FALSE(CElecGroup::CheckNameReservedInGroup("G", "Gx1", 3, 3));
    EXPECT_FALSE(CElecGroup::CheckNameReservedInGroup("G", "H1", 3, 3));
    EXPECT_TRUE(CElecGroup::CheckNameReservedInGroup("\xC3\xA9", "\xC3\x89" "2", 1, 2));  // é / É
}

TEST(ElecGroup, CopyAndEquality) {
    Table t{};
    FillAll(t);
    CElecGroup a = Grid(2, 2, 1, 1, t);
    CElecGroup b;
    b = a;
    EXPECT_TRUE(a == b);
    b.SetColor(1);
    EXPECT_TRUE(a != b);
    b = a;
    b.SetOriginPoint(2);
    EXPECT_FALSE(a == b);  // same count, electrodes differ
    CElectrode e1("Fp1", nullptr), e2("Fp1", nullptr), e3("fp1", nullptr);
    EXPECT_TRUE(e1 == e2);
    EXPECT_TRUE(e1 != e3);
}

TEST(ElecGroupArchive, ElectrodeBytes) {
    const CPoint pos(2, -3);
    CElectrode e("G4", &pos);
    auto bytes = StoreToBytes([&](CArchive& ar) { e.Serialize(ar); });
    EXPECT_EQ(bytes, Bytes().u16(1).str("G4").i32(2).i32(-3).data);

    CElectrode back;
    LoadFromBytes(bytes, [&](CArchive& ar) { back.Serialize(ar); });
    EXPECT_TRUE(back == e);
}

TEST(ElecGroupArchive, ElectrodeRefusals) {
    CElectrode e;
    try {
        LoadFromBytes(Bytes().u16(2).str("G4").i32(1).i32(1).data, [&](CArchive& ar) { e.Serialize(ar); });
        FAIL();
    } catch (const CArchiveException& ex) {
        EXPECT_EQ(ex.m_cause, CArchiveException::badSchema);
    }
    try {
        LoadFromBytes(Bytes().u16(1).str("G4").i32(1).u16(0).data, [&](CArchive& ar) { e.Serialize(ar); });
        FAIL();
    } catch (const CArchiveException& ex) {
        EXPECT_EQ(ex.m_cause, CArchiveException::endOfFile);
    }
}

TEST(ElecGroupArchive, GroupBytesAndRoundTrip) {
    Table t{};
    t[0][0] = 1;
    t[1][1] = 1;
    CElecGroup g("[AB]", 0, 2, 2, &t, 3.5, 0.5, 0x00FF00, 1, 1);
    auto bytes = StoreToBytes([&](CArchive& ar) { ar << &g; });
    Bytes expect;
    expect.newClass("CElecGroup")
        .u16(1)
        .str("[AB]")
        .f64(0.5)
        .f64(3.5)
        .i32(0)   // type
        .i32(2)   // columns
        .i32(2)   // rows
        .i32(1)   // name sequence
        .u32(0x00FF00)
        .i32(1)   // origin point
        .u16(2)   // electrode count
        .newClass("CElectrode").u16(1).str("AB1").i32(1).i32(1)
        .u16(0x8003).u16(1).str("AB4").i32(2).i32(2);
    EXPECT_EQ(bytes, expect.data);

    CElecGroup* back = nullptr;
    LoadFromBytes(bytes, [&](CArchive& ar) { ar >> back; });
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(*back == g);
    EXPECT_EQ(back->IsElectrodeIncluded(0, 0), 1);
    EXPECT_EQ(back->IsElectrodeIncluded(0, 1), 0);
    EXPECT_EQ(back->IsElectrodeIncluded(1, 1), 1);
    delete back;
}

TEST(ElecGroupArchive, LoadKeepsNamesAndRebuildsStatusFromPositions) {
    // Names that numbering would not give stand as loaded.
    Bytes b;
    b.u16(1).str("[Q]").f64(1.0).f64(2.0).i32(0).i32(3).i32(2).i32(1).u32(255).i32(1).u16(1);
    b.newClass("CElectrode").u16(1).str("Custom").i32(2).i32(3);
    CElecGroup g;
    LoadFromBytes(b.data, [&](CArchive& ar) { g.Serialize(ar); });
    ASSERT_EQ(g.GetElectrodeCount(), 1);
    EXPECT_STREQ(g.GetElectrodeAt(0)->GetName(), "Custom");
    EXPECT_EQ(g.IsElectrodeIncluded(1, 2), 1);
    EXPECT_EQ(g.IsElectrodeIncluded(0, 0), 0);
}

TEST(ElecGroupArchive, HostileGroupsAreRefused) {
    auto header = [](int rows, int cols) {
        Bytes b;
        b.u16(1).str("[Q]").f64(1.0).f64(2.0).i32(0).i32(cols).i32(rows).i32(1).u32(255).i32(1);
        return b;
    };
    auto load = [](const Bytes& b) {
        CElecGroup g;
        LoadFromBytes(b.data, [&](CArchive& ar) { g.Serialize(ar); });
    };
    EXPECT_THROW(load(header(19, 2).u16(0)), CArchiveException);
    EXPECT_THROW(load(header(2, 9).u16(0)), CArchiveException);
    // A count the data cannot hold, and an element that is not an electrode.
    EXPECT_THROW(load(header(2, 2).u16(60000)), CArchiveException);
    Table t{};
    CElecGroup inner("[Z]", 3, 1, 1, &t, 1, 1, 1, 1, 1);
    auto nested = StoreToBytes([&](CArchive& ar) { ar << &inner; });
    Bytes withGroup = header(2, 2).u16(1);
    withGroup.data.insert(withGroup.data.end(), nested.begin(), nested.end());
    EXPECT_THROW(load(withGroup), CArchiveException);
    // Positions outside the table are kept as names but never index it.
    Bytes far = header(2, 2).u16(1);
    far.newClass("CElectrode").u16(1).str("Q1").i32(40).i32(-7);
    CElecGroup g;
    LoadFromBytes(far.data, [&](CArchive& ar) { g.Serialize(ar); });
    EXPECT_EQ(g.GetElectrodeCount(), 1);
}

TEST(ElecGroup, StatusTableRules) {
    Table ones{};
    FillAll(ones);
    Table zeros{};
    CElecGroup g;
    // A long strip takes all 18 rows of the table.
    g.SetGroupParams(2, 18, 1, &ones);
    EXPECT_EQ(g.GetElectrodeCount(), 18);
    EXPECT_EQ((*g.GetElectrodeStatusArray())[17][0], 1);
    // A grid copies only its 8 rows: the rows beyond keep what they held.
    g.SetGroupParams(0, 2, 2, &zeros);
    EXPECT_EQ(g.GetElectrodeCount(), 0);
    EXPECT_EQ((*g.GetElectrodeStatusArray())[7][0], 0);
    EXPECT_EQ((*g.GetElectrodeStatusArray())[17][0], 1);
    EXPECT_EQ(g.IsElectrodeIncluded(1, 1), 0);

    AssertRecorder asserts;
    EXPECT_EQ(g.IsElectrodeIncluded(2, 0), 0);  // row beyond the group
    EXPECT_EQ(g.IsElectrodeIncluded(0, 40), 0);
    EXPECT_EQ(asserts.hits.size(), 2u);
}
