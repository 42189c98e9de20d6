// The plot and report commands run as a process: the demo night drawn in
// every format, recordings of other formats, and the refusals (exit 1 with
// a message, an existing output left as it was).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "PlotFixture.h"
#include "RecordingData.h"
#include "support/TestSupport.h"
#include "tools/ToolFixture.h"

using testsupport::RunTool;
using testsupport::TempDir;
using tooltest::DemoFile;
using tooltest::ReadText;

namespace {

size_t CountPdfPages(const std::string& pdf) {
    size_t n = 0;
    for (size_t at = pdf.find("/Type /Page"); at != std::string::npos; at = pdf.find("/Type /Page", at + 1))
        if (pdf.compare(at, 12, "/Type /Pages") != 0) ++n;
    return n;
}

bool IsPng(const std::string& path) { return ReadText(path).substr(1, 3) == "PNG"; }

}  // namespace

TEST(PlotCommand, DemoNightInEveryFormat) {
    TempDir dir;
    const std::string night = DemoFile();
    auto r = RunTool("plot page " + night + " " + dir / "page.png --start 60");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(IsPng(dir / "page.png"));
    r = RunTool("plot page " + night + " " + dir / "page.svg --montage Bipolar --sensitivity 10");
    EXPECT_EQ(r.status, 0) << r.out;
    const std::string svg = ReadText(dir / "page.svg");
    EXPECT_NE(svg.find("<svg"), std::string::npos);
    EXPECT_NE(svg.find("</svg>"), std::string::npos);
    r = RunTool("plot page " + night + " " + dir / "page.pdf --channel C3-REF --channel Cz-REF --duration 5");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(CountPdfPages(ReadText(dir / "page.pdf")), 1u);
    r = RunTool("plot hypnogram " + night + " " + dir / "hyp.png");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(IsPng(dir / "hyp.png"));
    r = RunTool("plot spectrogram " + night + " " + dir / "spec.png --fmax 25");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(IsPng(dir / "spec.png"));
    r = RunTool("report " + night + " " + dir / "night.pdf");
    EXPECT_EQ(r.status, 0) << r.out;
    const std::string pdf = ReadText(dir / "night.pdf");
    EXPECT_EQ(pdf.rfind("%PDF-", 0), 0u);
    EXPECT_EQ(CountPdfPages(pdf), 1u);
    // The same night gives the same bytes (the PDF states the recording's date).
    r = RunTool("report " + night + " " + dir / "again.pdf");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(ReadText(dir / "again.pdf"), pdf);
    std::filesystem::remove(dir / "again.pdf");
    // No temporary file is left beside the pictures.
    size_t files = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir.path)) files += e.is_regular_file();
    EXPECT_EQ(files, 6u);
}

TEST(PlotCommand, EdfAndSpectralFilesOfTheNight) {
    TempDir dir;
    const std::string night = DemoFile();
    auto r = RunTool("export " + night + " " + dir / "night.edf");
    ASSERT_EQ(r.status, 0) << r.out;
    r = RunTool("plot page " + dir / "night.edf" + " " + dir / "edf.png --start 30");
    EXPECT_EQ(r.status, 0) << r.out;
    r = RunTool("plot hypnogram " + dir / "night.edf" + " " + dir / "edf-hyp.svg");
    EXPECT_EQ(r.status, 0) << r.out;
    r = RunTool("report " + dir / "night.edf" + " " + dir / "edf.pdf");
    EXPECT_EQ(r.status, 0) << r.out;

    r = RunTool("spectrum " + night + " " + dir / "NIGHT.SPC --epoch 2");
    ASSERT_EQ(r.status, 0) << r.out;
    r = RunTool("plot spectrogram " + dir / "NIGHT.SPC" + " " + dir / "spc.png --channel C4-REF");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(IsPng(dir / "spc.png"));
    r = RunTool("plot spectrogram " + night + " " + dir / "spc2.png --spectral " + dir / "NIGHT.SPC");
    EXPECT_EQ(r.status, 0) << r.out;
    r = RunTool("report " + night + " " + dir / "spc.pdf --spectral " + dir / "NIGHT.SPH");
    EXPECT_EQ(r.status, 0) << r.out;
}

TEST(PlotCommand, RefusalsLeaveTheOutputAsItWas) {
    TempDir dir;
    const std::string night = DemoFile();
    const std::string out = dir / "keep.png";
    { std::ofstream(out) << "old"; }
    struct Case {
        std::string args, message;
    };
    const Case cases[] = {
        {"plot page " + night + " " + out + " --start 100000", "après la fin"},
        {"plot page " + night + " " + out + " --channel Nope", "Canal inconnu : Nope"},
        {"plot page " + night + " " + out + " --montage Nope", "Montage inconnu : Nope"},
        {"plot page " + dir / "missing.SIG" + " " + out, ""},
        {"plot spectrogram " + night + " " + out + " --channel Nope", "Canal inconnu"},
        {"plot spectrogram " + dir / "missing.SPC" + " " + out, "fichier spectral"},
    };
    for (const Case& c : cases) {
        const auto r = RunTool(c.args);
        EXPECT_EQ(r.status, 1) << c.args << "\n" << r.out;
        EXPECT_NE(r.out.find(c.message), std::string::npos) << c.args << "\n" << r.out;
        EXPECT_FALSE(r.out.empty()) << c.args;
        EXPECT_EQ(ReadText(out), "old") << c.args;
    }
    // Usage errors: a format that is not a picture, a report that is not PDF.
    EXPECT_EQ(RunTool("plot page " + night + " " + dir / "x.jpg").status, 2);
    EXPECT_EQ(RunTool("report " + night + " " + dir / "x.png").status, 2);
    EXPECT_EQ(RunTool("plot page " + night + " " + out + " --sensitivity 0").status, 2);
    EXPECT_EQ(RunTool("plot page " + night + " " + out + " --duration -3").status, 2);
    // A picture never replaces a file of the recording.
    const auto r = RunTool("plot page " + night + " " + night);
    EXPECT_NE(r.status, 0);
    EXPECT_GT(std::filesystem::file_size(night), 1000u);
}

TEST(PlotCommand, HypnogramNeedsSleepStages) {
    TempDir dir;
    ASSERT_TRUE(plottest::MakeRecording(dir / "EEG.SIG", 20, 10, 50, {}));
    auto r = RunTool("plot hypnogram " + dir / "EEG.SIG" + " " + dir / "h.png");
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.out.find("stades de sommeil"), std::string::npos) << r.out;
    EXPECT_FALSE(std::filesystem::exists(dir / "h.png"));
    // The other pictures of such a recording are drawn: a page of 10 s.
    r = RunTool("plot page " + dir / "EEG.SIG" + " " + dir / "p.png");
    EXPECT_EQ(r.status, 0) << r.out;
    r = RunTool("report " + dir / "EEG.SIG" + " " + dir / "r.pdf");
    EXPECT_EQ(r.status, 0) << r.out;
}

TEST(PlotCommand, SpectralFileOfAnotherRecordingIsRefused) {
    TempDir dir;
    ASSERT_TRUE(plottest::MakeRecording(dir / "A.SIG", 64, 10, 50, {}));
    const auto r0 = RunTool("spectrum " + DemoFile() + " " + dir / "DEMO.SPC --epoch 2");
    ASSERT_EQ(r0.status, 0) << r0.out;
    auto r = RunTool("plot spectrogram " + dir / "A.SIG" + " " + dir / "s.png --spectral " + dir / "DEMO.SPC");
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.out.find("autre enregistrement"), std::string::npos) << r.out;
    r = RunTool("report " + dir / "A.SIG" + " " + dir / "r.pdf --spectral " + dir / "DEMO.SPC");
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_FALSE(std::filesystem::exists(dir / "r.pdf"));
}

TEST(PlotReport, OnePagePerNight) {
    TempDir dir;
    // Two nights of 30-s epochs a day apart in one recording.
    std::vector<plottest::StageItem> stages;
    static const char* const kNames[] = {"W", "N1", "N2", "N3", "REM"};
    for (double night : {0.0, 5 * 3600.0})
        for (int e = 0; e < 20; ++e) stages.push_back({night + e * 30.0, night + (e + 1) * 30.0, kNames[e % 5]});
    ASSERT_TRUE(plottest::MakeRecording(dir / "TWO.SIG", 5 * 3600.0 + 600.0, 10, 50, stages));
    const auto r = RunTool("report " + dir / "TWO.SIG" + " " + dir / "two.pdf");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(CountPdfPages(ReadText(dir / "two.pdf")), 2u);
}

TEST(PlotReport, RecordingDataFromAHandMadeRecording) {
    TempDir dir;
    const std::vector<plottest::StageItem> stages = {{0, 30, "W"}, {30, 60, "N2"}, {60, 90, "REM"}};
    ASSERT_TRUE(plottest::MakeRecording(dir / "S.SIG", 90, 10, 50, stages, {40.0}));
    tooltest::SigFilePtr file = tooltest::OpenReadOnly(dir / "S.SIG");
    ASSERT_TRUE(file);
    EXPECT_TRUE(sigplot::HasSleepStages(*file));
    const auto spans = sigplot::ReadStages(*file);
    ASSERT_EQ(spans.size(), 3u);
    EXPECT_NEAR(spans[1].begin, 30.0, 1e-6);
    EXPECT_EQ(spans[2].stage, sigplot::Stage::Rem);
    EXPECT_DOUBLE_EQ(sigplot::DefaultPageSeconds(*file), 30.0);
    // No central site among the channels: the first EEG channel.
    EXPECT_EQ(sigplot::CentralChannel(*file), "Fp1-REF");

    sigplot::PageRequest request;
    request.start = 30;
    sigplot::PageData page;
    std::string error;
    ASSERT_TRUE(sigplot::ReadPage(*file, request, page, error)) << error;
    EXPECT_EQ(page.stage, "N2");
    ASSERT_EQ(page.traces.size(), 1u);
    EXPECT_DOUBLE_EQ(page.traces[0].toMicrovolts, 1.0);
    float lo, hi;
    sigplot::TraceRange(page.traces[0].points, lo, hi);
    EXPECT_NEAR(hi, 50.0f, 0.2f);  // the sine written, read back in µV
    EXPECT_NEAR(lo, -50.0f, 0.2f);
    ASSERT_EQ(page.gaps.size(), 1u);
    EXPECT_NEAR(page.gaps[0], 40.0, 1e-6);
    // The line breaks at the discontinuity.
    const auto& points = page.traces[0].points;
    EXPECT_EQ(std::count_if(points.begin(), points.end(), [](const sigplot::TracePoint& p) { return std::isnan(p.lo); }),
              1);
    EXPECT_NEAR(page.clockAtZero, 22 * 3600 + 5 * 60, 1e-3);

    request.start = 90;  // the end: nothing left to draw
    EXPECT_FALSE(sigplot::ReadPage(*file, request, page, error));
    request.start = -1;
    EXPECT_FALSE(sigplot::ReadPage(*file, request, page, error));

    sigplot::SpectrogramMatrix m;
    ASSERT_TRUE(sigplot::ComputeSpectrogram(*file, "", 30, m, error)) << error;
    EXPECT_NEAR(m.BrightestBin() * m.freqRes, 10.0, m.freqRes);
}

TEST(PlotPageData, MontageChannelsAreComputedFromTheRecording) {
    tooltest::SigFilePtr file = tooltest::OpenReadOnly(DemoFile());
    ASSERT_TRUE(file);
    sigplot::PageRequest request;
    request.start = 100;
    request.duration = 2;  // 512 samples: every sample kept
    request.channels = {"Fp1-REF", "F7-REF"};
    sigplot::PageData recorded, bipolar;
    std::string error;
    ASSERT_TRUE(sigplot::ReadPage(*file, request, recorded, error)) << error;
    request.montage = "Bipolar";
    request.channels = {"FP1-F7"};
    ASSERT_TRUE(sigplot::ReadPage(*file, request, bipolar, error)) << error;
    const auto& fp1 = recorded.traces[0].points;
    const auto& f7 = recorded.traces[1].points;
    const auto& diff = bipolar.traces[0].points;
    ASSERT_EQ(diff.size(), 512u);
    ASSERT_EQ(fp1.size(), diff.size());
    for (size_t i = 0; i < diff.size(); i += 37) {
        EXPECT_DOUBLE_EQ(diff[i].t, fp1[i].t);
        EXPECT_NEAR(diff[i].lo, fp1[i].lo - f7[i].lo, 0.05) << i;
    }
    EXPECT_EQ(bipolar.montage, "Bipolar");
}

TEST(PlotPageData, WindowAtTheEndAndEventsOfTheWindow) {
    tooltest::SigFilePtr file = tooltest::OpenReadOnly(DemoFile());
    ASSERT_TRUE(file);
    const double length = sigplot::RecordingSeconds(*file);
    sigplot::PageRequest request;
    request.start = length - 5;  // a 30-s page of which 5 s exist
    sigplot::PageData page;
    std::string error;
    ASSERT_TRUE(sigplot::ReadPage(*file, request, page, error)) << error;
    EXPECT_DOUBLE_EQ(page.duration, 30.0);
    for (const auto& trace : page.traces) {
        ASSERT_FALSE(trace.points.empty()) << trace.label;
        EXPECT_LT(trace.points.back().t, length) << trace.label;
        EXPECT_GE(trace.points.front().t, length - 5) << trace.label;
    }
    // The demo's note on O1 at 200 s, and a spindle or two, in a page around it.
    request.start = 190;
    ASSERT_TRUE(sigplot::ReadPage(*file, request, page, error)) << error;
    const bool note = std::any_of(page.events.begin(), page.events.end(), [](const sigplot::EventMark& e) {
        return e.name.find("O1") != std::string::npos && std::fabs(e.begin - 200.0) < 1e-6;
    });
    EXPECT_TRUE(note);
    for (const auto& e : page.events) {
        EXPECT_LE(e.begin, 220.0);
        EXPECT_GE(e.end, 190.0);
    }
}
