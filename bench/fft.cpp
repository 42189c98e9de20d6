// Real FFT speed against FFTW (single precision, measured plans), and the
// time to compute the spectra of a one-hour, 21-channel recording in 2 s
// epochs.
//
//   RESULT fft_<n> <us per transform> ratio=<ours / FFTW> target=3
//   RESULT spectral_1h_21ch <CPU seconds> ratio=<seconds / 1 s budget> target=1
//
// The second figure has no program of another make to compare with: its
// ratio is against the budget of one second of CPU for the whole file.
//
// Without FFTW (bench/fft.cmake did not find it) the FFT lines compare with a
// textbook radix-2 FFT computed here instead, named fft_<n>_vs_textbook.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <vector>

#include <unistd.h>

#include "montage/mtgs.h"
#include "records/SigRec.h"
#include "spectral/CsaCompute.h"
#include "spectral/Csafile.h"
#include "spectral/Fft.h"
#include "spectral/Specrec.h"

#ifdef SIGFILE_BENCH_HAVE_FFTW3F
#include <fftw3.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

double CpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

// Microseconds per call of one batch of fn.
template <class Fn>
double BatchTime(Fn& fn, unsigned iterations) {
    auto t0 = Clock::now();
    for (unsigned i = 0; i < iterations; ++i) fn();
    return std::chrono::duration<double, std::micro>(Clock::now() - t0).count() / iterations;
}

// Best time per call of ours and of base, in microseconds.  Batches of the
// two alternate, so that a change in the machine's load between them does not
// favour either side.
template <class A, class B>
void TimeBoth(A ours, B base, unsigned n, double& oursUs, double& baseUs) {
    const unsigned iterations = std::max(100u, 1000000u / n);
    oursUs = baseUs = 1e30;
    for (int run = 0; run < 21; ++run) {
        oursUs = std::min(oursUs, BatchTime(ours, iterations));
        baseUs = std::min(baseUs, BatchTime(base, iterations));
    }
}

#ifndef SIGFILE_BENCH_HAVE_FFTW3F
// Textbook in-place radix-2 FFT (bit reversal, twiddles by recurrence) and
// the packed real transform built on it.
void TextbookComplex(float* data, unsigned nn) {
    unsigned n = nn << 1, j = 1;
    float* d = data - 1;
    for (unsigned i = 1; i < n; i += 2) {
        if (j > i) {
            std::swap(d[j], d[i]);
            std::swap(d[j + 1], d[i + 1]);
        }
        unsigned m = nn;
        while (m >= 2 && j > m) {
            j -= m;
            m >>= 1;
        }
        j += m;
    }
    for (unsigned mmax = 2; n > mmax;) {
        unsigned step = mmax << 1;
        double theta = 6.28318530717959 / mmax;
        double wtemp = std::sin(0.5 * theta), wpr = -2.0 * wtemp * wtemp, wpi = std::sin(theta);
        double wr = 1.0, wi = 0.0;
        for (unsigned m = 1; m < mmax; m += 2) {
            for (unsigned i = m; i <= n; i += step) {
                unsigned k = i + mmax;
                float tr = float(wr) * d[k] - float(wi) * d[k + 1];
                float ti = float(wr) * d[k + 1] + float(wi) * d[k];
                d[k] = d[i] - tr;
                d[k + 1] = d[i + 1] - ti;
                d[i] += tr;
                d[i + 1] += ti;
            }
            wr = (wtemp = wr) * wpr - wi * wpi + wr;
            wi = wi * wpr + wtemp * wpi + wi;
        }
        mmax = step;
    }
}

void TextbookReal(float* data, unsigned n) {
    TextbookComplex(data, n >> 1);
    float* d = data - 1;
    double theta = 3.141592653589793 / double(n >> 1);
    double wtemp = std::sin(0.5 * theta), wpr = -2.0 * wtemp * wtemp, wpi = std::sin(theta);
    double wr = 1.0 + wpr, wi = wpi;
    for (unsigned i = 2; i <= (n >> 2); ++i) {
        unsigned i1 = i + i - 1, i2 = 1 + i1, i3 = n + 3 - i2, i4 = 1 + i3;
        float h1r = 0.5f * (d[i1] + d[i3]), h1i = 0.5f * (d[i2] - d[i4]);
        float h2r = 0.5f * (d[i2] + d[i4]), h2i = -0.5f * (d[i1] - d[i3]);
        d[i1] = h1r + float(wr) * h2r - float(wi) * h2i;
        d[i2] = h1i + float(wr) * h2i + float(wi) * h2r;
        d[i3] = h1r - float(wr) * h2r + float(wi) * h2i;
        d[i4] = -h1i + float(wr) * h2i + float(wi) * h2r;
        wr = (wtemp = wr) * wpr - wi * wpi + wr;
        wi = wi * wpr + wtemp * wpi + wi;
    }
    float h = d[1];
    d[1] = h + d[2];
    d[2] = h - d[2];
}
#endif

void BenchFft() {
    std::mt19937 gen(1);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    for (unsigned n = 256; n <= 4096; n *= 2) {
        std::vector<float> input(n);
        for (float& v : input) v = dist(gen);
        std::vector<float> work(n);
        auto oursFn = [&] {
            std::memcpy(work.data(), input.data(), n * sizeof(float));
            CFftFactory::RealFft(work.data(), n, 1);
        };
        double ours = 0.0, base = 0.0;
#ifdef SIGFILE_BENCH_HAVE_FFTW3F
        float* in = fftwf_alloc_real(n);
        fftwf_complex* out = fftwf_alloc_complex(n / 2 + 1);
        fftwf_plan plan = fftwf_plan_dft_r2c_1d(static_cast<int>(n), in, out, FFTW_MEASURE);
        std::copy(input.begin(), input.end(), in);
        TimeBoth(oursFn, [&] { fftwf_execute(plan); }, n, ours, base);
        fftwf_destroy_plan(plan);
        fftwf_free(in);
        fftwf_free(out);
        std::printf("RESULT fft_%u %.3fus ratio=%.2f target=3\n", n, ours, ours / base);
#else
        std::vector<float> other(n);
        auto baseFn = [&] {
            std::memcpy(other.data(), input.data(), n * sizeof(float));
            TextbookReal(other.data(), n);
        };
        TimeBoth(oursFn, baseFn, n, ours, base);
        std::printf("RESULT fft_%u_vs_textbook %.3fus ratio=%.2f target=1\n", n, ours, ours / base);
#endif
        std::fflush(stdout);
    }
}

// One hour of 21 channels at 256 Hz in 1 s records, analysed in 2 s epochs
// with a Hanning window and mean removal into a spectral file pair: 1800
// spectral records written through CCsaFile.  The records are made before
// the clock starts; the figure is the CPU time of the analysis and writing.
void BenchSpectralFile() {
    const unsigned channels = 21, freq = 256;
    const LONG records = 3600;
    const char* names[channels] = {"Fp1", "Fp2", "F7", "F3", "Fz", "F4", "F8", "T3", "C3", "Cz", "C4",
                                   "T4",  "T5",  "P3", "Pz", "P4", "T6", "O1", "O2", "A1", "A2"};
    CPhysicalMontage pm("Bench", 0);
    for (const char* e : names) pm.AddElectrode(e, CPhysicalMontage::GetStdElecPosition(e));
    CRecordingMontage* rec = pm.CreateRecordingMontage();
    rec->SetSamplesRecord(freq);
    rec->SetBaseFrequency(freq);
    for (const char* e : names) rec->AddChannel(e, "", 1, 1, freq, 0, 0, "");

    std::mt19937 gen(2);
    std::normal_distribution<float> noise(0.0f, 20e-6f);
    std::vector<std::unique_ptr<CFmtSigRec>> recs;
    recs.reserve(records);
    CSDateTime start(2026, 1, 31, 22, 0, 0);
    for (LONG r = 0; r < records; ++r) {
        auto one = std::make_unique<CFmtSigRec>(channels, freq);
        one->SetTime(start + CSTimeSpan(r));
        for (unsigned c = 0; c < channels; ++c)
            for (unsigned s = 0; s < freq; ++s)
                one->SetAt(c, s, noise(gen) + 30e-6f * std::sin(2.0f * 3.14159265f * 10.0f * (r * freq + s) / freq));
        recs.push_back(std::move(one));
    }
    auto reader = [&](LONG index, CFmtSigRec& out) {
        out = *recs[static_cast<size_t>(index)];
        return 1;
    };

    char folder[] = "/tmp/sigfile-bench-XXXXXX";
    if (!mkdtemp(folder)) return;
    const std::string out = std::string(folder) + "/bench.SPC";
    std::vector<WORD> selected(channels);
    for (unsigned c = 0; c < channels; ++c) selected[c] = static_cast<WORD>(c);
    CSpectralSettings settings;
    settings.fftEpochLen = 2.0f;
    settings.preProcessing = CFftFactory::preMean;
    settings.tapering = CFftFactory::taperHanning;

    double cpu0 = CpuSeconds();
    long error = 0;
    int ok = ComputeSpectralFile(out.c_str(), rec, channels, selected.data(), settings, records, reader, "bench.SIG",
                                 "", nullptr, nullptr, &error);
    double cpu = CpuSeconds() - cpu0;
    CCsaFile::Delete(out.c_str());
    rmdir(folder);
    if (!ok) {
        std::fprintf(stderr, "spectral file failed: %ld\n", error);
        return;
    }
    std::printf("RESULT spectral_1h_21ch %.4fs ratio=%.3f target=1\n", cpu, cpu / 1.0);
}

}  // namespace

int main() {
    BenchFft();
    BenchSpectralFile();
    return 0;
}
