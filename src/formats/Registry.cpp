// The registry of recording formats and the static operations of CSigFile
// that dispatch to them.
//
// Probing order (GetSigFileFormat): every driver's Identify in the order of
// the table below, the first that accepts deciding.  Drivers that recognise
// a file by a signature in its first bytes come first, so that a strong
// signature is never taken for a format recognised by its name alone:
//
//   5  external server's ".SIG"   ".SIG" name and "KQUARSIG" at byte 0
//   6  EDF / EDF+                 "0" + 7 spaces at byte 0, a 256-byte header
//   7  BDF / BDF+                 byte 0xFF + "BIOSEMI" at byte 0
//   3  Nihon Kohden               device signature of an ".EEG" file
//   1  native                     ".SIG" name (any case)
//   2  legacy DOS, 4 BMSI         (recognise nothing on this platform)
//   5  external server            asks the server (none here)
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Assert.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "platform/strings/RegistryStrings.h"
#include "sigfile/FormatDriver.h"

// Drivers, one per format, each defined beside its format's code.
extern const CSigFileDriver g_serverSignatureDriver;
extern const CSigFileDriver g_edfDriver;
extern const CSigFileDriver g_bdfDriver;
extern const CSigFileDriver g_nihonKohdenDriver;
extern const CSigFileDriver g_nativeDriver;
extern const CSigFileDriver g_dosDriver;
extern const CSigFileDriver g_bmsiDriver;
extern const CSigFileDriver g_serverDriver;

const std::vector<const CSigFileDriver*>& GetSigFileDrivers() {
    static const std::vector<const CSigFileDriver*> drivers = {
        &g_serverSignatureDriver, &g_edfDriver, &g_bdfDriver, &g_nihonKohdenDriver,
        &g_nativeDriver,          &g_dosDriver, &g_bmsiDriver, &g_serverDriver};
    return drivers;
}

const CSigFileDriver* GetSigFileDriver(unsigned format) {
    switch (format) {
        case SIGFILE_FORMAT_NATIVE: return &g_nativeDriver;
        case SIGFILE_FORMAT_DOS: return &g_dosDriver;
        case SIGFILE_FORMAT_NIHONKOHDEN: return &g_nihonKohdenDriver;
        case SIGFILE_FORMAT_BMSI: return &g_bmsiDriver;
        case SIGFILE_FORMAT_SERVER: return &g_serverDriver;
        case SIGFILE_FORMAT_EDF: return &g_edfDriver;
        case SIGFILE_FORMAT_BDF: return &g_bdfDriver;
        default: return nullptr;
    }
}

const char* GetSigFileFormatName(unsigned format) {
    if (const CSigFileDriver* d = GetSigFileDriver(format)) return d->name;
    return "unknown";
}

const CSigFileDriver* GetSigFileDriverForOutput(const char* name) {
    if (!name || !*name) return nullptr;
    const std::string ext = ToUpper(ExtractExt(name));
    if (ext.empty()) return nullptr;
    for (const CSigFileDriver* d : GetSigFileDrivers()) {
        if (!d->outputExtensions) continue;
        for (const char* const* e = d->outputExtensions; *e; ++e)
            if (ext == *e) return GetSigFileDriver(d->format);
    }
    return nullptr;
}

CSigFileProbe ProbeSigFile(const char* name, std::vector<BYTE>& buffer) {
    CSigFileProbe probe;
    probe.name = name;
    if (!name || !*name) return probe;
    probe.extension = ToUpper(ExtractExt(name));
    buffer.assign(CSigFileProbe::kHeadBytes, 0);
    int fd = ::open(name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        buffer.clear();
        return probe;
    }
    size_t got = 0;
    while (got < buffer.size()) {
        ssize_t n = ::read(fd, buffer.data() + got, buffer.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    ::close(fd);
    buffer.resize(got);
    probe.readable = true;
    probe.head = buffer.data();
    probe.headSize = got;
    return probe;
}

int IsOsgFileFormat(const char* name) {
    std::vector<BYTE> buffer;
    CSigFileProbe probe = ProbeSigFile(name, buffer);
    return probe.name && g_serverSignatureDriver.Identify(probe);
}

unsigned GetSigFileFormat(const char* name) {
    if (!name || !*name) return SIGFILE_FORMAT_UNKNOWN;
    std::vector<BYTE> buffer;
    const CSigFileProbe probe = ProbeSigFile(name, buffer);
    for (const CSigFileDriver* d : GetSigFileDrivers())
        if (d->Identify && d->Identify(probe)) return d->format;
    return SIGFILE_FORMAT_UNKNOWN;
}

int CreateSigFileCopy(CSigFile* source, const char* to, const CSigFileCopyOptions& options, std::string* error,
                      CProgressInfo* progress) {
    if (source && to && IsFileOfRecording(source->GetFileName(), to)) {
        if (error)
            *error = StrFormat(LoadResString(IDS_ERR_OUTPUT_IS_SOURCE).c_str(), to, source->GetFileName());
        return 0;
    }
    const CSigFileDriver* d = GetSigFileDriverForOutput(to);
    if (!source || !d || !d->CreateCopy) {
        if (error)
            *error = StrFormat(LoadResString(IDS_ERR_NO_OUTPUT_FORMAT).c_str(), to ? to : "");
        return 0;
    }
    return d->CreateCopy(source, to, options, error, progress);
}

int ConvertSigFile(const char* from, const char* to, const CSigFileCopyOptions& options, std::string* error,
                   CProgressInfo* progress) {
    long code = 0;
    CSigFilePtr file(from ? CSigFile::Open(from, 1, &code) : nullptr);
    if (!file) {
        if (error) {
            std::string detail;
            if (code == ERROR_BAD_FORMAT) detail = LoadResString(IDS_ERR_INVALID_FORMAT);
            else if (!GetSystemErrorText(code, detail)) detail = StrFormat(LoadResString(IDS_ERR_CODE).c_str(), code);
            const std::string more = GetLastErrorDetail(code);
            *error = std::string(from ? from : "") + " : " + FoldToOneLine(detail) + (more.empty() ? "" : " : " + more);
        }
        return 0;
    }
    return CreateSigFileCopy(file.get(), to, options, error, progress);
}

// ---------------------------------------------------------------------------
// Static operations

CSigFile* CSigFile::Open(const char* name, int readOnly, long* error, int /*reserved*/, int check24Hours) {
    long err = 0;
    SetLastErrorDetail(0, "");
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

