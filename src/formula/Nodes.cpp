// Variables and the arithmetic nodes of the formula engine.
#include "formula/Nodes.h"

#include <algorithm>

IMPLEMENT_DYNAMIC(CCVar, CObject)
IMPLEMENT_DYNAMIC(CCNode, CObject)
IMPLEMENT_DYNAMIC(CCConstant, CCNode)
IMPLEMENT_DYNAMIC(CCVarRef, CCNode)
IMPLEMENT_DYNAMIC(CCPrefixOp, CCNode)
IMPLEMENT_DYNAMIC(CCInfixOp, CCNode)
IMPLEMENT_DYNAMIC(CCUsrOp, CCNode)

void CCVar::Widen(int first, int last) {
    m_nFirstSample = std::min(m_nFirstSample, first);
    m_nLastSample = std::max(m_nLastSample, last);
}

float* CCNode::AllocRange(int first, int last) {
    m_nFirst = first;
    m_nLast = last;
    const long long count = static_cast<long long>(last) - first + 1;
    m_buffer.assign(static_cast<size_t>(std::max(count, 1LL)), 0.0f);
    // Ranges always hold sample 0 (first <= 0 <= last), so the origin lies
    // inside the buffer.
    return m_buffer.data() - first;
}

void CCConstant::Init(int /*frequency*/, int /*samplesRec*/, int first, int last) {
    m_pOrigin = AllocRange(first, last);
    std::fill(m_buffer.begin(), m_buffer.end(), m_value);
}

const float* CCConstant::Eval(int /*restart*/) { return m_pOrigin; }

void CCVarRef::Init(int /*frequency*/, int /*samplesRec*/, int first, int last) {
    m_nFirst = first;
    m_nLast = last;
    m_pVar->Widen(first, last);
}

// The variable's buffer covers at least the range asked for: no copy.
const float* CCVarRef::Eval(int /*restart*/) { return m_pVar->Eval(); }

CCPrefixOp::CCPrefixOp(int code, std::unique_ptr<CCNode> operand)
    : m_nCode(code), m_pOperand(std::move(operand)) {
    m_nHeight = m_pOperand->GetHeight() + 1;
}

void CCPrefixOp::Init(int frequency, int samplesRec, int first, int last) {
    m_pOrigin = AllocRange(first, last);
    m_pOperand->Init(frequency, samplesRec, first, last);
}

const float* CCPrefixOp::Eval(int restart) {
    const float* x = m_pOperand->Eval(restart);
    float* y = m_pOrigin;
    if (m_nCode == 1) {
        for (int n = m_nFirst; n <= m_nLast; ++n) y[n] = -x[n];
    } else {
        for (int n = m_nFirst; n <= m_nLast; ++n) y[n] = x[n];
    }
    return y;
}

CCInfixOp::CCInfixOp(int code, std::unique_ptr<CCNode> left, std::unique_ptr<CCNode> right)
    : m_nCode(code), m_pLeft(std::move(left)), m_pRight(std::move(right)) {
    m_nHeight = std::max(m_pLeft->GetHeight(), m_pRight->GetHeight()) + 1;
}

long long CCInfixOp::GetReach() const { return std::max(m_pLeft->GetReach(), m_pRight->GetReach()); }

void CCInfixOp::Init(int frequency, int samplesRec, int first, int last) {
    m_pOrigin = AllocRange(first, last);
    m_pLeft->Init(frequency, samplesRec, first, last);
    m_pRight->Init(frequency, samplesRec, first, last);
}

namespace {
// Element-wise loops over [first, last]; each is a plain loop over three
// arrays that the compiler can vectorise.  Division is not guarded: a zero
// divisor gives infinity or not-a-number, as required.
template <class Op>
void Combine(float* __restrict y, const float* __restrict a, const float* __restrict b, int first, int last, Op op) {
    for (int n = first; n <= last; ++n) y[n] = op(a[n], b[n]);
}
}  // namespace

const float* CCInfixOp::Eval(int restart) {
    const float* a = m_pLeft->Eval(restart);
    const float* b = m_pRight->Eval(restart);
    float* y = m_pOrigin;
    switch (m_nCode) {
    case 0: Combine(y, a, b, m_nFirst, m_nLast, [](float u, float v) { return u + v; }); break;
    case 1: Combine(y, a, b, m_nFirst, m_nLast, [](float u, float v) { return u - v; }); break;
    case 2: Combine(y, a, b, m_nFirst, m_nLast, [](float u, float v) { return u * v; }); break;
    default: Combine(y, a, b, m_nFirst, m_nLast, [](float u, float v) { return u / v; }); break;
    }
    return y;
}
