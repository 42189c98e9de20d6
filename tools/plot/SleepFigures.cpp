#include "SleepFigures.h"

#include <algorithm>
#include <cctype>

namespace sigplot {

namespace {
std::string Lower(const std::string& text) {
    std::string s;
    for (char c : text)
        if (c != ' ' && c != '_' && c != '-') s += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}
}  // namespace

Stage StageOfName(const std::string& name) {
    std::string s = Lower(name);
    // "Sleep stage W" and "Sleep_stage_N2" as EDF+ annotations write them.
    if (s.rfind("sleepstage", 0) == 0) s = s.substr(10);
    if (s == "w" || s == "wake" || s == "awake" || s == "eveil" || s == "0") return Stage::Wake;
    if (s == "r" || s == "rem" || s == "sp" || s == "5") return Stage::Rem;
    if (s == "n1" || s == "s1" || s == "1") return Stage::N1;
    if (s == "n2" || s == "s2" || s == "2") return Stage::N2;
    if (s == "n3" || s == "s3" || s == "3" || s == "n4" || s == "s4" || s == "4") return Stage::N3;
    return Stage::Unknown;
}

const char* StageShortName(Stage stage) {
    switch (stage) {
        case Stage::Wake: return "W";
        case Stage::Rem: return "R";
        case Stage::N1: return "N1";
        case Stage::N2: return "N2";
        case Stage::N3: return "N3";
        default: return "?";
    }
}

int HypnogramRow(Stage stage) { return stage == Stage::Unknown ? -1 : static_cast<int>(stage); }

std::vector<StageSpan> NormalizeStages(std::vector<StageSpan> spans) {
    std::stable_sort(spans.begin(), spans.end(),
                     [](const StageSpan& a, const StageSpan& b) { return a.begin < b.begin; });
    std::vector<StageSpan> out;
    out.reserve(spans.size());
    for (StageSpan s : spans) {
        if (!(s.end > s.begin)) continue;  // also drops NaN times
        if (!out.empty() && s.begin < out.back().end) s.begin = out.back().end;
        if (s.end > s.begin) out.push_back(s);
    }
    return out;
}

SleepFigures ComputeSleepFigures(const std::vector<StageSpan>& input) {
    SleepFigures f;
    const std::vector<StageSpan> spans = NormalizeStages(input);
    if (spans.empty()) return f;
    const double start = spans.front().begin;
    f.timeInBed = (spans.back().end - start) / 60.0;
    double onset = -1.0;
    bool wakeRun = false;
    for (const StageSpan& s : spans) {
        const double minutes = (s.end - s.begin) / 60.0;
        f.scoredTime += minutes;
        if (s.stage != Stage::Unknown) f.minutes[static_cast<size_t>(s.stage)] += minutes;
        if (IsSleep(s.stage)) {
            if (onset < 0) {
                onset = s.begin;
                f.sleepLatency = (s.begin - start) / 60.0;
            }
            if (s.stage == Stage::Rem && f.remLatency < 0) f.remLatency = (s.begin - onset) / 60.0;
            if (wakeRun) ++f.awakenings;
            wakeRun = false;
        } else if (s.stage == Stage::Wake && onset >= 0) {
            f.wakeAfterSleepOnset += minutes;
            wakeRun = true;
        }
    }
    // Wake after the last sleep span is not counted as after sleep onset:
    // the night ends there.
    if (wakeRun) {
        for (auto it = spans.rbegin(); it != spans.rend() && !IsSleep(it->stage); ++it)
            if (it->stage == Stage::Wake) f.wakeAfterSleepOnset -= (it->end - it->begin) / 60.0;
    }
    f.totalSleep = f.minutes[1] + f.minutes[2] + f.minutes[3] + f.minutes[4];
    f.efficiency = f.timeInBed > 0 ? 100.0 * f.totalSleep / f.timeInBed : 0.0;
    f.percent[0] = f.timeInBed > 0 ? 100.0 * f.minutes[0] / f.timeInBed : 0.0;
    for (int s = 1; s < kNumStages; ++s)
        f.percent[static_cast<size_t>(s)] = f.totalSleep > 0 ? 100.0 * f.minutes[static_cast<size_t>(s)] / f.totalSleep : 0.0;
    return f;
}

std::vector<std::vector<StageSpan>> SplitNights(const std::vector<StageSpan>& input, double gapSeconds) {
    std::vector<std::vector<StageSpan>> nights;
    for (const StageSpan& s : NormalizeStages(input)) {
        if (nights.empty() || s.begin - nights.back().back().end >= gapSeconds) nights.emplace_back();
        nights.back().push_back(s);
    }
    return nights;
}

}  // namespace sigplot
