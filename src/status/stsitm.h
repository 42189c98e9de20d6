// Status events.  A status item (CStatusItem) is one annotation of a
// recording: an event, a stage, a marker, a section.  Each item belongs to a
// status group (CStatusGroup), its type: the group names the events, gives
// their default names and colours, the channel they concern, who may change
// them and the named properties every item carries.  Groups are identified by
// a GUID in text form.  The status file owns the groups and the items; items
// point to their group without owning it.
//
// Group types run from 0 to 5 and extents are 0 (a point in time) or 1 (a
// stretch of time).  Editing operations return non-zero when done and 0 when
// refused with the object unchanged.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>

#include <string>

#include "platform/Collections.h"
#include "platform/DateTime.h"
#include "platform/Object.h"
#include "status/PackedStrings.h"

class CStatusGroup : public CObject {
    DECLARE_SERIAL(CStatusGroup)
public:
    CStatusGroup() = default;
    CStatusGroup(const char* id, const char* name, const char* description, unsigned type, unsigned flags,
                 unsigned extent, int channelType, const char* channel, DWORD color, unsigned access,
                 unsigned visibility, unsigned eventNameType);
    CStatusGroup(const CStatusGroup& src) : CObject() { *this = src; }
    CStatusGroup& operator=(const CStatusGroup& src);
    ~CStatusGroup() override = default;

    // Archive form version 7; versions 0 to 7 are read.
    void Serialize(CArchive& ar) override;

    const CString& GetGroupID() const { return m_strGroupID; }
    void SetGroupID(const char* id) { m_strGroupID = id ? id : ""; }
    const CString& GetGroupName() const { return m_strName; }
    void SetGroupName(const char* name) { m_strName = name ? name : ""; }
    const CString& GetGroupDescription() const { return m_strDescription; }
    void SetGroupDescription(const char* text) { m_strDescription = text ? text : ""; }

    unsigned GetGroupType() const { return m_nType; }
    unsigned GetGroupExtent() const { return m_nExtent; }
    // type 0 to 5, extent 0 or 1 (asserted).
    void SetGroupTypeAndExtent(unsigned type, unsigned extent);
    unsigned GetGroupFlags() const { return m_nFlags; }
    void SetGroupFlags(unsigned flags) { m_nFlags = flags; }

    // -2, -1, or 0 when the channel field names a channel.
    int GetGroupChannelType() const { return m_nChannelType; }
    const CString& GetGroupChannel() const { return m_strChannel; }
    void SetGroupChannelAndType(const char* channel, int channelType);

    DWORD GetGroupColor() const { return m_nColor; }
    void SetGroupColor(DWORD color) { m_nColor = color; }
    unsigned GetGroupAccess() const { return m_nAccess; }
    // 0 to 7 (asserted).
    void SetGroupAccess(unsigned access);
    unsigned GetGroupVisibility() const { return m_nVisibility; }
    void SetGroupVisibility(unsigned visibility) { m_nVisibility = visibility; }

    // 0: free event names; 1: names from the default list, only for groups of
    // type 2 or 3.  Setting 0 empties the default events.
    unsigned GetGroupEventNameType() const { return m_nEventNameType; }
    void SetGroupEventNameType(unsigned type);

    // Default event names with their colours, kept parallel.
    int GetNumDefaultEventNames() const { return m_defaultNames.GetSize(); }
    const CString& GetDefaultEventNameAt(int i) const { return m_defaultNames.GetAt(i); }
    DWORD GetDefaultEventColorAt(int i) const { return m_defaultColors.GetAt(i); }
    void AddDefaultEvent(const char* name, DWORD color);
    void InsertDefaultEventAt(int i, const char* name, DWORD color);
    void SetDefaultEventAt(int i, const char* name, DWORD color);
    void DeleteDefaultEventAt(int i);

    // Group properties: values of the group itself.
    int GetGroupNumProperties() const { return m_groupKeys.GetSize(); }
    const CString& GetGroupPropertyKeyAt(int i) const { return m_groupKeys.GetAt(i); }
    const CString& GetGroupPropertyDescriptionAt(int i) const { return m_groupDescs.GetAt(i); }
    const CString& GetGroupPropertyValueAt(int i) const { return m_groupValues.GetAt(i); }
    // Value of a key found without regard to case; "" when there is none.
    CString GetGroupPropertyValueAt(const char* key) const;
    // Index of a group property key (without regard to case), or -1.
    int FindGroupProperty(const char* key) const;
    int AddGroupProperty(const char* key, const char* description, const char* value);
    int SetGroupPropertyAt(const char* key, const char* value);
    int SetGroupPropertyDescriptionAt(const char* key, const char* description);
    int DeleteGroupProperty(const char* key);

    // Item properties: the keys (with descriptions) of the values that every
    // item of the group carries.
    int GetNumProperties() const { return m_itemKeys.GetSize(); }
    const CString& GetPropertyKeyAt(int i) const { return m_itemKeys.GetAt(i); }
    const CString& GetPropertyDescriptionAt(int i) const { return m_itemDescs.GetAt(i); }
    // Index of an item property key (without regard to case), or -1.
    int FindProperty(const char* key) const;
    int AddProperty(const char* key, const char* description);
    int SetPropertyDescriptionAt(const char* key, const char* description);
    int DeleteProperty(const char* key);

    bool operator==(const CStatusGroup& o) const;

private:
    CString m_strGroupID;
    CString m_strName;
    CString m_strDescription;
    unsigned m_nType = 0;
    unsigned m_nFlags = 0;
    unsigned m_nExtent = 0;
    int m_nChannelType = 0;
    CString m_strChannel;
    DWORD m_nColor = 0;
    unsigned m_nAccess = 0;
    CStringArray m_defaultNames;
    CDWordArray m_defaultColors;
    unsigned m_nVisibility = 0;
    unsigned m_nEventNameType = 0;
    CStringArray m_groupKeys;
    CStringArray m_groupDescs;
    CStringArray m_groupValues;
    CStringArray m_itemKeys;
    CStringArray m_itemDescs;
};

class CStatusItem : public CObject {
    DECLARE_SERIAL(CStatusItem)
public:
    CStatusItem() = default;
    CStatusItem(const CStatusGroup* group, LONG beginSample, CSDateTime beginTime, LONG endSample,
                CSDateTime endTime, const char* channel, const char* name, const char* comments, DWORD color,
                unsigned visibility);
    CStatusItem(const CStatusItem& src) : CObject() { *this = src; }
    CStatusItem& operator=(const CStatusItem& src);
    ~CStatusItem() override = default;

    // Archive form version 4; versions 0 to 4 are read.  The group is written
    // as an object reference and read back as a reference to a group already
    // in the archive.
    void Serialize(CArchive& ar) override;

    const CStatusGroup* GetGroup() const { return m_pGroup; }
    void SetGroup(const CStatusGroup* group) {
        m_pGroup = group;
        if (m_ownGroup.get() != group) m_ownGroup.reset();
    }
    LONG GetBeginSample() const { return m_nBeginSample; }
    LONG GetEndSample() const { return m_nEndSample; }
    void SetSampleRange(LONG begin, LONG end) { m_nBeginSample = begin; m_nEndSample = end; }
    CSDateTime GetBeginTime() const { return m_beginTime; }
    CSDateTime GetEndTime() const { return m_endTime; }
    void SetTimeRange(CSDateTime begin, CSDateTime end) { m_beginTime = begin; m_endTime = end; }
    const CString& GetChannel() const { return m_strChannel; }
    void SetChannel(const char* channel) { m_strChannel = channel ? channel : ""; }
    const CString& GetName() const { return m_strName; }
    void SetName(const char* name) { m_strName = name ? name : ""; }
    const CString& GetComments() const { return m_strComments; }
    void SetComments(const char* comments) { m_strComments = comments ? comments : ""; }
    DWORD GetColor() const { return m_nColor; }
    void SetColor(DWORD color) { m_nColor = color; }
    unsigned GetVisibility() const { return m_nVisibility; }
    void SetVisibility(unsigned visibility) { m_nVisibility = visibility; }

    // Properties: the group's item-property keys, one packed value each.
    int GetNumProperties() const;
    CString GetPropertyKeyAt(int i) const;
    CString GetPropertyValueAt(const char* key) const;
    CString GetPropertyValueAt(int i) const;
    void SetPropertyValueAt(const char* key, const char* value);
    void SetPropertyValueAt(int i, const char* value);
    // The stored values themselves (their count may differ from the group's
    // key count in old files).
    const CPackedStrings& GetPropertyValues() const { return m_values; }
    // Makes room for one value per item property of the group, keeping the
    // values already held in order.
    void FitPropertiesToGroup();

    bool operator==(const CStatusItem& o) const;

private:
    const CStatusGroup* m_pGroup = nullptr;
    // The group an item read alone brought with it (archived inline), which
    // it then owns, shared by its copies; null for an item of a file.
    std::shared_ptr<const CStatusGroup> m_ownGroup;
    LONG m_nBeginSample = 0;
    CSDateTime m_beginTime;
    LONG m_nEndSample = 0;
    CSDateTime m_endTime;
    CString m_strChannel;
    CString m_strName;
    CString m_strComments;
    DWORD m_nColor = 0;
    unsigned m_nVisibility = 0;
    CPackedStrings m_values;
};

// Key of the item array: (begin sample, end sample).
struct CStatusItemKey {
    LONG begin;
    LONG end;
};

// Items in ascending (begin sample, end sample) order; items with equal
// ranges keep their insertion order.  The array owns nothing: its owner
// deletes the items (DeleteAll).
class CStatusItemArray : public CSortedObArray {
    DECLARE_SERIAL(CStatusItemArray)
public:
    int Compare(const CObject* a, const CObject* b) const override;
    int Compare(const void* key, const CObject* element) const override;

    CStatusItem* GetItemAt(int i) const { return static_cast<CStatusItem*>(GetAt(i)); }
    // Deletes every item and empties the array.
    void DeleteAll();
    // Restores the order after items were read or edited in place; equal
    // ranges keep their relative order.
    void Sort();

    // count + the items as objects.  Loading sorts what it read when the
    // file did not hold it in order.
    void Serialize(CArchive& ar) override;

protected:
    const CRuntimeClass* ElementClass() const override { return RUNTIME_CLASS(CStatusItem); }
};

CArchive& operator>>(CArchive& ar, CStatusGroup*& group);
CArchive& operator>>(CArchive& ar, CStatusItem*& item);
#pragma GCC visibility pop
