// Pictures against reading: an 8-hour, 27-channel, 256 Hz native night
// (records of 0.25 s), measured in the same run.
//
//   RESULT plot_page_read <ms per 30-s page> ratio=<page data / read> target=-
//     the page's traces gathered (ranges of samples per point of width)
//     against reading its records alone, for information;
//   RESULT plot_page <ms per 30-s page> ratio=<read+draw / read> target=2
//     a 30-s page of the 27 channels read and drawn (rasterised at the PNG
//     resolution, 1684 x 1190 pixels), against reading the page's records
//     through the record source alone;
//   RESULT plot_page_png <ms per 30-s page> ratio=<read+draw+encode / read> target=-
//     the same with the PNG encoded (zlib), for information;
//   RESULT plot_page_from_disk <ms per 30-s page> ratio=<read+draw / read> target=-
//     plot_page with the recording evicted from the page cache before each
//     run (reads from the disk), for information;
//   RESULT plot_spectrogram <s per 8-h night> ratio=<spectrogram / read> target=3
//     the night's spectrogram of one channel (every record read once) against
//     one sequential read of the night.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <numbers>
#include <string>

#include "Drawing.h"
#include "RecordingData.h"
#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "records/SigRec.h"
#include "sigfile/RecordSource.h"
#include "sigfile/SIGFILE.h"

namespace {

constexpr unsigned kChannels = 27;
constexpr unsigned kSamples = 64;  // per record at 256 Hz
constexpr long kRecords = 8L * 3600 * 4;
const CSDateTime kStart(2026, 1, 31, 22, 0, 0);

double Now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

double Best(int runs, const std::function<double()>& f) {
    double best = 1e300;
    for (int i = 0; i < runs; ++i) best = std::min(best, f());
    return best;
}

// EEG-like content: a few rhythms of some tens of µV (0.1 µV per step).
bool WriteNight(const std::string& name) {
    static const char* const kSites[] = {"Fp1", "Fp2", "F7", "F3", "Fz", "F4", "F8", "T3", "C3", "Cz",
                                         "C4",  "T4",  "T5", "P3", "Pz", "P4", "T6", "O1", "O2", "A1",
                                         "A2",  "F1",  "F2", "C1", "C2", "P1", "P2"};
    CFileHeader header("bench", "", 0, kStart);
    CPatientInfo patient;
    CPhysicalMontage montage("bench", 0);
    montage.AddElectrode("REF", CPolar3D());
    CRecordingMontage* rec = montage.CreateRecordingMontage();
    rec->SetBaseFrequency(256);
    rec->SetSamplesRecord(kSamples);
    for (unsigned c = 0; c < kChannels; ++c) {
        montage.AddElectrode(kSites[c], CPolar3D());
        rec->AddChannel(kSites[c], "REF", 1, 1, 256, 0, 0, "");
    }
    CCalibration calibration(kChannels, -32768, -0.0032768f, 32767, 0.0032767f, 256.0);
    for (unsigned c = 0; c < kChannels; ++c) calibration.SetCalibFromGain(c, 0.1f, 0.0f, 1);
    long error = 0;
    CSigFilePtr file(CSigFile::Create(name.c_str(), &header, &patient, &montage, &calibration, SIGFILE_FORMAT_NATIVE,
                                      &error, 1));
    if (!file) {
        std::fprintf(stderr, "cannot create %s: error %ld\n", name.c_str(), error);
        return false;
    }
    std::unique_ptr<CRawSigRec> raw(file->CreateCompatibleRawSigRec());
    unsigned noise = 12345;
    for (long r = 0; r < kRecords; ++r) {
        short* p = raw->GetData();
        for (unsigned c = 0; c < kChannels; ++c)
            for (unsigned s = 0; s < kSamples; ++s) {
                const double t = (r * kSamples + s) / 256.0;
                noise = noise * 1103515245u + 12345u;
                const double v = 300 * std::sin(2 * std::numbers::pi * (2 + c % 3) * t) +
                                 150 * std::sin(2 * std::numbers::pi * 10.5 * t + c) + ((noise >> 16) % 200) - 100.0;
                p[c * kSamples + s] = static_cast<short>(v);
            }
        raw->SetTime(kStart + CSTimeSpan(r * 0.25));
        file->MoveTo(r);
        if (!file->Write(raw.get())) return false;
    }
    CSigFile* done = file.release();
    const int closed = done->Close();
    delete done;
    return closed != 0;
}

CSigFilePtr Open(const std::string& name) {
    long error = 0;
    CSigFilePtr file(CSigFile::Open(name.c_str(), 1, &error));
    if (!file) {
        std::fprintf(stderr, "cannot open %s: error %ld\n", name.c_str(), error);
        std::exit(1);
    }
    return file;
}

volatile double g_sink = 0;

// Drops the recording's data from the page cache, so that the next read
// comes from the disk.
void Evict(const std::string& name) {
    const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    ::fdatasync(fd);
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    ::close(fd);
}

// Reads records [first, last) through the record source (the calibrated
// samples of every channel), keeping one sample per channel so that the
// reads are used.
void ReadRecords(CSigFile& file, long first, long last) {
    CRecordSource source(file);
    std::unique_ptr<CFmtSigRec> rec(source.CreateCompatibleFmtSigRec());
    double sum = 0;
    for (long r = first; r < last; ++r) {
        if (!source.Read(r, *rec)) {
            std::fprintf(stderr, "cannot read record %ld\n", r);
            std::exit(1);
        }
        for (unsigned c = 0; c < kChannels; ++c) sum += rec->GetAt(c, r % kSamples);
    }
    g_sink = g_sink + sum;
}

}  // namespace

int main() {
    const std::string dir = (std::filesystem::temp_directory_path() / "sigfile-bench-plot").string();
    std::filesystem::create_directories(dir);
    const std::string name = dir + "/night.SIG";
    std::fprintf(stderr, "writing the 8-hour night ...\n");
    if (!WriteNight(name)) return 1;

    // One page: 30 s from the fourth hour.
    const double start = 3 * 3600.0 + 17.0;
    const long first = static_cast<long>(start / 0.25), last = static_cast<long>((start + 30) / 0.25);
    CSigFilePtr file = Open(name);
    const int runs = 15;
    const double tRead = Best(runs, [&] {
        const double t0 = Now();
        ReadRecords(*file, first, last);
        return Now() - t0;
    });
    auto drawPage = [&](bool encode) {
        const double t0 = Now();
        sigplot::PageRequest request;
        request.start = start;
        request.duration = 30;
        sigplot::PageData page;
        std::string error;
        if (!sigplot::ReadPage(*file, request, page, error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            std::exit(1);
        }
        size_t bytes = 0;
        sigplot::Picture picture(sigplot::OutputFormat::Png, sigplot::kPageWidth, sigplot::kPageHeight,
                                 [&bytes](const unsigned char*, unsigned n) {
                                     bytes += n;
                                     return true;
                                 });
        sigplot::DrawPage(picture.Context(), page, sigplot::kPageWidth, sigplot::kPageHeight);
        cairo_surface_flush(cairo_get_target(picture.Context()));
        if (encode) picture.Finish();
        g_sink = g_sink + static_cast<double>(bytes);
        return Now() - t0;
    };
    const double tData = Best(runs, [&] {
        const double t0 = Now();
        sigplot::PageRequest request;
        request.start = start;
        request.duration = 30;
        sigplot::PageData page;
        std::string error;
        sigplot::ReadPage(*file, request, page, error);
        g_sink = g_sink + static_cast<double>(page.traces.size());
        return Now() - t0;
    });
    const double tPage = Best(runs, [&] { return drawPage(false); });
    const double tPng = Best(5, [&] { return drawPage(true); });
    // The same from the disk rather than the page cache, for information.
    double tColdRead = 1e300, tColdPage = 1e300;
    for (int i = 0; i < 5; ++i) {
        Evict(name);
        double t0 = Now();
        ReadRecords(*file, first, last);
        tColdRead = std::min(tColdRead, Now() - t0);
        Evict(name);
        tColdPage = std::min(tColdPage, drawPage(false));
    }
    std::printf("RESULT plot_page_read %.3f ms ratio=%.2f target=-\n", tData * 1e3, tData / tRead);
    std::printf("RESULT plot_page %.2f ms ratio=%.2f target=2\n", tPage * 1e3, tPage / tRead);
    std::printf("RESULT plot_page_png %.2f ms ratio=%.2f target=-\n", tPng * 1e3, tPng / tRead);
    std::printf("RESULT plot_page_from_disk %.2f ms ratio=%.2f target=-\n", tColdPage * 1e3, tColdPage / tColdRead);
    std::fflush(stdout);

    // The night: one sequential read against the spectrogram.
    const double tNight = Best(3, [&] {
        const double t0 = Now();
        ReadRecords(*file, 0, kRecords);
        return Now() - t0;
    });
    const double tSpectrogram = Best(3, [&] {
        const double t0 = Now();
        sigplot::SpectrogramMatrix m;
        std::string error;
        if (!sigplot::ComputeSpectrogram(*file, "", 30, m, error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            std::exit(1);
        }
        g_sink = g_sink + m.columns;
        return Now() - t0;
    });
    std::printf("RESULT plot_spectrogram %.2f s ratio=%.2f target=3\n", tSpectrogram, tSpectrogram / tNight);
    file.reset();
    std::filesystem::remove_all(dir);
    return 0;
}
