// The windowed-sinc resampler.
#include <gtest/gtest.h>

#include <cmath>

#include "sigfile/Resampler.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<double> Resample(CResampler& r, const std::vector<double>& in, size_t chunk) {
    std::vector<double> out;
    for (size_t i = 0; i < in.size(); i += chunk) r.Push(in.data() + i, std::min(chunk, in.size() - i), out);
    r.Finish(out);
    return out;
}

TEST(Resampler, UpsamplingFollowsTheSignalAndChunksDoNotMatter) {
    const double in = 200, out = 256;
    std::vector<double> x(2000);
    for (size_t i = 0; i < x.size(); ++i) x[i] = std::sin(2 * kPi * 5 * double(i) / in);
    CResampler whole(in, out);
    std::vector<double> y = Resample(whole, x, x.size());
    ASSERT_EQ(y.size(), size_t(std::ceil(2000 * out / in)));
    double worst = 0;
    for (size_t k = 100; k + 100 < y.size(); ++k)
        worst = std::max(worst, std::fabs(y[k] - std::sin(2 * kPi * 5 * double(k) / out)));
    EXPECT_LT(worst, 1e-3);
    for (size_t chunk : {1u, 7u, 64u, 333u}) {
        CResampler pieces(in, out);
        EXPECT_EQ(Resample(pieces, x, chunk), y) << "chunk " << chunk;
    }
}

TEST(Resampler, DownsamplingRemovesWhatTheNewRateCannotHold) {
    const double in = 1000, out = 256;
    std::vector<double> x(5000);
    for (size_t i = 0; i < x.size(); ++i) {
        double t = double(i) / in;
        x[i] = std::sin(2 * kPi * 10 * t) + 0.5 * std::sin(2 * kPi * 300 * t);  // 300 Hz is above 128 Hz
    }
    CResampler r(in, out);
    std::vector<double> y = Resample(r, x, 100);
    ASSERT_EQ(y.size(), 1280u);
    double worst = 0;
    for (size_t k = 100; k + 100 < y.size(); ++k)
        worst = std::max(worst, std::fabs(y[k] - std::sin(2 * kPi * 10 * double(k) / out)));
    EXPECT_LT(worst, 5e-3);
}

TEST(Resampler, ConstantStaysConstantUpToTheEdges) {
    std::vector<double> x(300, 42.5);
    CResampler r(250, 64);
    std::vector<double> y = Resample(r, x, 50);
    ASSERT_EQ(y.size(), size_t(std::ceil(300 * 64 / 250.0)));
    for (double v : y) EXPECT_NEAR(v, 42.5, 1e-12);
    CResampler empty(250, 64);
    EXPECT_TRUE(Resample(empty, std::vector<double>{}, 1).empty());
}

}  // namespace
