// Butterworth filters as a cascade of second-order sections.
//
// Low-pass, high-pass, band-pass and band-stop filters of order 1 to 10 are
// designed by the bilinear transform of the analog Butterworth prototype with
// frequency pre-warping: the same design as the common numerical toolkits
// give for a digital Butterworth filter in second-order sections.  An order
// is the Butterworth order: a band filter of order n has 2n poles.
//
// Coefficients and state are double precision; each section runs in the
// transposed direct form II.
//
// Parameters that describe no filter are interpreted as the limit they
// tend to, so that any input gives a stable filter:
//  - a type or order outside the supported ones, or a sampling frequency
//    that is not positive: the signal passes unchanged;
//  - a cut-off at or below 0 Hz or at or above half the sampling frequency
//    drops that edge: a low-pass above the Nyquist frequency passes, below
//    0 Hz blocks; a band-pass whose low edge is at 0 Hz is a low-pass at its
//    high edge, and so on; a band whose low edge is not below its high edge
//    is empty (band-pass blocks, band-stop passes).
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <cstddef>
#include <vector>

class CBiquad {
public:
    enum Type { lowPass = 1, highPass = 2, bandPass = 3, bandStop = 4 };

    struct Section {
        double b0, b1, b2;  // numerator
        double a1, a2;      // denominator (a0 = 1)
        double z1, z2;      // state
    };

    // lowCut is used by high-pass, band-pass and band-stop; highCut by
    // low-pass, band-pass and band-stop.
    CBiquad(int type, int order, float sampleRate, float lowCut, float highCut);

    // Resets the state to the steady state of a constant input of value.
    void Init(float value);

    // Filters one sample.
    float Filter(float sample) {
        if (m_bBlock) return 0.0f;
        double x = sample;
        for (Section& s : m_sections) {
            const double y = s.b0 * x + s.z1;
            s.z1 = s.b1 * x - s.a1 * y + s.z2;
            s.z2 = s.b2 * x - s.a2 * y;
            x = y;
        }
        return static_cast<float>(x);
    }
    // Filters count samples (in and out may be the same array).
    void Filter(const float* in, float* out, int count);

    int GetNumSections() const { return static_cast<int>(m_sections.size()); }
    const Section& GetSection(int i) const { return m_sections.at(static_cast<size_t>(i)); }
    // True when the parameters give a filter that blocks everything.
    bool IsBlocking() const { return m_bBlock; }

private:
    void Design(int type, int order, double sampleRate, double lowCut, double highCut);

    std::vector<Section> m_sections;
    bool m_bBlock = false;
};
#pragma GCC visibility pop
