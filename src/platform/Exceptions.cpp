#include "platform/Exceptions.h"

#include <cstring>

#include "platform/Messages.h"

BOOL CException::GetErrorMessage(char* buffer, UINT size, UINT* helpContext) const {
    if (helpContext) *helpContext = 0;
    if (!buffer || size == 0) return FALSE;
    std::string text = GetMessageText();
    size_t n = std::min<size_t>(text.size(), size - 1);
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    return TRUE;
}

const char* CException::what() const noexcept {
    try {
        what_ = GetMessageText();
    } catch (...) {
        return "exception";
    }
    return what_.c_str();
}

int CException::ReportError() const { return AfxMessageBox(GetMessageText()); }

std::string CArchiveException::GetMessageText() const {
    static const char* const texts[] = {
        "No error", "Unexpected archive error", "Tried to write to an archive opened for loading",
        "Attempted to read past the end of the archive data", "Tried to read from an archive opened for storing",
        "Invalid object index in archive data", "Archive data names an unknown or unexpected class",
        "Archive data is of a newer, unsupported version"};
    std::string text = (m_cause >= 0 && m_cause <= badSchema) ? texts[m_cause] : texts[genericException];
    if (!m_strFileName.empty()) text += " (" + m_strFileName + ")";
    return text;
}

std::string CFileException::GetMessageText() const {
    std::string detail;
    if (m_lOsError > 0 && GetSystemErrorText(m_lOsError, detail)) {
        // French system text, as the message boxes show it.
    } else {
        detail = "File error " + std::to_string(m_cause);
    }
    if (!m_strFileName.empty()) return m_strFileName + ": " + detail;
    return detail;
}

int CFileException::OsErrorToException(long osError) {
    switch (osError) {
        case 0: return none;
        case ERROR_FILE_NOT_FOUND: return fileNotFound;
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_NAME:
        case ERROR_FILENAME_EXCED_RANGE: return badPath;
        case ERROR_TOO_MANY_OPEN_FILES: return tooManyOpenFiles;
        case ERROR_ACCESS_DENIED:
        case ERROR_WRITE_PROTECT: return accessDenied;
        case ERROR_INVALID_HANDLE: return invalidFile;
        case ERROR_SEEK: return badSeek;
        case ERROR_READ_FAULT:
        case ERROR_WRITE_FAULT:
        case ERROR_GEN_FAILURE: return hardIO;
        case ERROR_SHARING_VIOLATION: return sharingViolation;
        case ERROR_LOCK_VIOLATION: return lockViolation;
        case ERROR_DISK_FULL: return diskFull;
        case ERROR_HANDLE_EOF: return endOfFile;
        default: return genericException;
    }
}

void AfxThrowMemoryException() { throw CMemoryException(); }
void AfxThrowInvalidArgException() { throw CInvalidArgException(); }
void AfxThrowArchiveException(int cause, const char* fileName) {
    throw CArchiveException(cause, fileName ? fileName : "");
}
void AfxThrowFileException(int cause, long osError, const char* fileName) {
    throw CFileException(cause, osError, fileName ? fileName : "");
}
