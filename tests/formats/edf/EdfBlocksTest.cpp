// Re-cutting EDF records into blocks of another duration: samples in order,
// block start times, short blocks at gaps and at the end, resampled signals.
#include <gtest/gtest.h>

#include <functional>

#include "formats/edf/EdfBlocks.h"
#include "formats/edf/EdfTestFiles.h"
#include "support/TestSupport.h"

using namespace edf;

namespace {

using Generator = std::function<LONG(size_t signal, LONGLONG record, int k)>;

void Write(const std::string& path, const std::vector<EdfSignal>& signals, const std::vector<double>& starts,
           const Generator& value) {
    EdfHeader header;
    header.start = CSDateTime(2026, 1, 31, 22, 0, 0);
    header.recordDuration = 1;
    EdfWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(path, header, signals, 0, error)) << error;
    for (size_t r = 0; r < starts.size(); ++r) {
        std::vector<std::vector<LONG>> samples(signals.size());
        for (size_t i = 0; i < signals.size(); ++i)
            for (int k = 0; k < signals[i].samplesPerRecord; ++k) samples[i].push_back(value(i, LONGLONG(r), k));
        ASSERT_TRUE(writer.WriteRecord(starts[r], samples, {}, error)) << error;
    }
    ASSERT_TRUE(writer.Close(error)) << error;
}

std::vector<EdfBlock> AllBlocks(EdfBlockReader& blocks) {
    std::vector<EdfBlock> out;
    EdfBlock block;
    std::string error;
    while (blocks.Next(block, error)) out.push_back(block);
    EXPECT_TRUE(error.empty()) << error;
    return out;
}

LONG Ramp(size_t signal, LONGLONG record, int k) { return LONG(signal * 10000 + record * 1000 + k); }

TEST(EdfBlocks, RecordsAreRecutInOrderWithTheirTimes) {
    testsupport::TempDir dir;
    std::vector<EdfSignal> signals = {edftest::Signal("A", 256, -32768, 32767, -100, 100),
                                      edftest::Signal("B", 4, -32768, 32767, -100, 100)};
    Write(dir / "a.edf", signals, {0, 1, 2}, Ramp);
    EdfReader reader;
    std::string error;
    ASSERT_TRUE(reader.Open(dir / "a.edf", error)) << error;
    EdfBlockReader blocks(reader, {256, 4}, 0.25);
    EXPECT_EQ(blocks.BlockSamples(), (std::vector<int>{64, 1}));
    std::vector<EdfBlock> got = AllBlocks(blocks);
    ASSERT_EQ(got.size(), 12u);
    for (size_t b = 0; b < got.size(); ++b) {
        EXPECT_EQ(got[b].start, 0.25 * double(b));
        EXPECT_FALSE(got[b].partial);
        const LONGLONG record = LONGLONG(b / 4);
        const int first = int(b % 4) * 64;
        ASSERT_EQ(got[b].samples[0].size(), 64u);
        EXPECT_EQ(got[b].samples[0].front(), Ramp(0, record, first));
        EXPECT_EQ(got[b].samples[0].back(), Ramp(0, record, first + 63));
        EXPECT_EQ(got[b].samples[1], std::vector<LONG>{Ramp(1, record, int(b % 4))});
    }
}

TEST(EdfBlocks, ShortBlocksComeAtGapsAndAtTheEnd) {
    testsupport::TempDir dir;
    std::vector<EdfSignal> signals = {edftest::Signal("A", 256, -32768, 32767, -100, 100)};
    Write(dir / "gaps.edf", signals, {0, 1, 5}, Ramp);
    EdfReader reader;
    std::string error;
    ASSERT_TRUE(reader.Open(dir / "gaps.edf", error)) << error;
    ASSERT_TRUE(reader.Header().discontinuous);
    EdfBlockReader blocks(reader, {256}, 0.75);  // 192 samples
    std::vector<EdfBlock> got = AllBlocks(blocks);
    // Records 0-1 (512 samples): 192, 192, 128; record 2 (256): 192, 64.
    struct Want {
        double start;
        size_t samples;
        LONG first;
    } want[] = {{0, 192, Ramp(0, 0, 0)},   {0.75, 192, Ramp(0, 0, 192)}, {1.5, 128, Ramp(0, 1, 128)},
                {5, 192, Ramp(0, 2, 0)},   {5.75, 64, Ramp(0, 2, 192)}};
    ASSERT_EQ(got.size(), 5u);
    for (size_t b = 0; b < 5; ++b) {
        EXPECT_DOUBLE_EQ(got[b].start, want[b].start) << b;
        EXPECT_EQ(got[b].samples[0].size(), want[b].samples) << b;
        EXPECT_EQ(got[b].samples[0].front(), want[b].first) << b;
        EXPECT_EQ(got[b].partial, want[b].samples < 192) << b;
    }
}

TEST(EdfBlocks, ResampledSignalsFillTheirBlocksWithinTheirLimits) {
    testsupport::TempDir dir;
    std::vector<EdfSignal> signals = {edftest::Signal("EEG", 256, -32768, 32767, -100, 100),
                                      edftest::Signal("EMG", 200, -2048, 2047, -100, 100)};
    // EMG sits at its digital maximum: resampling must not push it beyond.
    Write(dir / "mixed.edf", signals, {0, 1}, [](size_t i, LONGLONG, int k) { return i == 0 ? LONG(k) : 2047; });
    EdfReader reader;
    std::string error;
    ASSERT_TRUE(reader.Open(dir / "mixed.edf", error)) << error;
    EdfBlockReader blocks(reader, {256, 256}, 0.25);
    std::vector<EdfBlock> got = AllBlocks(blocks);
    ASSERT_EQ(got.size(), 8u);
    for (const EdfBlock& b : got) {
        EXPECT_FALSE(b.partial);
        ASSERT_EQ(b.samples[1].size(), 64u);
        for (LONG v : b.samples[1]) EXPECT_EQ(v, 2047);
    }
    EXPECT_EQ(got[5].samples[0][3], 64 + 3);
}

}  // namespace
