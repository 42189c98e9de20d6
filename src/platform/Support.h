// Small services of the support library that several subsystems share.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>

#include "platform/Types.h"

// Version texts of the running program: 2 the major.minor version, 3 the
// patch number, 6 the build identifier; other numbers give "".
std::string VhlGetVersionText(int which);
// Samples of a channel at frequency f in one record of spr samples at the
// base frequency: spr * f / base in integer arithmetic, 0 when base is 0.
unsigned VhlGetSamplesChannel(unsigned spr, unsigned base, unsigned f);
// True when the locale measures in metric units ($SIGFILE_UNITS=imperial
// says otherwise; so does an en_US/en_LR/my_MM LC_MEASUREMENT or LANG).
bool VhlIsLocaleMetric();
#pragma GCC visibility pop
