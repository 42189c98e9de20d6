// Calibration throughput: CCalibration::Calibrate over a batch of raw
// records, against a hand-written loop doing the same float arithmetic
// into preallocated memory, measured in the same run.
//
// Prints: RESULT calibrate <Msamples/s> ratio=<Calibrate time / loop time> target=1.2
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "recording/calib.h"
#include "records/SigRec.h"

namespace {

constexpr unsigned kChannels = 64;
constexpr unsigned kSamples = 256;
constexpr unsigned kDistinctRecords = 64;  // raw inputs, cycled
constexpr unsigned kRecordsPerRound = 1000;
constexpr int kRounds = 41;  // short rounds, alternating order: the best of each side resists noise

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

// The baseline: the calibration's arithmetic written out by hand over plain
// arrays, with the per-channel constants taken once.
__attribute__((noinline)) void HandLoop(const short* __restrict src, float* __restrict dst, const float* step,
                                        const float* offset, float adMin) {
    for (unsigned c = 0; c < kChannels; ++c) {
        const short* s = src + c * kSamples;
        float* d = dst + c * kSamples;
        const float k = step[c];
        const float o = offset[c];
        for (unsigned i = 0; i < kSamples; ++i) d[i] = (static_cast<float>(s[i]) - adMin) * k + o;
    }
}

}  // namespace

int main() {
    CCalibration cal(kChannels, -32768, -0.004f, 32767, 0.004f, 256.0);
    for (unsigned c = 0; c < kChannels; ++c) cal.SetCalibFromGain(c, 1.0f + static_cast<float>(c) * 0.5f, 0.0f, 1);

    std::mt19937 rng(12345);
    std::uniform_int_distribution<int> dist(-32768, 32767);
    std::vector<std::unique_ptr<CRawSigRec>> raws;
    for (unsigned r = 0; r < kDistinctRecords; ++r) {
        auto rec = std::make_unique<CRawSigRec>(kChannels, kSamples);
        for (unsigned i = 0; i < rec->GetTotalSamples(); ++i) rec->GetData()[i] = static_cast<short>(dist(rng));
        raws.push_back(std::move(rec));
    }
    CFmtSigRec fmt(kChannels, kSamples);
    std::vector<float> out(kChannels * kSamples);

    // The hand loop's constants: the calibration's own step and offset.
    std::vector<float> step(kChannels), offset(kChannels);
    for (unsigned c = 0; c < kChannels; ++c) {
        float atMax;
        cal.GetWorldRange(c, offset[c], atMax);
        step[c] = cal.GetWorldStep(c);
    }
    const float adMin = static_cast<float>(cal.GetAdMin());

    // Both must give the same floats, bit for bit.
    cal.Calibrate(raws[0].get(), &fmt);
    HandLoop(raws[0]->GetData(), out.data(), step.data(), offset.data(), adMin);
    if (std::memcmp(fmt.GetData(), out.data(), out.size() * sizeof(float)) != 0) {
        std::fprintf(stderr, "calibrate: Calibrate and the hand loop disagree\n");
        return 1;
    }

    double bestLib = 1e30, bestLoop = 1e30;
    double sink = 0.0;
    auto runLibrary = [&] {
        auto t0 = Clock::now();
        for (unsigned r = 0; r < kRecordsPerRound; ++r) {
            cal.Calibrate(raws[r % kDistinctRecords].get(), &fmt);
            sink += fmt.GetData()[r % (kChannels * kSamples)];
        }
        bestLib = std::min(bestLib, Seconds(t0, Clock::now()));
    };
    auto runLoop = [&] {
        auto t0 = Clock::now();
        for (unsigned r = 0; r < kRecordsPerRound; ++r) {
            HandLoop(raws[r % kDistinctRecords]->GetData(), out.data(), step.data(), offset.data(), adMin);
            sink += out[r % (kChannels * kSamples)];
        }
        bestLoop = std::min(bestLoop, Seconds(t0, Clock::now()));
    };
    for (int round = 0; round < kRounds; ++round) {
        if (round % 2 == 0) {
            runLibrary();
            runLoop();
        } else {
            runLoop();
            runLibrary();
        }
    }

    const double samples = static_cast<double>(kRecordsPerRound) * kChannels * kSamples;
    std::printf("# %u records of %u channels x %u samples per round, best of %d rounds (checksum %g)\n",
                kRecordsPerRound, kChannels, kSamples, kRounds, sink);
    std::printf("# Calibrate %.3f ms, hand loop %.3f ms\n", bestLib * 1e3, bestLoop * 1e3);
    std::printf("RESULT calibrate %.1f Msamples/s ratio=%.2f target=1.2\n", samples / bestLib / 1e6,
                bestLib / bestLoop);
    return 0;
}
