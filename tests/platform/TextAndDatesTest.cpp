// Text conversion and comparison rules, and the date-time representation.
#include <gtest/gtest.h>

#include "platform/DateTime.h"
#include "platform/Strings.h"
#include "support/TestSupport.h"

TEST(TextTest, Windows1252RoundTripsAndRefusesOtherCharacters) {
    std::string out;
    ASSERT_TRUE(Utf8ToCp1252("Ä€œ…", out));
    EXPECT_EQ(out, "\xC4\x80\x9C\x85");
    EXPECT_EQ(Cp1252ToUtf8(out), "Ä€œ…");
    EXPECT_FALSE(Utf8ToCp1252("Ω", out));
    EXPECT_FALSE(Utf8ToCp1252("\xC3", out));  // truncated sequence
    // The unassigned bytes survive a round trip through their C1 controls.
    ASSERT_TRUE(Utf8ToCp1252(Cp1252ToUtf8("\x81\x8D"), out));
    EXPECT_EQ(out, "\x81\x8D");
    EXPECT_EQ(Utf16ToUtf8(Utf8ToUtf16("a😀é")), "a😀é");
}

TEST(TextTest, CaseFoldingCoversAsciiAndLatin1) {
    EXPECT_EQ(CompareNoCase("élan", "ÉLAN"), 0);
    EXPECT_EQ(CompareNoCase("Fp1", "FP1"), 0);
    EXPECT_LT(CompareNoCase("A", "b"), 0);
    EXPECT_GT(CompareNoCase("ab", "A"), 0);
    EXPECT_EQ(ToUpper("hélène"), "HÉLÈNE");
    EXPECT_EQ(ToUpperAscii("hélène"), "HéLèNE");
}

TEST(TextTest, LimitsCountCharactersNotBytes) {
    EXPECT_EQ(Utf8Length("Hélène"), 6u);
    EXPECT_EQ(Utf8Left("Hélène", 2), "Hé");
    EXPECT_EQ(TransliterateAscii("Hélène Œuvre ß"), "Helene OEuvre ss");
    EXPECT_EQ(GetNumWords("a,,b,c"), 3);
    EXPECT_EQ(GetWordAt("a,,b,c", 1), "b");
}

TEST(DateTimeTest, DaysCountFrom1899_12_30) {
    EXPECT_EQ(CSDateTime(1899, 12, 30).GetValue(), 0.0);
    EXPECT_EQ(CSDateTime(2000, 1, 1).GetValue(), 36526.0);
    EXPECT_EQ(CSDateTime(2000, 1, 1, 18).GetValue(), 36526.75);
    // Before the epoch the time of day stays a positive fraction.
    EXPECT_EQ(CSDateTime(1899, 12, 29, 6).GetValue(), -1.25);
    EXPECT_EQ(CSDateTime(1899, 12, 29, 6).ToIso(), "1899-12-29T06:00:00.000");
    EXPECT_EQ(CSDateTime(2026, 1, 31, 22, 5, 0.25).ToIso(), "2026-01-31T22:05:00.250");
}

TEST(DateTimeTest, DifferencesRoundToTheMillisecond) {
    CSDateTime start(2026, 3, 1, 21, 0, 0);
    CSDateTime end = start + CSTimeSpan(86401.0);
    EXPECT_EQ((end - start).GetTotalSeconds(), 86401.0);
    EXPECT_FALSE(end - start < CSTimeSpan(86401.0));
    EXPECT_TRUE(start + CSTimeSpan(86400.0) - start < CSTimeSpan(86401.0));
    EXPECT_EQ(CSDateTime(1899, 12, 29, 12) - CSDateTime(1899, 12, 29, 6), CSTimeSpan(6 * 3600.0));
    EXPECT_LT(CSDateTime(1899, 12, 29, 6), CSDateTime(1899, 12, 29, 12));
}

TEST(DateTimeTest, TextFormsParse) {
    CSDateTime dt;
    ASSERT_TRUE(CSDateTime::FromText("1975-04-09", dt));
    EXPECT_EQ(dt, CSDateTime(1975, 4, 9));
    ASSERT_TRUE(CSDateTime::FromText("2026-01-31T22:05:00.500", dt));
    EXPECT_EQ(dt.ToIso(), "2026-01-31T22:05:00.500");
    ASSERT_TRUE(CSDateTime::FromText("09/04/1975", dt));
    EXPECT_EQ(dt, CSDateTime(1975, 4, 9));
    EXPECT_FALSE(CSDateTime::FromText("1975-13-09", dt));
    EXPECT_FALSE(CSDateTime::FromText("yesterday", dt));
    auto bytes = testsupport::StoreToBytes([](CArchive& ar) { ar << CSDateTime(36526.5); });
    EXPECT_EQ(bytes, testsupport::Bytes().f64(36526.5).data);
}
