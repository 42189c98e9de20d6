#include <gtest/gtest.h>

#include <memory>

#include "recording/calib.h"
#include "sigfile/SigRec.h"
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

float WorldAtAdMin(const CCalibration& cal, unsigned channel) {
    float lo, hi;
    cal.GetWorldRange(channel, lo, hi);
    return lo;
}

// A calibration's full state as stored, for "unchanged" checks.
std::vector<BYTE> Snapshot(CCalibration& cal) {
    return StoreToBytes([&](CArchive& ar) { cal.Serialize(ar); });
}

}  // namespace

TEST(CalibrationTest, CreateGivesOneVoltPerUnitWithoutOffset) {
    CCalibration cal = MakeCalibration(3);
    EXPECT_EQ(cal.GetNumChannels(), 3u);
    EXPECT_EQ(cal.GetAdMin(), kAdMin);
    EXPECT_EQ(cal.GetAdMax(), kAdMax);
    EXPECT_EQ(cal.GetTrueFrequency(), 256.0);
    EXPECT_EQ(cal.GetNumBpos(), 0u);
    for (unsigned c = 0; c < 3; ++c) {
        float gain, offset;
        cal.GetCalibGain(c, gain, offset, 3);
        EXPECT_EQ(gain, 1.0f);
        EXPECT_EQ(offset, 0.0f);
        cal.GetCalibGain(c, gain, offset, 1);
        EXPECT_FLOAT_EQ(gain, 1e6f);
        cal.GetCalibGain(c, gain, offset, 2);
        EXPECT_FLOAT_EQ(gain, 1e3f);
        long ad1, ad2;
        float v1, w1, v2, w2;
        cal.GetCalibPoints(c, ad1, v1, w1, ad2, v2, w2);
        EXPECT_EQ(ad1, -1);
        EXPECT_EQ(v1, 0.0f);
        EXPECT_EQ(w1, 0.0f);
        EXPECT_EQ(ad2, -1);
        EXPECT_EQ(v2, 1.0f);
        EXPECT_EQ(w2, 1.0f);
        // World = volts: -1 at the AD minimum, +1 at the maximum.
        EXPECT_EQ(WorldAtAdMin(cal, c), -1.0f);
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
    float lo, hi;
    cal.GetWorldRange(0, lo, hi);
    EXPECT_EQ(lo, -0.625f);
    EXPECT_EQ(hi, 0.375f);
    EXPECT_EQ(cal.GetWorldStep(0), 1.0f / 2048.0f);
    long ad1, ad2;
    float v1, w1, v2, w2;
    cal.GetCalibPoints(0, ad1, v1, w1, ad2, v2, w2);
    EXPECT_EQ(ad1, 7);
    EXPECT_EQ(ad2, 9);
    EXPECT_EQ(v2, 2.25f);
    float gain, offset;
    cal.GetCalibGain(0, gain, offset, 3);
    EXPECT_EQ(gain, 2.0f);
    EXPECT_EQ(offset, 0.25f);
    EXPECT_EQ(cal.AdToWorld(0, 512), 0.125);  // 0.5 V
    EXPECT_EQ(cal.WorldToAd(0, 0.125), 512);
}

TEST(CalibrationTest, GainUnitScalesTheGainButNeverTheOffset) {
    CCalibration cal(2, -32768, -0.004f, 32767, 0.004f, 200.0);
    float gain, offset;
    cal.SetCalibFromGain(0, 50.0f, 0.0f, 1);  // 50 uV per unit
    cal.GetCalibGain(0, gain, offset, 1);
    EXPECT_NEAR(gain, 50.0f, 1e-3);
    EXPECT_EQ(offset, 0.0f);
    cal.GetCalibGain(0, gain, offset, 3);
    EXPECT_NEAR(gain, 50e-6f, 1e-9);

    // The offset is in volts whatever the unit: 1 mV stays 1 mV.
    cal.SetCalibFromGain(1, 2.0f, 0.001f, 2);  // 2 mV per unit, 1 mV at world 0
    cal.GetCalibGain(1, gain, offset, 2);
    EXPECT_NEAR(gain, 2.0f, 1e-4);
    EXPECT_NEAR(offset, 0.001f, 1e-7);
    long ad1, ad2;
    float v1, w1, v2, w2;
    cal.GetCalibPoints(1, ad1, v1, w1, ad2, v2, w2);
    EXPECT_EQ(v1, 0.001f);
    EXPECT_EQ(w1, 0.0f);
    EXPECT_EQ(v2, static_cast<float>(2.0f * 0.1 + 0.001f));  // volts at world 100
    EXPECT_EQ(w2, 100.0f);

    cal.SetCalibFromGain(0, 50.0f, 0.001f, 1);  // 50 uV per unit, 1 mV at world 0
    cal.GetCalibPoints(0, ad1, v1, w1, ad2, v2, w2);
    EXPECT_EQ(v1, 0.001f);
    EXPECT_EQ(v2, static_cast<float>(50.0f * 0.0001 + 0.001f));
    cal.GetCalibGain(0, gain, offset, 1);
    EXPECT_NEAR(gain, 50.0f, 1e-3);
    EXPECT_NEAR(offset, 0.001f, 1e-7);
}

TEST(CalibrationTest, SingleValueConversionsTruncateAfterAddingAHalf) {
    CCalibration cal = MakeCalibration(1);
    cal.SetCalibFromGain(0, 2.0f, 0.0f, 3);  // world = V / 2: -0.5 .. 0.5, 1/2048 per step
    EXPECT_EQ(cal.AdToWorld(0, 512), 0.25);
    EXPECT_EQ(cal.AdToWorld(0, kAdMin), -0.5);
    // 2.5 steps above the minimum: 3.0 truncates to 3.
    EXPECT_EQ(cal.WorldToAd(0, -0.5 + 2.5 / 2048), kAdMin + 3);
    // 0.75 steps below the minimum: -0.25 truncates toward zero, to the
    // minimum itself rather than one below.
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
    cal.SetCalibFromGain(0, 2.0f, 0.0f, 3);    // world = V / 2
    cal.SetCalibFromGain(2, 0.5f, 0.25f, 3);   // world = (V - 0.25) * 2
    const unsigned short counts[3] = {2, 3, 1};
    CRawSigRec raw(3, counts);
    raw.SetTime(CSDateTime(45000.5));
    raw.SetAt(0, 0, 512);
    raw.SetAt(0, 1, kAdMin);
    raw.SetAt(1, 0, -512);
    raw.SetAt(1, 1, 1024);
    raw.SetAt(1, 2, 0);
    raw.SetAt(2, 0, 768);  // 0.75 V
    CFmtSigRec fmt(3, counts);
    cal.Calibrate(&raw, &fmt);
    EXPECT_EQ(fmt.GetTime(), CSDateTime(45000.5));
    EXPECT_EQ(fmt.GetAt(0, 0), 0.25f);
    EXPECT_EQ(fmt.GetAt(0, 1), -0.5f);
    EXPECT_EQ(fmt.GetAt(1, 0), -0.5f);
    EXPECT_EQ(fmt.GetAt(1, 1), 1.0f);
    EXPECT_EQ(fmt.GetAt(1, 2), 0.0f);
    EXPECT_EQ(fmt.GetAt(2, 0), 1.0f);

    // Volts ignore the channels' points.
    CFmtSigRec volts(3, counts);
    cal.CalibrateAsVolts(&raw, &volts);
    EXPECT_EQ(volts.GetTime(), CSDateTime(45000.5));
    EXPECT_EQ(volts.GetAt(0, 0), 0.5f);
    EXPECT_EQ(volts.GetAt(2, 0), 0.75f);
    EXPECT_EQ(volts.GetAt(1, 1), 1.0f);
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
    for (unsigned c = 0; c < 2; ++c) {
        const float step = cal.GetWorldStep(c);
        const float base = WorldAtAdMin(cal, c);
        for (unsigned i = 0; i < counts[c]; ++i) {
            const float expected = static_cast<float>(raw.GetAt(c, i) - cal.GetAdMin()) * step + base;
            EXPECT_EQ(fmt.GetAt(c, i), expected) << c << "," << i;
        }
    }
}

TEST(CalibrationTest, CalibrateOfARecordWiderThanTheCalibrationIsRefused) {
    CCalibration cal = MakeCalibration(2);
    CRawSigRec raw(3, 4);
    CFmtSigRec fmt(3, 4);
    fmt.SetAll(9.0f);
    EXPECT_THROW(cal.Calibrate(&raw, &fmt), CInvalidArgException);
    EXPECT_EQ(fmt.GetAt(0, 0), 9.0f);

    // A formatted record smaller than the raw one receives what it can hold.
    CRawSigRec raw2(2, 8);
    raw2.SetAll(512);
    CFmtSigRec small(2, 3);
    cal.Calibrate(&raw2, &small);
    EXPECT_EQ(small.GetAt(1, 2), 0.5f);
}

TEST(CalibrationTest, DecalibrateRoundsHalfAwayFromZeroAndAsVoltsTruncates) {
    CCalibration cal = MakeCalibration(1);  // world = volts, 1/1024 per step
    const float step = 1.0f / 1024;
    CFmtSigRec fmt(1, 5);
    fmt.SetTime(CSDateTime(100.25));
    fmt.SetAt(0, 0, -1.0f + 2.5f * step);   // half-way above the minimum
    fmt.SetAt(0, 1, -1.0f - 2.5f * step);   // half-way below it
    fmt.SetAt(0, 2, -1.0f - 0.75f * step);  // just below it
    fmt.SetAt(0, 3, 0.5f);
    fmt.SetAt(0, 4, -1.0f + 2.25f * step);
    CRawSigRec raw(1, 5);
    cal.Decalibrate(&fmt, &raw);
    EXPECT_EQ(raw.GetTime(), CSDateTime(100.25));
    EXPECT_EQ(raw.GetAt(0, 0), kAdMin + 3);
    EXPECT_EQ(raw.GetAt(0, 1), kAdMin - 3);
    EXPECT_EQ(raw.GetAt(0, 2), kAdMin - 1);  // WorldToAd gives kAdMin here
    EXPECT_EQ(cal.WorldToAd(0, fmt.GetAt(0, 2)), kAdMin);
    EXPECT_EQ(raw.GetAt(0, 3), 512);
    EXPECT_EQ(raw.GetAt(0, 4), kAdMin + 2);

    CRawSigRec rawVolts(1, 5);
    cal.DecalibrateAsVolts(&fmt, &rawVolts);
    EXPECT_EQ(rawVolts.GetTime(), CSDateTime(100.25));
    EXPECT_EQ(rawVolts.GetAt(0, 0), kAdMin + 2);  // the lower step
    EXPECT_EQ(rawVolts.GetAt(0, 1), kAdMin - 2);  // toward zero
    EXPECT_EQ(rawVolts.GetAt(0, 2), kAdMin);
    EXPECT_EQ(rawVolts.GetAt(0, 3), 512);
    EXPECT_EQ(rawVolts.GetAt(0, 4), kAdMin + 2);
}

TEST(CalibrationTest, DecalibratedValuesWrapToSixteenBits) {
    // One volt per AD step and world = volts.
    CCalibration cal(1, -32768, -32768.0f, 32767, 32767.0f, 1.0);
    CFmtSigRec fmt(1, 4);
    fmt.SetAt(0, 0, 40000.0f);
    fmt.SetAt(0, 1, -40000.0f);
    fmt.SetAt(0, 2, 32767.0f);
    fmt.SetAt(0, 3, 32768.0f);
    CRawSigRec raw(1, 4);
    cal.Decalibrate(&fmt, &raw);
    EXPECT_EQ(raw.GetAt(0, 0), 40000 - 65536);
    EXPECT_EQ(raw.GetAt(0, 1), -40000 + 65536);
    EXPECT_EQ(raw.GetAt(0, 2), 32767);
    EXPECT_EQ(raw.GetAt(0, 3), -32768);
    CRawSigRec rawVolts(1, 4);
    cal.DecalibrateAsVolts(&fmt, &rawVolts);
    EXPECT_EQ(rawVolts.GetAt(0, 0), 40000 - 65536);
    EXPECT_EQ(rawVolts.GetAt(0, 1), -40000 + 65536);
    EXPECT_EQ(rawVolts.GetAt(0, 3), -32768);
}

TEST(CalibrationTest, RecordConversionsAssertOnShapeAndRangeAndGoOn) {
    CCalibration cal = MakeCalibration(2);
    cal.SetCalibFromPoints(1, -1, 0.0f, 5.0f, -1, 1.0f, 5.0f);  // flat: no slope
    const unsigned short fmtCounts[2] = {4, 4};
    const unsigned short rawCounts[2] = {4, 2};
    CFmtSigRec fmt(2, fmtCounts);
    fmt.SetAll(0.5f);
    CRawSigRec raw(2, rawCounts);
    {
        AssertRecorder rec;
        cal.Decalibrate(&fmt, &raw);
        EXPECT_TRUE(rec.Saw("calib", 448));
        EXPECT_TRUE(rec.Saw("calib", 453));
        EXPECT_FALSE(rec.Saw("calib", 441));
        EXPECT_EQ(raw.GetAt(0, 3), 512);  // channel 0 converted all the same
    }
    {
        AssertRecorder rec;
        CRawSigRec narrow(1, 4);
        cal.Decalibrate(&fmt, &narrow);
        EXPECT_TRUE(rec.Saw("calib", 441));
        EXPECT_EQ(narrow.GetAt(0, 0), 512);
    }
    {
        AssertRecorder rec;
        CFmtSigRec volts(1, 4);
        cal.CalibrateAsVolts(&raw, &volts);
        EXPECT_TRUE(rec.Saw("calib", 468));
        EXPECT_EQ(volts.GetAt(0, 3), 0.5f);
        CFmtSigRec volts2(2, fmtCounts);
        cal.CalibrateAsVolts(&raw, &volts2);
        EXPECT_TRUE(rec.Saw("calib", 474));
    }
    {
        AssertRecorder rec;
        cal.DecalibrateAsVolts(&fmt, &raw);
        EXPECT_TRUE(rec.Saw("calib", 494));
        CCalibration flat(1, -10, 1.0f, 10, 1.0f, 1.0);
        CRawSigRec raw1(1, 1);
        CFmtSigRec fmt1(1, 1);
        flat.DecalibrateAsVolts(&fmt1, &raw1);
        EXPECT_TRUE(rec.Saw("calib", 489));
        flat.DecalibrateAsVolts(&fmt, &raw1);
        EXPECT_TRUE(rec.Saw("calib", 487));
    }
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

    CRawSigRec raw(4, 1);
    raw.SetAll(512);  // 0.5 V
    CFmtSigRec fmt(4, 1);
    cal.Calibrate(&raw, &fmt);
    EXPECT_EQ(fmt.GetAt(0, 0), 0.5f);
    EXPECT_EQ(fmt.GetAt(1, 0), 4.0f);
    // The old channel 1, now 2: AdToWorld uses the shifted arrays...
    EXPECT_EQ(cal.AdToWorld(2, 512), 0.25);
    // ...while Calibrate multiplies by the step left at index 2 (the old
    // channel 2's 1/4096): 1536/4096 - 0.5.
    EXPECT_EQ(fmt.GetAt(2, 0), -0.125f);
    // Index 3 was never given a step: every value maps to the world minimum.
    EXPECT_EQ(fmt.GetAt(3, 0), -0.25f);

    // A copy carries the stale table as it is.
    CCalibration copy(cal);
    CFmtSigRec fmtCopy(4, 1);
    copy.Calibrate(&raw, &fmtCopy);
    EXPECT_EQ(fmtCopy.GetAt(2, 0), -0.125f);

    // Setting the points again, or deleting a channel, brings them back.
    cal.SetCalibFromGain(2, 2.0f, 0.0f, 3);
    cal.Calibrate(&raw, &fmt);
    EXPECT_EQ(fmt.GetAt(2, 0), 0.25f);
    EXPECT_EQ(copy.DeleteChannel(0), 1);
    CFmtSigRec fmt3(3, 1);
    CRawSigRec raw3(3, 1);
    raw3.SetAll(512);
    copy.Calibrate(&raw3, &fmt3);
    EXPECT_EQ(fmt3.GetAt(0, 0), 4.0f);
    EXPECT_EQ(fmt3.GetAt(1, 0), 0.25f);
    EXPECT_EQ(fmt3.GetAt(2, 0), 0.125f);

    EXPECT_EQ(cal.AddChannel(0.0f, 0.0f, 1.0f, 1.0f), 1);
    EXPECT_EQ(cal.AdToWorld(4, 512), 0.5);
}

TEST(CalibrationTest, ChannelEditingRefusesBadIndexes) {
    CCalibration cal = MakeCalibration(2);
    const std::vector<BYTE> before = Snapshot(cal);
    {
        AssertRecorder rec;
        EXPECT_THROW(cal.InsertChannel(3, 0, 0, 1, 1), CInvalidArgException);
        EXPECT_TRUE(rec.Saw("calib", 514));
    }
    {
        // An index equal to the count passes the assertion and fails the removal.
        AssertRecorder rec;
        EXPECT_THROW(cal.DeleteChannel(2), CInvalidArgException);
        EXPECT_TRUE(rec.hits.empty());
        EXPECT_THROW(cal.DeleteChannel(3), CInvalidArgException);
        EXPECT_TRUE(rec.Saw("calib", 531));
    }
    EXPECT_EQ(Snapshot(cal), before);
}

TEST(CalibrationTest, MoreThan128ChannelsAreRefused) {
    EXPECT_THROW(CCalibration(129, -1, -1.0f, 1, 1.0f, 1.0), CInvalidArgException);
    CCalibration cal = MakeCalibration(127);
    const std::vector<BYTE> before = Snapshot(cal);
    EXPECT_THROW(cal.Create(129, -1, -1.0f, 1, 1.0f, 1.0), CInvalidArgException);
    EXPECT_EQ(Snapshot(cal), before);
    EXPECT_EQ(cal.AddChannel(0, 0, 1, 1), 1);
    EXPECT_EQ(cal.GetNumChannels(), 128u);
    EXPECT_THROW(cal.AddChannel(0, 0, 1, 1), CInvalidArgException);
    EXPECT_THROW(cal.InsertChannel(0, 0, 0, 1, 1), CInvalidArgException);
    EXPECT_EQ(cal.GetNumChannels(), 128u);
}

TEST(CalibrationTest, SetBaseCalibKeepsThePointsAndMovesTheDerivedValues) {
    CCalibration cal = MakeCalibration(1);
    cal.SetCalibFromGain(0, 2.0f, 0.0f, 3);
    cal.SetBaseCalib(-1024, -2.0f, 1024, 2.0f);  // now 1/512 V per step
    int adMin, adMax;
    float vMin, vMax;
    cal.GetBaseCalib(adMin, vMin, adMax, vMax);
    EXPECT_EQ(adMin, -1024);
    EXPECT_EQ(vMin, -2.0f);
    EXPECT_EQ(adMax, 1024);
    EXPECT_EQ(vMax, 2.0f);
    float lo, hi;
    cal.GetWorldRange(0, lo, hi);
    EXPECT_EQ(lo, -1.0f);
    EXPECT_EQ(hi, 1.0f);
    float gain, offset;
    cal.GetCalibGain(0, gain, offset, 3);
    EXPECT_EQ(gain, 2.0f);
    EXPECT_EQ(offset, 0.0f);
    EXPECT_EQ(cal.AdToWorld(0, 512), 0.5);  // 1 V
}

TEST(CalibrationTest, BposTableIsCarriedAndCheckedForRange) {
    CCalibration cal = MakeCalibration(1);
    cal.SetBposArrSize(2);
    EXPECT_EQ(cal.GetNumBpos(), 2u);
    cal.SetBposThresAt(1, 300);
    cal.SetBposNamesAt(1, "Décubitus");
    cal.SetBposKeysAt(0, "D");
    cal.SetBposUidAt(1, 7);
    EXPECT_EQ(cal.GetBposThresAt(1), 300);
    EXPECT_EQ(cal.GetBposNamesAt(1), "Décubitus");
    EXPECT_EQ(cal.GetBposKeysAt(0), "D");
    EXPECT_EQ(cal.GetBposUidAt(1), 7);
    EXPECT_THROW(cal.SetBposThresAt(2, 1), CInvalidArgException);
    EXPECT_THROW(cal.GetBposNamesAt(-1), CInvalidArgException);
    cal.SetNumBpos(5);  // the count only
    EXPECT_EQ(cal.GetNumBpos(), 5u);
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
    float lo, hi;
    loaded->GetWorldRange(1, lo, hi);
    EXPECT_EQ(lo, -5.0f);
    EXPECT_EQ(hi, 3.0f);
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
    long ad1, ad2;
    float v1v, w1, v2, w2;
    cal.GetCalibPoints(1, ad1, v1v, w1, ad2, v2, w2);
    EXPECT_EQ(ad1, 10);
    EXPECT_EQ(v1v, 0.5f);
    EXPECT_EQ(w1, 1.0f);
    EXPECT_EQ(ad2, 20);
    EXPECT_EQ(w2, 3.0f);
    EXPECT_EQ(WorldAtAdMin(cal, 1), -5.0f);
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
