// Derived records computed through a reformatted montage against the same
// values computed here independently.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "formula/RFMT.h"
#include "formula/filters.h"
#include "montage/MontageFixtures.h"
#include "montage/mtgs.h"
#include "records/SigRec.h"

using montagetest::BuildReferential;

namespace {

constexpr int kSpr = 64;

// Sample n (counted from the start of the recording) of recording channel c.
float Signal(unsigned c, int n) {
    return static_cast<float>(std::sin(0.05 * n * (c + 1)) * 40.0 + c * 7.0 + (n % 5) * 0.25);
}

// A recording record r of the fixture's montage: four EEG channels of 64
// samples and the Ecg at 128 Hz with 32.
std::unique_ptr<CFmtSigRec> Record(int r) {
    const unsigned short counts[] = {64, 64, 64, 64, 32};
    auto rec = std::make_unique<CFmtSigRec>(5u, counts);
    for (unsigned c = 0; c < 5; ++c)
        for (unsigned s = 0; s < counts[c]; ++s) rec->SetAt(c, s, Signal(c, r * static_cast<int>(counts[c]) + static_cast<int>(s)));
    rec->SetTime(CSDateTime(45000.0 + r / 86400.0));
    return rec;
}

// The low-pass FIR kernel h[0..N] for cut-off f at fs, M = 2N + 1 taps.
std::vector<double> LowPassKernel(int n, double f, double fs) {
    const int m = 2 * n + 1;
    const double p = static_cast<double>(3.14159f);
    const double w = (f / (fs / 2)) * p;
    std::vector<double> l(static_cast<size_t>(m));
    l[0] = w / p;
    for (int k = 1; k < m; ++k) l[static_cast<size_t>(k)] = std::sin(k * w) / (k * p) * (0.5 + 0.5 * std::cos(p * k / (m - 1)));
    double sum = l[0];
    for (int k = 1; k < m; ++k) sum += 2 * l[static_cast<size_t>(k)];
    for (double& v : l) v /= sum;
    l.resize(static_cast<size_t>(n) + 1);
    return l;
}

// y[n] of a symmetric FIR over x, with x given as a function of the
// absolute sample index.
template <class X>
double Fir(const std::vector<double>& h, X x, int n) {
    double y = h[0] * x(n);
    for (size_t k = 1; k < h.size(); ++k) y += h[k] * (x(n - static_cast<int>(k)) + x(n + static_cast<int>(k)));
    return y;
}

}  // namespace

TEST(MontageEval, DerivedRecordMatchesIndependentComputation) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ASSERT_TRUE(ref->AddGlobal("AVG", "(FP1+F3+C3+P3)/4"));
    ASSERT_TRUE(ref->AddChannel("Fp1-avg", "FP1-AVG", 0));
    ASSERT_TRUE(ref->AddChannel("Fp1-F3", "FP1-F3", 0));
    ASSERT_TRUE(ref->AddChannel("F3-C3", "F3-C3", 0));
    ASSERT_TRUE(ref->AddChannel("C3-P3", "C3-P3", 0));
    ASSERT_TRUE(ref->AddChannel("C3 lp", "FIR(C3,1,3,0,40)", 0));
    ASSERT_TRUE(ref->AddChannel("Ecg", "ECG", 0));

    CCReformater compiler;
    ASSERT_EQ(compiler.Compile(ref), 1);
    ASSERT_EQ(compiler.GetNumChannels(), 6u);
    EXPECT_EQ(compiler.GetFirstRecOfs(), -1);
    EXPECT_EQ(compiler.GetLastRecOfs(), 1);
    EXPECT_EQ(compiler.GetSamplesRec(5), 32u);

    const int current = 7;
    std::vector<std::unique_ptr<CFmtSigRec>> span;
    std::vector<const CFmtSigRec*> ptrs;
    for (int r = current - 1; r <= current + 1; ++r) {
        span.push_back(Record(r));
        ptrs.push_back(span.back().get());
    }
    std::unique_ptr<CFmtSigRec> out(compiler.CreateCompatibleFmtSigRec());
    ASSERT_EQ(compiler.Eval(ptrs.data(), out.get(), 1), 1);
    EXPECT_TRUE(out->GetTime() == span[1]->GetTime());

    const auto h = LowPassKernel(3, 40.0, 256.0);
    for (int s = 0; s < kSpr; ++s) {
        const int n = current * kSpr + s;
        const float fp1 = Signal(0, n), f3 = Signal(1, n), c3 = Signal(2, n), p3 = Signal(3, n);
        const float avg = (((fp1 + f3) + c3) + p3) / 4.0f;
        EXPECT_EQ(out->GetAt(0, static_cast<unsigned>(s)), fp1 - avg) << s;
        EXPECT_EQ(out->GetAt(1, static_cast<unsigned>(s)), fp1 - f3) << s;
        EXPECT_EQ(out->GetAt(2, static_cast<unsigned>(s)), f3 - c3) << s;
        EXPECT_EQ(out->GetAt(3, static_cast<unsigned>(s)), c3 - p3) << s;
        const double lp = Fir(h, [](int k) { return static_cast<double>(Signal(2, k)); }, n);
        EXPECT_NEAR(out->GetAt(4, static_cast<unsigned>(s)), lp, 1e-3) << s;
    }
    for (int s = 0; s < 32; ++s) EXPECT_EQ(out->GetAt(5, static_cast<unsigned>(s)), Signal(4, current * 32 + s));

    // Record by record: the next record without restart.
    auto next = Record(current + 2);
    const CFmtSigRec* newest[] = {next.get()};
    ASSERT_EQ(compiler.Eval(newest, out.get(), 0), 1);
    for (int s = 0; s < kSpr; ++s) {
        const int n = (current + 1) * kSpr + s;
        EXPECT_EQ(out->GetAt(1, static_cast<unsigned>(s)), Signal(0, n) - Signal(1, n));
        const double lp = Fir(h, [](int k) { return static_cast<double>(Signal(2, k)); }, n);
        EXPECT_NEAR(out->GetAt(4, static_cast<unsigned>(s)), lp, 1e-3) << s;
    }
}

TEST(MontageEval, FiltersWrapTheChannelsTheyApplyTo) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CReformatedMontage* ref = rec->CreateReformatedMontage();
    ASSERT_TRUE(ref->AddChannel("Fp1-F3", "FP1-F3", 0));
    ASSERT_TRUE(ref->AddChannel("Ecg", "ECG", 0));
    CFilter lowPass;
    lowPass.SetFilterType(CFilter::typeLowPass);
    ASSERT_EQ(lowPass.Add(256, 1, "", CFilter::classFIR, 3, 0.0f, 40.0f), 1);  // EEG at 256 Hz only

    CCReformater compiler;
    ASSERT_EQ(compiler.Compile(ref, &lowPass), 1);
    std::vector<std::unique_ptr<CFmtSigRec>> span;
    std::vector<const CFmtSigRec*> ptrs;
    for (int r = 2; r <= 4; ++r) {
        span.push_back(Record(r));
        ptrs.push_back(span.back().get());
    }
    ASSERT_EQ(compiler.GetSpanLength(), 3);
    std::unique_ptr<CFmtSigRec> out(compiler.CreateCompatibleFmtSigRec());
    ASSERT_EQ(compiler.Eval(ptrs.data(), out.get(), 1), 1);
    const auto h = LowPassKernel(3, 40.0, 256.0);
    for (int s = 0; s < kSpr; ++s) {
        const int n = 3 * kSpr + s;
        const double bip = Fir(h, [](int k) { return static_cast<double>(Signal(0, k) - Signal(1, k)); }, n);
        EXPECT_NEAR(out->GetAt(0, static_cast<unsigned>(s)), bip, 1e-3) << s;
    }
    for (int s = 0; s < 32; ++s) EXPECT_EQ(out->GetAt(1, static_cast<unsigned>(s)), Signal(4, 3 * 32 + s));
}

TEST(MontageEval, RecordingMontageCompilesToItsOwnChannels) {
    CPhysicalMontage pm;
    CRecordingMontage* rec = BuildReferential(pm);
    CCReformater compiler;
    ASSERT_EQ(compiler.Compile(rec), 1);
    ASSERT_EQ(compiler.GetNumChannels(), 5u);
    EXPECT_EQ(compiler.GetFirstRecOfs(), 0);
    EXPECT_EQ(compiler.GetLastRecOfs(), 0);
    auto in = Record(0);
    const CFmtSigRec* ptrs[] = {in.get()};
    std::unique_ptr<CFmtSigRec> out(compiler.CreateCompatibleFmtSigRec());
    ASSERT_EQ(compiler.Eval(ptrs, out.get(), 1), 1);
    for (unsigned c = 0; c < 5; ++c)
        for (unsigned s = 0; s < in->GetNumSamples(c); ++s) EXPECT_EQ(out->GetAt(c, s), in->GetAt(c, s));
    EXPECT_EQ(compiler.Compile(nullptr), 0);
}
