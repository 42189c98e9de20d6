#include "spectral/Fft.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "platform/Assert.h"
#include "records/SigRec.h"
#include "spectral/FftCore.h"

namespace {
const char* const kSource = "Fft";
}

// ---------------------------------------------------------------------------
// CFftRec

CFftRec& CFftRec::operator=(const CFftRec& src) {
    if (this != &src) {
        m_time = src.m_time;
        m_epochLen = src.m_epochLen;
        m_nChannels = src.m_nChannels;
        m_start = src.m_start;
        m_values = src.m_values;
    }
    return *this;
}

int CFftRec::Create(double epochLen, unsigned numChannels, const WORD* numFreq) {
    Destroy();
    m_epochLen = epochLen;
    if (numChannels > CFftFactory::kMaxChannels || (numChannels > 0 && !numFreq)) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    unsigned total = 0;
    for (unsigned c = 0; c < numChannels; ++c) total += numFreq[c];
    if (total > 0xFFFF) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    m_nChannels = static_cast<WORD>(numChannels);
    m_start.assign(numChannels + 1, 0);
    for (unsigned c = 0; c < numChannels; ++c) m_start[c + 1] = static_cast<WORD>(m_start[c] + numFreq[c]);
    m_values.assign(total, CComplex());
    return 1;
}

void CFftRec::Destroy() {
    m_nChannels = 0;
    m_start.clear();
    m_values.clear();
}

bool CFftRec::HasSameShape(const CFftRec& other) const {
    return m_nChannels == other.m_nChannels && m_start == other.m_start;
}

CFftRec& CFftRec::operator+=(const CFftRec& other) {
    if (!HasSameShape(other)) {
        SF_ASSERT(false, kSource, __LINE__);
        return *this;
    }
    for (size_t i = 0; i < m_values.size(); ++i) m_values[i] += other.m_values[i];
    return *this;
}

CFftRec& CFftRec::operator/=(float divisor) {
    for (CComplex& v : m_values) v /= divisor;
    return *this;
}

unsigned CFftRec::GetNumFreq(unsigned channel) const {
    if (channel >= m_nChannels) return 0;
    return static_cast<unsigned>(m_start[channel + 1] - m_start[channel]);
}

unsigned CFftRec::GetMaxNumFreq() const {
    unsigned m = 0;
    for (unsigned c = 0; c < m_nChannels; ++c) m = std::max(m, GetNumFreq(c));
    return m;
}

CComplex* CFftRec::GetAt(unsigned channel) {
    if (channel >= m_nChannels) return nullptr;
    return m_values.data() + m_start[channel];
}

const CComplex* CFftRec::GetAt(unsigned channel) const {
    if (channel >= m_nChannels) return nullptr;
    return m_values.data() + m_start[channel];
}

CComplex CFftRec::GetAt(unsigned channel, unsigned freq) const {
    if (freq >= GetNumFreq(channel)) {
        SF_ASSERT(false, kSource, __LINE__);
        return CComplex();
    }
    return m_values[m_start[channel] + freq];
}

void CFftRec::SetAt(unsigned channel, unsigned freq, const CComplex& value) {
    if (freq >= GetNumFreq(channel)) {
        SF_ASSERT(false, kSource, __LINE__);
        return;
    }
    m_values[m_start[channel] + freq] = value;
}

// ---------------------------------------------------------------------------
// CFftFactory

CFftFactory::CFftFactory(double epochLen, WORD preProcessing, WORD tapering)
    : m_epochLen(epochLen), m_preProcessing(preProcessing), m_tapering(tapering) {
    SF_ASSERT(preProcessing <= preTrend, kSource, __LINE__);
    SF_ASSERT(tapering <= taperBlackman, kSource, __LINE__);
    if (m_preProcessing > preTrend) m_preProcessing = preNone;
    if (m_tapering > taperBlackman) m_tapering = taperRect;
    std::fill(std::begin(m_taperScale), std::end(m_taperScale), 1.0f);
}

CFftFactory::~CFftFactory() = default;

int CFftFactory::AddChannel(WORD sigChannel, WORD freq) {
    if (sigChannel >= kMaxChannels || freq > kMaxFrequency || m_nChannels >= kMaxChannels) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    double points = freq * m_epochLen + 0.5;
    if (!(points >= 4.0 && points < 65536.0)) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    WORD len = static_cast<WORD>(points);
    if ((len & (len - 1)) != 0) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    unsigned c = m_nChannels;
    m_sigChannel[c] = sigChannel;
    m_freq[c] = freq;
    m_fftLen[c] = len;
    m_taperWin[c].reset(new float[len]);
    m_taperScale[c] = MakeTaperWindow(m_tapering, m_taperWin[c].get(), len);
    if (m_work.size() < len) m_work.resize(len);
    ++m_nChannels;
    return 1;
}

int CFftFactory::GetEpochRange(int /*unused*/, WORD lo, WORD hi, double& shortest, double& longest) {
    shortest = 0.0;
    longest = 0.0;
    if (lo == 0) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    unsigned r = hi / lo;
    if (r == 0 || (r & (r - 1)) != 0) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    if (64u * r > 4096u) return 0;
    shortest = 64.0 / lo;
    longest = shortest;
    for (unsigned n = 64u * r; n < 4096u; n *= 2) longest = static_cast<double>(n) / hi;
    return 1;
}

CFftRec* CFftFactory::CreateCompatibleFftRec() const {
    WORD numFreq[kMaxChannels];
    for (unsigned c = 0; c < m_nChannels; ++c) numFreq[c] = static_cast<WORD>(m_fftLen[c] / 2);
    return new CFftRec(m_epochLen, m_nChannels, numFreq);
}

WORD CFftFactory::GetSigChannel(unsigned c) const {
    SF_ASSERT(c < m_nChannels, kSource, __LINE__);
    return c < m_nChannels ? m_sigChannel[c] : 0;
}

WORD CFftFactory::GetChannelFreq(unsigned c) const {
    SF_ASSERT(c < m_nChannels, kSource, __LINE__);
    return c < m_nChannels ? m_freq[c] : 0;
}

WORD CFftFactory::GetFftLen(unsigned c) const {
    SF_ASSERT(c < m_nChannels, kSource, __LINE__);
    return c < m_nChannels ? m_fftLen[c] : 0;
}

const float* CFftFactory::GetTaperWin(unsigned c) const {
    SF_ASSERT(c < m_nChannels, kSource, __LINE__);
    return c < m_nChannels ? m_taperWin[c].get() : nullptr;
}

float CFftFactory::GetTaperScale(unsigned c) const {
    SF_ASSERT(c < m_nChannels, kSource, __LINE__);
    return c < m_nChannels ? m_taperScale[c] : 1.0f;
}

float CFftFactory::MakeTaperWindow(WORD tapering, float* window, unsigned n) {
    if (n == 0 || !window) return 1.0f;
    const double pi = 4.0 * std::atan(1.0);
    const double denom = n > 1 ? static_cast<double>(n - 1) : 1.0;
    std::vector<double> w(n, 1.0);
    switch (tapering) {
    case taperCosine: {
        unsigned m = (20 * n) / 100;
        for (unsigned k = 0; k < m; ++k) w[k] = 0.5 * (1.0 + std::cos(pi - (k + 1) * pi / m));
        for (unsigned k = n - m; k < n; ++k) w[k] = w[n - 1 - k];
        break;
    }
    case taperHanning:
        for (unsigned k = 0; k < n; ++k) w[k] = 0.5 * (1.0 - std::cos(2.0 * pi * k / denom));
        break;
    case taperHamming:
        for (unsigned k = 0; k < n; ++k) w[k] = 0.54 - 0.46 * std::cos(2.0 * pi * k / denom);
        break;
    case taperBlackman:
        for (unsigned k = 0; k < n; ++k)
            w[k] = 0.42 - 0.5 * std::cos(2.0 * pi * k / denom) + 0.08 * std::cos(4.0 * pi * k / denom);
        break;
    default:
        break;
    }
    double sum = 0.0;
    for (unsigned k = 0; k < n; ++k) {
        window[k] = static_cast<float>(w[k]);
        sum += w[k];
    }
    return sum != 0.0 ? static_cast<float>(1.0 / sum) : 1.0f;
}

void CFftFactory::PreProcess(WORD option, float* data, unsigned n) {
    if (n == 0) return;
    if (option == preMean) {
        double sx = 0.0;
        for (unsigned k = 0; k < n; ++k) sx += data[k];
        const double mean = sx / n;
        for (unsigned k = 0; k < n; ++k) data[k] = static_cast<float>(data[k] - mean);
    } else if (option == preTrend) {
        double sk = 0.0, skk = 0.0, sx = 0.0, skx = 0.0;
        for (unsigned k = 0; k < n; ++k) {
            sk += k;
            skk += static_cast<double>(k) * k;
            sx += data[k];
            skx += k * static_cast<double>(data[k]);
        }
        const double den = skk - sk * sk / n;
        const double b = den != 0.0 ? (skx - sk * sx / n) / den : 0.0;
        const double a = sx / n - b * sk / n;
        for (unsigned k = 0; k < n; ++k) data[k] = static_cast<float>(data[k] - (a + b * k));
    }
}

int CFftFactory::Transform(double offset, const CObArray& records, CFftRec& fftRec) {
    std::vector<const CFmtSigRec*> list;
    list.reserve(records.GetSize());
    for (int i = 0; i < records.GetSize(); ++i) {
        const CObject* o = records.GetAt(i);
        if (!o || !o->IsKindOf(RUNTIME_CLASS(CFmtSigRec))) {
            SF_ASSERT(false, kSource, __LINE__);
            return 0;
        }
        list.push_back(static_cast<const CFmtSigRec*>(o));
    }
    return Transform(offset, list.data(), static_cast<int>(list.size()), fftRec);
}

int CFftFactory::Transform(double offset, const CFmtSigRec* const* records, int numRecords, CFftRec& fftRec) {
    if (numRecords <= 0 || !records || !records[0] || fftRec.GetNumChannels() != m_nChannels) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    // Check every channel before touching the record.
    for (unsigned c = 0; c < m_nChannels; ++c) {
        if (fftRec.GetNumFreq(c) != m_fftLen[c] / 2u) {
            SF_ASSERT(false, kSource, __LINE__);
            return 0;
        }
        const unsigned start = static_cast<unsigned>(m_freq[c] * offset + 0.5);
        unsigned long long available = 0;
        for (int r = 0; r < numRecords; ++r) {
            if (!records[r] || m_sigChannel[c] >= records[r]->GetNumChannels()) {
                SF_ASSERT(false, kSource, __LINE__);
                return 0;
            }
            available += records[r]->GetNumSamples(m_sigChannel[c]);
        }
        const unsigned first = records[0]->GetNumSamples(m_sigChannel[c]);
        if (offset < 0.0 || start >= first || available - start < m_fftLen[c]) {
            SF_ASSERT(false, kSource, __LINE__);
            return 0;
        }
    }

    fftRec.SetTime(records[0]->GetTime() + CSTimeSpan(offset));
    float* work = m_work.data();
    for (unsigned c = 0; c < m_nChannels; ++c) {
        const unsigned n = m_fftLen[c];
        const WORD ch = m_sigChannel[c];
        unsigned pos = static_cast<unsigned>(m_freq[c] * offset + 0.5);
        unsigned filled = 0;
        for (int r = 0; filled < n; ++r) {
            const CFmtSigRec* rec = records[r];
            const unsigned count = rec->GetNumSamples(ch);
            const float* src = rec->GetAt(ch);
            const unsigned take = std::min(n - filled, count - std::min(pos, count));
            std::copy(src + pos, src + pos + take, work + filled);
            filled += take;
            pos = 0;
        }
        const float* win = m_taperWin[c].get();
        for (unsigned k = 0; k < n; ++k) work[k] *= win[k];
        // Pre-processing comes after tapering.
        PreProcess(m_preProcessing, work, n);
        Fft(work, n, m_taperScale[c]);
        CComplex* out = fftRec.GetAt(c);
        for (unsigned k = 0; k < n / 2; ++k) out[k] = CComplex(work[2 * k], work[2 * k + 1]);
    }
    return 1;
}

void CFftFactory::RealFft(float* data, unsigned n, int direction) {
    if (!data || n < 2 || !spectral::IsFftLength(n)) {
        SF_ASSERT(false, kSource, __LINE__);
        return;
    }
    spectral::RealTransform(data, n, direction);
}

void CFftFactory::ComplexFft(float* data, unsigned nn, int direction) {
    if (!data || !spectral::IsFftLength(nn)) {
        SF_ASSERT(false, kSource, __LINE__);
        return;
    }
    spectral::ComplexTransform(data, nn, direction);
}

void CFftFactory::ComplexFftReorder(float* data, unsigned nn) {
    if (!data || !spectral::IsFftLength(nn)) {
        SF_ASSERT(false, kSource, __LINE__);
        return;
    }
    spectral::ComplexReorder(data, nn);
}

void CFftFactory::Fft(float* data, unsigned n, float scale) {
    if (!data || n < 2 || !spectral::IsFftLength(n)) {
        SF_ASSERT(false, kSource, __LINE__);
        return;
    }
    spectral::RealTransform(data, n, 1);
    data[0] *= scale;
    data[1] = 0.0f;
    const float negScale = -scale;
    for (unsigned i = 2; i < n; i += 2) {
        data[i] *= scale;
        data[i + 1] *= negScale;
    }
}

void CFftFactory::DumpFloatData(const float* data, int numPoints, int perLine) {
    std::printf("\n\n::: Data for %d points :::", numPoints);
    for (int i = 0; i < numPoints; ++i) {
        if (perLine > 0 && i % perLine == 0) std::printf("\n");
        std::printf("%8.3f ", data[i]);
    }
    std::fflush(stdout);
}
