// Radix-2 FFTs against a direct DFT in double precision, and the scaled
// spectrum that Fft leaves.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "spectral/Fft.h"
#include "support/TestSupport.h"

namespace {

const double kPi = 4.0 * std::atan(1.0);

std::vector<float> RandomSignal(unsigned n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<float> x(n);
    for (float& v : x) v = dist(gen);
    return x;
}

// X[k] = sum x[j] exp(sign 2 pi i j k / n), in double.
std::vector<std::complex<double>> Dft(const std::vector<std::complex<double>>& x, int sign) {
    const size_t n = x.size();
    std::vector<std::complex<double>> out(n);
    for (size_t k = 0; k < n; ++k) {
        std::complex<double> s = 0.0;
        for (size_t j = 0; j < n; ++j) {
            double a = sign * 2.0 * kPi * static_cast<double>((j * k) % n) / static_cast<double>(n);
            s += x[j] * std::complex<double>(std::cos(a), std::sin(a));
        }
        out[k] = s;
    }
    return out;
}

double MaxAbs(const std::vector<std::complex<double>>& v) {
    double m = 0.0;
    for (const auto& c : v) m = std::max(m, std::abs(c));
    return m;
}

}  // namespace

// The packed real FFT: element 0 bin 0, element 1 the Nyquist bin, then
// (re, im) of bins 1 .. n/2 - 1, with the exp(+2 pi i j k / n) kernel.
TEST(RealFft, MatchesDirectDftForEveryLengthFrom64To4096) {
    for (unsigned n = 64; n <= 4096; n *= 2) {
        SCOPED_TRACE(n);
        std::vector<float> x = RandomSignal(n, n);
        std::vector<std::complex<double>> ref(x.begin(), x.end());
        ref = Dft(ref, +1);
        const double tol = 1e-5 * MaxAbs(ref);
        std::vector<float> data = x;
        CFftFactory::RealFft(data.data(), n, 1);
        EXPECT_NEAR(data[0], ref[0].real(), tol);
        EXPECT_NEAR(data[1], ref[n / 2].real(), tol);
        double worst = 0.0;
        for (unsigned k = 1; k < n / 2; ++k) {
            worst = std::max(worst, std::abs(std::complex<double>(data[2 * k], data[2 * k + 1]) - ref[k]));
        }
        EXPECT_LE(worst, tol);

        // The inverse brings back n/2 times the signal.
        CFftFactory::RealFft(data.data(), n, -1);
        double back = 0.0;
        for (unsigned j = 0; j < n; ++j) back = std::max(back, std::abs(data[j] * 2.0 / n - x[j]));
        EXPECT_LE(back, 1e-5);
    }
}

TEST(RealFft, ShortLengths) {
    for (unsigned n : {2u, 4u, 8u, 16u, 32u}) {
        SCOPED_TRACE(n);
        std::vector<float> x = RandomSignal(n, 7 * n);
        std::vector<std::complex<double>> ref = Dft(std::vector<std::complex<double>>(x.begin(), x.end()), +1);
        std::vector<float> data = x;
        CFftFactory::RealFft(data.data(), n, 1);
        EXPECT_NEAR(data[0], ref[0].real(), 1e-5);
        EXPECT_NEAR(data[1], ref[n / 2].real(), 1e-5);
        for (unsigned k = 1; k < n / 2; ++k) {
            EXPECT_NEAR(data[2 * k], ref[k].real(), 1e-5) << k;
            EXPECT_NEAR(data[2 * k + 1], ref[k].imag(), 1e-5) << k;
        }
    }
}

TEST(ComplexFft, BothDirectionsMatchDirectDft) {
    for (unsigned nn : {1u, 2u, 4u, 8u, 64u, 512u, 2048u}) {
        for (int dir : {1, -1}) {
            SCOPED_TRACE(testing::Message() << nn << " dir " << dir);
            std::vector<float> data = RandomSignal(2 * nn, nn + 3);
            std::vector<std::complex<double>> x(nn);
            for (unsigned j = 0; j < nn; ++j) x[j] = {data[2 * j], data[2 * j + 1]};
            std::vector<std::complex<double>> ref = Dft(x, dir);
            const double tol = 1e-5 * std::max(1.0, MaxAbs(ref));
            CFftFactory::ComplexFft(data.data(), nn, dir);
            for (unsigned k = 0; k < nn; ++k) {
                ASSERT_NEAR(data[2 * k], ref[k].real(), tol) << k;
                ASSERT_NEAR(data[2 * k + 1], ref[k].imag(), tol) << k;
            }
        }
    }
}

TEST(ComplexFft, ReorderIsTheBitReversalPermutation) {
    std::vector<float> data(16);
    for (unsigned j = 0; j < 8; ++j) {
        data[2 * j] = static_cast<float>(j);
        data[2 * j + 1] = static_cast<float>(100 + j);
    }
    CFftFactory::ComplexFftReorder(data.data(), 8);
    const unsigned expected[8] = {0, 4, 2, 6, 1, 5, 3, 7};
    for (unsigned j = 0; j < 8; ++j) {
        EXPECT_EQ(data[2 * j], static_cast<float>(expected[j]));
        EXPECT_EQ(data[2 * j + 1], static_cast<float>(100 + expected[j]));
    }
}

TEST(RealFft, LengthThatIsNotAPowerOfTwoIsAssertedAndUntouched) {
    testsupport::AssertRecorder asserts;
    std::vector<float> data(12, 1.0f);
    CFftFactory::RealFft(data.data(), 12, 1);
    CFftFactory::ComplexFft(data.data(), 6, 1);
    CFftFactory::Fft(data.data(), 0, 1.0f);
    EXPECT_EQ(asserts.hits.size(), 3u);
    for (float v : data) EXPECT_EQ(v, 1.0f);
}

// Fft scales and conjugates: bins of the usual exp(-2 pi i j k / n) kernel,
// the Nyquist element cleared.
TEST(Fft, ScaledSpectrumWithTheUsualSign) {
    const unsigned n = 256;
    std::vector<float> x(n);
    // A cosine in bin 5 and a sine in bin 9.
    for (unsigned j = 0; j < n; ++j)
        x[j] = static_cast<float>(2.0 + std::cos(2 * kPi * 5 * j / n) + 0.5 * std::sin(2 * kPi * 9 * j / n) +
                                  0.25 * ((j % 2) ? -1.0 : 1.0));
    std::vector<float> data = x;
    CFftFactory::Fft(data.data(), n, 1.0f / n);
    EXPECT_NEAR(data[0], 2.0, 1e-6);
    EXPECT_EQ(data[1], 0.0f);  // the Nyquist term (0.25 here) is dropped
    EXPECT_NEAR(data[10], 0.5, 1e-6);
    EXPECT_NEAR(data[11], 0.0, 1e-6);
    // 0.5 sin gives -i n / 4 in bin 9 of the usual kernel: -0.25 i after scaling.
    EXPECT_NEAR(data[18], 0.0, 1e-6);
    EXPECT_NEAR(data[19], -0.25, 1e-6);
}

TEST(Fft, DumpFloatDataLayout) {
    const float values[5] = {1.0f, -2.5f, 3.25f, 100.0f, 0.0f};
    testing::internal::CaptureStdout();
    CFftFactory::DumpFloatData(values, 5, 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\n\n::: Data for 5 points :::\n   1.000   -2.500 \n   3.250  100.000 \n   0.000 ");
}
