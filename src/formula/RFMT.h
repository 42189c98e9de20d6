// The formula compiler: turns the formulas of a reformatted montage into
// derived channels and computes them record by record.
//
// The caller declares the inputs (recorded channels), the globals (named
// sub-expressions, "macros") and the outputs (one formula per derived
// channel), then calls Compile().  Eval then computes one output record from
// the calibrated input records of the record span [GetFirstRecOfs(),
// GetLastRecOfs()] around the current record.
//
// The language: + - * / with the usual precedence, unary signs (binding
// tighter than * and /), parentheses, unsigned decimal constants, channel and
// macro names, and the built-in functions ABS, CMP, FIR, IIR and SUM.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <map>
#include <memory>
#include <vector>

#include "formula/Nodes.h"
#include "platform/Object.h"
#include "platform/Types.h"

class CFmtSigRec;
class CLogicalMontage;
class CFilter;

// A recorded channel offered to the formulas.
class CCInputVar : public CCVar {
    DECLARE_DYNAMIC(CCInputVar)
public:
    // The name is upper-cased; the reference is kept as given.  channel is
    // the channel of the input records that this input reads.
    CCInputVar(int number, int channel, const char* name, const char* reference, UINT samplesRec,
               UINT frequency, UINT type, UINT unit);

    const CString& GetName() const override { return m_strName; }
    const CString& GetReference() const override { return m_strReference; }
    UINT GetSamplesRec() const override { return m_nSamplesRec; }
    UINT GetFrequency() const override { return m_nFrequency; }
    UINT GetType() const override { return m_nType; }
    UINT GetUnit() const override { return m_nUnit; }
    const float* Eval() override { return m_pOrigin; }

    int GetNumber() const { return m_nNumber; }
    int GetChannel() const { return m_nChannel; }
    // Forgets the range and the buffer of an earlier compilation.
    void Reset();

    // Sets the final range (after the record span is known) and allocates
    // the sample buffer.
    void AllocateBuffer(int first, int last);
    // Fills the buffer from the records of the whole span (element 0 at
    // record offset firstRecOfs); false when a record does not fit.
    bool Load(const CFmtSigRec* const* records, int firstRecOfs);
    // Shifts the buffer by one record and appends the newest record.
    bool Append(const CFmtSigRec& newest);

private:
    int m_nNumber;
    int m_nChannel;
    CString m_strName;
    CString m_strReference;
    UINT m_nSamplesRec;
    UINT m_nFrequency;
    UINT m_nType;
    UINT m_nUnit;
    std::vector<float> m_buffer;
    float* m_pOrigin = nullptr;
};

// An output or macro formula with the signature of the inputs that it reads.
class CCFunction : public CObject {
    DECLARE_DYNAMIC(CCFunction)
public:
    CCFunction(const char* name, const char* formula);

    const CString& GetName() const { return m_strName; }
    const CString& GetFormula() const { return m_strFormula; }

    // Signature, filled while parsing.
    UINT m_nSamplesRec = 0;
    UINT m_nFrequency = 0;
    UINT m_nType = 65535;
    UINT m_nUnit = 65535;
    CString m_strReference;  // upper-case
    // Size of the compiled tree: its nodes and the samples beyond the record
    // that it reads (GetReach of the root).
    long long m_nNodes = 0;
    long long m_nReach = 0;

    CCNode* GetTree() const { return m_pTree.get(); }
    // Replaces the tree; the old one is deleted.
    void SetTree(std::unique_ptr<CCNode> tree) { m_pTree = std::move(tree); }
    // Resets the signature and drops the tree, ready for a new compilation.
    void Reset();

private:
    CString m_strName;
    CString m_strFormula;
    std::unique_ptr<CCNode> m_pTree;
};

// A macro: a variable whose samples its own formula computes.
class CCGlobalVar : public CCVar {
    DECLARE_DYNAMIC(CCGlobalVar)
public:
    CCGlobalVar(const char* name, const char* formula) : m_function(name, formula) {}

    const CString& GetName() const override { return m_function.GetName(); }
    const CString& GetReference() const override { return m_function.m_strReference; }
    UINT GetSamplesRec() const override { return m_function.m_nSamplesRec; }
    UINT GetFrequency() const override { return m_function.m_nFrequency; }
    UINT GetType() const override { return m_function.m_nType; }
    UINT GetUnit() const override { return m_function.m_nUnit; }
    const float* Eval() override { return m_pSamples; }
    long long GetReach() const override { return m_function.m_nReach; }

    CCFunction& GetFunction() { return m_function; }
    void Reset();
    // Initialises the tree with the range that the users asked for.
    void InitTree();
    // Evaluates the tree for the current record and keeps its samples.
    void Compute(int restart);

private:
    CCFunction m_function;
    const float* m_pSamples = nullptr;
};

class CCReformater : public CObject {
    DECLARE_DYNAMIC(CCReformater)
public:
    CCReformater();
    ~CCReformater() override;
    CCReformater(const CCReformater&) = delete;
    CCReformater& operator=(const CCReformater&) = delete;

    // Appends an input.  Inputs are numbered by position; channel is the
    // channel of the input records that it reads (-1: its number).
    int AddInput(const char* name, const char* reference, UINT samplesRec, UINT frequency, UINT type,
                 UINT unit, int channel = -1);
    int AddGlobal(const char* name, const char* formula);
    // Output i is channel i of the output record.
    int AddOutput(const char* name, const char* formula);
    // Enters or replaces a function (the class must derive from CCUsrOp).
    int AddUsrOp(const char* name, const CRuntimeClass* usrOpClass);

    // Compiles everything: 1 on success; 0 on failure, with everything
    // destroyed and the diagnostic kept (GetDiagnostics).
    int Compile();
    // Builds the inputs, globals and outputs from a recording montage, wraps
    // each output formula in up to three filters, then calls Compile().
    // Implemented with the montage classes.
    int Compile(CLogicalMontage* montage, CFilter* filter1 = nullptr, CFilter* filter2 = nullptr,
                CFilter* filter3 = nullptr);

    // Computes one output record.  With restart, records holds the
    // GetLastRecOfs() - GetFirstRecOfs() + 1 records of the span in order
    // (element 0 at the first record offset); without it, records[0] is the
    // newest record (at the last record offset), earlier ones being kept from
    // the preceding calls.  Returns 1; 0 (after an assertion) when a record
    // does not have the shape that the inputs and outputs need.
    int Eval(const CFmtSigRec* const* records, CFmtSigRec* output, int restart);

    UINT GetNumChannels() const { return static_cast<UINT>(m_outputs.size()); }
    UINT GetSamplesRec(UINT i) const;
    UINT GetFrequency(UINT i) const;
    UINT GetType(UINT i) const;
    UINT GetUnit(UINT i) const;
    CString GetReference(UINT i) const;
    int GetFirstRecOfs() const { return m_nFirstRecOfs; }
    int GetLastRecOfs() const { return m_nLastRecOfs; }
    // Number of records that a restarting Eval needs.
    int GetSpanLength() const { return m_nLastRecOfs - m_nFirstRecOfs + 1; }

    // A new record (owned by the caller) with one channel per output.
    CFmtSigRec* CreateCompatibleFmtSigRec() const;
    void Destroy();

    // Name checks: 1 when valid.
    static int ValidateGlobalName(const char* name);
    static int ValidateElectrodeName(const char* name);

    // The composed compile diagnostics ("Impossible de compiler [name]:"
    // followed by the message), one per failed formula, since the last
    // Compile.  They are not shown to the user.
    const std::vector<CString>& GetDiagnostics() const { return m_diagnostics; }

    // Used by the parser.
    const std::map<CString, const CRuntimeClass*>& GetFunctionTable() const { return m_functions; }

private:
    int CompileFunction(CCFunction& function, bool globalsVisible);
    void Fail(const CString& diagnostic);

    int m_nFirstRecOfs = 0;
    int m_nLastRecOfs = -1;
    std::map<CString, const CRuntimeClass*> m_functions;
    std::vector<std::unique_ptr<CCGlobalVar>> m_globals;
    std::vector<std::unique_ptr<CCInputVar>> m_inputs;
    std::vector<std::unique_ptr<CCFunction>> m_outputs;
    std::vector<double> m_recordTimes;
    std::vector<CString> m_diagnostics;
    bool m_bCompiled = false;
};
#pragma GCC visibility pop
