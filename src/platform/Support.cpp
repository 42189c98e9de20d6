#include "platform/Support.h"

#include <cstdlib>
#include <cstring>

#ifndef SIGFILE_VERSION_MAJOR_MINOR
#define SIGFILE_VERSION_MAJOR_MINOR "1.0"
#endif
#ifndef SIGFILE_VERSION_PATCH
#define SIGFILE_VERSION_PATCH "0"
#endif
#ifndef SIGFILE_BUILD_ID
#define SIGFILE_BUILD_ID "dev"
#endif

std::string VhlGetVersionText(int which) {
    switch (which) {
        case 2: return SIGFILE_VERSION_MAJOR_MINOR;
        case 3: return SIGFILE_VERSION_PATCH;
        case 6: return SIGFILE_BUILD_ID;
        default: return {};
    }
}

unsigned VhlGetSamplesChannel(unsigned spr, unsigned base, unsigned f) {
    if (base == 0) return 0;
    return static_cast<unsigned>(static_cast<unsigned long long>(spr) * f / base);
}

bool VhlIsLocaleMetric() {
    if (const char* units = std::getenv("SIGFILE_UNITS"); units && *units)
        return std::strcmp(units, "imperial") != 0;
    for (const char* var : {"LC_ALL", "LC_MEASUREMENT", "LANG"}) {
        const char* v = std::getenv(var);
        if (!v || !*v) continue;
        return !(std::strncmp(v, "en_US", 5) == 0 || std::strncmp(v, "en_LR", 5) == 0 ||
                 std::strncmp(v, "my_MM", 5) == 0);
    }
    return true;
}
