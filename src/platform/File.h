// Binary files over POSIX descriptors, and an in-memory file.
//
// Share modes follow one rule: an open that can write and denies writing to
// others (shareDenyWrite or shareExclusive) takes an exclusive advisory lock
// (flock, non-blocking) on the file; when another open holds it the open
// fails with system error 32 (sharing violation).  Read-only opens take no
// lock.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>
#include <vector>

#include "platform/Exceptions.h"
#include "platform/Object.h"

class CFile : public CObject {
    DECLARE_DYNAMIC(CFile)
public:
    enum OpenFlags : UINT {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareCompat = 0x0000,
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeNoTruncate = 0x1000,
        modeCreate = 0x2000,
        typeText = 0x4000,
        typeBinary = 0x8000,
        osWriteThrough = 0x10000,
    };
    enum SeekPosition { begin = 0, current = 1, end = 2 };

    CFile();
    CFile(const char* fileName, UINT openFlags);  // throws CFileException
    ~CFile() override;
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // Returns FALSE on failure and fills error when given.
    virtual BOOL Open(const char* fileName, UINT openFlags, CFileException* error = nullptr);
    virtual void Close();
    // Closes without throwing.
    virtual void Abort();

    // Reads up to count bytes; returns the number read (0 at end of file).
    virtual UINT Read(void* buffer, UINT count);
    virtual void Write(const void* buffer, UINT count);
    virtual ULONGLONG Seek(LONGLONG offset, UINT from);
    ULONGLONG SeekToBegin() { return Seek(0, begin); }
    ULONGLONG SeekToEnd() { return Seek(0, end); }
    virtual ULONGLONG GetPosition() const;
    virtual ULONGLONG GetLength() const;
    virtual void SetLength(ULONGLONG newLength);
    virtual void Flush();
    // Flushes and forces the data to the disk (fsync).
    void FlushToDisk();
    // Asks the system to start writing a range of the file to the disk now,
    // without waiting; a later FlushToDisk then has less left to do.  A hint
    // only: nothing is reported, and systems without it ignore the call.
    void StartWriteBack(ULONGLONG offset, ULONGLONG length);

    bool IsOpen() const { return m_hFile >= 0; }
    const std::string& GetFilePath() const { return m_strFileName; }
    int GetHandle() const { return m_hFile; }

    static void Rename(const char* oldName, const char* newName);  // throws CFileException
    static void Remove(const char* fileName);                      // throws CFileException

protected:
    [[noreturn]] void ThrowLastError() const;

    int m_hFile = -1;
    bool m_bLocked = false;
    std::string m_strFileName;
};

// A file held in memory: either a growable buffer of its own, or a fixed
// buffer attached by the caller (which keeps ownership).
class CMemFile : public CFile {
    DECLARE_DYNAMIC(CMemFile)
public:
    CMemFile() = default;
    CMemFile(const BYTE* buffer, size_t size) { Attach(buffer, size); }
    ~CMemFile() override = default;

    void Attach(const BYTE* buffer, size_t size);
    // The current contents of an owned buffer.
    const std::vector<BYTE>& GetBuffer() const { return m_data; }
    std::vector<BYTE> Detach();

    BOOL Open(const char*, UINT, CFileException* = nullptr) override { return FALSE; }
    void Close() override;
    void Abort() override { Close(); }
    UINT Read(void* buffer, UINT count) override;
    void Write(const void* buffer, UINT count) override;
    ULONGLONG Seek(LONGLONG offset, UINT from) override;
    ULONGLONG GetPosition() const override { return m_pos; }
    ULONGLONG GetLength() const override { return m_external ? m_externalSize : m_data.size(); }
    void SetLength(ULONGLONG newLength) override;
    void Flush() override {}

private:
    const BYTE* data() const { return m_external ? m_external : m_data.data(); }

    std::vector<BYTE> m_data;
    const BYTE* m_external = nullptr;
    size_t m_externalSize = 0;
    size_t m_pos = 0;
};
#pragma GCC visibility pop
