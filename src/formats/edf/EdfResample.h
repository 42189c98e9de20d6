// Rates of imported signals.  A native recording stores 64 samples per record
// at its base frequency (the highest rate), and every other signal a whole
// fraction of that: base / rate must be a whole number dividing 64.  Signals
// of other rates can only come in resampled, which is the user's choice, so
// the check names them and the resampler stays a separate step.
#pragma once

#include <string>
#include <vector>

#include "platform/Types.h"

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

// Band-limited resampling between two rates by windowed-sinc interpolation
// (Blackman window, cut-off at the lower Nyquist frequency), fed in pieces of
// any size so that a whole night never sits in memory.  Before the first and
// after the last input sample the signal is held at its edge value.  Output
// sample k is the signal at time k / outRate; a signal of n input samples
// gives ceil(n x outRate / inRate) outputs.
class EdfResampler {
public:
    EdfResampler(double inRate, double outRate, int zeroCrossings = 16);

    // Feeds input samples; appends every output sample they complete.
    void Push(const double* in, size_t count, std::vector<double>& out);
    // Appends the remaining output samples; the resampler is then spent.
    void Finish(std::vector<double>& out);

private:
    double Output(ULONGLONG k, bool final) const;
    void Produce(bool final, std::vector<double>& out);

    double m_inRate, m_outRate;
    double m_cutoff;     // cut-off in cycles per input sample x 2 (1 = input Nyquist)
    double m_halfWidth;  // half length of the kernel, in input samples
    std::vector<double> m_buffer;
    ULONGLONG m_bufferStart = 0;  // input index of m_buffer[0]
    ULONGLONG m_inputs = 0;       // input samples fed
    ULONGLONG m_outputs = 0;      // output samples produced
    double m_first = 0;           // first input sample, held before the start
};

}  // namespace edf
