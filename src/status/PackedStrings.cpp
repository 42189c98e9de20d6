#include "status/PackedStrings.h"

#include <cstring>

#include "platform/Assert.h"
#include "platform/Strings.h"

namespace {
constexpr const char* kSource = "stsitm";
}

CPackedStrings& CPackedStrings::operator=(const CPackedStrings& src) {
    if (this == &src) return *this;
    int used = src.GetUsedSize();
    std::unique_ptr<char[]> buf(used ? new char[used] : nullptr);
    if (used) std::memcpy(buf.get(), src.m_buf.get(), used);
    m_buf = std::move(buf);
    m_count = src.m_count;
    m_capacity = used;
    return *this;
}

int CPackedStrings::OffsetOf(int i) const {
    int offset = 0;
    for (int k = 0; k < i; ++k) offset += static_cast<int>(std::strlen(m_buf.get() + offset)) + 1;
    return offset;
}

int CPackedStrings::GetUsedSize() const { return m_count ? OffsetOf(m_count) : 0; }

const char* CPackedStrings::GetAt(int i) const {
    SF_ASSERT(i >= 0 && i < m_count, kSource, 1061);
    if (i < 0 || i >= m_count) return "";
    return m_buf.get() + OffsetOf(i);
}

void CPackedStrings::SetAt(int i, const char* value) {
    SF_ASSERT(i >= 0 && i < m_count, kSource, 1081);
    if (i < 0 || i >= m_count) return;
    if (!value) value = "";
    const int offset = OffsetOf(i);
    const int oldLen = static_cast<int>(std::strlen(m_buf.get() + offset));
    const int newLen = static_cast<int>(std::strlen(value));
    const int used = GetUsedSize();
    const int tailStart = offset + oldLen + 1;
    const int tailLen = used - tailStart;
    const int newUsed = used - oldLen + newLen;
    if (newUsed > m_capacity) {
        std::unique_ptr<char[]> buf(new char[newUsed]);
        std::memcpy(buf.get(), m_buf.get(), offset);
        std::memcpy(buf.get() + offset + newLen + 1, m_buf.get() + tailStart, tailLen);
        m_buf = std::move(buf);
        m_capacity = newUsed;
    } else {
        std::memmove(m_buf.get() + offset + newLen + 1, m_buf.get() + tailStart, tailLen);
    }
    std::memcpy(m_buf.get() + offset, value, newLen + 1);
}

void CPackedStrings::SetSize(int n) {
    if (n < 0) AfxThrowInvalidArgException();
    m_buf.reset(n ? new char[n]() : nullptr);
    m_count = n;
    m_capacity = n;
}

void CPackedStrings::RemoveAll() {
    m_buf.reset();
    m_count = 0;
    m_capacity = 0;
}

void CPackedStrings::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << WORD(1) << static_cast<int>(m_count);
        if (m_count >= 1) {
            const std::string bytes = ToArchiveBytes();
            ar << static_cast<int>(bytes.size());
            ar.Write(bytes.data(), bytes.size());
        }
        return;
    }
    WORD version;
    int count;
    ar >> version;
    if (version > 1) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    ar >> count;
    if (count < 0) AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    if (count == 0) {
        RemoveAll();
        return;
    }
    int used;
    ar >> used;
    // Each string takes at least its terminator.
    if (used < count) AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    ar.CheckCount(static_cast<ULONGLONG>(used), 1);
    std::unique_ptr<char[]> buf(new (std::nothrow) char[used]);
    SF_ASSERT(buf != nullptr, kSource, 1125);
    if (!buf) AfxThrowMemoryException();
    ar.ReadExact(buf.get(), static_cast<size_t>(used));
    // The buffer must hold exactly `count` terminated strings, the last one
    // ending at its last byte: otherwise walking the list would leave it.
    int terminators = 0;
    for (int k = 0; k < used; ++k)
        if (buf[k] == '\0') ++terminators;
    if (terminators != count || buf[used - 1] != '\0')
        AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    m_buf = std::move(buf);
    m_count = count;
    m_capacity = used;
    FromArchiveBytes();
}

// The buffer is UTF-8 in memory and Windows-1252 in the archive, like every
// other archived string.  A character without a Windows-1252 code cannot be
// stored in this form and is written as its closest ASCII letter.
std::string CPackedStrings::ToArchiveBytes() const {
    const int used = GetUsedSize();
    bool ascii = true;
    for (int k = 0; k < used && ascii; ++k) ascii = static_cast<unsigned char>(m_buf[k]) < 0x80;
    if (ascii) return std::string(m_buf.get(), static_cast<size_t>(used));
    std::string out;
    for (int i = 0, offset = 0; i < m_count; ++i) {
        std::string value(m_buf.get() + offset), cp;
        offset += static_cast<int>(value.size()) + 1;
        if (!Utf8ToCp1252(value, cp)) cp = TransliterateAscii(value);
        out += cp;
        out.push_back('\0');
    }
    return out;
}

void CPackedStrings::FromArchiveBytes() {
    const int used = GetUsedSize();
    bool ascii = true;
    for (int k = 0; k < used && ascii; ++k) ascii = static_cast<unsigned char>(m_buf[k]) < 0x80;
    if (ascii) return;
    std::string utf8;
    for (int i = 0, offset = 0; i < m_count; ++i) {
        std::string value(m_buf.get() + offset);
        offset += static_cast<int>(value.size()) + 1;
        utf8 += Cp1252ToUtf8(value);
        utf8.push_back('\0');
    }
    m_buf.reset(new char[utf8.size()]);
    std::memcpy(m_buf.get(), utf8.data(), utf8.size());
    m_capacity = static_cast<int>(utf8.size());
}

bool CPackedStrings::operator==(const CPackedStrings& o) const {
    int used = GetUsedSize();
    return m_count == o.m_count && used == o.GetUsedSize() &&
           (used == 0 || std::memcmp(m_buf.get(), o.m_buf.get(), used) == 0);
}
