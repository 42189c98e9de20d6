// String ids of the format registry and of conversions in general.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

enum : UINT {
    IDS_ERR_NO_OUTPUT_FORMAT = 30000,  // name of the output
    IDS_ERR_FORMAT_READ_ONLY = 30001,  // format name
    IDS_ERR_OUTPUT_IS_SOURCE = 30002,  // output, recording
};
#pragma GCC visibility pop
