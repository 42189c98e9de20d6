#include "formula/UsrOps.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "formula/Kernels.h"
#include "platform/Assert.h"

namespace {
// Assertion source of the built-in functions.
constexpr const char* kSource = "RFMTOPS";
}  // namespace

IMPLEMENT_DYNAMIC(CCUsrOpBase, CCUsrOp)
IMPLEMENT_DYNCREATE(CCAbsOp, CCUsrOpBase)
IMPLEMENT_DYNCREATE(CCCmpOp, CCUsrOpBase)
IMPLEMENT_DYNCREATE(CCFirOp, CCUsrOpBase)
IMPLEMENT_DYNCREATE(CCIirOp, CCUsrOpBase)
IMPLEMENT_DYNCREATE(CCSumOp, CCUsrOpBase)

// ---------------------------------------------------------------- base

long long CCUsrOpBase::GetReach() const { return OwnReach() + (m_pArg ? m_pArg->GetReach() : 0); }

int CCUsrOpBase::TakeExpression(CCNode* expression) {
    std::unique_ptr<CCNode> node(expression);
    SF_ASSERT(node != nullptr, kSource, 30);
    if (!node) return 0;
    m_pArg = std::move(node);
    m_nHeight = m_pArg->GetHeight() + 1;
    return 1;
}

bool CCUsrOpBase::ToInt(float value, int lo, int hi, int& result) {
    if (!std::isfinite(value)) return false;
    const double t = std::trunc(static_cast<double>(value));
    if (t < lo || t > hi) return false;
    result = static_cast<int>(t);
    return true;
}

bool CCUsrOpBase::CheckArgument(int line) const {
    SF_ASSERT(m_pArg != nullptr, kSource, line);
    return m_pArg != nullptr;
}

// ---------------------------------------------------------------- ABS

int CCAbsOp::GetArgType(int i) const {
    SF_ASSERT(i == 0, kSource, 60);
    return argExpression;
}

int CCAbsOp::SetArgValue(int i, float /*value*/, CCNode* expression) {
    SF_ASSERT(i == 0, kSource, 65);
    if (i != 0) {
        delete expression;
        return 0;
    }
    return TakeExpression(expression);
}

void CCAbsOp::Init(int frequency, int samplesRec, int first, int last) {
    m_pOrigin = AllocRange(first, last);
    m_nSamplesRec = samplesRec;
    if (CheckArgument(76)) m_pArg->Init(frequency, samplesRec, first, last);
}

const float* CCAbsOp::Eval(int restart) {
    if (!m_pArg) return m_pOrigin;
    const float* __restrict x = m_pArg->Eval(restart);
    float* __restrict y = m_pOrigin;
    const int from = Slide(restart), last = m_nLast;
    for (int n = from; n <= last; ++n) y[n] = std::fabs(x[n]);
    return m_pOrigin;
}

// ---------------------------------------------------------------- CMP

int CCCmpOp::SetArgValue(int i, float value, CCNode* expression) {
    switch (i) {
    case 0: return TakeExpression(expression);
    case 1: m_fLow = value; return 1;
    case 2:
        if (value < m_fLow) return 0;
        m_fHigh = value;
        return 1;
    case 3: m_fInside = value; return 1;
    case 4: m_fOutside = value; return 1;
    default: delete expression; return 0;
    }
}

void CCCmpOp::Init(int frequency, int samplesRec, int first, int last) {
    m_pOrigin = AllocRange(first, last);
    m_nSamplesRec = samplesRec;
    if (CheckArgument(104)) m_pArg->Init(frequency, samplesRec, first, last);
}

const float* CCCmpOp::Eval(int restart) {
    if (!m_pArg) return m_pOrigin;
    const float* __restrict x = m_pArg->Eval(restart);
    float* __restrict y = m_pOrigin;
    const int from = Slide(restart), last = m_nLast;
    const float low = m_fLow, high = m_fHigh, inside = m_fInside, outside = m_fOutside;
    // A not-a-number is outside: both comparisons are false.
    for (int n = from; n <= last; ++n) y[n] = (low <= x[n] && x[n] <= high) ? inside : outside;
    return m_pOrigin;
}

// ---------------------------------------------------------------- FIR

int CCFirOp::SetArgValue(int i, float value, CCNode* expression) {
    int v = 0;
    switch (i) {
    case 0: return TakeExpression(expression);
    case 1:
        if (!ToInt(value, 1, 4, v)) return 0;
        m_nType = static_cast<unsigned>(v);
        return 1;
    case 2:
        // Odd half lengths from 1 to 63 (64 is even, so refused).
        if (!ToInt(value, 1, 64, v) || v % 2 == 0) return 0;
        m_nHalfLength = v;
        return 1;
    case 3: m_fLowCut = value; return 1;
    case 4: m_fHighCut = value; return 1;
    default: delete expression; return 0;
    }
}

// Windowed-sinc design with M = 2N + 1 taps and the short value 3.14159 of
// pi throughout (kept on purpose: it fixes the coefficients).  For each
// cut-off f other than 0, a low-pass kernel L of M entries:
//   w = (f / (fs / 2)) p,  L[0] = w / p,
//   L[k] = sin(k w) / (k p) (0.5 + 0.5 cos(p k / (M - 1)))   for k = 1 .. M-1,
// divided by S = L[0] + 2 (L[1] + ... + L[M-1]).  Only h[0] .. h[N] are used
// by the evaluation while S runs over all M - 1 side entries, so the gain at
// zero frequency is not exactly 1: this is the filter's defined behaviour.
// A cut-off of 0 gives a kernel of zeros, not normalised.  With A the
// kernel of the low cut-off and B that of the high cut-off:
//   1 low-pass   h = B
//   2 high-pass  h[0] = 1 - A[0], h[k] = -A[k]
//   3 band-pass  h = B - A
//   4 band-stop  h[0] = 1 - B[0] + A[0], h[k] = A[k] - B[k]
std::vector<float> CCFirOp::Design(int type, int halfLength, float lowCut, float highCut, int fs) {
    const float p = 3.14159f;
    const int taps = 2 * halfLength + 1;
    auto kernel = [&](float f) {
        std::vector<float> L(static_cast<size_t>(taps), 0.0f);
        if (f == 0.0f) return L;
        const float w = (f / (static_cast<float>(fs) / 2.0f)) * p;
        L[0] = w / p;
        for (int k = 1; k < taps; ++k) {
            const float fk = static_cast<float>(k);
            L[static_cast<size_t>(k)] =
                std::sin(fk * w) / (fk * p) * (0.5f + 0.5f * std::cos(p * fk / static_cast<float>(taps - 1)));
        }
        float side = 0.0f;
        for (int k = 1; k < taps; ++k) side += L[static_cast<size_t>(k)];
        const float s = L[0] + 2.0f * side;
        for (float& v : L) v /= s;
        return L;
    };
    const std::vector<float> A = kernel(lowCut);
    const std::vector<float> B = kernel(highCut);
    std::vector<float> h(static_cast<size_t>(halfLength + 1), 0.0f);
    for (int k = 0; k <= halfLength; ++k) {
        const size_t i = static_cast<size_t>(k);
        switch (type) {
        case 1: h[i] = B[i]; break;
        case 2: h[i] = k == 0 ? 1.0f - A[i] : -A[i]; break;
        case 3: h[i] = B[i] - A[i]; break;
        case 4: h[i] = k == 0 ? 1.0f - B[i] + A[i] : A[i] - B[i]; break;
        default: break;
        }
    }
    return h;
}

void CCFirOp::Init(int frequency, int samplesRec, int first, int last) {
    SF_ASSERT(samplesRec >= 1, kSource, 175);
    SF_ASSERT(last > first, kSource, 176);
    SF_ASSERT(m_nHalfLength >= 1, kSource, 177);
    SF_ASSERT(m_nType >= 1 && m_nType <= 4, kSource, 178);
    SF_ASSERT(!m_bInitialised, kSource, 179);
    m_bInitialised = true;
    m_pOrigin = AllocRange(first, last);
    m_nSamplesRec = samplesRec;
    m_coefficients = Design(static_cast<int>(m_nType), std::max(m_nHalfLength, 0), m_fLowCut, m_fHighCut, frequency);
    if (CheckArgument(183)) m_pArg->Init(frequency, samplesRec, first - m_nHalfLength, last + m_nHalfLength);
}

const float* CCFirOp::Eval(int restart) {
    if (!m_pArg) return m_pOrigin;
    const float* __restrict x = m_pArg->Eval(restart);
    float* __restrict y = m_pOrigin;
    const float* __restrict h = m_coefficients.data();
    const int from = Slide(restart), last = m_nLast, halfLength = m_nHalfLength;
    // y[n] = h[0] x[n] + sum over k = 1 .. N of h[k] (x[n-k] + x[n+k]),
    // accumulated in that order.
    formulakernels::SymmetricFir(y, x, h, halfLength, from, last);
    return m_pOrigin;
}

// ---------------------------------------------------------------- IIR

int CCIirOp::SetArgValue(int i, float value, CCNode* expression) {
    int v = 0;
    switch (i) {
    case 0: return TakeExpression(expression);
    case 1:
        if (!ToInt(value, 1, 4, v)) return 0;
        m_nType = static_cast<unsigned>(v);
        return 1;
    case 2:
        if (!ToInt(value, 1, 10, v)) return 0;
        m_nOrder = v;
        return 1;
    case 3: m_fLowCut = value; return 1;
    case 4: m_fHighCut = value; return 1;
    default: delete expression; return 0;
    }
}

void CCIirOp::Init(int frequency, int samplesRec, int first, int last) {
    SF_ASSERT(m_nType >= 1 && m_nType <= 4, kSource, 226);
    SF_ASSERT(m_nOrder >= 1 && m_nOrder <= 10, kSource, 227);
    m_nSamplesRec = samplesRec;
    m_nWarmUp = kWarmUpPerOrder * std::max(m_nOrder, 0);
    m_pBiquad = std::make_unique<CBiquad>(static_cast<int>(m_nType), m_nOrder, static_cast<float>(frequency),
                                          m_fLowCut, m_fHighCut);
    // The buffer holds the warm-up samples too: [first - warm-up, last].
    AllocRange(first - m_nWarmUp, last);
    m_nFirst = first;
    m_nLast = last;
    m_pOrigin = m_buffer.data() + (m_nWarmUp - first);
    if (CheckArgument(237)) m_pArg->Init(frequency, samplesRec, first - m_nWarmUp, last);
}

const float* CCIirOp::Eval(int restart) {
    if (!m_pArg) return m_pOrigin;
    const float* x = m_pArg->Eval(restart);
    const int size = static_cast<int>(m_buffer.size());
    const int start = m_nFirst - m_nWarmUp;
    if (restart || m_nSamplesRec <= 0 || m_nSamplesRec >= size) {
        // Filter the whole range from rest: the warm-up samples settle it.
        m_pBiquad->Init(0.0f);
        m_pBiquad->Filter(x + start, m_buffer.data(), size);
    } else {
        // Shift one record toward the start and filter only the newest
        // record's samples, carrying the state on.
        const int keep = size - m_nSamplesRec;
        std::memmove(m_buffer.data(), m_buffer.data() + m_nSamplesRec, static_cast<size_t>(keep) * sizeof(float));
        m_pBiquad->Filter(x + (m_nLast - m_nSamplesRec + 1), m_buffer.data() + keep, m_nSamplesRec);
    }
    return m_pOrigin;
}

// ---------------------------------------------------------------- SUM

int CCSumOp::SetArgValue(int i, float value, CCNode* expression) {
    int v = 0;
    switch (i) {
    case 0: return TakeExpression(expression);
    case 1:
        if (!ToInt(value, -kMaxWindow, kMaxWindow, v)) return 0;
        m_nBefore = v;
        return 1;
    case 2:
        if (!ToInt(value, -kMaxWindow, kMaxWindow, v) || v < m_nBefore) return 0;
        m_nAfter = v;
        return 1;
    default: delete expression; return 0;
    }
}

long long CCSumOp::OwnReach() const { return std::max(m_nBefore, 0) + std::max(m_nAfter, 0); }

void CCSumOp::Init(int frequency, int samplesRec, int first, int last) {
    m_pOrigin = AllocRange(first, last);
    m_nSamplesRec = samplesRec;
    // The argument's range always holds the asked range too, so that it
    // keeps sample 0 whatever the window.
    if (CheckArgument(285))
        m_pArg->Init(frequency, samplesRec, std::min(first - m_nBefore, first), std::max(last + m_nAfter, last));
}

const float* CCSumOp::Eval(int restart) {
    if (!m_pArg) return m_pOrigin;
    const float* __restrict x = m_pArg->Eval(restart);
    float* __restrict y = m_pOrigin;
    const int from = Slide(restart), last = m_nLast, before = m_nBefore, after = m_nAfter;
    // The sum of x[n - before] .. x[n + after], from 0 upward in order.
    for (int n = from; n <= last; ++n) {
        float s = 0.0f;
        for (int j = n - before; j <= n + after; ++j) s += x[j];
        y[n] = s;
    }
    return m_pOrigin;
}
