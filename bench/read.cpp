// Writes a 1-hour, 64-channel, 256 Hz native recording and reads it back,
// sequentially and at random, through Read(CFmtSigRec*), against plain
// read()/write() of the same ".SIG" bytes with a hand-written conversion
// loop, measured in the same run.
//
//   RESULT write <MB/s> ratio=<library/plain> target=1.3
//   RESULT read_sequential <MB/s of calibrated output> ratio=<library/plain> target=1.3
//   RESULT read_random <MB/s of calibrated output> ratio=<library/plain> target=-
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"

namespace {
constexpr unsigned kChannels = 64;
constexpr unsigned kSamples = 64;  // per record at 256 Hz: 0.25 s
constexpr long kRecords = 3600 * 4;
constexpr size_t kRecordSize = 8 + 2 * kChannels * kSamples;

double Now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Recording {
    CFileHeader header{"bench", "", 0, CSDateTime(2026, 1, 1, 22, 0, 0)};
    CPatientInfo patient;
    CPhysicalMontage montage{"bench", 0};
    std::unique_ptr<CCalibration> calibration;
    Recording() {
        montage.AddElectrode("REF", CPolar3D());
        CRecordingMontage* rec = montage.CreateRecordingMontage();
        rec->SetBaseFrequency(256);
        for (unsigned c = 0; c < kChannels; ++c) {
            std::string e = "E" + std::to_string(c + 1);
            montage.AddElectrode(e.c_str(), CPolar3D());
            rec->AddChannel(e.c_str(), "REF", 1, 1, 256, 0, 0, "");
        }
        calibration = std::make_unique<CCalibration>(kChannels, -32768, -0.0032768f, 32767, 0.0032767f, 256.0);
        for (unsigned c = 0; c < kChannels; ++c) calibration->SetCalibFromGain(c, 1.0f + c * 0.01f, 0.0f, 1);
    }
};

void FillRaw(CRawSigRec& rec, long r) {
    short* p = rec.GetData();
    for (unsigned i = 0; i < kChannels * kSamples; ++i) p[i] = static_cast<short>((r * 31 + i * 7) & 0x7FFF);
    rec.SetTime(CSDateTime(2026, 1, 1, 22, 0, 0) + CSTimeSpan(r * 0.25));
}

// The hand-written conversion the library's formatted read is measured against.
struct Converter {
    float adMin;
    float step[kChannels];
    float worldMin[kChannels];
    explicit Converter(const CCalibration& cal) : adMin(static_cast<float>(cal.GetAdMin())) {
        for (unsigned c = 0; c < kChannels; ++c) {
            float hi;
            cal.GetWorldRange(c, worldMin[c], hi);
            step[c] = cal.GetWorldStep(c);
        }
    }
    void operator()(const BYTE* image, float* out) const {
        const auto* samples = reinterpret_cast<const short*>(image + 8);
        for (unsigned c = 0; c < kChannels; ++c) {
            const short* in = samples + c * kSamples;
            float* o = out + c * kSamples;
            for (unsigned s = 0; s < kSamples; ++s) o[s] = (static_cast<float>(in[s]) - adMin) * step[c] + worldMin[c];
        }
    }
};

double Best(int runs, const std::function<double()>& f) {
    double best = 1e300;
    for (int i = 0; i < runs; ++i) best = std::min(best, f());
    return best;
}
}  // namespace

int main() {
    std::string dir = (std::filesystem::temp_directory_path() / "sigfile-bench-read").string();
    std::filesystem::create_directories(dir);
    std::string name = dir + "/hour.SIG", plainName = dir + "/plain.bin";
    Recording d;
    double outputMB = kRecords * double(kChannels * kSamples * 4) / 1e6;
    double storedMB = kRecords * double(kRecordSize) / 1e6;

    // Writing.
    double tLibWrite = Best(2, [&] {
        double t0 = Now();
        long error = 0;
        CSigFile* f = CSigFile::Create(name.c_str(), &d.header, &d.patient, &d.montage, d.calibration.get(), 1, &error, 1);
        if (!f) {
            std::fprintf(stderr, "cannot create %s: %ld\n", name.c_str(), error);
            std::exit(1);
        }
        std::unique_ptr<CRawSigRec> rec(f->CreateCompatibleRawSigRec());
        for (long r = 0; r < kRecords; ++r) {
            FillRaw(*rec, r);
            f->MoveTo(r);
            f->Write(rec.get());
        }
        f->Close();
        delete f;
        return Now() - t0;
    });
    double tPlainWrite = Best(2, [&] {
        double t0 = Now();
        int fd = ::open(plainName.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        CRawSigRec rec(kChannels, kSamples);
        std::vector<BYTE> image(kRecordSize);
        for (long r = 0; r < kRecords; ++r) {
            FillRaw(rec, r);
            double t = rec.GetTime().GetValue();
            std::memcpy(image.data(), &t, 8);
            std::memcpy(image.data() + 8, rec.GetData(), kRecordSize - 8);
            if (::write(fd, image.data(), image.size()) != static_cast<ssize_t>(image.size())) std::exit(1);
        }
        ::fsync(fd);
        ::close(fd);
        return Now() - t0;
    });

    // Reading, sequentially and at random.
    Converter convert(*d.calibration);
    std::vector<long> order(kRecords);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    double checksumLib = 0, checksumPlain = 0;

    auto libRead = [&](bool random) {
        long error = 0;
        CSigFile* f = CSigFile::Open(name.c_str(), 1, &error);
        if (!f) std::exit(1);
        std::unique_ptr<CFmtSigRec> fmt(f->CreateCompatibleFmtSigRec());
        double t0 = Now();
        double sum = 0;
        for (long i = 0; i < kRecords; ++i) {
            f->MoveTo(random ? order[static_cast<size_t>(i)] : i);
            f->Read(fmt.get());
            sum += fmt->GetAt(kChannels - 1, kSamples - 1);
        }
        double t = Now() - t0;
        checksumLib = sum;
        f->Close();
        delete f;
        return t;
    };
    auto plainRead = [&](bool random) {
        int fd = ::open(name.c_str(), O_RDONLY);
        std::vector<BYTE> image(kRecordSize);
        std::vector<float> out(kChannels * kSamples);
        double t0 = Now();
        double sum = 0;
        for (long i = 0; i < kRecords; ++i) {
            long r = random ? order[static_cast<size_t>(i)] : i;
            if (::pread(fd, image.data(), kRecordSize, static_cast<off_t>(r) * kRecordSize) !=
                static_cast<ssize_t>(kRecordSize))
                std::exit(1);
            convert(image.data(), out.data());
            sum += out.back();
        }
        double t = Now() - t0;
        checksumPlain = sum;
        ::close(fd);
        return t;
    };
    double tPlainSeq = Best(3, [&] { return plainRead(false); });
    double tLibSeq = Best(3, [&] { return libRead(false); });
    double tPlainRnd = Best(3, [&] { return plainRead(true); });
    double tLibRnd = Best(3, [&] { return libRead(true); });
    if (checksumLib != checksumPlain) {
        std::fprintf(stderr, "the library and the plain loop disagree: %.17g vs %.17g\n", checksumLib, checksumPlain);
        return 1;
    }

    std::printf("RESULT write %.1f MB/s ratio=%.2f target=1.3\n", storedMB / tLibWrite, tLibWrite / tPlainWrite);
    std::printf("RESULT read_sequential %.1f MB/s ratio=%.2f target=1.3\n", outputMB / tLibSeq, tLibSeq / tPlainSeq);
    std::printf("RESULT read_random %.1f MB/s ratio=%.2f target=-\n", outputMB / tLibRnd, tLibRnd / tPlainRnd);
    CSigFile::Delete(name.c_str());
    std::filesystem::remove(plainName);
    return 0;
}
