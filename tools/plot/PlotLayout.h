// Where things go on a picture: the traces of an EEG page (baselines,
// scale from microvolts to points at a sensitivity), the time axis ticks,
// the rows of a hypnogram, and the bounded trace buffers that keep a page's
// memory proportional to its width.  Units are PostScript points (1/72 in),
// those of the PDF and SVG pages; a PNG is the same page rendered at a scale.
#pragma once

#include <cmath>
#include <string>
#include <vector>

namespace sigplot {

inline constexpr double kPointsPerMm = 72.0 / 25.4;
// A4 landscape.
inline constexpr double kPageWidth = 842.0;
inline constexpr double kPageHeight = 595.0;

struct Rect {
    double x = 0, y = 0, w = 0, h = 0;
    double Right() const { return x + w; }
    double Bottom() const { return y + h; }
};

// A nice tick step (1, 2 or 5 times a power of ten, or whole minutes and
// hours for times) so that range / step is at most maxTicks.
double NiceStep(double range, int maxTicks);
double NiceTimeStep(double seconds, int maxTicks);
// Multiples of step inside [from, to].
std::vector<double> Ticks(double from, double to, double step);

// The traces of one page.
class PageLayout {
public:
    PageLayout(double width, double height, double start, double duration, unsigned traces, double sensitivity);

    // The area where traces are drawn (between the labels and the right
    // margin, between the title and the time axis).
    const Rect& Plot() const { return m_plot; }
    double X(double seconds) const { return m_plot.x + (seconds - m_start) * m_plot.w / m_duration; }
    double Spacing() const { return m_traces ? m_plot.h / m_traces : m_plot.h; }
    double Baseline(unsigned trace) const { return m_plot.y + (trace + 0.5) * Spacing(); }
    // Row of a value in microvolts on a trace at the page's sensitivity;
    // positive values upward.
    double Y(unsigned trace, double microvolts) const {
        return Baseline(trace) - microvolts / m_sensitivity * kPointsPerMm;
    }
    double Start() const { return m_start; }
    double Duration() const { return m_duration; }
    double Sensitivity() const { return m_sensitivity; }
    unsigned Traces() const { return m_traces; }
    // Length of the sensitivity bar in microvolts: a round value drawn about
    // 10 mm high.
    double BarMicrovolts() const;

private:
    Rect m_plot;
    double m_start, m_duration;
    unsigned m_traces;
    double m_sensitivity;
};

// Rows of a hypnogram in a rectangle: W at the top, N3 at the bottom.
inline double HypnogramRowY(const Rect& r, int row) { return r.y + (row + 0.5) * r.h / 5.0; }

// One point of a trace: a sample (lo == hi) or the range of the samples that
// fall into one bucket of the page width.  A NaN lo breaks the line.
struct TracePoint {
    double t;
    float lo, hi;
};

// Collects the samples of one trace in a window, keeping at most about
// 2 x buckets points: when a bucket would hold more than two samples only
// their range is kept.
class TraceBuffer {
public:
    TraceBuffer(double start, double duration, double frequency, unsigned buckets);
    void Add(double t, float value);
    // n samples, the first at t0, then every step seconds (step > 0).
    void AddRun(double t0, double step, const float* values, size_t n);
    // The line stops here (a gap in the recording).
    void Break();
    // Flushes the bucket being filled; call once before reading Points.
    void Finish();
    const std::vector<TracePoint>& Points() const { return m_points; }
    std::vector<TracePoint> TakePoints() { return std::move(m_points); }

private:
    void Flush();
    double m_start, m_bucketSeconds;
    bool m_raw;
    long m_bucket = 0;
    bool m_open = false;
    float m_lo = 0, m_hi = 0;
    std::vector<TracePoint> m_points;
};

// Range of the finite values of a trace (lo > hi when there is none).
void TraceRange(const std::vector<TracePoint>& points, float& lo, float& hi);
// The q and 1 - q quantiles of the finite values of a trace (0 <= q < 0.5),
// from a few hundred of its points: its range without its rarest
// excursions (false when it has no value).
bool RobustRange(const std::vector<TracePoint>& points, double q, float& lo, float& hi);

// The text with every byte that is not part of a valid UTF-8 sequence
// (Latin-1 labels of older files, control characters) replaced by '?'.
std::string ValidUtf8(const std::string& text);

// "HH:MM:SS" of a time of day in seconds (any value, wrapped to a day).
std::string ClockText(double secondsOfDay);

}  // namespace sigplot
