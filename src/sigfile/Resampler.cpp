#include "sigfile/Resampler.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double kPi = 3.14159265358979323846;
}  // namespace

CResampler::CResampler(double inRate, double outRate, int zeroCrossings)
    : m_inRate(inRate), m_outRate(outRate) {
    m_cutoff = std::min(1.0, outRate / inRate);
    m_halfWidth = std::max(1, zeroCrossings) / m_cutoff;
}

double CResampler::Output(ULONGLONG k, bool final) const {
    const double t = double(k) * m_inRate / m_outRate;
    const LONGLONG lo = LONGLONG(std::ceil(t - m_halfWidth));
    const LONGLONG hi = LONGLONG(std::floor(t + m_halfWidth));
    double sum = 0, weights = 0;
    for (LONGLONG j = lo; j <= hi; ++j) {
        double u = t - double(j);
        if (std::fabs(u) >= m_halfWidth) continue;
        double x = m_cutoff * u;
        double sinc = x == 0 ? 1.0 : std::sin(kPi * x) / (kPi * x);
        double a = u / m_halfWidth;
        double w = m_cutoff * sinc * (0.42 + 0.5 * std::cos(kPi * a) + 0.08 * std::cos(2 * kPi * a));
        double v;
        if (j < 0) v = m_first;
        else if (ULONGLONG(j) >= m_inputs) v = final ? m_buffer.back() : 0.0;
        else v = m_buffer[size_t(ULONGLONG(j) - m_bufferStart)];
        sum += w * v;
        weights += w;
    }
    // Dividing by the weights keeps a constant signal exactly constant.
    return weights != 0 ? sum / weights : 0.0;
}

void CResampler::Produce(bool final, std::vector<double>& out) {
    if (m_inputs == 0) return;
    const ULONGLONG total = ULONGLONG(std::ceil(double(m_inputs) * m_outRate / m_inRate - 1e-9));
    for (;;) {
        const double t = double(m_outputs) * m_inRate / m_outRate;
        if (final ? m_outputs >= total : std::floor(t + m_halfWidth) >= double(m_inputs)) break;
        out.push_back(Output(m_outputs, final));
        ++m_outputs;
    }
    // Drop the inputs no later output needs.
    const double t = double(m_outputs) * m_inRate / m_outRate;
    double keepFrom = std::floor(t - m_halfWidth) - 1;
    if (keepFrom > double(m_bufferStart)) {
        ULONGLONG drop = std::min<ULONGLONG>(ULONGLONG(keepFrom) - m_bufferStart, m_buffer.size() - 1);
        m_buffer.erase(m_buffer.begin(), m_buffer.begin() + LONGLONG(drop));
        m_bufferStart += drop;
    }
}

void CResampler::Push(const double* in, size_t count, std::vector<double>& out) {
    if (count == 0) return;
    if (m_inputs == 0) m_first = in[0];
    m_buffer.insert(m_buffer.end(), in, in + count);
    m_inputs += count;
    Produce(false, out);
}

void CResampler::Finish(std::vector<double>& out) { Produce(true, out); }

