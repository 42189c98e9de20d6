#include "sigfile/SIGFILE.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/Assert.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "sigfile/FormatDriver.h"

IMPLEMENT_DYNAMIC(CSigFile, CObject)

const char* GetSigFileFormatName(unsigned format) {
    if (const CSigFileDriver* d = GetSigFileDriver(format)) return d->name;
    return "unknown";
}

const CSigFileDriver* GetSigFileDriver(unsigned format) {
    switch (format) {
        case SIGFILE_FORMAT_NATIVE: return &g_nativeDriver;
        case SIGFILE_FORMAT_DOS: return &g_dosDriver;
        case SIGFILE_FORMAT_NIHONKOHDEN: return &g_nihonKohdenDriver;
        case SIGFILE_FORMAT_BMSI: return &g_bmsiDriver;
        case SIGFILE_FORMAT_SERVER: return &g_serverDriver;
        default: return nullptr;
    }
}

int IsOsgFileFormat(const char* name) {
    if (!name || !*name) return 0;
    if (!EqualsNoCase(ExtractExt(name), ".SIG")) return 0;
    int fd = ::open(name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    char head[8];
    ssize_t got = 0;
    while (got < 8) {
        ssize_t n = ::read(fd, head + got, static_cast<size_t>(8 - got));
        if (n <= 0) break;
        got += n;
    }
    ::close(fd);
    return got == 8 && std::memcmp(head, "KQUARSIG", 8) == 0;
}

unsigned GetSigFileFormat(const char* name) {
    if (!name || !*name) return SIGFILE_FORMAT_UNKNOWN;
    // Strong signature first: the server's own ".SIG" files are never taken
    // for native recordings.
    if (IsOsgFileFormat(name)) return SIGFILE_FORMAT_SERVER;
    for (unsigned format : {SIGFILE_FORMAT_NATIVE, SIGFILE_FORMAT_DOS, SIGFILE_FORMAT_NIHONKOHDEN,
                            SIGFILE_FORMAT_BMSI, SIGFILE_FORMAT_SERVER}) {
        const CSigFileDriver* d = GetSigFileDriver(format);
        if (d->IsValidFormat && d->IsValidFormat(name)) return format;
    }
    return SIGFILE_FORMAT_UNKNOWN;
}

// ---------------------------------------------------------------------------
// Messages

void CSigFile::ErrorMessageBox(const char* name, long code) {
    if (!name || !*name) return;
    std::string detail;
    if (code == ERROR_BAD_FORMAT) {
        detail = LoadResString(IDS_ERR_INVALID_FORMAT);
    } else if (code == ERROR_BAD_LENGTH) {
        detail = LoadResString(IDS_ERR_24_HOURS);
    } else if (!GetSystemErrorText(code, detail)) {
        detail = StrFormat(LoadResString(IDS_ERR_CODE).c_str(), code);
    }
    if (Utf8Length(detail) > 512) detail = Utf8Left(detail, 512);
    AfxMessageBox(StrFormat(LoadResString(IDS_ERR_FILE_BOX).c_str(), name, detail.c_str()));
}

void SetErrorCondition(const char* sourceFile, int line, const char* message) {
    std::string text;
    if (message)
        text = StrFormat("%s \n%s %s %d", message, LoadResString(IDS_AT).c_str(), sourceFile ? sourceFile : "", line);
    else
        text = StrFormat("%s %d", sourceFile ? sourceFile : "", line);
    AfxMessageBox(text, "Moltrane32 - " + LoadResString(IDS_INTERNAL_ERROR));
    std::exit(0);
}

// ---------------------------------------------------------------------------
// Static operations

CSigFile* CSigFile::Open(const char* name, int readOnly, long* error, int /*reserved*/, int check24Hours) {
    long err = 0;
    CSigFile* file = nullptr;
    int ro = readOnly;
    for (int attempt = 0; attempt < 2; ++attempt) {
        err = 0;
        unsigned format = GetSigFileFormat(name);
        const CSigFileDriver* d = GetSigFileDriver(format);
        if (!d) {
            err = ERROR_BAD_FORMAT;
        } else if (!d->Open) {
            err = ERROR_NOT_SUPPORTED;
        } else {
            file = d->Open(name, ro, &err);
            if (!file && err == 0) err = ERROR_BAD_FORMAT;
        }
        if (file && check24Hours && !IsDurationWithin24hrs(file)) {
            file->Close();
            delete file;
            file = nullptr;
            err = ERROR_BAD_LENGTH;
        }
        // A read-write attempt that failed for any other reason is tried once
        // more read-only; the caller can ask IsReadOnly.
        if (file || ro || err == ERROR_BAD_LENGTH) break;
        ro = 1;
    }
    if (error) *error = file ? 0 : err;
    else if (!file && err != 0 && err != -1) ErrorMessageBox(name, err);
    return file;
}

CSigFile* CSigFile::Create(const char* name, CFileHeader* header, CPatientInfo* patient, CPhysicalMontage* montage,
                           CCalibration* calibration, unsigned format, long* error, int validate) {
    long err = 0;
    CSigFile* file = nullptr;
    if (validate && !PhysicalMontageHasRecordingMontage(montage)) {
        err = ERROR_INVALID_PARAMETER;
    } else if (format == SIGFILE_FORMAT_BMSI) {
        SetLastError(ERROR_INVALID_FUNCTION);
        err = ERROR_INVALID_FUNCTION;
    } else if (format != SIGFILE_FORMAT_NATIVE && format != SIGFILE_FORMAT_DOS && format != SIGFILE_FORMAT_SERVER) {
        VhlAssert("SIGFILE", 451);
        err = ERROR_BAD_FORMAT;
    } else {
        const CSigFileDriver* d = GetSigFileDriver(format);
        if (!d->Create) err = ERROR_NOT_SUPPORTED;
        else file = d->Create(name, header, patient, montage, calibration, &err);
        if (!file && err == 0) err = ERROR_GEN_FAILURE;
    }
    if (error) *error = file ? 0 : err;
    else if (!file && err != 0 && err != -1) ErrorMessageBox(name, err);
    return file;
}

int CSigFile::Delete(const char* name) {
    const CSigFileDriver* d = GetSigFileDriver(GetSigFileFormat(name));
    return d && d->Delete ? d->Delete(name) : 0;
}

int CSigFile::Copy(const char* from, const char* to, CProgressInfo* progress) {
    if (!from || !to) return 0;
    if (EqualsNoCase(from, to)) return 0;
    const CSigFileDriver* d = GetSigFileDriver(GetSigFileFormat(from));
    return d && d->Copy ? d->Copy(from, to, progress) : 0;
}

int CSigFile::Rename(const char* from, const char* to) {
    if (!from || !to) return 0;
    const CSigFileDriver* d = GetSigFileDriver(GetSigFileFormat(from));
    return d && d->Rename ? d->Rename(from, to) : 0;
}

int CSigFile::IsValidFormat(const char* name) { return GetSigFileFormat(name) > 0 ? 1 : 0; }

ULONGLONG CSigFile::GetDVSize(const char* name) {
    if (GetSigFileFormat(name) != SIGFILE_FORMAT_NATIVE) return 0;
    return g_nativeDriver.GetDVSize ? g_nativeDriver.GetDVSize(name) : 0;
}

ULONGLONG CSigFile::GetDVIdxSize(const char* name) {
    if (GetSigFileFormat(name) != SIGFILE_FORMAT_NATIVE) return 0;
    return g_nativeDriver.GetDVIdxSize ? g_nativeDriver.GetDVIdxSize(name) : 0;
}

int CSigFile::HasDV(const char* name) {
    if (GetSigFileFormat(name) != SIGFILE_FORMAT_NATIVE) return 0;
    return g_nativeDriver.HasDV ? g_nativeDriver.HasDV(name) : 0;
}

CSigQuickInfo* CSigFile::GetFileQuickInfo(const char* name, long* error) {
    long err = 0;
    CSigQuickInfo* info = nullptr;
    const CSigFileDriver* d = GetSigFileDriver(GetSigFileFormat(name));
    if (!d) err = ERROR_BAD_FORMAT;
    else if (!d->GetFileQuickInfo) err = ERROR_NOT_SUPPORTED;
    else info = d->GetFileQuickInfo(name, &err);
    if (error) *error = info ? 0 : err;
    return info;
}

void CSigFile::GetStsExtensions(const char* name, CStringArray* extensions) {
    if (!extensions) return;
    extensions->RemoveAll();
    if (!name || !*name) return;
    std::string base = ExtractBase(name);
    for (int i = 0; i <= 999; ++i) {
        std::string ext = StrFormat(".%.3d", i);
        if (VhlCheckFileExist(base + ext)) extensions->Add(ext);
    }
}

bool IsFileOfRecording(const std::string& sigName, const std::string& name) {
    const std::string base = ExtractBase(sigName);
    if (IsSameFile(sigName, name)) return true;
    for (const char* ext : {".STS", ".ST$", ".$T$"})
        if (IsSameFile(base + ext, name)) return true;
    CStringArray extensions;
    CSigFile::GetStsExtensions(sigName.c_str(), &extensions);
    for (const std::string& ext : extensions)
        if (IsSameFile(base + ext, name)) return true;
    return false;
}

int CSigFile::CopyStsFile(const char* from, const char* to, CProgressInfo* progress) {
    if (!from || !to) return 0;
    std::string fromBase = ExtractBase(from), toBase = ExtractBase(to);
    CopyProgress report;
    if (progress)
        report = [progress](ULONGLONG done, ULONGLONG total) {
            progress->SetRange(total);
            progress->SetPos(done);
            return !progress->IsCancelled();
        };
    if (!CopyFileReplace(fromBase + ".STS", toBase + ".STS", report)) return 0;
    CStringArray extensions;
    GetStsExtensions(from, &extensions);
    for (const std::string& ext : extensions)
        if (!CopyFileReplace(fromBase + ext, toBase + ext, report)) return 0;
    return 1;
}

int CSigFile::RenameStsFile(const char* from, const char* to) {
    if (!from || !to) return 0;
    std::string fromBase = ExtractBase(from), toBase = ExtractBase(to);
    CStringArray extensions;
    GetStsExtensions(from, &extensions);
    if (!MoveFileReplace(fromBase + ".STS", toBase + ".STS")) return 0;
    for (const std::string& ext : extensions)
        if (!MoveFileReplace(fromBase + ext, toBase + ext)) return 0;
    return 1;
}

int CSigFile::DeleteStsFile(const char* name) {
    if (!name) return 0;
    std::string base = ExtractBase(name);
    CStringArray extensions;
    GetStsExtensions(name, &extensions);
    int ok = 1;
    for (const std::string& ext : extensions)
        if (!DeleteFileName(base + ext)) ok = 0;
    return ok;
}
