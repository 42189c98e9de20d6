// Helpers of the formula engine's tests: trees printed as S-expressions,
// parsing one formula by itself, and streams of records.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "formula/Compiler.h"
#include "formula/RFMT.h"
#include "formula/UsrOps.h"
#include "platform/Strings.h"
#include "records/SigRec.h"

namespace formulatest {

// A tree as text: constants with %g, variables by name, (neg x), (pos x),
// (+ a b), (FIR x) ...
inline std::string Dump(const CCNode* node) {
    if (!node) return "null";
    if (auto* c = dynamic_cast<const CCConstant*>(node)) return StrFormat("%g", c->GetValue());
    if (auto* v = dynamic_cast<const CCVarRef*>(node)) return v->GetVar()->GetName();
    if (auto* p = dynamic_cast<const CCPrefixOp*>(node))
        return std::string(p->GetCode() ? "(neg " : "(pos ") + Dump(p->GetOperand()) + ")";
    if (auto* i = dynamic_cast<const CCInfixOp*>(node))
        return std::string("(") + "+-*/"[i->GetCode()] + " " + Dump(i->GetLeft()) + " " + Dump(i->GetRight()) + ")";
    if (auto* u = dynamic_cast<const CCUsrOpBase*>(node))
        return std::string("(") + u->GetFunctionName() + " " + Dump(u->GetArgument()) + ")";
    return "?";
}

inline std::map<CString, const CRuntimeClass*> BuiltIns() {
    return {{"FIR", RUNTIME_CLASS(CCFirOp)},
            {"IIR", RUNTIME_CLASS(CCIirOp)},
            {"ABS", RUNTIME_CLASS(CCAbsOp)},
            {"SUM", RUNTIME_CLASS(CCSumOp)},
            {"CMP", RUNTIME_CLASS(CCCmpOp)}};
}

// One formula parsed on its own over inputs A, B, C (and macro M = A+B).
struct Parsed {
    std::vector<std::unique_ptr<CCInputVar>> inputs;
    std::vector<std::unique_ptr<CCGlobalVar>> globals;
    std::unique_ptr<CCFunction> function;
    int ok = 0;
    std::string diagnostic;
    std::string tree;
};

inline std::unique_ptr<Parsed> Parse(const std::string& text) {
    auto p = std::make_unique<Parsed>();
    for (const char* name : {"A", "B", "C"})
        p->inputs.push_back(std::make_unique<CCInputVar>(static_cast<int>(p->inputs.size()),
                                                         static_cast<int>(p->inputs.size()), name, "REF", 4, 256, 1, 2));
    p->function = std::make_unique<CCFunction>("OUT", text.c_str());
    const auto table = BuiltIns();
    CCCompiler compiler(*p->function, table, p->inputs, &p->globals);
    p->ok = compiler.Compile();
    p->diagnostic = compiler.GetDiagnostic();
    p->tree = Dump(p->function->GetTree());
    return p;
}

// The composed diagnostic for formula (name) and a message.
inline std::string Diagnostic(const std::string& name, const std::string& message) {
    return "Impossible de compiler [" + name + "]:\n" + message;
}

// Sample i (absolute, any sign) of channel c.
using Signal = std::function<float(int channel, long i)>;

// Builds record number k of a recording whose channels all have spr samples.
inline std::unique_ptr<CFmtSigRec> MakeRecord(int channels, int spr, long k, const Signal& signal) {
    auto rec = std::make_unique<CFmtSigRec>(static_cast<unsigned>(channels), static_cast<unsigned>(spr));
    for (int c = 0; c < channels; ++c)
        for (int s = 0; s < spr; ++s)
            rec->SetAt(static_cast<unsigned>(c), static_cast<unsigned>(s), signal(c, k * spr + s));
    rec->SetTime(CSDateTime(1000.0 + static_cast<double>(k)));
    return rec;
}

// Evaluates records first .. first + count - 1 as current records: a
// restarting call for the first one (and for every record listed in
// restarts), then one newest record per call.  Returns, per output, the
// samples of all the current records back to back.
inline std::vector<std::vector<float>> RunStream(CCReformater& r, int channels, int spr, long first, int count,
                                                 const Signal& signal, std::vector<long> restarts = {}) {
    std::vector<std::vector<float>> out(r.GetNumChannels());
    std::unique_ptr<CFmtSigRec> output(r.CreateCompatibleFmtSigRec());
    for (long k = first; k < first + count; ++k) {
        const bool restart = k == first || std::find(restarts.begin(), restarts.end(), k) != restarts.end();
        std::vector<std::unique_ptr<CFmtSigRec>> records;
        if (restart) {
            for (int o = r.GetFirstRecOfs(); o <= r.GetLastRecOfs(); ++o)
                records.push_back(MakeRecord(channels, spr, k + o, signal));
        } else {
            records.push_back(MakeRecord(channels, spr, k + r.GetLastRecOfs(), signal));
        }
        std::vector<const CFmtSigRec*> pointers;
        for (auto& rec : records) pointers.push_back(rec.get());
        if (!r.Eval(pointers.data(), output.get(), restart ? 1 : 0)) return {};
        for (unsigned c = 0; c < r.GetNumChannels(); ++c)
            for (unsigned s = 0; s < output->GetNumSamples(c); ++s) out[c].push_back(output->GetAt(c, s));
    }
    return out;
}

}  // namespace formulatest
