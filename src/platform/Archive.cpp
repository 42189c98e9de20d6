#include "platform/Archive.h"

#include <cstring>
#include <limits>

#include "platform/Strings.h"

namespace {
constexpr WORD kNullTag = 0;
constexpr WORD kNewClassTag = 0xFFFF;
constexpr WORD kClassTag = 0x8000;
constexpr DWORD kBigClassTag = 0x80000000;
constexpr WORD kBigObjectTag = 0x7FFF;
constexpr DWORD kMaxMapCount = 0x3FFFFFFE;
}  // namespace

CArchive::CArchive(CFile* file, UINT mode, int bufSize)
    : m_file(file), m_loading((mode & load) != 0) {
    if (bufSize < 16) bufSize = 16;
    m_buf.resize(static_cast<size_t>(bufSize));
    if (m_loading) {
        ULONGLONG len = file->GetLength();
        ULONGLONG pos = file->GetPosition();
        m_fileRemaining = len > pos ? len - pos : 0;
        m_loadArray.push_back({});  // pid 0 is the null object
    }
    if (file) m_strFileName = file->GetFilePath();
}

CArchive::~CArchive() {
    if (!m_closed) {
        try {
            if (!m_loading) Flush();
        } catch (...) {
            // A destructor must not throw: callers that care call Close().
        }
    }
}

void CArchive::Close() {
    if (m_closed) return;
    if (!m_loading) Flush();
    m_closed = true;
}

void CArchive::Abort() { m_closed = true; }

void CArchive::Flush() {
    if (m_loading || m_closed) return;
    if (m_bufPos) {
        m_file->Write(m_buf.data(), static_cast<UINT>(m_bufPos));
        m_bufPos = 0;
    }
    m_file->Flush();
}

void CArchive::CheckLoading() const {
    if (!m_loading) AfxThrowArchiveException(CArchiveException::writeOnly, m_strFileName.c_str());
}

void CArchive::CheckStoring() const {
    if (m_loading) AfxThrowArchiveException(CArchiveException::readOnly, m_strFileName.c_str());
}

void CArchive::Write(const void* buffer, size_t count) {
    CheckStoring();
    const auto* p = static_cast<const BYTE*>(buffer);
    while (count) {
        if (m_bufPos == m_buf.size()) {
            m_file->Write(m_buf.data(), static_cast<UINT>(m_bufPos));
            m_bufPos = 0;
        }
        // Large blocks go straight to the file once the buffer is empty.
        if (m_bufPos == 0 && count >= m_buf.size()) {
            while (count) {
                UINT chunk = static_cast<UINT>(std::min<size_t>(count, 1u << 30));
                m_file->Write(p, chunk);
                p += chunk;
                count -= chunk;
            }
            return;
        }
        size_t n = std::min(count, m_buf.size() - m_bufPos);
        std::memcpy(m_buf.data() + m_bufPos, p, n);
        m_bufPos += n;
        p += n;
        count -= n;
    }
}

void CArchive::FillBuffer() {
    size_t want = static_cast<size_t>(std::min<ULONGLONG>(m_buf.size(), m_fileRemaining));
    UINT got = want ? m_file->Read(m_buf.data(), static_cast<UINT>(want)) : 0;
    m_fileRemaining = got < want ? 0 : m_fileRemaining - got;
    m_bufPos = 0;
    m_bufEnd = got;
}

UINT CArchive::Read(void* buffer, UINT count) {
    CheckLoading();
    auto* p = static_cast<BYTE*>(buffer);
    UINT done = 0;
    while (done < count) {
        if (m_bufPos == m_bufEnd) {
            // Large reads bypass the buffer.
            if (count - done >= m_buf.size() && m_fileRemaining) {
                UINT want = static_cast<UINT>(std::min<ULONGLONG>(count - done, m_fileRemaining));
                UINT got = m_file->Read(p + done, want);
                m_fileRemaining = got < want ? 0 : m_fileRemaining - got;
                done += got;
                if (got < want) break;
                continue;
            }
            FillBuffer();
            if (m_bufEnd == 0) break;
        }
        size_t n = std::min<size_t>(count - done, m_bufEnd - m_bufPos);
        std::memcpy(p + done, m_buf.data() + m_bufPos, n);
        m_bufPos += n;
        done += static_cast<UINT>(n);
    }
    return done;
}

void CArchive::ReadExact(void* buffer, size_t count) {
    auto* p = static_cast<BYTE*>(buffer);
    while (count) {
        UINT chunk = static_cast<UINT>(std::min<size_t>(count, 1u << 30));
        if (Read(p, chunk) != chunk) AfxThrowArchiveException(CArchiveException::endOfFile, m_strFileName.c_str());
        p += chunk;
        count -= chunk;
    }
}

ULONGLONG CArchive::GetRemaining() const { return (m_bufEnd - m_bufPos) + m_fileRemaining; }

void CArchive::CheckCount(ULONGLONG count, size_t elemSize) const {
    if (elemSize == 0) elemSize = 1;
    if (count > GetRemaining() / elemSize) AfxThrowArchiveException(CArchiveException::endOfFile, m_strFileName.c_str());
}

void CArchive::WriteCount(ULONGLONG count) {
    if (count < 0xFFFF) {
        *this << static_cast<WORD>(count);
    } else {
        *this << static_cast<WORD>(0xFFFF);
        *this << static_cast<DWORD>(count);
    }
}

DWORD CArchive::ReadCount() {
    WORD w;
    *this >> w;
    if (w != 0xFFFF) return w;
    DWORD d;
    *this >> d;
    return d;
}

CArchive& CArchive::operator<<(float v) {
    DWORD bits;
    std::memcpy(&bits, &v, 4);
    return PutLE(bits);
}

CArchive& CArchive::operator<<(double v) {
    ULONGLONG bits;
    std::memcpy(&bits, &v, 8);
    return PutLE(bits);
}

CArchive& CArchive::operator>>(short& v) {
    WORD w;
    GetLE(w);
    v = static_cast<short>(w);
    return *this;
}

CArchive& CArchive::operator>>(int& v) {
    DWORD d;
    GetLE(d);
    v = static_cast<int>(d);
    return *this;
}

CArchive& CArchive::operator>>(long long& v) {
    ULONGLONG q;
    GetLE(q);
    v = static_cast<long long>(q);
    return *this;
}

CArchive& CArchive::operator>>(float& v) {
    DWORD bits;
    GetLE(bits);
    std::memcpy(&v, &bits, 4);
    return *this;
}

CArchive& CArchive::operator>>(double& v) {
    ULONGLONG bits;
    GetLE(bits);
    std::memcpy(&v, &bits, 8);
    return *this;
}

// ---------------------------------------------------------------------------
// Strings

namespace {
void WriteStringLength(CArchive& ar, ULONGLONG len) {
    if (len < 0xFF) {
        ar << static_cast<BYTE>(len);
    } else if (len < 0xFFFE) {
        ar << static_cast<BYTE>(0xFF) << static_cast<WORD>(len);
    } else {
        ar << static_cast<BYTE>(0xFF) << static_cast<WORD>(0xFFFF) << static_cast<DWORD>(len);
    }
}
}  // namespace

CArchive& CArchive::operator<<(const std::string& s) {
    std::string narrow;
    if (Utf8ToCp1252(s, narrow)) {
        WriteStringLength(*this, narrow.size());
        Write(narrow.data(), narrow.size());
    } else {
        std::u16string wide = Utf8ToUtf16(s);
        *this << static_cast<BYTE>(0xFF) << static_cast<WORD>(0xFFFE);
        WriteStringLength(*this, wide.size());
        for (char16_t c : wide) *this << static_cast<WORD>(c);
    }
    return *this;
}

CArchive& CArchive::operator>>(std::string& s) {
    // Length prefix; a 0xFFFE WORD marks the wide form, whose own prefix follows.
    bool wide = false;
    DWORD len = 0;
    for (;;) {
        BYTE b;
        *this >> b;
        if (b < 0xFF) {
            len = b;
            break;
        }
        WORD w;
        *this >> w;
        if (w == 0xFFFE) {
            if (wide) AfxThrowArchiveException(CArchiveException::genericException, m_strFileName.c_str());
            wide = true;
            continue;
        }
        if (w < 0xFFFF) {
            len = w;
            break;
        }
        *this >> len;
        break;
    }
    if (wide) {
        CheckCount(len, 2);
        std::u16string units(len, u'\0');
        for (DWORD i = 0; i < len; ++i) {
            WORD w;
            *this >> w;
            units[i] = static_cast<char16_t>(w);
        }
        s = Utf16ToUtf8(units);
    } else {
        CheckCount(len, 1);
        std::string bytes(len, '\0');
        ReadExact(bytes.data(), len);
        s = Cp1252ToUtf8(bytes);
    }
    return *this;
}

// ---------------------------------------------------------------------------
// Objects

void CArchive::WriteTagWithIndex(DWORD index, bool isClass) {
    if (index < kBigObjectTag) {
        *this << static_cast<WORD>(isClass ? (kClassTag | index) : index);
    } else {
        *this << kBigObjectTag << static_cast<DWORD>(isClass ? (kBigClassTag | index) : index);
    }
}

void CArchive::WriteObject(const CObject* object) {
    CheckStoring();
    if (!object) {
        *this << kNullTag;
        return;
    }
    auto found = m_storeMap.find(object);
    if (found != m_storeMap.end()) {
        WriteTagWithIndex(found->second, false);
        return;
    }
    const CRuntimeClass* cls = object->GetRuntimeClass();
    if (!cls->IsSerializable()) AfxThrowArchiveException(CArchiveException::badClass, m_strFileName.c_str());
    auto classFound = m_storeMap.find(cls);
    if (classFound != m_storeMap.end()) {
        WriteTagWithIndex(classFound->second, true);
    } else {
        // New class: tag, schema (always 1), name; the class takes a pid.
        size_t nameLen = std::strlen(cls->m_lpszClassName);
        *this << kNewClassTag << static_cast<WORD>(1) << static_cast<WORD>(nameLen);
        Write(cls->m_lpszClassName, nameLen);
        m_storeMap[cls] = m_nMapCount++;
    }
    m_storeMap[object] = m_nMapCount++;
    const_cast<CObject*>(object)->Serialize(*this);
}

CObject* CArchive::ReadObject(const CRuntimeClass* requested) { return ReadObjectImpl(requested, ReadMode::owned); }

CObject* CArchive::ReadReference(const CRuntimeClass* requested, bool allowNew) {
    CObject* ob = ReadObjectImpl(requested, allowNew ? ReadMode::referenceOrNew : ReadMode::reference);
    return ob;
}

std::unique_ptr<CObject> CArchive::TakeNewReference(CObject* object) {
    for (auto it = m_orphans.begin(); it != m_orphans.end(); ++it)
        if (it->get() == object) {
            std::unique_ptr<CObject> taken = std::move(*it);
            m_orphans.erase(it);
            return taken;
        }
    return nullptr;
}

CObject* CArchive::ReadObjectImpl(const CRuntimeClass* requested, ReadMode mode) {
    CheckLoading();
    WORD tag;
    *this >> tag;
    DWORD obTag;
    if (tag == kBigObjectTag) {
        *this >> obTag;
    } else {
        obTag = (static_cast<DWORD>(tag & kClassTag) << 16) | (tag & ~kClassTag);
    }

    if (!(obTag & kBigClassTag)) {
        // Null or a back reference to an object already read.
        if (obTag >= m_loadArray.size()) AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName.c_str());
        if (obTag != 0 && mode == ReadMode::owned)
            AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName.c_str());
        const LoadEntry& entry = m_loadArray[obTag];
        if (obTag != 0 && !entry.object) AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName.c_str());
        CObject* ob = entry.object;
        if (ob && requested && !ob->IsKindOf(requested))
            AfxThrowArchiveException(CArchiveException::badClass, m_strFileName.c_str());
        return ob;
    }

    if (mode == ReadMode::reference) AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName.c_str());
    const CRuntimeClass* cls = nullptr;
    if (tag == kNewClassTag) {
        WORD schema, nameLen;
        *this >> schema >> nameLen;
        CheckCount(nameLen, 1);
        std::string name(nameLen, '\0');
        ReadExact(name.data(), nameLen);
        cls = CRuntimeClass::FromName(name.c_str());
        if (!cls || !cls->m_pfnCreateObject) AfxThrowArchiveException(CArchiveException::badClass, m_strFileName.c_str());
        if (m_loadArray.size() >= kMaxMapCount) AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName.c_str());
        m_loadArray.push_back({cls, nullptr});
    } else {
        DWORD classIndex = obTag & ~kBigClassTag;
        if (classIndex == 0 || classIndex >= m_loadArray.size() || !m_loadArray[classIndex].cls)
            AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName.c_str());
        cls = m_loadArray[classIndex].cls;
    }
    if (requested && !cls->IsDerivedFrom(requested))
        AfxThrowArchiveException(CArchiveException::badClass, m_strFileName.c_str());
    if (m_depth >= kArchiveMaxDepth) AfxThrowArchiveException(CArchiveException::genericException, m_strFileName.c_str());
    if (m_loadArray.size() >= kMaxMapCount) AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName.c_str());

    CObject* ob = cls->CreateObject();
    if (!ob) AfxThrowMemoryException();
    size_t slot = m_loadArray.size();
    m_loadArray.push_back({nullptr, ob});
    ++m_depth;
    try {
        ob->Serialize(*this);
    } catch (...) {
        --m_depth;
        // The object was never handed out: release it, and drop the entry so
        // that no later reference can reach it.
        m_loadArray[slot].object = nullptr;
        delete ob;
        throw;
    }
    --m_depth;
    if (mode == ReadMode::referenceOrNew) m_orphans.emplace_back(ob);
    return ob;
}
