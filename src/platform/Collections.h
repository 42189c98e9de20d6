// The collections the library stores: growable arrays with checked indexing
// (an index out of range raises CInvalidArgException), their archive forms,
// a DWORD-to-string map and an array kept sorted by virtual comparisons.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "platform/Archive.h"
#include "platform/Object.h"

template <class T>
class CArray {
public:
    using value_type = T;

    int GetSize() const { return static_cast<int>(m_data.size()); }
    int GetCount() const { return GetSize(); }
    int GetUpperBound() const { return GetSize() - 1; }
    bool IsEmpty() const { return m_data.empty(); }

    void SetSize(int newSize, int /*growBy*/ = -1) {
        if (newSize < 0) AfxThrowInvalidArgException();
        m_data.resize(static_cast<size_t>(newSize));
    }
    void FreeExtra() { m_data.shrink_to_fit(); }
    void RemoveAll() { m_data.clear(); }

    const T& GetAt(int i) const { return m_data[Check(i)]; }
    T& ElementAt(int i) { return m_data[Check(i)]; }
    void SetAt(int i, const T& v) { m_data[Check(i)] = v; }
    const T& operator[](int i) const { return GetAt(i); }
    T& operator[](int i) { return ElementAt(i); }
    void SetAtGrow(int i, const T& v) {
        if (i < 0) AfxThrowInvalidArgException();
        if (i >= GetSize()) m_data.resize(static_cast<size_t>(i) + 1);
        m_data[static_cast<size_t>(i)] = v;
    }

    int Add(const T& v) {
        m_data.push_back(v);
        return GetSize() - 1;
    }
    void InsertAt(int i, const T& v, int count = 1) {
        if (i < 0 || count < 0) AfxThrowInvalidArgException();
        if (i > GetSize()) m_data.resize(static_cast<size_t>(i));
        m_data.insert(m_data.begin() + i, static_cast<size_t>(count), v);
    }
    void RemoveAt(int i, int count = 1) {
        if (i < 0 || count < 0 || i + count > GetSize()) AfxThrowInvalidArgException();
        m_data.erase(m_data.begin() + i, m_data.begin() + i + count);
    }
    void Copy(const CArray& src) { m_data = src.m_data; }
    int Append(const CArray& src) {
        int old = GetSize();
        m_data.insert(m_data.end(), src.m_data.begin(), src.m_data.end());
        return old;
    }

    T* GetData() { return m_data.data(); }
    const T* GetData() const { return m_data.data(); }
    std::vector<T>& Vector() { return m_data; }
    const std::vector<T>& Vector() const { return m_data; }
    auto begin() { return m_data.begin(); }
    auto end() { return m_data.end(); }
    auto begin() const { return m_data.begin(); }
    auto end() const { return m_data.end(); }

    bool operator==(const CArray& o) const { return m_data == o.m_data; }

protected:
    size_t Check(int i) const {
        if (i < 0 || i >= GetSize()) AfxThrowInvalidArgException();
        return static_cast<size_t>(i);
    }
    std::vector<T> m_data;
};

// Arrays of scalars stored as count + raw little-endian elements.
template <class T>
class CScalarArray : public CObject, public CArray<T> {
public:
    void Serialize(CArchive& ar) override {
        if (ar.IsStoring()) {
            ar.WriteCount(this->m_data.size());
            for (const T& v : this->m_data) ar << v;
        } else {
            DWORD n = ar.ReadCount();
            ar.CheckCount(n, sizeof(T));
            this->m_data.assign(n, T{});
            for (T& v : this->m_data) ar >> v;
        }
    }
};

class CByteArray : public CScalarArray<BYTE> {
    DECLARE_SERIAL(CByteArray)
public:
    void Serialize(CArchive& ar) override;  // count + raw bytes in one block
};

class CWordArray : public CScalarArray<WORD> {
    DECLARE_SERIAL(CWordArray)
};

class CDWordArray : public CScalarArray<DWORD> {
    DECLARE_SERIAL(CDWordArray)
};

class CDoubleArray : public CScalarArray<double> {
    DECLARE_SERIAL(CDoubleArray)
};

class CStringArray : public CObject, public CArray<std::string> {
    DECLARE_SERIAL(CStringArray)
public:
    void Serialize(CArchive& ar) override;
};

// Array of object pointers.  It owns nothing: owners delete the objects.
class CObArray : public CObject, public CArray<CObject*> {
    DECLARE_SERIAL(CObArray)
public:
    void Serialize(CArchive& ar) override;

protected:
    // Class every loaded element must derive from; null accepts any object.
    virtual const CRuntimeClass* ElementClass() const { return nullptr; }
};

// Array of untyped pointers, never stored.
class CPtrArray : public CArray<void*> {};

// An object array kept in ascending order by two comparison virtuals: one
// between two elements, one between a search key and an element.  Elements
// that compare equal keep their insertion order.
class CSortedObArray : public CObArray {
    DECLARE_DYNAMIC(CSortedObArray)
public:
    virtual int Compare(const CObject* a, const CObject* b) const = 0;
    virtual int Compare(const void* key, const CObject* element) const = 0;

    // Inserts after every element that compares equal; returns the index.
    int InsertSorted(CObject* element);
    // Index of the first element equal to key, or -1.
    int Find(const void* key) const;
    // Index of the first element not less than key.
    int LowerBound(const void* key) const;
    // Index of the first element greater than key.
    int UpperBound(const void* key) const;
    // True when every element is in order.
    bool IsSorted() const;
};

// Map of DWORD keys to strings; stored as count + (DWORD key, string) pairs
// in ascending key order.
class CMapDWordToString : public CObject {
    DECLARE_SERIAL(CMapDWordToString)
public:
    int GetCount() const { return static_cast<int>(m_map.size()); }
    bool IsEmpty() const { return m_map.empty(); }
    void SetAt(DWORD key, const std::string& value) { m_map[key] = value; }
    BOOL Lookup(DWORD key, std::string& value) const;
    BOOL RemoveKey(DWORD key) { return m_map.erase(key) ? TRUE : FALSE; }
    void RemoveAll() { m_map.clear(); }
    const std::map<DWORD, std::string>& Map() const { return m_map; }
    void Serialize(CArchive& ar) override;

private:
    std::map<DWORD, std::string> m_map;
};
#pragma GCC visibility pop
