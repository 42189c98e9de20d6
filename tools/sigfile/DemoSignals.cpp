#include "DemoSignals.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "records/SigRec.h"

namespace sigfile_tool::demo {
namespace {

constexpr double kPi = 3.14159265358979323846;

// Band sources of the EEG, in the order of the tables below.
enum Source { kAlpha = 0, kTheta, kDelta, kBeta, kNumSources };

// Stage targets: band amplitudes (µV), chin EMG (µV), slow eye movements
// (µV), breaths per minute, heart rate (beats per minute).
struct StageTargets {
    double band[kNumSources];
    double emg;
    double slowEye;
    double breathsPerMinute;
    double heartRate;
};
constexpr StageTargets kTargets[] = {
    {{28, 5, 5, 5}, 15.0, 0.0, 16.0, 72.0},   // wake: posterior alpha
    {{6, 12, 8, 3}, 10.0, 60.0, 15.0, 68.0},  // N1: theta, slow eye movements
    {{2, 12, 18, 2}, 7.0, 0.0, 14.0, 63.0},   // N2: spindles and K-complexes on top
    {{1, 8, 55, 1}, 6.0, 0.0, 13.0, 58.0},    // N3: slow waves
    {{4, 12, 6, 4}, 1.5, 0.0, 17.0, 67.0},    // REM: low voltage, atonia
};

// Spatial weights of the 19 sites (Fp1 ... O2): alpha, theta, delta,
// spindles, K-complexes.
constexpr double kWeights[kNumEegSites][5] = {
    {.15, .6, 1.0, .5, .9}, {.15, .6, 1.0, .5, .9}, {.25, .7, .9, .5, .8}, {.3, .8, 1.0, .8, 1.0},
    {.3, .9, 1.0, .9, 1.0}, {.3, .8, 1.0, .8, 1.0}, {.25, .7, .9, .5, .8}, {.4, .7, .6, .5, .6},
    {.5, .9, .8, 1.0, .9},  {.5, 1.0, .8, 1.0, 1.0}, {.5, .9, .8, 1.0, .9}, {.4, .7, .6, .5, .6},
    {.8, .6, .5, .5, .5},   {.8, .8, .6, .8, .7},   {.85, .9, .6, .85, .8}, {.8, .8, .6, .8, .7},
    {.8, .6, .5, .5, .5},   {1.0, .6, .5, .4, .4},  {1.0, .6, .5, .4, .4},
};

// Band-limited noise of unit RMS: a two-pole resonator driven by white noise.
class Resonator {
public:
    Resonator(double frequency, double bandwidth, double rate) {
        const double r = std::exp(-kPi * bandwidth / rate);
        const double w = 2.0 * kPi * frequency / rate;
        m_a1 = 2.0 * r * std::cos(w);
        m_a2 = -r * r;
        const double variance =
            (1.0 + r * r) / ((1.0 - r * r) * ((1.0 + r * r) * (1.0 + r * r) - 4.0 * r * r * std::cos(w) * std::cos(w)));
        m_gain = 1.0 / std::sqrt(variance);
    }
    double Step(double white) {
        const double y = m_a1 * m_y1 + m_a2 * m_y2 + white;
        m_y2 = m_y1;
        m_y1 = y;
        return y * m_gain;
    }

private:
    double m_a1, m_a2, m_gain;
    double m_y1 = 0.0, m_y2 = 0.0;
};

// Unit-RMS low-pass noise.
class Drift {
public:
    explicit Drift(double pole) : m_pole(pole), m_gain(std::sqrt(1.0 - pole * pole)) {}
    double Step(double white) { return m_y = m_pole * m_y + m_gain * white; }

private:
    double m_pole, m_gain, m_y = 0.0;
};

// Events of a time-ordered list that may be active at t (started at most
// reach seconds ago), visited in order.
template <class Event, class Fn>
void ForActive(const std::vector<Event>& events, double t, double reach, Fn fn) {
    auto it = std::lower_bound(events.begin(), events.end(), t - reach,
                               [](const Event& e, double v) { return e.t0 < v; });
    for (; it != events.end() && it->t0 <= t; ++it) fn(*it, t - it->t0);
}

double Gauss(double u, double centre, double width) {
    const double z = (u - centre) / width;
    return std::exp(-z * z);
}

// A smooth bump from 0 at begin to 1 at peak and back to 0 at end.
double Bump(double t, double begin, double peak, double end) {
    if (t <= begin || t >= end) return 0.0;
    if (t < peak) return 0.5 - 0.5 * std::cos(kPi * (t - begin) / (peak - begin));
    return 0.5 + 0.5 * std::cos(kPi * (t - peak) / (end - peak));
}

// Places events in every run of consecutive epochs of a stage: exponential
// gaps at the given rate (per second), each event lasting duration plus a
// minimum gap, all inside the run.
template <class Make>
void PlaceEvents(const Plan& plan, Random& random, int stage, double rate, double duration, double gap, Make make) {
    for (size_t e = 0; e < plan.stages.size();) {
        if (plan.stages[e] != stage) {
            ++e;
            continue;
        }
        size_t last = e;
        while (last + 1 < plan.stages.size() && plan.stages[last + 1] == stage) ++last;
        const double begin = static_cast<double>(e) * kEpochSeconds;
        const double end = std::min(static_cast<double>(last + 1) * kEpochSeconds, plan.seconds);
        double t = begin + random.Exponential(rate);
        while (t + duration < end) {
            make(t);
            t += duration + gap + random.Exponential(rate);
        }
        e = last + 1;
    }
}

void MakeHypnogram(Plan& plan, Random& random) {
    const size_t epochs = static_cast<size_t>(std::ceil(plan.seconds / kEpochSeconds));
    // One sleep cycle lasts about 90 minutes; a shorter recording holds one
    // whole cycle compressed, so that every stage appears.
    const size_t cycleEpochs = std::min<size_t>(epochs, 180);
    size_t e = 0;
    for (int cycle = 0; e < epochs; ++cycle) {
        const double deep = 0.25 * std::pow(0.55, cycle);
        std::array<std::pair<int, double>, 6> parts = {{{cycle == 0 ? kWake : kN1, cycle == 0 ? 0.10 : 0.03},
                                                        {kN1, 0.07},
                                                        {kN2, 0.23},
                                                        {kN3, deep},
                                                        {kN2, 0.10 + (0.25 - deep) * 0.4},
                                                        {kRem, 0.25 + (0.25 - deep) * 0.6}}};
        double total = 0.0;
        for (auto& p : parts) total += p.second *= random.Uniform(0.85, 1.15);
        const size_t length = std::min(cycleEpochs, epochs - e);
        double cumulative = 0.0;
        size_t done = 0;
        for (const auto& p : parts) {
            cumulative += p.second / total;
            const size_t until = static_cast<size_t>(std::lround(cumulative * static_cast<double>(length)));
            for (; done < until && done < length; ++done) plan.stages.push_back(p.first);
        }
        for (; done < length; ++done) plan.stages.push_back(kRem);
        e += length;
    }
    // Brief awakenings after the first cycle.
    for (size_t i = 180; i < plan.stages.size(); ++i)
        if ((plan.stages[i] == kN2 || plan.stages[i] == kRem) && random.Uniform() < 0.02) plan.stages[i] = kWake;
}

}  // namespace

const std::vector<ChannelSpec>& Channels() {
    static const std::vector<ChannelSpec> channels = {
        {"Fp1", "REF", 256, Kind::Eeg, 1000.0f}, {"Fp2", "REF", 256, Kind::Eeg, 1000.0f},
        {"F7", "REF", 256, Kind::Eeg, 1000.0f},  {"F3", "REF", 256, Kind::Eeg, 1000.0f},
        {"Fz", "REF", 256, Kind::Eeg, 1000.0f},  {"F4", "REF", 256, Kind::Eeg, 1000.0f},
        {"F8", "REF", 256, Kind::Eeg, 1000.0f},  {"T3", "REF", 256, Kind::Eeg, 1000.0f},
        {"C3", "REF", 256, Kind::Eeg, 1000.0f},  {"Cz", "REF", 256, Kind::Eeg, 1000.0f},
        {"C4", "REF", 256, Kind::Eeg, 1000.0f},  {"T4", "REF", 256, Kind::Eeg, 1000.0f},
        {"T5", "REF", 256, Kind::Eeg, 1000.0f},  {"P3", "REF", 256, Kind::Eeg, 1000.0f},
        {"Pz", "REF", 256, Kind::Eeg, 1000.0f},  {"P4", "REF", 256, Kind::Eeg, 1000.0f},
        {"T6", "REF", 256, Kind::Eeg, 1000.0f},  {"O1", "REF", 256, Kind::Eeg, 1000.0f},
        {"O2", "REF", 256, Kind::Eeg, 1000.0f},  {"Loc", "", 128, Kind::Eog, 1000.0f},
        {"Roc", "", 128, Kind::Eog, 1000.0f},    {"Chin", "", 256, Kind::Emg, 1000.0f},
        {"Ecg", "", 256, Kind::Ecg, 1.0f},       {"Flow", "", 32, Kind::Flow, 1000.0f},
        {"Thor", "", 32, Kind::Thorax, 1000.0f}, {"Abdo", "", 32, Kind::Abdomen, 1000.0f},
        {"SpO2", "", 4, Kind::SpO2, 100.0f},
    };
    return channels;
}

const char* StageName(int stage) {
    static const char* const names[] = {"W", "N1", "N2", "N3", "REM"};
    return stage >= 0 && stage <= kRem ? names[stage] : "?";
}

std::uint64_t Random::Next() {
    std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

double Random::Uniform() { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }

double Random::Normal() {
    if (m_haveSpare) {
        m_haveSpare = false;
        return m_spare;
    }
    double u1 = Uniform();
    while (u1 <= 0.0) u1 = Uniform();
    const double u2 = Uniform();
    const double radius = std::sqrt(-2.0 * std::log(u1));
    m_spare = radius * std::sin(2.0 * kPi * u2);
    m_haveSpare = true;
    return radius * std::cos(2.0 * kPi * u2);
}

double Random::Exponential(double rate) {
    double u = Uniform();
    while (u <= 0.0) u = Uniform();
    return -std::log(u) / rate;
}

int Plan::StageAt(double t) const {
    if (stages.empty()) return kWake;
    long e = static_cast<long>(t / kEpochSeconds);
    e = std::clamp(e, 0L, static_cast<long>(stages.size()) - 1);
    return stages[static_cast<size_t>(e)];
}

Plan MakePlan(double minutes, std::uint64_t seed) {
    Plan plan;
    Random random(seed);
    plan.records = std::max(1L, static_cast<long>(std::ceil(minutes * 60.0 / kRecordSeconds - 1e-9)));
    plan.seconds = static_cast<double>(plan.records) * kRecordSeconds;
    MakeHypnogram(plan, random);

    PlaceEvents(plan, random, kN2, 0.10, 1.6, 1.5, [&](double t) {
        plan.spindles.push_back({t, random.Uniform(0.6, 1.6), random.Uniform(11.5, 14.5), random.Uniform(20.0, 45.0)});
    });
    PlaceEvents(plan, random, kN3, 0.02, 1.6, 1.5, [&](double t) {
        plan.spindles.push_back({t, random.Uniform(0.5, 1.0), random.Uniform(11.5, 13.0), random.Uniform(15.0, 25.0)});
    });
    std::sort(plan.spindles.begin(), plan.spindles.end(), [](auto& a, auto& b) { return a.t0 < b.t0; });
    PlaceEvents(plan, random, kN2, 0.025, 1.2, 2.0,
                [&](double t) { plan.kcomplexes.push_back({t, random.Uniform(80.0, 150.0)}); });
    PlaceEvents(plan, random, kWake, 0.25, 0.4, 0.5,
                [&](double t) { plan.blinks.push_back({t, random.Uniform(80.0, 160.0)}); });
    // Rapid eye movements come in bursts of conjugate saccades.
    PlaceEvents(plan, random, kRem, 0.08, 4.0, 2.0, [&](double t) {
        const int count = 2 + static_cast<int>(random.Uniform() * 5.0);
        double sign = random.Uniform() < 0.5 ? -1.0 : 1.0;
        for (int i = 0; i < count; ++i, sign = -sign) {
            plan.saccades.push_back({t, sign * random.Uniform(40.0, 150.0)});
            t += random.Uniform(0.3, 0.8);
        }
    });
    PlaceEvents(plan, random, kRem, 0.2, 0.15, 0.5,
                [&](double t) { plan.twitches.push_back({t, random.Uniform(8.0, 25.0)}); });

    // Heart beats with respiratory sinus arrhythmia.
    for (double t = 0.3; t < plan.seconds;) {
        plan.beats.push_back(t);
        const double rr = 60.0 / kTargets[plan.StageAt(t)].heartRate;
        t += rr * (1.0 + 0.05 * std::sin(2.0 * kPi * t / 4.0) + 0.02 * random.Normal());
    }

    // Breathing events in light sleep and REM, each followed by a dip of the
    // oxygen saturation that must fit in the recording.
    for (int stage : {kN1, kN2, kRem}) {
        const double rate = stage == kRem ? 0.02 : stage == kN2 ? 0.012 : 0.005;
        PlaceEvents(plan, random, stage, rate, 30.0, 20.0, [&](double t) {
            Breathing b;
            b.t0 = t;
            b.duration = random.Uniform(12.0, 28.0);
            b.apnea = random.Uniform() < 0.3;
            b.flowReduction = b.apnea ? random.Uniform(92.0, 98.0) : random.Uniform(50.0, 70.0);
            b.drop = b.apnea ? random.Uniform(5.0, 9.0) : random.Uniform(3.0, 5.5);
            if (Plan::DesatEnd(b) < plan.seconds) plan.breathing.push_back(b);
        });
    }
    std::sort(plan.breathing.begin(), plan.breathing.end(), [](auto& a, auto& b) { return a.t0 < b.t0; });
    // Events of different stages may touch: keep those that do not overlap.
    std::vector<Breathing> kept;
    for (const Breathing& b : plan.breathing)
        if (kept.empty() || b.t0 > Plan::DesatEnd(kept.back())) kept.push_back(b);
    plan.breathing = kept;
    return plan;
}

// ---------------------------------------------------------------------------

struct Synthesizer::State {
    explicit State(std::uint64_t seed)
        : random(seed ^ 0xA5A5A5A5DEADBEEFull),
          bands{Resonator(10.0, 1.5, 256), Resonator(6.0, 2.5, 256), Resonator(1.0, 1.5, 256),
                Resonator(20.0, 8.0, 256)},
          siteNoise(kNumEegSites, Drift(0.9)),
          spo2Drift(0.995),
          rateDrift(0.999) {
        for (int s = 0; s < kNumSources; ++s) amplitude[s] = kTargets[kWake].band[s];
    }
    Random random;
    std::array<Resonator, kNumSources> bands;
    std::vector<Drift> siteNoise;
    Drift spo2Drift;
    Drift rateDrift;
    double amplitude[kNumSources];
    double emg = kTargets[kWake].emg;
    double slowEye = 0.0;
    double lastDelta = 0.0;
    double emgPrevious = 0.0;
    double breathPhase = 0.0;
    double breathRate = kTargets[kWake].breathsPerMinute;
};

Synthesizer::Synthesizer(const Plan& plan, std::uint64_t seed)
    : m_plan(plan), m_state(std::make_unique<State>(seed)) {}

Synthesizer::~Synthesizer() = default;

namespace {

// Horizontal (saccades and slow movements) and vertical (blinks) eye signals.
double HorizontalEye(const Plan& plan, double t, double slowEye) {
    double h = slowEye * std::sin(2.0 * kPi * 0.2 * t + 0.8 * std::sin(2.0 * kPi * 0.03 * t));
    ForActive(plan.saccades, t, 8.0, [&](const Saccade& s, double u) {
        h += s.step * (1.0 - std::exp(-u / 0.02)) * std::exp(-u / 1.5);
    });
    return h;
}

double VerticalEye(const Plan& plan, double t) {
    double v = 0.0;
    ForActive(plan.blinks, t, 0.4, [&](const Blink& b, double u) { v += b.amplitude * Gauss(u, 0.15, 0.07); });
    return v;
}

double Electrocardiogram(const Plan& plan, double t) {
    // P, Q, R, S and T waves around each beat (mV).
    auto it = std::lower_bound(plan.beats.begin(), plan.beats.end(), t - 0.5);
    double v = 0.0;
    for (; it != plan.beats.end() && *it <= t + 0.35; ++it) {
        const double u = t - *it;
        v += 0.15 * Gauss(u, -0.2, 0.025) - 0.1 * Gauss(u, -0.03, 0.008) + 1.2 * Gauss(u, 0.0, 0.01) -
             0.25 * Gauss(u, 0.03, 0.008) + 0.3 * Gauss(u, 0.25, 0.05);
    }
    return v;
}

// Flow and effort factors of the breathing events at t: (flow, effort,
// paradoxical effort).
void BreathingFactors(const Plan& plan, double t, double& flow, double& effort, bool& paradox) {
    flow = 1.0;
    effort = 1.0;
    paradox = false;
    ForActive(plan.breathing, t, 45.0, [&](const Breathing& b, double u) {
        const double end = b.duration;
        if (u < end) {
            const double ramp = std::min(1.0, std::min(u, end - u) / 2.0);
            flow = 1.0 - ramp * b.flowReduction / 100.0;
            effort = b.apnea ? 1.0 : 1.0 - 0.4 * ramp;
            paradox = b.apnea && u > 2.0 && u < end - 1.0;
        } else if (u < end + 10.0) {
            // Recovery breaths after the event.
            flow = effort = 1.0 + 0.6 * Bump(u, end, end + 3.0, end + 10.0);
        }
    });
}

}  // namespace

void Synthesizer::FillRecord(long r, CFmtSigRec& rec) {
    State& s = *m_state;
    const std::vector<ChannelSpec>& channels = Channels();
    const double recordStart = static_cast<double>(r) * kRecordSeconds;
    constexpr double kSmooth = 1.0 / (256.0 * 2.0);  // stage changes fade over about 2 s

    // 256 Hz: EEG sites, chin EMG, ECG.
    for (unsigned k = 0; k < kSamplesRecord; ++k) {
        const double t = recordStart + k / 256.0;
        const StageTargets& target = kTargets[m_plan.StageAt(t)];
        double band[kNumSources];
        for (int b = 0; b < kNumSources; ++b) {
            s.amplitude[b] += (target.band[b] - s.amplitude[b]) * kSmooth;
            band[b] = s.amplitude[b] * s.bands[static_cast<size_t>(b)].Step(s.random.Normal());
        }
        s.lastDelta = band[kDelta];
        s.emg += (target.emg - s.emg) * kSmooth;
        s.slowEye += (target.slowEye - s.slowEye) * kSmooth;
        double spindle = 0.0, kcomplex = 0.0;
        ForActive(m_plan.spindles, t, 2.0, [&](const Spindle& sp, double u) {
            if (u <= sp.duration) {
                const double envelope = std::sin(kPi * u / sp.duration);
                spindle += sp.amplitude * envelope * envelope * std::sin(2.0 * kPi * sp.frequency * u);
            }
        });
        ForActive(m_plan.kcomplexes, t, 1.2, [&](const KComplex& kc, double u) {
            kcomplex += -kc.amplitude * Gauss(u, 0.35, 0.12) + 0.45 * kc.amplitude * Gauss(u, 0.8, 0.2);
        });
        const double horizontal = HorizontalEye(m_plan, t, s.slowEye);
        const double vertical = VerticalEye(m_plan, t);
        for (unsigned site = 0; site < kNumEegSites; ++site) {
            const double* w = kWeights[site];
            double v = w[0] * band[kAlpha] + w[1] * band[kTheta] + w[2] * band[kDelta] + 0.7 * band[kBeta] +
                       w[3] * spindle + w[4] * kcomplex + 4.0 * s.siteNoise[site].Step(s.random.Normal());
            // The eyes reach the frontal poles.
            if (site == 0) v += 0.8 * vertical + 0.15 * horizontal;
            if (site == 1) v += 0.8 * vertical - 0.15 * horizontal;
            rec.SetAt(site, k, static_cast<float>(v));
        }
        const double white = s.random.Normal();
        double emg = s.emg * (white - s.emgPrevious) / std::sqrt(2.0);
        s.emgPrevious = white;
        ForActive(m_plan.twitches, t, 0.15, [&](const Twitch& tw, double u) {
            emg += tw.amplitude * s.random.Normal() * Gauss(u, 0.05, 0.03);
        });
        const double ecg = Electrocardiogram(m_plan, t) + 0.05 * std::sin(s.breathPhase) +
                           0.01 * s.random.Normal();
        for (unsigned c = kNumEegSites; c < channels.size(); ++c) {
            if (channels[c].kind == Kind::Emg) rec.SetAt(c, k, static_cast<float>(emg));
            if (channels[c].kind == Kind::Ecg) rec.SetAt(c, k, static_cast<float>(ecg));
        }
    }

    // Channel index of each kind beyond the EEG sites.
    auto channelOf = [&](Kind kind, unsigned nth = 0) -> unsigned {
        for (unsigned c = kNumEegSites; c < channels.size(); ++c)
            if (channels[c].kind == kind && nth-- == 0) return c;
        return 0;
    };

    // 128 Hz: the two eye channels; conjugate movements are of opposite sign.
    const unsigned loc = channelOf(Kind::Eog, 0), roc = channelOf(Kind::Eog, 1);
    for (unsigned k = 0; k < rec.GetNumSamples(loc); ++k) {
        const double t = recordStart + k / 128.0;
        const double h = HorizontalEye(m_plan, t, s.slowEye);
        const double common = 0.4 * VerticalEye(m_plan, t) + 0.25 * s.lastDelta;
        rec.SetAt(loc, k, static_cast<float>(h + common + 3.0 * s.random.Normal()));
        rec.SetAt(roc, k, static_cast<float>(-h + common + 3.0 * s.random.Normal()));
    }

    // 32 Hz: airflow, thoracic and abdominal effort.
    const unsigned flowChannel = channelOf(Kind::Flow), thor = channelOf(Kind::Thorax), abdo = channelOf(Kind::Abdomen);
    for (unsigned k = 0; k < rec.GetNumSamples(flowChannel); ++k) {
        const double t = recordStart + k / 32.0;
        const double target = kTargets[m_plan.StageAt(t)].breathsPerMinute;
        s.breathRate += (target - s.breathRate) * (1.0 / (32.0 * 10.0));
        const double rate = s.breathRate * (1.0 + 0.08 * s.rateDrift.Step(s.random.Normal())) / 60.0;
        s.breathPhase = std::fmod(s.breathPhase + 2.0 * kPi * rate / 32.0, 2.0 * kPi);
        double flow, effort;
        bool paradox;
        BreathingFactors(m_plan, t, flow, effort, paradox);
        rec.SetAt(flowChannel, k, static_cast<float>(150.0 * flow * std::sin(s.breathPhase) + 5.0 * s.random.Normal()));
        rec.SetAt(thor, k,
                  static_cast<float>(300.0 * effort * std::sin(s.breathPhase - 0.3 + (paradox ? kPi : 0.0)) +
                                     5.0 * s.random.Normal()));
        rec.SetAt(abdo, k, static_cast<float>(350.0 * effort * std::sin(s.breathPhase - 0.5) + 5.0 * s.random.Normal()));
    }

    // 4 Hz: oxygen saturation, in tenths of a percent as oximeters give it.
    const unsigned spo2 = channelOf(Kind::SpO2);
    for (unsigned k = 0; k < rec.GetNumSamples(spo2); ++k) {
        const double t = recordStart + k / 4.0;
        double v = Plan::kBaselineSpO2 + 0.3 * s.spo2Drift.Step(s.random.Normal());
        ForActive(m_plan.breathing, t, 60.0, [&](const Breathing& b, double) {
            v -= b.drop * Bump(t, Plan::DesatBegin(b), Plan::DesatNadir(b), Plan::DesatEnd(b));
        });
        rec.SetAt(spo2, k, static_cast<float>(std::round(v * 10.0) / 10.0));
    }
}

}  // namespace sigfile_tool::demo
