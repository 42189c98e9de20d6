// Files of the first versions stored the channel of a status group or item
// as a montage object followed by a 16-bit channel index.  This reads that
// pair and turns it into the channel name that newer versions store.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Archive.h"

struct CLegacyChannelRef {
    short index = -1;   // -2, -1, or the channel's index in the montage
    CString name;       // the montage's label at index, when there is one
};

// Reads the montage reference (it must be a logical montage; a null montage
// asserts at assertLine) and the signed 16-bit index.
CLegacyChannelRef ReadLegacyChannelRef(CArchive& ar, int assertLine);
#pragma GCC visibility pop
