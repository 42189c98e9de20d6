// The built-in functions of the formula language.
//
//   ABS(x)                        absolute value
//   CMP(x, low, high, in, out)    in where low <= x <= high, else out
//   FIR(x, type, N, low, high)    windowed-sinc FIR of 2N+1 taps
//   IIR(x, type, order, low, high) Butterworth IIR, warmed up by 128 samples
//                                  per order and carried across records
//   SUM(x, before, after)         moving sum over x[n-before] .. x[n+after]
//
// Filter types: 1 low-pass at the high cut-off, 2 high-pass at the low
// cut-off, 3 band-pass, 4 band-stop between them.  Integer arguments are
// the float constants truncated toward zero.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <vector>

#include "formula/Biquad.h"
#include "formula/Nodes.h"

// Shared parts of the functions: argument 0 (the expression) and the checks
// of integer arguments.
class CCUsrOpBase : public CCUsrOp {
    DECLARE_DYNAMIC(CCUsrOpBase)
public:
    int GetArgType(int i) const override { return i == 0 ? argExpression : argConstant; }
    long long GetReach() const override;
    const CCNode* GetArgument() const { return m_pArg.get(); }

protected:
    // Takes the expression of argument 0 (ownership even when refused).
    int TakeExpression(CCNode* expression);
    // The constant truncated toward zero, when it lies within [lo, hi].
    static bool ToInt(float value, int lo, int hi, int& result);
    // Samples beyond the asked range that this function reads of its argument.
    virtual long long OwnReach() const { return 0; }
    // Asserts in the operators' source and returns false when the argument
    // is missing (a tree built by hand); the node then yields zeros.
    bool CheckArgument(int line) const;

    std::unique_ptr<CCNode> m_pArg;
};

class CCAbsOp : public CCUsrOpBase {
    DECLARE_DYNCREATE(CCAbsOp)
public:
    static const char* GetName() { return "ABS"; }
    const char* GetFunctionName() const override { return GetName(); }
    int GetNumArgs() const override { return 1; }
    int GetArgType(int i) const override;
    int SetArgValue(int i, float value, CCNode* expression = nullptr) override;
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

private:
    float* m_pOrigin = nullptr;
};

class CCCmpOp : public CCUsrOpBase {
    DECLARE_DYNCREATE(CCCmpOp)
public:
    static const char* GetName() { return "CMP"; }
    const char* GetFunctionName() const override { return GetName(); }
    int GetNumArgs() const override { return 5; }
    int SetArgValue(int i, float value, CCNode* expression = nullptr) override;
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

private:
    float m_fLow = 0.0f;
    float m_fHigh = 0.0f;
    float m_fInside = 0.0f;
    float m_fOutside = 0.0f;
    float* m_pOrigin = nullptr;
};

class CCFirOp : public CCUsrOpBase {
    DECLARE_DYNCREATE(CCFirOp)
public:
    static const char* GetName() { return "FIR"; }
    const char* GetFunctionName() const override { return GetName(); }
    int GetNumArgs() const override { return 5; }
    int SetArgValue(int i, float value, CCNode* expression = nullptr) override;
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

    // The coefficients h[0] .. h[N] of the design (2N+1 taps, symmetric)
    // for a sampling frequency fs; see the source for the design.
    static std::vector<float> Design(int type, int halfLength, float lowCut, float highCut, int fs);
    const std::vector<float>& GetCoefficients() const { return m_coefficients; }

protected:
    long long OwnReach() const override { return m_nHalfLength; }

private:
    unsigned m_nType = 0;
    int m_nHalfLength = 0;
    float m_fLowCut = 0.0f;
    float m_fHighCut = 0.0f;
    std::vector<float> m_coefficients;
    float* m_pOrigin = nullptr;
    bool m_bInitialised = false;
};

class CCIirOp : public CCUsrOpBase {
    DECLARE_DYNCREATE(CCIirOp)
public:
    // Samples of earlier signal per order that warm the filter up.
    static constexpr int kWarmUpPerOrder = 128;

    static const char* GetName() { return "IIR"; }
    const char* GetFunctionName() const override { return GetName(); }
    int GetNumArgs() const override { return 5; }
    int SetArgValue(int i, float value, CCNode* expression = nullptr) override;
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

    const CBiquad* GetBiquad() const { return m_pBiquad.get(); }

protected:
    long long OwnReach() const override { return static_cast<long long>(kWarmUpPerOrder) * m_nOrder; }

private:
    int m_nSamplesRec = 0;
    unsigned m_nType = 0;
    int m_nOrder = 0;
    float m_fLowCut = 0.0f;
    float m_fHighCut = 0.0f;
    std::unique_ptr<CBiquad> m_pBiquad;
    int m_nWarmUp = 0;
    float* m_pOrigin = nullptr;
};

class CCSumOp : public CCUsrOpBase {
    DECLARE_DYNCREATE(CCSumOp)
public:
    // Largest window edge accepted: a record holds at most 65535 samples.
    static constexpr int kMaxWindow = 65535;

    static const char* GetName() { return "SUM"; }
    const char* GetFunctionName() const override { return GetName(); }
    int GetNumArgs() const override { return 3; }
    int SetArgValue(int i, float value, CCNode* expression = nullptr) override;
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

protected:
    long long OwnReach() const override;

private:
    int m_nBefore = 0;
    int m_nAfter = 0;
    float* m_pOrigin = nullptr;
};
#pragma GCC visibility pop
