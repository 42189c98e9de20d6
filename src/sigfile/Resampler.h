// Band-limited resampling of one signal between two rates.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <vector>

#include "platform/Types.h"

// Band-limited resampling between two rates by windowed-sinc interpolation
// (Blackman window, cut-off at the lower Nyquist frequency), fed in pieces of
// any size so that a whole night never sits in memory.  Before the first and
// after the last input sample the signal is held at its edge value.  Output
// sample k is the signal at time k / outRate; a signal of n input samples
// gives ceil(n x outRate / inRate) outputs.
class CResampler {
public:
    CResampler(double inRate, double outRate, int zeroCrossings = 16);

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

#pragma GCC visibility pop
