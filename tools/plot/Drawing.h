// Drawing the pictures with cairo: an EEG page, a hypnogram, a spectrogram
// and a night report page, on pages of PDF, SVG or PNG output written to a
// stream.  Everything placed here comes from the computations of
// PlotLayout, SleepFigures, Spectrogram and RecordingData.
#pragma once

#include <cairo.h>

#include <functional>
#include <string>
#include <vector>

#include "PlotLayout.h"
#include "RecordingData.h"
#include "SleepFigures.h"
#include "Spectrogram.h"

namespace sigplot {

enum class OutputFormat { Png, Svg, Pdf };
// The format a file name's extension chooses; false for any other.
bool OutputFormatOf(const std::string& name, OutputFormat& format);

// Pages of width x height points drawn to a stream.  A PNG holds the first
// page rendered at pngScale pixels per point.
class Picture {
public:
    // Takes the bytes to write; false stops the output.
    using Writer = std::function<bool(const unsigned char* data, unsigned length)>;
    Picture(OutputFormat format, double width, double height, Writer writer, double pngScale = 2.0);
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    // Null when the surface could not be made.
    cairo_t* Context() const { return m_cr; }
    // Ends the page and starts another (PDF; ignored by the others).
    void NextPage();
    // The title and the date a PDF states ("YYYY-MM-DDTHH:MM:SS"): the date
    // of what is pictured rather than the time of drawing, so that the same
    // recording always gives the same bytes.  Ignored by the other formats.
    void SetDocumentInfo(const std::string& title, const std::string& date);
    // Writes what is left; false when the surface or the writer failed.
    bool Finish();

private:
    static cairo_status_t Write(void* closure, const unsigned char* data, unsigned length);
    OutputFormat m_format;
    Writer m_writer;
    bool m_writeFailed = false;
    cairo_surface_t* m_surface = nullptr;
    cairo_t* m_cr = nullptr;
};

// True when a trace is drawn scaled to fit its band rather than at the
// page's sensitivity: it is not a voltage, or at the sensitivity most of
// its window (10th to 90th percentile) would span more than four trace
// bands (breathing, oxygen or DC channels in mV).  Every trace is clipped
// to one and a half bands around its baseline.
bool IsFitted(const PageTrace& trace, const PageLayout& layout);

// A page of traces filling width x height (see PageLayout).
void DrawPage(cairo_t* cr, const PageData& page, double width, double height);

// The night's time axis: positions from..to seconds from the recording start
// and the clock time of position 0.
struct TimeSpan {
    double from = 0, to = 1;
    double clockAtZero = 0;
    double X(const Rect& r, double t) const { return r.x + (t - from) * r.w / (to > from ? to - from : 1.0); }
};

// A hypnogram in r: W, R, N1, N2, N3 rows, R drawn thicker and in colour.
void DrawHypnogram(cairo_t* cr, const Rect& r, const std::vector<StageSpan>& spans, const TimeSpan& span,
                   bool clockAxis);
// A spectrogram in r with its frequency axis at the left, its colour bar at
// the right (outside r) and a clock axis below.
void DrawSpectrogram(cairo_t* cr, const Rect& r, const SpectrogramMatrix& matrix, const TimeSpan& span);

// Whole pictures.
void DrawHypnogramPicture(cairo_t* cr, double width, double height, const std::string& title,
                          const std::vector<StageSpan>& spans, const TimeSpan& span);
// With the hypnogram above it when spans is not empty.
void DrawSpectrogramPicture(cairo_t* cr, double width, double height, const std::string& title,
                            const SpectrogramMatrix& matrix, const std::vector<StageSpan>& spans,
                            const TimeSpan& span);

// One page of a night report.
struct ReportPage {
    std::string title;                      // "Rapport de nuit 1 / 2"
    std::vector<std::string> identification;  // patient and recording lines
    std::vector<StageSpan> stages;
    SleepFigures figures;
    std::vector<GroupCount> counts;
    const SpectrogramMatrix* spectrogram = nullptr;  // none when null
    std::string spectrogramNote;            // why there is none
    TimeSpan span;
};
void DrawReportPage(cairo_t* cr, double width, double height, const ReportPage& page);

}  // namespace sigplot
