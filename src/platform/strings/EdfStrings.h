// String ids of the EDF / BDF driver, export and import.
#pragma once

#include "platform/Types.h"

enum : UINT {
    IDS_EDF_NOTE_SPLIT = 30100,            // samples per data record, sub-records
    IDS_EDF_ERR_RECORD_TOO_BIG = 30101,    // samples per data record
    IDS_EDF_NOTE_DUPLICATE_LABEL = 30102,  // label
    IDS_EDF_NOTE_MANY_SIGNALS = 30103,     // signals, channels per montage
    IDS_EDF_ERR_OPEN = 30104,              // file name, reader's message
};
