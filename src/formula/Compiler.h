// The formula parser: a recursive-descent parser that builds the tree of one
// formula and fills the formula's compatibility signature.
//
//   formula    ::= expression <end>
//   expression ::= term (('+' | '-') term)*
//   term       ::= factor (('*' | '/') factor)*
//   factor     ::= ('+' | '-') factor | '(' expression ')' | constant
//                | variable | call
//   call       ::= function '(' argument (','? argument)* ')'
//
// Errors do not stop parsing: the first one composes the diagnostic, later
// ones are ignored, and parsing goes on to the end of the text.  Only the
// limits on nesting and tree height stop it early, so that a hostile text
// cannot exhaust the stack.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <map>
#include <memory>
#include <set>
#include <vector>

#include "formula/Lexer.h"
#include "formula/Nodes.h"
#include "platform/Types.h"

class CCReformater;
class CCFunction;
class CCInputVar;
class CCGlobalVar;

class CCCompiler {
public:
    // Deepest nesting of factors (signs, parentheses, calls) accepted.
    static constexpr int kMaxNesting = 256;
    // Highest tree accepted (levels of nodes).
    static constexpr int kMaxHeight = 512;

    // globals is null while a macro is compiled: a macro cannot use another.
    CCCompiler(CCFunction& function, const std::map<CString, const CRuntimeClass*>& functions,
               const std::vector<std::unique_ptr<CCInputVar>>& inputs,
               const std::vector<std::unique_ptr<CCGlobalVar>>* globals);

    // Parses the formula, stores the tree in the function and returns 1; 0
    // on any error, the diagnostic being GetDiagnostic().
    int Compile();
    const CString& GetDiagnostic() const { return m_strDiagnostic; }
    // Nodes built for the formula.
    long long GetNodeCount() const { return m_nNodes; }
    // The macros that the formula reads.
    const std::set<CCGlobalVar*>& GetGlobalsUsed() const { return m_globalsUsed; }

private:
    // Reads the next token and resolves names.
    void Advance();
    // Records an error; only the first one of the formula is kept.
    void Error(UINT id, const std::string& argument = {});
    // Stops parsing: every further token is the end.
    void Stop();
    // Counts a new node and checks the height of the tree it tops.
    std::unique_ptr<CCNode> Built(std::unique_ptr<CCNode> node);

    // formula ::= expression <end>
    std::unique_ptr<CCNode> ParseFormula();
    // expression ::= term (('+' | '-') term)*
    std::unique_ptr<CCNode> ParseExpression();
    // term ::= factor (('*' | '/') factor)*
    std::unique_ptr<CCNode> ParseTerm();
    // factor ::= ('+' | '-') factor | '(' expression ')' | constant | variable | call
    std::unique_ptr<CCNode> ParseFactor();
    // call ::= function '(' argument (','? argument)* ')'
    std::unique_ptr<CCNode> ParseCall();
    // A variable used in the formula: checks it against the signature.
    void CheckCompatibility(const CCVar& var);
    // Stands in for a missing or refused operand so that parsing goes on.
    std::unique_ptr<CCNode> Placeholder();

    CCFunction& m_function;
    const std::map<CString, const CRuntimeClass*>& m_functions;
    const std::vector<std::unique_ptr<CCInputVar>>& m_inputs;
    const std::vector<std::unique_ptr<CCGlobalVar>>* m_globals;

    CCLexer m_lexer;
    CCToken m_token;
    CCVar* m_pTokenVar = nullptr;                  // tokVariable
    const CRuntimeClass* m_pTokenClass = nullptr;  // tokFunction
    bool m_bError = false;
    bool m_bStopped = false;
    int m_nNesting = 0;
    long long m_nNodes = 0;
    CString m_strDiagnostic;
    std::set<CCGlobalVar*> m_globalsUsed;
};
#pragma GCC visibility pop
