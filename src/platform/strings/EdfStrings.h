// String ids of the EDF / BDF driver, export and import.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

enum : UINT {
    IDS_EDF_NOTE_SPLIT = 30100,            // samples per data record, sub-records
    IDS_EDF_ERR_RECORD_TOO_BIG = 30101,    // samples per data record
    IDS_EDF_NOTE_DUPLICATE_LABEL = 30102,  // label
    IDS_EDF_NOTE_MANY_SIGNALS = 30103,     // signals, channels per montage
    IDS_EDF_ERR_OPEN = 30104,              // file name, reader's message
    IDS_EDF_ERR_LIMITS = 30105,            // label, physical min, max, unit
    IDS_EDF_ERR_MONTAGE = 30106,           // montage name
    IDS_EDF_ERR_CHANNEL = 30107,           // label
    IDS_EDF_ERR_RANGE = 30108,             // first, end, count
    IDS_EDF_ERR_DURATION = 30109,          // seconds
    IDS_EDF_ERR_READ = 30110,              // record
    IDS_EDF_ERR_NO_SIGNAL = 30111,
    IDS_EDF_ERR_CANCELLED = 30112,
    IDS_EDF_ERR_NO_NAME = 30113,
    IDS_EDF_ERR_OWN_FILE = 30114,          // output, recording
    IDS_EDF_ERR_MEMORY = 30115,
    IDS_EDF_ERR_EXPORT = 30116,
};
#pragma GCC visibility pop
