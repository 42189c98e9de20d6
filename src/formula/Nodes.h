// Variables and tree nodes of the formula engine.
//
// A compiled formula is a tree of CCNode objects.  Every node produces, for
// the current record, the samples of a range of sample indices [first, last]
// relative to the first sample of the current record; the range reaches into
// earlier or later records when a filter or a moving sum needs neighbouring
// samples.  Eval returns a pointer positioned so that p[n] is sample n for
// first <= n <= last.  Ranges always contain 0 (first <= 0 <= last), so that
// pointer stays inside the node's buffer.
//
// Variables (recorded channels and macros) are not nodes: a CCVarRef node
// reads the samples of one.  Each variable records the widest range that the
// formulas read from it.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <vector>

#include "platform/Object.h"
#include "platform/Types.h"

class CCNode;

// A named source of samples: a recorded channel or a macro.
class CCVar : public CObject {
    DECLARE_DYNAMIC(CCVar)
public:
    virtual const CString& GetName() const = 0;
    virtual const CString& GetReference() const = 0;
    virtual UINT GetSamplesRec() const = 0;
    virtual UINT GetFrequency() const = 0;
    virtual UINT GetType() const = 0;
    virtual UINT GetUnit() const = 0;
    // Samples for the current record, positioned so that p[n] is sample n.
    virtual const float* Eval() = 0;

    // Widens the range that the formulas read.
    void Widen(int first, int last);
    int GetFirstSample() const { return m_nFirstSample; }
    int GetLastSample() const { return m_nLastSample; }
    // A variable whose last sample is still -1 is read by no formula.
    bool IsUsed() const { return m_nLastSample != -1; }
    // Samples beyond the current record (before plus after) that computing
    // this variable reads of the inputs: 0 for a recorded channel.
    virtual long long GetReach() const { return 0; }

protected:
    int m_nFirstSample = 0;
    int m_nLastSample = -1;
};

// The base of every tree node.
class CCNode : public CObject {
    DECLARE_DYNAMIC(CCNode)
public:
    // Fixes the range that this node produces, allocates its buffer and
    // initialises the operands with the range it needs of them.  frequency
    // is the sampling frequency in Hz.
    virtual void Init(int frequency, int samplesRec, int first, int last) = 0;
    // Computes the samples of the current record; restart is non-zero when
    // the record does not follow the previous one.
    virtual const float* Eval(int restart) = 0;

    int GetFirst() const { return m_nFirst; }
    int GetLast() const { return m_nLast; }

    // Samples beyond the range asked of this node (before plus after, along
    // the widest path down to the variables) that its evaluation reads.  The
    // compiler bounds it so that no formula can ask for absurd buffers.
    virtual long long GetReach() const { return 0; }
    // Levels of nodes from this one down to the deepest leaf.  The compiler
    // bounds it so that the recursive Init and Eval cannot exhaust the stack.
    int GetHeight() const { return m_nHeight; }

protected:
    // Sizes the buffer for [first, last] and returns the pointer that
    // addresses sample n at index n.
    float* AllocRange(int first, int last);
    // Prepares the buffer of a node whose value at a sample depends only on
    // the samples of its operands, and returns the first sample to compute.
    // Restarting, every sample is computed.  Otherwise the next record's
    // sample n is this record's sample n + samples per record: the buffer is
    // shifted in place by one record and only the newest record's samples
    // remain to compute.
    int Slide(int restart);

    int m_nFirst = 0;
    int m_nLast = -1;
    int m_nSamplesRec = 0;
    int m_nHeight = 1;
    std::vector<float> m_buffer;
};

// A decimal constant: its value at every sample.
class CCConstant : public CCNode {
    DECLARE_DYNAMIC(CCConstant)
public:
    explicit CCConstant(float value) : m_value(value) {}
    float GetValue() const { return m_value; }
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

private:
    float m_value;
    float* m_pOrigin = nullptr;
};

// A reference to a variable, which it does not own.
class CCVarRef : public CCNode {
    DECLARE_DYNAMIC(CCVarRef)
public:
    explicit CCVarRef(CCVar* var) : m_pVar(var) {}
    CCVar* GetVar() const { return m_pVar; }
    long long GetReach() const override { return m_pVar->GetReach(); }
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

private:
    CCVar* m_pVar;
};

// Unary sign: code 0 '+', code 1 '-'.
class CCPrefixOp : public CCNode {
    DECLARE_DYNAMIC(CCPrefixOp)
public:
    CCPrefixOp(int code, std::unique_ptr<CCNode> operand);
    int GetCode() const { return m_nCode; }
    const CCNode* GetOperand() const { return m_pOperand.get(); }
    long long GetReach() const override { return m_pOperand->GetReach(); }
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

private:
    int m_nCode;
    std::unique_ptr<CCNode> m_pOperand;
    float* m_pOrigin = nullptr;
};

// Binary operator: code 0 '+', 1 '-', 2 '*', 3 '/'.
class CCInfixOp : public CCNode {
    DECLARE_DYNAMIC(CCInfixOp)
public:
    CCInfixOp(int code, std::unique_ptr<CCNode> left, std::unique_ptr<CCNode> right);
    int GetCode() const { return m_nCode; }
    const CCNode* GetLeft() const { return m_pLeft.get(); }
    const CCNode* GetRight() const { return m_pRight.get(); }
    long long GetReach() const override;
    void Init(int frequency, int samplesRec, int first, int last) override;
    const float* Eval(int restart) override;

private:
    int m_nCode;
    std::unique_ptr<CCNode> m_pLeft;
    std::unique_ptr<CCNode> m_pRight;
    float* m_pOrigin = nullptr;
};

// Base of the built-in functions, created by name through their run-time
// class.  Argument 0 is the expression; the others are constants.
class CCUsrOp : public CCNode {
    DECLARE_DYNAMIC(CCUsrOp)
public:
    enum ArgType { argConstant = 0, argExpression = 1 };

    virtual int GetNumArgs() const = 0;
    virtual int GetArgType(int i) const = 0;
    // Argument 0 takes ownership of an expression node (value must be null
    // then); the others take a constant.  Returns 0 to refuse the value.
    virtual int SetArgValue(int i, float value, CCNode* expression = nullptr) = 0;
    // The function's name as written in formulas ("FIR", ...).
    virtual const char* GetFunctionName() const = 0;
};
#pragma GCC visibility pop
