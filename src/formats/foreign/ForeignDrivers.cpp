// Foreign recording formats without a reader on this platform.  The legacy
// DOS-era and BMSI readers recognise no file, and recordings of the external
// signal-file server are recognised (by their "KQUARSIG" signature) but
// cannot be opened, since no such server exists here.
#include <cstring>

#include "platform/Messages.h"
#include "sigfile/FormatDriver.h"

namespace {
int RecogniseNothing(const CSigFileProbe&) { return 0; }

// The server's own data files: a ".SIG" name whose first 8 bytes are
// "KQUARSIG".  Probed before every other driver, so that such a file is
// never taken for a native recording.
int IsServerSigFile(const CSigFileProbe& probe) {
    return probe.extension == ".SIG" && probe.headSize >= 8 && std::memcmp(probe.head, "KQUARSIG", 8) == 0;
}

CSigFile* OpenWithoutServer(const char*, int, long* error) {
    if (error) *error = ERROR_NOT_SUPPORTED;
    SetLastError(ERROR_NOT_SUPPORTED);
    return nullptr;
}

CSigFile* CreateWithoutServer(const char*, CFileHeader*, CPatientInfo*, CPhysicalMontage*, CCalibration*,
                              long* error) {
    return OpenWithoutServer(nullptr, 0, error);
}
}  // namespace

extern const CSigFileDriver g_dosDriver = {.format = SIGFILE_FORMAT_DOS,
                                    .name = "dos",
                                    .description = "legacy DOS-era recording",
                                    .Identify = RecogniseNothing};
extern const CSigFileDriver g_bmsiDriver = {.format = SIGFILE_FORMAT_BMSI,
                                     .name = "bmsi",
                                     .description = "BMSI recording",
                                     .Identify = RecogniseNothing};
// The server's signature, probed first.
extern const CSigFileDriver g_serverSignatureDriver = {.format = SIGFILE_FORMAT_SERVER,
                                                .name = "server",
                                                .description = "recording of an external signal-file server",
                                                .Identify = IsServerSigFile,
                                                .Open = OpenWithoutServer,
                                                .Create = CreateWithoutServer};
// The server itself, asked last: there is none here, so it accepts nothing.
extern const CSigFileDriver g_serverDriver = {.format = SIGFILE_FORMAT_SERVER,
                                       .name = "server",
                                       .description = "recording of an external signal-file server",
                                       .Identify = RecogniseNothing,
                                       .Open = OpenWithoutServer,
                                       .Create = CreateWithoutServer};
