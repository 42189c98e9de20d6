// Native rate check of imported signals and the windowed-sinc resampler.
#include <gtest/gtest.h>

#include <cmath>

#include "formats/edf/EdfResample.h"

using namespace edf;

namespace {

constexpr double kPi = 3.14159265358979323846;

TEST(EdfRates, FittingRatesGiveTheBaseAndSamplesPerRecord) {
    struct Case {
        std::vector<double> rates;
        int base;
        std::vector<int> samples;
    } cases[] = {
        {{256, 128, 64, 4}, 256, {64, 32, 16, 1}},
        {{100, 200, 3.125}, 200, {32, 64, 1}},
        {{500}, 500, {64}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> labels(c.rates.size(), "S");
        int base = 0;
        std::vector<int> samples;
        std::string error;
        ASSERT_TRUE(CheckNativeRates(labels, c.rates, base, samples, error)) << error;
        EXPECT_EQ(base, c.base);
        EXPECT_EQ(samples, c.samples);
    }
}

TEST(EdfRates, RefusalNamesEveryOffendingSignal) {
    int base = 0;
    std::vector<int> samples;
    std::string error;
    EXPECT_FALSE(CheckNativeRates({"C3-A2", "EMG", "SaO2", "Thorax"}, {256, 200, 1, 32}, base, samples, error));
    EXPECT_NE(error.find("256 Hz"), std::string::npos) << error;
    EXPECT_NE(error.find("EMG (200 Hz)"), std::string::npos) << error;
    EXPECT_NE(error.find("SaO2 (1 Hz)"), std::string::npos) << error;  // 256 / 1 does not divide 64
    EXPECT_EQ(error.find("C3-A2"), std::string::npos) << error;
    EXPECT_EQ(error.find("Thorax"), std::string::npos) << error;
    EXPECT_TRUE(samples.empty());

    EXPECT_FALSE(CheckNativeRates({"A", "B"}, {250.5, 125.25}, base, samples, error));
    EXPECT_NE(error.find("A (250.5 Hz)"), std::string::npos) << error;
    EXPECT_EQ(error.find("B ("), std::string::npos) << error;

    EXPECT_EQ(NativeRateFor(200, 256), 256);
    EXPECT_EQ(NativeRateFor(100, 256), 128);
    EXPECT_EQ(NativeRateFor(64, 256), 64);
    EXPECT_EQ(NativeRateFor(1, 256), 4);
}

std::vector<double> Resample(EdfResampler& r, const std::vector<double>& in, size_t chunk) {
    std::vector<double> out;
    for (size_t i = 0; i < in.size(); i += chunk) r.Push(in.data() + i, std::min(chunk, in.size() - i), out);
    r.Finish(out);
    return out;
}

TEST(EdfResampler, UpsamplingFollowsTheSignalAndChunksDoNotMatter) {
    const double in = 200, out = 256;
    std::vector<double> x(2000);
    for (size_t i = 0; i < x.size(); ++i) x[i] = std::sin(2 * kPi * 5 * double(i) / in);
    EdfResampler whole(in, out);
    std::vector<double> y = Resample(whole, x, x.size());
    ASSERT_EQ(y.size(), size_t(std::ceil(2000 * out / in)));
    double worst = 0;
    for (size_t k = 100; k + 100 < y.size(); ++k)
        worst = std::max(worst, std::fabs(y[k] - std::sin(2 * kPi * 5 * double(k) / out)));
    EXPECT_LT(worst, 1e-3);
    for (size_t chunk : {1u, 7u, 64u, 333u}) {
        EdfResampler pieces(in, out);
        EXPECT_EQ(Resample(pieces, x, chunk), y) << "chunk " << chunk;
    }
}

TEST(EdfResampler, DownsamplingRemovesWhatTheNewRateCannotHold) {
    const double in = 1000, out = 256;
    std::vector<double> x(5000);
    for (size_t i = 0; i < x.size(); ++i) {
        double t = double(i) / in;
        x[i] = std::sin(2 * kPi * 10 * t) + 0.5 * std::sin(2 * kPi * 300 * t);  // 300 Hz is above 128 Hz
    }
    EdfResampler r(in, out);
    std::vector<double> y = Resample(r, x, 100);
    ASSERT_EQ(y.size(), 1280u);
    double worst = 0;
    for (size_t k = 100; k + 100 < y.size(); ++k)
        worst = std::max(worst, std::fabs(y[k] - std::sin(2 * kPi * 10 * double(k) / out)));
    EXPECT_LT(worst, 5e-3);
}

TEST(EdfResampler, ConstantStaysConstantUpToTheEdges) {
    std::vector<double> x(300, 42.5);
    EdfResampler r(250, 64);
    std::vector<double> y = Resample(r, x, 50);
    ASSERT_EQ(y.size(), size_t(std::ceil(300 * 64 / 250.0)));
    for (double v : y) EXPECT_NEAR(v, 42.5, 1e-12);
    EdfResampler empty(250, 64);
    EXPECT_TRUE(Resample(empty, std::vector<double>{}, 1).empty());
}

}  // namespace
