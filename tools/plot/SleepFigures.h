// Sleep stages of a night and the figures a sleep report gives from them:
// time in bed, total sleep time, efficiency, latencies, time per stage and
// awakenings.  Pure computations over a list of scored spans, kept apart
// from reading recordings and from drawing so that they can be checked on
// hand-made lists.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace sigplot {

// The stages drawn and counted.  N4 of older scorings is counted as N3.
enum class Stage { Wake = 0, Rem = 1, N1 = 2, N2 = 3, N3 = 4, Unknown = 5 };
inline constexpr int kNumStages = 5;  // Wake .. N3, Unknown excluded

// The stage an item name stands for: W, Wake, R, REM, N1..N4, S1..S4,
// "Sleep stage X", in any case; anything else is Unknown.
Stage StageOfName(const std::string& name);
// Short name of a stage as drawn ("W", "R", "N1", "N2", "N3", "?").
const char* StageShortName(Stage stage);
// Row of a stage in a hypnogram, 0 at the top: W, R, N1, N2, N3; -1 for
// Unknown (not drawn).
int HypnogramRow(Stage stage);
inline bool IsSleep(Stage s) { return s == Stage::Rem || s == Stage::N1 || s == Stage::N2 || s == Stage::N3; }

// One scored span, in seconds from the start of the recording.
struct StageSpan {
    double begin = 0.0;
    double end = 0.0;
    Stage stage = Stage::Unknown;
};

// Sorts the spans by their start, drops empty or reversed ones and clips
// each one so that it does not overlap the span before it.
std::vector<StageSpan> NormalizeStages(std::vector<StageSpan> spans);

// Figures of one night; times in minutes, negative latencies when the event
// never happens.
struct SleepFigures {
    double timeInBed = 0.0;        // first scored span start to last span end
    double scoredTime = 0.0;       // time covered by spans (of any stage)
    double totalSleep = 0.0;       // R + N1 + N2 + N3
    double efficiency = 0.0;       // total sleep / time in bed, percent
    double sleepLatency = -1.0;    // first span start to the first sleep span
    double remLatency = -1.0;      // first sleep span to the first R span
    double wakeAfterSleepOnset = 0.0;
    std::array<double, kNumStages> minutes{};   // indexed by Stage
    std::array<double, kNumStages> percent{};   // W: of time in bed; sleep stages: of total sleep
    int awakenings = 0;            // runs of W between sleep spans (after onset)
};

SleepFigures ComputeSleepFigures(const std::vector<StageSpan>& spans);

// Splits a recording's spans into nights: a new night starts after a
// stretch of at least gapSeconds without any span.
std::vector<std::vector<StageSpan>> SplitNights(const std::vector<StageSpan>& spans, double gapSeconds = 3 * 3600.0);

}  // namespace sigplot
