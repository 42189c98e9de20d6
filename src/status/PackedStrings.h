// A compact list of strings: one heap buffer holding `count` NUL-terminated
// strings back to back, with the count and the buffer's capacity.  Status
// items carry one such list for their property values, so that a recording
// of a million events does not hold a million string arrays.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <utility>
#include <string>

#include "platform/Archive.h"

class CPackedStrings {
public:
    CPackedStrings() = default;
    CPackedStrings(const CPackedStrings& src) { *this = src; }
    CPackedStrings& operator=(const CPackedStrings& src);

    int GetCount() const { return m_count; }
    int GetCapacity() const { return m_capacity; }
    // Bytes in use: the offset of the last string plus its length plus 1,
    // 0 when the list is empty.
    int GetUsedSize() const;
    const char* GetBuffer() const { return m_buf.get(); }

    // Element i (asserts i < count and then returns "").
    const char* GetAt(int i) const;
    // Replaces element i, growing the buffer to exactly the new used size
    // when it no longer fits.
    void SetAt(int i, const char* value);
    // n empty strings.
    void SetSize(int n);
    void RemoveAll();
    void Swap(CPackedStrings& other) {
        std::swap(m_buf, other.m_buf);
        std::swap(m_count, other.m_count);
        std::swap(m_capacity, other.m_capacity);
    }

    // Archive form: WORD version 1, count (signed 32-bit) and, when the count
    // is at least 1, the used size (signed 32-bit) and that many bytes.
    void Serialize(CArchive& ar);

    bool operator==(const CPackedStrings& o) const;

private:
    std::string ToArchiveBytes() const;
    void FromArchiveBytes();
    // Offset of element i; i may equal the count (the end of the used part).
    int OffsetOf(int i) const;

    std::unique_ptr<char[]> m_buf;
    int m_count = 0;
    int m_capacity = 0;
};
#pragma GCC visibility pop
