// Butterworth design: analog prototype poles, frequency transformation,
// bilinear transform (with pre-warped edges), then grouping of the digital
// zeros and poles into second-order sections.
#include "formula/Biquad.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace {
using Complex = std::complex<double>;
using Roots = std::vector<Complex>;

// Zeros, poles and gain of a filter.
struct Zpk {
    Roots z;
    Roots p;
    double k = 1.0;
};

Complex Product(const Roots& r, Complex shift, double sign) {
    Complex prod(1.0, 0.0);
    for (const Complex& v : r) prod *= shift + sign * v;
    return prod;
}

// Analog Butterworth prototype of order n: poles on the left unit half
// circle, no zeros, gain 1.
Zpk Prototype(int n) {
    Zpk f;
    for (int m = -n + 1; m < n; m += 2)
        f.p.push_back(-std::exp(Complex(0.0, std::numbers::pi * m / (2.0 * n))));
    return f;
}

Zpk LowPass(Zpk f, double wo) {
    const int degree = static_cast<int>(f.p.size() - f.z.size());
    for (Complex& v : f.z) v *= wo;
    for (Complex& v : f.p) v *= wo;
    f.k *= std::pow(wo, degree);
    return f;
}

Zpk HighPass(Zpk f, double wo) {
    const size_t degree = f.p.size() - f.z.size();
    const double gain = std::real(Product(f.z, 0.0, -1.0) / Product(f.p, 0.0, -1.0));
    for (Complex& v : f.z) v = wo / v;
    for (Complex& v : f.p) v = wo / v;
    f.z.insert(f.z.end(), degree, Complex(0.0, 0.0));
    f.k *= gain;
    return f;
}

Zpk BandPass(const Zpk& f, double wo, double bw) {
    const size_t degree = f.p.size() - f.z.size();
    Zpk g;
    auto split = [&](const Roots& in, Roots& out) {
        for (const Complex& v : in) {
            const Complex lp = v * (bw / 2.0);
            const Complex root = std::sqrt(lp * lp - wo * wo);
            out.push_back(lp + root);
        }
        for (const Complex& v : in) {
            const Complex lp = v * (bw / 2.0);
            const Complex root = std::sqrt(lp * lp - wo * wo);
            out.push_back(lp - root);
        }
    };
    split(f.z, g.z);
    split(f.p, g.p);
    g.z.insert(g.z.end(), degree, Complex(0.0, 0.0));
    g.k = f.k * std::pow(bw, static_cast<double>(degree));
    return g;
}

Zpk BandStop(const Zpk& f, double wo, double bw) {
    const size_t degree = f.p.size() - f.z.size();
    Zpk g;
    auto split = [&](const Roots& in, Roots& out) {
        for (const Complex& v : in) {
            const Complex hp = (bw / 2.0) / v;
            out.push_back(hp + std::sqrt(hp * hp - wo * wo));
        }
        for (const Complex& v : in) {
            const Complex hp = (bw / 2.0) / v;
            out.push_back(hp - std::sqrt(hp * hp - wo * wo));
        }
    };
    split(f.z, g.z);
    split(f.p, g.p);
    g.z.insert(g.z.end(), degree, Complex(0.0, wo));
    g.z.insert(g.z.end(), degree, Complex(0.0, -wo));
    g.k = f.k * std::real(Product(f.z, 0.0, -1.0) / Product(f.p, 0.0, -1.0));
    return g;
}

// Bilinear transform with the design sampling frequency fs.
Zpk Bilinear(const Zpk& f, double fs) {
    const double fs2 = 2.0 * fs;
    const size_t degree = f.p.size() - f.z.size();
    Zpk g;
    for (const Complex& v : f.z) g.z.push_back((fs2 + v) / (fs2 - v));
    for (const Complex& v : f.p) g.p.push_back((fs2 + v) / (fs2 - v));
    g.z.insert(g.z.end(), degree, Complex(-1.0, 0.0));
    g.k = f.k * std::real(Product(f.z, fs2, -1.0) / Product(f.p, fs2, -1.0));
    return g;
}

// Quadratic factors (1, c1, c2) of a set of roots closed under conjugation:
// each conjugate pair gives one, the real roots are taken two by two, and a
// last lone real root gives a first-order factor (1, -r, 0), placed last.
struct Quad {
    double c1, c2;
};

std::vector<Quad> Factor(const Roots& roots) {
    std::vector<Quad> quads;
    std::vector<double> reals;
    for (const Complex& r : roots) {
        const double tol = 1e-10 * std::max(1.0, std::abs(r));
        if (std::abs(r.imag()) <= tol)
            reals.push_back(r.real());
        else if (r.imag() > 0)
            quads.push_back({-2.0 * r.real(), std::norm(r)});
    }
    std::sort(reals.begin(), reals.end());
    size_t i = 0;
    for (; i + 1 < reals.size(); i += 2) quads.push_back({-(reals[i] + reals[i + 1]), reals[i] * reals[i + 1]});
    if (i < reals.size()) quads.push_back({-reals[i], 0.0});
    return quads;
}

// What the parameters build once degenerate edges are dropped.
enum class Shape { pass, block, lowPass, highPass, bandPass, bandStop };
}  // namespace

CBiquad::CBiquad(int type, int order, float sampleRate, float lowCut, float highCut) {
    Design(type, order, sampleRate, lowCut, highCut);
    Init(0.0f);
}

void CBiquad::Design(int type, int order, double fs, double low, double high) {
    m_sections.clear();
    m_bBlock = false;
    if (type < lowPass || type > bandStop || order < 1 || order > 10 || !(fs > 0.0) || !std::isfinite(fs)) return;

    const double nyquist = fs / 2.0;
    // An edge "in" lies strictly between 0 and the Nyquist frequency; NaN
    // edges count as at 0.
    const bool lowAbove0 = low > 0.0, highAbove0 = high > 0.0;
    const bool lowBelowNyq = low < nyquist, highBelowNyq = high < nyquist;
    Shape shape = Shape::pass;
    double e1 = 0.0, e2 = 0.0;
    switch (type) {
    case lowPass:
        shape = !highAbove0 ? Shape::block : !highBelowNyq ? Shape::pass : Shape::lowPass;
        e1 = high;
        break;
    case highPass:
        shape = !lowAbove0 ? Shape::pass : !lowBelowNyq ? Shape::block : Shape::highPass;
        e1 = low;
        break;
    case bandPass:
        if (!(low < high)) shape = Shape::block;
        else if (!lowAbove0) shape = !highBelowNyq ? Shape::pass : (highAbove0 ? Shape::lowPass : Shape::block);
        else if (!highBelowNyq) shape = lowBelowNyq ? Shape::highPass : Shape::block;
        else shape = Shape::bandPass;
        e1 = shape == Shape::lowPass ? high : low;
        e2 = high;
        break;
    default:  // band-stop
        if (!(low < high)) shape = Shape::pass;
        else if (!lowAbove0) shape = !highBelowNyq ? Shape::block : (highAbove0 ? Shape::highPass : Shape::pass);
        else if (!highBelowNyq) shape = lowBelowNyq ? Shape::lowPass : Shape::pass;
        else shape = Shape::bandStop;
        e1 = shape == Shape::highPass ? high : low;
        e2 = high;
        break;
    }
    if (shape == Shape::pass) return;
    if (shape == Shape::block) {
        m_bBlock = true;
        return;
    }

    // Normalised design at a sampling frequency of 2, edges pre-warped.
    const double designFs = 2.0;
    auto warp = [&](double f) { return 2.0 * designFs * std::tan(std::numbers::pi * (f / nyquist) / designFs); };
    Zpk analog;
    const Zpk proto = Prototype(order);
    switch (shape) {
    case Shape::lowPass: analog = LowPass(proto, warp(e1)); break;
    case Shape::highPass: analog = HighPass(proto, warp(e1)); break;
    case Shape::bandPass:
    case Shape::bandStop: {
        const double w1 = warp(e1), w2 = warp(e2);
        const double wo = std::sqrt(w1 * w2), bw = w2 - w1;
        analog = shape == Shape::bandPass ? BandPass(proto, wo, bw) : BandStop(proto, wo, bw);
        break;
    }
    default: break;
    }
    const Zpk digital = Bilinear(analog, designFs);

    const std::vector<Quad> zeros = Factor(digital.z);
    const std::vector<Quad> poles = Factor(digital.p);
    const size_t count = std::max(zeros.size(), poles.size());
    for (size_t i = 0; i < count; ++i) {
        const Quad zq = i < zeros.size() ? zeros[i] : Quad{0.0, 0.0};
        const Quad pq = i < poles.size() ? poles[i] : Quad{0.0, 0.0};
        m_sections.push_back({1.0, zq.c1, zq.c2, pq.c1, pq.c2, 0.0, 0.0});
    }
    if (!m_sections.empty()) {
        Section& first = m_sections.front();
        first.b0 *= digital.k;
        first.b1 *= digital.k;
        first.b2 *= digital.k;
    }
}

void CBiquad::Init(float value) {
    // Each section's input is the previous section's steady output.
    double c = value;
    for (Section& s : m_sections) {
        const double den = 1.0 + s.a1 + s.a2;
        const double y = den != 0.0 ? c * (s.b0 + s.b1 + s.b2) / den : 0.0;
        s.z2 = s.b2 * c - s.a2 * y;
        s.z1 = s.b1 * c - s.a1 * y + s.z2;
        c = y;
    }
}

void CBiquad::Filter(const float* in, float* out, int count) {
    if (m_bBlock) {
        std::fill(out, out + std::max(count, 0), 0.0f);
        return;
    }
    if (m_sections.empty()) {
        if (out != in) std::copy(in, in + std::max(count, 0), out);
        return;
    }
    // Section by section over the block, the state in locals: the same
    // operations per sample as Filter(float), so the same results.  The
    // values between sections stay doubles in a buffer on the stack.
    constexpr int kChunk = 256;
    double work[kChunk];
    for (int start = 0; start < count; start += kChunk) {
        const int len = std::min(kChunk, count - start);
        for (int n = 0; n < len; ++n) work[n] = in[start + n];
        for (Section& s : m_sections) {
            double z1 = s.z1, z2 = s.z2;
            const double b0 = s.b0, b1 = s.b1, b2 = s.b2, a1 = s.a1, a2 = s.a2;
            for (int n = 0; n < len; ++n) {
                const double x = work[n];
                const double y = b0 * x + z1;
                z1 = b1 * x - a1 * y + z2;
                z2 = b2 * x - a2 * y;
                work[n] = y;
            }
            s.z1 = z1;
            s.z2 = z2;
        }
        for (int n = 0; n < len; ++n) out[start + n] = static_cast<float>(work[n]);
    }
}
