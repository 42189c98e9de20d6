// sigfile plot page REC OUT [--start S] [--duration D] [--montage NAME]
//                  [--channel LABEL]... [--sensitivity UV_PER_MM]
// sigfile plot hypnogram REC OUT
// sigfile plot spectrogram REC_OR_SPC OUT [--channel LABEL] [--fmax HZ]
//                          [--spectral SPC]
// sigfile report REC OUT.pdf [--channel LABEL] [--fmax HZ] [--spectral SPC]
//
// Pictures of a recording as PNG, SVG or PDF (the output's extension
// chooses).  The output replaces an existing file only once the picture is
// complete.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "Drawing.h"
#include "RecordingData.h"
#include "ToolSupport.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"

namespace sigfile_tool {
namespace {

using namespace sigplot;

int Failure(const std::string& text) {
    Fail(text);
    return 1;
}

// Checks an output name: a picture format, and not a file of the recording.
std::string PictureNameCheck(const std::string& name) {
    OutputFormat format;
    return OutputFormatOf(name, format) ? std::string() : std::string("expected a name ending in .png, .svg or .pdf");
}

// The date a PDF states: the start of the recording pictured, so that
// drawing it twice gives the same file.
std::string DocumentDate(const CSDateTime& start) {
    return start.GetValue() != 0 ? start.ToIso().substr(0, 19) : std::string();
}

// Draws pages into the output through ReplacingOutput.  draw(cr, page)
// draws page `page` of `pages`; date is the DocumentDate of the picture.
template <typename Draw>
int WritePicture(const std::string& input, const std::string& out, const std::string& date, unsigned pages,
                 Draw draw, double height = kPageHeight) {
    if (IsFileOfRecording(input, out) || EqualsNoCase(AbsolutePath(input), AbsolutePath(out)))
        return Failure(out + " est un fichier de l'enregistrement " + input + " : l'image ne peut l'écraser");
    OutputFormat format;
    if (!OutputFormatOf(out, format)) return Failure("Format d'image inconnu : " + out + " (.png, .svg ou .pdf)");
    ReplacingOutput output(out);
    if (!output.Open()) {
        CSigFile::ErrorMessageBox(out.c_str(), GetLastError() ? GetLastError() : ERROR_WRITE_FAULT);
        return 1;
    }
    FILE* stream = output.Stream();
    bool written = true;
    {
        Picture picture(format, kPageWidth, height, [stream](const unsigned char* data, unsigned length) {
            return std::fwrite(data, 1, length, stream) == length;
        });
        if (!picture.Context()) return Failure("Impossible de créer l'image " + out);
        picture.SetDocumentInfo(ExtractFName(input) + ExtractExt(input), date);
        for (unsigned p = 0; p < pages; ++p) {
            if (p) picture.NextPage();
            draw(picture.Context(), p);
        }
        written = picture.Finish();
    }
    if (!written || std::ferror(stream) || !output.Commit()) {
        const long code = GetLastError();
        CSigFile::ErrorMessageBox(out.c_str(), code ? code : ERROR_WRITE_FAULT);
        return 1;
    }
    return 0;
}

// --- page -----------------------------------------------------------------

struct PageOptions {
    std::string file, out, montage;
    double start = 0, duration = 0, sensitivity = 7.0;
    std::vector<std::string> channels;
};

int RunPage(const PageOptions& opt) {
    SigFilePtr file = OpenForReading(opt.file);
    if (!file) return 1;
    PageRequest request;
    request.start = opt.start;
    request.duration = opt.duration;
    request.montage = opt.montage;
    request.channels = opt.channels;
    request.sensitivity = opt.sensitivity;
    PageData page;
    std::string error;
    if (!ReadPage(*file, request, page, error)) return Failure(error);
    return WritePicture(opt.file, opt.out, DocumentDate(RecordingStart(*file)), 1,
                        [&page](cairo_t* cr, unsigned) { DrawPage(cr, page, kPageWidth, kPageHeight); });
}

// --- hypnogram ---------------------------------------------------------------

// The whole recording, or the scored time when stages run beyond it (a
// scoring file without records).
TimeSpan NightSpan(const CSigFile& file, const std::vector<StageSpan>& stages) {
    TimeSpan span;
    span.from = 0;
    span.to = RecordingSeconds(file);
    if (!stages.empty()) {
        span.from = std::min(0.0, stages.front().begin);
        span.to = std::max(span.to, stages.back().end);
    }
    if (!(span.to > span.from)) span.to = span.from + 1;
    span.clockAtZero = SecondsOfDay(RecordingStart(file));
    return span;
}

std::string Title(const CSigFile& file, const std::string& what) {
    return what + "  -  " + ExtractFName(file.GetFileName()) + "  -  " + RecordingStart(file).ToDateText();
}

int NoStages(const std::string& name) {
    return Failure(name + " : l'enregistrement n'a pas de groupe de stades de sommeil");
}

int RunHypnogram(const std::string& name, const std::string& out) {
    SigFilePtr file = OpenForReading(name);
    if (!file) return 1;
    if (!HasSleepStages(*file)) return NoStages(name);
    const std::vector<StageSpan> stages = ReadStages(*file);
    if (stages.empty()) return Failure(name + " : le groupe de stades de sommeil n'a aucun stade");
    const TimeSpan span = NightSpan(*file, stages);
    const std::string title = Title(*file, "Hypnogramme");
    // A band across the page rather than a whole page.
    constexpr double kHeight = 300.0;
    return WritePicture(
        name, out, DocumentDate(RecordingStart(*file)), 1, [&](cairo_t* cr, unsigned) { DrawHypnogramPicture(cr, kPageWidth, kHeight, title, stages, span); },
        kHeight);
}

// --- spectrogram -------------------------------------------------------------

struct SpectrogramOptions {
    std::string file, out, channel, spectral;
    double fmax = 30.0;
};

bool IsSpectralName(const std::string& name) {
    return EqualsNoCase(ExtractExt(name), ".SPC") || EqualsNoCase(ExtractExt(name), ".SPH");
}

// The spectrogram of a recording: read from the spectral file given with
// it (which must be the recording's), else computed.
bool RecordingSpectrogram(CSigFile& file, const std::string& channel, double fmax, const std::string& spectral,
                          SpectrogramMatrix& matrix, std::string& error) {
    if (spectral.empty()) return ComputeSpectrogram(file, channel, fmax, matrix, error);
    SpectralSource source;
    if (!ReadSpectralFile(spectral, channel, fmax, RecordingStart(file), matrix, source, error)) return false;
    if (!SpectralFileMatches(source, file)) {
        error = spectral + " a été calculé d'un autre enregistrement (" +
                (source.fileName.empty() ? std::string("inconnu") : source.fileName) + ", " + source.fileId + ") que " +
                file.GetFileName() + " (" + RecordingId(file) + ")";
        return false;
    }
    return true;
}

// The recording a spectral file names, when it is there and is the one.
SigFilePtr SourceOfSpectralFile(const std::string& spectral, const SpectralSource& source) {
    if (source.fileName.empty()) return nullptr;
    for (const std::string& candidate :
         {source.fileName, ExtractDriveDir(spectral) + ExtractFName(source.fileName) + ExtractExt(source.fileName)}) {
        long error = 0;
        if (!CSigFile::IsValidFormat(candidate.c_str())) continue;
        SigFilePtr file(CSigFile::Open(candidate.c_str(), 1, &error));
        if (file && SpectralFileMatches(source, *file)) return file;
    }
    return nullptr;
}

int RunSpectrogram(const SpectrogramOptions& opt) {
    SpectrogramMatrix matrix;
    std::vector<StageSpan> stages;
    TimeSpan span;
    std::string error, title, date;
    if (IsSpectralName(opt.file)) {
        if (!opt.spectral.empty()) return Failure("--spectral accompagne un enregistrement, pas un fichier spectral");
        SpectralSource source;
        if (!ReadSpectralFile(opt.file, opt.channel, opt.fmax, CSDateTime(), matrix, source, error))
            return Failure(error);
        CSDateTime start;
        CSDateTime::FromText(source.start, start);
        span.clockAtZero = SecondsOfDay(start);
        span.to = matrix.columns * matrix.columnSeconds;
        date = DocumentDate(start);
        if (SigFilePtr rec = SourceOfSpectralFile(opt.file, source)) {
            // Placed on the recording's own time line, with its stages.
            if (!ReadSpectralFile(opt.file, opt.channel, opt.fmax, RecordingStart(*rec), matrix, source, error))
                return Failure(error);
            stages = ReadStages(*rec);
            span = NightSpan(*rec, stages);
            date = DocumentDate(RecordingStart(*rec));
        }
        title = "Spectrogramme  -  " + ExtractFName(opt.file) + ExtractExt(opt.file) + "  -  " + start.ToDateText();
    } else {
        SigFilePtr file = OpenForReading(opt.file);
        if (!file) return 1;
        if (!RecordingSpectrogram(*file, opt.channel, opt.fmax, opt.spectral, matrix, error)) return Failure(error);
        stages = ReadStages(*file);
        span = NightSpan(*file, stages);
        title = Title(*file, "Spectrogramme");
        date = DocumentDate(RecordingStart(*file));
    }
    if (!(span.to > span.from)) span.to = span.from + 1;
    return WritePicture(opt.file, opt.out, date, 1, [&](cairo_t* cr, unsigned) {
        DrawSpectrogramPicture(cr, kPageWidth, kPageHeight, title, matrix, stages, span);
    });
}

// --- report ------------------------------------------------------------------

struct ReportOptions {
    std::string file, out, channel, spectral;
    double fmax = 30.0;
};

std::string Duration(double seconds) {
    const long s = std::lround(std::max(0.0, seconds));
    return StrFormat("%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
}

std::vector<std::string> Identification(const CSigFile& file) {
    std::vector<std::string> lines;
    if (const CPatientInfo* p = file.GetPatientInfo()) {
        std::string line = "Patient : " + p->GetLastName();
        if (!p->GetFirstName().empty()) line += ", " + p->GetFirstName();
        if (!p->GetPatientId1().empty()) line += "   -   identifiant : " + p->GetPatientId1();
        if (!p->GetPatientId2().empty()) line += " (" + p->GetPatientId2() + ")";
        if (p->GetBirthDate().GetValue() != 0) line += "   -   naissance : " + p->GetBirthDate().ToDateText();
        if (p->GetSex() == 1 || p->GetSex() == 2) line += std::string("   -   sexe : ") + (p->GetSex() == 1 ? "M" : "F");
        lines.push_back(line);
    }
    const CSDateTime start = RecordingStart(file);
    lines.push_back(StrFormat("Enregistrement : %s (%s)   -   début : %s %s   -   durée : %s   -   %u canaux",
                              file.GetFileName(), GetSigFileFormatName(file.GetFormat()), start.ToDateText().c_str(),
                              ClockText(SecondsOfDay(start)).c_str(), Duration(RecordingSeconds(file)).c_str(),
                              file.GetNumChannels()));
    return lines;
}

int RunReport(const ReportOptions& opt) {
    if (!EqualsNoCase(ExtractExt(opt.out), ".pdf")) return Failure("Le rapport s'écrit en PDF : " + opt.out);
    SigFilePtr file = OpenForReading(opt.file);
    if (!file) return 1;
    const std::vector<StageSpan> stages = ReadStages(*file);
    std::vector<std::vector<StageSpan>> nights = SplitNights(stages);
    if (nights.empty()) nights.emplace_back();

    SpectrogramMatrix matrix;
    bool haveMatrix = false;
    std::string note, error;
    if (file->GetNumChannels() == 0 || file->GetNumRecords() == 0) {
        note = "Aucun signal dans cet enregistrement : pas de spectrogramme.";
    } else {
        if (!RecordingSpectrogram(*file, opt.channel, opt.fmax, opt.spectral, matrix, error)) return Failure(error);
        haveMatrix = true;
    }

    // Night k covers from the middle of the gap before it to the middle of
    // the gap after it (the whole recording for a single night).
    const TimeSpan whole = NightSpan(*file, stages);
    std::vector<ReportPage> pages(nights.size());
    for (size_t k = 0; k < nights.size(); ++k) {
        ReportPage& page = pages[k];
        page.title = nights.size() == 1 ? std::string("Rapport de nuit")
                                        : StrFormat("Rapport de nuit %zu / %zu", k + 1, nights.size());
        page.identification = Identification(*file);
        page.stages = nights[k];
        page.figures = ComputeSleepFigures(nights[k]);
        page.span = whole;
        if (k > 0) page.span.from = (nights[k - 1].back().end + nights[k].front().begin) / 2;
        if (k + 1 < nights.size()) page.span.to = (nights[k].back().end + nights[k + 1].front().begin) / 2;
        if (!nights[k].empty())
            page.identification.push_back(StrFormat("Nuit : %s - %s   -   canal analysé : %s",
                                                    ClockText(whole.clockAtZero + nights[k].front().begin).c_str(),
                                                    ClockText(whole.clockAtZero + nights[k].back().end).c_str(),
                                                    haveMatrix ? matrix.label.c_str() : "aucun"));
        page.counts = CountGroups(*file, page.span.from, page.span.to);
        page.spectrogram = haveMatrix ? &matrix : nullptr;
        page.spectrogramNote = note;
    }
    return WritePicture(opt.file, opt.out, DocumentDate(RecordingStart(*file)), static_cast<unsigned>(pages.size()),
                        [&](cairo_t* cr, unsigned p) {
        DrawReportPage(cr, kPageWidth, kPageHeight, pages[p]);
    });
}

template <typename Run>
void Guarded(Run run) {
    try {
        g_exitStatus = run();
    } catch (const CException& e) {
        PrintError(e.GetMessageText());
        g_exitStatus = 1;
    }
}

std::string PositiveNumber(const std::string& text) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !std::isfinite(v) || v <= 0.0) return "expected a number above 0";
    return {};
}

std::string NonNegativeNumber(const std::string& text) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !std::isfinite(v) || v < 0.0) return "expected a number of at least 0";
    return {};
}

}  // namespace

void RegisterPlotCommands(CLI::App& app) {
    auto* plot = app.add_subcommand("plot", "draw a page of traces, a hypnogram or a spectrogram (PNG, SVG or PDF)");
    plot->require_subcommand(1);

    auto page = std::make_shared<PageOptions>();
    auto* p = plot->add_subcommand("page", "one page of traces as a reviewer reads it");
    p->add_option("FILE", page->file, "recording file")->required();
    p->add_option("OUT", page->out, "picture to write (.png, .svg or .pdf)")->required()->check(PictureNameCheck);
    p->add_option("--start", page->start, "start of the page in seconds from the recording start (default 0)")
        ->check(NonNegativeNumber);
    p->add_option("--duration", page->duration,
                  "seconds shown (default 10, or 30 when the recording has sleep stages; at most 86400)")
        ->check(PositiveNumber)
        ->check(CLI::Range(0.0, 86400.0));
    p->add_option("--montage", page->montage, "reformatted montage whose channels are computed and drawn");
    p->add_option("--channel", page->channels, "label of a channel to draw (repeatable)")->allow_extra_args(false);
    p->add_option("--sensitivity", page->sensitivity, "microvolts per millimetre (default 7)")->check(PositiveNumber);
    p->callback([page] { Guarded([&] { return RunPage(*page); }); });

    auto hyp = std::make_shared<std::pair<std::string, std::string>>();
    auto* h = plot->add_subcommand("hypnogram", "the sleep stages of the night as a step plot");
    h->add_option("FILE", hyp->first, "recording file")->required();
    h->add_option("OUT", hyp->second, "picture to write (.png, .svg or .pdf)")->required()->check(PictureNameCheck);
    h->callback([hyp] { Guarded([&] { return RunHypnogram(hyp->first, hyp->second); }); });

    auto spec = std::make_shared<SpectrogramOptions>();
    auto* s = plot->add_subcommand("spectrogram", "power over time and frequency of one channel");
    s->add_option("FILE", spec->file, "recording file, or spectral file (.SPC or .SPH)")->required();
    s->add_option("OUT", spec->out, "picture to write (.png, .svg or .pdf)")->required()->check(PictureNameCheck);
    s->add_option("--channel", spec->channel, "channel label (default: a central EEG channel)");
    s->add_option("--fmax", spec->fmax, "highest frequency shown in Hz (default 30)")->check(PositiveNumber);
    s->add_option("--spectral", spec->spectral, "spectral file of the recording to draw instead of computing");
    s->callback([spec] { Guarded([&] { return RunSpectrogram(*spec); }); });

    auto report = std::make_shared<ReportOptions>();
    auto* r = app.add_subcommand("report", "a PDF night report: identification, hypnogram, spectrogram, sleep figures");
    r->add_option("FILE", report->file, "recording file")->required();
    r->add_option("OUT", report->out, "report to write (.pdf)")->required()->check([](const std::string& name) {
        return EqualsNoCase(ExtractExt(name), ".pdf") ? std::string() : std::string("expected a name ending in .pdf");
    });
    r->add_option("--channel", report->channel, "channel of the spectrogram (default: a central EEG channel)");
    r->add_option("--fmax", report->fmax, "highest frequency of the spectrogram in Hz (default 30)")
        ->check(PositiveNumber);
    r->add_option("--spectral", report->spectral, "spectral file of the recording to draw instead of computing");
    r->callback([report] { Guarded([&] { return RunReport(*report); }); });
}

}  // namespace sigfile_tool
