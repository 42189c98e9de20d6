// Rates of imported signals.  A native recording stores 64 samples per record
// at its base frequency (the highest rate), and every other signal a whole
// fraction of that: base / rate must be a whole number dividing 64.  Signals
// of other rates can only come in resampled, which is the user's choice, so
// the check names them and the resampler stays a separate step.
#pragma once

#include <string>
#include <vector>

#include "platform/Types.h"
#include "sigfile/Resampler.h"

namespace edf {

// Samples per native record at the base frequency.
constexpr int kNativeRecordSamples = 64;

// Checks that signals of the given rates (Hz) fit one native recording.  On
// success gives the base frequency and each signal's samples per record; on
// failure a French message naming every signal that does not fit, with its
// rate.  labels and rates have one entry per signal.
bool CheckNativeRates(const std::vector<std::string>& labels, const std::vector<double>& rates, int& baseFrequency,
                      std::vector<int>& samplesPerRecord, std::string& error);

// The native rate a signal of `rate` Hz would be resampled to: the lowest
// base / 2^k (k = 0..6) not below the rate, so no bandwidth is lost.
double NativeRateFor(double rate, int baseFrequency);

// The resampler of the library (sigfile/Resampler.h).
using EdfResampler = CResampler;

}  // namespace edf
