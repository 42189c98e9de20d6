// Object archive: the byte format that the suite's programs share.
//
//   integers and floats   raw little-endian (BYTE 1, WORD 2, DWORD/LONG/float 4, double 8)
//   count                 n < 0xFFFF: WORD n; else WORD 0xFFFF, DWORD n
//   string                length < 0xFF: BYTE len; < 0xFFFE: BYTE 0xFF, WORD len;
//                         else BYTE 0xFF, WORD 0xFFFF, DWORD len; then the bytes (Windows-1252)
//                         wide form: BYTE 0xFF, WORD 0xFFFE, then the same prefix counted in
//                         UTF-16 units, then UTF-16LE units
//   object                null: WORD 0; back reference: WORD pid (or WORD 0x7FFF, DWORD pid);
//                         new class: WORD 0xFFFF, WORD schema, WORD name length, name, data;
//                         known class: WORD 0x8000|class pid (or WORD 0x7FFF, DWORD
//                         0x80000000|class pid), data
//
// Persistent ids count from 1 in order of first appearance; a class takes an id
// when its first object is written and each object takes the next one.
//
// A loading archive never reads past the end of its data: a short read raises
// CArchiveException::endOfFile, and every count is checked against the bytes
// that remain before anything is allocated for it.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/Exceptions.h"
#include "platform/File.h"
#include "platform/Object.h"

class CArchive {
public:
    enum Mode : UINT { store = 0, load = 1, bNoFlushOnDelete = 2 };

    // The archive does not own the file.  bufSize is the size of the transfer
    // buffer between the archive and the file.
    CArchive(CFile* file, UINT mode, int bufSize = 4096);
    ~CArchive();
    CArchive(const CArchive&) = delete;
    CArchive& operator=(const CArchive&) = delete;

    bool IsLoading() const { return m_loading; }
    bool IsStoring() const { return !m_loading; }
    CFile* GetFile() const { return m_file; }

    // Writes buffered bytes to the file (storing) and detaches from it.
    void Close();
    // Detaches without writing anything further; never throws.
    void Abort();
    void Flush();

    // Reads up to count bytes and returns how many were read.
    UINT Read(void* buffer, UINT count);
    // Reads exactly count bytes or throws endOfFile.
    void ReadExact(void* buffer, size_t count);
    void Write(const void* buffer, size_t count);

    // Bytes that a loading archive can still read.
    ULONGLONG GetRemaining() const;
    // Throws endOfFile unless count elements of at least elemSize bytes each
    // can still be read; called before allocating for a count read from data.
    void CheckCount(ULONGLONG count, size_t elemSize) const;

    void WriteCount(ULONGLONG count);
    DWORD ReadCount();

    // Scalars.
    CArchive& operator<<(BYTE v) { return PutRaw(&v, 1); }
    CArchive& operator<<(signed char v) { return PutRaw(&v, 1); }
    CArchive& operator<<(WORD v) { return PutLE(v); }
    CArchive& operator<<(short v) { return PutLE(static_cast<WORD>(v)); }
    CArchive& operator<<(DWORD v) { return PutLE(v); }
    CArchive& operator<<(int v) { return PutLE(static_cast<DWORD>(v)); }
    CArchive& operator<<(long long v) { return PutLE(static_cast<ULONGLONG>(v)); }
    CArchive& operator<<(unsigned long long v) { return PutLE(static_cast<ULONGLONG>(v)); }
    CArchive& operator<<(float v);
    CArchive& operator<<(double v);
    // Sizes of long differ between platforms: say which width is meant.
    CArchive& operator<<(long) = delete;
    CArchive& operator<<(unsigned long) = delete;
    CArchive& operator<<(char) = delete;
    CArchive& operator<<(bool) = delete;

    CArchive& operator>>(BYTE& v) { return GetRaw(&v, 1); }
    CArchive& operator>>(signed char& v) { return GetRaw(&v, 1); }
    CArchive& operator>>(WORD& v) { return GetLE(v); }
    CArchive& operator>>(short& v);
    CArchive& operator>>(DWORD& v) { return GetLE(v); }
    CArchive& operator>>(int& v);
    CArchive& operator>>(long long& v);
    CArchive& operator>>(unsigned long long& v) { return GetLE(v); }
    CArchive& operator>>(float& v);
    CArchive& operator>>(double& v);
    CArchive& operator>>(long&) = delete;
    CArchive& operator>>(unsigned long&) = delete;
    CArchive& operator>>(char&) = delete;
    CArchive& operator>>(bool&) = delete;

    // Strings: UTF-8 in memory, Windows-1252 (or the wide form) in the archive.
    CArchive& operator<<(const std::string& s);
    CArchive& operator<<(const char* s) { return *this << std::string(s ? s : ""); }
    CArchive& operator>>(std::string& s);

    // Objects.
    void WriteObject(const CObject* object);
    // Reads an object that the caller will own: null or a new object.  A back
    // reference here is refused (badIndex), so that a hostile archive cannot
    // give one object two owners.  requested, when given, is the class the
    // object must derive from (else badClass).
    CObject* ReadObject(const CRuntimeClass* requested);
    // Reads a reference the caller does not own: null, a back reference, or,
    // when allowNew, a new object, which the archive keeps and deletes when it
    // is destroyed (callers repair or drop such pointers after loading).
    CObject* ReadReference(const CRuntimeClass* requested, bool allowNew = false);
    // Hands over a new object that ReadReference(.., true) read and the
    // archive keeps: null when `object` is no such object (a back reference
    // to an object someone else owns).
    std::unique_ptr<CObject> TakeNewReference(CObject* object);
    CArchive& operator<<(const CObject* object) {
        WriteObject(object);
        return *this;
    }

    // Accepted for compatibility with callers that tune the load map; the
    // map grows as needed.
    void SetLoadParams(UINT /*growBy*/) {}
    void SetStoreParams(UINT /*hashSize*/, UINT /*blockSize*/) {}

    // Name of the file being archived, for messages.
    std::string m_strFileName;

private:
    template <class T>
    CArchive& PutLE(T v) {
        BYTE b[sizeof(T)];
        for (size_t i = 0; i < sizeof(T); ++i) b[i] = static_cast<BYTE>(static_cast<ULONGLONG>(v) >> (8 * i));
        return PutRaw(b, sizeof(T));
    }
    template <class T>
    CArchive& GetLE(T& v) {
        BYTE b[sizeof(T)];
        GetRaw(b, sizeof(T));
        ULONGLONG r = 0;
        for (size_t i = 0; i < sizeof(T); ++i) r |= static_cast<ULONGLONG>(b[i]) << (8 * i);
        v = static_cast<T>(r);
        return *this;
    }
    CArchive& PutRaw(const void* p, size_t n) {
        Write(p, n);
        return *this;
    }
    CArchive& GetRaw(void* p, size_t n) {
        ReadExact(p, n);
        return *this;
    }
    void FillBuffer();
    void CheckLoading() const;
    void CheckStoring() const;
    void WriteTagWithIndex(DWORD index, bool isClass);
    enum class ReadMode { owned, reference, referenceOrNew };
    CObject* ReadObjectImpl(const CRuntimeClass* requested, ReadMode mode);

    CFile* m_file;
    bool m_loading;
    bool m_closed = false;
    std::vector<BYTE> m_buf;
    size_t m_bufPos = 0;   // next byte to read, or number of bytes written into m_buf
    size_t m_bufEnd = 0;   // loading: bytes valid in m_buf
    ULONGLONG m_fileRemaining = 0;  // loading: bytes not yet fetched from the file

    // Persistent ids.  Storing: object or class address -> pid.  Loading:
    // pid -> class or object.
    DWORD m_nMapCount = 1;
    std::unordered_map<const void*, DWORD> m_storeMap;
    struct LoadEntry {
        const CRuntimeClass* cls = nullptr;
        CObject* object = nullptr;
    };
    std::vector<LoadEntry> m_loadArray;
    std::vector<std::unique_ptr<CObject>> m_orphans;  // new objects read as references
    int m_depth = 0;
};

// Largest nesting of objects inside objects that an archive accepts on
// loading: a hostile file cannot exhaust the stack.
inline constexpr int kArchiveMaxDepth = 200;
#pragma GCC visibility pop
