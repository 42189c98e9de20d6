// The EDF (6) and BDF (7) entries of the format registry.  Both are told by
// the signature of their 256-byte header, whatever the file's name:
//   EDF, EDF+   "0" followed by 7 spaces (the version field)
//   BDF, BDF+   byte 0xFF followed by "BIOSEMI"
// and a header-size field (bytes 184-191) that is a number.
#include <cstring>
#include <string>

#include "formats/edf/Edf.h"
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

const char* const kEdfExtensions[] = {".EDF", nullptr};
const char* const kBdfExtensions[] = {".BDF", nullptr};

}  // namespace

extern const CSigFileDriver g_edfDriver = {.format = SIGFILE_FORMAT_EDF,
                                    .name = "edf",
                                    .description = "EDF / EDF+ (16-bit samples)",
                                    .outputExtensions = kEdfExtensions,
                                    .Identify = IdentifyEdf};
extern const CSigFileDriver g_bdfDriver = {.format = SIGFILE_FORMAT_BDF,
                                    .name = "bdf",
                                    .description = "BDF / BDF+ (24-bit samples)",
                                    .outputExtensions = kBdfExtensions,
                                    .Identify = IdentifyBdf};
