// Helper of bench/run (not a benchmark: it prints no RESULT line).
//
//   bench_make_recording make NAME.SIG
//       writes a 1-hour, 64-channel, 256 Hz native recording;
//   bench_make_recording peak PROGRAM [ARG...]
//       runs PROGRAM and prints its peak resident set size; bench/run uses
//       it to measure sigfile export and sigfile info on that recording.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "sigfile/SigRec.h"

namespace {
constexpr unsigned kChannels = 64;
constexpr unsigned kSamples = 64;  // per record at 256 Hz: 0.25 s
constexpr long kRecords = 3600 * 4;

int Make(const char* name) {
    CFileHeader header("bench", "", 0, CSDateTime(2026, 1, 1, 22, 0, 0));
    CPatientInfo patient;
    CPhysicalMontage montage("bench", 0);
    montage.AddElectrode("REF", CPolar3D());
    CRecordingMontage* rec = montage.CreateRecordingMontage();
    rec->SetBaseFrequency(256);
    for (unsigned c = 0; c < kChannels; ++c) {
        const std::string e = "E" + std::to_string(c + 1);
        montage.AddElectrode(e.c_str(), CPolar3D());
        rec->AddChannel(e.c_str(), "REF", 1, 1, 256, 0, 0, "");
    }
    CCalibration calibration(kChannels, -32768, -0.0032768f, 32767, 0.0032767f, 256.0);
    for (unsigned c = 0; c < kChannels; ++c) calibration.SetCalibFromGain(c, 1.0f + c * 0.01f, 0.0f, 1);

    long error = 0;
    CSigFile* file = CSigFile::Create(name, &header, &patient, &montage, &calibration, SIGFILE_FORMAT_NATIVE, &error, 1);
    if (!file) {
        std::fprintf(stderr, "cannot create %s: error %ld\n", name, error);
        return 1;
    }
    std::unique_ptr<CRawSigRec> raw(file->CreateCompatibleRawSigRec());
    for (long r = 0; r < kRecords; ++r) {
        short* p = raw->GetData();
        for (unsigned i = 0; i < kChannels * kSamples; ++i) p[i] = static_cast<short>((r * 31 + i * 7) & 0x7FFF);
        raw->SetTime(CSDateTime(2026, 1, 1, 22, 0, 0) + CSTimeSpan(r * 0.25));
        file->MoveTo(r);
        if (!file->Write(raw.get())) {
            std::fprintf(stderr, "cannot write record %ld\n", r);
            return 1;
        }
    }
    const int closed = file->Close();
    delete file;
    return closed ? 0 : 1;
}

}  // namespace

// Runs a program (its standard output thrown away) and prints its peak
// resident set size as the system accounts it: "peak_kb N status S".  The
// figure is taken from a process this small because a child's peak counts
// what its parent had resident when it was forked.
int Peak(char** argv) {
    pid_t pid = ::fork();
    if (pid < 0) return 1;
    if (pid == 0) {
        int null = ::open("/dev/null", O_WRONLY);
        if (null >= 0) ::dup2(null, 1);
        ::execv(argv[0], argv);
        ::_exit(127);
    }
    int status = 0;
    struct rusage usage {};
    if (::wait4(pid, &status, 0, &usage) != pid) return 1;
    std::printf("peak_kb %ld status %d\n", long(usage.ru_maxrss), WIFEXITED(status) ? WEXITSTATUS(status) : 128);
    return 0;
}

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "make") == 0) return Make(argv[2]);
    if (argc >= 3 && std::strcmp(argv[1], "peak") == 0) return Peak(argv + 2);
    std::fprintf(stderr, "usage: %s make NAME.SIG | peak PROGRAM [ARG...]\n", argv[0]);
    return 2;
}
