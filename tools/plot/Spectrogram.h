// The spectrogram of one channel as a matrix of power in dB (re 1 unit^2/Hz)
// over columns of time and bins of frequency, built from a stream of
// samples read once in order (FFT epochs averaged into columns) or filled
// from the records of a spectral file; and the colour scale that draws it.
#pragma once

#include <string>
#include <vector>

namespace sigplot {

struct SpectrogramMatrix {
    std::string label;           // channel
    double columnSeconds = 30.0;  // width of a column
    double freqRes = 0.5;        // Hz between bins; bin k is centred on k x freqRes
    unsigned bins = 0;
    unsigned columns = 0;        // column c starts at c x columnSeconds from the recording start
    std::vector<float> db;       // columns x bins, NaN where nothing was computed

    float At(unsigned column, unsigned bin) const { return db[static_cast<size_t>(column) * bins + bin]; }
    void Resize(unsigned newColumns, unsigned newBins);
    // Sets a column, growing the matrix when needed (columns beyond
    // maxColumns are ignored).
    void SetColumn(unsigned column, const std::vector<float>& values, unsigned maxColumns);
    // The bin whose mean over the computed columns is highest (0 when none).
    unsigned BrightestBin() const;
    // A low and a high level (2nd and 99th percentiles of the finite values)
    // for the colour scale; false when the matrix has no finite value.
    bool Levels(float& low, float& high) const;
};

// Builds a matrix from the samples of one channel given in order.  FFT
// epochs of a power-of-two length (about 2 s) with a Hann window and the
// mean removed are averaged into the column where they start; a gap in the
// samples drops the epoch being filled.
class SpectrogramBuilder {
public:
    // Frequencies up to fmax (at most half the sampling frequency) are kept;
    // the matrix covers totalSeconds.
    SpectrogramBuilder(double sampleRate, double columnSeconds, double fmax, double totalSeconds);
    ~SpectrogramBuilder();
    SpectrogramBuilder(const SpectrogramBuilder&) = delete;
    SpectrogramBuilder& operator=(const SpectrogramBuilder&) = delete;

    bool IsValid() const { return m_n >= 8; }
    unsigned FftLength() const { return m_n; }
    // Samples starting at t seconds from the recording start.
    void Add(double t, const float* samples, size_t count);
    void Break();
    // Completes the last column and gives the matrix.
    SpectrogramMatrix Finish(const std::string& label);

private:
    void Transform();
    void FlushColumn();

    double m_rate, m_columnSeconds;
    unsigned m_n = 0, m_bins = 0, m_maxColumns = 0;
    std::vector<float> m_window, m_epoch, m_work;
    double m_windowPower = 0;
    double m_epochStart = 0, m_nextTime = -1;
    long m_column = -1;
    unsigned m_epochsInColumn = 0;
    std::vector<double> m_sum;
    SpectrogramMatrix m_matrix;
};

// Column width for a night of the given length: about 600 columns, whole
// seconds, at least minSeconds and at most 30 s (wider only for recordings
// of more than 20000 columns of 30 s, about a week).
double ColumnSecondsFor(double totalSeconds, double minSeconds);

// Colour of a level between 0 and 1 (dark blue through green to yellow).
void ColourOf(double level, double& r, double& g, double& b);

}  // namespace sigplot
