// CStatusItem (archive forms 0 to 4, packed property values) and the sorted
// item array.
#include <algorithm>
#include <vector>

#include "platform/Assert.h"
#include "platform/Strings.h"
#include "status/LegacyMontage.h"
#include "status/stsitm.h"

IMPLEMENT_SERIAL(CStatusItem, CObject, 1)
IMPLEMENT_SERIAL(CStatusItemArray, CSortedObArray, 1)

namespace {
constexpr const char* kSource = "stsitm";
constexpr WORD kItemVersion = 4;
}  // namespace

CStatusItem::CStatusItem(const CStatusGroup* group, LONG beginSample, CSDateTime beginTime, LONG endSample,
                         CSDateTime endTime, const char* channel, const char* name, const char* comments,
                         DWORD color, unsigned visibility)
    : m_pGroup(group),
      m_nBeginSample(beginSample),
      m_beginTime(beginTime),
      m_nEndSample(endSample),
      m_endTime(endTime),
      m_strChannel(channel ? channel : ""),
      m_strName(name ? name : ""),
      m_strComments(comments ? comments : ""),
      m_nColor(color),
      m_nVisibility(visibility) {}

CStatusItem& CStatusItem::operator=(const CStatusItem& src) {
    if (this == &src) return *this;
    m_pGroup = src.m_pGroup;
    m_ownGroup = src.m_ownGroup;
    m_nBeginSample = src.m_nBeginSample;
    m_beginTime = src.m_beginTime;
    m_nEndSample = src.m_nEndSample;
    m_endTime = src.m_endTime;
    m_strChannel = src.m_strChannel;
    m_strName = src.m_strName;
    m_strComments = src.m_strComments;
    m_nColor = src.m_nColor;
    m_nVisibility = src.m_nVisibility;
    m_values = src.m_values;
    return *this;
}

bool CStatusItem::operator==(const CStatusItem& o) const {
    return m_pGroup == o.m_pGroup && m_nBeginSample == o.m_nBeginSample && m_beginTime == o.m_beginTime &&
           m_nEndSample == o.m_nEndSample && m_endTime == o.m_endTime && m_strChannel == o.m_strChannel &&
           m_strName == o.m_strName && m_strComments == o.m_strComments && m_nColor == o.m_nColor &&
           m_nVisibility == o.m_nVisibility && m_values == o.m_values;
}

int CStatusItem::GetNumProperties() const { return m_pGroup ? m_pGroup->GetNumProperties() : 0; }

CString CStatusItem::GetPropertyKeyAt(int i) const {
    if (!m_pGroup) return CString();
    return m_pGroup->GetPropertyKeyAt(i);
}

CString CStatusItem::GetPropertyValueAt(const char* key) const {
    if (!m_pGroup) return CString();
    int i = m_pGroup->FindProperty(key);
    // A value the item does not hold (a key added to the group after the
    // item was written) reads as empty.
    if (i < 0 || i >= m_values.GetCount()) return CString();
    return m_values.GetAt(i);
}

CString CStatusItem::GetPropertyValueAt(int i) const { return m_values.GetAt(i); }

void CStatusItem::SetPropertyValueAt(const char* key, const char* value) {
    if (!m_pGroup) return;
    int i = m_pGroup->FindProperty(key);
    if (i < 0) {
        SF_ASSERT(false, kSource, 1011);
        return;
    }
    if (i >= m_values.GetCount()) FitPropertiesToGroup();
    m_values.SetAt(i, value);
}

void CStatusItem::SetPropertyValueAt(int i, const char* value) { m_values.SetAt(i, value); }

void CStatusItem::FitPropertiesToGroup() {
    const int n = GetNumProperties();
    if (n == m_values.GetCount()) return;
    CPackedStrings fitted;
    fitted.SetSize(n);
    for (int i = 0; i < n && i < m_values.GetCount(); ++i) fitted.SetAt(i, m_values.GetAt(i));
    m_values = fitted;
}

void CStatusItem::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kItemVersion;
        ar.WriteObject(m_pGroup);
        ar << static_cast<int>(m_nBeginSample) << m_beginTime << static_cast<int>(m_nEndSample) << m_endTime;
        ar << m_strChannel << m_strName << m_strComments;
        ar << m_nColor << DWORD(m_nVisibility);
        m_values.Serialize(ar);
        return;
    }

    WORD version;
    ar >> version;
    if (version > kItemVersion) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    // The group is an object the archive already holds (an item of a status
    // file), or, for an item archived alone, the group written inline with
    // it, which the item then owns.
    CObject* read = ar.ReadReference(RUNTIME_CLASS(CStatusGroup), true);
    CStatusItem item;
    if (std::unique_ptr<CObject> own = ar.TakeNewReference(read))
        item.m_ownGroup.reset(static_cast<const CStatusGroup*>(own.release()));
    const auto* group = static_cast<const CStatusGroup*>(read);
    item.m_pGroup = group;
    int begin, end;
    ar >> begin >> item.m_beginTime >> end >> item.m_endTime;
    item.m_nBeginSample = begin;
    item.m_nEndSample = end;
    if (version < 2) {
        CLegacyChannelRef ref = ReadLegacyChannelRef(ar, 831);
        if (ref.index >= 0) item.m_strChannel = ref.name;
    } else {
        ar >> item.m_strChannel;
    }
    ar >> item.m_strName >> item.m_strComments;
    if (version < 3) {
        item.m_nColor = group ? group->GetGroupColor() : 0;
        item.m_nVisibility = 1;
    } else {
        DWORD color, visibility;
        ar >> color >> visibility;
        item.m_nColor = color;
        item.m_nVisibility = visibility;
    }
    if (version == 4) {
        item.m_values.Serialize(ar);
    } else {
        CStringArray values;
        values.Serialize(ar);
        item.m_values.SetSize(values.GetSize());
        for (int i = 0; i < values.GetSize(); ++i) item.m_values.SetAt(i, values.GetAt(i).c_str());
    }
    // Everything was read: take it over without copying.
    m_pGroup = item.m_pGroup;
    m_ownGroup = std::move(item.m_ownGroup);
    m_nBeginSample = item.m_nBeginSample;
    m_beginTime = item.m_beginTime;
    m_nEndSample = item.m_nEndSample;
    m_endTime = item.m_endTime;
    m_strChannel = std::move(item.m_strChannel);
    m_strName = std::move(item.m_strName);
    m_strComments = std::move(item.m_strComments);
    m_nColor = item.m_nColor;
    m_nVisibility = item.m_nVisibility;
    m_values.Swap(item.m_values);
}

CArchive& operator>>(CArchive& ar, CStatusItem*& item) {
    item = static_cast<CStatusItem*>(ar.ReadObject(RUNTIME_CLASS(CStatusItem)));
    return ar;
}

// ---------------------------------------------------------------------------

namespace {

const CStatusItem* AsItem(const CObject* ob);

int CompareRange(LONG b1, LONG e1, LONG b2, LONG e2) {
    if (b1 != b2) return b1 < b2 ? -1 : 1;
    if (e1 != e2) return e1 < e2 ? -1 : 1;
    return 0;
}

}  // namespace

namespace {
// Items are compared millions of times when a file is read or sorted: the
// class test looks at the run-time class first and walks the class chain
// only for classes derived from CStatusItem.
const CStatusItem* AsItem(const CObject* ob) {
    if (!ob) return nullptr;
    if (ob->GetRuntimeClass() == RUNTIME_CLASS(CStatusItem) || ob->IsKindOf(RUNTIME_CLASS(CStatusItem)))
        return static_cast<const CStatusItem*>(ob);
    return nullptr;
}
}  // namespace

int CStatusItemArray::Compare(const CObject* a, const CObject* b) const {
    const auto* ia = AsItem(a);
    const auto* ib = AsItem(b);
    SF_ASSERT(ia != nullptr && ib != nullptr, kSource, 1190);
    if (!ia || !ib) return 0;
    return CompareRange(ia->GetBeginSample(), ia->GetEndSample(), ib->GetBeginSample(), ib->GetEndSample());
}

int CStatusItemArray::Compare(const void* key, const CObject* element) const {
    const auto* k = static_cast<const CStatusItemKey*>(key);
    const auto* item = AsItem(element);
    SF_ASSERT(k != nullptr && item != nullptr, kSource, 1199);
    if (!k || !item) return 0;
    return CompareRange(k->begin, k->end, item->GetBeginSample(), item->GetEndSample());
}

void CStatusItemArray::DeleteAll() {
    for (CObject* ob : m_data) delete ob;
    m_data.clear();
}

void CStatusItemArray::Sort() {
    if (IsSorted()) return;
    std::stable_sort(m_data.begin(), m_data.end(),
                     [this](const CObject* a, const CObject* b) { return Compare(a, b) < 0; });
}

void CStatusItemArray::Serialize(CArchive& ar) {
    CObArray::Serialize(ar);
    if (ar.IsLoading()) Sort();
}
