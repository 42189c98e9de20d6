// The computations behind the pictures: sleep figures from stage lists,
// page scaling, bounded trace buffers and the spectrogram matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "PlotLayout.h"
#include "SleepFigures.h"
#include "Spectrogram.h"

using namespace sigplot;

namespace {

// A night scored by hand (seconds): 10 min awake, asleep at 600 s, one
// 1-minute awakening, REM from 4200 s, 5 min awake at the end.
std::vector<StageSpan> HandNight() {
    return {{0, 600, Stage::Wake},     {600, 900, Stage::N1},    {900, 2700, Stage::N2},
            {2700, 3600, Stage::N3},   {3600, 3660, Stage::Wake}, {3660, 4200, Stage::N2},
            {4200, 5400, Stage::Rem},  {5400, 5700, Stage::Wake}};
}

}  // namespace

TEST(PlotSleepFigures, HandScoredNight) {
    const SleepFigures f = ComputeSleepFigures(HandNight());
    EXPECT_DOUBLE_EQ(f.timeInBed, 95.0);
    EXPECT_DOUBLE_EQ(f.totalSleep, 79.0);
    EXPECT_NEAR(f.efficiency, 100.0 * 79.0 / 95.0, 1e-9);
    EXPECT_DOUBLE_EQ(f.sleepLatency, 10.0);
    EXPECT_DOUBLE_EQ(f.remLatency, 60.0);  // from sleep onset, not from lights off
    EXPECT_EQ(f.awakenings, 1);            // the final wake is not followed by sleep
    EXPECT_DOUBLE_EQ(f.wakeAfterSleepOnset, 1.0);
    EXPECT_DOUBLE_EQ(f.minutes[size_t(Stage::Wake)], 16.0);
    EXPECT_DOUBLE_EQ(f.minutes[size_t(Stage::N2)], 39.0);
    EXPECT_DOUBLE_EQ(f.minutes[size_t(Stage::Rem)], 20.0);
    EXPECT_NEAR(f.percent[size_t(Stage::N2)], 100.0 * 39.0 / 79.0, 1e-9);
    EXPECT_NEAR(f.percent[size_t(Stage::Wake)], 100.0 * 16.0 / 95.0, 1e-9);
    double sleepPercent = 0;
    for (Stage s : {Stage::N1, Stage::N2, Stage::N3, Stage::Rem}) sleepPercent += f.percent[size_t(s)];
    EXPECT_NEAR(sleepPercent, 100.0, 1e-9);
}

TEST(PlotSleepFigures, OrderOverlapsAndUnscoredSpans) {
    std::vector<StageSpan> spans = HandNight();
    std::swap(spans[1], spans[6]);  // out of order
    spans.push_back({5700, 5760, Stage::Unknown});  // unscored minute at the end
    spans.push_back({950, 1000, Stage::Wake});     // inside the N2 span: clipped away
    spans.push_back({3000, 2000, Stage::N1});      // reversed: dropped
    const SleepFigures f = ComputeSleepFigures(spans);
    EXPECT_DOUBLE_EQ(f.timeInBed, 96.0);  // the unscored minute is time in bed
    EXPECT_DOUBLE_EQ(f.totalSleep, 79.0);
    EXPECT_DOUBLE_EQ(f.scoredTime, 96.0);
    EXPECT_EQ(f.awakenings, 1);
}

TEST(PlotSleepFigures, TwoAwakeningsAndNoSleep) {
    const std::vector<StageSpan> spans = {{0, 30, Stage::N2},   {30, 60, Stage::Wake}, {60, 90, Stage::Wake},
                                          {90, 120, Stage::N2}, {120, 150, Stage::Wake}, {150, 180, Stage::N1}};
    const SleepFigures f = ComputeSleepFigures(spans);
    EXPECT_EQ(f.awakenings, 2);  // two consecutive W epochs are one awakening
    EXPECT_DOUBLE_EQ(f.sleepLatency, 0.0);
    EXPECT_LT(f.remLatency, 0.0);  // no REM

    const SleepFigures awake = ComputeSleepFigures({{0, 600, Stage::Wake}});
    EXPECT_LT(awake.sleepLatency, 0.0);
    EXPECT_DOUBLE_EQ(awake.efficiency, 0.0);
    EXPECT_DOUBLE_EQ(awake.percent[size_t(Stage::N2)], 0.0);  // no division by a zero sleep time
    const SleepFigures none = ComputeSleepFigures({});
    EXPECT_DOUBLE_EQ(none.timeInBed, 0.0);
}

TEST(PlotSleepFigures, StageNamesOfTheFormats) {
    EXPECT_EQ(StageOfName("W"), Stage::Wake);
    EXPECT_EQ(StageOfName("REM"), Stage::Rem);
    EXPECT_EQ(StageOfName("r"), Stage::Rem);
    EXPECT_EQ(StageOfName("Sleep stage N2"), Stage::N2);
    EXPECT_EQ(StageOfName("Sleep_stage_R"), Stage::Rem);
    EXPECT_EQ(StageOfName("N4"), Stage::N3);
    EXPECT_EQ(StageOfName("S3"), Stage::N3);
    EXPECT_EQ(StageOfName("?"), Stage::Unknown);
    EXPECT_EQ(StageOfName(""), Stage::Unknown);
    EXPECT_EQ(HypnogramRow(Stage::Wake), 0);
    EXPECT_EQ(HypnogramRow(Stage::Rem), 1);
    EXPECT_EQ(HypnogramRow(Stage::N3), 4);
    EXPECT_EQ(HypnogramRow(Stage::Unknown), -1);
}

TEST(PlotSleepFigures, NightsSplitAtLongGaps) {
    std::vector<StageSpan> spans = HandNight();
    for (StageSpan s : HandNight()) spans.push_back({s.begin + 86400, s.end + 86400, s.stage});
    const auto nights = SplitNights(spans);
    ASSERT_EQ(nights.size(), 2u);
    EXPECT_EQ(nights[0].size(), 8u);
    EXPECT_DOUBLE_EQ(nights[1].front().begin, 86400.0);
    EXPECT_EQ(SplitNights(HandNight()).size(), 1u);
}

TEST(PlotLayout, SensitivityScalesMicrovoltsToPoints) {
    const PageLayout layout(kPageWidth, kPageHeight, 100.0, 10.0, 4, 7.0);
    // 70 µV at 7 µV/mm: 10 mm above the baseline.
    EXPECT_NEAR(layout.Baseline(2) - layout.Y(2, 70.0), 10.0 * kPointsPerMm, 1e-9);
    EXPECT_NEAR(layout.Y(1, -35.0) - layout.Baseline(1), 5.0 * kPointsPerMm, 1e-9);
    EXPECT_DOUBLE_EQ(layout.X(100.0), layout.Plot().x);
    EXPECT_DOUBLE_EQ(layout.X(110.0), layout.Plot().Right());
    EXPECT_NEAR(layout.Baseline(3) - layout.Baseline(2), layout.Plot().h / 4, 1e-9);
    EXPECT_GT(layout.Baseline(0), layout.Plot().y);
    EXPECT_LT(layout.Baseline(3), layout.Plot().Bottom());
    // The bar is a round value drawn between 7 and 14 mm.
    for (double s : {1.0, 3.0, 7.0, 10.0, 30.0, 100.0}) {
        const PageLayout l(kPageWidth, kPageHeight, 0, 10, 1, s);
        const double mm = l.BarMicrovolts() / s;
        EXPECT_GE(mm, 3.5) << s;
        EXPECT_LE(mm, 14.0) << s;
    }
}

TEST(PlotLayout, TicksAndClock) {
    EXPECT_EQ(Ticks(0.5, 3.2, 1.0), (std::vector<double>{1, 2, 3}));
    EXPECT_TRUE(Ticks(0, 1e9, 1e-3).empty());  // refused, not ten billion ticks
    EXPECT_FALSE(std::signbit(Ticks(-0.2, 1, 1)[0]));
    EXPECT_DOUBLE_EQ(NiceTimeStep(30, 15), 2.0);
    EXPECT_DOUBLE_EQ(NiceTimeStep(8 * 3600, 10), 3600.0);
    EXPECT_EQ(ClockText(22 * 3600 + 5 * 60 + 7), "22:05:07");
    EXPECT_EQ(ClockText(86400 + 61), "00:01:01");  // past midnight
    EXPECT_EQ(ClockText(-1), "23:59:59");
}

TEST(PlotLayout, TraceBufferIsBoundedAndKeepsExtremes) {
    // An hour at 256 Hz into 1000 buckets: ranges, not a million points.
    TraceBuffer buffer(0, 3600, 256, 1000);
    for (long i = 0; i < 3600L * 256; ++i) {
        const double t = i / 256.0;
        buffer.Add(t, static_cast<float>(i == 500000 ? 900.0 : std::sin(t)));
    }
    buffer.Finish();
    EXPECT_LE(buffer.Points().size(), 1001u);
    float lo, hi;
    TraceRange(buffer.Points(), lo, hi);
    EXPECT_FLOAT_EQ(hi, 900.0f);  // a one-sample spike survives
    EXPECT_NEAR(lo, -1.0f, 1e-3);

    // Few samples per bucket: the samples themselves, a break between them.
    TraceBuffer raw(0, 10, 100, 1600);
    raw.Add(0.0, 1.0f);
    raw.Add(0.01, 2.0f);
    raw.Break();
    raw.Add(0.02, 3.0f);
    raw.Finish();
    ASSERT_EQ(raw.Points().size(), 4u);
    EXPECT_TRUE(std::isnan(raw.Points()[2].lo));
}

TEST(PlotLayout, TextsBecomeValidUtf8) {
    EXPECT_EQ(ValidUtf8("H\xC3\xA9l\xC3\xA8ne \xC2\xB5V"), "H\xC3\xA9l\xC3\xA8ne \xC2\xB5V");  // kept
    EXPECT_EQ(ValidUtf8("H\xE9l\xE8ne"), "H?l?ne");         // Latin-1
    EXPECT_EQ(ValidUtf8("a\xC3"), "a?");                      // cut short
    EXPECT_EQ(ValidUtf8("\xC0\xAF"), "??");                  // overlong '/'
    EXPECT_EQ(ValidUtf8("\xED\xA0\x80"), "???");            // surrogate
    EXPECT_EQ(ValidUtf8("\xF4\x90\x80\x80"), "????");      // past U+10FFFF
    EXPECT_EQ(ValidUtf8("\xF0\x9F\x98\x80"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(ValidUtf8(std::string("a\0b\n", 4)), "a?b?");  // controls
}

TEST(PlotLayout, RobustRangeLeavesRareExcursionsOut) {
    std::vector<TracePoint> points;
    for (int i = 0; i < 1000; ++i) points.push_back({i * 0.01, float(i % 100), float(i % 100)});
    points[10].hi = 1e6f;                          // one spike
    points.push_back({10.0, NAN, 0.0f});           // a break is no value
    float lo, hi;
    ASSERT_TRUE(RobustRange(points, 0.1, lo, hi));
    EXPECT_NEAR(lo, 10.0f, 1.0f);
    EXPECT_NEAR(hi, 89.0f, 1.0f);
    ASSERT_TRUE(RobustRange(points, 0.0, lo, hi));
    EXPECT_FLOAT_EQ(hi, 1e6f);
    EXPECT_FALSE(RobustRange({}, 0.1, lo, hi));
}

TEST(PlotSpectrogram, PureToneIsBrightestAtItsFrequency) {
    const double rate = 256, tone = 12.5;
    SpectrogramBuilder builder(rate, 30, 30, 300);
    ASSERT_TRUE(builder.IsValid());
    EXPECT_EQ(builder.FftLength(), 512u);
    std::vector<float> second(256);
    for (int s = 0; s < 300; ++s) {
        for (int i = 0; i < 256; ++i)
            second[size_t(i)] = static_cast<float>(40.0 * std::sin(2 * std::numbers::pi * tone * (s + i / rate)));
        builder.Add(s, second.data(), second.size());
    }
    const SpectrogramMatrix m = builder.Finish("C3");
    EXPECT_EQ(m.columns, 10u);
    EXPECT_DOUBLE_EQ(m.freqRes, 0.5);
    EXPECT_EQ(m.bins, 61u);  // 0 to 30 Hz
    EXPECT_NEAR(m.BrightestBin() * m.freqRes, tone, m.freqRes);
    // A 40-unit sine has a power of 800 unit^2: the band around it holds it.
    double power = 0;
    for (unsigned k = 0; k < m.bins; ++k) power += std::pow(10.0, m.At(4, k) / 10.0) * m.freqRes;
    EXPECT_NEAR(power, 800.0, 800.0 * 0.05);
    for (unsigned c = 0; c < m.columns; ++c) EXPECT_TRUE(std::isfinite(m.At(c, 25)));
}

TEST(PlotSpectrogram, GapsAndShortRecordings) {
    SpectrogramBuilder builder(256, 10, 40, 60);
    std::vector<float> samples(256, 1.0f);
    builder.Add(0, samples.data(), samples.size());   // 1 s: not a whole 2-s epoch
    builder.Add(20, samples.data(), samples.size());  // jumps: the partial epoch is dropped
    builder.Add(21, samples.data(), samples.size());
    builder.Break();
    builder.Add(40, samples.data(), 100);
    const SpectrogramMatrix m = builder.Finish("x");
    EXPECT_EQ(m.columns, 6u);
    EXPECT_TRUE(std::isnan(m.At(0, 3)));   // nothing computed in the first column
    EXPECT_TRUE(std::isfinite(m.At(2, 3)));  // the epoch at 20 s
    EXPECT_TRUE(std::isnan(m.At(4, 3)));
    // Rates too low for an FFT epoch, or nonsense, give no builder.
    EXPECT_FALSE(SpectrogramBuilder(2, 30, 30, 100).IsValid());
    EXPECT_FALSE(SpectrogramBuilder(NAN, 30, 30, 100).IsValid());
    EXPECT_FALSE(SpectrogramBuilder(256, 30, 30, 0).IsValid());
    float lo, hi;
    EXPECT_FALSE(SpectrogramMatrix().Levels(lo, hi));
}

TEST(PlotSpectrogram, ColumnsAndColours) {
    EXPECT_DOUBLE_EQ(ColumnSecondsFor(8 * 3600, 2), 30.0);
    EXPECT_DOUBLE_EQ(ColumnSecondsFor(600, 2), 2.0);
    double r0, g0, b0, r1, g1, b1;
    ColourOf(0, r0, g0, b0);
    ColourOf(1, r1, g1, b1);
    EXPECT_GT(r1 + g1, r0 + g0 + 1.0);  // high levels are bright
    ColourOf(NAN, r1, g1, b1);
    EXPECT_DOUBLE_EQ(r1, r0);
    ColourOf(7, r1, g1, b1);  // clamped
    EXPECT_LE(r1, 1.0);
}
