#include "formula/Compiler.h"

#include "formula/RFMT.h"
#include "platform/Messages.h"
#include "platform/Strings.h"

CCCompiler::CCCompiler(CCFunction& function, const std::map<CString, const CRuntimeClass*>& functions,
                       const std::vector<std::unique_ptr<CCInputVar>>& inputs,
                       const std::vector<std::unique_ptr<CCGlobalVar>>* globals)
    : m_function(function),
      m_functions(functions),
      m_inputs(inputs),
      m_globals(globals),
      m_lexer(function.GetFormula()) {}

int CCCompiler::Compile() {
    Advance();
    std::unique_ptr<CCNode> tree = ParseFormula();
    if (m_bError) return 0;
    m_function.SetTree(std::move(tree));
    return 1;
}

void CCCompiler::Error(UINT id, const std::string& argument) {
    if (m_bError) return;
    m_bError = true;
    std::string message = LoadResString(id);
    if (message.find('%') != std::string::npos) {
        // The table's placeholder is %s or %c; the argument is always text
        // (a character may take several UTF-8 bytes).
        const size_t at = message.find('%');
        message.replace(at, 2, argument);
    }
    m_strDiagnostic =
        StrFormat(LoadResString(IDS_RFMT_CANNOT_COMPILE).c_str(), m_function.GetName().c_str()) + "\n" + message;
}

void CCCompiler::Stop() {
    m_bStopped = true;
    m_token = CCToken{};
}

void CCCompiler::Advance() {
    if (m_bStopped) {
        m_token = CCToken{};
        return;
    }
    m_token = m_lexer.Next();
    m_pTokenVar = nullptr;
    m_pTokenClass = nullptr;
    if (m_token.code == tokUnknownChar) {
        Error(IDS_RFMT_UNKNOWN_CHAR, m_token.text);
        m_token.code = tokEnd;
        return;
    }
    if (m_token.code != tokName) return;

    // Inputs first, then macros (when visible), then functions.
    for (const auto& input : m_inputs) {
        if (input->GetName() == m_token.text) {
            m_token.code = tokVariable;
            m_pTokenVar = input.get();
            return;
        }
    }
    if (m_globals) {
        for (const auto& global : *m_globals) {
            if (global->GetName() == m_token.text) {
                m_token.code = tokVariable;
                m_pTokenVar = global.get();
                return;
            }
        }
    }
    const auto it = m_functions.find(m_token.text);
    if (it != m_functions.end()) {
        m_token.code = tokFunction;
        m_pTokenClass = it->second;
        return;
    }
    Error(IDS_RFMT_UNKNOWN_ID, m_token.text);
    m_token.code = tokEnd;
}

std::unique_ptr<CCNode> CCCompiler::Built(std::unique_ptr<CCNode> node) {
    ++m_nNodes;
    if (node->GetHeight() > kMaxHeight) {
        Error(IDS_RFMT_INTERNAL);
        Stop();
    }
    return node;
}

std::unique_ptr<CCNode> CCCompiler::Placeholder() { return Built(std::make_unique<CCConstant>(0.0f)); }

// formula ::= expression <end>
std::unique_ptr<CCNode> CCCompiler::ParseFormula() {
    std::unique_ptr<CCNode> tree = ParseExpression();
    if (m_token.code != tokEnd) Error(IDS_RFMT_INCOMPLETE);
    return tree;
}

// expression ::= term (('+' | '-') term)*
std::unique_ptr<CCNode> CCCompiler::ParseExpression() {
    std::unique_ptr<CCNode> left = ParseTerm();
    while (m_token.code == tokPlus || m_token.code == tokMinus) {
        const int code = m_token.code == tokPlus ? 0 : 1;
        Advance();
        std::unique_ptr<CCNode> right = ParseTerm();
        left = Built(std::make_unique<CCInfixOp>(code, std::move(left), std::move(right)));
    }
    return left;
}

// term ::= factor (('*' | '/') factor)*
std::unique_ptr<CCNode> CCCompiler::ParseTerm() {
    std::unique_ptr<CCNode> left = ParseFactor();
    while (m_token.code == tokMul || m_token.code == tokDiv) {
        const int code = m_token.code == tokMul ? 2 : 3;
        Advance();
        std::unique_ptr<CCNode> right = ParseFactor();
        left = Built(std::make_unique<CCInfixOp>(code, std::move(left), std::move(right)));
    }
    return left;
}

// factor ::= ('+' | '-') factor | '(' expression ')' | constant | variable | call
std::unique_ptr<CCNode> CCCompiler::ParseFactor() {
    if (m_nNesting >= kMaxNesting) {
        Error(IDS_RFMT_INTERNAL);
        Stop();
        return Placeholder();
    }
    struct Nest {
        int& depth;
        explicit Nest(int& d) : depth(d) { ++depth; }
        ~Nest() { --depth; }
    } nest(m_nNesting);

    switch (m_token.code) {
    case tokPlus:
    case tokMinus: {
        // A sign binds tighter than '*' and '/': -A*B is (-A)*B.
        const int code = m_token.code == tokPlus ? 0 : 1;
        Advance();
        std::unique_ptr<CCNode> operand = ParseFactor();
        return Built(std::make_unique<CCPrefixOp>(code, std::move(operand)));
    }
    case tokOpen: {
        Advance();
        std::unique_ptr<CCNode> inner = ParseExpression();
        if (m_token.code == tokClose)
            Advance();
        else
            Error(IDS_RFMT_EXPECTED, ")");
        return inner;
    }
    case tokConstant: {
        const float value = m_token.value;
        Advance();
        return Built(std::make_unique<CCConstant>(value));
    }
    case tokVariable: {
        CCVar* var = m_pTokenVar;
        CheckCompatibility(*var);
        if (CCGlobalVar* global = dynamic_cast<CCGlobalVar*>(var)) m_globalsUsed.insert(global);
        Advance();
        return Built(std::make_unique<CCVarRef>(var));
    }
    case tokFunction:
        return ParseCall();
    default:
        Error(IDS_RFMT_MISSING_OPERAND);
        return Placeholder();
    }
}

// call ::= function '(' argument (','? argument)* ')'
// Argument i is an expression or a constant token, as the function says.
std::unique_ptr<CCNode> CCCompiler::ParseCall() {
    const std::string name = m_token.text;
    std::unique_ptr<CObject> object(m_pTokenClass->CreateObject());
    Advance();
    CCUsrOp* op = dynamic_cast<CCUsrOp*>(object.get());
    if (!op) {
        // The table only takes CCUsrOp classes; anything else is a fault of
        // the caller that entered it.
        Error(IDS_RFMT_INTERNAL);
        Stop();
        return Placeholder();
    }
    std::unique_ptr<CCUsrOp> call(op);
    object.release();

    // The message names the closing parenthesis even when the opening one
    // is missing.
    if (m_token.code == tokOpen)
        Advance();
    else
        Error(IDS_RFMT_EXPECTED, ")");

    const int numArgs = call->GetNumArgs();
    for (int i = 0; i < numArgs; ++i) {
        const int kind = call->GetArgType(i);
        if (kind == CCUsrOp::argExpression) {
            std::unique_ptr<CCNode> argument = ParseExpression();
            if (!call->SetArgValue(i, 0.0f, argument.release())) Error(IDS_RFMT_BAD_ARGUMENT, name);
        } else if (kind == CCUsrOp::argConstant) {
            if (m_token.code == tokConstant) {
                if (!call->SetArgValue(i, m_token.value)) Error(IDS_RFMT_BAD_ARGUMENT, name);
                Advance();
            } else {
                Error(IDS_RFMT_BAD_ARGUMENT, name);
            }
        } else {
            Error(IDS_RFMT_INTERNAL);
        }
        if (m_token.code == tokComma) Advance();
    }
    if (m_token.code == tokClose)
        Advance();
    else
        Error(IDS_RFMT_EXPECTED, ")");
    return Built(std::move(call));
}

void CCCompiler::CheckCompatibility(const CCVar& var) {
    CCFunction& f = m_function;
    // Each check runs even when an earlier one failed; Error keeps the first.
    if (!EqualsNoCase(f.m_strReference, var.GetReference())) {
        if (f.m_strReference.empty())
            f.m_strReference = ToUpper(var.GetReference());
        else
            Error(IDS_RFMT_SAME_REFERENCE);
    }
    if (f.m_nSamplesRec != var.GetSamplesRec()) {
        if (f.m_nSamplesRec == 0)
            f.m_nSamplesRec = var.GetSamplesRec();
        else
            Error(IDS_RFMT_SAME_SAMPLES);
    }
    if (f.m_nFrequency != var.GetFrequency()) {
        if (f.m_nFrequency == 0)
            f.m_nFrequency = var.GetFrequency();
        else
            Error(IDS_RFMT_SAME_FREQUENCY);
    }
    // The type check is lenient on purpose: the first variable's type is
    // taken and a formula that mixes types still compiles.
    if (f.m_nType == 65535) f.m_nType = var.GetType();
    if (f.m_nUnit != var.GetUnit()) {
        if (f.m_nUnit == 65535)
            f.m_nUnit = var.GetUnit();
        else
            Error(IDS_RFMT_SAME_UNIT);
    }
}
