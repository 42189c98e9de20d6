#include "platform/Collections.h"

IMPLEMENT_SERIAL(CByteArray, CObject, 1)
IMPLEMENT_SERIAL(CWordArray, CObject, 1)
IMPLEMENT_SERIAL(CDWordArray, CObject, 1)
IMPLEMENT_SERIAL(CDoubleArray, CObject, 1)
IMPLEMENT_SERIAL(CStringArray, CObject, 1)
IMPLEMENT_SERIAL(CObArray, CObject, 1)
IMPLEMENT_DYNAMIC(CSortedObArray, CObArray)
IMPLEMENT_SERIAL(CMapDWordToString, CObject, 1)

void CByteArray::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar.WriteCount(m_data.size());
        ar.Write(m_data.data(), m_data.size());
    } else {
        DWORD n = ar.ReadCount();
        ar.CheckCount(n, 1);
        m_data.assign(n, 0);
        ar.ReadExact(m_data.data(), n);
    }
}

void CStringArray::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar.WriteCount(m_data.size());
        for (const std::string& s : m_data) ar << s;
    } else {
        DWORD n = ar.ReadCount();
        ar.CheckCount(n, 1);
        m_data.assign(n, std::string());
        for (std::string& s : m_data) ar >> s;
    }
}

void CObArray::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar.WriteCount(m_data.size());
        for (CObject* ob : m_data) ar.WriteObject(ob);
    } else {
        // The array owns nothing: the owner that calls this deletes what it
        // holds before, and takes ownership of what is read.
        DWORD n = ar.ReadCount();
        ar.CheckCount(n, 2);
        m_data.clear();
        m_data.reserve(n);
        for (DWORD i = 0; i < n; ++i) m_data.push_back(ar.ReadObject(ElementClass()));
    }
}

int CSortedObArray::LowerBound(const void* key) const {
    int lo = 0, hi = GetSize();
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (Compare(key, m_data[static_cast<size_t>(mid)]) > 0) lo = mid + 1;
        else hi = mid;
    }
    return lo;
}

int CSortedObArray::UpperBound(const void* key) const {
    int lo = 0, hi = GetSize();
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (Compare(key, m_data[static_cast<size_t>(mid)]) >= 0) lo = mid + 1;
        else hi = mid;
    }
    return lo;
}

int CSortedObArray::InsertSorted(CObject* element) {
    // Append fast when the element sorts last, as it does for events added in
    // time order.
    int n = GetSize();
    if (n == 0 || Compare(m_data.back(), element) <= 0) {
        m_data.push_back(element);
        return n;
    }
    int lo = 0, hi = n;
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (Compare(m_data[static_cast<size_t>(mid)], element) <= 0) lo = mid + 1;
        else hi = mid;
    }
    m_data.insert(m_data.begin() + lo, element);
    return lo;
}

int CSortedObArray::Find(const void* key) const {
    int i = LowerBound(key);
    if (i < GetSize() && Compare(key, m_data[static_cast<size_t>(i)]) == 0) return i;
    return -1;
}

bool CSortedObArray::IsSorted() const {
    for (size_t i = 1; i < m_data.size(); ++i)
        if (Compare(m_data[i - 1], m_data[i]) > 0) return false;
    return true;
}

BOOL CMapDWordToString::Lookup(DWORD key, std::string& value) const {
    auto it = m_map.find(key);
    if (it == m_map.end()) return FALSE;
    value = it->second;
    return TRUE;
}

void CMapDWordToString::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar.WriteCount(m_map.size());
        for (const auto& [key, value] : m_map) ar << key << value;
    } else {
        DWORD n = ar.ReadCount();
        ar.CheckCount(n, 5);
        m_map.clear();
        for (DWORD i = 0; i < n; ++i) {
            DWORD key;
            std::string value;
            ar >> key >> value;
            m_map[key] = value;
        }
    }
}
