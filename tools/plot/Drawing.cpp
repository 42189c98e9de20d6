#include "Drawing.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numbers>

#include "platform/Paths.h"
#include "platform/Strings.h"

namespace sigplot {

namespace {

void Rgb(cairo_t* cr, unsigned long bgr, double alpha = 1.0) {
    cairo_set_source_rgba(cr, (bgr & 0xFF) / 255.0, ((bgr >> 8) & 0xFF) / 255.0, ((bgr >> 16) & 0xFF) / 255.0, alpha);
}

// cairo and fontconfig keep the fonts they loaded until the process ends;
// releasing them at exit leaves nothing behind for the leak checks of the
// sanitizer builds.  Every Picture and every text is gone by then.
void ReleaseFontsAtExit() {
    static const bool registered = [] {
        std::atexit([] {
            cairo_debug_reset_static_data();
            FcFini();
        });
        return true;
    }();
    (void)registered;
}

void Font(cairo_t* cr, double size, bool bold = false) {
    ReleaseFontsAtExit();
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
}

// Width of a text as drawn.
double TextWidth(cairo_t* cr, const std::string& text) {
    const std::string safe = ValidUtf8(text);
    cairo_text_extents_t e;
    cairo_text_extents(cr, safe.c_str(), &e);
    return e.x_advance;
}

// Text with its reference point at x (align 0 left, 0.5 centre, 1 right)
// and its baseline at y.  Texts of the files are made valid UTF-8 first:
// cairo refuses anything else, and the whole picture with it.
void Text(cairo_t* cr, double x, double y, const std::string& text, double align = 0.0) {
    if (text.empty()) return;
    const std::string safe = ValidUtf8(text);
    cairo_text_extents_t e;
    cairo_text_extents(cr, safe.c_str(), &e);
    cairo_move_to(cr, x - align * e.x_advance, y);
    cairo_show_text(cr, safe.c_str());
}

void Line(cairo_t* cr, double x0, double y0, double x1, double y1) {
    cairo_move_to(cr, x0, y0);
    cairo_line_to(cr, x1, y1);
    cairo_stroke(cr);
}

void White(cairo_t* cr, double width, double height) {
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_rectangle(cr, 0, 0, width, height);
    cairo_fill(cr);
}

std::string HourMinute(double secondsOfDay) { return ClockText(secondsOfDay).substr(0, 5); }

// Clock ticks along the bottom of r, at round times of day.
void ClockAxis(cairo_t* cr, const Rect& r, const TimeSpan& span) {
    const double step = NiceTimeStep(span.to - span.from, 10);
    cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
    cairo_set_line_width(cr, 0.6);
    Font(cr, 8);
    for (double clock : Ticks(span.clockAtZero + span.from, span.clockAtZero + span.to, step)) {
        const double x = span.X(r, clock - span.clockAtZero);
        Line(cr, x, r.Bottom(), x, r.Bottom() + 3);
        Text(cr, x, r.Bottom() + 12, step < 60 ? ClockText(clock) : HourMinute(clock), 0.5);
    }
}

// How a trace's world values become microvolts on the page.
struct TraceScale {
    double scale = 1;   // µV per world unit
    double offset = 0;  // world units added first
    bool fitted = false;
};

TraceScale ScaleOf(const PageTrace& trace, const PageLayout& layout) {
    TraceScale s;
    s.scale = trace.toMicrovolts;
    s.fitted = IsFitted(trace, layout);
    float lo, hi;
    if (s.fitted && RobustRange(trace.points, 0.005, lo, hi)) {
        // The window's range (but for its rarest excursions) fills 80% of
        // the trace's band.
        const double range = hi > lo ? double(hi) - lo : 1.0;
        s.scale = 0.8 * layout.Spacing() / kPointsPerMm * layout.Sensitivity() / range;
        s.offset = -(double(lo) + double(hi)) / 2;
    } else if (s.fitted) {
        s.scale = 1.0;
    }
    return s;
}

inline double TraceY(const PageLayout& layout, unsigned i, const TraceScale& s, float value) {
    // Far outside the page is as good as infinitely far, and keeps the
    // pixel arithmetic in range.
    return std::clamp(layout.Y(i, (value + s.offset) * s.scale), -1e6, 1e6);
}

// Columns of pixels of an image surface that a trace is drawn into: one
// pixel wide, not antialiased.  Segments only widen the row range of every
// column they cross; End paints each column once, so that the lines of a
// dense trace (ranges of samples joined to one another) cost one pass over
// the pixels they cover.
class Raster {
    // floor for the pixel coordinates, which are kept within +-1e6.
    static int Floor(double v) {
        const int i = static_cast<int>(v);
        return i - (v < i);
    }

public:
    Raster(uint32_t* data, int stride, int x0, int y0, int x1, int y1, uint32_t colour)
        : m_data(data), m_stride(stride), m_x0(x0), m_y0(y0), m_x1(x1), m_y1(y1), m_colour(colour),
          m_lo(static_cast<size_t>(std::max(0, x1 - x0)), kEmpty), m_hi(m_lo.size(), -kEmpty) {}

    void Segment(double xa, double ya, double xb, double yb) {
        if (xb < xa) {
            std::swap(xa, xb);
            std::swap(ya, yb);
        }
        if (xb < m_x0 || xa >= m_x1) return;
        const int ca = Floor(std::max(xa, -1e6)), cb = Floor(std::min(xb, 1e6));
        if (ca == cb) {
            Widen(ca, ya, yb);
            return;
        }
        const double slope = (yb - ya) / (xb - xa);
        const int first = std::max(ca, m_x0);
        const int last = std::min(cb, m_x1 - 1);
        for (int c = first; c <= last; ++c) {
            const double xl = std::max(xa, double(c)), xr = std::min(xb, double(c + 1));
            Widen(c, ya + (xl - xa) * slope, ya + (xr - xa) * slope);
        }
    }

    // Rows the next trace may use, inside the clip given at construction.
    void SetRows(int y0, int y1) {
        m_rowFirst = std::max(y0, m_y0);
        m_rowEnd = std::min(y1, m_y1);
    }

    void Vertical(double x, double ya, double yb) { Widen(Floor(std::clamp(x, -1e6, 1e6)), ya, yb); }

    // A line from the last point drawn to the next one: within one column
    // or to the next column (a trace of about one point per column) it
    // only stretches the next column's range to the last point's row.
    void Join(double xa, double ya, double xb, double yb) {
        const int ca = Floor(std::clamp(xa, -1e6, 1e6)), cb = Floor(std::clamp(xb, -1e6, 1e6));
        if (cb == ca || cb == ca + 1) Widen(cb, ya, yb);
        else Segment(xa, ya, xb, yb);
    }

    // Paints the columns of the trace and clears them for the next one.
    void End() {
        for (int c = m_first; c <= m_last; ++c) {
            const size_t k = static_cast<size_t>(c - m_x0);
            if (m_lo[k] <= m_hi[k]) {
                const int a = std::max(Floor(m_lo[k]), m_rowFirst);
                const int b = std::min(Floor(m_hi[k]), m_rowEnd - 1);
                uint32_t* p = m_data + static_cast<size_t>(std::max(a, 0)) * m_stride + c;
                for (int y = a; y <= b; ++y, p += m_stride) *p = m_colour;
            }
            m_lo[k] = kEmpty;
            m_hi[k] = -kEmpty;
        }
        m_first = m_x1;
        m_last = m_x0 - 1;
    }

private:
    static constexpr double kEmpty = 1e300;
    void Widen(int x, double ya, double yb) {
        if (x < m_x0 || x >= m_x1) return;
        const size_t k = static_cast<size_t>(x - m_x0);
        if (yb < ya) std::swap(ya, yb);
        if (ya < m_lo[k]) m_lo[k] = ya;
        if (yb > m_hi[k]) m_hi[k] = yb;
        if (x < m_first) m_first = x;
        if (x > m_last) m_last = x;
    }

    uint32_t* m_data;
    int m_stride, m_x0, m_y0, m_x1, m_y1;
    uint32_t m_colour;
    std::vector<double> m_lo, m_hi;
    int m_first = m_x1, m_last = m_x0 - 1;
    int m_rowFirst = m_y0, m_rowEnd = m_y1;
};

// Draws the traces straight into the pixels when the page goes to an image
// (PNG): the general path stroker costs a hundred times more than reading
// the records for a page of 27 traces.  False when the target is not an
// image drawn at a plain scale: the caller then strokes paths (PDF, SVG).
bool RasterTraces(cairo_t* cr, const PageData& page, const PageLayout& layout, const std::vector<TraceScale>& scales) {
    cairo_surface_t* target = cairo_get_target(cr);
    if (cairo_surface_get_type(target) != CAIRO_SURFACE_TYPE_IMAGE) return false;
    const cairo_format_t format = cairo_image_surface_get_format(target);
    if (format != CAIRO_FORMAT_RGB24 && format != CAIRO_FORMAT_ARGB32) return false;
    cairo_matrix_t m;
    cairo_get_matrix(cr, &m);
    if (m.xy != 0 || m.yx != 0 || !(m.xx > 0) || !(m.yy > 0)) return false;
    cairo_surface_flush(target);
    unsigned char* data = cairo_image_surface_get_data(target);
    const int width = cairo_image_surface_get_width(target), height = cairo_image_surface_get_height(target);
    const int stride = cairo_image_surface_get_stride(target) / 4;
    if (!data) return false;
    const Rect& plot = layout.Plot();
    auto dx = [&m](double x) { return m.xx * x + m.x0; };
    auto dy = [&m](double y) { return m.yy * y + m.y0; };
    const int x0 = std::clamp(static_cast<int>(std::ceil(dx(plot.x))), 0, width);
    const int x1 = std::clamp(static_cast<int>(std::floor(dx(plot.Right()))), 0, width);
    const int y0 = std::clamp(static_cast<int>(std::ceil(dy(plot.y))), 0, height);
    const int y1 = std::clamp(static_cast<int>(std::floor(dy(plot.Bottom()))), 0, height);
    Raster raster(reinterpret_cast<uint32_t*>(data), stride, x0, y0, x1, y1, 0xFF000059u);
    for (unsigned i = 0; i < page.traces.size(); ++i) {
        // A trace stays within one and a half bands of its baseline.
        raster.SetRows(static_cast<int>(std::floor(dy(layout.Baseline(i) - 1.5 * layout.Spacing()))),
                       static_cast<int>(std::ceil(dy(layout.Baseline(i) + 1.5 * layout.Spacing()))));
        bool pen = false;
        double px = 0, py = 0;
        for (const TracePoint& p : page.traces[i].points) {
            if (!std::isfinite(p.lo) || !std::isfinite(p.hi)) {
                pen = false;
                continue;
            }
            const double x = dx(layout.X(p.t));
            const double ya = dy(TraceY(layout, i, scales[i], p.lo)), yb = dy(TraceY(layout, i, scales[i], p.hi));
            if (pen) raster.Join(px, py, x, ya);
            raster.Vertical(x, ya, yb);
            px = x;
            py = yb;
            pen = true;
        }
        raster.End();
    }
    cairo_surface_mark_dirty(target);
    return true;
}

}  // namespace

bool IsFitted(const PageTrace& trace, const PageLayout& layout) {
    if (!(trace.toMicrovolts > 0)) return true;
    // Most of the window, so that a short artefact (an electrode popping, a
    // calibration step) leaves an EEG channel at the page's sensitivity.
    float lo, hi;
    if (!RobustRange(trace.points, 0.1, lo, hi) || !(hi > lo)) return false;
    const double height = (double(hi) - lo) * trace.toMicrovolts / layout.Sensitivity() * kPointsPerMm;
    return height > 4.0 * layout.Spacing();
}

bool OutputFormatOf(const std::string& name, OutputFormat& format) {
    const std::string ext = ExtractExt(name);
    if (EqualsNoCase(ext, ".png")) format = OutputFormat::Png;
    else if (EqualsNoCase(ext, ".svg")) format = OutputFormat::Svg;
    else if (EqualsNoCase(ext, ".pdf")) format = OutputFormat::Pdf;
    else return false;
    return true;
}

Picture::Picture(OutputFormat format, double width, double height, Writer writer, double pngScale)
    : m_format(format), m_writer(std::move(writer)) {
    switch (format) {
        case OutputFormat::Png:
            m_surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(std::ceil(width * pngScale)),
                                                   static_cast<int>(std::ceil(height * pngScale)));
            break;
        case OutputFormat::Svg: m_surface = cairo_svg_surface_create_for_stream(&Picture::Write, this, width, height); break;
        case OutputFormat::Pdf: m_surface = cairo_pdf_surface_create_for_stream(&Picture::Write, this, width, height); break;
    }
    if (cairo_surface_status(m_surface) != CAIRO_STATUS_SUCCESS) return;
    m_cr = cairo_create(m_surface);
    if (format == OutputFormat::Png) cairo_scale(m_cr, pngScale, pngScale);
}

Picture::~Picture() {
    if (m_cr) cairo_destroy(m_cr);
    if (m_surface) cairo_surface_destroy(m_surface);
}

cairo_status_t Picture::Write(void* closure, const unsigned char* data, unsigned length) {
    auto* self = static_cast<Picture*>(closure);
    if (self->m_writeFailed || !self->m_writer(data, length)) {
        self->m_writeFailed = true;
        return CAIRO_STATUS_WRITE_ERROR;
    }
    return CAIRO_STATUS_SUCCESS;
}

void Picture::SetDocumentInfo(const std::string& title, const std::string& date) {
    if (!m_surface || m_format != OutputFormat::Pdf) return;
    cairo_pdf_surface_set_metadata(m_surface, CAIRO_PDF_METADATA_TITLE, ValidUtf8(title).c_str());
    cairo_pdf_surface_set_metadata(m_surface, CAIRO_PDF_METADATA_CREATOR, "sigfile");
    if (date.empty()) return;
    cairo_pdf_surface_set_metadata(m_surface, CAIRO_PDF_METADATA_CREATE_DATE, date.c_str());
    cairo_pdf_surface_set_metadata(m_surface, CAIRO_PDF_METADATA_MOD_DATE, date.c_str());
}

void Picture::NextPage() {
    if (m_cr && m_format == OutputFormat::Pdf) cairo_show_page(m_cr);
}

bool Picture::Finish() {
    if (!m_cr) return false;
    if (cairo_status(m_cr) != CAIRO_STATUS_SUCCESS) return false;
    if (m_format == OutputFormat::Png) {
        cairo_surface_flush(m_surface);
        if (cairo_surface_write_to_png_stream(m_surface, &Picture::Write, this) != CAIRO_STATUS_SUCCESS) return false;
    } else {
        cairo_show_page(m_cr);
    }
    cairo_destroy(m_cr);
    m_cr = nullptr;
    cairo_surface_finish(m_surface);
    return !m_writeFailed && cairo_surface_status(m_surface) == CAIRO_STATUS_SUCCESS;
}

// ---------------------------------------------------------------------------
// EEG page

void DrawPage(cairo_t* cr, const PageData& page, double width, double height) {
    const PageLayout layout(width, height, page.start, page.duration, static_cast<unsigned>(page.traces.size()),
                            page.sensitivity);
    const Rect& plot = layout.Plot();
    White(cr, width, height);

    // Title: file, montage, window, stage.
    cairo_set_source_rgb(cr, 0, 0, 0);
    Font(cr, 10, true);
    std::string title = page.title;
    if (!page.montage.empty()) title += "  -  " + page.montage;
    title += StrFormat("  -  %s  (%g s)", ClockText(page.clockAtZero + page.start).c_str(), page.duration);
    if (!page.stage.empty()) title += "  -  stade " + page.stage;
    Text(cr, plot.x, 16, title);

    // Events of the window: spans shaded, instants as lines; names at the top.
    cairo_save(cr);
    cairo_rectangle(cr, plot.x, plot.y, plot.w, plot.h);
    cairo_clip(cr);
    for (const EventMark& e : page.events) {
        const double x0 = std::max(plot.x, layout.X(e.begin)), x1 = std::min(plot.Right(), layout.X(e.end));
        if (e.end > e.begin && x1 - x0 >= 1.0) {
            Rgb(cr, e.rgb, 0.12);
            cairo_rectangle(cr, x0, plot.y, x1 - x0, plot.h);
            cairo_fill(cr);
        } else {
            Rgb(cr, e.rgb, 0.8);
            cairo_set_line_width(cr, 0.8);
            Line(cr, x0, plot.y, x0, plot.Bottom());
        }
    }
    cairo_restore(cr);
    Font(cr, 7);
    double lastTextEnd = -1e9;
    for (const EventMark& e : page.events) {
        const double x = std::clamp(layout.X(e.begin), plot.x, plot.Right());
        const std::string name = e.name.empty() ? e.group : e.name;
        const double width = TextWidth(cr, name);
        // Names that would overlap the one before go one line lower.
        const double y = x < lastTextEnd ? plot.y + 16 : plot.y + 8;
        Rgb(cr, e.rgb);
        Text(cr, x + 2, y, name);
        if (x >= lastTextEnd) lastTextEnd = x + 4 + width;
    }

    // Second lines, then the gaps.
    cairo_set_line_width(cr, 0.4);
    for (double t : Ticks(page.start, page.start + page.duration, 1.0)) {
        cairo_set_source_rgb(cr, 0.85, 0.85, 0.85);
        Line(cr, layout.X(t), plot.y, layout.X(t), plot.Bottom());
    }
    for (double g : page.gaps) {
        cairo_set_source_rgb(cr, 0.8, 0.0, 0.0);
        cairo_set_line_width(cr, 1.0);
        const double dashes[] = {3.0, 2.0};
        cairo_set_dash(cr, dashes, 2, 0);
        Line(cr, layout.X(g), plot.y, layout.X(g), plot.Bottom());
        cairo_set_dash(cr, nullptr, 0, 0);
    }

    // Traces and their labels.
    std::vector<TraceScale> scales;
    for (const PageTrace& trace : page.traces) scales.push_back(ScaleOf(trace, layout));
    Font(cr, 8);
    if (!RasterTraces(cr, page, layout, scales)) {
        cairo_save(cr);
        cairo_rectangle(cr, plot.x, plot.y, plot.w, plot.h);
        cairo_clip(cr);
        cairo_set_source_rgb(cr, 0, 0, 0.35);
        cairo_set_line_width(cr, 0.5);
        for (unsigned i = 0; i < page.traces.size(); ++i) {
            cairo_save(cr);
            cairo_rectangle(cr, plot.x, layout.Baseline(i) - 1.5 * layout.Spacing(), plot.w, 3 * layout.Spacing());
            cairo_clip(cr);
            bool pen = false;
            for (const TracePoint& p : page.traces[i].points) {
                if (!std::isfinite(p.lo) || !std::isfinite(p.hi)) {
                    pen = false;
                    continue;
                }
                const double x = layout.X(p.t);
                const double y0 = TraceY(layout, i, scales[i], p.lo), y1 = TraceY(layout, i, scales[i], p.hi);
                if (pen) cairo_line_to(cr, x, y0);
                else cairo_move_to(cr, x, y0);
                if (y1 != y0) cairo_line_to(cr, x, y1);
                pen = true;
            }
            cairo_stroke(cr);
            cairo_restore(cr);
        }
        cairo_restore(cr);
    }
    cairo_set_source_rgb(cr, 0, 0, 0);
    for (unsigned i = 0; i < page.traces.size(); ++i) {
        Text(cr, plot.x - 4, layout.Baseline(i) + 3, page.traces[i].label, 1.0);
        if (scales[i].fitted && !page.traces[i].unit.empty()) {
            Font(cr, 6);
            Text(cr, plot.x - 4, layout.Baseline(i) + 10, "(" + page.traces[i].unit + ")", 1.0);
            Font(cr, 8);
        }
    }

    // Time axis: seconds from the start of the recording, clock time below.
    cairo_set_line_width(cr, 0.6);
    cairo_set_source_rgb(cr, 0, 0, 0);
    Line(cr, plot.x, plot.Bottom(), plot.Right(), plot.Bottom());
    const double step = NiceTimeStep(page.duration, 15);
    Font(cr, 7);
    const std::vector<double> ticks = Ticks(page.start, page.start + page.duration, step);
    for (size_t k = 0; k < ticks.size(); ++k) {
        const double x = layout.X(ticks[k]);
        Line(cr, x, plot.Bottom(), x, plot.Bottom() + 3);
        Text(cr, x, plot.Bottom() + 11, StrFormat("%g s", ticks[k]), 0.5);
        if (k % 5 == 0 || step >= 5) Text(cr, x, plot.Bottom() + 21, ClockText(page.clockAtZero + ticks[k]), 0.5);
    }

    // Sensitivity bar at the right of the last trace's band.
    const double microvolts = layout.BarMicrovolts();
    const double barHeight = microvolts / layout.Sensitivity() * kPointsPerMm;
    const double bx = plot.Right() + 14, by = plot.Bottom() - 8;
    cairo_set_line_width(cr, 1.2);
    Line(cr, bx, by, bx, by - barHeight);
    Line(cr, bx - 3, by, bx + 3, by);
    Line(cr, bx - 3, by - barHeight, bx + 3, by - barHeight);
    Font(cr, 7);
    Text(cr, bx, by - barHeight - 12, StrFormat("%g \xC2\xB5V", microvolts), 0.5);
    Text(cr, bx, by - barHeight - 4, StrFormat("%g \xC2\xB5V/mm", layout.Sensitivity()), 0.5);
}

// ---------------------------------------------------------------------------
// Hypnogram and spectrogram

void DrawHypnogram(cairo_t* cr, const Rect& r, const std::vector<StageSpan>& spans, const TimeSpan& span,
                   bool clockAxis) {
    cairo_set_source_rgb(cr, 0.97, 0.97, 0.97);
    cairo_rectangle(cr, r.x, r.y, r.w, r.h);
    cairo_fill(cr);
    static const Stage rows[] = {Stage::Wake, Stage::Rem, Stage::N1, Stage::N2, Stage::N3};
    Font(cr, 8);
    cairo_set_line_width(cr, 0.3);
    for (Stage s : rows) {
        const double y = HypnogramRowY(r, HypnogramRow(s));
        cairo_set_source_rgb(cr, 0.8, 0.8, 0.8);
        Line(cr, r.x, y, r.Right(), y);
        cairo_set_source_rgb(cr, 0, 0, 0);
        Text(cr, r.x - 4, y + 3, StageShortName(s), 1.0);
    }
    cairo_save(cr);
    cairo_rectangle(cr, r.x, r.y, r.w, r.h);
    cairo_clip(cr);
    // The steps: one line through every scored span, joined at changes.
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 1.0);
    bool pen = false;
    double lastEnd = 0;
    for (const StageSpan& s : spans) {
        const int row = HypnogramRow(s.stage);
        if (row < 0 || (pen && s.begin > lastEnd + 1e-6)) {
            cairo_stroke(cr);
            pen = false;
            if (row < 0) continue;
        }
        const double y = HypnogramRowY(r, row);
        if (pen) cairo_line_to(cr, span.X(r, s.begin), y);
        else cairo_move_to(cr, span.X(r, s.begin), y);
        cairo_line_to(cr, span.X(r, s.end), y);
        pen = true;
        lastEnd = s.end;
    }
    cairo_stroke(cr);
    // R periods stand out: a thick red bar on the R row.
    cairo_set_source_rgb(cr, 0.85, 0.1, 0.1);
    for (const StageSpan& s : spans) {
        if (s.stage != Stage::Rem) continue;
        const double y = HypnogramRowY(r, HypnogramRow(Stage::Rem));
        cairo_rectangle(cr, span.X(r, s.begin), y - 2.5, std::max(0.5, span.X(r, s.end) - span.X(r, s.begin)), 5.0);
        cairo_fill(cr);
    }
    cairo_restore(cr);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 0.6);
    cairo_rectangle(cr, r.x, r.y, r.w, r.h);
    cairo_stroke(cr);
    if (clockAxis) ClockAxis(cr, r, span);
}

void DrawSpectrogram(cairo_t* cr, const Rect& r, const SpectrogramMatrix& m, const TimeSpan& span) {
    float low = 0, high = 1;
    const bool any = m.Levels(low, high);
    cairo_set_source_rgb(cr, 0.9, 0.9, 0.9);
    cairo_rectangle(cr, r.x, r.y, r.w, r.h);
    cairo_fill(cr);
    // The columns of the span as an image, one pixel per cell, stretched.
    const long c0 = std::max(0L, static_cast<long>(std::floor(span.from / m.columnSeconds)));
    const long c1 = std::min(static_cast<long>(m.columns), static_cast<long>(std::ceil(span.to / m.columnSeconds)));
    if (any && c1 > c0 && m.bins > 0) {
        const int w = static_cast<int>(c1 - c0), h = static_cast<int>(m.bins);
        cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
        if (cairo_surface_status(image) == CAIRO_STATUS_SUCCESS) {
            cairo_surface_flush(image);
            unsigned char* data = cairo_image_surface_get_data(image);
            const int stride = cairo_image_surface_get_stride(image);
            for (int y = 0; y < h; ++y) {
                auto* row = reinterpret_cast<uint32_t*>(data + static_cast<size_t>(y) * stride);
                const unsigned bin = static_cast<unsigned>(h - 1 - y);  // low frequencies at the bottom
                for (int x = 0; x < w; ++x) {
                    const float v = m.At(static_cast<unsigned>(c0 + x), bin);
                    if (!std::isfinite(v)) {
                        row[x] = 0;  // transparent: the grey background shows
                        continue;
                    }
                    double cr_, cg, cb;
                    ColourOf((v - low) / (high - low), cr_, cg, cb);
                    row[x] = 0xFF000000u | (uint32_t(cr_ * 255) << 16) | (uint32_t(cg * 255) << 8) | uint32_t(cb * 255);
                }
            }
            cairo_surface_mark_dirty(image);
            cairo_save(cr);
            cairo_rectangle(cr, r.x, r.y, r.w, r.h);
            cairo_clip(cr);
            const double x0 = span.X(r, c0 * m.columnSeconds), x1 = span.X(r, c1 * m.columnSeconds);
            cairo_translate(cr, x0, r.y);
            cairo_scale(cr, (x1 - x0) / w, r.h / h);
            cairo_set_source_surface(cr, image, 0, 0);
            cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_NEAREST);
            cairo_paint(cr);
            cairo_restore(cr);
        }
        cairo_surface_destroy(image);
    }
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 0.6);
    cairo_rectangle(cr, r.x, r.y, r.w, r.h);
    cairo_stroke(cr);

    // Frequency axis: bin k is centred at k x resolution.
    const double fTop = m.freqRes * (m.bins - 0.5), fBottom = -0.5 * m.freqRes;
    Font(cr, 8);
    for (double f : Ticks(0, fTop, NiceStep(fTop - fBottom, 6))) {
        const double y = r.Bottom() - (f - fBottom) / (fTop - fBottom) * r.h;
        Line(cr, r.x - 3, y, r.x, y);
        Text(cr, r.x - 5, y + 3, StrFormat("%g", f), 1.0);
    }
    cairo_save(cr);
    cairo_move_to(cr, r.x - 30, r.y + r.h / 2);
    cairo_rotate(cr, -std::numbers::pi / 2);
    Text(cr, 0, 0, "Hz", 0.5);
    cairo_restore(cr);
    Text(cr, r.x + 4, r.y - 4, m.label);
    ClockAxis(cr, r, span);

    // Colour bar.
    const Rect bar{r.Right() + 10, r.y, 10, r.h};
    for (int i = 0; i < 64; ++i) {
        double cr_, cg, cb;
        ColourOf((i + 0.5) / 64.0, cr_, cg, cb);
        cairo_set_source_rgb(cr, cr_, cg, cb);
        cairo_rectangle(cr, bar.x, bar.Bottom() - (i + 1) * bar.h / 64, bar.w, bar.h / 64 + 0.3);
        cairo_fill(cr);
    }
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_rectangle(cr, bar.x, bar.y, bar.w, bar.h);
    cairo_stroke(cr);
    if (any) {
        for (double d : Ticks(low, high, NiceStep(high - low, 5))) {
            const double y = bar.Bottom() - (d - low) / (high - low) * bar.h;
            Line(cr, bar.Right(), y, bar.Right() + 3, y);
            Text(cr, bar.Right() + 5, y + 3, StrFormat("%g", d));
        }
    }
    Text(cr, bar.x, bar.y - 4, "dB");
}

void DrawHypnogramPicture(cairo_t* cr, double width, double height, const std::string& title,
                          const std::vector<StageSpan>& spans, const TimeSpan& span) {
    White(cr, width, height);
    cairo_set_source_rgb(cr, 0, 0, 0);
    Font(cr, 11, true);
    Text(cr, 50, 22, title);
    DrawHypnogram(cr, Rect{50, 36, width - 80, height - 70}, spans, span, true);
}

void DrawSpectrogramPicture(cairo_t* cr, double width, double height, const std::string& title,
                            const SpectrogramMatrix& matrix, const std::vector<StageSpan>& spans,
                            const TimeSpan& span) {
    White(cr, width, height);
    cairo_set_source_rgb(cr, 0, 0, 0);
    Font(cr, 11, true);
    Text(cr, 50, 22, title);
    double top = 36;
    if (!spans.empty()) {
        DrawHypnogram(cr, Rect{50, top, width - 120, 110}, spans, span, false);
        top += 130;
    }
    DrawSpectrogram(cr, Rect{50, top, width - 120, height - top - 34}, matrix, span);
}

// ---------------------------------------------------------------------------
// Night report

namespace {

std::string Minutes(double m) { return m < 0 ? std::string("-") : StrFormat("%.1f min", m); }

}  // namespace

void DrawReportPage(cairo_t* cr, double width, double height, const ReportPage& page) {
    White(cr, width, height);
    const double left = 50;
    cairo_set_source_rgb(cr, 0, 0, 0);
    Font(cr, 13, true);
    Text(cr, left, 30, page.title);
    Font(cr, 8);
    double y = 46;
    for (const std::string& line : page.identification) {
        Text(cr, left, y, line);
        y += 11;
    }
    y += 6;

    // Hypnogram and spectrogram one above the other across the page.
    const double plotWidth = width - left - 70;
    Font(cr, 9, true);
    Text(cr, left, y, "Hypnogramme");
    y += 6;
    if (page.stages.empty()) {
        Font(cr, 8);
        Text(cr, left, y + 14, "Aucun stade de sommeil dans cet enregistrement.");
        y += 26;
    } else {
        DrawHypnogram(cr, Rect{left, y, plotWidth, 80}, page.stages, page.span, true);
        y += 104;
    }
    Font(cr, 9, true);
    cairo_set_source_rgb(cr, 0, 0, 0);
    Text(cr, left, y, "Spectrogramme");
    y += 14;
    if (page.spectrogram) {
        DrawSpectrogram(cr, Rect{left, y, plotWidth, 100}, *page.spectrogram, page.span);
        y += 124;
    } else {
        Font(cr, 8);
        Text(cr, left, y + 4, page.spectrogramNote);
        y += 16;
    }

    // The tables: sleep figures at the left, stages in the middle, events at the right.
    cairo_set_source_rgb(cr, 0, 0, 0);
    const SleepFigures& f = page.figures;
    const double tableTop = y;
    Font(cr, 9, true);
    Text(cr, left, y, "Sommeil");
    Font(cr, 8);
    y += 13;
    const std::pair<std::string, std::string> rows[] = {
        {"Temps au lit", Minutes(f.timeInBed)},
        {"Temps total de sommeil", Minutes(f.totalSleep)},
        {"Efficacit\xC3\xA9 du sommeil", StrFormat("%.1f %%", f.efficiency)},
        {"Latence d'endormissement", Minutes(f.sleepLatency)},
        {"Latence du sommeil paradoxal (R)", Minutes(f.remLatency)},
        {"Veille apr\xC3\xA8s endormissement", Minutes(f.wakeAfterSleepOnset)},
        {"\xC3\x89veils", StrFormat("%d", f.awakenings)},
    };
    for (const auto& [name, value] : rows) {
        Text(cr, left, y, name);
        Text(cr, left + 230, y, value, 1.0);
        y += 11;
    }

    double x = left + 270;
    y = tableTop;
    Font(cr, 9, true);
    Text(cr, x, y, "Stades");
    Font(cr, 8);
    y += 13;
    Text(cr, x + 120, y, "minutes", 1.0);
    Text(cr, x + 180, y, "%", 1.0);
    y += 11;
    static const Stage stages[] = {Stage::Wake, Stage::N1, Stage::N2, Stage::N3, Stage::Rem};
    for (Stage s : stages) {
        const size_t i = static_cast<size_t>(s);
        Text(cr, x, y, StageShortName(s));
        Text(cr, x + 120, y, StrFormat("%.1f", f.minutes[i]), 1.0);
        Text(cr, x + 180, y, StrFormat("%.1f", f.percent[i]), 1.0);
        y += 11;
    }
    Font(cr, 6.5);
    Text(cr, x, y + 2, "W : % du temps au lit ; autres : % du temps de sommeil");

    x = left + 490;
    y = tableTop;
    Font(cr, 9, true);
    Text(cr, x, y, "\xC3\x89v\xC3\xA9nements");
    Font(cr, 8);
    y += 13;
    if (page.counts.empty()) Text(cr, x, y, "Aucun");
    for (const GroupCount& c : page.counts) {
        if (y > height - 20) break;
        Text(cr, x, y, c.name);
        Text(cr, x + 200, y, StrFormat("%u", c.count), 1.0);
        y += 11;
    }
}

}  // namespace sigplot
