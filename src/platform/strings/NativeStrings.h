// String ids of native recordings: conversions into them, consistency and
// file operations.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

enum : UINT {
    IDS_NATIVE_ERR_MONTAGE = 30400,          // montage name
    IDS_NATIVE_ERR_CHANNEL = 30401,          // label
    IDS_NATIVE_NOTE_LEFT_OUT = 30402,        // labels
    IDS_NATIVE_ERR_NO_CHANNEL = 30403,
    IDS_NATIVE_ERR_TOO_MANY = 30404,         // channels, limit
    IDS_NATIVE_ERR_RATES = 30405,            // offenders
    IDS_NATIVE_NOTE_RESAMPLED = 30406,       // changes
    IDS_NATIVE_ERR_READ = 30407,             // record, file
    IDS_NATIVE_NOTE_FITTED = 30408,          // label, step, unit, source step, unit
    IDS_NATIVE_ERR_BASE = 30409,             // base
    IDS_NATIVE_ERR_CHANNEL_MONTAGE = 30410,  // label
    IDS_NATIVE_NOTE_RENAMED = 30411,         // label, sensor
    IDS_NATIVE_ERR_WRITE = 30412,            // file, code
    IDS_NATIVE_ERR_CANCELLED = 30413,
    IDS_NATIVE_NOTE_PADDED = 30414,          // records
    IDS_NATIVE_NOTE_TRIGGERS = 30415,        // events
    IDS_NATIVE_ERR_RANGE = 30416,            // first, end, count
    IDS_NATIVE_ERR_NO_NAME = 30417,
    IDS_NATIVE_ERR_EXTENSION = 30418,        // name
    IDS_NATIVE_ERR_OWN_FILE = 30419,         // output, source
    IDS_NATIVE_ERR_MEMORY = 30420,
    IDS_NATIVE_ERR_IMPORT = 30421,
    IDS_NATIVE_NOTE_FOREIGN_WORK = 30422,    // working status name
    IDS_NATIVE_NOTE_SHORT_DATA = 30423,      // records named, records held
    IDS_NATIVE_ERR_SNAPSHOT = 30424,         // recording
};
#pragma GCC visibility pop
