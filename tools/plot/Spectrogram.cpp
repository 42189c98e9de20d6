#include "Spectrogram.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "spectral/FftCore.h"

namespace sigplot {

namespace {
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
// At most this many columns, whatever the recording says (ColumnSecondsFor
// widens the columns of longer recordings).
constexpr unsigned kMaxColumns = 20000;
}  // namespace

void SpectrogramMatrix::Resize(unsigned newColumns, unsigned newBins) {
    columns = newColumns;
    bins = newBins;
    db.assign(static_cast<size_t>(columns) * bins, kNaN);
}

void SpectrogramMatrix::SetColumn(unsigned column, const std::vector<float>& values, unsigned maxColumns) {
    if (column >= maxColumns || bins == 0) return;
    if (column >= columns) {
        columns = column + 1;
        db.resize(static_cast<size_t>(columns) * bins, kNaN);
    }
    const size_t n = std::min<size_t>(values.size(), bins);
    std::copy(values.begin(), values.begin() + static_cast<long>(n), db.begin() + static_cast<long>(column) * bins);
}

unsigned SpectrogramMatrix::BrightestBin() const {
    unsigned best = 0;
    double bestMean = -std::numeric_limits<double>::infinity();
    for (unsigned k = 0; k < bins; ++k) {
        double sum = 0;
        unsigned n = 0;
        for (unsigned c = 0; c < columns; ++c)
            if (std::isfinite(At(c, k))) {
                sum += At(c, k);
                ++n;
            }
        if (n && sum / n > bestMean) {
            bestMean = sum / n;
            best = k;
        }
    }
    return best;
}

bool SpectrogramMatrix::Levels(float& low, float& high) const {
    std::vector<float> v;
    v.reserve(db.size());
    for (float x : db)
        if (std::isfinite(x)) v.push_back(x);
    if (v.empty()) return false;
    const auto at = [&v](double q) {
        const size_t k = std::min(v.size() - 1, static_cast<size_t>(q * static_cast<double>(v.size() - 1)));
        std::nth_element(v.begin(), v.begin() + static_cast<long>(k), v.end());
        return v[k];
    };
    low = at(0.02);
    high = at(0.99);
    if (!(high > low)) high = low + 1.0f;
    return true;
}

SpectrogramBuilder::SpectrogramBuilder(double sampleRate, double columnSeconds, double fmax, double totalSeconds)
    : m_rate(sampleRate), m_columnSeconds(columnSeconds > 0 ? columnSeconds : 30.0) {
    if (!(sampleRate >= 8.0) || !(sampleRate <= 1e6) || !(totalSeconds > 0)) return;
    // The largest power of two of at most 2 s of samples.
    unsigned n = 8;
    while (n * 2.0 <= sampleRate * 2.0 && n < (1u << 20)) n *= 2;
    m_n = n;
    const double res = sampleRate / n;
    const unsigned nyquist = n / 2;
    const double top = (fmax > 0 && fmax < sampleRate / 2) ? fmax : sampleRate / 2;
    m_bins = std::min(nyquist, static_cast<unsigned>(std::floor(top / res)) + 1);
    m_window.resize(n);
    for (unsigned i = 0; i < n; ++i) {
        m_window[i] = static_cast<float>(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * i / n));
        m_windowPower += double(m_window[i]) * m_window[i];
    }
    m_epoch.reserve(n);
    m_work.resize(n);
    m_sum.assign(m_bins, 0.0);
    // Wider columns rather than more than 8 million values (32 MB).
    const double cells = std::ceil(totalSeconds / m_columnSeconds) * m_bins;
    if (cells > 8e6) m_columnSeconds *= cells / 8e6;
    m_maxColumns = static_cast<unsigned>(std::min<double>(kMaxColumns, std::ceil(totalSeconds / m_columnSeconds)));
    m_matrix.columnSeconds = m_columnSeconds;
    m_matrix.freqRes = res;
    m_matrix.Resize(m_maxColumns, m_bins);
}

SpectrogramBuilder::~SpectrogramBuilder() = default;

void SpectrogramBuilder::Add(double t, const float* samples, size_t count) {
    if (!IsValid() || count == 0) return;
    // Samples that do not follow the last ones start a new epoch.
    if (m_nextTime >= 0 && std::fabs(t - m_nextTime) > 0.5 / m_rate) m_epoch.clear();
    for (size_t i = 0; i < count; ++i) {
        if (m_epoch.empty()) m_epochStart = t + static_cast<double>(i) / m_rate;
        m_epoch.push_back(std::isfinite(samples[i]) ? samples[i] : 0.0f);
        if (m_epoch.size() == m_n) {
            Transform();
            m_epoch.clear();
        }
    }
    m_nextTime = t + static_cast<double>(count) / m_rate;
}

void SpectrogramBuilder::Break() {
    m_epoch.clear();
    m_nextTime = -1;
}

void SpectrogramBuilder::Transform() {
    const long column = static_cast<long>(std::floor(m_epochStart / m_columnSeconds + 1e-9));
    if (column != m_column) {
        FlushColumn();
        m_column = column;
    }
    double mean = 0;
    for (float v : m_epoch) mean += v;
    mean /= m_n;
    for (unsigned i = 0; i < m_n; ++i) m_work[i] = static_cast<float>((m_epoch[i] - mean) * m_window[i]);
    spectral::RealTransform(m_work.data(), m_n, 1);
    // One-sided power spectral density: 2 |X|^2 / (rate x sum w^2).
    const double scale = 2.0 / (m_rate * m_windowPower);
    for (unsigned k = 0; k < m_bins; ++k) {
        const double re = k == 0 ? m_work[0] : m_work[2 * k];
        const double im = k == 0 ? 0.0 : m_work[2 * k + 1];
        m_sum[k] += (re * re + im * im) * scale * (k == 0 ? 0.5 : 1.0);
    }
    ++m_epochsInColumn;
}

void SpectrogramBuilder::FlushColumn() {
    if (m_column >= 0 && m_epochsInColumn > 0 && static_cast<unsigned long>(m_column) < m_maxColumns) {
        std::vector<float> values(m_bins);
        for (unsigned k = 0; k < m_bins; ++k) {
            const double p = m_sum[k] / m_epochsInColumn;
            values[k] = static_cast<float>(10.0 * std::log10(std::max(p, 1e-12)));
        }
        m_matrix.SetColumn(static_cast<unsigned>(m_column), values, m_maxColumns);
    }
    std::fill(m_sum.begin(), m_sum.end(), 0.0);
    m_epochsInColumn = 0;
}

SpectrogramMatrix SpectrogramBuilder::Finish(const std::string& label) {
    FlushColumn();
    m_column = -1;
    m_matrix.label = label;
    return m_matrix;
}

double ColumnSecondsFor(double totalSeconds, double minSeconds) {
    if (!std::isfinite(totalSeconds) || totalSeconds < 0) totalSeconds = 0;
    double s = std::ceil(totalSeconds / 600.0);
    // Up to 30 s (one scoring epoch), wider only past 20000 columns.
    s = std::min(std::max(30.0, std::ceil(totalSeconds / kMaxColumns)), std::max(s, std::ceil(minSeconds)));
    return s > 0 ? s : 1.0;
}

void ColourOf(double level, double& r, double& g, double& b) {
    static const double stops[][3] = {
        {0.05, 0.03, 0.25}, {0.23, 0.15, 0.55}, {0.13, 0.45, 0.56}, {0.20, 0.70, 0.42}, {0.99, 0.91, 0.14}};
    if (!std::isfinite(level)) level = 0;
    level = std::clamp(level, 0.0, 1.0) * 4.0;
    const int i = std::min(3, static_cast<int>(level));
    const double f = level - i;
    r = stops[i][0] + (stops[i + 1][0] - stops[i][0]) * f;
    g = stops[i][1] + (stops[i + 1][1] - stops[i][1]) * f;
    b = stops[i][2] + (stops[i + 1][2] - stops[i][2]) * f;
}

}  // namespace sigplot
