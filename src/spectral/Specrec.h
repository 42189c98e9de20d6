// Real spectral values (power per frequency, per channel) of one epoch.
//
// Archive form: WORD version (1), float frequency resolution, WORD maximum
// number of frequencies, CSDateTime, WORD channels, (channels + 1) WORD
// start offsets, then as many floats as the last offset.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <vector>

#include "platform/Archive.h"
#include "platform/DateTime.h"
#include "platform/Object.h"

class CFftRec;

class CSpecRec : public CObject {
    DECLARE_SERIAL(CSpecRec)
public:
    CSpecRec() = default;
    CSpecRec(const CSpecRec& src) : CObject() { *this = src; }
    CSpecRec& operator=(const CSpecRec& src);
    ~CSpecRec() override = default;

    // Allocates numFreq[c] values for channel c (all zero).  Refuses (returns
    // 0, record emptied) when the counts add up to more than 65535 values.
    int Create(float freqRes, unsigned numChannels, const WORD* numFreq);
    // The same count for every channel.
    int Create(float freqRes, unsigned numChannels, WORD numFreq);
    void Destroy();

    // Each value becomes the power of the matching complex bin; the time is
    // copied.  Returns 0 (asserted, record unchanged) when the numbers of
    // channels or of bins per channel differ.
    int Transform(const CFftRec& fftRec);
    // Each value becomes its square root.
    void Sqrt();
    // Element-wise sum with a record of the same shape (asserted otherwise,
    // and ignored); the time is kept.
    CSpecRec& operator+=(const CSpecRec& other);
    CSpecRec& operator/=(float divisor);

    // Triangular moving average of width / 2 + 1 points on each side.  The
    // first width / 2 + 2 and the last width / 2 + 1 values of every channel
    // become 0: the average is only kept where the whole window fits with
    // room to spare.
    void SmoothWindow(int width);

    void SetAt(unsigned channel, unsigned freq, float value);
    float GetAt(unsigned channel, unsigned freq) const;
    // Values of one channel (null for a channel that does not exist).
    float* GetAt(unsigned channel);
    const float* GetAt(unsigned channel) const;

    unsigned GetNumChannels() const { return m_nChannels; }
    float GetFreqRes() const { return m_freqRes; }
    unsigned GetMaxNumFreq() const { return m_nMaxNumFreq; }
    unsigned GetNumFreq(unsigned channel) const;
    CSDateTime GetTime() const { return m_time; }
    void SetTime(CSDateTime t) { m_time = t; }

    // All values, channel after channel, and their count.
    float* GetData() { return m_values.data(); }
    const float* GetData() const { return m_values.data(); }
    unsigned GetNumValues() const { return static_cast<unsigned>(m_values.size()); }
    bool HasSameShape(const CSpecRec& other) const;

    void Serialize(CArchive& ar) override;

private:
    float m_freqRes = 0.0f;
    WORD m_nMaxNumFreq = 0;
    WORD m_nChannels = 0;
    CSDateTime m_time;
    std::vector<WORD> m_start;  // m_nChannels + 1 entries once created
    std::vector<float> m_values;
};
#pragma GCC visibility pop
