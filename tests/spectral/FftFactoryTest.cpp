// The FFT factory: channels, taper windows, pre-processing, epochs cut
// across records, epoch ranges; and the FFT record.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <memory>
#include <vector>

#include "records/SigRec.h"
#include "spectral/Fft.h"
#include "support/TestSupport.h"

namespace {

const double kPi = 4.0 * std::atan(1.0);

// Scaled spectrum bin k with the usual kernel, in double.
std::complex<double> Bin(const std::vector<double>& x, unsigned k, double scale) {
    std::complex<double> s = 0.0;
    const double n = static_cast<double>(x.size());
    for (size_t j = 0; j < x.size(); ++j) s += x[j] * std::polar(1.0, -2.0 * kPi * double((j * k) % x.size()) / n);
    return s * scale;
}

}  // namespace

TEST(TaperWindow, ValuesAndScalesByHand) {
    struct Case {
        WORD taper;
        std::vector<double> values;
    };
    const std::vector<Case> cases = {
        {CFftFactory::taperRect, {1, 1, 1, 1, 1}},
        {CFftFactory::taperHanning, {0, 0.5, 1, 0.5, 0}},
        {CFftFactory::taperHamming, {0.08, 0.54, 1, 0.54, 0.08}},
        {CFftFactory::taperBlackman, {0, 0.34, 1, 0.34, 0}},
        // 20 % of 10 points: 2 on each side, 0.5 (1 + cos(pi - (k + 1) pi / 2)).
        {CFftFactory::taperCosine, {0.5, 1, 1, 1, 1, 1, 1, 1, 1, 0.5}},
        // 20 % of 4 points is 0 in integer arithmetic: no edges.
        {CFftFactory::taperCosine, {1, 1, 1, 1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "taper " << c.taper << " n " << c.values.size());
        const unsigned n = static_cast<unsigned>(c.values.size());
        std::vector<float> w(n, -7.0f);
        float scale = CFftFactory::MakeTaperWindow(c.taper, w.data(), n);
        double sum = 0.0;
        for (unsigned k = 0; k < n; ++k) {
            EXPECT_NEAR(w[k], c.values[k], 1e-7) << k;
            sum += c.values[k];
        }
        EXPECT_NEAR(scale, 1.0 / sum, 1e-7);
    }
    // Cosine edges of 20 points: m = 4, mirrored at the end.
    std::vector<float> w(20);
    CFftFactory::MakeTaperWindow(CFftFactory::taperCosine, w.data(), 20);
    for (unsigned k = 0; k < 4; ++k) {
        EXPECT_NEAR(w[k], 0.5 * (1.0 + std::cos(kPi - (k + 1) * kPi / 4)), 1e-7);
        EXPECT_EQ(w[19 - k], w[k]);
    }
    EXPECT_FLOAT_EQ(w[3], 1.0f);
    for (unsigned k = 4; k < 16; ++k) EXPECT_EQ(w[k], 1.0f);
}

TEST(FftFactory, AddChannelLengthsAndRefusals) {
    testsupport::AssertRecorder asserts;
    CFftFactory f(2.0, CFftFactory::preNone, CFftFactory::taperHanning);
    EXPECT_EQ(f.AddChannel(3, 256), 1);
    EXPECT_EQ(f.GetFftLen(0), 512);
    EXPECT_EQ(f.GetSigChannel(0), 3);
    EXPECT_EQ(f.GetChannelFreq(0), 256);
    EXPECT_NEAR(f.GetTaperScale(0), 1.0 / 255.5, 1e-9);  // Hanning of n points sums to (n - 1) / 2
    EXPECT_TRUE(asserts.hits.empty());

    EXPECT_EQ(f.AddChannel(4, 250), 0);   // 500 points
    EXPECT_EQ(f.AddChannel(128, 256), 0);  // no such signal channel
    EXPECT_EQ(f.AddChannel(4, 8192), 0);   // above 4096 Hz
    EXPECT_EQ(f.AddChannel(4, 1), 0);      // 2 points
    EXPECT_EQ(asserts.hits.size(), 4u);
    EXPECT_EQ(f.GetNumChannels(), 1);

    for (int c = 1; c < 128; ++c) ASSERT_EQ(f.AddChannel(static_cast<WORD>(c), 64), 1);
    EXPECT_EQ(f.AddChannel(0, 64), 0);  // a 129th channel
    EXPECT_EQ(f.GetNumChannels(), 128);

    std::unique_ptr<CFftRec> rec(f.CreateCompatibleFftRec());
    EXPECT_EQ(rec->GetNumChannels(), 128u);
    EXPECT_EQ(rec->GetNumFreq(0), 256u);
    EXPECT_EQ(rec->GetNumFreq(1), 64u);
    EXPECT_DOUBLE_EQ(rec->GetDeltaFreq(), 0.5);
    EXPECT_DOUBLE_EQ(rec->GetMaxFreq(0), 128.0);
    EXPECT_EQ(rec->GetMaxNumFreq(), 256u);
}

TEST(FftFactory, InvalidOptionsAreAssertedAndTakenAsNone) {
    testsupport::AssertRecorder asserts;
    CFftFactory f(1.0, 3, 5);
    EXPECT_EQ(asserts.hits.size(), 2u);
    EXPECT_EQ(f.GetPreProcessingOpt(), 0);
    EXPECT_EQ(f.GetTaperingOpt(), 0);
}

TEST(FftFactory, GetEpochRange) {
    testsupport::AssertRecorder asserts;
    double lo = -1, hi = -1;
    EXPECT_EQ(CFftFactory::GetEpochRange(0, 128, 256, lo, hi), 1);
    EXPECT_DOUBLE_EQ(lo, 0.5);
    EXPECT_DOUBLE_EQ(hi, 8.0);
    EXPECT_EQ(CFftFactory::GetEpochRange(0, 256, 256, lo, hi), 1);
    EXPECT_DOUBLE_EQ(lo, 0.25);
    EXPECT_DOUBLE_EQ(hi, 8.0);
    EXPECT_TRUE(asserts.hits.empty());
    // 64 x 64 = 4096 is not below 4096: the longest stays the shortest.
    EXPECT_EQ(CFftFactory::GetEpochRange(0, 16, 1024, lo, hi), 1);
    EXPECT_DOUBLE_EQ(lo, 4.0);
    EXPECT_DOUBLE_EQ(hi, 4.0);
    // Too wide a range: refused without assertion.
    EXPECT_EQ(CFftFactory::GetEpochRange(0, 16, 2048, lo, hi), 0);
    EXPECT_EQ(lo, 0.0);
    EXPECT_EQ(hi, 0.0);
    EXPECT_TRUE(asserts.hits.empty());
    // A ratio that is not a power of two is asserted and refused.
    lo = hi = -1;
    EXPECT_EQ(CFftFactory::GetEpochRange(0, 100, 300, lo, hi), 0);
    EXPECT_EQ(lo, 0.0);
    EXPECT_EQ(hi, 0.0);
    EXPECT_EQ(CFftFactory::GetEpochRange(0, 0, 300, lo, hi), 0);
    EXPECT_EQ(asserts.hits.size(), 2u);
}

TEST(FftFactory, ConstantSignalWithRectangularTaperGivesItsValueInBinZero) {
    CFftFactory f(1.0, CFftFactory::preNone, CFftFactory::taperRect);
    ASSERT_EQ(f.AddChannel(0, 64), 1);
    CFmtSigRec rec(1, 64);
    rec.SetAll(3.25f);
    std::unique_ptr<CFftRec> out(f.CreateCompatibleFftRec());
    const CFmtSigRec* recs[] = {&rec};
    ASSERT_EQ(f.Transform(0.0, recs, 1, *out), 1);
    EXPECT_FLOAT_EQ(out->GetAt(0, 0).Re(), 3.25f);
    EXPECT_EQ(out->GetAt(0, 0).Im(), 0.0f);
    for (unsigned k = 1; k < 32; ++k) {
        EXPECT_NEAR(out->GetAt(0, k).Re(), 0.0, 1e-6);
        EXPECT_NEAR(out->GetAt(0, k).Im(), 0.0, 1e-6);
    }
}

// Mean and trend removal act on the tapered samples: a constant under a
// Hanning window is no longer constant, so removing the mean afterwards
// leaves the window's own spectrum; removing it first would leave nothing.
TEST(FftFactory, PreProcessingComesAfterTapering) {
    const unsigned n = 64;
    for (WORD option : {CFftFactory::preMean, CFftFactory::preTrend}) {
        SCOPED_TRACE(option);
        CFftFactory f(1.0, option, CFftFactory::taperHanning);
        ASSERT_EQ(f.AddChannel(0, n), 1);
        CFmtSigRec rec(1, n);
        for (unsigned k = 0; k < n; ++k) rec.SetAt(0, k, 2.0f + 0.5f * k);  // a line
        std::unique_ptr<CFftRec> out(f.CreateCompatibleFftRec());
        const CFmtSigRec* recs[] = {&rec};
        ASSERT_EQ(f.Transform(0.0, recs, 1, *out), 1);

        // Expected: taper, then remove the mean or the fitted line, in double.
        std::vector<double> x(n);
        const float* w = f.GetTaperWin(0);
        for (unsigned k = 0; k < n; ++k) x[k] = (2.0 + 0.5 * k) * w[k];
        double sk = 0, skk = 0, sx = 0, skx = 0;
        for (unsigned k = 0; k < n; ++k) {
            sk += k;
            skk += double(k) * k;
            sx += x[k];
            skx += k * x[k];
        }
        double b = option == CFftFactory::preTrend ? (skx - sk * sx / n) / (skk - sk * sk / n) : 0.0;
        double a = sx / n - b * sk / n;
        for (unsigned k = 0; k < n; ++k) x[k] -= a + b * k;

        double largest = 0.0;
        for (unsigned k = 0; k < n / 2; ++k) {
            std::complex<double> e = Bin(x, k, f.GetTaperScale(0));
            largest = std::max(largest, std::abs(e));
            EXPECT_NEAR(out->GetAt(0, k).Re(), e.real(), 1e-5) << k;
            EXPECT_NEAR(out->GetAt(0, k).Im(), e.imag(), 1e-5) << k;
        }
        EXPECT_GT(largest, 0.1);  // far from the zero spectrum of the other order
    }
}

TEST(FftFactory, PreProcessRemovesMeanAndLine) {
    std::vector<float> x = {1, 2, 3, 4, 5, 6, 7, 8};
    std::vector<float> y = x;
    CFftFactory::PreProcess(CFftFactory::preMean, y.data(), 8);
    for (unsigned k = 0; k < 8; ++k) EXPECT_FLOAT_EQ(y[k], x[k] - 4.5f);
    y = x;
    CFftFactory::PreProcess(CFftFactory::preTrend, y.data(), 8);
    for (float v : y) EXPECT_NEAR(v, 0.0f, 1e-6);
    y = x;
    CFftFactory::PreProcess(CFftFactory::preNone, y.data(), 8);
    EXPECT_EQ(y, x);
}

// An epoch that starts inside one record and runs through the next ones,
// for two channels of different rates read from swapped signal channels.
TEST(FftFactory, TransformCutsTheEpochAcrossRecords) {
    CFftFactory f(2.0, CFftFactory::preNone, CFftFactory::taperHamming);
    ASSERT_EQ(f.AddChannel(1, 64), 1);   // 128 points
    ASSERT_EQ(f.AddChannel(0, 128), 1);  // 256 points
    const unsigned short counts[2] = {128, 64};  // 1 s records
    std::vector<std::unique_ptr<CFmtSigRec>> recs;
    std::vector<double> slow, fast;  // every sample, in order
    for (int r = 0; r < 3; ++r) {
        auto rec = std::make_unique<CFmtSigRec>(2, counts);
        rec->SetTime(CSDateTime(2026, 3, 1, 12, 0, r));
        for (unsigned s = 0; s < 128; ++s) {
            float v = std::sin(0.37f * (r * 128 + s)) + 0.01f * s;
            rec->SetAt(0, s, v);
            fast.push_back(v);
        }
        for (unsigned s = 0; s < 64; ++s) {
            float v = std::cos(0.21f * (r * 64 + s)) - 0.02f * r;
            rec->SetAt(1, s, v);
            slow.push_back(v);
        }
        recs.push_back(std::move(rec));
    }
    const CFmtSigRec* ptrs[] = {recs[0].get(), recs[1].get(), recs[2].get()};
    std::unique_ptr<CFftRec> out(f.CreateCompatibleFftRec());
    // 0.3 s: sample 64 x 0.3 + 0.5 = 19 of the slow channel, 38 of the fast one.
    ASSERT_EQ(f.Transform(0.3, ptrs, 3, *out), 1);
    EXPECT_NEAR((out->GetTime() - recs[0]->GetTime()).GetTotalSeconds(), 0.3, 1e-3);

    struct Expect {
        unsigned channel, start, n;
        const std::vector<double>* all;
    };
    for (const Expect& e : {Expect{0, 19, 128, &slow}, Expect{1, 38, 256, &fast}}) {
        std::vector<double> x(e.all->begin() + e.start, e.all->begin() + e.start + e.n);
        const float* w = f.GetTaperWin(e.channel);
        for (unsigned k = 0; k < e.n; ++k) x[k] = float(x[k] * w[k]);
        for (unsigned k = 0; k < e.n / 2; ++k) {
            std::complex<double> b = Bin(x, k, f.GetTaperScale(e.channel));
            EXPECT_NEAR(out->GetAt(e.channel, k).Re(), b.real(), 1e-5) << e.channel << " " << k;
            EXPECT_NEAR(out->GetAt(e.channel, k).Im(), b.imag(), 1e-5) << e.channel << " " << k;
        }
    }
}

TEST(FftFactory, TransformRefusesWhatItCannotRead) {
    testsupport::AssertRecorder asserts;
    CFftFactory f(2.0, CFftFactory::preNone, CFftFactory::taperRect);
    ASSERT_EQ(f.AddChannel(0, 64), 1);
    CFmtSigRec a(1, 64), b(1, 64), narrow(1, 64);
    a.SetAll(1.0f);
    b.SetAll(1.0f);
    std::unique_ptr<CFftRec> out(f.CreateCompatibleFftRec());
    out->SetAt(0, 0, CComplex(9.0f, 9.0f));
    const CFmtSigRec* two[] = {&a, &b};
    const CFmtSigRec* one[] = {&a};
    EXPECT_EQ(f.Transform(0.5, two, 2, *out), 0);   // 96 samples left, 128 needed
    EXPECT_EQ(f.Transform(1.0, two, 2, *out), 0);   // starts beyond the first record
    EXPECT_EQ(f.Transform(0.0, one, 1, *out), 0);   // one record is not enough
    CFmtSigRec noChannel;
    const CFmtSigRec* bad[] = {&a, &noChannel};
    EXPECT_EQ(f.Transform(0.0, bad, 2, *out), 0);
    CFftRec wrongShape;
    EXPECT_EQ(f.Transform(0.0, two, 2, wrongShape), 0);
    EXPECT_EQ(asserts.hits.size(), 5u);
    EXPECT_EQ(out->GetAt(0, 0), CComplex(9.0f, 9.0f));

    CObArray list;
    list.Add(&a);
    list.Add(&b);
    EXPECT_EQ(f.Transform(0.0, list, *out), 1);
    EXPECT_FLOAT_EQ(out->GetAt(0, 0).Re(), 1.0f);
}

TEST(FftRec, CopyAdditionAndDivision) {
    testsupport::AssertRecorder asserts;
    const WORD counts[2] = {2, 3};
    CFftRec a(2.0, 2, counts);
    a.SetAt(0, 1, CComplex(1, 2));
    a.SetAt(1, 2, CComplex(-4, 8));
    CFftRec b(a);
    b += a;
    b += a;
    b /= 3.0f;
    EXPECT_EQ(b.GetAt(0, 1), CComplex(1, 2));
    EXPECT_EQ(b.GetAt(1, 2), CComplex(-4, 8));
    EXPECT_EQ(b.GetAt(1, 0), CComplex(0, 0));
    EXPECT_FLOAT_EQ(b.GetAt(1, 2).Power(), 80.0f);

    const WORD other[2] = {3, 2};
    CFftRec c(2.0, 2, other);
    b += c;  // another shape: asserted, unchanged
    EXPECT_EQ(asserts.hits.size(), 1u);
    EXPECT_EQ(b.GetAt(0, 1), CComplex(1, 2));
    b.GetAt(5, 0);
    EXPECT_EQ(asserts.hits.size(), 2u);
}
