// One libFuzzer program per target: FUZZ_TARGET_NAME names the entry of
// FuzzEntries.h that this build runs.
#include <cstdio>
#include <cstdlib>

#include "FuzzEntries.h"

namespace {
const fuzzentry::Target* g_target = nullptr;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static fuzzentry::LibraryGuard guard;
    g_target = fuzzentry::FindTarget(FUZZ_TARGET_NAME);
    if (!g_target) {
        std::fprintf(stderr, "unknown fuzz target %s\n", FUZZ_TARGET_NAME);
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    g_target->entry(data, size);
    return 0;
}
