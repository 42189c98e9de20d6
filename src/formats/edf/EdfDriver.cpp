// The EDF (6) and BDF (7) entries of the format registry.  Both are told by
// the signature of their 256-byte header, whatever the file's name:
//   EDF, EDF+   "0" followed by 7 spaces (the version field)
//   BDF, BDF+   byte 0xFF followed by "BIOSEMI"
// and a header-size field (bytes 184-191) that is a number.
#include <cstring>
#include <string>

#include "formats/edf/Edf.h"
#include "formats/edf/EdfExport.h"
#include "formats/edf/EdfSigFile.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "recording/FileHeader.h"
#include "recording/ptntinfo.h"
#include "sigfile/FormatDriver.h"

namespace {

bool HasHeaderSizeField(const CSigFileProbe& probe) {
    if (probe.headSize < 192) return false;
    LONGLONG bytes = 0;
    return edf::ParseEdfInteger(std::string(reinterpret_cast<const char*>(probe.head) + 184, 8), bytes) &&
           bytes >= 256;
}

int IdentifyEdf(const CSigFileProbe& probe) {
    return probe.headSize >= 8 && std::memcmp(probe.head, "0       ", 8) == 0 && HasHeaderSizeField(probe);
}

int IdentifyBdf(const CSigFileProbe& probe) {
    return probe.headSize >= 8 && std::memcmp(probe.head, "\xff" "BIOSEMI", 8) == 0 && HasHeaderSizeField(probe);
}

CSigFile* OpenEdf(const char* name, int /*readOnly*/, long* error) {
    std::string message;
    CSigFile* file = CEdfSigFile::Open(name, error, &message);
    if (!file && error && *error) SetLastErrorDetail(*error, message);
    return file;
}

// A name that another format would claim by its extension cannot receive an
// EDF or BDF file.
bool NameFits(const char* from, const char* to) {
    const CSigFileDriver* d = GetSigFileDriverForOutput(to);
    return !d || d->format == GetSigFileFormat(from);
}

// The format is one file: it is copied, renamed and deleted whole, an
// existing copy target replaced only once the copy is complete.
int CopyEdf(const char* from, const char* to, CProgressInfo* progress) {
    if (!from || !to || !NameFits(from, to)) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    CopyProgress report;
    if (progress)
        report = [progress](ULONGLONG done, ULONGLONG total) {
            progress->SetRange(total);
            progress->SetPos(done);
            return !progress->IsCancelled();
        };
    return CopyFileReplace(from, to, report) ? 1 : 0;
}

int RenameEdf(const char* from, const char* to) {
    if (!from || !to || !NameFits(from, to)) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    if (VhlCheckFileExist(to)) {
        SetLastError(ERROR_FILE_EXISTS);
        return 0;
    }
    return MoveFileReplace(from, to) ? 1 : 0;
}

int DeleteEdf(const char* name) {
    if (!name || !VhlCheckFileExist(name)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    return DeleteFileName(name) ? 1 : 0;
}

CSigQuickInfo* QuickInfoEdf(const char* name, long* error) {
    CSigFilePtr file(CEdfSigFile::Open(name, error));
    if (!file) return nullptr;
    CSigQuickInfo* info = MakeSigQuickInfo(name, *file->GetFileHeader(), *file->GetPatientInfo(), VhlGetFileSize(name));
    info->m_strDescription = file->GetFileHeader()->GetFileDesc();
    return info;
}

int CopyToEdf(CSigFile* source, const char* to, const CSigFileCopyOptions& options, std::string* error,
              CProgressInfo* progress) {
    return edf::CreateEdfCopy(source, to, options, edf::EdfFormat::EdfPlus, error, progress);
}

int CopyToBdf(CSigFile* source, const char* to, const CSigFileCopyOptions& options, std::string* error,
              CProgressInfo* progress) {
    return edf::CreateEdfCopy(source, to, options, edf::EdfFormat::BdfPlus, error, progress);
}

const char* const kEdfExtensions[] = {".EDF", nullptr};
const char* const kBdfExtensions[] = {".BDF", nullptr};

}  // namespace

extern const CSigFileDriver g_edfDriver = {.format = SIGFILE_FORMAT_EDF,
                                    .name = "edf",
                                    .description = "EDF / EDF+ (16-bit samples)",
                                    .outputExtensions = kEdfExtensions,
                                    .Identify = IdentifyEdf,
                                    .Open = OpenEdf,
                                    .Delete = DeleteEdf,
                                    .Copy = CopyEdf,
                                    .Rename = RenameEdf,
                                    .GetFileQuickInfo = QuickInfoEdf,
                                    .CreateCopy = CopyToEdf};
extern const CSigFileDriver g_bdfDriver = {.format = SIGFILE_FORMAT_BDF,
                                    .name = "bdf",
                                    .description = "BDF / BDF+ (24-bit samples)",
                                    .outputExtensions = kBdfExtensions,
                                    .Identify = IdentifyBdf,
                                    .Open = OpenEdf,
                                    .Delete = DeleteEdf,
                                    .Copy = CopyEdf,
                                    .Rename = RenameEdf,
                                    .GetFileQuickInfo = QuickInfoEdf,
                                    .CreateCopy = CopyToBdf};
