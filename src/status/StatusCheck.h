// Consistency checks of the status items of an open recording.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Collections.h"

class CSigFile;

// Checks every status item of the file (rules in SigFileStatus.cpp) and
// appends one French line per finding to findings (when given).  Returns
// non-zero when nothing was found; 0 for a null file.
int ValidateStatusItems(CSigFile* file, CStringArray* findings);
#pragma GCC visibility pop
