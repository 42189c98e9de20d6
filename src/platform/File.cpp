#include "platform/File.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include "platform/Messages.h"

IMPLEMENT_DYNAMIC(CFile, CObject)
IMPLEMENT_DYNAMIC(CMemFile, CFile)

CFile::CFile() = default;

CFile::CFile(const char* fileName, UINT openFlags) {
    CFileException e;
    if (!Open(fileName, openFlags, &e)) throw e;
}

CFile::~CFile() {
    if (m_hFile >= 0) Abort();
}

BOOL CFile::Open(const char* fileName, UINT openFlags, CFileException* error) {
    if (m_hFile >= 0) Abort();
    if (!fileName || !*fileName) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        if (error) *error = CFileException(CFileException::badPath, ERROR_PATH_NOT_FOUND, fileName ? fileName : "");
        return FALSE;
    }
    int flags = O_CLOEXEC;
    UINT access = openFlags & 3;
    if (access == modeWrite) flags |= O_WRONLY;
    else if (access == modeReadWrite) flags |= O_RDWR;
    else flags |= O_RDONLY;
    if (openFlags & modeCreate) {
        flags |= O_CREAT;
        if (!(openFlags & modeNoTruncate)) flags |= O_TRUNC;
    }
    // Truncation must wait until the lock is held, or a second writer would
    // destroy the first one's data before being refused.
    bool truncate = (flags & O_TRUNC) != 0;
    flags &= ~O_TRUNC;
    int fd = ::open(fileName, flags, 0666);
    if (fd < 0) {
        long code = ErrnoToSystemError(errno);
        SetLastError(code);
        if (error) *error = CFileException(CFileException::OsErrorToException(code), code, fileName);
        return FALSE;
    }
    struct stat st {};
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        SetLastError(ERROR_ACCESS_DENIED);
        if (error) *error = CFileException(CFileException::accessDenied, ERROR_ACCESS_DENIED, fileName);
        return FALSE;
    }
    UINT share = openFlags & 0x70;
    bool writes = access != modeRead;
    bool lock = writes && (share == shareDenyWrite || share == shareExclusive);
    if (lock && ::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        int err = errno;
        ::close(fd);
        long code = (err == EWOULDBLOCK) ? ERROR_SHARING_VIOLATION : ErrnoToSystemError(err);
        SetLastError(code);
        if (error) *error = CFileException(CFileException::OsErrorToException(code), code, fileName);
        return FALSE;
    }
    if (truncate && ::ftruncate(fd, 0) != 0) {
        long code = ErrnoToSystemError(errno);
        ::close(fd);
        SetLastError(code);
        if (error) *error = CFileException(CFileException::OsErrorToException(code), code, fileName);
        return FALSE;
    }
    m_hFile = fd;
    m_bLocked = lock;
    m_strFileName = fileName;
    return TRUE;
}

void CFile::ThrowLastError() const {
    long code = ErrnoToSystemError(errno);
    SetLastError(code);
    AfxThrowFileException(CFileException::OsErrorToException(code), code, m_strFileName.c_str());
}

void CFile::Close() {
    if (m_hFile < 0) return;
    int fd = m_hFile;
    m_hFile = -1;
    m_bLocked = false;
    if (::close(fd) != 0) ThrowLastError();
}

void CFile::Abort() {
    if (m_hFile < 0) return;
    ::close(m_hFile);
    m_hFile = -1;
    m_bLocked = false;
}

UINT CFile::Read(void* buffer, UINT count) {
    if (m_hFile < 0) AfxThrowFileException(CFileException::invalidFile, ERROR_INVALID_HANDLE, m_strFileName.c_str());
    auto* p = static_cast<char*>(buffer);
    UINT done = 0;
    while (done < count) {
        ssize_t n = ::read(m_hFile, p + done, count - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            ThrowLastError();
        }
        if (n == 0) break;
        done += static_cast<UINT>(n);
    }
    return done;
}

void CFile::Write(const void* buffer, UINT count) {
    if (m_hFile < 0) AfxThrowFileException(CFileException::invalidFile, ERROR_INVALID_HANDLE, m_strFileName.c_str());
    const auto* p = static_cast<const char*>(buffer);
    UINT done = 0;
    while (done < count) {
        ssize_t n = ::write(m_hFile, p + done, count - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            ThrowLastError();
        }
        done += static_cast<UINT>(n);
    }
}

ULONGLONG CFile::Seek(LONGLONG offset, UINT from) {
    int whence = from == begin ? SEEK_SET : from == current ? SEEK_CUR : SEEK_END;
    off_t r = ::lseek(m_hFile, static_cast<off_t>(offset), whence);
    if (r < 0) ThrowLastError();
    return static_cast<ULONGLONG>(r);
}

ULONGLONG CFile::GetPosition() const {
    off_t r = ::lseek(m_hFile, 0, SEEK_CUR);
    if (r < 0) ThrowLastError();
    return static_cast<ULONGLONG>(r);
}

ULONGLONG CFile::GetLength() const {
    struct stat st {};
    if (::fstat(m_hFile, &st) != 0) ThrowLastError();
    return static_cast<ULONGLONG>(st.st_size);
}

void CFile::SetLength(ULONGLONG newLength) {
    if (::ftruncate(m_hFile, static_cast<off_t>(newLength)) != 0) ThrowLastError();
}

void CFile::Flush() {}

void CFile::FlushToDisk() {
    if (m_hFile >= 0 && ::fsync(m_hFile) != 0) ThrowLastError();
}

void CFile::StartWriteBack(ULONGLONG offset, ULONGLONG length) {
#if defined(__linux__)
    if (m_hFile >= 0 && length > 0)
        (void)::sync_file_range(m_hFile, off64_t(offset), off64_t(length), SYNC_FILE_RANGE_WRITE);
#else
    (void)offset;
    (void)length;
#endif
}

void CFile::Rename(const char* oldName, const char* newName) {
    if (::rename(oldName, newName) != 0) {
        long code = ErrnoToSystemError(errno);
        SetLastError(code);
        AfxThrowFileException(CFileException::OsErrorToException(code), code, oldName);
    }
}

void CFile::Remove(const char* fileName) {
    if (::unlink(fileName) != 0) {
        long code = ErrnoToSystemError(errno);
        SetLastError(code);
        AfxThrowFileException(CFileException::OsErrorToException(code), code, fileName);
    }
}

// ---------------------------------------------------------------------------

void CMemFile::Attach(const BYTE* buffer, size_t size) {
    m_data.clear();
    m_external = buffer;
    m_externalSize = size;
    m_pos = 0;
}

std::vector<BYTE> CMemFile::Detach() {
    std::vector<BYTE> out;
    if (m_external) out.assign(m_external, m_external + m_externalSize);
    else out.swap(m_data);
    m_external = nullptr;
    m_externalSize = 0;
    m_pos = 0;
    return out;
}

void CMemFile::Close() {
    m_data.clear();
    m_external = nullptr;
    m_externalSize = 0;
    m_pos = 0;
}

UINT CMemFile::Read(void* buffer, UINT count) {
    size_t len = GetLength();
    if (m_pos >= len) return 0;
    size_t n = std::min<size_t>(count, len - m_pos);
    std::memcpy(buffer, data() + m_pos, n);
    m_pos += n;
    return static_cast<UINT>(n);
}

void CMemFile::Write(const void* buffer, UINT count) {
    if (m_external) AfxThrowFileException(CFileException::accessDenied, ERROR_ACCESS_DENIED);
    if (m_pos + count > m_data.size()) m_data.resize(m_pos + count);
    if (count) std::memcpy(m_data.data() + m_pos, buffer, count);
    m_pos += count;
}

ULONGLONG CMemFile::Seek(LONGLONG offset, UINT from) {
    LONGLONG base = from == begin ? 0 : from == current ? static_cast<LONGLONG>(m_pos) : static_cast<LONGLONG>(GetLength());
    LONGLONG target = base + offset;
    if (target < 0) AfxThrowFileException(CFileException::badSeek, ERROR_SEEK);
    m_pos = static_cast<size_t>(target);
    return m_pos;
}

void CMemFile::SetLength(ULONGLONG newLength) {
    if (m_external) AfxThrowFileException(CFileException::accessDenied, ERROR_ACCESS_DENIED);
    m_data.resize(static_cast<size_t>(newLength));
    if (m_pos > m_data.size()) m_pos = m_data.size();
}
