// Status items: packed property values, archive versions 0 to 4 byte by
// byte, hostile item data, and the sorted item array.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "platform/Archive.h"
#include "platform/File.h"
#include "status/StatusBytes.h"
#include "status/stsitm.h"

using statustest::Bytes;
using statustest::GroupFields;
using statustest::Packed;
using statustest::StringArray;
using testsupport::AssertRecorder;

namespace {

// Archive prefix: one group object (class pid 1, object pid 2) with the item
// keys given.
Bytes GroupObject(std::vector<std::string> keys, unsigned color = 0x00FF00) {
    GroupFields f;
    f.itemKeys = keys;
    f.itemDescs = keys;
    f.color = color;
    return Bytes().newClass("CStatusGroup").append(statustest::GroupV7(f));
}

// Loads the group and then one item; the item is returned, the group kept.
struct Loaded {
    std::unique_ptr<CObject> group;
    std::unique_ptr<CStatusItem> item;
};

Loaded LoadGroupAndItem(const Bytes& data) {
    Loaded out;
    testsupport::LoadFromBytes(data.data, [&](CArchive& ar) {
        out.group.reset(ar.ReadObject(nullptr));
        out.item.reset(static_cast<CStatusItem*>(ar.ReadObject(RUNTIME_CLASS(CStatusItem))));
    });
    return out;
}

int LoadCause(const Bytes& data) {
    try {
        LoadGroupAndItem(data);
    } catch (CArchiveException& e) {
        return e.m_cause;
    }
    return -1;
}

Bytes ItemHead(unsigned version, unsigned groupRef = 2) {
    return Bytes().newClass("CStatusItem").u16(version).u16(groupRef).i32(100).f64(45000.5).i32(250).f64(45000.6);
}

}  // namespace

TEST(StatusItemTest, Version4StoresGroupReferenceAndPackedValues) {
    CStatusGroup group("8D1996CC-55A2-41B7-9477-839A46DE2ABE", "Bookmarks", "Signets", 3, 0, 0, -1, "", 0x00FF00,
                       2, 1, 0);
    group.AddProperty("Mean", "Mean");
    group.AddProperty("STD", "STD");
    CStatusItem item(&group, 100, CSDateTime(45000.5), 250, CSDateTime(45000.6), "O1", "Réveil", "vu", 0x0000FF, 1);
    item.SetPropertyValueAt("std", "2.5");
    item.SetPropertyValueAt("MEAN", "10");

    auto bytes = testsupport::StoreToBytes([&](CArchive& ar) {
        ar.WriteObject(&group);
        ar.WriteObject(&item);
    });
    GroupFields f;
    f.itemKeys = f.itemDescs = {"Mean", "STD"};
    Bytes expected;
    expected.newClass("CStatusGroup").append(statustest::GroupV7(f));
    expected.newClass("CStatusItem").u16(4).u16(2).i32(100).f64(45000.5).i32(250).f64(45000.6);
    expected.str("O1").str("R\xE9veil").str("vu").u32(0x0000FF).u32(1).append(Packed({"10", "2.5"}));
    EXPECT_EQ(bytes, expected.data);

    auto loaded = LoadGroupAndItem(expected);
    EXPECT_EQ(loaded.item->GetGroup(), loaded.group.get());
    EXPECT_EQ(loaded.item->GetName(), "Réveil");
    EXPECT_EQ(loaded.item->GetPropertyValueAt("Std"), "2.5");
    EXPECT_EQ(loaded.item->GetPropertyValueAt(0), "10");
    EXPECT_EQ(loaded.item->GetEndSample(), 250);
    EXPECT_EQ(loaded.item->GetBeginTime(), CSDateTime(45000.5));
    CStatusItem copy(*loaded.item);
    EXPECT_TRUE(copy == *loaded.item);
}

TEST(StatusItemTest, OldVersionsTakeDefaultsAndStringArrays) {
    // Version 3: colour and visibility stored, values as a string array.
    Bytes v3 = GroupObject({"a", "b"});
    v3.append(ItemHead(3)).str("C4").str("n").str("").u32(5).u32(0).append(StringArray({"x", "yy"}));
    auto l3 = LoadGroupAndItem(v3);
    auto& i3 = l3.item;
    EXPECT_EQ(i3->GetColor(), 5u);
    EXPECT_EQ(i3->GetVisibility(), 0u);
    EXPECT_EQ(i3->GetPropertyValues().GetCount(), 2);
    EXPECT_EQ(i3->GetPropertyValueAt("B"), "yy");

    // Version 2: the group's colour and visibility 1.
    Bytes v2 = GroupObject({"a"}, 0x123456);
    v2.append(ItemHead(2)).str("C4").str("n").str("c").append(StringArray({"1"}));
    auto l2 = LoadGroupAndItem(v2);
    auto& i2 = l2.item;
    EXPECT_EQ(i2->GetColor(), 0x123456u);
    EXPECT_EQ(i2->GetVisibility(), 1u);
    EXPECT_EQ(i2->GetComments(), "c");
    EXPECT_EQ(i2->GetPropertyValueAt("a"), "1");

    // Versions 1 and 0: a montage reference and a channel index; without a
    // montage there is no channel name.
    for (unsigned version : {1u, 0u}) {
        AssertRecorder asserts;
        Bytes old = GroupObject({});
        old.append(ItemHead(version)).u16(0).u16(3).str("n").str("").append(StringArray({}));
        auto loaded = LoadGroupAndItem(old);
        auto& item = loaded.item;
        EXPECT_EQ(item->GetChannel(), "");
        EXPECT_EQ(item->GetName(), "n");
        EXPECT_TRUE(asserts.Saw("stsitm", 831));
    }
    Bytes withMontage = GroupObject({});
    withMontage.append(ItemHead(1)).append(statustest::OldRecordingMontage()).u16(0).str("n").str("");
    withMontage.append(StringArray({}));
    auto loaded = LoadGroupAndItem(withMontage);
    EXPECT_EQ(loaded.item->GetChannel(), "Fp1-F3");
}

TEST(StatusItemTest, DamagedItemsAreRefused) {
    auto tail = [](const Bytes& packed) {
        return Bytes().str("").str("").str("").u32(0).u32(1).append(packed);
    };
    Bytes newer = GroupObject({});
    newer.append(ItemHead(5));
    EXPECT_EQ(LoadCause(newer), CArchiveException::badSchema);

    Bytes packedNewer = GroupObject({"a"});
    packedNewer.append(ItemHead(4)).append(tail(Bytes().u16(2).i32(0)));
    EXPECT_EQ(LoadCause(packedNewer), CArchiveException::badSchema);

    // Three values claimed, two terminators present.
    Bytes fewStrings = GroupObject({"a"});
    fewStrings.append(ItemHead(4)).append(tail(Bytes().u16(1).i32(3).i32(4).raw(std::string("a\0b\0", 4))));
    EXPECT_EQ(LoadCause(fewStrings), CArchiveException::genericException);

    // The last value is not terminated.
    Bytes open = GroupObject({"a"});
    open.append(ItemHead(4)).append(tail(Bytes().u16(1).i32(1).i32(3).raw(std::string("a\0b", 3))));
    EXPECT_EQ(LoadCause(open), CArchiveException::genericException);

    // A used size far beyond the data.
    Bytes huge = GroupObject({"a"});
    huge.append(ItemHead(4)).append(tail(Bytes().u16(1).i32(1).i32(0x7FFFFFFF)));
    EXPECT_EQ(LoadCause(huge), CArchiveException::endOfFile);

    Bytes negative = GroupObject({"a"});
    negative.append(ItemHead(4)).append(tail(Bytes().u16(1).i32(-4)));
    EXPECT_EQ(LoadCause(negative), CArchiveException::genericException);

    // The group reference names an object never written, or an object that
    // is not a group.
    EXPECT_EQ(LoadCause(GroupObject({}).append(ItemHead(4, 9))), CArchiveException::badIndex);
    Bytes notGroup = Bytes().newClass("CStringArray").u16(0);
    notGroup.append(ItemHead(4));
    EXPECT_EQ(LoadCause(notGroup), CArchiveException::badClass);
}

// An item archived alone carries its group inline; read back, it owns that
// group, and so do its copies.
TEST(StatusItemTest, AnItemArchivedAloneBringsItsGroup) {
    CStatusGroup group("8D1996CC-55A2-41B7-9477-839A46DE2ABE", "Bookmarks", "", 3, 0, 0, -1, "", 0, 0, 1, 0);
    CStatusItem item(&group, 10, CSDateTime(2026, 1, 31, 22, 5, 0), 20, CSDateTime(2026, 1, 31, 22, 5, 1), "",
                     "Signet", "", 0, 1);
    CMemFile out;
    {
        CArchive ar(&out, CArchive::store);
        ar.WriteObject(&item);
        ar.Close();
    }
    const std::vector<BYTE> bytes = out.Detach();
    CMemFile in(bytes.data(), bytes.size());
    std::unique_ptr<CStatusItem> copy;
    {
        CArchive ar(&in, CArchive::load);
        copy.reset(static_cast<CStatusItem*>(ar.ReadObject(RUNTIME_CLASS(CStatusItem))));
    }
    ASSERT_TRUE(copy);
    ASSERT_TRUE(copy->GetGroup());
    EXPECT_EQ(copy->GetGroup()->GetGroupName(), "Bookmarks");
    EXPECT_EQ(copy->GetName(), "Signet");
    CStatusItem second(*copy);
    copy.reset();
    EXPECT_EQ(second.GetGroup()->GetGroupID(), "8D1996CC-55A2-41B7-9477-839A46DE2ABE");
}

TEST(StatusItemTest, PropertyValuesByKeyAndIndex) {
    AssertRecorder asserts;
    CStatusGroup group;
    group.AddProperty("A", "");
    group.AddProperty("B", "");
    group.AddProperty("C", "");
    CStatusItem item;
    EXPECT_EQ(item.GetPropertyValueAt("A"), "");
    item.SetPropertyValueAt("A", "x");  // no group: nothing happens
    EXPECT_EQ(item.GetNumProperties(), 0);
    item.SetGroup(&group);
    item.SetPropertyValueAt("a", "1");
    item.SetPropertyValueAt("b", "22");
    item.SetPropertyValueAt("c", "333");
    EXPECT_EQ(item.GetNumProperties(), 3);
    EXPECT_EQ(item.GetPropertyKeyAt(2), "C");

    // A longer value in the middle keeps the values after it; a shorter one too.
    item.SetPropertyValueAt("B", "a much longer value");
    EXPECT_EQ(item.GetPropertyValueAt("A"), "1");
    EXPECT_EQ(item.GetPropertyValueAt("B"), "a much longer value");
    EXPECT_EQ(item.GetPropertyValueAt("C"), "333");
    item.SetPropertyValueAt(1, "");
    EXPECT_EQ(item.GetPropertyValueAt(1), "");
    EXPECT_EQ(item.GetPropertyValueAt(2), "333");
    EXPECT_EQ(item.GetPropertyValues().GetUsedSize(), 2 + 1 + 4);

    EXPECT_TRUE(asserts.hits.empty());
    item.SetPropertyValueAt("Unknown", "v");
    EXPECT_TRUE(asserts.Saw("stsitm", 1011));
    EXPECT_EQ(item.GetPropertyValueAt("Unknown"), "");
    EXPECT_EQ(item.GetPropertyValueAt(2), "333");

    // An index past the values asserts and reads as empty.
    asserts.hits.clear();
    EXPECT_EQ(item.GetPropertyValueAt(3), "");
    EXPECT_FALSE(asserts.hits.empty());
}

TEST(StatusItemTest, PackedValuesRoundTripAccentedText) {
    CPackedStrings values;
    values.SetSize(2);
    values.SetAt(0, "Éveil");
    values.SetAt(1, "ok");
    auto bytes = testsupport::StoreToBytes([&](CArchive& ar) { values.Serialize(ar); });
    EXPECT_EQ(bytes, Packed({"\xC9veil", "ok"}).data);
    CPackedStrings back;
    testsupport::LoadFromBytes(bytes, [&](CArchive& ar) { back.Serialize(ar); });
    EXPECT_EQ(std::string(back.GetAt(0)), "Éveil");
    EXPECT_TRUE(back == values);

    CPackedStrings none;
    EXPECT_EQ(testsupport::StoreToBytes([&](CArchive& ar) { none.Serialize(ar); }), Packed({}).data);
}

TEST(StatusItemArrayTest, KeepsItemsOrderedByBeginThenEndSample) {
    CStatusItemArray items;
    auto add = [&](LONG b, LONG e, const char* name) {
        auto* it = new CStatusItem(nullptr, b, CSDateTime(), e, CSDateTime(), "", name, "", 0, 1);
        return items.InsertSorted(it);
    };
    add(10, 20, "a");
    add(5, 50, "b");
    add(10, 15, "c");
    add(10, 20, "d");  // equal range: after "a"
    add(0, 1, "e");
    std::vector<std::string> order;
    for (int i = 0; i < items.GetSize(); ++i) order.push_back(items.GetItemAt(i)->GetName());
    EXPECT_EQ(order, (std::vector<std::string>{"e", "b", "c", "a", "d"}));
    EXPECT_EQ(items.Compare(items.GetAt(3), items.GetAt(4)), 0);
    EXPECT_LT(items.Compare(items.GetAt(2), items.GetAt(3)), 0);
    CStatusItemKey key{10, 20};
    EXPECT_EQ(items.Find(&key), 3);
    CStatusItemKey missing{10, 16};
    EXPECT_EQ(items.Find(&missing), -1);
    EXPECT_EQ(items.LowerBound(&missing), 3);

    // A file that holds items out of order is sorted when read.
    CStatusGroup group;
    CStatusItemArray reversed;
    for (int i = 0; i < 4; ++i)
        reversed.Add(new CStatusItem(&group, 40 - 10 * i, CSDateTime(), 50, CSDateTime(), "", "", "", 0, 1));
    auto bytes = testsupport::StoreToBytes([&](CArchive& ar) {
        ar.WriteObject(&group);
        reversed.Serialize(ar);
    });
    CStatusItemArray loaded;
    std::unique_ptr<CObject> g;
    testsupport::LoadFromBytes(bytes, [&](CArchive& ar) {
        g.reset(ar.ReadObject(nullptr));
        loaded.Serialize(ar);
    });
    ASSERT_EQ(loaded.GetSize(), 4);
    EXPECT_TRUE(loaded.IsSorted());
    EXPECT_EQ(loaded.GetItemAt(0)->GetBeginSample(), 10);
    loaded.DeleteAll();
    reversed.DeleteAll();
    items.DeleteAll();
}
