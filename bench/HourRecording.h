// The recording the export, import and memory benchmarks work on: one hour
// of 64 channels at 256 Hz (records of 64 samples, 0.25 s), 118 MB of data.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "records/SigRec.h"

namespace bench {

constexpr unsigned kHourChannels = 64;
constexpr unsigned kHourSamples = 64;  // per record at 256 Hz
constexpr long kHourRecords = 3600 * 4;
inline const CSDateTime kHourStart(2026, 1, 1, 22, 0, 0);

// Writes the recording; `extra` (when given) adds to it before it is closed.
// False with a line on standard error on failure.
inline bool WriteHourRecording(const std::string& name, const std::function<bool(CSigFile&)>& extra = {}) {
    CFileHeader header("bench", "", 0, kHourStart);
    CPatientInfo patient;
    CPhysicalMontage montage("bench", 0);
    montage.AddElectrode("REF", CPolar3D());
    CRecordingMontage* rec = montage.CreateRecordingMontage();
    rec->SetBaseFrequency(256);
    for (unsigned c = 0; c < kHourChannels; ++c) {
        const std::string e = "E" + std::to_string(c + 1);
        montage.AddElectrode(e.c_str(), CPolar3D());
        rec->AddChannel(e.c_str(), "REF", 1, 1, 256, 0, 0, "");
    }
    CCalibration calibration(kHourChannels, -32768, -0.0032768f, 32767, 0.0032767f, 256.0);
    for (unsigned c = 0; c < kHourChannels; ++c) calibration.SetCalibFromGain(c, 1.0f + c * 0.01f, 0.0f, 1);

    long error = 0;
    CSigFilePtr file(
        CSigFile::Create(name.c_str(), &header, &patient, &montage, &calibration, SIGFILE_FORMAT_NATIVE, &error, 1));
    if (!file) {
        std::fprintf(stderr, "cannot create %s: error %ld\n", name.c_str(), error);
        return false;
    }
    std::unique_ptr<CRawSigRec> raw(file->CreateCompatibleRawSigRec());
    for (long r = 0; r < kHourRecords; ++r) {
        short* p = raw->GetData();
        for (unsigned i = 0; i < kHourChannels * kHourSamples; ++i) p[i] = static_cast<short>((r * 31 + i * 7) & 0x7FFF);
        raw->SetTime(kHourStart + CSTimeSpan(r * 0.25));
        file->MoveTo(r);
        if (!file->Write(raw.get())) {
            std::fprintf(stderr, "cannot write record %ld of %s\n", r, name.c_str());
            return false;
        }
    }
    if (extra && !extra(*file)) return false;
    CSigFile* done = file.release();
    const int closed = done->Close();
    delete done;
    if (!closed) std::fprintf(stderr, "cannot close %s\n", name.c_str());
    return closed != 0;
}

}  // namespace bench
