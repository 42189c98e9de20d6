#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "recording/calib.h"
#include "records/SigRec.h"
#include "support/TestSupport.h"

using testsupport::AssertRecorder;
using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

namespace {

// Base calibration used by most tests: 2048 AD steps over 2 V, so one AD
// step is exactly 1/1024 V and the AD value 0 is 0 V.
constexpr int kAdMin = -1024;
constexpr int kAdMax = 1024;

CCalibration MakeCalibration(unsigned channels) {
    return CCalibration(channels, kAdMin, -1.0f, kAdMax, 1.0f, 256.0);
}

using Points = std::tuple<long, float, float, long, float, float>;  // ad1, volt1, world1, ad2, volt2, world2
Points PointsOf(const CCalibration& cal, unsigned c) {
    Points p;
    cal.GetCalibPoints(c, std::get<0>(p), std::get<1>(p), std::get<2>(p), std::get<3>(p), std::get<4>(p),
                       std::get<5>(p));
    return p;
}

std::pair<float, float> GainOf(const CCalibration& cal, unsigned c, unsigned unit) {
    float gain, offset;
    cal.GetCalibGain(c, gain, offset, unit);
    return {gain, offset};
}

std::pair<float, float> WorldRange(const CCalibration& cal, unsigned c) {
    float lo, hi;
    cal.GetWorldRange(c, lo, hi);
    return {lo, hi};
}

template <class Rec>
std::vector<typename Rec::Sample> Samples(const Rec& rec, unsigned c) {
    const auto* p = rec.GetAt(c);
    return {p, p + rec.GetNumSamples(c)};
}

template <class Rec>
void Fill(Rec& rec, unsigned c, std::initializer_list<typename Rec::Sample> values) {
    unsigned i = 0;
    for (auto v : values) rec.SetAt(c, i++, v);
}

// A calibration's full state as stored, for "unchanged" checks.
std::vector<BYTE> Snapshot(CCalibration& cal) {
    return StoreToBytes([&](CArchive& ar) { cal.Serialize(ar); });
}

}  // namespace

TEST(CalibrationTest, CreateGivesOneVoltPerUnitWithoutOffset) {
    CCalibration cal = MakeCalibration(3);
    EXPECT_EQ(cal.GetNumChannels(), 3u);
    EXPECT_EQ(cal.GetTrueFrequency(), 256.0);
    EXPECT_EQ(cal.GetNumBpos(), 0u);
    for (unsigned c = 0; c < 3; ++c) {
        EXPECT_EQ(GainOf(cal, c, 3), std::make_pair(1.0f, 0.0f));
        EXPECT_FLOAT_EQ(GainOf(cal, c, 1).first, 1e6f);
        EXPECT_FLOAT_EQ(GainOf(cal, c, 2).first, 1e3f);
        EXPECT_EQ(PointsOf(cal, c), Points(-1, 0.0f, 0.0f, -1, 1.0f, 1.0f));
        EXPECT_EQ(WorldRange(cal, c), std::make_pair(-1.0f, 1.0f));  // world = volts
        EXPECT_EQ(cal.GetWorldStep(c), 2.0f / 2048.0f);
    }
}

TEST(CalibrationTest, EvalKeepsItsOwnFormOfTheLine) {
    EXPECT_EQ(CCalibration::Eval(1, 2, 3, 4, 5), 6.0);
    // slope*x + (y1 - slope*x1); the form y1 + slope*(x - x1) gives
    // 0.15714285714285658 here.
    EXPECT_EQ(CCalibration::Eval(-7.3, 6.9, 5.3, -4.9, -0.1), 0.15714285714285692);
}

TEST(CalibrationTest, PointsUseTheBaseCalibrationNotTheirAdValues) {
    CCalibration cal = MakeCalibration(1);
    // 0.25 V is world 0 and 2.25 V world 1, so world = (V - 0.25) / 2.  The
    // AD values given with the points (7, 9) take no part.
    cal.SetCalibFromPoints(0, 7, 0.25f, 0.0f, 9, 2.25f, 1.0f);
    EXPECT_EQ(WorldRange(cal, 0), std::make_pair(-0.625f, 0.375f));
    EXPECT_EQ(cal.GetWorldStep(0), 1.0f / 2048.0f);
    EXPECT_EQ(PointsOf(cal, 0), Points(7, 0.25f, 0.0f, 9, 2.25f, 1.0f));
    EXPECT_EQ(GainOf(cal, 0, 3), std::make_pair(2.0f, 0.25f));
    EXPECT_EQ(cal.AdToWorld(0, 512), 0.125);  // 0.5 V
    EXPECT_EQ(cal.WorldToAd(0, 0.125), 512);
}

TEST(CalibrationTest, GainUnitScalesTheGainButNeverTheOffset) {
    CCalibration cal(2, -32768, -0.004f, 32767, 0.004f, 200.0);
    cal.SetCalibFromGain(0, 50.0f, 0.0f, 1);  // 50 uV per unit
    EXPECT_NEAR(GainOf(cal, 0, 1).first, 50.0f, 1e-3);
    EXPECT_NEAR(GainOf(cal, 0, 1).second, 0.0f, 1e-9);
    EXPECT_NEAR(GainOf(cal, 0, 3).first, 50e-6f, 1e-9);

    // The offset stays in volts whatever the unit: 1 mV is 1 mV.
    cal.SetCalibFromGain(0, 50.0f, 0.001f, 1);
    EXPECT_EQ(PointsOf(cal, 0), Points(-1, 0.001f, 0.0f, -1, static_cast<float>(50.0f * 0.0001 + 0.001f), 100.0f));
    EXPECT_NEAR(GainOf(cal, 0, 1).first, 50.0f, 1e-3);
    EXPECT_NEAR(GainOf(cal, 0, 1).second, 0.001f, 1e-7);
    cal.SetCalibFromGain(1, 2.0f, 0.001f, 2);  // 2 mV per unit
    EXPECT_EQ(PointsOf(cal, 1), Points(-1, 0.001f, 0.0f, -1, static_cast<float>(2.0f * 0.1 + 0.001f), 100.0f));
    EXPECT_NEAR(GainOf(cal, 1, 2).first, 2.0f, 1e-4);
    EXPECT_NEAR(GainOf(cal, 1, 2).second, 0.001f, 1e-7);
}

TEST(CalibrationTest, SingleValueConversionsTruncateAfterAddingAHalf) {
    CCalibration cal = MakeCalibration(1);
    cal.SetCalibFromGain(0, 2.0f, 0.0f, 3);  // world = V / 2: -0.5 .. 0.5, 1/2048 per step
    EXPECT_EQ(cal.AdToWorld(0, 512), 0.25);
    EXPECT_EQ(cal.WorldToAd(0, -0.5 + 2.5 / 2048), kAdMin + 3);  // 3.0 -> 3
    // Below the minimum, truncation toward zero biases by one step:
    // -0.75 + 0.5 = -0.25 -> 0.
    EXPECT_EQ(cal.WorldToAd(0, -0.5 - 0.75 / 2048), kAdMin);
    EXPECT_EQ(cal.WorldToAd(0, -0.5 - 1.75 / 2048), kAdMin - 1);

    EXPECT_EQ(cal.AdToVolt(512), 0.5);
    EXPECT_EQ(cal.VoltToAd(0.5), 512);
    EXPECT_EQ(cal.VoltToAd(-1.0 - 0.75 / 1024), kAdMin);
    EXPECT_EQ(cal.VoltToAd(-1.0 + 0.4 / 1024), kAdMin);
    EXPECT_EQ(cal.VoltToAd(-1.0 + 0.5 / 1024), kAdMin + 1);
}

TEST(CalibrationTest, CalibrateConvertsEveryChannelWithItsOwnStep) {
    CCalibration cal = MakeCalibration(3);
    cal.SetCalibFromGain(0, 2.0f, 0.0f, 3);   // world = V / 2
    cal.SetCalibFromGain(2, 0.5f, 0.25f, 3);  // world = (V - 0.25) * 2
    const unsigned short counts[3] = {2, 3, 1};
    CRawSigRec raw(3, counts);
    raw.SetTime(CSDateTime(45000.5));
    Fill(raw, 0, {512, kAdMin});
    Fill(raw, 1, {-512, 1024, 0});
    Fill(raw, 2, {768});  // 0.75 V
    CFmtSigRec fmt(3, counts);
    cal.Calibrate(&raw, &fmt);
    EXPECT_EQ(fmt.GetTime(), CSDateTime(45000.5));
    EXPECT_EQ(Samples(fmt, 0), std::vector<float>({0.25f, -0.5f}));
    EXPECT_EQ(Samples(fmt, 1), std::vector<float>({-0.5f, 1.0f, 0.0f}));
    EXPECT_EQ(Samples(fmt, 2), std::vector<float>({1.0f}));

    // Volts ignore the channels' points.
    CFmtSigRec volts(3, counts);
    cal.CalibrateAsVolts(&raw, &volts);
    EXPECT_EQ(volts.GetTime(), CSDateTime(45000.5));
    EXPECT_EQ(Samples(volts, 0), std::vector<float>({0.5f, -1.0f}));
    EXPECT_EQ(Samples(volts, 2), std::vector<float>({0.75f}));
}

TEST(CalibrationTest, CalibrateMatchesTheFormulaOverLongRuns) {
    // Runs longer than one vector block, with a tail, on every channel.
    CCalibration cal(2, -32768, -0.004f, 32767, 0.004f, 256.0);
    cal.SetCalibFromGain(0, 7.0f, 0.0f, 1);
    cal.SetCalibFromGain(1, 3.0f, 0.0005f, 2);
    const unsigned short counts[2] = {37, 21};
    CRawSigRec raw(2, counts);
    for (unsigned c = 0; c < 2; ++c)
        for (unsigned i = 0; i < counts[c]; ++i) raw.SetAt(c, i, static_cast<short>(i * 1771 - 32768 + c));
    CFmtSigRec fmt(2, counts);
    cal.Calibrate(&raw, &fmt);
    for (unsigned c = 0; c < 2; ++c)
        for (unsigned i = 0; i < counts[c]; ++i)
            EXPECT_EQ(fmt.GetAt(c, i), static_cast<float>(raw.GetAt(c, i) + 32768) * cal.GetWorldStep(c) +
                                           WorldRange(cal, c).first)
                << c << "," << i;
}

TEST(CalibrationTest, CalibrateStaysInsideBothRecords) {
    CCalibration cal = MakeCalibration(2);
    CRawSigRec raw(3, 4);
    CFmtSigRec fmt(3, 4);
    fmt.SetAll(9.0f);
    EXPECT_THROW(cal.Calibrate(&raw, &fmt), CInvalidArgException);  // more channels than calibrated
    EXPECT_EQ(fmt.GetAt(0, 0), 9.0f);

    // A formatted record smaller than the raw one receives what it can hold.
    CRawSigRec raw2(2, 8);
    raw2.SetAll(512);
    CFmtSigRec small(2, 3);
    cal.Calibrate(&raw2, &small);
    EXPECT_EQ(Samples(small, 1), std::vector<float>(3, 0.5f));
}

TEST(CalibrationTest, DecalibrateRoundsHalfAwayFromZeroAndAsVoltsTruncates) {
    CCalibration cal = MakeCalibration(1);  // world = volts, 1/1024 per step
    const float step = 1.0f / 1024;
    CFmtSigRec fmt(1, 5);
    fmt.SetTime(CSDateTime(100.25));
    // Half-way above the minimum, half-way below it, just below it, 0.5 V,
    // a quarter above a step.
    Fill(fmt, 0, {-1.0f + 2.5f * step, -1.0f - 2.5f * step, -1.0f - 0.75f * step, 0.5f, -1.0f + 2.25f * step});
    CRawSigRec raw(1, 5);
    cal.Decalibrate(&fmt, &raw);
    EXPECT_EQ(raw.GetTime(), CSDateTime(100.25));
    EXPECT_EQ(Samples(raw, 0), std::vector<short>({kAdMin + 3, kAdMin - 3, kAdMin - 1, 512, kAdMin + 2}));
    EXPECT_EQ(cal.WorldToAd(0, fmt.GetAt(0, 2)), kAdMin);  // where Decalibrate gives kAdMin - 1

    CRawSigRec rawVolts(1, 5);
    cal.DecalibrateAsVolts(&fmt, &rawVolts);
    EXPECT_EQ(rawVolts.GetTime(), CSDateTime(100.25));
    EXPECT_EQ(Samples(rawVolts, 0), std::vector<short>({kAdMin + 2, kAdMin - 2, kAdMin, 512, kAdMin + 2}));
}

TEST(CalibrationTest, DecalibratedValuesWrapToSixteenBits) {
    // One volt per AD step and world = volts.
    CCalibration cal(1, -32768, -32768.0f, 32767, 32767.0f, 1.0);
    CFmtSigRec fmt(1, 4);
    Fill(fmt, 0, {40000.0f, -40000.0f, 32767.0f, 32768.0f});
    const std::vector<short> wrapped = {40000 - 65536, -40000 + 65536, 32767, -32768};
    CRawSigRec raw(1, 4);
    cal.Decalibrate(&fmt, &raw);
    EXPECT_EQ(Samples(raw, 0), wrapped);
    cal.DecalibrateAsVolts(&fmt, &raw);
    EXPECT_EQ(Samples(raw, 0), wrapped);
}

TEST(CalibrationTest, RecordConversionsAssertOnShapeAndRangeAndGoOn) {
    CCalibration cal = MakeCalibration(2);
    cal.SetCalibFromPoints(1, -1, 0.0f, 5.0f, -1, 1.0f, 5.0f);  // flat: no slope
    const unsigned short fmtCounts[2] = {4, 4};
    const unsigned short rawCounts[2] = {4, 2};
    CFmtSigRec fmt(2, fmtCounts);
    fmt.SetAll(0.5f);
    CRawSigRec raw(2, rawCounts);
    CRawSigRec narrow(1, 4);
    CFmtSigRec narrowFmt(1, 4);
    CFmtSigRec wideFmt(2, fmtCounts);
    CCalibration flat(1, -10, 1.0f, 10, 1.0f, 1.0);
    CRawSigRec raw1(1, 1);
    CFmtSigRec fmt1(1, 1);
    AssertRecorder rec;
    cal.Decalibrate(&fmt, &raw);
    EXPECT_EQ(rec.hits, (std::vector<std::pair<std::string, int>>{{"calib", 448}, {"calib", 453}}));
    EXPECT_EQ(Samples(raw, 0), std::vector<short>(4, 512));  // converted all the same
    cal.Decalibrate(&fmt, &narrow);
    EXPECT_TRUE(rec.Saw("calib", 441));
    EXPECT_EQ(Samples(narrow, 0), std::vector<short>(4, 512));
    cal.CalibrateAsVolts(&raw, &narrowFmt);
    EXPECT_TRUE(rec.Saw("calib", 468));
    EXPECT_EQ(Samples(narrowFmt, 0), std::vector<float>(4, 0.5f));
    cal.CalibrateAsVolts(&raw, &wideFmt);
    EXPECT_TRUE(rec.Saw("calib", 474));
    cal.DecalibrateAsVolts(&fmt, &raw);
    EXPECT_TRUE(rec.Saw("calib", 494));
    flat.DecalibrateAsVolts(&fmt1, &raw1);
    EXPECT_TRUE(rec.Saw("calib", 489));
    flat.DecalibrateAsVolts(&fmt, &raw1);
    EXPECT_TRUE(rec.Saw("calib", 487));
}

TEST(CalibrationTest, ChannelIndexOutOfRangeAssertsThenThrows) {
    CCalibration cal = MakeCalibration(2);
    AssertRecorder rec;
    long l;
    float f;
    EXPECT_THROW(cal.SetCalibFromPoints(2, 0, 0, 0, 0, 1, 1), CInvalidArgException);
    EXPECT_THROW(cal.GetCalibPoints(2, l, f, f, l, f, f), CInvalidArgException);
    EXPECT_THROW(cal.SetCalibFromGain(2, 1, 0, 3), CInvalidArgException);
    EXPECT_THROW(cal.GetCalibGain(5, f, f, 3), CInvalidArgException);
    EXPECT_THROW(cal.AdToWorld(2, 0), CInvalidArgException);
    EXPECT_THROW(cal.WorldToAd(2, 0.0), CInvalidArgException);
    const std::vector<std::pair<std::string, int>> expected = {{"calib", 132}, {"calib", 163}, {"calib", 175},
                                                               {"calib", 202}, {"calib", 556}, {"calib", 567}};
    EXPECT_EQ(rec.hits, expected);
}

TEST(CalibrationTest, InsertChannelLeavesTheWorldStepsOfLaterChannelsStale) {
    CCalibration cal = MakeCalibration(3);
    cal.SetCalibFromGain(1, 2.0f, 0.0f, 3);  // world = V / 2, step 1/2048
    cal.SetCalibFromGain(2, 4.0f, 0.0f, 3);  // world = V / 4, step 1/4096
    EXPECT_EQ(cal.InsertChannel(1, 0.0f, 0.0f, 1.0f, 8.0f), 1);  // world = 8 V
    ASSERT_EQ(cal.GetNumChannels(), 4u);
    auto calibrateAt512 = [](const CCalibration& c) {  // 0.5 V on every channel
        CRawSigRec raw(c.GetNumChannels(), 1);
        raw.SetAll(512);
        CFmtSigRec fmt(c.GetNumChannels(), 1);
        c.Calibrate(&raw, &fmt);
        return std::vector<float>(fmt.GetData(), fmt.GetData() + fmt.GetTotalSamples());
    };
    // The old channel 1, now 2: AdToWorld uses the shifted arrays (0.25),
    // while Calibrate multiplies by the step left at index 2, the old
    // channel 2's 1/4096: 1536/4096 - 0.5.  Index 3 never had a step: its
    // values all map to the world minimum.
    EXPECT_EQ(cal.AdToWorld(2, 512), 0.25);
    EXPECT_EQ(calibrateAt512(cal), std::vector<float>({0.5f, 4.0f, -0.125f, -0.25f}));
    // A copy carries the stale table as it is.
    CCalibration copy(cal);
    EXPECT_EQ(calibrateAt512(copy), calibrateAt512(cal));

    // Setting the points again, or deleting a channel, brings them back.
    cal.SetCalibFromGain(2, 2.0f, 0.0f, 3);
    EXPECT_EQ(calibrateAt512(cal)[2], 0.25f);
    EXPECT_EQ(copy.DeleteChannel(0), 1);
    EXPECT_EQ(calibrateAt512(copy), std::vector<float>({4.0f, 0.25f, 0.125f}));
    EXPECT_EQ(cal.AddChannel(0.0f, 0.0f, 1.0f, 1.0f), 1);
    EXPECT_EQ(cal.AdToWorld(4, 512), 0.5);
}

TEST(CalibrationTest, ChannelEditingRefusesBadIndexesAndMoreThan128Channels) {
    CCalibration cal = MakeCalibration(2);
    const std::vector<BYTE> before = Snapshot(cal);
    {
        AssertRecorder rec;
        EXPECT_THROW(cal.InsertChannel(3, 0, 0, 1, 1), CInvalidArgException);
        EXPECT_TRUE(rec.Saw("calib", 514));
        // An index equal to the count passes the assertion and fails the removal.
        rec.hits.clear();
        EXPECT_THROW(cal.DeleteChannel(2), CInvalidArgException);
        EXPECT_TRUE(rec.hits.empty());
        EXPECT_THROW(cal.DeleteChannel(3), CInvalidArgException);
        EXPECT_TRUE(rec.Saw("calib", 531));
    }
    EXPECT_THROW(cal.Create(129, -1, -1.0f, 1, 1.0f, 1.0), CInvalidArgException);
    EXPECT_EQ(Snapshot(cal), before);

    CCalibration full = MakeCalibration(127);
    EXPECT_EQ(full.AddChannel(0, 0, 1, 1), 1);
    EXPECT_THROW(full.AddChannel(0, 0, 1, 1), CInvalidArgException);
    EXPECT_THROW(full.InsertChannel(0, 0, 0, 1, 1), CInvalidArgException);
    EXPECT_EQ(full.GetNumChannels(), 128u);
}

TEST(CalibrationTest, SetBaseCalibKeepsThePointsAndMovesTheDerivedValues) {
    CCalibration cal = MakeCalibration(1);
    cal.SetCalibFromGain(0, 2.0f, 0.0f, 3);
    cal.SetBaseCalib(-1024, -2.0f, 1024, 2.0f);  // now 1/512 V per step
    int adMin, adMax;
    float vMin, vMax;
    cal.GetBaseCalib(adMin, vMin, adMax, vMax);
    EXPECT_EQ(std::make_tuple(adMin, vMin, adMax, vMax), std::make_tuple(-1024, -2.0f, 1024, 2.0f));
    EXPECT_EQ(WorldRange(cal, 0), std::make_pair(-1.0f, 1.0f));
    EXPECT_EQ(GainOf(cal, 0, 3), std::make_pair(2.0f, 0.0f));
    EXPECT_EQ(cal.AdToWorld(0, 512), 0.5);  // 1 V
}

TEST(CalibrationTest, BposTableIsCarriedAndCheckedForRange) {
    CCalibration cal = MakeCalibration(1);
    cal.SetBposArrSize(2);
    cal.SetBposNamesAt(1, "Décubitus");
    EXPECT_THROW(cal.SetBposThresAt(2, 1), CInvalidArgException);
    EXPECT_THROW(cal.GetBposKeysAt(-1), CInvalidArgException);
    cal.SetNumBpos(5);  // the count only
    EXPECT_THROW(cal.GetBposUidAt(2), CInvalidArgException);
    CCalibration copy;
    copy = cal;
    EXPECT_EQ(copy.GetNumBpos(), 5u);
    EXPECT_EQ(copy.GetBposNamesAt(1), "Décubitus");
}

// ---------------------------------------------------------------------------
// Archive

namespace {

CCalibration MakeStoredExample() {
    CCalibration cal(2, -1024, -1.0f, 1024, 1.0f, 256.0);
    cal.SetCalibFromPoints(1, 10, 0.5f, 1.0f, 20, 1.0f, 3.0f);
    cal.SetBposArrSize(2);
    cal.SetBposThresAt(0, 100);
    cal.SetBposThresAt(1, 0x1234);
    cal.SetBposNamesAt(0, "Dos");
    cal.SetBposNamesAt(1, "Côté");
    cal.SetBposKeysAt(0, "B");
    cal.SetBposUidAt(1, 9);
    return cal;
}

// Items 2 to 7 of the example: frequency, base range, channel count.
Bytes ExampleHead(unsigned version) {
    return Bytes().u16(version).f64(256.0).u16(0xFC00).f32(-1.0f).u16(1024).f32(1.0f).u16(2);
}

Bytes ExamplePoints() {
    return Bytes()
        .i32(-1).i32(10)         // point-1 AD
        .f32(0.0f).f32(0.5f)     // point-1 volts
        .f32(0.0f).f32(1.0f)     // point-1 world
        .i32(-1).i32(20)         // point-2 AD
        .f32(1.0f).f32(1.0f)     // point-2 volts
        .f32(1.0f).f32(3.0f);    // point-2 world
}

}  // namespace

TEST(CalibrationTest, StoresVersion3ByteForByteAndReadsItBack) {
    CCalibration cal = MakeStoredExample();
    Bytes expected = ExampleHead(3).append(ExamplePoints());
    expected.u16(2)                                    // Bpos count
        .u16(2).u16(100).u16(0x1234)                   // thresholds
        .u16(2).str("Dos").str("C\xF4t\xE9")           // names (Windows-1252)
        .u16(2).str("B").str("")                       // keys
        .u16(2).u16(0).u16(9);                         // uids
    EXPECT_EQ(Snapshot(cal), expected.data);

    // As an object: class record, then the same body.
    const std::vector<BYTE> object = StoreToBytes([&](CArchive& ar) { ar << &cal; });
    EXPECT_EQ(object, Bytes().newClass("CCalibration").append(expected).data);

    CCalibration* loaded = nullptr;
    LoadFromBytes(object, [&](CArchive& ar) { ar >> loaded; });
    std::unique_ptr<CCalibration> owner(loaded);
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(Snapshot(*loaded), expected.data);
    // The derived values are rebuilt: channel 1 has world 1 at 0.5 V (AD 512)
    // and 3 at 1 V (AD 1024), so 4 world units per volt, -5 at the AD minimum.
    EXPECT_EQ(WorldRange(*loaded, 1), std::make_pair(-5.0f, 3.0f));
    EXPECT_EQ(loaded->GetWorldStep(1), 8.0f / 2048.0f);
    EXPECT_EQ(loaded->AdToWorld(0, 512), 0.5);
}

TEST(CalibrationTest, ReadsVersion1SkippingOneWordPerChannel) {
    Bytes v1 = ExampleHead(1);
    v1.u16(0xBEEF).u16(0xDEAD);  // the dropped per-channel WORDs
    v1.append(ExamplePoints());
    CCalibration cal = MakeCalibration(1);
    cal.SetBposArrSize(1);
    cal.SetBposNamesAt(0, "kept");
    LoadFromBytes(v1.data, [&](CArchive& ar) { cal.Serialize(ar); });
    EXPECT_EQ(cal.GetNumChannels(), 2u);
    EXPECT_EQ(cal.GetTrueFrequency(), 256.0);
    EXPECT_EQ(PointsOf(cal, 1), Points(10, 0.5f, 1.0f, 20, 1.0f, 3.0f));
    EXPECT_EQ(WorldRange(cal, 1), std::make_pair(-5.0f, 3.0f));
    // No Bpos table in version 1: the one there stays.
    EXPECT_EQ(cal.GetNumBpos(), 1u);
    EXPECT_EQ(cal.GetBposNamesAt(0), "kept");
}

TEST(CalibrationTest, ReadsVersion2WithoutBposTable) {
    Bytes v2 = ExampleHead(2).append(ExamplePoints());
    CCalibration cal = MakeStoredExample();
    cal.SetBposNamesAt(0, "kept");
    LoadFromBytes(v2.data, [&](CArchive& ar) {
        cal.Serialize(ar);
        EXPECT_EQ(ar.GetRemaining(), 0u);
    });
    EXPECT_EQ(cal.GetNumChannels(), 2u);
    EXPECT_EQ(cal.AdToWorld(1, 512), 1.0);
    EXPECT_EQ(cal.GetNumBpos(), 2u);
    EXPECT_EQ(cal.GetBposNamesAt(0), "kept");
}

TEST(CalibrationTest, RefusedOrTruncatedArchivesChangeNothing) {
    CCalibration cal = MakeStoredExample();
    const std::vector<BYTE> before = Snapshot(cal);
    auto expectCause = [&](const std::vector<BYTE>& bytes, int cause) {
        try {
            LoadFromBytes(bytes, [&](CArchive& ar) { cal.Serialize(ar); });
            ADD_FAILURE() << "no exception";
        } catch (const CArchiveException& e) {
            EXPECT_EQ(e.m_cause, cause);
        }
        EXPECT_EQ(Snapshot(cal), before);
    };
    // Version 4 is newer than this program.
    expectCause(ExampleHead(4).append(ExamplePoints()).data, CArchiveException::badSchema);
    // Cut in the middle of the point blocks, and in the Bpos table.
    std::vector<BYTE> cut = before;
    cut.resize(40);
    expectCause(cut, CArchiveException::endOfFile);
    cut = before;
    cut.resize(before.size() - 3);
    expectCause(cut, CArchiveException::endOfFile);
    // A channel count that the data cannot hold is refused before allocating.
    expectCause(Bytes().u16(3).f64(1).u16(0).f32(0).u16(1).f32(1).u16(100).u32(0).data,
                CArchiveException::endOfFile);
    // More channels than a calibration serves.
    Bytes wide = Bytes().u16(3).f64(1).u16(0).f32(0).u16(1).f32(1).u16(129);
    for (int i = 0; i < 129 * 6; ++i) wide.u32(0);
    expectCause(wide.data, CArchiveException::genericException);
}
