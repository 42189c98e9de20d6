// Entry of the native format in the dispatch table.  Until its file class is
// wired here, the native test accepts nothing and every file is format 0.
#include "sigfile/FormatDriver.h"

namespace {
int NotYetNative(const char*) { return 0; }
}  // namespace

const CSigFileDriver g_nativeDriver = {SIGFILE_FORMAT_NATIVE, "native", NotYetNative, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
