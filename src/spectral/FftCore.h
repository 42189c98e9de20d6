// In-place radix-2 FFTs over packed float arrays.
//
// Conventions (those of the classic packed real FFT):
// - a complex array of nn points is 2 nn floats, real and imaginary parts
//   interleaved;
// - direction +1 computes X[k] = sum x[j] exp(+2 pi i j k / N), direction -1
//   the same sum with exp(-2 pi i j k / N); neither is normalised;
// - the forward real FFT of n points leaves X[0] (real) in element 0, the
//   Nyquist term X[n/2] (real) in element 1, and the real and imaginary parts
//   of X[k], k = 1 .. n/2 - 1, in elements 2k and 2k + 1.  The inverse takes
//   that packed form back to n/2 times the signal.
//
// Twiddle factors and the bit-reversal permutation are computed once per
// length and kept for the life of the process; a transform allocates nothing.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

namespace spectral {

// True when n is a power of two no greater than 2^26 (the largest length
// accepted by the transforms below).
bool IsFftLength(unsigned long long n);

// Bit-reversal permutation of nn complex points (nn a power of two).
void ComplexReorder(float* data, unsigned nn);
// Complex FFT of nn points (nn a power of two), in place.
void ComplexTransform(float* data, unsigned nn, int direction);
// Real FFT of n points (n a power of two, at least 2), in place, packed.
void RealTransform(float* data, unsigned n, int direction);

}  // namespace spectral
#pragma GCC visibility pop
