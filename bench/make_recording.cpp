// Helper of bench/run (not a benchmark: it prints no RESULT line).
//
//   bench_make_recording make NAME.SIG
//       writes a 1-hour, 64-channel, 256 Hz native recording;
//   bench_make_recording export NAME.SIG OUT.csv
//       reads every record in volts and writes one CSV line per sample time
//       (time in seconds, then every channel), the way an export does; its
//       peak memory is what bench/run measures.
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

int Export(const char* name, const char* out) {
    long error = 0;
    CSigFile* file = CSigFile::Open(name, 1, &error);
    if (!file) {
        std::fprintf(stderr, "cannot open %s: error %ld\n", name, error);
        return 1;
    }
    FILE* csv = std::fopen(out, "w");
    if (!csv) {
        std::perror(out);
        return 1;
    }
    std::unique_ptr<CFmtSigRec> rec(file->CreateCompatibleFmtSigRec());
    const unsigned channels = file->GetNumChannels();
    const double period = 1.0 / file->GetTrueFrequency();
    int status = 0;
    for (long r = 0; r < file->GetNumRecords(); ++r) {
        file->MoveTo(r);
        if (!file->ReadAsVolts(rec.get())) {
            std::fprintf(stderr, "cannot read record %ld\n", r);
            status = 1;
            break;
        }
        const unsigned samples = rec->GetNumSamples(0);
        for (unsigned s = 0; s < samples; ++s) {
            std::fprintf(csv, "%.6f", (r * samples + s) * period);
            for (unsigned c = 0; c < channels; ++c)
                std::fprintf(csv, ",%.7g", s < rec->GetNumSamples(c) ? rec->GetAt(c, s) : 0.0f);
            std::fputc('\n', csv);
        }
    }
    if (std::fclose(csv) != 0) status = 1;
    file->Close();
    delete file;
    return status;
}
}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "make") == 0) return Make(argv[2]);
    if (argc == 4 && std::strcmp(argv[1], "export") == 0) return Export(argv[2], argv[3]);
    std::fprintf(stderr, "usage: %s make NAME.SIG | export NAME.SIG OUT.csv\n", argv[0]);
    return 2;
}
