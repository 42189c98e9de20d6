// CStatusGroup: fields, editing rules and archive forms 0 to 7.
#include <algorithm>

#include "platform/Assert.h"
#include "platform/Strings.h"
#include "status/LegacyMontage.h"
#include "status/stsitm.h"

IMPLEMENT_SERIAL(CStatusGroup, CObject, 1)

namespace {

constexpr const char* kSource = "stsitm";
constexpr WORD kGroupVersion = 7;

int FindNoCase(const CStringArray& keys, const char* key) {
    if (!key) return -1;
    const std::string k(key);
    for (int i = 0; i < keys.GetSize(); ++i)
        if (EqualsNoCase(keys.GetAt(i), k)) return i;
    return -1;
}

// Groups of these types name their events freely: point events without a
// list (0), sections (1), stages (4) and periods (5).
bool TypeHasFreeNames(unsigned type) { return type == 0 || type == 1 || type == 4 || type == 5; }

}  // namespace

CStatusGroup::CStatusGroup(const char* id, const char* name, const char* description, unsigned type,
                           unsigned flags, unsigned extent, int channelType, const char* channel, DWORD color,
                           unsigned access, unsigned visibility, unsigned eventNameType)
    : m_strGroupID(id ? id : ""),
      m_strName(name ? name : ""),
      m_strDescription(description ? description : ""),
      m_nType(type),
      m_nFlags(flags),
      m_nExtent(extent),
      m_nChannelType(channelType),
      m_strChannel(channel ? channel : ""),
      m_nColor(color),
      m_nAccess(access),
      m_nVisibility(visibility),
      m_nEventNameType(eventNameType) {}

CStatusGroup& CStatusGroup::operator=(const CStatusGroup& src) {
    if (this == &src) return *this;
    m_strGroupID = src.m_strGroupID;
    m_strName = src.m_strName;
    m_strDescription = src.m_strDescription;
    m_nType = src.m_nType;
    m_nFlags = src.m_nFlags;
    m_nExtent = src.m_nExtent;
    m_nChannelType = src.m_nChannelType;
    m_strChannel = src.m_strChannel;
    m_nColor = src.m_nColor;
    m_nAccess = src.m_nAccess;
    m_defaultNames.Copy(src.m_defaultNames);
    m_defaultColors.Copy(src.m_defaultColors);
    m_nVisibility = src.m_nVisibility;
    m_nEventNameType = src.m_nEventNameType;
    m_groupKeys.Copy(src.m_groupKeys);
    m_groupDescs.Copy(src.m_groupDescs);
    m_groupValues.Copy(src.m_groupValues);
    m_itemKeys.Copy(src.m_itemKeys);
    m_itemDescs.Copy(src.m_itemDescs);
    return *this;
}

bool CStatusGroup::operator==(const CStatusGroup& o) const {
    return m_strGroupID == o.m_strGroupID && m_strName == o.m_strName && m_strDescription == o.m_strDescription &&
           m_nType == o.m_nType && m_nFlags == o.m_nFlags && m_nExtent == o.m_nExtent &&
           m_nChannelType == o.m_nChannelType && m_strChannel == o.m_strChannel && m_nColor == o.m_nColor &&
           m_nAccess == o.m_nAccess && m_defaultNames == o.m_defaultNames &&
           m_defaultColors == o.m_defaultColors && m_nVisibility == o.m_nVisibility &&
           m_nEventNameType == o.m_nEventNameType && m_groupKeys == o.m_groupKeys &&
           m_groupDescs == o.m_groupDescs && m_groupValues == o.m_groupValues && m_itemKeys == o.m_itemKeys &&
           m_itemDescs == o.m_itemDescs;
}

void CStatusGroup::SetGroupTypeAndExtent(unsigned type, unsigned extent) {
    SF_ASSERT(type <= 5, kSource, 445);
    SF_ASSERT(extent == 0 || extent == 1, kSource, 446);
    m_nType = type;
    m_nExtent = extent;
}

void CStatusGroup::SetGroupChannelAndType(const char* channel, int channelType) {
    m_strChannel = channel ? channel : "";
    m_nChannelType = channelType;
}

void CStatusGroup::SetGroupAccess(unsigned access) {
    SF_ASSERT(access <= 7, kSource, 468);
    m_nAccess = access;
}

void CStatusGroup::SetGroupEventNameType(unsigned type) {
    if (type == 0) {
        m_nEventNameType = 0;
        m_defaultNames.RemoveAll();
        m_defaultColors.RemoveAll();
        return;
    }
    if (type != 1 || TypeHasFreeNames(m_nType)) {
        SF_ASSERT(false, kSource, 482);
        return;
    }
    m_nEventNameType = 1;
}

void CStatusGroup::AddDefaultEvent(const char* name, DWORD color) {
    m_defaultNames.Add(name ? name : "");
    m_defaultColors.Add(color);
}

void CStatusGroup::InsertDefaultEventAt(int i, const char* name, DWORD color) {
    if (i < 0 || i > m_defaultNames.GetSize()) AfxThrowInvalidArgException();
    m_defaultNames.InsertAt(i, name ? name : "");
    m_defaultColors.InsertAt(i, color);
}

void CStatusGroup::SetDefaultEventAt(int i, const char* name, DWORD color) {
    if (i < 0 || i >= m_defaultNames.GetSize() || i >= m_defaultColors.GetSize()) AfxThrowInvalidArgException();
    m_defaultNames.SetAt(i, name ? name : "");
    m_defaultColors.SetAt(i, color);
}

void CStatusGroup::DeleteDefaultEventAt(int i) {
    if (i < 0 || i >= m_defaultNames.GetSize() || i >= m_defaultColors.GetSize()) AfxThrowInvalidArgException();
    m_defaultNames.RemoveAt(i);
    m_defaultColors.RemoveAt(i);
}

int CStatusGroup::FindGroupProperty(const char* key) const { return FindNoCase(m_groupKeys, key); }
int CStatusGroup::FindProperty(const char* key) const { return FindNoCase(m_itemKeys, key); }

CString CStatusGroup::GetGroupPropertyValueAt(const char* key) const {
    int i = FindGroupProperty(key);
    return i >= 0 && i < m_groupValues.GetSize() ? m_groupValues.GetAt(i) : CString();
}

int CStatusGroup::AddGroupProperty(const char* key, const char* description, const char* value) {
    if (!key || !*key || !description) {
        SF_ASSERT(false, kSource, 627);
        return 0;
    }
    if (FindGroupProperty(key) >= 0) return 0;
    m_groupKeys.Add(key);
    m_groupDescs.Add(description);
    m_groupValues.Add(value ? value : "");
    return 1;
}

int CStatusGroup::SetGroupPropertyAt(const char* key, const char* value) {
    int i = FindGroupProperty(key);
    if (i < 0) {
        SF_ASSERT(false, kSource, 622);
        return 0;
    }
    m_groupValues.SetAt(i, value ? value : "");
    return 1;
}

int CStatusGroup::SetGroupPropertyDescriptionAt(const char* key, const char* description) {
    if (!key || !*key) return 0;
    int i = FindGroupProperty(key);
    if (i < 0) {
        m_groupKeys.Add(key);
        m_groupDescs.Add(description ? description : "");
        m_groupValues.Add("");
    } else {
        m_groupDescs.SetAt(i, description ? description : "");
    }
    return 1;
}

int CStatusGroup::DeleteGroupProperty(const char* key) {
    int i = FindGroupProperty(key);
    if (i < 0) return 0;
    m_groupKeys.RemoveAt(i);
    m_groupDescs.RemoveAt(i);
    m_groupValues.RemoveAt(i);
    return 1;
}

int CStatusGroup::AddProperty(const char* key, const char* description) {
    if (!key || !*key || !description) {
        SF_ASSERT(false, kSource, 653);
        return 0;
    }
    if (FindProperty(key) >= 0) return 0;
    return SetPropertyDescriptionAt(key, description);
}

int CStatusGroup::SetPropertyDescriptionAt(const char* key, const char* description) {
    if (!key || !*key) return 0;
    int i = FindProperty(key);
    if (i < 0) {
        m_itemKeys.Add(key);
        m_itemDescs.Add(description ? description : "");
    } else {
        m_itemDescs.SetAt(i, description ? description : "");
    }
    return 1;
}

int CStatusGroup::DeleteProperty(const char* key) {
    int i = FindProperty(key);
    // The found index is checked against the number of group properties, as
    // files and applications have always done; an item key whose index is
    // not below that number is not removed.
    if (i < 0 || i >= GetGroupNumProperties()) return 0;
    m_itemKeys.RemoveAt(i);
    m_itemDescs.RemoveAt(i);
    return 1;
}

void CStatusGroup::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kGroupVersion;
        ar << m_strGroupID << m_strName << m_strDescription;
        ar << DWORD(m_nType) << DWORD(m_nFlags) << DWORD(m_nExtent) << static_cast<int>(m_nChannelType);
        ar << m_strChannel;
        ar << m_nColor << DWORD(m_nAccess);
        m_defaultNames.Serialize(ar);
        m_defaultColors.Serialize(ar);
        ar << DWORD(m_nVisibility) << DWORD(m_nEventNameType);
        m_itemKeys.Serialize(ar);
        m_itemDescs.Serialize(ar);
        m_groupKeys.Serialize(ar);
        m_groupDescs.Serialize(ar);
        m_groupValues.Serialize(ar);
        return;
    }

    WORD version;
    ar >> version;
    if (version > kGroupVersion) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    // Read into a fresh group so that a failure leaves this one as it was.
    CStatusGroup g;
    if (version > 2) ar >> g.m_strGroupID;
    ar >> g.m_strName >> g.m_strDescription;
    DWORD type, flags, extent;
    ar >> type >> flags >> extent;
    g.m_nType = type;
    g.m_nFlags = flags;
    g.m_nExtent = extent;
    if (version > 3) {
        int channelType;
        ar >> channelType >> g.m_strChannel;
        g.m_nChannelType = channelType;
    } else {
        CLegacyChannelRef ref = ReadLegacyChannelRef(ar, 275);
        SF_ASSERT(ref.index >= -2, kSource, 277);
        if (ref.index < 0) {
            g.m_nChannelType = ref.index == -2 ? -2 : -1;
        } else {
            g.m_nChannelType = 0;
            g.m_strChannel = ref.name;
        }
    }
    DWORD color, access;
    ar >> color >> access;
    g.m_nColor = color;
    g.m_nAccess = access;
    if (version > 5) {
        g.m_defaultNames.Serialize(ar);
        g.m_defaultColors.Serialize(ar);
        // The two lists are parallel: a file that disagrees loses the
        // unmatched tail of the longer one.
        int n = std::min(g.m_defaultNames.GetSize(), g.m_defaultColors.GetSize());
        g.m_defaultNames.SetSize(n);
        g.m_defaultColors.SetSize(n);
    } else {
        CString names;
        ar >> names;
        for (const std::string& word : SplitWords(names, ",")) g.AddDefaultEvent(word.c_str(), g.m_nColor);
    }
    if (version > 4) {
        DWORD visibility;
        ar >> visibility;
        g.m_nVisibility = visibility;
    } else {
        g.m_nVisibility = 1;
    }
    if (version == 7) {
        DWORD nameType;
        ar >> nameType;
        g.m_nEventNameType = nameType;
    } else if (TypeHasFreeNames(g.m_nType)) {
        g.m_nEventNameType = 0;
        g.m_defaultNames.RemoveAll();
        g.m_defaultColors.RemoveAll();
    } else {
        g.m_nEventNameType = g.m_defaultNames.GetSize() > 0 ? 1 : 0;
    }
    g.m_itemKeys.Serialize(ar);
    g.m_itemDescs.Serialize(ar);
    if (version >= 2) {
        g.m_groupKeys.Serialize(ar);
        g.m_groupDescs.Serialize(ar);
        g.m_groupValues.Serialize(ar);
    }
    // Keys, descriptions and values are parallel: descriptions and values
    // follow the key count.
    g.m_itemDescs.SetSize(g.m_itemKeys.GetSize());
    g.m_groupDescs.SetSize(g.m_groupKeys.GetSize());
    g.m_groupValues.SetSize(g.m_groupKeys.GetSize());
    *this = g;
}

CArchive& operator>>(CArchive& ar, CStatusGroup*& group) {
    group = static_cast<CStatusGroup*>(ar.ReadObject(RUNTIME_CLASS(CStatusGroup)));
    return ar;
}
