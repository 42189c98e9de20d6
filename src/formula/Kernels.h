// Sample loops of the formula nodes, written four samples at a time with
// the compiler's vector extension so that they run as vector instructions
// whatever the optimisation level.  Every lane does the same single
// precision operations, in the same order, as the scalar loops, so results
// are bit for bit those of a sample-by-sample evaluation.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <cstring>

namespace formulakernels {

typedef float V4 __attribute__((vector_size(16)));

inline V4 Load(const float* p) {
    V4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void Store(float* p, V4 v) { std::memcpy(p, &v, sizeof v); }

// y[n] = op(a[n]) for first <= n <= last; op takes float and V4 alike.
template <class Op>
inline void Map1(float* __restrict y, const float* __restrict a, int first, int last, Op op) {
    int n = first;
    for (; n + 3 <= last; n += 4) Store(y + n, op(Load(a + n)));
    for (; n <= last; ++n) y[n] = op(a[n]);
}

// y[n] = op(a[n], b[n]) for first <= n <= last.
template <class Op>
inline void Map2(float* __restrict y, const float* __restrict a, const float* __restrict b, int first, int last,
                 Op op) {
    int n = first;
    for (; n + 3 <= last; n += 4) Store(y + n, op(Load(a + n), Load(b + n)));
    for (; n <= last; ++n) y[n] = op(a[n], b[n]);
}

// The symmetric FIR: y[n] = h[0] x[n], then y[n] += h[k] (x[n-k] + x[n+k])
// for k = 1 .. halfLength in that order, for first <= n <= last.  Eight
// samples are accumulated in registers across all the taps.
inline void SymmetricFir(float* __restrict y, const float* __restrict x, const float* __restrict h, int halfLength,
                         int first, int last) {
    int n = first;
    for (; n + 7 <= last; n += 8) {
        V4 acc0 = h[0] * Load(x + n);
        V4 acc1 = h[0] * Load(x + n + 4);
        for (int k = 1; k <= halfLength; ++k) {
            acc0 += h[k] * (Load(x + n - k) + Load(x + n + k));
            acc1 += h[k] * (Load(x + n + 4 - k) + Load(x + n + 4 + k));
        }
        Store(y + n, acc0);
        Store(y + n + 4, acc1);
    }
    for (; n + 3 <= last; n += 4) {
        V4 acc = h[0] * Load(x + n);
        for (int k = 1; k <= halfLength; ++k) acc += h[k] * (Load(x + n - k) + Load(x + n + k));
        Store(y + n, acc);
    }
    for (; n <= last; ++n) {
        float acc = h[0] * x[n];
        for (int k = 1; k <= halfLength; ++k) acc += h[k] * (x[n - k] + x[n + k]);
        y[n] = acc;
    }
}

}  // namespace formulakernels
#pragma GCC visibility pop
