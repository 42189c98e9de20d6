// Foreign recording formats.  The legacy DOS-era, Nihon Kohden and BMSI
// readers recognise no file on this platform, and recordings of the external
// signal-file server are recognised (by their "KQUARSIG" signature) but
// cannot be opened, since no such server exists here.
#include "platform/Messages.h"
#include "sigfile/FormatDriver.h"

namespace {
int RecogniseNothing(const char*) { return 0; }

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

const CSigFileDriver g_dosDriver = {SIGFILE_FORMAT_DOS, "dos", RecogniseNothing, nullptr, nullptr, nullptr,
                                    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
const CSigFileDriver g_nihonKohdenDriver = {SIGFILE_FORMAT_NIHONKOHDEN, "nihon-kohden", RecogniseNothing,
                                            nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                            nullptr, nullptr, nullptr};
const CSigFileDriver g_bmsiDriver = {SIGFILE_FORMAT_BMSI, "bmsi", RecogniseNothing, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
// The server itself is asked by its IsValidFormat: there is none, so it
// accepts nothing; its ".SIG" files are told by their signature instead.
const CSigFileDriver g_serverDriver = {SIGFILE_FORMAT_SERVER, "server", RecogniseNothing, OpenWithoutServer,
                                       CreateWithoutServer, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, nullptr};
