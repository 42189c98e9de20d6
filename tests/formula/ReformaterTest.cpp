// The formula compiler: lexer, grammar and precedence, diagnostics, name
// lookup and checks, macros, record spans and record-by-record evaluation.
#include <gtest/gtest.h>

#include <cmath>

#include "formula/FormulaTestUtil.h"
#include "support/TestSupport.h"

using namespace formulatest;

namespace {

// ---------------------------------------------------------------- lexer

std::vector<CCToken> Tokens(const std::string& text) {
    CCLexer lexer(text);
    std::vector<CCToken> out;
    for (int guard = 0; guard < 100; ++guard) {
        out.push_back(lexer.Next());
        if (out.back().code == tokEnd) break;
    }
    return out;
}

TEST(LexerTest, CutsNamesConstantsAndSymbols) {
    const auto t = Tokens("fp1 + 2.5E-1*( x_~$9 ),-/");
    const std::vector<int> codes = {tokName, tokPlus, tokConstant, tokMul, tokOpen, tokName,
                                    tokClose, tokComma, tokMinus, tokDiv, tokEnd};
    ASSERT_EQ(t.size(), codes.size());
    for (size_t i = 0; i < codes.size(); ++i) EXPECT_EQ(t[i].code, codes[i]) << i;
    EXPECT_EQ(t[0].text, "FP1");  // upper-cased
    EXPECT_EQ(t[2].value, 0.25f);
    EXPECT_EQ(t[5].text, "X_~$9");
    // '$' starts a name; '-' ends one.
    const auto d = Tokens("$a-b");
    EXPECT_EQ(d[0].text, "$A");
    EXPECT_EQ(d[1].code, tokMinus);
    EXPECT_EQ(d[2].text, "B");
}

TEST(LexerTest, ConstantForms) {
    struct {
        const char* text;
        float value;
        const char* lexeme;
    } cases[] = {{"1e3", 1000.0f, "1e3"},   {"2.5E-1", 0.25f, "2.5E-1"}, {"1.e3", 1000.0f, "1.e3"},
                 {"7.", 7.0f, "7."},        {"1E+2", 100.0f, "1E+2"},    {"3E", 3.0f, "3E"},
                 {"1e999", INFINITY, "1e999"}, {"1e-999", 0.0f, "1e-999"}, {"0012", 12.0f, "0012"}};
    for (const auto& c : cases) {
        const auto t = Tokens(c.text);
        ASSERT_EQ(t.size(), 2u) << c.text;
        EXPECT_EQ(t[0].code, tokConstant) << c.text;
        EXPECT_EQ(t[0].value, c.value) << c.text;
        EXPECT_EQ(t[0].text, c.lexeme);
    }
    // A constant carries no sign and cannot start with '.'; the fraction
    // stops at a second '.'.
    const auto m = Tokens("-4");
    EXPECT_EQ(m[0].code, tokMinus);
    EXPECT_EQ(m[1].value, 4.0f);
    EXPECT_EQ(Tokens(".5")[0].code, tokUnknownChar);
    const auto two = Tokens("1.2.3");
    EXPECT_EQ(two[0].value, 1.2f);
    EXPECT_EQ(two[1].code, tokUnknownChar);
}

TEST(LexerTest, OnlySpaceIsBlankAndOtherCharactersAreUnknown) {
    EXPECT_EQ(Tokens("   ")[0].code, tokEnd);
    for (const char* text : {"\t", "#", "[", "\n", "%", ";"}) {
        const auto t = Tokens(text);
        EXPECT_EQ(t[0].code, tokUnknownChar) << text;
        EXPECT_EQ(t[0].text, std::string(text));
    }
    // A non-ASCII letter is one unknown character, reported whole.
    const auto e = Tokens("é+A");
    EXPECT_EQ(e[0].code, tokUnknownChar);
    EXPECT_EQ(e[0].text, "é");
    EXPECT_EQ(e[1].code, tokPlus);
}

// ---------------------------------------------------------------- grammar

TEST(ParserTest, PrecedenceAndAssociativity) {
    const std::pair<const char*, const char*> cases[] = {
        {"A+B*C", "(+ A (* B C))"},
        {"A-B-C", "(- (- A B) C)"},
        {"A/B/C", "(/ (/ A B) C)"},
        {"A*B+C/A", "(+ (* A B) (/ C A))"},
        {"-A*B", "(* (neg A) B)"},
        {"A*-B", "(* A (neg B))"},
        {"--A", "(neg (neg A))"},
        {"+A-+B", "(- (pos A) (pos B))"},
        {"(A+B)*C", "(* (+ A B) C)"},
        {"2*(a - 1.5)", "(* 2 (- A 1.5))"},
        {"((((A))))", "A"},
        {"ABS(A-B)*2", "(* (ABS (- A B)) 2)"},
        {"FIR(A,1,3,0.5,40)", "(FIR A)"},
        {"FIR(A 1 3 0.5 40)", "(FIR A)"},
        {"SUM(CMP(A,0,1,1,0) 0,3)", "(SUM (CMP A))"},
        {"iir(b+c,2,4,0.5,0)", "(IIR (+ B C))"},
    };
    for (const auto& [text, tree] : cases) {
        const auto p = Parse(text);
        EXPECT_EQ(p->ok, 1) << text << ": " << p->diagnostic;
        EXPECT_EQ(p->tree, tree) << text;
    }
}

TEST(ParserTest, FunctionArgumentsReachTheFunction) {
    // FIR(A 1 3 0.5 40) without commas designs the same filter as with them.
    auto with = Parse("FIR(A,2,3,0.5,40)");
    auto without = Parse("FIR(A 2 3 0.5 40)");
    auto* f1 = dynamic_cast<CCFirOp*>(with->function->GetTree());
    auto* f2 = dynamic_cast<CCFirOp*>(without->function->GetTree());
    ASSERT_TRUE(f1 && f2);
    f1->Init(256, 4, 0, 3);
    f2->Init(256, 4, 0, 3);
    EXPECT_EQ(f1->GetCoefficients(), f2->GetCoefficients());
    EXPECT_EQ(f1->GetCoefficients(), CCFirOp::Design(2, 3, 0.5f, 40.0f, 256));
}

TEST(ParserTest, SignatureTakesTheFirstVariableAndTheLenientType) {
    std::vector<std::unique_ptr<CCInputVar>> inputs;
    inputs.push_back(std::make_unique<CCInputVar>(0, 0, "EMG", "ref", 4, 256, 5, 2));
    inputs.push_back(std::make_unique<CCInputVar>(1, 1, "EEG", "REF", 4, 256, 1, 2));
    CCFunction f("OUT", "EMG+EEG");
    const auto table = BuiltIns();
    std::vector<std::unique_ptr<CCGlobalVar>> globals;
    CCCompiler compiler(f, table, inputs, &globals);
    ASSERT_EQ(compiler.Compile(), 1);
    EXPECT_EQ(f.m_nType, 5u);  // the first variable's type; mixed types compile
    EXPECT_EQ(f.m_nUnit, 2u);
    EXPECT_EQ(f.m_nSamplesRec, 4u);
    EXPECT_EQ(f.m_nFrequency, 256u);
    EXPECT_EQ(f.m_strReference, "REF");  // stored upper-case, compared ignoring case
}

// ---------------------------------------------------------------- reformater

// Inputs of spr 4 at 256 Hz, type 1, unit 2, reference "ref", plus channels
// that differ in one respect each.
class ReformaterTest : public ::testing::Test {
protected:
    void SetUp() override { Declare(r); }
    static void Declare(CCReformater& rf) {
        rf.AddInput("FP1", "ref", 4, 256, 1, 2);
        rf.AddInput("F3", "REF", 4, 256, 1, 2);
        rf.AddInput("C3", "Ref", 4, 256, 1, 2);
        rf.AddInput("EMG", "ref", 4, 256, 5, 2);    // another type
        rf.AddInput("ECG", "ref", 4, 256, 1, 3);    // another unit
        rf.AddInput("G", "other", 4, 256, 1, 2);    // another reference
        rf.AddInput("X2", "ref", 2, 128, 1, 2);     // other samples and frequency
        rf.AddInput("F512", "ref", 4, 512, 1, 2);   // another frequency only
    }
    // Compiles one output OUT = text; returns the diagnostic ("" when it compiles).
    std::string CompileOne(const std::string& text) {
        CCReformater rf;
        Declare(rf);
        rf.AddOutput("out", text.c_str());
        if (rf.Compile()) return "";
        EXPECT_EQ(rf.GetNumChannels(), 0u) << "a failed compile destroys everything";
        EXPECT_EQ(rf.GetDiagnostics().size(), 1u);
        return rf.GetDiagnostics().empty() ? "?" : rf.GetDiagnostics().front();
    }
    CCReformater r;
};

TEST_F(ReformaterTest, DiagnosticsOfBadFormulas) {
    const std::pair<const char*, const char*> cases[] = {
        {"FP1+XYZ", "identificateur inconnu 'XYZ'"},
        {"FP1+#", "caractère inconnu '#'"},
        {"FP1+\tF3", "caractère inconnu '\t'"},
        {"é", "caractère inconnu 'é'"},
        {".5", "caractère inconnu '.'"},
        {"(FP1-F3", "')' prévu"},
        {"ABS(FP1", "')' prévu"},
        {"ABS FP1)", "')' prévu"},  // a missing '(' names the closing one too
        {"FP1 F3", "expression incomplète"},
        {"FP1)", "expression incomplète"},
        {"", "opérande manquant"},
        {"FP1*", "opérande manquant"},
        {"FP1+()", "opérande manquant"},
        {"SUM(FP1,-2,2)", "argument invalide pour la fonction 'SUM'"},
        {"SUM(FP1,3,1)", "argument invalide pour la fonction 'SUM'"},
        {"SUM(FP1,1)", "argument invalide pour la fonction 'SUM'"},
        {"CMP(FP1,2,1,0,0)", "argument invalide pour la fonction 'CMP'"},
        {"FIR(FP1,1,2,0,40)", "argument invalide pour la fonction 'FIR'"},
        {"FIR(FP1,1,64,0,40)", "argument invalide pour la fonction 'FIR'"},
        {"FIR(FP1,5,3,0,40)", "argument invalide pour la fonction 'FIR'"},
        {"FIR(FP1,F3,3,0,40)", "argument invalide pour la fonction 'FIR'"},
        {"IIR(FP1,1,11,0,40)", "argument invalide pour la fonction 'IIR'"},
        {"IIR(FP1,0,2,0,40)", "argument invalide pour la fonction 'IIR'"},
        {"FP1+ECG", "toutes les entrées doivent avoir les mêmes unités"},
        {"FP1-G", "toutes les entrées doivent utiliser la même référence"},
        {"FP1+X2", "toutes les entrées doivent avoir le même nombre d'échantillons par enregistrement"},
        {"FP1+F512", "toutes les entrées doivent utiliser la même fréquence d'échantillonnage"},
        // Only the first error of a formula is kept.
        {"FP1+ECG+XYZ", "toutes les entrées doivent avoir les mêmes unités"},
        {"(FP1+#", "caractère inconnu '#'"},
    };
    for (const auto& [text, message] : cases) EXPECT_EQ(CompileOne(text), Diagnostic("OUT", message)) << text;
}

TEST_F(ReformaterTest, AcceptedFormulas) {
    for (const char* text : {"FP1+EMG", "fp1-f3", "FIR(FP1,1,63,0.5,40)", "IIR(FP1,4,10,45,55)", "CMP(FP1,1,1,5,0)",
                             "SUM(FP1,0,0)", "FIR(FP1,4.9,3.7,0,40)", "2*3", "ABS(-FP1)*(F3-C3)/2"})
        EXPECT_EQ(CompileOne(text), "") << text;
}

TEST_F(ReformaterTest, OutputSignatures) {
    r.AddOutput("A", "EMG+FP1");
    r.AddOutput("B", "FP1+EMG");
    r.AddOutput("C", "X2*2");
    r.AddOutput("D", "2*3");
    ASSERT_EQ(r.Compile(), 1);
    ASSERT_EQ(r.GetNumChannels(), 4u);
    EXPECT_EQ(r.GetType(0), 5u);
    EXPECT_EQ(r.GetType(1), 1u);
    EXPECT_EQ(r.GetSamplesRec(2), 2u);
    EXPECT_EQ(r.GetFrequency(2), 128u);
    EXPECT_EQ(r.GetUnit(0), 2u);
    EXPECT_EQ(r.GetReference(0), "REF");
    // A formula that reads no input keeps the unknown signature.
    EXPECT_EQ(r.GetSamplesRec(3), 0u);
    EXPECT_EQ(r.GetType(3), 65535u);
    std::unique_ptr<CFmtSigRec> rec(r.CreateCompatibleFmtSigRec());
    ASSERT_EQ(rec->GetNumChannels(), 4u);
    EXPECT_EQ(rec->GetNumSamples(0), 4u);
    EXPECT_EQ(rec->GetNumSamples(2), 2u);
    EXPECT_EQ(rec->GetNumSamples(3), 0u);

    testsupport::AssertRecorder asserts;
    EXPECT_THROW(r.GetType(4), CInvalidArgException);
    EXPECT_FALSE(asserts.hits.empty());
}

TEST_F(ReformaterTest, NamesResolveInputsThenMacrosThenFunctions) {
    // A macro named like an input is hidden by the input; one named like a
    // function hides the function.
    r.AddGlobal("FP1", "F3*2");
    r.AddGlobal("ABS", "C3");
    r.AddOutput("O1", "fp1");
    r.AddOutput("O2", "ABS");
    ASSERT_EQ(r.Compile(), 1);
    const auto out = RunStream(r, 8, 4, 0, 1, [](int c, long i) { return static_cast<float>(10 * c + i); });
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0], (std::vector<float>{0, 1, 2, 3}));      // input FP1
    EXPECT_EQ(out[1], (std::vector<float>{20, 21, 22, 23}));  // macro ABS = C3

    EXPECT_EQ(CompileOne("ABS"), Diagnostic("OUT", "')' prévu"));  // the function, without '('
    CCReformater hidden;
    Declare(hidden);
    hidden.AddGlobal("ABS", "C3");
    hidden.AddOutput("O", "ABS(FP1)");
    EXPECT_EQ(hidden.Compile(), 0);
    EXPECT_EQ(hidden.GetDiagnostics().at(0), Diagnostic("O", "expression incomplète"));
}

TEST_F(ReformaterTest, MacroRules) {
    // A macro cannot use another macro.
    r.AddGlobal("AVG", "(FP1+F3)/2");
    r.AddGlobal("AVG2", "AVG*2");
    r.AddOutput("O", "FP1-AVG");
    EXPECT_EQ(r.Compile(), 0);
    EXPECT_EQ(r.GetDiagnostics().at(0), Diagnostic("AVG2", "identificateur inconnu 'AVG'"));

    CCReformater bad;
    Declare(bad);
    bad.AddGlobal("1X", "FP1");
    bad.AddOutput("O", "FP1");
    EXPECT_EQ(bad.Compile(), 0);
    EXPECT_EQ(bad.GetDiagnostics().at(0), Diagnostic("1X", "Nom de macro invalide '1X'"));

    // A name with '-' validates but cannot be referred to: M-1 reads as M
    // minus 1.
    CCReformater dash;
    Declare(dash);
    dash.AddGlobal("M-1", "FP1");
    dash.AddOutput("O", "M-1");
    EXPECT_EQ(dash.Compile(), 0);
    EXPECT_EQ(dash.GetDiagnostics().at(0), Diagnostic("O", "identificateur inconnu 'M'"));

    // A macro that reads an input of another unit makes its users fail.
    CCReformater unit;
    Declare(unit);
    unit.AddGlobal("E", "ECG");
    unit.AddOutput("O", "FP1-E");
    EXPECT_EQ(unit.Compile(), 0);
    EXPECT_EQ(unit.GetDiagnostics().at(0), Diagnostic("O", "toutes les entrées doivent avoir les mêmes unités"));
}

TEST_F(ReformaterTest, UnusedMacroIsNeitherInitialisedNorEvaluated) {
    // Used, this macro would need a record on either side.
    r.AddGlobal("WIDE", "FIR(FP1,1,3,0,40)");
    r.AddOutput("O", "FP1");
    ASSERT_EQ(r.Compile(), 1);
    EXPECT_EQ(r.GetFirstRecOfs(), 0);
    EXPECT_EQ(r.GetLastRecOfs(), 0);
}

TEST(ReformaterNamesTest, ValidateGlobalAndElectrodeNames) {
    for (const char* ok : {"A", "avg", "A-1", "X~_$9", "Z-"}) EXPECT_EQ(CCReformater::ValidateGlobalName(ok), 1) << ok;
    for (const char* bad : {"", "$A", "1A", "_A", "A B", "A+B", "Aé", "é", "A.B"})
        EXPECT_EQ(CCReformater::ValidateGlobalName(bad), 0) << bad;
    // The electrode check applies the same rule: no length limit.
    EXPECT_EQ(CCReformater::ValidateElectrodeName("VERYLONGELECTRODE12"), 1);
    EXPECT_EQ(CCReformater::ValidateElectrodeName("A-B"), 1);
    EXPECT_EQ(CCReformater::ValidateElectrodeName("$A"), 0);
    EXPECT_EQ(CCReformater::ValidateElectrodeName(""), 0);
    EXPECT_EQ(CCReformater::ValidateElectrodeName(nullptr), 0);
}

// ---------------------------------------------------------------- record span

TEST(ReformaterSpanTest, SpansFollowWhatTheFormulasRead) {
    struct {
        int spr;
        const char* formula;
        int first, last;
    } cases[] = {
        {4, "X", 0, 0},
        {4, "FIR(X,1,3,0,40)", -1, 1},
        {4, "FIR(X,1,1,0,40)", -1, 1},
        {4, "SUM(X,4,4)", -1, 1},
        {4, "SUM(X,5,5)", -2, 2},
        {4, "SUM(X,0,1)", 0, 1},
        {4, "SUM(X,0,5)", 0, 2},
        {4, "FIR(SUM(X,4,4),1,63,0,40)", -17, 17},
        {64, "FIR(X,1,63,0,40)", -1, 1},
        {64, "FIR(X,1,63,0,40)-X", -1, 1},
        {256, "IIR(X,1,10,0,40)", -5, 0},   // 1280 samples before the record
        {256, "IIR(X,1,1,0,40)", -1, 0},
        {4, "IIR(X,2,4,0.5,0)", -128, 0},
        {1, "FIR(X,2,1,0.5,0)", -1, 1},
    };
    for (const auto& c : cases) {
        CCReformater r;
        testsupport::AssertRecorder asserts;  // FIR asserts when a record has one sample
        r.AddInput("X", "", static_cast<UINT>(c.spr), 256, 1, 1);
        r.AddInput("UNUSED", "", static_cast<UINT>(c.spr), 256, 1, 1);
        r.AddOutput("O", c.formula);
        ASSERT_EQ(r.Compile(), 1) << c.formula;
        EXPECT_EQ(r.GetFirstRecOfs(), c.first) << c.formula << " spr " << c.spr;
        EXPECT_EQ(r.GetLastRecOfs(), c.last) << c.formula << " spr " << c.spr;
    }
}

TEST(ReformaterSpanTest, MacroRangesCombineTheirUsers) {
    CCReformater r;
    r.AddInput("X", "", 4, 256, 1, 1);
    r.AddGlobal("M", "FIR(X,1,3,0,40)");
    r.AddOutput("O1", "SUM(M,0,4)");  // M over [0, 7], X over [-3, 10]
    r.AddOutput("O2", "SUM(M,2,2)");  // M over [-2, 5], X over [-5, 8]
    ASSERT_EQ(r.Compile(), 1);
    EXPECT_EQ(r.GetFirstRecOfs(), -2);
    EXPECT_EQ(r.GetLastRecOfs(), 2);
}

TEST(ReformaterSpanTest, ConstantFormulaWithoutInputs) {
    CCReformater r;
    r.AddOutput("O", "1+2*3");
    ASSERT_EQ(r.Compile(), 1);
    EXPECT_EQ(r.GetFirstRecOfs(), 0);
    EXPECT_EQ(r.GetLastRecOfs(), -1);
    std::unique_ptr<CFmtSigRec> out(r.CreateCompatibleFmtSigRec());
    EXPECT_EQ(r.Eval(nullptr, out.get(), 1), 1);
}

// ---------------------------------------------------------------- evaluation

TEST_F(ReformaterTest, ArithmeticRecordByRecord) {
    r.AddGlobal("AVG", "(FP1+F3+C3)/3");
    r.AddOutput("BIP", "FP1-F3");
    r.AddOutput("NEG", "-FP1*F3/2");
    r.AddOutput("REF", "C3-AVG");
    r.AddOutput("DIV", "FP1/0");
    r.AddOutput("K", "2.5+FP1*0");
    ASSERT_EQ(r.Compile(), 1);
    const Signal signal = [](int c, long i) { return 0.5f * static_cast<float>((c + 1) * i) + static_cast<float>(c); };
    const auto out = RunStream(r, 8, 4, 0, 5, signal);
    ASSERT_EQ(out.size(), 5u);
    for (long i = 0; i < 20; ++i) {
        const float a = signal(0, i), b = signal(1, i), c = signal(2, i);
        const size_t k = static_cast<size_t>(i);
        EXPECT_EQ(out[0][k], a - b);
        EXPECT_EQ(out[1][k], (-a) * b / 2.0f);
        EXPECT_EQ(out[2][k], c - (a + b + c) / 3.0f);
        if (a == 0.0f)
            EXPECT_TRUE(std::isnan(out[3][k]));
        else
            EXPECT_TRUE(std::isinf(out[3][k]));
        EXPECT_EQ(out[4][k], 2.5f);
    }
}

TEST_F(ReformaterTest, OutputTimeIsTheCurrentRecordsAndInputsReadTheirChannel) {
    CCReformater rf;
    rf.AddInput("A", "", 4, 256, 1, 1, 2);  // reads channel 2
    rf.AddOutput("O", "FIR(A,2,1,0,0)");      // pass-through that needs a record either side
    ASSERT_EQ(rf.Compile(), 1);
    ASSERT_EQ(rf.GetFirstRecOfs(), -1);
    ASSERT_EQ(rf.GetLastRecOfs(), 1);
    const Signal signal = [](int c, long i) { return static_cast<float>(100 * c + i); };
    std::vector<std::unique_ptr<CFmtSigRec>> recs;
    for (long k = 4; k <= 6; ++k) recs.push_back(MakeRecord(3, 4, k, signal));
    const CFmtSigRec* span[] = {recs[0].get(), recs[1].get(), recs[2].get()};
    std::unique_ptr<CFmtSigRec> out(rf.CreateCompatibleFmtSigRec());
    ASSERT_EQ(rf.Eval(span, out.get(), 1), 1);
    EXPECT_EQ(out->GetTime().GetValue(), 1005.0);  // record 5, at offset 0
    for (unsigned s = 0; s < 4; ++s) EXPECT_EQ(out->GetAt(0, s), 200.0f + 20 + s);
    // The next record without restart: only the newest (record 7) is passed.
    auto newest = MakeRecord(3, 4, 7, signal);
    const CFmtSigRec* one[] = {newest.get()};
    ASSERT_EQ(rf.Eval(one, out.get(), 0), 1);
    EXPECT_EQ(out->GetTime().GetValue(), 1006.0);
    for (unsigned s = 0; s < 4; ++s) EXPECT_EQ(out->GetAt(0, s), 200.0f + 24 + s);
}

TEST_F(ReformaterTest, StreamingEqualsRestartingForStatelessFunctions) {
    r.AddGlobal("M", "SUM(F3,2,5)");
    // Every kind of node over a range wider than a record, so that each
    // one slides its buffer between records.
    r.AddOutput("O1", "FIR(FP1-C3*2/F3,1,3,0,40)+M");
    r.AddOutput("O2", "(CMP(ABS(FP1-C3),0,10,1,0)-0.5)*SUM(M,1,6)");
    r.AddOutput("O3", "SUM(-ABS(+FP1)+CMP(F3,0,5,1,0),3,9)");
    ASSERT_EQ(r.Compile(), 1);
    const Signal signal = [](int c, long i) { return std::sin(0.3f * static_cast<float>(i) + c) * 20.0f; };
    std::vector<long> all;
    for (long k = 0; k < 20; ++k) all.push_back(k);
    const auto streamed = RunStream(r, 8, 4, -3, 20, signal);
    const auto restarted = RunStream(r, 8, 4, -3, 20, signal, all);
    ASSERT_EQ(streamed.size(), 3u);
    EXPECT_EQ(streamed, restarted);
}

TEST_F(ReformaterTest, RecordsOfTheWrongShapeAreRefused) {
    r.AddOutput("O", "FP1-F3");
    ASSERT_EQ(r.Compile(), 1);
    const Signal signal = [](int, long i) { return static_cast<float>(i); };
    testsupport::AssertRecorder asserts;
    std::unique_ptr<CFmtSigRec> out(r.CreateCompatibleFmtSigRec());
    // An input record with too few channels, then one with other sample counts.
    auto small = MakeRecord(1, 4, 0, signal);
    const CFmtSigRec* s1[] = {small.get()};
    EXPECT_EQ(r.Eval(s1, out.get(), 1), 0);
    auto other = MakeRecord(8, 5, 0, signal);
    const CFmtSigRec* s2[] = {other.get()};
    EXPECT_EQ(r.Eval(s2, out.get(), 1), 0);
    // An output record of another shape.
    auto good = MakeRecord(8, 4, 0, signal);
    const CFmtSigRec* s3[] = {good.get()};
    CFmtSigRec wrong(2, 4);
    EXPECT_EQ(r.Eval(s3, &wrong, 1), 0);
    CFmtSigRec shortRec(1, 3);
    EXPECT_EQ(r.Eval(s3, &shortRec, 1), 0);
    EXPECT_GE(asserts.hits.size(), 4u);
    EXPECT_EQ(r.Eval(s3, out.get(), 1), 1);
}

TEST_F(ReformaterTest, CompileCanRunAgain) {
    r.AddOutput("O", "SUM(FP1,0,4)");
    ASSERT_EQ(r.Compile(), 1);
    ASSERT_EQ(r.Compile(), 1);
    EXPECT_EQ(r.GetFirstRecOfs(), 0);
    EXPECT_EQ(r.GetLastRecOfs(), 1);
    const auto out = RunStream(r, 8, 4, 0, 2, [](int, long i) { return static_cast<float>(i); });
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0][0], 0.0f + 1 + 2 + 3 + 4);
    r.Destroy();
    EXPECT_EQ(r.GetNumChannels(), 0u);
}

}  // namespace
