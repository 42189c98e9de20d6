// Byte format of the object archive: scalars, counts, both string forms,
// objects with class records and back references, and refusal of bad data.
#include <gtest/gtest.h>

#include <memory>

#include "platform/Archive.h"
#include "platform/Collections.h"
#include "support/TestSupport.h"

using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

namespace {

// A small serializable class: a value, an owned child and a reference.
class CTestNode : public CObject {
    DECLARE_SERIAL(CTestNode)
public:
    CTestNode() = default;
    explicit CTestNode(DWORD v) : value(v) {}
    ~CTestNode() override { delete child; }
    void Serialize(CArchive& ar) override {
        if (ar.IsStoring()) {
            ar << value;
            ar.WriteObject(child);
            ar.WriteObject(ref);
        } else {
            ar >> value;
            child = static_cast<CTestNode*>(ar.ReadObject(RUNTIME_CLASS(CTestNode)));
            ref = static_cast<CTestNode*>(ar.ReadReference(RUNTIME_CLASS(CTestNode), true));
        }
    }
    DWORD value = 0;
    CTestNode* child = nullptr;  // owned
    CTestNode* ref = nullptr;    // not owned
};
IMPLEMENT_SERIAL(CTestNode, CObject, 1)

class CTestLeaf : public CObject {
    DECLARE_SERIAL(CTestLeaf)
public:
    void Serialize(CArchive& ar) override {
        if (ar.IsStoring()) ar << w;
        else ar >> w;
    }
    WORD w = 0;
};
IMPLEMENT_SERIAL(CTestLeaf, CObject, 1)

int CauseOf(const std::vector<BYTE>& bytes, const std::function<void(CArchive&)>& fn) {
    try {
        LoadFromBytes(bytes, fn);
    } catch (const CArchiveException& e) {
        return e.m_cause;
    }
    return -1;
}

}  // namespace

TEST(ArchiveTest, ScalarsAreLittleEndian) {
    auto bytes = StoreToBytes([](CArchive& ar) {
        ar << BYTE(0x12) << WORD(0x3456) << DWORD(0x789ABCDE) << int(-2) << short(-3) << 1.5f << 2.0
           << static_cast<long long>(-1);
    });
    Bytes expected;
    expected.u8(0x12).u16(0x3456).u32(0x789ABCDE).i32(-2).u16(0xFFFD).f32(1.5f).f64(2.0).u64(~0ull);
    EXPECT_EQ(bytes, expected.data);
    LoadFromBytes(bytes, [](CArchive& ar) {
        BYTE b; WORD w; DWORD d; int i; short s; float f; double x; long long q;
        ar >> b >> w >> d >> i >> s >> f >> x >> q;
        EXPECT_EQ(b, 0x12); EXPECT_EQ(w, 0x3456); EXPECT_EQ(d, 0x789ABCDEu); EXPECT_EQ(i, -2);
        EXPECT_EQ(s, -3); EXPECT_EQ(f, 1.5f); EXPECT_EQ(x, 2.0); EXPECT_EQ(q, -1);
    });
}

TEST(ArchiveTest, CountsSwitchToTheLongFormAt0xFFFF) {
    auto bytes = StoreToBytes([](CArchive& ar) { ar.WriteCount(0xFFFE); ar.WriteCount(0xFFFF); ar.WriteCount(70000); });
    EXPECT_EQ(bytes, Bytes().u16(0xFFFE).u16(0xFFFF).u32(0xFFFF).u16(0xFFFF).u32(70000).data);
    LoadFromBytes(bytes, [](CArchive& ar) {
        EXPECT_EQ(ar.ReadCount(), 0xFFFEu);
        EXPECT_EQ(ar.ReadCount(), 0xFFFFu);
        EXPECT_EQ(ar.ReadCount(), 70000u);
    });
}

TEST(ArchiveTest, NarrowStringsUseWindows1252AndThreeLengthForms) {
    std::string mid(300, 'x'), big(70000, 'y');
    auto bytes = StoreToBytes([&](CArchive& ar) { ar << std::string("Hélène €") << std::string(254, 'a') << mid << big; });
    Bytes expected;
    expected.u8(8).raw("H\xE9l\xE8ne \x80");
    expected.u8(0xFE).raw(std::string(254, 'a'));
    expected.u8(0xFF).u16(300).raw(mid);
    expected.u8(0xFF).u16(0xFFFF).u32(70000).raw(big);
    EXPECT_EQ(bytes, expected.data);
    LoadFromBytes(bytes, [&](CArchive& ar) {
        std::string a, b, c, d;
        ar >> a >> b >> c >> d;
        EXPECT_EQ(a, "Hélène €");
        EXPECT_EQ(b, std::string(254, 'a'));
        EXPECT_EQ(c, mid);
        EXPECT_EQ(d, big);
    });
}

TEST(ArchiveTest, TextWithoutWindows1252CodeUsesTheWideForm) {
    auto bytes = StoreToBytes([](CArchive& ar) { ar << std::string("Ωμ"); });
    EXPECT_EQ(bytes, Bytes().u8(0xFF).u16(0xFFFE).u8(2).u16(0x03A9).u16(0x03BC).data);
    LoadFromBytes(bytes, [](CArchive& ar) {
        std::string s;
        ar >> s;
        EXPECT_EQ(s, "Ωμ");
    });
    // A long wide string takes the WORD length prefix after the mark.
    std::string longWide;
    for (int i = 0; i < 300; ++i) longWide += "Ω";
    auto longBytes = StoreToBytes([&](CArchive& ar) { ar << longWide; });
    ASSERT_GE(longBytes.size(), 6u);
    EXPECT_EQ(std::vector<BYTE>(longBytes.begin(), longBytes.begin() + 6), Bytes().u8(0xFF).u16(0xFFFE).u8(0xFF).u16(300).data);
    EXPECT_EQ(longBytes.size(), 6u + 600u);
    LoadFromBytes(longBytes, [&](CArchive& ar) {
        std::string s;
        ar >> s;
        EXPECT_EQ(s, longWide);
    });
}

TEST(ArchiveTest, ObjectsTakeClassRecordsThenBackReferences) {
    CTestNode a(7), b(8);
    a.ref = &b;
    auto bytes = StoreToBytes([&](CArchive& ar) {
        ar.WriteObject(&a);  // class pid 1, a pid 2; a.child null, a.ref = b: known class, b pid 3
        ar.WriteObject(&b);  // back reference to b
        ar.WriteObject(nullptr);
    });
    Bytes expected;
    expected.newClass("CTestNode").u32(7).u16(0);                     // a: value, null child
    expected.u16(0x8001).u32(8).u16(0).u16(0);                        // a.ref = b: class 1, value, null, null
    expected.u16(3);                                                  // b again
    expected.u16(0);                                                  // null
    EXPECT_EQ(bytes, expected.data);

    LoadFromBytes(bytes, [](CArchive& ar) {
        std::unique_ptr<CTestNode> a(static_cast<CTestNode*>(ar.ReadObject(RUNTIME_CLASS(CTestNode))));
        // a.ref was read as a reference to a new object: the archive keeps it.
        ASSERT_NE(a->ref, nullptr);
        EXPECT_EQ(a->value, 7u);
        EXPECT_EQ(a->ref->value, 8u);
        EXPECT_EQ(ar.ReadReference(RUNTIME_CLASS(CTestNode)), a->ref);
        EXPECT_EQ(ar.ReadObject(nullptr), nullptr);
    });
}

TEST(ArchiveTest, ReferenceInsideItsOwnerResolvesToTheOwner) {
    CTestNode parent(1);
    parent.child = new CTestNode(2);
    parent.child->ref = &parent;
    auto bytes = StoreToBytes([&](CArchive& ar) { ar.WriteObject(&parent); });
    LoadFromBytes(bytes, [](CArchive& ar) {
        std::unique_ptr<CTestNode> p(static_cast<CTestNode*>(ar.ReadObject(RUNTIME_CLASS(CTestNode))));
        ASSERT_NE(p->child, nullptr);
        EXPECT_EQ(p->child->ref, p.get());
    });
}

TEST(ArchiveTest, BigPidsUseTheLongTags) {
    // 0x8000 leaves take pids 2..0x8001 after the class (pid 1).
    std::vector<std::unique_ptr<CTestLeaf>> leaves;
    for (int i = 0; i < 0x8000; ++i) {
        leaves.push_back(std::make_unique<CTestLeaf>());
        leaves.back()->w = static_cast<WORD>(i);
    }
    auto bytes = StoreToBytes([&](CArchive& ar) {
        for (auto& l : leaves) ar.WriteObject(l.get());
        ar.WriteObject(leaves[0x7FFC].get());  // pid 0x7FFE: short back reference
        ar.WriteObject(leaves[0x7FFD].get());  // pid 0x7FFF: long form
    });
    size_t tail = bytes.size() - 8;
    EXPECT_EQ(std::vector<BYTE>(bytes.begin() + static_cast<long>(tail), bytes.end()),
              Bytes().u16(0x7FFE).u16(0x7FFF).u32(0x7FFF).data);

    LoadFromBytes(bytes, [](CArchive& ar) {
        std::vector<std::unique_ptr<CObject>> owned;
        for (int i = 0; i < 0x8000; ++i) owned.emplace_back(ar.ReadObject(RUNTIME_CLASS(CTestLeaf)));
        EXPECT_EQ(static_cast<CTestLeaf*>(owned[0x7FFF].get())->w, 0x7FFF);
        EXPECT_EQ(ar.ReadReference(nullptr), owned[0x7FFC].get());
        EXPECT_EQ(ar.ReadReference(nullptr), owned[0x7FFD].get());
    });
}

TEST(ArchiveTest, BigClassPidUsesTheLongClassTag) {
    std::vector<std::unique_ptr<CTestLeaf>> leaves(0x7FFF);
    for (auto& l : leaves) l = std::make_unique<CTestLeaf>();
    CTestNode node(5);
    auto bytes = StoreToBytes([&](CArchive& ar) {
        for (auto& l : leaves) ar.WriteObject(l.get());  // pids 1..0x8000
        ar.WriteObject(&node);                           // class CTestNode takes 0x8001
        CTestNode second(6);
        ar.WriteObject(&second);                         // class tag 0x8001 in long form
    });
    Bytes tail;
    tail.u16(0x7FFF).u32(0x80008001u).u32(6).u16(0).u16(0);
    ASSERT_GE(bytes.size(), tail.data.size());
    EXPECT_EQ(std::vector<BYTE>(bytes.end() - static_cast<long>(tail.data.size()), bytes.end()), tail.data);
    LoadFromBytes(bytes, [](CArchive& ar) {
        std::vector<std::unique_ptr<CObject>> owned;
        for (int i = 0; i < 0x7FFF + 2; ++i) owned.emplace_back(ar.ReadObject(nullptr));
        EXPECT_EQ(static_cast<CTestNode*>(owned.back().get())->value, 6u);
    });
}

TEST(ArchiveTest, RefusesBadClassesIndexesAndTruncation) {
    // Unknown class name.
    auto unknown = Bytes().newClass("CNoSuchClass").data;
    EXPECT_EQ(CauseOf(unknown, [](CArchive& ar) { delete ar.ReadObject(nullptr); }), CArchiveException::badClass);
    // A known class that is not the one expected.
    auto leaf = Bytes().newClass("CTestLeaf").u16(1).data;
    EXPECT_EQ(CauseOf(leaf, [](CArchive& ar) { delete ar.ReadObject(RUNTIME_CLASS(CTestNode)); }),
              CArchiveException::badClass);
    // Object pid never assigned, class pid never assigned.
    EXPECT_EQ(CauseOf(Bytes().u16(5).data, [](CArchive& ar) { ar.ReadReference(nullptr); }), CArchiveException::badIndex);
    EXPECT_EQ(CauseOf(Bytes().u16(0x8003).data, [](CArchive& ar) { delete ar.ReadObject(nullptr); }),
              CArchiveException::badIndex);
    EXPECT_EQ(CauseOf(Bytes().u16(0x7FFF).u32(0x12345678).data, [](CArchive& ar) { ar.ReadReference(nullptr); }),
              CArchiveException::badIndex);
    // An owner must not receive an object that someone else already owns.
    auto twice = Bytes().newClass("CTestLeaf").u16(1).u16(2).data;
    EXPECT_EQ(CauseOf(twice, [](CArchive& ar) {
                  std::unique_ptr<CObject> first(ar.ReadObject(nullptr));
                  delete ar.ReadObject(nullptr);
              }),
              CArchiveException::badIndex);
    // Truncated in the middle of an object.
    auto truncated = Bytes().newClass("CTestNode").u16(7).data;
    EXPECT_EQ(CauseOf(truncated, [](CArchive& ar) { delete ar.ReadObject(nullptr); }), CArchiveException::endOfFile);
    // Any schema number is accepted: the object checks its own version.
    auto schema9 = Bytes().u16(0xFFFF).u16(9).u16(9).raw("CTestLeaf").u16(4).data;
    LoadFromBytes(schema9, [](CArchive& ar) {
        std::unique_ptr<CTestLeaf> l(static_cast<CTestLeaf*>(ar.ReadObject(nullptr)));
        EXPECT_EQ(l->w, 4);
    });
}

TEST(ArchiveTest, CountsThatLieAreRefusedBeforeAllocating) {
    // A string claiming 4 GB, arrays claiming millions of elements.
    EXPECT_EQ(CauseOf(Bytes().u8(0xFF).u16(0xFFFF).u32(0xFFFFFFF0u).raw("abc").data,
                      [](CArchive& ar) { std::string s; ar >> s; }),
              CArchiveException::endOfFile);
    EXPECT_EQ(CauseOf(Bytes().u16(0xFFFF).u32(0x40000000).u32(1).data,
                      [](CArchive& ar) { CDWordArray a; a.Serialize(ar); }),
              CArchiveException::endOfFile);
    EXPECT_EQ(CauseOf(Bytes().u16(0xFFFF).u32(0x7FFFFFFF).data,
                      [](CArchive& ar) { CObArray a; a.Serialize(ar); }),
              CArchiveException::endOfFile);
    EXPECT_EQ(CauseOf(Bytes().u16(0xFFFF).u32(0x7FFFFFFF).data,
                      [](CArchive& ar) { CStringArray a; a.Serialize(ar); }),
              CArchiveException::endOfFile);
}

TEST(ArchiveTest, DeepNestingIsRefusedWithoutExhaustingTheStack) {
    Bytes deep;
    deep.newClass("CTestNode").u32(0);
    for (int i = 0; i < 100000; ++i) deep.u16(0x8001).u32(0);
    EXPECT_EQ(CauseOf(deep.data, [](CArchive& ar) { delete ar.ReadObject(nullptr); }),
              CArchiveException::genericException);
}

TEST(ArchiveTest, CollectionsHaveTheirArchiveForms) {
    CWordArray words;
    words.Add(1);
    words.Add(0xBEEF);
    CStringArray strings;
    strings.Add("a");
    strings.Add("");
    CMapDWordToString map;
    map.SetAt(9, "nine");
    map.SetAt(2, "two");
    CDoubleArray doubles;
    doubles.Add(0.5);
    auto bytes = StoreToBytes([&](CArchive& ar) {
        words.Serialize(ar);
        strings.Serialize(ar);
        map.Serialize(ar);
        doubles.Serialize(ar);
    });
    Bytes expected;
    expected.u16(2).u16(1).u16(0xBEEF);
    expected.u16(2).str("a").str("");
    expected.u16(2).u32(2).str("two").u32(9).str("nine");
    expected.u16(1).f64(0.5);
    EXPECT_EQ(bytes, expected.data);
    LoadFromBytes(bytes, [&](CArchive& ar) {
        CWordArray w;
        CStringArray s;
        CMapDWordToString m;
        CDoubleArray d;
        w.Serialize(ar);
        s.Serialize(ar);
        m.Serialize(ar);
        d.Serialize(ar);
        EXPECT_EQ(w, words);
        EXPECT_EQ(s, strings);
        std::string v;
        EXPECT_TRUE(m.Lookup(9, v));
        EXPECT_EQ(v, "nine");
        EXPECT_EQ(d, doubles);
    });
}

TEST(ArchiveTest, CheckedIndexingThrowsInvalidArgument) {
    CWordArray a;
    a.Add(1);
    EXPECT_THROW(a.GetAt(1), CInvalidArgException);
    EXPECT_THROW(a.RemoveAt(-1), CInvalidArgException);
    EXPECT_EQ(a[0], 1);
}

TEST(ArchiveTest, FileArchiveReadsWhatItWrote) {
    testsupport::TempDir dir;
    std::string name = dir / "a.bin";
    {
        CFile f(name.c_str(), CFile::modeCreate | CFile::modeWrite);
        CArchive ar(&f, CArchive::store, 16);  // tiny buffer: many flushes
        for (DWORD i = 0; i < 1000; ++i) ar << i << std::string("s") ;
        ar.Close();
    }
    CFile f(name.c_str(), CFile::modeRead);
    CArchive ar(&f, CArchive::load, 16);
    for (DWORD i = 0; i < 1000; ++i) {
        DWORD v;
        std::string s;
        ar >> v >> s;
        ASSERT_EQ(v, i);
    }
    EXPECT_EQ(ar.GetRemaining(), 0u);
    DWORD extra;
    EXPECT_THROW(ar >> extra, CArchiveException);
}
