#include "PlotLayout.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace sigplot {

double NiceStep(double range, int maxTicks) {
    if (!(range > 0) || maxTicks < 1) return 1.0;
    const double raw = range / maxTicks;
    const double p = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0, 10.0})
        if (m * p >= raw) return m * p;
    return 10.0 * p;
}

double NiceTimeStep(double seconds, int maxTicks) {
    static const double steps[] = {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600};
    if (!(seconds > 0) || maxTicks < 1) return 1.0;
    for (double s : steps)
        if (seconds / s <= maxTicks) return s;
    return NiceStep(seconds, maxTicks);
}

std::vector<double> Ticks(double from, double to, double step) {
    std::vector<double> ticks;
    if (!(step > 0) || !(to >= from) || (to - from) / step > 10000) return ticks;
    for (double k = std::ceil(from / step - 1e-9); k * step <= to + 1e-9 * step; k += 1.0) ticks.push_back(k * step + 0.0);
    return ticks;
}

PageLayout::PageLayout(double width, double height, double start, double duration, unsigned traces,
                       double sensitivity)
    : m_start(start), m_duration(duration > 0 ? duration : 1.0), m_traces(traces),
      m_sensitivity(sensitivity > 0 ? sensitivity : 7.0) {
    // Labels at the left, the sensitivity bar at the right, a title line at
    // the top and two lines of time axis at the bottom.
    m_plot = {72.0, 30.0, std::max(10.0, width - 72.0 - 46.0), std::max(10.0, height - 30.0 - 34.0)};
}

double PageLayout::BarMicrovolts() const {
    const double target = m_sensitivity * 10.0;
    const double step = NiceStep(target, 1);
    // NiceStep rounds up; the half step is closer when it is.
    return (step / 2 >= target * 0.7) ? step / 2 : step;
}

TraceBuffer::TraceBuffer(double start, double duration, double frequency, unsigned buckets)
    : m_start(start), m_bucketSeconds(duration / std::max(1u, buckets)) {
    m_raw = !(frequency * m_bucketSeconds > 2.0);
    m_points.reserve(m_raw ? static_cast<size_t>(std::min(1e7, frequency * duration + 16)) : buckets + 16u);
}

void TraceBuffer::Add(double t, float value) {
    if (m_raw) {
        m_points.push_back({t, value, value});
        return;
    }
    const long b = static_cast<long>(std::floor((t - m_start) / m_bucketSeconds));
    if (!m_open || b != m_bucket) {
        Flush();
        m_open = true;
        m_bucket = b;
        m_lo = m_hi = value;
        return;
    }
    m_lo = std::min(m_lo, value);
    m_hi = std::max(m_hi, value);
}

namespace {
// floor and ceil of values well inside the range of long, without a call.
long FloorLong(double v) {
    const long i = static_cast<long>(v);
    return i - (v < static_cast<double>(i));
}
long CeilLong(double v) {
    const long i = static_cast<long>(v);
    return i + (v > static_cast<double>(i));
}
}  // namespace

void TraceBuffer::AddRun(double t0, double step, const float* values, size_t n) {
    const double first = (t0 - m_start) / m_bucketSeconds;
    if (m_raw || !(step > 0) || !(std::fabs(first) < 1e15)) {
        for (size_t i = 0; i < n; ++i) Add(t0 + static_cast<double>(i) * step, values[i]);
        return;
    }
    // Bucket by bucket: with more than two samples per bucket each bucket
    // holds some, and where bucket b ends (in samples of this run) is a
    // product that does not wait for the bucket before.
    const double origin = (m_start - t0) / step, perBucket = m_bucketSeconds / step;
    long b = FloorLong(first);
    size_t i = 0;
    while (i < n) {
        if (!m_open || b != m_bucket) {
            Flush();
            m_open = true;
            m_bucket = b;
            m_lo = m_hi = values[i];
        }
        const double ends = std::clamp(origin + static_cast<double>(b + 1) * perBucket, 0.0, static_cast<double>(n));
        const size_t end = std::max(i + 1, static_cast<size_t>(CeilLong(ends)));
        float lo = m_lo, hi = m_hi;
        for (size_t k = i; k < end; ++k) {
            lo = std::min(lo, values[k]);
            hi = std::max(hi, values[k]);
        }
        m_lo = lo;
        m_hi = hi;
        i = end;
        ++b;
    }
}

void TraceBuffer::Flush() {
    if (m_open) m_points.push_back({m_start + (m_bucket + 0.5) * m_bucketSeconds, m_lo, m_hi});
    m_open = false;
}

void TraceBuffer::Break() {
    if (!m_raw) Flush();
    if (!m_points.empty() && !std::isnan(m_points.back().lo))
        m_points.push_back({m_points.back().t, std::numeric_limits<float>::quiet_NaN(), 0.0f});
}

void TraceBuffer::Finish() {
    if (!m_raw) Flush();
}

void TraceRange(const std::vector<TracePoint>& points, float& lo, float& hi) {
    lo = std::numeric_limits<float>::max();
    hi = -std::numeric_limits<float>::max();
    for (const TracePoint& p : points) {
        if (!std::isfinite(p.lo) || !std::isfinite(p.hi)) continue;
        lo = std::min(lo, p.lo);
        hi = std::max(hi, p.hi);
    }
}

bool RobustRange(const std::vector<TracePoint>& points, double q, float& lo, float& hi) {
    if (q <= 0) {
        TraceRange(points, lo, hi);
        return hi >= lo;
    }
    // A few hundred points spread over the trace tell its quantiles well
    // enough for choosing a scale.
    const size_t stride = std::max<size_t>(1, points.size() / 256);
    std::vector<float> v;
    v.reserve(2 * (points.size() / stride + 1));
    for (size_t i = 0; i < points.size(); i += stride) {
        const TracePoint& p = points[i];
        if (!std::isfinite(p.lo) || !std::isfinite(p.hi)) continue;
        v.push_back(p.lo);
        if (p.hi != p.lo) v.push_back(p.hi);
    }
    if (v.empty()) return false;
    q = std::clamp(q, 0.0, 0.5);
    const auto at = [&v](double f) {
        const size_t k = std::min(v.size() - 1, static_cast<size_t>(f * static_cast<double>(v.size() - 1) + 0.5));
        std::nth_element(v.begin(), v.begin() + static_cast<long>(k), v.end());
        return v[k];
    };
    lo = at(q);
    hi = at(1.0 - q);
    return true;
}

std::string ValidUtf8(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    for (size_t i = 0; i < n;) {
        const unsigned c = p[i];
        size_t len = 0;
        unsigned min = 0, cp = 0;
        if (c < 0x80) {
            out += (c < 0x20 || c == 0x7F) ? '?' : static_cast<char>(c);
            ++i;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            len = 2, cp = c & 0x1F, min = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            len = 3, cp = c & 0x0F, min = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            len = 4, cp = c & 0x07, min = 0x10000;
        }
        bool ok = len > 0 && i + len <= n;
        for (size_t k = 1; ok && k < len; ++k) {
            ok = (p[i + k] & 0xC0) == 0x80;
            cp = (cp << 6) | (p[i + k] & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
        ok = ok && cp >= min && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
        if (ok) {
            out.append(text, i, len);
            i += len;
        } else {
            out += '?';
            ++i;
        }
    }
    return out;
}

std::string ClockText(double secondsOfDay) {
    double s = std::fmod(std::floor(secondsOfDay + 0.5), 86400.0);
    if (s < 0) s += 86400.0;
    const long v = static_cast<long>(s);
    char text[64];
    std::snprintf(text, sizeof text, "%02ld:%02ld:%02ld", v / 3600 % 24, v / 60 % 60, v % 60);
    return text;
}

}  // namespace sigplot
