#include "spectral/FftCore.h"

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

namespace spectral {
namespace {

constexpr unsigned kMaxLog2 = 26;

// ---------------------------------------------------------------------------
// Four floats processed together: two complex numbers.  GCC and Clang map the
// vector extension onto SSE on x86-64 and NEON on ARM; other compilers get a
// plain array with the same operations.
#if defined(__GNUC__) || defined(__clang__)
typedef float V4 __attribute__((vector_size(16)));
inline V4 Splat(float a) { return V4{a, a, a, a}; }
inline V4 Make(float a, float b, float c, float d) { return V4{a, b, c, d}; }
#if defined(__clang__) || (__GNUC__ >= 12)
inline V4 SwapPairs(V4 v) { return __builtin_shufflevector(v, v, 1, 0, 3, 2); }
inline V4 SwapHalves(V4 v) { return __builtin_shufflevector(v, v, 2, 3, 0, 1); }
#else
typedef int V4i __attribute__((vector_size(16)));
inline V4 SwapPairs(V4 v) { return __builtin_shuffle(v, V4i{1, 0, 3, 2}); }
inline V4 SwapHalves(V4 v) { return __builtin_shuffle(v, V4i{2, 3, 0, 1}); }
#endif
#else
struct V4 {
    float v[4];
    V4 operator+(const V4& o) const { return {v[0] + o.v[0], v[1] + o.v[1], v[2] + o.v[2], v[3] + o.v[3]}; }
    V4 operator-(const V4& o) const { return {v[0] - o.v[0], v[1] - o.v[1], v[2] - o.v[2], v[3] - o.v[3]}; }
    V4 operator*(const V4& o) const { return {v[0] * o.v[0], v[1] * o.v[1], v[2] * o.v[2], v[3] * o.v[3]}; }
};
inline V4 Splat(float a) { return {a, a, a, a}; }
inline V4 Make(float a, float b, float c, float d) { return {a, b, c, d}; }
inline V4 SwapPairs(V4 x) { return {x.v[1], x.v[0], x.v[3], x.v[2]}; }
inline V4 SwapHalves(V4 x) { return {x.v[2], x.v[3], x.v[0], x.v[1]}; }
#endif

inline V4 Load(const float* p) {
    V4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void Store(float* p, V4 v) { std::memcpy(p, &v, sizeof v); }

unsigned Log2(unsigned n) {
    unsigned l = 0;
    while ((1u << l) < n) ++l;
    return l;
}

// ---------------------------------------------------------------------------
// Tables of one complex length N.
struct ComplexPlan {
    unsigned n = 0;
    // Complex indexes to exchange for the bit-reversal permutation, in pairs.
    std::vector<uint32_t> swaps;
    // Butterfly twiddles exp(+i pi j / m) of every stage of half-size m >= 2,
    // stored from float offset 2 (m - 2): wr as (cos, cos) pairs and wi as
    // (-sin, sin) pairs, ready for two complex products at a time.
    std::vector<float> wr;
    std::vector<float> wi;
};

// Tables of one real length n: the complex plan of n/2 points plus the
// twiddles exp(+2 pi i k / n), k = 0 .. n/4, in the same paired form.
struct RealPlan {
    const ComplexPlan* half = nullptr;
    std::vector<float> wr;
    std::vector<float> wi;
};

std::unique_ptr<ComplexPlan> MakeComplexPlan(unsigned n) {
    auto plan = std::make_unique<ComplexPlan>();
    plan->n = n;
    unsigned bits = Log2(n);
    for (unsigned i = 0; i < n; ++i) {
        unsigned r = 0;
        for (unsigned b = 0; b < bits; ++b)
            if (i & (1u << b)) r |= 1u << (bits - 1 - b);
        if (i < r) {
            plan->swaps.push_back(i);
            plan->swaps.push_back(r);
        }
    }
    if (n >= 4) {
        plan->wr.resize(2 * (n - 2));
        plan->wi.resize(2 * (n - 2));
        const double pi = 4.0 * std::atan(1.0);
        for (unsigned m = 2; m < n; m *= 2) {
            float* wr = plan->wr.data() + 2 * (m - 2);
            float* wi = plan->wi.data() + 2 * (m - 2);
            for (unsigned j = 0; j < m; ++j) {
                double angle = pi * j / m;
                float c = static_cast<float>(std::cos(angle));
                float s = static_cast<float>(std::sin(angle));
                wr[2 * j] = c;
                wr[2 * j + 1] = c;
                wi[2 * j] = -s;
                wi[2 * j + 1] = s;
            }
        }
    }
    return plan;
}

class PlanCache {
public:
    const ComplexPlan* Complex(unsigned n) {
        unsigned l = Log2(n);
        if (const ComplexPlan* p = m_complexReady[l].load(std::memory_order_acquire)) return p;
        std::lock_guard<std::mutex> lock(m_mutex);
        return ComplexLocked(n, l);
    }
    const RealPlan* Real(unsigned n) {
        unsigned l = Log2(n);
        if (const RealPlan* p = m_realReady[l].load(std::memory_order_acquire)) return p;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_real[l]) {
            auto plan = std::make_unique<RealPlan>();
            plan->half = ComplexLocked(n / 2, l - 1);
            unsigned quarter = n / 4;
            plan->wr.resize(2 * (quarter + 1));
            plan->wi.resize(2 * (quarter + 1));
            const double pi = 4.0 * std::atan(1.0);
            for (unsigned k = 0; k <= quarter; ++k) {
                double angle = 2.0 * pi * k / n;
                float c = static_cast<float>(std::cos(angle));
                float s = static_cast<float>(std::sin(angle));
                plan->wr[2 * k] = c;
                plan->wr[2 * k + 1] = c;
                plan->wi[2 * k] = -s;
                plan->wi[2 * k + 1] = s;
            }
            m_real[l] = std::move(plan);
            m_realReady[l].store(m_real[l].get(), std::memory_order_release);
        }
        return m_real[l].get();
    }

private:
    const ComplexPlan* ComplexLocked(unsigned n, unsigned l) {
        if (!m_complex[l]) {
            m_complex[l] = MakeComplexPlan(n);
            m_complexReady[l].store(m_complex[l].get(), std::memory_order_release);
        }
        return m_complex[l].get();
    }

    std::mutex m_mutex;
    std::array<std::unique_ptr<ComplexPlan>, kMaxLog2 + 1> m_complex;
    std::array<std::unique_ptr<RealPlan>, kMaxLog2 + 1> m_real;
    std::array<std::atomic<const ComplexPlan*>, kMaxLog2 + 1> m_complexReady{};
    std::array<std::atomic<const RealPlan*>, kMaxLog2 + 1> m_realReady{};
};

PlanCache& Plans() {
    static PlanCache cache;
    return cache;
}

// ---------------------------------------------------------------------------
void Reorder(float* data, const ComplexPlan& plan) {
    const uint32_t* s = plan.swaps.data();
    const size_t count = plan.swaps.size();
    for (size_t k = 0; k < count; k += 2) {
        float* a = data + 2 * size_t(s[k]);
        float* b = data + 2 * size_t(s[k + 1]);
        uint64_t ta, tb;
        std::memcpy(&ta, a, 8);
        std::memcpy(&tb, b, 8);
        std::memcpy(a, &tb, 8);
        std::memcpy(b, &ta, 8);
    }
}

// Multiplies both complex numbers of v by Dir i.
template <int Dir>
inline V4 TimesI(V4 v) {
    return SwapPairs(v) * (Dir > 0 ? Make(-1.0f, 1.0f, -1.0f, 1.0f) : Make(1.0f, -1.0f, 1.0f, -1.0f));
}

// Two complex products b x w at a time, w given by its paired tables.
template <int Dir>
inline V4 Twiddle(V4 b, const float* wr, const float* wi) {
    V4 cross = SwapPairs(b) * Load(wi);
    return Dir > 0 ? b * Load(wr) + cross : b * Load(wr) - cross;
}

// One radix-2 stage of half-size m (m >= 2).
template <int Dir>
void Radix2Stage(float* data, unsigned n, unsigned m, const ComplexPlan& plan) {
    const float* wr = plan.wr.data() + 2 * (m - 2);
    const float* wi = plan.wi.data() + 2 * (m - 2);
    const unsigned span = 2 * m;  // floats between the two inputs of a butterfly
    for (unsigned k = 0; k < 2 * n; k += 2 * span) {
        float* a = data + k;
        float* b = a + span;
        for (unsigned j = 0; j < span; j += 4) {
            V4 va = Load(a + j);
            V4 t = Twiddle<Dir>(Load(b + j), wr + j, wi + j);
            Store(a + j, va + t);
            Store(b + j, va - t);
        }
    }
}

// The radix-2 stages of half-sizes m and 2m done in one pass over the data:
// for each j the four points j, j + m, j + 2m, j + 3m of a block of 4m go
// through both stages while in registers.  The twiddle of the second stage
// for j + m is the one for j times Dir i.
template <int Dir>
void Radix2PairStage(float* data, unsigned n, unsigned m, const ComplexPlan& plan) {
    const float* wr1 = plan.wr.data() + 2 * (m - 2);
    const float* wi1 = plan.wi.data() + 2 * (m - 2);
    const float* wr2 = plan.wr.data() + 2 * (2 * m - 2);
    const float* wi2 = plan.wi.data() + 2 * (2 * m - 2);
    const unsigned span = 2 * m;
    for (unsigned k = 0; k < 2 * n; k += 4 * span) {
        float* p0 = data + k;
        float* p1 = p0 + span;
        float* p2 = p1 + span;
        float* p3 = p2 + span;
        for (unsigned j = 0; j < span; j += 4) {
            V4 x0 = Load(p0 + j);
            V4 x2 = Load(p2 + j);
            V4 t1 = Twiddle<Dir>(Load(p1 + j), wr1 + j, wi1 + j);
            V4 t3 = Twiddle<Dir>(Load(p3 + j), wr1 + j, wi1 + j);
            V4 y0 = x0 + t1, y1 = x0 - t1;
            V4 y2 = x2 + t3, y3 = x2 - t3;
            V4 u2 = Twiddle<Dir>(y2, wr2 + j, wi2 + j);
            V4 u3 = TimesI<Dir>(Twiddle<Dir>(y3, wr2 + j, wi2 + j));
            Store(p0 + j, y0 + u2);
            Store(p2 + j, y0 - u2);
            Store(p1 + j, y1 + u3);
            Store(p3 + j, y1 - u3);
        }
    }
}

// The butterflies of an already reordered array.  Stages of half-size 1 and
// 2 are done together (their twiddles are 1 and Dir i); the others go by
// pairs of stages, the last one alone when their number is odd.
template <int Dir>
void Butterflies(float* data, const ComplexPlan& plan) {
    const unsigned n = plan.n;
    if (n == 2) {
        float ar = data[0], ai = data[1];
        data[0] = ar + data[2];
        data[1] = ai + data[3];
        data[2] = ar - data[2];
        data[3] = ai - data[3];
        return;
    }
    if (n < 4) return;
    const V4 plusMinus = Make(1.0f, 1.0f, -1.0f, -1.0f);
    const V4 keepLow = Make(1.0f, 1.0f, 0.0f, 0.0f);
    const V4 keepHigh = Make(0.0f, 0.0f, 1.0f, 1.0f);
    for (unsigned k = 0; k < 2 * n; k += 8) {
        float* x = data + k;
        V4 v0 = Load(x);
        V4 v1 = Load(x + 4);
        V4 a = SwapHalves(v0) + v0 * plusMinus;  // (x0 + x1, x0 - x1)
        V4 b = SwapHalves(v1) + v1 * plusMinus;  // (x2 + x3, x2 - x3)
        b = b * keepLow + TimesI<Dir>(b) * keepHigh;
        Store(x, a + b);
        Store(x + 4, a - b);
    }
    unsigned m = 4;
    for (; 2 * m < n; m *= 4) Radix2PairStage<Dir>(data, n, m, plan);
    if (m < n) Radix2Stage<Dir>(data, n, m, plan);
}

// Separates the FFT of n/2 complex points (the even and odd samples of a
// real signal) into the packed FFT of the n real points, or, with Dir < 0,
// does the inverse step.  Each pass combines bin k with bin n/2 - k.
template <int Dir>
void RealSplit(float* data, unsigned n, const RealPlan& plan) {
    const unsigned quarter = n / 4;
    const float half = 0.5f;
    const float sh = Dir * 0.5f;
    // Bin 1 alone; the bins after it go two at a time.
    auto scalarBin = [&](unsigned k) {
        float* f = data + 2 * k;
        float* b = data + n - 2 * k;
        float h1r = half * (f[0] + b[0]);
        float h1i = half * (f[1] - b[1]);
        float h2r = sh * (f[1] + b[1]);
        float h2i = -sh * (f[0] - b[0]);
        float c = plan.wr[2 * k];
        float s = Dir * plan.wi[2 * k + 1];
        float tr = c * h2r - s * h2i;
        float ti = c * h2i + s * h2r;
        f[0] = h1r + tr;
        f[1] = h1i + ti;
        b[0] = h1r - tr;
        b[1] = -h1i + ti;
    };
    if (quarter < 2) return;
    scalarBin(1);
    const V4 conj = Make(1.0f, -1.0f, 1.0f, -1.0f);
    const V4 vhalf = Splat(half);
    const V4 vsh = Splat(sh) * conj;
    for (unsigned k = 2; k + 1 < quarter; k += 2) {
        float* f = data + 2 * k;
        float* b = data + n - 2 * k - 2;  // bins n/2 - k - 1 and n/2 - k
        V4 va = Load(f);
        V4 vb = SwapHalves(Load(b)) * conj;  // conj of bins n/2 - k, n/2 - k - 1
        V4 h1 = vhalf * (va + vb);
        V4 h2 = vsh * SwapPairs(va - vb);
        V4 cross = SwapPairs(h2) * Load(plan.wi.data() + 2 * k);
        V4 t = Dir > 0 ? h2 * Load(plan.wr.data() + 2 * k) + cross : h2 * Load(plan.wr.data() + 2 * k) - cross;
        Store(f, h1 + t);
        Store(b, SwapHalves((h1 - t) * conj));
    }
}

}  // namespace

bool IsFftLength(unsigned long long n) { return n >= 1 && n <= (1ull << kMaxLog2) && (n & (n - 1)) == 0; }

void ComplexReorder(float* data, unsigned nn) {
    if (!IsFftLength(nn)) return;
    Reorder(data, *Plans().Complex(nn));
}

void ComplexTransform(float* data, unsigned nn, int direction) {
    if (!IsFftLength(nn)) return;
    const ComplexPlan& plan = *Plans().Complex(nn);
    Reorder(data, plan);
    if (direction >= 0)
        Butterflies<1>(data, plan);
    else
        Butterflies<-1>(data, plan);
}

void RealTransform(float* data, unsigned n, int direction) {
    if (n < 2 || !IsFftLength(n)) return;
    const RealPlan& plan = *Plans().Real(n);
    if (direction >= 0) {
        Reorder(data, *plan.half);
        Butterflies<1>(data, *plan.half);
        RealSplit<1>(data, n, plan);
        float h = data[0];
        data[0] = h + data[1];
        data[1] = h - data[1];
    } else {
        RealSplit<-1>(data, n, plan);
        float h = data[0];
        data[0] = 0.5f * (h + data[1]);
        data[1] = 0.5f * (h - data[1]);
        Reorder(data, *plan.half);
        Butterflies<-1>(data, *plan.half);
    }
}

}  // namespace spectral
