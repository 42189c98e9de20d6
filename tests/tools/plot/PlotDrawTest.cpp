// The pictures checked by their pixels and their file structure: a sine
// at a known sensitivity reaches the expected rows, gaps leave the trace
// open, hypnogram steps sit on their rows, a tone is brightest at its
// frequency, SVG is well formed and PDF has one page per page drawn.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include "Drawing.h"
#include "PlotFixture.h"

using namespace sigplot;
using plottest::Image;
using plottest::Render;

namespace {

// The trace colour (dark blue), as opposed to the grid, the labels (black
// text is outside the plot area) and the white page.
bool IsTrace(const Image& img, int x, int y) {
    return img.Blue(x, y) - img.Red(x, y) >= 30 && img.Blue(x, y) - img.Green(x, y) >= 30;
}

// Topmost and bottommost trace pixel rows within columns [x0, x1).
void TraceRows(const Image& img, int x0, int x1, int y0, int y1, int& top, int& bottom) {
    top = img.height;
    bottom = -1;
    for (int x = x0; x < x1; ++x)
        for (int y = y0; y < y1; ++y)
            if (IsTrace(img, x, y)) {
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
}

PageData SinePage(double amplitude, double hz, double sensitivity, unsigned traces) {
    PageData page;
    page.title = "test";
    page.start = 0;
    page.duration = 10;
    page.sensitivity = sensitivity;
    for (unsigned i = 0; i < traces; ++i) {
        TraceBuffer b(0, 10, 256, 1600);
        for (int s = 0; s < 2560; ++s)
            b.Add(s / 256.0, static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * hz * s / 256.0)));
        b.Finish();
        page.traces.push_back({"C" + std::to_string(i), "uV", 1.0, b.Points()});
    }
    return page;
}

}  // namespace

TEST(PlotPage, SineReachesTheRowsOfItsAmplitudeAtTheSensitivity) {
    for (double sensitivity : {7.0, 14.0}) {
        const PageData page = SinePage(50.0, 2.0, sensitivity, 3);
        const double scale = 2.0;
        const Image img = Render(kPageWidth, kPageHeight, scale, [&](cairo_t* cr) {
            DrawPage(cr, page, kPageWidth, kPageHeight);
        });
        const PageLayout layout(kPageWidth, kPageHeight, 0, 10, 3, sensitivity);
        // The middle trace, over whole periods, within its own band.
        const int x0 = img.Px(layout.X(1.0)), x1 = img.Px(layout.X(9.0));
        const int y0 = img.Px(layout.Baseline(1) - layout.Spacing() / 2);
        const int y1 = img.Px(layout.Baseline(1) + layout.Spacing() / 2);
        int top, bottom;
        TraceRows(img, x0, x1, y0, y1, top, bottom);
        const double peak = layout.Y(1, 50.0) * scale, trough = layout.Y(1, -50.0) * scale;
        EXPECT_NEAR(top, peak, 2.0) << sensitivity;
        EXPECT_NEAR(bottom, trough, 2.0) << sensitivity;
        // Crossing the baseline at the sine's zeros (every quarter second).
        const int zero = img.Px(layout.X(1.25));
        bool crosses = false;
        for (int y = img.Px(layout.Baseline(1)) - 2; y <= img.Px(layout.Baseline(1)) + 2; ++y)
            crosses = crosses || IsTrace(img, zero, y);
        EXPECT_TRUE(crosses) << sensitivity;
    }
}

TEST(PlotPage, VoltagesTooLargeForTheSensitivityAreFitted) {
    // 5 mV of ECG at 7 µV/mm would cover the page: it is scaled to its band.
    PageData page = SinePage(5000.0, 1.0, 7.0, 2);
    const PageLayout layout(kPageWidth, kPageHeight, 0, 10, 2, 7.0);
    EXPECT_TRUE(IsFitted(page.traces[0], layout));
    page.traces[1].toMicrovolts = 0.001;  // nV: 5 µV, drawn at the sensitivity
    EXPECT_FALSE(IsFitted(page.traces[1], layout));
    const Image img = Render(kPageWidth, kPageHeight, 1.0, [&](cairo_t* cr) {
        DrawPage(cr, page, kPageWidth, kPageHeight);
    });
    int top, bottom;
    TraceRows(img, img.Px(layout.X(1)), img.Px(layout.X(9)), img.Px(layout.Plot().y),
              img.Px(layout.Baseline(1) - layout.Spacing() / 2), top, bottom);
    EXPECT_GE(top, img.Px(layout.Baseline(0) - layout.Spacing() / 2));
    EXPECT_LE(bottom, img.Px(layout.Baseline(0) + layout.Spacing() / 2));
}

TEST(PlotPage, ShortArtefactKeepsTheSensitivityAndStaysNearItsTrace) {
    // A 50 µV sine with a 5 mV step during its first 0.6 s (of ten).
    PageData page = SinePage(50.0, 2.0, 7.0, 3);
    for (TracePoint& p : page.traces[1].points)
        if (p.t < 0.6) p.lo = p.hi = 5000.0f;
    const PageLayout layout(kPageWidth, kPageHeight, 0, 10, 3, 7.0);
    EXPECT_FALSE(IsFitted(page.traces[1], layout));
    const Image img = Render(kPageWidth, kPageHeight, 2.0, [&](cairo_t* cr) { DrawPage(cr, page, kPageWidth, kPageHeight); });
    int top, bottom;
    TraceRows(img, img.Px(layout.X(2)), img.Px(layout.X(9)), img.Px(layout.Plot().y), img.Px(layout.Plot().Bottom()),
              top, bottom);
    // After the step, the sines of the three traces at 7 µV/mm.
    EXPECT_NEAR(top, layout.Y(0, 50.0) * 2, 2.0);
    EXPECT_NEAR(bottom, layout.Y(2, -50.0) * 2, 2.0);
    // The step is cut one and a half bands above its baseline.
    TraceRows(img, img.Px(layout.X(0.1)), img.Px(layout.X(0.5)), img.Px(layout.Plot().y),
              img.Px(layout.Baseline(1)), top, bottom);
    EXPECT_GE(top, img.Px(layout.Baseline(1) - 1.5 * layout.Spacing()) - 1);
    EXPECT_LT(top, img.Px(layout.Baseline(0)));
}

TEST(PlotPage, GapLeavesTheTraceOpen) {
    // A flat trace with one second missing; with the break the line stops.
    auto page = [](bool withBreak) {
        PageData p;
        p.duration = 10;
        TraceBuffer b(0, 10, 256, 1600);
        for (int s = 0; s < 2560; ++s) {
            const double t = s / 256.0;
            if (t >= 4.0 && t < 5.0) continue;
            if (withBreak && s == 5 * 256) b.Break();
            b.Add(t, 0.0f);
        }
        b.Finish();
        p.traces.push_back({"Cz", "uV", 1.0, b.Points()});
        if (withBreak) p.gaps.push_back(5.0);
        return p;
    };
    const PageLayout layout(kPageWidth, kPageHeight, 0, 10, 1, 7.0);
    for (bool withBreak : {false, true}) {
        const PageData p = page(withBreak);
        const Image img = Render(kPageWidth, kPageHeight, 2.0, [&](cairo_t* cr) { DrawPage(cr, p, kPageWidth, kPageHeight); });
        const int x = img.Px(layout.X(4.5)), y = img.Px(layout.Baseline(0));
        bool drawn = false;
        for (int dy = -1; dy <= 1; ++dy) drawn = drawn || IsTrace(img, x, y + dy);
        EXPECT_EQ(drawn, !withBreak);
        if (withBreak) {
            // The gap line is drawn (red) at its position.
            const int gx = img.Px(layout.X(5.0));
            bool red = false;
            for (int yy = img.Px(layout.Plot().y); yy < img.Px(layout.Plot().Bottom()) && !red; ++yy)
                for (int dx = -1; dx <= 1; ++dx) red = red || (img.Red(gx + dx, yy) > 150 && img.Green(gx + dx, yy) < 100);
            EXPECT_TRUE(red);
        }
    }
}

TEST(PlotHypnogram, StepsSitOnTheirRows) {
    const std::vector<StageSpan> spans = {{0, 100, Stage::Wake}, {100, 200, Stage::N3}, {200, 300, Stage::Rem},
                                          {300, 400, Stage::N1}, {400, 450, Stage::Unknown}};
    const Rect r{40, 20, 400, 200};
    TimeSpan span;
    span.from = 0;
    span.to = 450;
    const Image img = Render(480, 260, 2.0, [&](cairo_t* cr) { DrawHypnogram(cr, r, spans, span, true); });
    auto darkAt = [&](double t, Stage s) {
        const int x = img.Px(span.X(r, t)), y = img.Px(HypnogramRowY(r, HypnogramRow(s)));
        for (int dy = -1; dy <= 1; ++dy)
            if (img.Red(x, y + dy) < 90 && img.Green(x, y + dy) < 90) return true;
        return false;
    };
    auto redAt = [&](double t, Stage s) {
        const int x = img.Px(span.X(r, t)), y = img.Px(HypnogramRowY(r, HypnogramRow(s)));
        return img.Red(x, y) > 180 && img.Green(x, y) < 80;
    };
    EXPECT_TRUE(darkAt(50, Stage::Wake));
    EXPECT_FALSE(darkAt(50, Stage::N3));
    EXPECT_TRUE(darkAt(150, Stage::N3));
    EXPECT_FALSE(darkAt(150, Stage::Wake));
    EXPECT_TRUE(redAt(250, Stage::Rem));   // REM stands out in red
    EXPECT_FALSE(redAt(150, Stage::N3));
    EXPECT_TRUE(darkAt(350, Stage::N1));
    for (Stage s : {Stage::Wake, Stage::Rem, Stage::N1, Stage::N2, Stage::N3}) EXPECT_FALSE(darkAt(425, s));
    // W is the top row, N3 the bottom one.
    EXPECT_LT(HypnogramRowY(r, HypnogramRow(Stage::Wake)), HypnogramRowY(r, HypnogramRow(Stage::Rem)));
    EXPECT_LT(HypnogramRowY(r, HypnogramRow(Stage::N2)), HypnogramRowY(r, HypnogramRow(Stage::N3)));
}

TEST(PlotSpectrogram, ToneIsTheBrightestRowOfThePicture) {
    const double tone = 10.0;
    SpectrogramBuilder builder(256, 30, 30, 600);
    std::vector<float> samples(256);
    for (int s = 0; s < 600; ++s) {
        for (int i = 0; i < 256; ++i)
            samples[size_t(i)] = static_cast<float>(30 * std::sin(2 * std::numbers::pi * tone * (s + i / 256.0)) +
                                                    std::sin(i * 12.9898) * 0.5);
        builder.Add(s, samples.data(), samples.size());
    }
    const SpectrogramMatrix m = builder.Finish("C3");
    const Rect r{50, 20, 300, 200};
    TimeSpan span;
    span.to = 600;
    const Image img = Render(420, 260, 1.0, [&](cairo_t* cr) { DrawSpectrogram(cr, r, m, span); });
    const int x = static_cast<int>(r.x + r.w / 2);
    int best = 0, bestY = 0;
    for (int y = static_cast<int>(r.y) + 1; y < r.Bottom() - 1; ++y) {
        const int bright = img.Red(x, y) + img.Green(x, y);
        if (bright > best) {
            best = bright;
            bestY = y;
        }
    }
    // Row of a frequency: bin k is centred at k x resolution, 0 Hz at the bottom.
    const double fTop = m.freqRes * (m.bins - 0.5), fBottom = -0.5 * m.freqRes;
    const double frequency = fBottom + (r.Bottom() - (bestY + 0.5)) / r.h * (fTop - fBottom);
    EXPECT_NEAR(frequency, tone, 1.0);
}

namespace {

std::string DrawToMemory(OutputFormat format, unsigned pages, const std::function<void(cairo_t*, unsigned)>& draw) {
    std::string bytes;
    Picture picture(format, kPageWidth, kPageHeight, [&bytes](const unsigned char* data, unsigned length) {
        bytes.append(reinterpret_cast<const char*>(data), length);
        return true;
    });
    EXPECT_TRUE(picture.Context());
    for (unsigned p = 0; p < pages; ++p) {
        if (p) picture.NextPage();
        draw(picture.Context(), p);
    }
    EXPECT_TRUE(picture.Finish());
    return bytes;
}

size_t CountPages(const std::string& pdf) {
    size_t n = 0;
    for (size_t at = pdf.find("/Type /Page"); at != std::string::npos; at = pdf.find("/Type /Page", at + 1))
        if (pdf.compare(at, 12, "/Type /Pages") != 0) ++n;
    return n;
}

// Elements open and close in order (a minimal check of well-formedness).
bool BalancedXml(const std::string& xml, std::string& why) {
    std::vector<std::string> open;
    for (size_t at = xml.find('<'); at != std::string::npos; at = xml.find('<', at + 1)) {
        const size_t end = xml.find('>', at);
        if (end == std::string::npos) return (why = "unterminated tag"), false;
        const std::string tag = xml.substr(at + 1, end - at - 1);
        if (tag.empty() || tag[0] == '?' || tag[0] == '!') continue;
        if (tag[0] == '/') {
            const std::string name = tag.substr(1, tag.find_first_of(" \t\n") - 1);
            if (open.empty() || open.back() != name) return (why = "unexpected </" + name + ">"), false;
            open.pop_back();
        } else if (tag.back() != '/') {
            open.push_back(tag.substr(0, tag.find_first_of(" \t\n/")));
        }
    }
    if (!open.empty()) return (why = "unclosed <" + open.back() + ">"), false;
    return true;
}

}  // namespace

TEST(PlotOutput, PdfHasOnePagePerPageDrawn) {
    ReportPage page;
    page.title = "Rapport";
    page.identification = {"Patient : Tremblay-B\xC3\xA9rub\xC3\xA9"};
    page.stages = {{0, 600, Stage::Wake}, {600, 1200, Stage::N2}};
    page.figures = ComputeSleepFigures(page.stages);
    page.counts = {{"Apn\xC3\xA9" "es", 3}};
    page.spectrogramNote = "aucun";
    page.span.to = 1200;
    const std::string pdf =
        DrawToMemory(OutputFormat::Pdf, 3, [&](cairo_t* cr, unsigned) { DrawReportPage(cr, kPageWidth, kPageHeight, page); });
    EXPECT_EQ(pdf.rfind("%PDF-", 0), 0u);
    EXPECT_EQ(CountPages(pdf), 3u);
    const std::string one =
        DrawToMemory(OutputFormat::Pdf, 1, [&](cairo_t* cr, unsigned) { DrawReportPage(cr, kPageWidth, kPageHeight, page); });
    EXPECT_EQ(CountPages(one), 1u);
}

TEST(PlotOutput, SvgIsWellFormedAndPngIsOneImage) {
    const PageData page = SinePage(40, 3, 7, 2);
    const std::string svg =
        DrawToMemory(OutputFormat::Svg, 1, [&](cairo_t* cr, unsigned) { DrawPage(cr, page, kPageWidth, kPageHeight); });
    EXPECT_NE(svg.find("<svg"), std::string::npos);
    EXPECT_NE(svg.find("width=\"842\""), std::string::npos);
    std::string why;
    EXPECT_TRUE(BalancedXml(svg, why)) << why;
    const std::string png =
        DrawToMemory(OutputFormat::Png, 1, [&](cairo_t* cr, unsigned) { DrawPage(cr, page, kPageWidth, kPageHeight); });
    ASSERT_GT(png.size(), 24u);
    EXPECT_EQ(png.substr(1, 3), "PNG");
    // Width and height of the IHDR chunk: the page at two pixels per point.
    auto be32 = [&png](size_t at) {
        return (unsigned(uint8_t(png[at])) << 24) | (unsigned(uint8_t(png[at + 1])) << 16) |
               (unsigned(uint8_t(png[at + 2])) << 8) | unsigned(uint8_t(png[at + 3]));
    };
    EXPECT_EQ(be32(16), 1684u);
    EXPECT_EQ(be32(20), 1190u);
}

TEST(PlotOutput, LabelsThatAreNotUtf8DoNotSpoilThePicture) {
    PageData page = SinePage(40, 3, 7, 2);
    page.title = "Nuit de H\xE9l\xE8ne";         // Latin-1, as older files write it
    page.traces[0].label = "F\xF6-\xB5V";
    page.events.push_back({1.0, 2.0, "Art\xE9" "fact", "Groupe\xFF", 0x0000FF});
    for (OutputFormat f : {OutputFormat::Png, OutputFormat::Svg, OutputFormat::Pdf}) {
        const std::string bytes =
            DrawToMemory(f, 1, [&](cairo_t* cr, unsigned) { DrawPage(cr, page, kPageWidth, kPageHeight); });
        EXPECT_GT(bytes.size(), 1000u);
    }
}

TEST(PlotOutput, FailingWriterIsReported) {
    Picture picture(OutputFormat::Png, 100, 100, [](const unsigned char*, unsigned) { return false; });
    ASSERT_TRUE(picture.Context());
    EXPECT_FALSE(picture.Finish());
    OutputFormat f;
    EXPECT_TRUE(OutputFormatOf("a/b.SVG", f));
    EXPECT_EQ(f, OutputFormat::Svg);
    EXPECT_FALSE(OutputFormatOf("night.jpg", f));
    EXPECT_FALSE(OutputFormatOf("pdf", f));
}
