// Builds the description of a small native recording for tests: n channels
// recorded against one reference at the given frequencies (base = highest).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"

namespace testsupport {

struct RecordingDescription {
    std::unique_ptr<CFileHeader> header;
    std::unique_ptr<CPatientInfo> patient;
    std::unique_ptr<CPhysicalMontage> montage;
    std::unique_ptr<CCalibration> calibration;
};

inline RecordingDescription DescribeRecording(const std::vector<unsigned>& frequencies) {
    static const char* const kSites[] = {"Fp1", "Fp2", "F3", "F4", "C3", "C4", "P3", "P4", "O1", "O2", "F7", "F8",
                                         "T3", "T4", "T5", "T6", "Fz", "Cz", "Pz"};
    RecordingDescription d;
    d.header = std::make_unique<CFileHeader>("test", "lab", 0, CSDateTime(2026, 1, 31, 22, 5, 0));
    d.patient = std::make_unique<CPatientInfo>();
    d.patient->SetLastName("Martin");
    d.patient->SetFirstName("Hélène");
    d.montage = std::make_unique<CPhysicalMontage>("phys", 0);
    d.montage->AddElectrode("REF", CPolar3D());
    for (size_t i = 0; i < frequencies.size(); ++i) d.montage->AddElectrode(kSites[i % 19], CPolar3D(1.0, 90, 0));
    CRecordingMontage* rec = d.montage->CreateRecordingMontage();
    unsigned base = 0;
    for (unsigned f : frequencies) base = std::max(base, f);
    rec->SetBaseFrequency(base);
    for (size_t i = 0; i < frequencies.size(); ++i)
        rec->AddChannel(kSites[i % 19], "REF", 1, 1, frequencies[i], 0, 0, "");
    d.calibration = std::make_unique<CCalibration>(static_cast<unsigned>(frequencies.size()), -32768, -0.0032768f,
                                                   32767, 0.0032767f, static_cast<double>(base));
    for (unsigned c = 0; c < frequencies.size(); ++c) d.calibration->SetCalibFromGain(c, 1.0f, 0.0f, 1);
    return d;
}

inline CSigFile* CreateRecording(const std::string& name, const RecordingDescription& d, long* error) {
    return CSigFile::Create(name.c_str(), d.header.get(), d.patient.get(), d.montage.get(), d.calibration.get(),
                            SIGFILE_FORMAT_NATIVE, error, 1);
}

// Deterministic content of record r: sample s of channel c.
inline short SampleOf(long r, unsigned c, unsigned s) {
    return static_cast<short>((r * 7919 + c * 131 + s * 17) % 65536 - 32768);
}

inline void FillRecord(CRawSigRec& rec, long r) {
    for (unsigned c = 0; c < rec.GetNumChannels(); ++c)
        for (unsigned s = 0; s < rec.GetNumSamples(c); ++s) rec.SetAt(c, s, SampleOf(r, c, s));
    rec.SetTime(CSDateTime(2026, 1, 31, 22, 5, 0) + CSTimeSpan(r * 0.25));
}

inline bool RecordMatches(const CRawSigRec& rec, long r) {
    for (unsigned c = 0; c < rec.GetNumChannels(); ++c)
        for (unsigned s = 0; s < rec.GetNumSamples(c); ++s)
            if (rec.GetAt(c, s) != SampleOf(r, c, s)) return false;
    return rec.GetTime() == CSDateTime(2026, 1, 31, 22, 5, 0) + CSTimeSpan(r * 0.25);
}

}  // namespace testsupport
