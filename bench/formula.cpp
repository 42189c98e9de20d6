// Formula engine throughput: one hour of a 19-electrode EEG at 256 Hz in
// records of 64 samples, evaluated record by record through CCReformater,
// against hand-written loops that compute the same results in the same run.
//
//   arith  18 bipolar channels and 19 channels against an average reference
//          (a global formula)
//   fir    FIR(FP1-F7,1,63,0,40): 127 taps, one record either side
//   iir    IIR(FP1-F7,3,4,0.5,35): band-pass of order 4 (8 poles) carried
//          across records
//
// Prints the output samples per second of the engine and the ratio of its
// time to the hand-written loops' (lower is better), and checks that both
// give the same samples and that evaluation allocates nothing per record.
// The hand-written loops read the records directly, keep only what they
// need between records and use the fastest loop form for each job (the FIR
// one shares the engine's vector kernel), so the ratio is the cost of the
// engine's generality: trees, buffers and their per-record shifts.
// Usage: bench_formula [repeats]; the best of the repeats is kept.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "formula/Kernels.h"
#include "formula/RFMT.h"
#include "formula/UsrOps.h"
#include "records/SigRec.h"

// Counts heap allocations, to show that evaluation makes none.
static std::atomic<long> g_allocations{0};
void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

constexpr int kFs = 256;
constexpr int kSpr = 64;
constexpr int kRecords = 3600 * kFs / kSpr;  // one hour
constexpr int kPool = 128;                    // distinct records, reused in turn

const char* const kElectrodes[] = {"FP1", "FP2", "F7", "F3", "FZ", "F4", "F8", "T3", "C3", "CZ",
                                   "C4",  "T4",  "T5", "P3", "PZ", "P4", "T6", "O1", "O2"};
constexpr int kChannels = 19;
int Index(const char* name) {
    for (int i = 0; i < kChannels; ++i)
        if (std::strcmp(kElectrodes[i], name) == 0) return i;
    std::abort();
}
const char* const kBipolar[][2] = {{"FP1", "F7"}, {"F7", "T3"}, {"T3", "T5"}, {"T5", "O1"}, {"FP2", "F8"},
                                   {"F8", "T4"},  {"T4", "T6"}, {"T6", "O2"}, {"FP1", "F3"}, {"F3", "C3"},
                                   {"C3", "P3"},  {"P3", "O1"}, {"FP2", "F4"}, {"F4", "C4"}, {"C4", "P4"},
                                   {"P4", "O2"},  {"FZ", "CZ"}, {"CZ", "PZ"}};
constexpr int kBipolarCount = 18;

// A pool of recorded records with EEG-like content.
std::vector<std::unique_ptr<CFmtSigRec>> MakePool() {
    std::vector<std::unique_ptr<CFmtSigRec>> pool;
    unsigned seed = 12345;
    for (int k = 0; k < kPool; ++k) {
        auto rec = std::make_unique<CFmtSigRec>(kChannels, kSpr);
        for (int c = 0; c < kChannels; ++c)
            for (int s = 0; s < kSpr; ++s) {
                seed = seed * 1103515245u + 12345u;
                const double t = static_cast<double>(k * kSpr + s) / kFs;
                const double v = 40 * std::sin(2 * 3.14159265 * 10 * t + c) + 15 * std::sin(2 * 3.14159265 * 1.3 * t) +
                                 5.0 * ((seed >> 16) % 1000) / 1000.0;
                rec->SetAt(static_cast<unsigned>(c), static_cast<unsigned>(s), static_cast<float>(v));
            }
        pool.push_back(std::move(rec));
    }
    return pool;
}

const CFmtSigRec* Record(const std::vector<std::unique_ptr<CFmtSigRec>>& pool, long k) {
    return pool[static_cast<size_t>(((k % kPool) + kPool) % kPool)].get();
}

// Runs the reformater over the hour; calls sink(record, output) after each.
template <class Sink>
double RunEngine(CCReformater& r, const std::vector<std::unique_ptr<CFmtSigRec>>& pool, CFmtSigRec& out, Sink sink,
                 long* allocations) {
    std::vector<const CFmtSigRec*> span;
    for (int o = r.GetFirstRecOfs(); o <= r.GetLastRecOfs(); ++o) span.push_back(Record(pool, o));
    const long before = g_allocations.load();
    const auto t0 = std::chrono::steady_clock::now();
    r.Eval(span.data(), &out, 1);
    sink(0L, out);
    for (long k = 1; k < kRecords; ++k) {
        const CFmtSigRec* newest = Record(pool, k + r.GetLastRecOfs());
        r.Eval(&newest, &out, 0);
        sink(k, out);
    }
    const auto t1 = std::chrono::steady_clock::now();
    if (allocations) *allocations = g_allocations.load() - before;
    return std::chrono::duration<double>(t1 - t0).count();
}

struct Figure {
    double engine = 1e30, hand = 1e30;
    double maxDiff = 0;
    long allocations = 0;
};

void Report(const char* name, const Figure& f, long samples, double target) {
    std::printf("RESULT %s %.1f Msamples/s ratio=%.2f target=%g\n", name, samples / f.engine / 1e6, f.engine / f.hand,
                target);
    std::fprintf(stderr, "  %s: engine %.1f ms, hand-written %.1f ms, max difference %g, allocations after Compile %ld\n",
                 name, f.engine * 1e3, f.hand * 1e3, f.maxDiff, f.allocations);
}

// ---------------------------------------------------------------- arithmetic

Figure BenchArith(const std::vector<std::unique_ptr<CFmtSigRec>>& pool, int repeats) {
    CCReformater r;
    for (const char* e : kElectrodes) r.AddInput(e, "", kSpr, kFs, 1, 1);
    std::string avg = "(";
    for (int i = 0; i < kChannels; ++i) avg += std::string(i ? "+" : "") + kElectrodes[i];
    avg += ")/19";
    r.AddGlobal("AVG", avg.c_str());
    for (const auto& b : kBipolar) r.AddOutput((std::string(b[0]) + "-" + b[1]).c_str(), (std::string(b[0]) + "-" + b[1]).c_str());
    for (const char* e : kElectrodes) r.AddOutput((std::string(e) + "-AVG").c_str(), (std::string(e) + "-AVG").c_str());
    if (!r.Compile()) std::abort();
    std::unique_ptr<CFmtSigRec> out(r.CreateCompatibleFmtSigRec());
    std::unique_ptr<CFmtSigRec> hand(r.CreateCompatibleFmtSigRec());

    int bip[kBipolarCount][2];
    for (int i = 0; i < kBipolarCount; ++i) {
        bip[i][0] = Index(kBipolar[i][0]);
        bip[i][1] = Index(kBipolar[i][1]);
    }
    float avgBuf[kSpr];
    volatile float guard = 0;
    Figure f;
    for (int rep = 0; rep < repeats; ++rep) {
        long allocations = 0;
        f.engine = std::min(f.engine, RunEngine(r, pool, *out, [&](long, CFmtSigRec& o) { guard = guard + o.GetAt(36, 5); },
                                                &allocations));
        f.allocations = allocations;
        const auto t0 = std::chrono::steady_clock::now();
        for (long k = 0; k < kRecords; ++k) {
            const CFmtSigRec* in = Record(pool, k);
            // Channel by channel, so that each loop runs over the samples.
            const float* first = in->GetAt(0);
            for (int n = 0; n < kSpr; ++n) avgBuf[n] = first[n];
            for (int c = 1; c < kChannels; ++c) {
                const float* a = in->GetAt(static_cast<unsigned>(c));
                for (int n = 0; n < kSpr; ++n) avgBuf[n] += a[n];
            }
            for (int n = 0; n < kSpr; ++n) avgBuf[n] /= 19.0f;
            for (int i = 0; i < kBipolarCount; ++i) {
                const float* a = in->GetAt(static_cast<unsigned>(bip[i][0]));
                const float* b = in->GetAt(static_cast<unsigned>(bip[i][1]));
                float* y = hand->GetAt(static_cast<unsigned>(i));
                for (int n = 0; n < kSpr; ++n) y[n] = a[n] - b[n];
            }
            for (int c = 0; c < kChannels; ++c) {
                const float* a = in->GetAt(static_cast<unsigned>(c));
                float* y = hand->GetAt(static_cast<unsigned>(kBipolarCount + c));
                for (int n = 0; n < kSpr; ++n) y[n] = a[n] - avgBuf[n];
            }
            guard = guard + hand->GetAt(36, 5);
        }
        f.hand = std::min(f.hand, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
    }
    // Same samples: compare the last record of each.
    for (unsigned i = 0; i < hand->GetTotalSamples(); ++i)
        f.maxDiff = std::max(f.maxDiff, static_cast<double>(std::fabs(hand->GetData()[i] - out->GetData()[i])));
    return f;
}

// ---------------------------------------------------------------- FIR

Figure BenchFir(const std::vector<std::unique_ptr<CFmtSigRec>>& pool, int repeats) {
    CCReformater r;
    for (const char* e : kElectrodes) r.AddInput(e, "", kSpr, kFs, 1, 1);
    r.AddOutput("F", "FIR(FP1-F7,1,63,0,40)");
    if (!r.Compile()) std::abort();
    std::unique_ptr<CFmtSigRec> out(r.CreateCompatibleFmtSigRec());
    const int N = 63;
    const std::vector<float> h = CCFirOp::Design(1, N, 0.0f, 40.0f, kFs);
    const int a = Index("FP1"), b = Index("F7");

    // Hand-written: the derivation of the newest record goes into a sliding
    // window of three records (x[0] is sample -64 of the current record).
    float window[3 * kSpr];
    float y[kSpr];
    std::vector<float> engineLast(kSpr), handLast(kSpr);
    volatile float guard = 0;
    Figure f;
    for (int rep = 0; rep < repeats; ++rep) {
        f.engine = std::min(f.engine, RunEngine(r, pool, *out, [&](long, CFmtSigRec& o) { guard = guard + o.GetAt(0, 7); },
                                                &f.allocations));
        std::copy(out->GetAt(0), out->GetAt(0) + kSpr, engineLast.begin());
        const auto t0 = std::chrono::steady_clock::now();
        auto derive = [&](long k, float* dst) {
            const CFmtSigRec* in = Record(pool, k);
            const float* p = in->GetAt(static_cast<unsigned>(a));
            const float* q = in->GetAt(static_cast<unsigned>(b));
            for (int n = 0; n < kSpr; ++n) dst[n] = p[n] - q[n];
        };
        derive(-1, window);
        derive(0, window + kSpr);
        for (long k = 0; k < kRecords; ++k) {
            if (k > 0) std::memmove(window, window + kSpr, 2 * kSpr * sizeof(float));
            derive(k + 1, window + 2 * kSpr);
            // Eight outputs at a time accumulated over all the taps in
            // vector registers: the fastest form of the plain loop.
            formulakernels::SymmetricFir(y, window + kSpr, h.data(), N, 0, kSpr - 1);
            guard = guard + y[7];
        }
        f.hand = std::min(f.hand, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        std::copy(y, y + kSpr, handLast.begin());
    }
    for (int n = 0; n < kSpr; ++n)
        f.maxDiff = std::max(f.maxDiff, static_cast<double>(std::fabs(engineLast[static_cast<size_t>(n)] - handLast[static_cast<size_t>(n)])));
    return f;
}

// ---------------------------------------------------------------- IIR

Figure BenchIir(const std::vector<std::unique_ptr<CFmtSigRec>>& pool, int repeats) {
    CCReformater r;
    for (const char* e : kElectrodes) r.AddInput(e, "", kSpr, kFs, 1, 1);
    r.AddOutput("I", "IIR(FP1-F7,3,4,0.5,35)");
    if (!r.Compile()) std::abort();
    std::unique_ptr<CFmtSigRec> out(r.CreateCompatibleFmtSigRec());
    const CBiquad design(3, 4, static_cast<float>(kFs), 0.5f, 35.0f);
    const int sections = design.GetNumSections();
    const int warm = 128 * 4;
    const int a = Index("FP1"), b = Index("F7");

    std::vector<double> z1(static_cast<size_t>(sections)), z2(static_cast<size_t>(sections));
    float x[kSpr], y[kSpr];
    std::vector<float> engineLast(kSpr), handLast(kSpr);
    volatile float guard = 0;
    Figure f;
    for (int rep = 0; rep < repeats; ++rep) {
        f.engine = std::min(f.engine, RunEngine(r, pool, *out, [&](long, CFmtSigRec& o) { guard = guard + o.GetAt(0, 7); },
                                                &f.allocations));
        std::copy(out->GetAt(0), out->GetAt(0) + kSpr, engineLast.begin());
        const auto t0 = std::chrono::steady_clock::now();
        std::fill(z1.begin(), z1.end(), 0.0);
        std::fill(z2.begin(), z2.end(), 0.0);
        // One record: derive, then run the cascade section by section.
        auto filterRecord = [&](long k) {
            const CFmtSigRec* in = Record(pool, k);
            const float* p = in->GetAt(static_cast<unsigned>(a));
            const float* q = in->GetAt(static_cast<unsigned>(b));
            for (int n = 0; n < kSpr; ++n) x[n] = p[n] - q[n];
            double w[kSpr];
            for (int n = 0; n < kSpr; ++n) w[n] = x[n];
            for (int s = 0; s < sections; ++s) {
                const CBiquad::Section& c = design.GetSection(s);
                double s1 = z1[static_cast<size_t>(s)], s2 = z2[static_cast<size_t>(s)];
                for (int n = 0; n < kSpr; ++n) {
                    const double v = w[n];
                    const double o = c.b0 * v + s1;
                    s1 = c.b1 * v - c.a1 * o + s2;
                    s2 = c.b2 * v - c.a2 * o;
                    w[n] = o;
                }
                z1[static_cast<size_t>(s)] = s1;
                z2[static_cast<size_t>(s)] = s2;
            }
            for (int n = 0; n < kSpr; ++n) y[n] = static_cast<float>(w[n]);
        };
        for (long k = -warm / kSpr; k < 0; ++k) filterRecord(k);  // the same warm-up
        for (long k = 0; k < kRecords; ++k) {
            filterRecord(k);
            guard = guard + y[7];
        }
        f.hand = std::min(f.hand, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        std::copy(y, y + kSpr, handLast.begin());
    }
    for (int n = 0; n < kSpr; ++n)
        f.maxDiff = std::max(f.maxDiff, static_cast<double>(std::fabs(engineLast[static_cast<size_t>(n)] - handLast[static_cast<size_t>(n)])));
    return f;
}

}  // namespace

int main(int argc, char** argv) {
    const int repeats = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    const auto pool = MakePool();
    const Figure arith = BenchArith(pool, repeats);
    Report("formula_arith", arith, static_cast<long>(kRecords) * (kBipolarCount + kChannels) * kSpr, 2);
    const Figure fir = BenchFir(pool, repeats);
    Report("formula_fir", fir, static_cast<long>(kRecords) * kSpr, 1.5);
    const Figure iir = BenchIir(pool, repeats);
    Report("formula_iir", iir, static_cast<long>(kRecords) * kSpr, 1.5);
    // The engine must give the hand-written results and allocate nothing
    // while it evaluates.
    const bool ok = arith.maxDiff == 0 && fir.maxDiff < 1e-4 && iir.maxDiff < 1e-4 && arith.allocations == 0 &&
                    fir.allocations == 0 && iir.allocations == 0;
    if (!ok) std::fprintf(stderr, "formula bench: results differ or evaluation allocated\n");
    return ok ? 0 : 1;
}
