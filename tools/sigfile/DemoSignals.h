// The synthetic night behind `sigfile demo`: a hypnogram, the events that
// each sleep stage brings (spindles, K-complexes, blinks, rapid eye
// movements, muscle twitches, heart beats, breathing events with their
// oxygen desaturations) and the signals that show them.  Everything follows
// from the seed through the tool's own generator, so one seed gives the same
// file bit for bit.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CFmtSigRec;

namespace sigfile_tool::demo {

// Record layout of the demo: base frequency 256 Hz, 64 samples per record.
inline constexpr unsigned kBaseFrequency = 256;
inline constexpr unsigned kSamplesRecord = 64;
inline constexpr double kRecordSeconds = static_cast<double>(kSamplesRecord) / kBaseFrequency;
inline constexpr double kEpochSeconds = 30.0;

enum class Kind { Eeg, Eog, Emg, Ecg, Flow, Thorax, Abdomen, SpO2 };

// One recorded channel: electrode 1, electrode 2 ("" for a sensor alone),
// sampling frequency, what it shows, and its world units per millivolt at the
// amplifier input (µV: 1000, mV: 1, SpO2 %: 100).
struct ChannelSpec {
    const char* electrode1;
    const char* electrode2;
    unsigned frequency;
    Kind kind;
    float worldPerMillivolt;
};

// The 19 sites of the 10-20 system first (recorded against "REF"), then the
// polygraphic channels.
const std::vector<ChannelSpec>& Channels();
inline constexpr unsigned kNumEegSites = 19;

enum Stage { kWake = 0, kN1, kN2, kN3, kRem };
const char* StageName(int stage);

// Uniform and normal deviates from a 64-bit seed (splitmix64, Box-Muller).
class Random {
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t Next();
    double Uniform();  // [0, 1)
    double Uniform(double low, double high) { return low + (high - low) * Uniform(); }
    double Normal();
    double Exponential(double rate);

private:
    std::uint64_t m_state;
    bool m_haveSpare = false;
    double m_spare = 0.0;
};

struct Spindle { double t0, duration, frequency, amplitude; };
struct KComplex { double t0, amplitude; };
struct Blink { double t0, amplitude; };
struct Saccade { double t0, step; };
struct Twitch { double t0, amplitude; };
struct Breathing {
    double t0, duration;
    bool apnea;            // obstructive apnea, else hypopnea
    double flowReduction;  // percent
    double drop;           // oxygen saturation drop, percent
};

// Times are seconds from the start of the recording.
struct Plan {
    long records = 0;
    double seconds = 0.0;
    std::vector<int> stages;  // one per 30-s epoch (the last may be partial)
    std::vector<Spindle> spindles;
    std::vector<KComplex> kcomplexes;
    std::vector<Blink> blinks;
    std::vector<Saccade> saccades;
    std::vector<Twitch> twitches;
    std::vector<double> beats;
    std::vector<Breathing> breathing;

    int StageAt(double t) const;
    // Baseline oxygen saturation, and the time window of a desaturation.
    static constexpr double kBaselineSpO2 = 96.8;
    static double DesatBegin(const Breathing& b) { return b.t0 + 0.5 * b.duration + 8.0; }
    static double DesatNadir(const Breathing& b) { return b.t0 + b.duration + 12.0; }
    static double DesatEnd(const Breathing& b) { return b.t0 + b.duration + 25.0; }
};

Plan MakePlan(double minutes, std::uint64_t seed);

// Computes the signals record by record, in order (the generators keep their
// state from one record to the next).
class Synthesizer {
public:
    Synthesizer(const Plan& plan, std::uint64_t seed);
    ~Synthesizer();
    // Fills the world values of every channel of record r (records of the
    // Channels() layout); records must come in increasing order.
    void FillRecord(long r, CFmtSigRec& rec);

private:
    struct State;
    const Plan& m_plan;
    std::unique_ptr<State> m_state;
};

}  // namespace sigfile_tool::demo
