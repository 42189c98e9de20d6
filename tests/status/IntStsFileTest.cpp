// The status file: the whole archive byte by byte, reading and writing on
// disk, damaged archives, and editing.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "status/GroupDefaults.h"
#include "status/IntStsFile.h"
#include "status/StsArchive.h"

using statustest::Bytes;
using statustest::Description;
using statustest::GroupFields;
using statustest::ItemFields;
using testsupport::AssertRecorder;

namespace {

GroupFields Bookmarks() {
    GroupFields f;
    f.description = "Signets";
    return f;
}

GroupFields Sections() {
    GroupFields f;
    f.id = groupid::kSampleSection;
    f.name = "Sample Section";
    f.description = "Section d'échantillon";
    f.description = "Section d'\xE9" "chantillon";
    f.type = 1;
    f.extent = 1;
    f.itemKeys = f.itemDescs = {"Note"};
    return f;
}

// A description with two groups and three items, built by hand.
Bytes SampleArchive(const Description& d) {
    ItemFields a;
    a.begin = a.end = 512;
    a.beginTime = a.endTime = 46000.5;
    a.name = "Signet";
    ItemFields b;
    b.groupIndex = 1;
    b.begin = 0;
    b.end = 256;
    b.beginTime = 46000.0;
    b.endTime = 46000.0 + 1.0 / 86400.0;
    b.name = "S1";
    b.values = {"ok"};
    ItemFields c = a;
    c.begin = c.end = 1024;
    c.name = "Signet 2";
    Bytes out = d.Prefix();
    out.append(statustest::GroupList({statustest::GroupV7(Bookmarks()), statustest::GroupV7(Sections())}));
    out.append(statustest::ItemList({statustest::ItemV4(b), statustest::ItemV4(a), statustest::ItemV4(c)}, 2));
    return out;
}

int LoadCause(CIntStsFile& sts, const Bytes& data, WORD maxVersion = 1) {
    try {
        sts.LoadFromMemory(data.data.data(), data.data.size(), maxVersion);
    } catch (CArchiveException& e) {
        return e.m_cause;
    }
    return -1;
}

void WriteFile(const std::string& path, const std::vector<BYTE>& data) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

// A codec of another format, stored as one WORD.
class CForeignTestCoDec : public CSigCoDec {
    DECLARE_SERIAL(CForeignTestCoDec)
public:
    void Serialize(CArchive& ar) override {
        WORD v = 0;
        if (ar.IsStoring()) ar << v;
        else ar >> v;
    }
    unsigned GetCompRecSize() const override { return 0; }
    unsigned GetNumChannels() const override { return 0; }
    unsigned GetSamplesRecord() const override { return 0; }
    unsigned short* GetSamplesChannel() const override { return nullptr; }
    CRawSigRec* CreateCompatibleRawSigRec() const override { return nullptr; }
    CFmtSigRec* CreateCompatibleFmtSigRec() const override { return nullptr; }
    void Compress(CRawSigRec*, CByteArray*) override {}
    void DeCompress(CByteArray*, CRawSigRec*) override {}
};
IMPLEMENT_SERIAL(CForeignTestCoDec, CSigCoDec, 1)

}  // namespace

TEST(IntStsFileTest, ACodecOfAnotherFormatAssertsButIsKept) {
    Description d;
    Bytes archive;
    archive.u16(1).append(statustest::ObjectBytes(d.header)).append(statustest::ObjectBytes(d.patient));
    archive.newClass("CForeignTestCoDec").u16(0);
    archive.append(statustest::ObjectBytes(d.calibration)).append(statustest::ObjectBytes(d.montage)).i32(0);
    archive.u16(0).u16(0);
    AssertRecorder asserts;
    CIntStsFile sts;
    sts.LoadFromMemory(archive.data.data(), archive.data.size());
    EXPECT_TRUE(asserts.Saw("IntStsFile", 666));
    EXPECT_TRUE(sts.GetSigCoDec()->IsKindOf(RUNTIME_CLASS(CForeignTestCoDec)));
    // Something that is no codec at all is refused.
    Bytes notCodec;
    notCodec.u16(1).append(statustest::ObjectBytes(d.header)).append(statustest::ObjectBytes(d.patient));
    notCodec.newClass("CStringArray").u16(0);
    EXPECT_EQ(LoadCause(sts, notCodec), CArchiveException::badClass);
}

TEST(IntStsFileTest, LoadsAndStoresTheWholeArchiveInOrder) {
    Description d;
    d.numRecords = 40;
    const Bytes archive = SampleArchive(d);
    CIntStsFile sts;
    sts.LoadFromMemory(archive.data.data(), archive.data.size());
    EXPECT_EQ(sts.GetNumRecords(), 40);
    ASSERT_EQ(sts.GetNumGroups(), 2u);
    ASSERT_EQ(sts.GetNumStatusItems(), 3u);
    EXPECT_EQ(sts.GetStatusItemAt(0)->GetName(), "S1");
    EXPECT_EQ(sts.GetStatusItemAt(0)->GetGroup(), sts.GetGroupAt(1));
    EXPECT_EQ(sts.GetStatusItemAt(0)->GetPropertyValueAt("note"), "ok");
    EXPECT_EQ(sts.GetStatusItemAt(2)->GetGroup(), sts.GetGroupAt(0));
    EXPECT_EQ(sts.GetSigCoDec()->GetCompRecSize(), 136u);
    EXPECT_EQ(sts.GetFileHeader()->GetCreationDateTime(), CSDateTime(46000.0));

    auto stored = testsupport::StoreToBytes([&](CArchive& ar) { sts.StoreToArchive(ar); });
    EXPECT_EQ(stored, archive.data);
}

TEST(IntStsFileTest, NewerFileVersionsAreRefusedUnlessTheCallerAllowsThem) {
    Description d;
    Bytes v2 = d.Prefix(2);
    v2.append(statustest::GroupList({})).append(statustest::ItemList({}, 0));
    CIntStsFile sts;
    EXPECT_EQ(LoadCause(sts, v2), CArchiveException::badSchema);
    EXPECT_EQ(LoadCause(sts, v2, 2), -1);
    Bytes v3 = d.Prefix(3);
    EXPECT_EQ(LoadCause(sts, v3, 2), CArchiveException::badSchema);
}

TEST(IntStsFileTest, DamagedArchivesAreRefusedAndChangeNothing) {
    Description d;
    const Bytes good = SampleArchive(d);
    CIntStsFile sts;
    sts.LoadFromMemory(good.data.data(), good.data.size());
    const auto before = testsupport::StoreToBytes([&](CArchive& ar) { sts.StoreToArchive(ar); });

    // Every truncation is refused.
    for (size_t cut = 0; cut < good.data.size(); cut += 7) {
        Bytes part;
        part.data.assign(good.data.begin(), good.data.begin() + static_cast<long>(cut));
        ASSERT_EQ(LoadCause(sts, part), CArchiveException::endOfFile) << cut;
    }

    const Bytes prefix = d.Prefix();
    const Bytes groups = statustest::GroupList({statustest::GroupV7(Bookmarks())});
    // An item count that claims more items than bytes remain.
    Bytes lying = prefix;
    lying.append(groups).u16(0xFFFF).u32(50000000);
    EXPECT_EQ(LoadCause(sts, lying), CArchiveException::endOfFile);

    // An item whose group reference names an object never written.
    ItemFields f;
    f.groupIndex = 30;
    Bytes dangling = prefix;
    dangling.append(groups).append(statustest::ItemList({statustest::ItemV4(f)}, 1));
    EXPECT_EQ(LoadCause(sts, dangling), CArchiveException::badIndex);

    // An item whose group reference names the codec (object 6).
    Bytes notGroup = prefix;
    notGroup.append(groups).u16(1).newClass("CStatusItem").u16(4).u16(6);
    EXPECT_EQ(LoadCause(sts, notGroup), CArchiveException::badClass);

    // An item without a group.
    Bytes noGroup = prefix;
    noGroup.append(groups).u16(1).newClass("CStatusItem").append(statustest::ItemV4(ItemFields()));
    noGroup.data[noGroup.data.size() - statustest::ItemV4(ItemFields()).data.size() + 2] = 0;
    EXPECT_EQ(LoadCause(sts, noGroup), CArchiveException::badIndex);

    // A null group, a group that is not a group, a missing header.
    Bytes nullGroup = prefix;
    nullGroup.u16(1).u16(0).u16(0);
    EXPECT_EQ(LoadCause(sts, nullGroup), CArchiveException::genericException);
    Bytes wrongClass = prefix;
    wrongClass.u16(1).newClass("CStringArray").u16(0);
    EXPECT_EQ(LoadCause(sts, wrongClass), CArchiveException::badClass);
    Bytes noHeader;
    noHeader.u16(1).u16(0);
    EXPECT_EQ(LoadCause(sts, noHeader), CArchiveException::genericException);

    EXPECT_EQ(testsupport::StoreToBytes([&](CArchive& ar) { sts.StoreToArchive(ar); }), before);
}

TEST(IntStsFileTest, ReadsAndWritesOnDisk) {
    testsupport::TempDir dir;
    const std::string name = dir / "REC.STS";
    Description d;
    const Bytes archive = SampleArchive(d);
    WriteFile(name, archive.data);

    CIntStsFile sts;
    ASSERT_EQ(sts.ReadStsFile(name.c_str(), CFile::modeReadWrite | CFile::shareExclusive), 1);
    EXPECT_EQ(sts.GetFileSize(), static_cast<LONGLONG>(archive.data.size()));
    EXPECT_FALSE(sts.IsReadOnly());
    EXPECT_FALSE(sts.IsChanged());
    sts.DeleteGroupAt(1);  // the section group and its item
    EXPECT_TRUE(sts.IsChanged());
    EXPECT_EQ(sts.GetNumStatusItems(), 2u);
    EXPECT_EQ(sts.Close(), 1);

    CIntStsFile again;
    ASSERT_EQ(again.ReadStsFile(name.c_str()), 1);
    EXPECT_TRUE(again.IsReadOnly());
    EXPECT_EQ(again.GetNumGroups(), 1u);
    EXPECT_EQ(again.GetNumStatusItems(), 2u);
    // The shorter description left nothing of the longer one behind.
    auto stored = testsupport::StoreToBytes([&](CArchive& ar) { again.StoreToArchive(ar); });
    EXPECT_EQ(again.GetFileSize(), static_cast<LONGLONG>(stored.size()));
    EXPECT_EQ(again.WriteStsFile(), 0);  // read-only

    CIntStsFile missing;
    EXPECT_EQ(missing.ReadStsFile((dir / "NONE.STS").c_str()), 0);
    EXPECT_TRUE(missing.IsIOError());
    EXPECT_EQ(missing.GetIOError(), 2);
    EXPECT_EQ(missing.WriteStsFile(), 0);

    // A damaged file leaves the open description and its file as they were.
    const std::string bad = dir / "BAD.STS";
    WriteFile(bad, std::vector<BYTE>(archive.data.begin(), archive.data.end() - 5));
    EXPECT_THROW(again.ReadStsFile(bad.c_str()), CArchiveException);
    EXPECT_EQ(again.GetNumGroups(), 1u);
    EXPECT_EQ(std::string(again.GetFileName()), name);
}

TEST(IntStsFileTest, EditingKeepsItemsOrderedAndGroupsOwned) {
    CIntStsFile sts;
    auto* group = new CStatusGroup(groupid::kAnnotation, "Annotation", "", 3, 0, 0, -1, "", 0, 0, 1, 0);
    group->AddProperty("Texte", "Texte");
    sts.AddGroup(group);
    for (int b : {300, 100, 200})
        sts.AddStatusItem(new CStatusItem(group, b, CSDateTime(), b + 10, CSDateTime(), "", "", "", 0, 1));
    EXPECT_EQ(sts.GetStatusItemAt(0)->GetBeginSample(), 100);
    // Equal ranges keep the order in which they were added, whether they
    // were appended at once or merged later.
    sts.AddStatusItem(new CStatusItem(group, 100, CSDateTime(), 110, CSDateTime(), "", "second", "", 0, 1));
    sts.AddStatusItem(new CStatusItem(group, 50, CSDateTime(), 60, CSDateTime(), "", "", "", 0, 1));
    sts.AddStatusItem(new CStatusItem(group, 100, CSDateTime(), 110, CSDateTime(), "", "third", "", 0, 1));
    EXPECT_EQ(sts.GetNumStatusItems(), 6u);
    EXPECT_EQ(sts.GetStatusItemAt(0)->GetBeginSample(), 50);
    EXPECT_EQ(sts.GetStatusItemAt(2)->GetName(), "second");
    EXPECT_EQ(sts.GetStatusItemAt(3)->GetName(), "third");
    sts.DeleteStatusItemAt(3);
    sts.DeleteStatusItemAt(2);
    sts.DeleteStatusItemAt(0);

    AssertRecorder asserts;
    CStatusGroup foreign;
    sts.AddStatusItem(new CStatusItem(&foreign, 0, CSDateTime(), 0, CSDateTime(), "", "", "", 0, 1));
    EXPECT_TRUE(asserts.Saw("IntStsFile", 181));
    EXPECT_EQ(sts.GetNumStatusItems(), 3u);
    sts.AddGroup(group);  // already the file's
    EXPECT_EQ(sts.GetNumGroups(), 1u);

    CStatusItem moved(*sts.GetStatusItemAt(0));
    moved.SetSampleRange(400, 410);
    sts.UpdateStatusItemAt(0, &moved);
    EXPECT_EQ(sts.GetStatusItemAt(2)->GetBeginSample(), 400);
    EXPECT_THROW(sts.UpdateStatusItemAt(3, &moved), CInvalidArgException);
    sts.DeleteStatusItemAt(0);
    EXPECT_EQ(sts.GetStatusItemAt(0)->GetBeginSample(), 300);

    CStatusGroup changed(*group);
    changed.AddProperty("Auteur", "Auteur");
    sts.UpdateGroupAt(0, &changed);
    EXPECT_EQ(sts.GetStatusItemAt(0)->GetPropertyValues().GetCount(), 2);
    EXPECT_EQ(sts.GetGroupAt(0), group);

    sts.DeleteGroupAt(0);
    EXPECT_EQ(sts.GetNumGroups(), 0u);
    EXPECT_EQ(sts.GetNumStatusItems(), 0u);
}

TEST(IntStsFileTest, EveryDamagedByteIsEitherReadOrRefused) {
    Description d;
    const Bytes good = SampleArchive(d);
    CIntStsFile sts;
    AssertRecorder quiet;
    int refused = 0;
    for (size_t at = 0; at < good.data.size(); ++at) {
        for (BYTE change : {BYTE(0xFF), BYTE(0x01), BYTE(0x80)}) {
            Bytes damaged = good;
            damaged.data[at] ^= change;
            try {
                sts.LoadFromMemory(damaged.data.data(), damaged.data.size());
                // Whatever was read is whole: every item has one of the groups.
                for (unsigned i = 0; i < sts.GetNumStatusItems(); ++i) {
                    const CStatusGroup* g = sts.GetStatusItemAt(i)->GetGroup();
                    bool found = false;
                    for (unsigned k = 0; k < sts.GetNumGroups(); ++k) found = found || sts.GetGroupAt(k) == g;
                    ASSERT_TRUE(found);
                }
            } catch (CException&) {
                ++refused;
            }
        }
    }
    EXPECT_GT(refused, 0);
}
