// Formula texts built to hurt: deep nesting, long chains, huge windows and
// random token soup either compile or fail with a diagnostic; whatever
// compiles evaluates.
#include <gtest/gtest.h>

#include <random>

#include "formula/FormulaTestUtil.h"
#include "support/TestSupport.h"

using namespace formulatest;

namespace {

// Compiles OUT = text over inputs A and B (spr 4); returns 1 or 0 and
// checks that a failure leaves one diagnostic.
int Try(const std::string& text, std::string* diagnostic = nullptr) {
    CCReformater r;
    r.AddInput("A", "", 4, 256, 1, 1);
    r.AddInput("B", "", 4, 256, 1, 1);
    r.AddOutput("OUT", text.c_str());
    testsupport::AssertRecorder asserts;
    if (!r.Compile()) {
        EXPECT_EQ(r.GetDiagnostics().size(), 1u);
        if (diagnostic && !r.GetDiagnostics().empty()) *diagnostic = r.GetDiagnostics()[0];
        return 0;
    }
    // Whatever compiles evaluates, restarting and then streaming.
    const auto out = RunStream(r, 2, 4, 0, 3, [](int c, long i) { return static_cast<float>(c + i % 3); });
    EXPECT_EQ(out.size(), 1u);
    return 1;
}

std::string Repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

const std::string kLimit = Diagnostic("OUT", "Erreur interne de compilation");

TEST(HostileFormulaTest, NestingIsBounded) {
    EXPECT_EQ(Try(Repeat("(", 200) + "A" + Repeat(")", 200)), 1);
    EXPECT_EQ(Try(Repeat("-", 200) + "A"), 1);
    EXPECT_EQ(Try(Repeat("ABS(", 100) + "A" + Repeat(")", 100)), 1);
    std::string d;
    EXPECT_EQ(Try(Repeat("(", 100000) + "A" + Repeat(")", 100000), &d), 0);
    EXPECT_EQ(d, kLimit);
    EXPECT_EQ(Try(Repeat("-", 100000) + "A", &d), 0);
    EXPECT_EQ(d, kLimit);
    EXPECT_EQ(Try(Repeat("ABS(", 50000), &d), 0);
    EXPECT_EQ(d, kLimit);
    EXPECT_EQ(Try(Repeat("FIR(", 5000) + "A", &d), 0);
    EXPECT_EQ(d, kLimit);
}

TEST(HostileFormulaTest, LongChainsAreBoundedByTreeHeight) {
    // A 128-channel average is fine; a chain of 100000 terms is refused
    // rather than evaluated by a recursion that deep.
    EXPECT_EQ(Try("(" + Repeat("A+", 127) + "B)/128"), 1);
    std::string d;
    EXPECT_EQ(Try(Repeat("A+", 100000) + "B", &d), 0);
    EXPECT_EQ(d, kLimit);
    EXPECT_EQ(Try(Repeat("A*", 100000) + "B", &d), 0);
    EXPECT_EQ(d, kLimit);
    // Long texts without depth are fine: blanks and a long name.
    EXPECT_EQ(Try(std::string(1000000, ' ') + "A"), 1);
    EXPECT_EQ(Try("A+" + std::string(100000, 'Z'), &d), 0);
    EXPECT_EQ(d.substr(0, 54), Diagnostic("OUT", "identificateur inconnu 'ZZZZ").substr(0, 54));
}

TEST(HostileFormulaTest, HugeWindowsAreRefusedBeforeAnythingIsAllocated) {
    std::string d;
    // One wide window is fine; nested ones that would need gigabytes fail.
    EXPECT_EQ(Try("SUM(A,0,4000)"), 1);
    EXPECT_EQ(Try(Repeat("SUM(", 40) + "A" + Repeat(",65535,65535)", 40), &d), 0);
    EXPECT_EQ(d, kLimit);
    EXPECT_EQ(Try(Repeat("IIR(", 300) + "A" + Repeat(",1,10,0,40)", 300), &d), 0);
    EXPECT_EQ(d, kLimit);
    EXPECT_EQ(Try("FIR(A,1,1e30,0,40)", &d), 0);
    EXPECT_EQ(d, Diagnostic("OUT", "argument invalide pour la fonction 'FIR'"));
    EXPECT_EQ(Try("IIR(A,1,4,1e38,1e38)"), 1);
    EXPECT_EQ(Try("FIR(A,3,3,1e38,1e-38)"), 1);
}

TEST(HostileFormulaTest, RandomTokenSoupNeverCrashes) {
    const std::vector<std::string> pieces = {"A", "B", "b", "1", "0", "2.5", "1e3", "+", "-", "*", "/", "(", ")",
                                             ",", " ", "ABS(", "CMP(", "FIR(", "IIR(", "SUM(", "X", ".", "#",
                                             "3", "63", "10", "E", "$", "é", "\t"};
    std::mt19937 rng(12345);
    int compiled = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string text;
        const int len = static_cast<int>(rng() % 24);
        for (int j = 0; j < len; ++j) text += pieces[rng() % pieces.size()];
        compiled += Try(text);
    }
    // Some of them are valid formulas.
    EXPECT_GT(compiled, 40);
}

}  // namespace

namespace {

TEST(HostileFormulaTest, OddDeclarationsAndCallsAreRefusedSafely) {
    testsupport::AssertRecorder asserts;
    // Eval before Compile, and after declarations added since.
    CCReformater r;
    r.AddInput("A", "", 4, 256, 1, 1);
    r.AddOutput("O", "A*2");
    CFmtSigRec out(1, 4);
    auto rec = MakeRecord(1, 4, 0, [](int, long i) { return static_cast<float>(i); });
    const CFmtSigRec* one[] = {rec.get()};
    EXPECT_EQ(r.Eval(one, &out, 1), 0);
    ASSERT_EQ(r.Compile(), 1);
    EXPECT_EQ(r.Eval(one, &out, 1), 1);
    EXPECT_EQ(out.GetAt(0, 3), 6.0f);
    r.AddOutput("P", "A");
    EXPECT_EQ(r.Eval(one, &out, 1), 0);

    // Only classes derived from CCUsrOp can be functions.
    EXPECT_EQ(r.AddUsrOp("REC", RUNTIME_CLASS(CFmtSigRec)), 0);
    EXPECT_EQ(r.AddUsrOp("NODE", RUNTIME_CLASS(CCNode)), 0);
    EXPECT_EQ(r.AddUsrOp("SUM2", RUNTIME_CLASS(CCSumOp)), 1);

    // An input declared without samples per record reads as zeros.
    CCReformater zero;
    zero.AddInput("Z", "", 0, 256, 1, 1);
    zero.AddOutput("O", "Z+1");
    ASSERT_EQ(zero.Compile(), 1);
    std::unique_ptr<CFmtSigRec> zout(zero.CreateCompatibleFmtSigRec());
    EXPECT_EQ(zero.Eval(one, zout.get(), 1), 1);

    // Outputs whose samples do not fit one record (the start table wraps)
    // are refused rather than written past the record.
    CCReformater big;
    big.AddInput("A", "", 40000, 256, 1, 1);
    big.AddOutput("O1", "A");
    big.AddOutput("O2", "A");
    ASSERT_EQ(big.Compile(), 1);
    std::unique_ptr<CFmtSigRec> bout(big.CreateCompatibleFmtSigRec());
    CFmtSigRec input(1, 40000);
    const CFmtSigRec* in[] = {&input};
    EXPECT_EQ(big.Eval(in, bout.get(), 1), 0);
    EXPECT_FALSE(asserts.hits.empty());
}

}  // namespace
