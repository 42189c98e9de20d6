// String ids of the Nihon Kohden driver.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

enum : UINT {
    IDS_NK_ERR_SIGNATURE = 30500,
    IDS_NK_ERR_NO_BLOCK = 30501,
    IDS_NK_ERR_BLOCK_TABLE = 30502,      // block
    IDS_NK_ERR_BLOCK_PAST_END = 30503,   // kind, block, address, length
    IDS_NK_ERR_BLOCK_EMPTY = 30504,      // block
    IDS_NK_ERR_BLOCKS_DIFFER = 30505,    // block
    IDS_NK_NOTE_TRUNCATED = 30506,       // block, samples announced, held
    IDS_NK_NOTE_NO_21E = 30507,
    IDS_NK_NOTE_NO_PNT = 30508,
    IDS_NK_NOTE_BAD_PNT = 30509,         // file
    IDS_NK_NOTE_NO_LOG = 30510,
    IDS_NK_NOTE_BAD_LOG = 30511,         // file
    IDS_NK_NOTE_BAD_LOG_BLOCK = 30512,   // file, block
};
#pragma GCC visibility pop
