// The Butterworth cascade against reference outputs computed independently
// (tests/data/formula/make_biquad_reference.py), and its degenerate cases.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "formula/Biquad.h"

namespace {

struct ReferenceCase {
    int type = 0, order = 0, fs = 0, count = 0;
    double low = 0, high = 0, init = 0, offset = 0;
    std::vector<double> y;
};

std::vector<ReferenceCase> LoadReference() {
    std::ifstream in(std::string(SIGFILE_TEST_DATA_DIR) + "/formula/biquad_reference.txt");
    std::vector<ReferenceCase> cases;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string tag;
        words >> tag;
        if (tag == "case") {
            ReferenceCase c;
            words >> c.type >> c.order >> c.fs >> c.low >> c.high >> c.init >> c.offset >> c.count;
            cases.push_back(c);
        } else if (!cases.empty()) {
            cases.back().y.push_back(std::stod(line));
        }
    }
    return cases;
}

// The script's test signal, rounded to floats.
float TestSignal(int n, int fs, double offset) {
    const double pi = std::numbers::pi;
    double x = std::sin(2 * pi * 3 * n / fs) + 0.5 * std::sin(2 * pi * 17.3 * n / fs + 0.2) +
               0.25 * std::sin(2 * pi * 61 * n / fs + 1.1) + offset;
    if (n == 37) x += 0.8;
    return static_cast<float>(x);
}

TEST(BiquadTest, MatchesReferenceDesignsAndOutputs) {
    const std::vector<ReferenceCase> cases = LoadReference();
    ASSERT_EQ(cases.size(), 13u);
    for (const ReferenceCase& c : cases) {
        SCOPED_TRACE("type " + std::to_string(c.type) + " order " + std::to_string(c.order) + " fs " +
                     std::to_string(c.fs));
        ASSERT_EQ(c.y.size(), static_cast<size_t>(c.count));
        CBiquad filter(c.type, c.order, static_cast<float>(c.fs), static_cast<float>(c.low),
                       static_cast<float>(c.high));
        // A band filter of order n has n sections (2n poles), the others
        // ceil(n / 2).
        EXPECT_EQ(filter.GetNumSections(), c.type >= 3 ? c.order : (c.order + 1) / 2);
        filter.Init(static_cast<float>(c.init));
        double peak = 0;
        for (double v : c.y) peak = std::max(peak, std::fabs(v));
        for (int n = 0; n < c.count; ++n) {
            const float y = filter.Filter(TestSignal(n, c.fs, c.offset));
            const double ref = c.y[static_cast<size_t>(n)];
            // Relative to the sample, with a floor well below the signal so
            // that samples crossing zero do not demand absurd precision.
            ASSERT_NEAR(y, ref, 1e-4 * std::max(std::fabs(ref), 1e-2 * peak)) << "sample " << n;
        }
    }
}

TEST(BiquadTest, BlockFilteringEqualsSampleBySample) {
    CBiquad a(3, 4, 256.0f, 1.0f, 45.0f), b(3, 4, 256.0f, 1.0f, 45.0f);
    std::vector<float> x(1000), y(1000);
    for (int n = 0; n < 1000; ++n) x[static_cast<size_t>(n)] = TestSignal(n, 256, 0.3);
    // Blocks of uneven length, across the internal chunk size.
    int start = 0;
    for (int len : {1, 63, 300, 257, 379}) {
        b.Filter(x.data() + start, y.data() + start, len);
        start += len;
    }
    ASSERT_EQ(start, 1000);
    for (int n = 0; n < 1000; ++n) ASSERT_EQ(a.Filter(x[static_cast<size_t>(n)]), y[static_cast<size_t>(n)]) << n;
}

TEST(BiquadTest, InitSettlesToTheDcResponse) {
    // From the steady state of a constant, that constant keeps the output at
    // the filter's gain at zero frequency: 1 for low-pass and band-stop, 0
    // for high-pass and band-pass.
    const struct {
        int type;
        double gain;
    } shapes[] = {{1, 1.0}, {2, 0.0}, {3, 0.0}, {4, 1.0}};
    for (const auto& s : shapes) {
        for (int order : {1, 2, 7, 10}) {
            CBiquad f(s.type, order, 256.0f, 5.0f, 30.0f);
            f.Init(3.0f);
            for (int n = 0; n < 50; ++n)
                ASSERT_NEAR(f.Filter(3.0f), 3.0 * s.gain, 1e-5) << "type " << s.type << " order " << order;
        }
    }
}

TEST(BiquadTest, DegenerateSpecificationsStayStable) {
    auto run = [](CBiquad f) {
        std::vector<float> out;
        for (int n = 0; n < 20; ++n) out.push_back(f.Filter(static_cast<float>(n % 5) - 1.0f));
        return out;
    };
    std::vector<float> input;
    for (int n = 0; n < 20; ++n) input.push_back(static_cast<float>(n % 5) - 1.0f);
    const std::vector<float> zeros(20, 0.0f);

    // Outside the supported types and orders, or without a sampling
    // frequency: the signal passes unchanged.
    EXPECT_EQ(run(CBiquad(0, 4, 256.0f, 1.0f, 30.0f)), input);
    EXPECT_EQ(run(CBiquad(1, 0, 256.0f, 1.0f, 30.0f)), input);
    EXPECT_EQ(run(CBiquad(1, 11, 256.0f, 1.0f, 30.0f)), input);
    EXPECT_EQ(run(CBiquad(1, 4, 0.0f, 1.0f, 30.0f)), input);
    // Edges at 0 Hz or beyond Nyquist.
    EXPECT_EQ(run(CBiquad(1, 4, 256.0f, 0.0f, 0.0f)), zeros);     // low-pass at 0
    EXPECT_EQ(run(CBiquad(1, 4, 256.0f, 0.0f, 200.0f)), input);   // low-pass above Nyquist
    EXPECT_EQ(run(CBiquad(2, 4, 256.0f, 0.0f, 0.0f)), input);     // high-pass at 0
    EXPECT_EQ(run(CBiquad(2, 4, 256.0f, NAN, 0.0f)), input);      // NaN counts as 0
    EXPECT_EQ(run(CBiquad(3, 4, 256.0f, 30.0f, 10.0f)), zeros);   // empty band
    EXPECT_EQ(run(CBiquad(4, 4, 256.0f, 30.0f, 10.0f)), input);   // empty stop band
    EXPECT_EQ(run(CBiquad(3, 4, 256.0f, 0.0f, 300.0f)), input);   // band covering all
    EXPECT_EQ(run(CBiquad(4, 4, 256.0f, 0.0f, 300.0f)), zeros);

    // A band-pass whose low edge is at 0 Hz is the low-pass at its high edge.
    CBiquad bp(3, 3, 256.0f, 0.0f, 30.0f), lp(1, 3, 256.0f, 0.0f, 30.0f);
    for (int n = 0; n < 100; ++n) {
        const float x = TestSignal(n, 256, 0.0);
        ASSERT_EQ(bp.Filter(x), lp.Filter(x));
    }
}

}  // namespace
