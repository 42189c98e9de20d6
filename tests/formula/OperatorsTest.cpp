// The built-in functions: arguments they accept, the ranges they ask of
// their argument, FIR design, and their values against sums and filters
// computed here independently.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <numbers>
#include <sstream>

#include "formula/FormulaTestUtil.h"
#include "support/TestSupport.h"

using namespace formulatest;

namespace {

// One input X (channel 0) of spr samples at fs Hz and one output.
std::unique_ptr<CCReformater> Single(const char* formula, int spr = 8, int fs = 256) {
    auto r = std::make_unique<CCReformater>();
    r->AddInput("X", "", static_cast<UINT>(spr), static_cast<UINT>(fs), 1, 1);
    r->AddOutput("Y", formula);
    EXPECT_EQ(r->Compile(), 1) << formula << (r->GetDiagnostics().empty() ? "" : r->GetDiagnostics()[0]);
    return r;
}

TEST(OperatorsTest, ArgumentCountsAndKinds) {
    CCAbsOp abs;
    CCCmpOp cmp;
    CCFirOp fir;
    CCIirOp iir;
    CCSumOp sum;
    EXPECT_EQ(abs.GetNumArgs(), 1);
    EXPECT_EQ(cmp.GetNumArgs(), 5);
    EXPECT_EQ(fir.GetNumArgs(), 5);
    EXPECT_EQ(iir.GetNumArgs(), 5);
    EXPECT_EQ(sum.GetNumArgs(), 3);
    for (CCUsrOp* op : std::initializer_list<CCUsrOp*>{&cmp, &fir, &iir, &sum}) {
        EXPECT_EQ(op->GetArgType(0), 1);
        for (int i = 1; i < op->GetNumArgs(); ++i) EXPECT_EQ(op->GetArgType(i), 0);
    }
    EXPECT_EQ(abs.GetArgType(0), 1);
    testsupport::AssertRecorder asserts;
    abs.GetArgType(1);  // ABS takes its expression only
    EXPECT_EQ(asserts.hits.size(), 1u);
    EXPECT_EQ(std::string(CCFirOp::GetName()) + CCIirOp::GetName() + CCAbsOp::GetName() + CCSumOp::GetName() +
                  CCCmpOp::GetName(),
              "FIRIIRABSSUMCMP");
}

TEST(OperatorsTest, AcceptedConstantArguments) {
    struct Case {
        const CRuntimeClass* cls;
        std::vector<float> args;  // arguments 1.. in order
        int refusedAt;            // argument refused, 0 when all accepted
    };
    const Case cases[] = {
        {RUNTIME_CLASS(CCFirOp), {1, 3, 0, 40}, 0},
        {RUNTIME_CLASS(CCFirOp), {4, 63, 0, 40}, 0},
        {RUNTIME_CLASS(CCFirOp), {4.9f, 63.9f, -1, 1e9f}, 0},  // truncated toward zero
        {RUNTIME_CLASS(CCFirOp), {0, 3, 0, 40}, 1},
        {RUNTIME_CLASS(CCFirOp), {5, 3, 0, 40}, 1},
        {RUNTIME_CLASS(CCFirOp), {0.9f, 3, 0, 40}, 1},
        {RUNTIME_CLASS(CCFirOp), {1, 2, 0, 40}, 2},
        {RUNTIME_CLASS(CCFirOp), {1, 64, 0, 40}, 2},
        {RUNTIME_CLASS(CCFirOp), {1, 65, 0, 40}, 2},
        {RUNTIME_CLASS(CCFirOp), {1, 0.5f, 0, 40}, 2},
        {RUNTIME_CLASS(CCFirOp), {1, NAN, 0, 40}, 2},
        {RUNTIME_CLASS(CCIirOp), {1, 1, 0, 40}, 0},
        {RUNTIME_CLASS(CCIirOp), {4, 10.7f, 45, 55}, 0},
        {RUNTIME_CLASS(CCIirOp), {1, 11, 0, 40}, 2},
        {RUNTIME_CLASS(CCIirOp), {1, 0, 0, 40}, 2},
        {RUNTIME_CLASS(CCIirOp), {1e10f, 2, 0, 40}, 1},
        {RUNTIME_CLASS(CCCmpOp), {1, 1, 5, 0}, 0},
        {RUNTIME_CLASS(CCCmpOp), {2, 1, 0, 0}, 2},
        {RUNTIME_CLASS(CCCmpOp), {-3, -3.5f, 0, 0}, 2},
        {RUNTIME_CLASS(CCSumOp), {0, 0}, 0},
        {RUNTIME_CLASS(CCSumOp), {3, 1}, 2},
        {RUNTIME_CLASS(CCSumOp), {2, 2.9f}, 0},
        {RUNTIME_CLASS(CCSumOp), {65535, 65535}, 0},
        {RUNTIME_CLASS(CCSumOp), {0, 65536}, 2},
        {RUNTIME_CLASS(CCSumOp), {1e30f, 1e30f}, 1},
    };
    for (const Case& c : cases) {
        std::unique_ptr<CObject> ob(c.cls->CreateObject());
        auto* op = dynamic_cast<CCUsrOp*>(ob.get());
        ASSERT_NE(op, nullptr);
        EXPECT_EQ(op->SetArgValue(0, 0.0f, new CCConstant(1.0f)), 1);
        int refused = 0;
        for (size_t i = 0; i < c.args.size() && !refused; ++i)
            if (!op->SetArgValue(static_cast<int>(i + 1), c.args[i])) refused = static_cast<int>(i + 1);
        EXPECT_EQ(refused, c.refusedAt) << c.cls->m_lpszClassName << " " << c.args[0] << " " << c.args[1];
    }
}

TEST(OperatorsTest, NodesBuiltWithoutTheirArgumentsAssertAndYieldZeros) {
    testsupport::AssertRecorder asserts;
    for (const CRuntimeClass* cls : {RUNTIME_CLASS(CCAbsOp), RUNTIME_CLASS(CCCmpOp), RUNTIME_CLASS(CCFirOp),
                                     RUNTIME_CLASS(CCIirOp), RUNTIME_CLASS(CCSumOp)}) {
        std::unique_ptr<CObject> ob(cls->CreateObject());
        auto* op = static_cast<CCUsrOp*>(ob.get());
        asserts.hits.clear();
        op->Init(256, 4, 0, 3);
        EXPECT_FALSE(asserts.hits.empty()) << cls->m_lpszClassName;
        for (int n = 0; n <= 3; ++n) EXPECT_EQ(op->Eval(1)[n], 0.0f);
        EXPECT_EQ(op->SetArgValue(0, 0.0f, nullptr), 0);  // argument 0 must be an expression
    }
    // A FIR initialised twice asserts; so does one over a one-sample range.
    CCFirOp fir;
    fir.SetArgValue(0, 0.0f, new CCConstant(2.0f));
    fir.SetArgValue(1, 1.0f);
    fir.SetArgValue(2, 3.0f);
    fir.SetArgValue(4, 40.0f);
    asserts.hits.clear();
    fir.Init(256, 4, 0, 3);
    EXPECT_TRUE(asserts.hits.empty());
    fir.Init(256, 4, 0, 3);
    EXPECT_EQ(asserts.hits.size(), 1u);
}

// ---------------------------------------------------------------- FIR

// The FIR design written out again in double precision (with the same short
// value of pi), for comparison.
std::vector<double> FirReference(int type, int N, double low, double high, int fs) {
    const double p = static_cast<double>(3.14159f);
    const int M = 2 * N + 1;
    auto kernel = [&](double f) {
        std::vector<double> L(static_cast<size_t>(M), 0.0);
        if (f == 0) return L;
        const double w = f / (fs / 2.0) * p;
        L[0] = w / p;
        double s = 0;
        for (int k = 1; k < M; ++k) {
            L[static_cast<size_t>(k)] = std::sin(k * w) / (k * p) * (0.5 + 0.5 * std::cos(p * k / (M - 1)));
            s += L[static_cast<size_t>(k)];
        }
        s = L[0] + 2 * s;
        for (double& v : L) v /= s;
        return L;
    };
    const auto A = kernel(low), B = kernel(high);
    std::vector<double> h(static_cast<size_t>(N + 1));
    for (size_t k = 0; k <= static_cast<size_t>(N); ++k) {
        const double id = k == 0 ? 1.0 : 0.0;
        h[k] = type == 1 ? B[k] : type == 2 ? id - A[k] : type == 3 ? B[k] - A[k] : id - B[k] + A[k];
    }
    return h;
}

TEST(OperatorsTest, FirDesignMatchesTheWindowedSincFormula) {
    const struct {
        int type, N;
        float low, high;
        int fs;
    } cases[] = {{1, 3, 0, 40, 256}, {2, 15, 0.5f, 0, 256}, {3, 63, 1, 45, 256}, {4, 31, 45, 55, 500}, {1, 1, 0, 70, 200}};
    for (const auto& c : cases) {
        const auto h = CCFirOp::Design(c.type, c.N, c.low, c.high, c.fs);
        const auto ref = FirReference(c.type, c.N, c.low, c.high, c.fs);
        ASSERT_EQ(h.size(), ref.size());
        for (size_t k = 0; k < h.size(); ++k) EXPECT_NEAR(h[k], ref[k], 2e-6) << "type " << c.type << " k " << k;
    }
    // A high-pass with a low cut-off of 0 is the identity.
    const auto identity = CCFirOp::Design(2, 5, 0, 40, 256);
    EXPECT_EQ(identity, (std::vector<float>{1, 0, 0, 0, 0, 0}));
}

TEST(OperatorsTest, FirGainAtZeroFrequencyIsNotNormalisedToOne) {
    // The normalisation runs over all 2N side taps while only N are used:
    // for N = 3 at 40 Hz, taps 4 to 6 are negative, so a constant input
    // comes out larger than it went in.
    const auto ref = FirReference(1, 3, 0, 40, 256);
    const double gain = ref[0] + 2 * (ref[1] + ref[2] + ref[3]);
    EXPECT_GT(gain, 1.02);
    auto r = Single("FIR(X,1,3,0,40)");
    const auto out = RunStream(*r, 1, 8, 0, 3, [](int, long) { return 1.0f; });
    for (float y : out[0]) EXPECT_NEAR(y, gain, 1e-5);
}

TEST(OperatorsTest, FirConvolvesAcrossRecords) {
    auto r = Single("FIR(X,3,7,8,13)", 8);
    ASSERT_EQ(r->GetFirstRecOfs(), -1);
    ASSERT_EQ(r->GetLastRecOfs(), 1);
    const Signal x = [](int, long i) { return std::sin(0.37f * static_cast<float>(i)) + 0.01f * static_cast<float>(i % 7); };
    const auto out = RunStream(*r, 1, 8, 2, 10, x);
    const auto h = FirReference(3, 7, 8, 13, 256);
    for (long n = 16; n < 96; ++n) {
        double y = h[0] * x(0, n);
        for (long k = 1; k <= 7; ++k) y += h[static_cast<size_t>(k)] * (x(0, n - k) + x(0, n + k));
        EXPECT_NEAR(out[0][static_cast<size_t>(n - 16)], y, 1e-5) << n;
    }
    // High-pass from 0 Hz passes the input exactly.
    auto pass = Single("FIR(X,2,3,0,40)", 8);
    const auto same = RunStream(*pass, 1, 8, 0, 4, x);
    for (long n = 0; n < 32; ++n) EXPECT_EQ(same[0][static_cast<size_t>(n)], x(0, n));
}

// ---------------------------------------------------------------- ABS, CMP, SUM

TEST(OperatorsTest, AbsCmpAndSumValues) {
    auto r = std::make_unique<CCReformater>();
    r->AddInput("X", "", 8, 256, 1, 1);
    r->AddOutput("A", "ABS(X-2)");
    r->AddOutput("C", "CMP(X,1,1,5,0)");
    r->AddOutput("N", "CMP(X/X,0.5,2,7,3)");  // 0/0 is not a number: outside
    r->AddOutput("S0", "SUM(X,0,0)");
    r->AddOutput("S", "SUM(X*0.1,1,2)");
    ASSERT_EQ(r->Compile(), 1);
    EXPECT_EQ(r->GetFirstRecOfs(), -1);
    EXPECT_EQ(r->GetLastRecOfs(), 1);
    const Signal x = [](int, long i) { return static_cast<float>(i % 5); };
    const auto out = RunStream(*r, 1, 8, 3, 6, x);
    for (long n = 24; n < 72; ++n) {
        const size_t k = static_cast<size_t>(n - 24);
        const float v = x(0, n);
        EXPECT_EQ(out[0][k], std::fabs(v - 2.0f));
        EXPECT_EQ(out[1][k], v == 1.0f ? 5.0f : 0.0f);
        EXPECT_EQ(out[2][k], v == 0.0f ? 3.0f : 7.0f);
        EXPECT_EQ(out[3][k], v);
        float s = 0.0f;
        for (long j = n - 1; j <= n + 2; ++j) s += x(0, j) * 0.1f;
        EXPECT_EQ(out[4][k], s) << n;
    }
}

// ---------------------------------------------------------------- IIR

TEST(OperatorsTest, IirWarmsUpAndCarriesItsStateAcrossRecords) {
    const int spr = 16, order = 3, warm = 128 * order;
    auto r = Single("IIR(X,3,3,1,30)", spr);
    EXPECT_EQ(r->GetFirstRecOfs(), -(warm / spr));
    EXPECT_EQ(r->GetLastRecOfs(), 0);
    const Signal x = [](int, long i) {
        return std::sin(0.2f * static_cast<float>(i)) + 0.3f * std::sin(1.9f * static_cast<float>(i)) + 0.5f;
    };
    // Records 40 to 59, restarting at 50 (a jump).
    const auto out = RunStream(*r, 1, spr, 40, 20, x, {50});
    auto expected = [&](long from, long to, std::vector<float>& y) {
        CBiquad f(3, order, 256.0f, 1.0f, 30.0f);
        f.Init(0.0f);
        for (long i = from * spr - warm; i < to * spr; ++i) {
            const float v = f.Filter(x(0, i));
            if (i >= from * spr) y.push_back(v);
        }
    };
    std::vector<float> y;
    expected(40, 50, y);
    expected(50, 60, y);
    ASSERT_EQ(out[0].size(), y.size());
    for (size_t i = 0; i < y.size(); ++i) ASSERT_EQ(out[0][i], y[i]) << i;
}

TEST(OperatorsTest, IirFormulaMatchesTheReferenceFilter) {
    // With a signal that is 0 before sample 0, the warm-up leaves the filter
    // at rest at sample 0, so the formula's output is the reference output
    // of a low-pass of order 4 at 30 Hz starting from rest.
    std::ifstream in(std::string(SIGFILE_TEST_DATA_DIR) + "/formula/biquad_reference.txt");
    std::string line;
    std::vector<double> ref;
    bool inCase = false;
    while (std::getline(in, line)) {
        if (line.rfind("case", 0) == 0) {
            inCase = line.rfind("case 1 4 256 0 30 ", 0) == 0;
            continue;
        }
        if (inCase) ref.push_back(std::stod(line));
    }
    ASSERT_EQ(ref.size(), 400u);
    const Signal x = [](int, long n) {
        if (n < 0) return 0.0f;
        const double pi = std::numbers::pi;
        double v = std::sin(2 * pi * 3 * n / 256) + 0.5 * std::sin(2 * pi * 17.3 * n / 256 + 0.2) +
                   0.25 * std::sin(2 * pi * 61 * n / 256 + 1.1);
        if (n == 37) v += 0.8;
        return static_cast<float>(v);
    };
    auto r = Single("IIR(X,1,4,0,30)", 16);
    const auto out = RunStream(*r, 1, 16, 0, 25, x);
    double peak = 0;
    for (double v : ref) peak = std::max(peak, std::fabs(v));
    for (size_t n = 0; n < ref.size(); ++n)
        ASSERT_NEAR(out[0][n], ref[n], 1e-4 * std::max(std::fabs(ref[n]), 1e-2 * peak)) << n;
}

TEST(OperatorsTest, FunctionsCompose) {
    // A FIR over an IIR over a moving sum: ranges add up through the tree.
    auto r = Single("FIR(IIR(SUM(X,1,1),1,1,0,40),1,3,0,40)", 4);
    // FIR asks [-3, 6] of IIR, IIR [-131, 6] of SUM, SUM [-132, 7] of X.
    EXPECT_EQ(r->GetFirstRecOfs(), -33);
    EXPECT_EQ(r->GetLastRecOfs(), 1);
    const auto out = RunStream(*r, 1, 4, 0, 10, [](int, long i) { return static_cast<float>(i % 3); });
    ASSERT_EQ(out[0].size(), 40u);
    for (float v : out[0]) EXPECT_TRUE(std::isfinite(v));
}

}  // namespace
