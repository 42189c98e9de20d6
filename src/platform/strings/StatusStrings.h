// String ids of the status item checks.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

enum : UINT {
    IDS_STS_FINDING = 30900,             // index, name, begin sample, end sample, what
    IDS_STS_UNKNOWN_GROUP = 30901,
    IDS_STS_END_BEFORE_BEGIN_SAMPLES = 30902,
    IDS_STS_END_BEFORE_BEGIN_TIME = 30903,
    IDS_STS_DISCONTINUITY_SPAN = 30904,
    IDS_STS_SECTION_EMPTY = 30905,
    IDS_STS_DURATIONS_DIFFER = 30906,
    IDS_STS_OUTSIDE = 30907,
    IDS_STS_MORE = 30908,                // count
};
#pragma GCC visibility pop
