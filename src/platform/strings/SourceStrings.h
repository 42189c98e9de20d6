// String ids of the record source and the computed montages.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

enum : UINT {
    IDS_SRC_UNKNOWN_MONTAGE = 30800,     // montage name
    IDS_SRC_NO_RECORDING_MONTAGE = 30801,
    IDS_SRC_DERIVE_FORM = 30802,         // the text given
    IDS_SRC_DERIVE_FORMULA = 30803,      // label, formula
};
#pragma GCC visibility pop
