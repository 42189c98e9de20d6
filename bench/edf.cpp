// EDF+ writer and reader throughput against plain file I/O of the same bytes.
//
// A 30-minute recording of 32 signals at 256 Hz (1-second records, one
// annotation every 30 s) is written with EdfWriter and read back record by
// record with EdfReader.  The baselines write and read the same number of
// bytes in record-sized blocks through CFile, flushed to the disk like the
// writer's file.  Ratios are EDF time / baseline time.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/File.h"
#include "sigfile/edf/EdfReader.h"
#include "sigfile/edf/EdfWriter.h"

using namespace edf;

namespace {

constexpr int kSignals = 32;
constexpr int kRate = 256;
constexpr int kRecords = 1800;

double Seconds(std::chrono::steady_clock::time_point from) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
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

    std::printf("RESULT edf_write %.1f MB/s ratio=%.2f target=3\n", megabytes / edfWrite, edfWrite / rawWrite);
    std::printf("RESULT edf_read %.1f MB/s ratio=%.2f target=3\n", megabytes / edfRead, edfRead / rawRead);
    std::fprintf(stderr, "(%.1f MB, checksum %lld)\n", megabytes, checksum);
    ::unlink(edfPath.c_str());
    ::unlink(rawPath.c_str());
    ::rmdir(folder);
    return 0;
}
