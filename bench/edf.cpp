// EDF+ writer and reader throughput against plain file I/O of the same bytes,
// then export and import of a native recording against the native read path.
//
// A 30-minute recording of 32 signals at 256 Hz (1-second records, one
// annotation every 30 s) is written with EdfWriter and read back record by
// record with EdfReader.  The baselines write and read the same number of
// bytes in record-sized blocks through CFile, flushed to the disk like the
// writer's file.  Ratios are EDF time / baseline time.
//
// Opening: the same EDF+ file read whole into formatted records through
// CSigFile::Open (edf_open_read), against reading its bytes from the page
// cache and converting them by hand (d x gain + offset into floats).
//
// Export / import: a 1-hour native recording of 64 channels at 256 Hz (with
// an event every 30 s) is exported to EDF+ and the EDF+ file imported into a
// new native recording.  Both end with their output on the disk, so the
// baseline is a plain durable copy of the recording's bytes (read, write,
// fsync); edf_durable_copy (information) gives that copy against reading
// every record of the native recording.  MB/s count the 16-bit samples.
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "HourRecording.h"
#include "montage/mtgs.h"
#include "platform/File.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "formats/edf/EdfExport.h"
#include "sigfile/FormatDriver.h"
#include "formats/edf/EdfReader.h"
#include "formats/edf/EdfWriter.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

using namespace edf;

namespace {

constexpr int kSignals = 32;
constexpr int kRate = 256;
constexpr int kRecords = 1800;

double Seconds(std::chrono::steady_clock::time_point from) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

using FilePtr = CSigFilePtr;

// The benchmarks' hour recording with an annotation every 30 s.
bool WriteNative(const std::string& name) {
    return bench::WriteHourRecording(name, [](CSigFile& f) {
        auto* group = new CStatusGroup(groupid::kAnnotation, "Annotation", "", 3, 0, 0, -1, "", 0, 0, 1, 0);
        f.AddGroup(group);
        for (long s = 0; s < bench::kHourRecords * 64; s += 30 * 256) {
            const CSDateTime at = bench::kHourStart + CSTimeSpan(s / 256.0);
            f.AddStatusItem(new CStatusItem(group, LONG(s), at, LONG(s), at, "", "Note", "", 0, 1));
        }
        return f.Flush() != 0;
    });
}

// Reads every record of a native recording; the checksum keeps the reads.
double ReadNative(const std::string& name, long long& checksum) {
    auto t0 = std::chrono::steady_clock::now();
    FilePtr f(CSigFile::Open(name.c_str(), 1));
    if (!f) return -1;
    std::unique_ptr<CRawSigRec> raw(f->CreateCompatibleRawSigRec());
    for (long r = 0; r < f->GetNumRecords(); ++r) {
        f->MoveTo(r);
        if (!f->Read(raw.get())) return -1;
        checksum += raw->GetAt(0, 0);
    }
    return Seconds(t0);
}

// The least any export or import can take: the recording's bytes read and
// written to a new file with plain system calls, then forced to the disk.
double DurableCopy(const std::string& from, const std::string& to) {
    auto t0 = std::chrono::steady_clock::now();
    CFile in(from.c_str(), CFile::modeRead);
    CFile out(to.c_str(), CFile::modeCreate | CFile::modeWrite);
    std::vector<BYTE> block(size_t(1) << 20);
    while (UINT n = in.Read(block.data(), UINT(block.size()))) out.Write(block.data(), n);
    out.FlushToDisk();
    out.Close();
    const double seconds = Seconds(t0);
    ::unlink(to.c_str());
    return seconds;
}

int ExportImport(const std::string& folder) {
    const std::string native = folder + "/hour.SIG", edfPath = folder + "/hour.edf", back = folder + "/back.SIG";
    if (!WriteNative(native)) {
        std::fprintf(stderr, "native recording not written\n");
        return 1;
    }
    long long checksum = 0;
    ReadNative(native, checksum);  // warm the page cache like the export will find it
    const double read = ReadNative(native, checksum);
    const double copy = DurableCopy(native, folder + "/copy.bin");
    std::string error;
    std::clock_t c0 = std::clock();
    auto t0 = std::chrono::steady_clock::now();
    if (!ExportEdf(native.c_str(), edfPath.c_str(), {}, &error)) {
        std::fprintf(stderr, "export: %s\n", error.c_str());
        return 1;
    }
    const double exported = Seconds(t0);
    const double exportCpu = double(std::clock() - c0) / CLOCKS_PER_SEC;
    c0 = std::clock();
    t0 = std::chrono::steady_clock::now();
    if (!ConvertSigFile(edfPath.c_str(), back.c_str(), {}, &error)) {
        std::fprintf(stderr, "import: %s\n", error.c_str());
        return 1;
    }
    const double imported = Seconds(t0);
    const double importCpu = double(std::clock() - c0) / CLOCKS_PER_SEC;
    const double megabytes = double(bench::kHourRecords) * bench::kHourChannels * bench::kHourSamples * 2 / 1e6;
    std::printf("RESULT edf_durable_copy %.1f MB/s ratio=%.2f target=-\n", megabytes / copy, copy / read);
    // Both end with their output on the disk: the durable copy is their floor.
    std::printf("RESULT edf_export %.1f MB/s ratio=%.2f target=1.2\n", megabytes / exported, exported / copy);
    std::printf("RESULT edf_import %.1f MB/s ratio=%.2f target=1.2\n", megabytes / imported, imported / copy);
    std::fflush(stdout);
    std::fprintf(stderr,
                 "(native read %.2f s, durable copy %.2f s, export %.2f s (%.2f s CPU), import %.2f s (%.2f s CPU), %.1f MB, checksum "
                 "%lld)\n",
                 read, copy, exported, exportCpu, imported, importCpu, megabytes, checksum);
    CSigFile::Delete(native.c_str());
    CSigFile::Delete(back.c_str());
    ::unlink(edfPath.c_str());
    return 0;
}

}  // namespace

int main() {
    char folder[] = "/tmp/sigfile-bench-edf-XXXXXX";
    if (!mkdtemp(folder)) return 1;
    const std::string edfPath = std::string(folder) + "/night.edf";
    const std::string rawPath = std::string(folder) + "/raw.bin";

    EdfHeader header;
    header.start = CSDateTime(2026, 1, 31, 22, 0, 0);
    header.recordDuration = 1;
    std::vector<EdfSignal> signals(kSignals);
    for (int i = 0; i < kSignals; ++i) {
        signals[size_t(i)].label = "EEG " + std::to_string(i + 1);
        signals[size_t(i)].unit = "uV";
        signals[size_t(i)].samplesPerRecord = kRate;
    }
    std::vector<double> starts;
    std::vector<EdfAnnotation> annotations;
    for (int r = 0; r < kRecords; ++r) {
        starts.push_back(r);
        if (r % 30 == 5) annotations.push_back({r + 0.5, 30.0, "Stade " + std::to_string(r % 4)});
    }
    std::vector<std::vector<LONG>> samples(kSignals, std::vector<LONG>(kRate));
    for (int i = 0; i < kSignals; ++i)
        for (int k = 0; k < kRate; ++k) samples[size_t(i)][size_t(k)] = LONG((i * 7919 + k * 104729) % 65536 - 32768);

    std::string error;
    auto t0 = std::chrono::steady_clock::now();
    EdfAnnotationPlan plan = PlanAnnotations(starts, annotations);
    EdfWriter writer;
    bool ok = writer.Open(edfPath, header, signals, plan.bytesPerRecord, error);
    for (int r = 0; ok && r < kRecords; ++r) ok = writer.WriteRecord(starts[size_t(r)], samples, plan.perRecord[size_t(r)], error);
    if (ok) ok = writer.Close(error);
    const double edfWrite = Seconds(t0);
    if (!ok) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }

    const size_t recordBytes = size_t(kSignals * kRate + writer.AnnotationSamples()) * 2;
    const double megabytes = double(recordBytes) * kRecords / 1e6;
    std::vector<BYTE> block(recordBytes, 0x5A);
    t0 = std::chrono::steady_clock::now();
    {
        CFile raw(rawPath.c_str(), CFile::modeCreate | CFile::modeWrite);
        for (int r = 0; r < kRecords; ++r) raw.Write(block.data(), UINT(block.size()));
        raw.FlushToDisk();
    }
    const double rawWrite = Seconds(t0);

    t0 = std::chrono::steady_clock::now();
    EdfReader reader;
    ok = reader.Open(edfPath, error);
    std::vector<std::vector<LONG>> got;
    long long checksum = 0;
    for (LONGLONG r = 0; ok && r < reader.RecordCount(); ++r) {
        ok = reader.ReadRecord(r, got, error);
        checksum += got[0][0];
    }
    const double edfRead = Seconds(t0);
    if (!ok || reader.Annotations().size() != annotations.size()) {
        std::fprintf(stderr, "read back failed: %s\n", error.c_str());
        return 1;
    }
    t0 = std::chrono::steady_clock::now();
    {
        CFile raw(rawPath.c_str(), CFile::modeRead);
        for (int r = 0; r < kRecords; ++r) {
            raw.Read(block.data(), UINT(block.size()));
            checksum += block[0];
        }
    }
    const double rawRead = Seconds(t0);

    // The whole file as a recording, formatted, against the bytes converted by hand.
    double byHand = 1e9, opened = 1e9;
    for (int round = 0; round < 3; ++round) {
        t0 = std::chrono::steady_clock::now();
        {
            CFile raw(edfPath.c_str(), CFile::modeRead);
            std::vector<BYTE> all(size_t(raw.GetLength()));
            raw.Read(all.data(), UINT(all.size()));
            const size_t headerBytes = size_t(256 * (kSignals + 2));
            std::vector<float> values(size_t(kSignals) * kRate);
            const double gain = signals[0].Gain(), offset = signals[0].physicalMin - signals[0].digitalMin * gain;
            for (int r = 0; r < kRecords; ++r) {
                const BYTE* p = all.data() + headerBytes + size_t(r) * recordBytes;
                for (size_t i = 0; i < values.size(); ++i, p += 2)
                    values[i] = float(double(int16_t(uint16_t(p[0] | p[1] << 8))) * gain + offset);
                checksum += static_cast<long long>(values[0]);
            }
        }
        byHand = std::min(byHand, Seconds(t0));
        t0 = std::chrono::steady_clock::now();
        {
            FilePtr f(CSigFile::Open(edfPath.c_str(), 1));
            if (!f) return 1;
            std::unique_ptr<CFmtSigRec> fmt(f->CreateCompatibleFmtSigRec());
            for (long r = 0; r < f->GetNumRecords(); ++r) {
                f->MoveTo(r);
                if (!f->Read(fmt.get())) return 1;
                checksum += static_cast<long long>(fmt->GetAt(0, 0));
            }
        }
        opened = std::min(opened, Seconds(t0));
    }

    std::printf("RESULT edf_write %.1f MB/s ratio=%.2f target=3\n", megabytes / edfWrite, edfWrite / rawWrite);
    std::printf("RESULT edf_open_read %.1f MB/s ratio=%.2f target=1.3\n", megabytes / opened, opened / byHand);
    std::printf("RESULT edf_read %.1f MB/s ratio=%.2f target=3\n", megabytes / edfRead, edfRead / rawRead);
    std::fflush(stdout);
    std::fprintf(stderr, "(%.1f MB, checksum %lld)\n", megabytes, checksum);
    ::unlink(edfPath.c_str());
    ::unlink(rawPath.c_str());
    const int status = ExportImport(folder);
    ::rmdir(folder);
    return status;
}
