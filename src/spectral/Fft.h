// FFT of epochs of calibrated signal.
//
// CFftFactory cuts an epoch out of consecutive formatted records, channel by
// channel, multiplies it by a taper window, removes the mean or the linear
// trend, and leaves the scaled complex spectrum of every channel in a
// CFftRec: channel c holds fftLen/2 bins from 0 Hz upward, bin k being
// scale x sum x[j] exp(-2 pi i j k / fftLen) with scale = 1 / (sum of the
// window), so that a constant signal c gives c in bin 0.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <vector>

#include "platform/Collections.h"
#include "platform/DateTime.h"
#include "platform/Types.h"
#include "spectral/Complex.h"

class CFmtSigRec;

// Complex spectra of one epoch, one block of bins per channel.
class CFftRec {
public:
    CFftRec() = default;
    CFftRec(double epochLen, unsigned numChannels, const WORD* numFreq) { Create(epochLen, numChannels, numFreq); }
    CFftRec(const CFftRec& src) { *this = src; }
    CFftRec& operator=(const CFftRec& src);

    // Allocates numFreq[c] bins for every channel c (all zero).  Refuses
    // (returns 0, record emptied) more than 128 channels or more than 65535
    // bins in all.
    int Create(double epochLen, unsigned numChannels, const WORD* numFreq);
    void Destroy();

    // Element-wise sum of a record of the same shape (for averaging); a
    // record of another shape is asserted and ignored.
    CFftRec& operator+=(const CFftRec& other);
    CFftRec& operator/=(float divisor);

    CSDateTime GetTime() const { return m_time; }
    void SetTime(CSDateTime t) { m_time = t; }
    double GetEpochLen() const { return m_epochLen; }
    unsigned GetNumChannels() const { return m_nChannels; }
    unsigned GetNumFreq(unsigned channel) const;
    unsigned GetMaxNumFreq() const;
    // Spacing of the bins: sampling frequency / FFT length = 1 / epoch length.
    double GetDeltaFreq() const { return m_epochLen > 0.0 ? 1.0 / m_epochLen : 0.0; }
    // Upper edge of the band that a channel's bins cover (half its sampling
    // frequency): number of bins x bin spacing.
    double GetMaxFreq(unsigned channel) const { return GetNumFreq(channel) * GetDeltaFreq(); }
    const WORD* GetStartTable() const { return m_start.empty() ? nullptr : m_start.data(); }

    // Bins of one channel (null for a channel that does not exist).
    CComplex* GetAt(unsigned channel);
    const CComplex* GetAt(unsigned channel) const;
    CComplex GetAt(unsigned channel, unsigned freq) const;
    void SetAt(unsigned channel, unsigned freq, const CComplex& value);

    bool HasSameShape(const CFftRec& other) const;

private:
    CSDateTime m_time;
    double m_epochLen = 0.0;
    WORD m_nChannels = 0;
    std::vector<WORD> m_start;  // m_nChannels + 1 entries when created
    std::vector<CComplex> m_values;
};

class CFftFactory {
public:
    enum { kMaxChannels = 128, kMaxFrequency = 4096 };
    enum PreProcessing : WORD { preNone = 0, preMean = 1, preTrend = 2 };
    enum Tapering : WORD { taperRect = 0, taperCosine = 1, taperHanning = 2, taperHamming = 3, taperBlackman = 4 };

    // Asserts preProcessing <= 2 and tapering <= 4 (an invalid option is
    // taken as none / rectangular).
    CFftFactory(double epochLen, WORD preProcessing, WORD tapering);
    ~CFftFactory();
    CFftFactory(const CFftFactory&) = delete;
    CFftFactory& operator=(const CFftFactory&) = delete;

    // Adds a channel read from signal channel sigChannel of the input records
    // sampled at freq Hz.  Its FFT length is freq x epoch length + 0.5
    // (truncated) and must be a power of two of at least 4 points.  Returns 0
    // (asserted, factory unchanged) for a channel number of 128 or more, a
    // frequency above 4096 Hz, a 129th channel or an invalid FFT length.
    int AddChannel(WORD sigChannel, WORD freq);

    // Range of epoch lengths for channels sampled from lo to hi Hz: hi / lo
    // (integer division) must be a power of two (asserted); the slowest
    // channel then gets at least 64 points and the fastest at most 2048.
    // Returns 0 (both epochs 0) when no epoch fits.  The first argument is
    // not used.
    static int GetEpochRange(int unused, WORD lo, WORD hi, double& shortest, double& longest);

    // A new FFT record (owned by the caller) shaped for this factory.
    CFftRec* CreateCompatibleFftRec() const;

    // Computes the epoch starting offset seconds into records[0] into
    // fftRec (which must be compatible).  The records are consecutive; a
    // channel's samples continue at sample 0 of the next record when one is
    // exhausted.  Returns 0 (asserted, fftRec unchanged) when a channel's
    // start lies beyond the first record, the records hold too few samples,
    // a record lacks the channel, or fftRec has another shape.
    int Transform(double offset, const CFmtSigRec* const* records, int numRecords, CFftRec& fftRec);
    int Transform(double offset, const CObArray& records, CFftRec& fftRec);

    double GetEpochLen() const { return m_epochLen; }
    WORD GetPreProcessingOpt() const { return m_preProcessing; }
    WORD GetTaperingOpt() const { return m_tapering; }
    WORD GetNumChannels() const { return m_nChannels; }
    WORD GetSigChannel(unsigned c) const;
    WORD GetChannelFreq(unsigned c) const;
    WORD GetFftLen(unsigned c) const;
    const float* GetTaperWin(unsigned c) const;
    float GetTaperScale(unsigned c) const;

    // Fills window with n points of the given taper and returns its scale,
    // 1 / (sum of the window values).
    static float MakeTaperWindow(WORD tapering, float* window, unsigned n);
    // Removes the mean (option 1) or the least-squares line (option 2).
    static void PreProcess(WORD option, float* data, unsigned n);

    // In-place radix-2 FFTs.  RealFft: n real points (a power of two); with
    // direction 1, the packed forward transform with the exp(+2 pi i j k / n)
    // kernel: element 0 holds bin 0, element 1 the Nyquist bin n/2, elements
    // 2k and 2k+1 the real and imaginary parts of bin k.  Direction -1 takes
    // that form back to n/2 times the signal.  ComplexFft: nn complex points
    // (2 nn floats, interleaved), kernel exp(direction 2 pi i j k / nn), not
    // normalised.  ComplexFftReorder: the bit-reversal permutation alone.
    // A length that is not a power of two is asserted and left untouched.
    static void RealFft(float* data, unsigned n, int direction);
    static void ComplexFft(float* data, unsigned nn, int direction);
    static void ComplexFftReorder(float* data, unsigned nn);
    // Forward real FFT, then bin 0 times scale, the Nyquist element set to 0
    // and each further bin (re, im) turned into (re x scale, -im x scale):
    // the scaled spectrum with the usual exp(-2 pi i j k / n) kernel.
    static void Fft(float* data, unsigned n, float scale);

    // Debugging aid: prints the values to the standard output.
    static void DumpFloatData(const float* data, int numPoints, int perLine);

private:
    double m_epochLen;
    WORD m_preProcessing;
    WORD m_tapering;
    WORD m_nChannels = 0;
    WORD m_sigChannel[kMaxChannels] = {};
    WORD m_freq[kMaxChannels] = {};
    WORD m_fftLen[kMaxChannels] = {};
    std::unique_ptr<float[]> m_taperWin[kMaxChannels];
    float m_taperScale[kMaxChannels];
    std::vector<float> m_work;  // one channel's samples during Transform
};
#pragma GCC visibility pop
