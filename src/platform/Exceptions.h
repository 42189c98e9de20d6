// The exception family of the platform layer: archive, file, memory and
// invalid-argument exceptions, plus the simple-exception base that the
// library's own CGenericException derives from.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <exception>
#include <string>

#include "platform/Types.h"

class CException : public std::exception {
public:
    ~CException() override = default;
    // Copies at most size - 1 characters of the exception's text into buffer.
    virtual BOOL GetErrorMessage(char* buffer, UINT size, UINT* helpContext = nullptr) const;
    virtual std::string GetMessageText() const { return "Unknown exception"; }
    const char* what() const noexcept override;
    // Shows the text through the message sink.
    virtual int ReportError() const;

private:
    mutable std::string what_;
};

class CSimpleException : public CException {};

class CMemoryException : public CSimpleException {
public:
    std::string GetMessageText() const override { return "Out of memory"; }
};

class CInvalidArgException : public CSimpleException {
public:
    std::string GetMessageText() const override { return "Invalid argument"; }
};

class CArchiveException : public CException {
public:
    enum {
        none = 0,
        genericException = 1,
        readOnly = 2,
        endOfFile = 3,
        writeOnly = 4,
        badIndex = 5,
        badClass = 6,
        badSchema = 7,
    };
    explicit CArchiveException(int cause = none, std::string fileName = {})
        : m_cause(cause), m_strFileName(std::move(fileName)) {}
    std::string GetMessageText() const override;

    int m_cause;
    std::string m_strFileName;
};

class CFileException : public CException {
public:
    enum {
        none = 0,
        genericException = 1,
        fileNotFound = 2,
        badPath = 3,
        tooManyOpenFiles = 4,
        accessDenied = 5,
        invalidFile = 6,
        removeCurrentDir = 7,
        directoryFull = 8,
        badSeek = 9,
        hardIO = 10,
        sharingViolation = 11,
        lockViolation = 12,
        diskFull = 13,
        endOfFile = 14,
    };
    CFileException(int cause = none, long osError = -1, std::string fileName = {})
        : m_cause(cause), m_lOsError(osError), m_strFileName(std::move(fileName)) {}
    std::string GetMessageText() const override;
    // Maps a system error code to the nearest file-exception cause.
    static int OsErrorToException(long osError);

    int m_cause;
    long m_lOsError;  // system error code (2, 3, 5, 32, 112, ...)
    std::string m_strFileName;
};

[[noreturn]] void AfxThrowMemoryException();
[[noreturn]] void AfxThrowInvalidArgException();
[[noreturn]] void AfxThrowArchiveException(int cause, const char* fileName = nullptr);
[[noreturn]] void AfxThrowFileException(int cause, long osError = -1, const char* fileName = nullptr);
#pragma GCC visibility pop
