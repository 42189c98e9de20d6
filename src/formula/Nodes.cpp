// Variables and the arithmetic nodes of the formula engine.
#include "formula/Nodes.h"

#include "formula/Kernels.h"

#include <algorithm>
#include <cstring>

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

int CCNode::Slide(int restart) {
    const int count = m_nLast - m_nFirst + 1;
    if (restart || m_nSamplesRec <= 0 || m_nSamplesRec >= count) return m_nFirst;
    std::memmove(m_buffer.data(), m_buffer.data() + m_nSamplesRec,
                 static_cast<size_t>(count - m_nSamplesRec) * sizeof(float));
    return m_nLast - m_nSamplesRec + 1;
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
    m_nSamplesRec = samplesRec;
    m_pOperand->Init(frequency, samplesRec, first, last);
}

const float* CCPrefixOp::Eval(int restart) {
    const float* __restrict x = m_pOperand->Eval(restart);
    float* __restrict y = m_pOrigin;
    const int from = Slide(restart), last = m_nLast;
    if (m_nCode == 1)
        formulakernels::Map1(y, x, from, last, [](auto u) { return -u; });
    else
        formulakernels::Map1(y, x, from, last, [](auto u) { return u; });
    return m_pOrigin;
}

CCInfixOp::CCInfixOp(int code, std::unique_ptr<CCNode> left, std::unique_ptr<CCNode> right)
    : m_nCode(code), m_pLeft(std::move(left)), m_pRight(std::move(right)) {
    m_nHeight = std::max(m_pLeft->GetHeight(), m_pRight->GetHeight()) + 1;
}

long long CCInfixOp::GetReach() const { return std::max(m_pLeft->GetReach(), m_pRight->GetReach()); }

void CCInfixOp::Init(int frequency, int samplesRec, int first, int last) {
    m_pOrigin = AllocRange(first, last);
    m_nSamplesRec = samplesRec;
    m_pLeft->Init(frequency, samplesRec, first, last);
    m_pRight->Init(frequency, samplesRec, first, last);
}

const float* CCInfixOp::Eval(int restart) {
    const float* a = m_pLeft->Eval(restart);
    const float* b = m_pRight->Eval(restart);
    float* y = m_pOrigin;
    const int from = Slide(restart);
    using formulakernels::Map2;
    // Division is not guarded: a zero divisor gives infinity or
    // not-a-number, as required.
    switch (m_nCode) {
    case 0: Map2(y, a, b, from, m_nLast, [](auto u, auto v) { return u + v; }); break;
    case 1: Map2(y, a, b, from, m_nLast, [](auto u, auto v) { return u - v; }); break;
    case 2: Map2(y, a, b, from, m_nLast, [](auto u, auto v) { return u * v; }); break;
    default: Map2(y, a, b, from, m_nLast, [](auto u, auto v) { return u / v; }); break;
    }
    return y;
}
