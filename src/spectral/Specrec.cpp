#include "spectral/Specrec.h"

#include <algorithm>
#include <cmath>

#include "platform/Assert.h"
#include "spectral/Fft.h"

IMPLEMENT_SERIAL(CSpecRec, CObject, 1)

namespace {
const char* const kSource = "Specrec";
}

CSpecRec& CSpecRec::operator=(const CSpecRec& src) {
    if (this != &src) {
        m_freqRes = src.m_freqRes;
        m_nMaxNumFreq = src.m_nMaxNumFreq;
        m_nChannels = src.m_nChannels;
        m_time = src.m_time;
        m_start = src.m_start;
        m_values = src.m_values;
    }
    return *this;
}

int CSpecRec::Create(float freqRes, unsigned numChannels, const WORD* numFreq) {
    Destroy();
    m_freqRes = freqRes;
    if (numChannels > 0xFFFF || (numChannels > 0 && !numFreq)) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    unsigned long total = 0;
    WORD greatest = 0;
    for (unsigned c = 0; c < numChannels; ++c) {
        total += numFreq[c];
        greatest = std::max(greatest, numFreq[c]);
    }
    if (total > 0xFFFF) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    m_nChannels = static_cast<WORD>(numChannels);
    m_nMaxNumFreq = greatest;
    m_start.assign(numChannels + 1, 0);
    for (unsigned c = 0; c < numChannels; ++c) m_start[c + 1] = static_cast<WORD>(m_start[c] + numFreq[c]);
    m_values.assign(total, 0.0f);
    return 1;
}

int CSpecRec::Create(float freqRes, unsigned numChannels, WORD numFreq) {
    if (numChannels > 0xFFFF) {
        SF_ASSERT(false, kSource, __LINE__);
        Destroy();
        return 0;
    }
    std::vector<WORD> counts(numChannels, numFreq);
    return Create(freqRes, numChannels, counts.data());
}

void CSpecRec::Destroy() {
    m_nMaxNumFreq = 0;
    m_nChannels = 0;
    m_start.clear();
    m_values.clear();
}

bool CSpecRec::HasSameShape(const CSpecRec& other) const {
    return m_nChannels == other.m_nChannels && m_start == other.m_start;
}

unsigned CSpecRec::GetNumFreq(unsigned channel) const {
    if (channel >= m_nChannels) return 0;
    return static_cast<unsigned>(m_start[channel + 1] - m_start[channel]);
}

int CSpecRec::Transform(const CFftRec& fftRec) {
    bool match = fftRec.GetNumChannels() == m_nChannels;
    for (unsigned c = 0; match && c < m_nChannels; ++c) match = fftRec.GetNumFreq(c) == GetNumFreq(c);
    if (!match) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    m_time = fftRec.GetTime();
    for (unsigned c = 0; c < m_nChannels; ++c) {
        const CComplex* in = fftRec.GetAt(c);
        float* out = m_values.data() + m_start[c];
        for (unsigned k = 0, n = GetNumFreq(c); k < n; ++k) out[k] = in[k].Power();
    }
    return 1;
}

void CSpecRec::Sqrt() {
    for (float& v : m_values) v = std::sqrt(v);
}

CSpecRec& CSpecRec::operator+=(const CSpecRec& other) {
    if (!HasSameShape(other)) {
        SF_ASSERT(false, kSource, __LINE__);
        return *this;
    }
    for (size_t i = 0; i < m_values.size(); ++i) m_values[i] += other.m_values[i];
    return *this;
}

CSpecRec& CSpecRec::operator/=(float divisor) {
    for (float& v : m_values) v /= divisor;
    return *this;
}

void CSpecRec::SmoothWindow(int width) {
    if (width < 0) {
        SF_ASSERT(false, kSource, __LINE__);
        return;
    }
    const int h = width / 2;
    const int m = h + 1;
    std::vector<float> w(m);
    for (int j = 0; j < m; ++j) w[j] = static_cast<float>(m - j) / static_cast<float>(m * m);
    std::vector<float> result;
    for (unsigned c = 0; c < m_nChannels; ++c) {
        const int len = static_cast<int>(GetNumFreq(c));
        float* x = m_values.data() + m_start[c];
        result.assign(len, 0.0f);
        for (int i = h + 2; i <= len - m - 1; ++i) {
            float s = w[0] * x[i];
            for (int j = 1; j < m; ++j) s += w[j] * (x[i - j] + x[i + j]);
            result[i] = s;
        }
        std::copy(result.begin(), result.end(), x);
    }
}

void CSpecRec::SetAt(unsigned channel, unsigned freq, float value) {
    if (freq >= GetNumFreq(channel)) {
        SF_ASSERT(false, kSource, __LINE__);
        return;
    }
    m_values[m_start[channel] + freq] = value;
}

float CSpecRec::GetAt(unsigned channel, unsigned freq) const {
    if (freq >= GetNumFreq(channel)) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0.0f;
    }
    return m_values[m_start[channel] + freq];
}

float* CSpecRec::GetAt(unsigned channel) {
    return channel < m_nChannels ? m_values.data() + m_start[channel] : nullptr;
}

const float* CSpecRec::GetAt(unsigned channel) const {
    return channel < m_nChannels ? m_values.data() + m_start[channel] : nullptr;
}

void CSpecRec::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << static_cast<WORD>(1) << m_freqRes << m_nMaxNumFreq << m_time << m_nChannels;
        for (unsigned c = 0; c <= m_nChannels; ++c) ar << static_cast<WORD>(m_start.empty() ? 0 : m_start[c]);
        for (float v : m_values) ar << v;
        return;
    }
    WORD version;
    ar >> version;
    if (version > 1) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    float freqRes;
    WORD maxNumFreq, channels;
    CSDateTime time;
    ar >> freqRes >> maxNumFreq >> time >> channels;
    ar.CheckCount(channels + 1u, sizeof(WORD));
    std::vector<WORD> start(channels + 1u);
    for (WORD& s : start) ar >> s;
    // The table must start at 0 and never decrease, or a channel would reach
    // outside the values; the stored maximum must cover every channel.
    bool valid = start[0] == 0;
    for (unsigned c = 0; valid && c < channels; ++c)
        valid = start[c + 1] >= start[c] && start[c + 1] - start[c] <= maxNumFreq;
    if (!valid) AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    const unsigned total = start[channels];
    ar.CheckCount(total, sizeof(float));
    std::vector<float> values(total);
    for (float& v : values) ar >> v;
    m_freqRes = freqRes;
    m_nMaxNumFreq = maxNumFreq;
    m_time = time;
    m_nChannels = channels;
    m_start = std::move(start);
    m_values = std::move(values);
}
