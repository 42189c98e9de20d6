// Adding the status items of one recording to another, placed by their
// times: the scored sleep stages or events of a separate file (an EDF+
// hypnogram) attached to the night they describe.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>

class CSigFile;

// Copies every status group of `from` that `into` lacks (by group id), and
// every item of `from` into the group of the same id in `into`; an item
// keeps its times, and its samples are those of its times in `into`'s
// records (extrapolated outside them).  Discontinuities and channel
// descriptions of `from` are its own and are left out.  Returns the number of
// items added, or -1 with a French message in *error.
long MergeStatusItems(const CSigFile& from, CSigFile& into, std::string* error);
#pragma GCC visibility pop
