// A whole spectral file computed from the records of a recording.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>
#include <vector>

#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "sigfile/SIGFILE.h"
#include "records/SigRec.h"
#include "spectral/CsaCompute.h"
#include "spectral/Csafile.h"
#include "spectral/Fft.h"
#include "spectral/Specrec.h"
#include "support/TestSupport.h"

namespace {

const double kPi = 4.0 * std::atan(1.0);
const CSDateTime kStart(2026, 2, 1, 23, 0, 0);

struct Recording {
    CPhysicalMontage pm{"Head", 0};
    CRecordingMontage* rec = nullptr;
    // Sine frequency of each channel, and the recording pauses 30 s after
    // record 19.
    const double tone[3] = {10.0, 5.0, 20.0};
    int failAt = -1;

    Recording() {
        for (const char* e : {"Fp1", "F3", "C3", "A1"}) pm.AddElectrode(e, CPhysicalMontage::GetStdElecPosition(e));
        rec = pm.CreateRecordingMontage();
        rec->SetSamplesRecord(256);
        rec->SetBaseFrequency(256);
        rec->AddChannel("Fp1", "A1", 1, 1, 256, 0, 0, "");
        rec->AddChannel("F3", "A1", 1, 1, 128, 0, 0, "");
        rec->AddChannel("C3", "A1", 1, 1, 256, 0, 0, "");
    }

    int Read(LONG r, CFmtSigRec& out) const {
        if (r == failAt) {
            SetLastError(ERROR_READ_FAULT);
            return 0;
        }
        const unsigned short counts[3] = {256, 128, 256};
        out.Create(3, counts);
        out.SetTime(kStart + CSTimeSpan(r + (r >= 20 ? 30.0 : 0.0)));
        for (unsigned c = 0; c < 3; ++c) {
            const double f = rec->GetFrequency(c);
            for (unsigned s = 0; s < counts[c]; ++s)
                out.SetAt(c, s, static_cast<float>(std::sin(2 * kPi * tone[c] * (r + s / f))));
        }
        return 1;
    }
};

std::vector<char> ReadAll(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

TEST(ComputeSpectralFile, AveragesOverlappingEpochsIntoOneRecordPerAnalysisEpoch) {
    testsupport::TempDir dir;
    Recording recording;
    CSpectralSettings settings;
    settings.fftEpochLen = 2.0f;
    settings.preProcessing = CFftFactory::preMean;
    settings.tapering = CFftFactory::taperHanning;
    settings.pcOverlap = 50;
    settings.csaEpochLen = 4.0f;
    settings.restartInterval = 4.0f;
    const WORD channels[3] = {0, 1, 2};
    const std::string out = dir / "night.SPC";
    auto reader = [&](LONG r, CFmtSigRec& rec) { return recording.Read(r, rec); };
    long error = -1;
    ASSERT_EQ(ComputeSpectralFile(out.c_str(), recording.rec, 3, channels, settings, 40, reader, "night.SIG", "X1",
                                  nullptr, nullptr, &error),
              1)
        << error;
    // Nothing but the pair is left in the folder.
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"night.SPC", "night.SPH"}));

    CCsaFile* file = CCsaFile::Open(out.c_str(), 1);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->GetNumRecords(), 10u);  // 40 s in 4 s epochs
    EXPECT_EQ(file->GetPcOverlap(), 50);
    EXPECT_FLOAT_EQ(file->GetCsaEpochLength(), 4.0f);
    // Record 5 starts at 20 s, in the first record after the pause.
    EXPECT_EQ(file->GetNumDiscontinuities(), 1);
    EXPECT_TRUE(file->IsDiscontinuityAt(5));
    CSpecRec spec;
    for (DWORD k = 0; k < 10; ++k) {
        file->MoveTo(k);
        ASSERT_EQ(file->Read(spec), 1);
        EXPECT_EQ(spec.GetTime(), kStart + CSTimeSpan(4.0 * k + (k >= 5 ? 30.0 : 0.0))) << k;
        // A sine of amplitude 1 on a bin: power 1/4 there, little elsewhere.
        for (unsigned c = 0; c < 3; ++c) {
            const unsigned bin = static_cast<unsigned>(recording.tone[c] * 2);
            EXPECT_NEAR(spec.GetAt(c, bin), 0.25, 1e-4) << k << " " << c;
            EXPECT_LT(spec.GetAt(c, bin + 3), 1e-6) << k << " " << c;
        }
    }
    file->Close();
}

// Two computations of the same target at once, both halfway through when
// either goes on: each builds its own temporary pair, both succeed, and the
// target is one whole pair.
TEST(ComputeSpectralFile, TwoComputationsOfOneTargetDoNotMeet) {
    testsupport::TempDir dir;
    Recording recording;
    CSpectralSettings settings;
    settings.fftEpochLen = 1.0f;
    settings.csaEpochLen = 2.0f;
    settings.restartInterval = 2.0f;
    const WORD channels[1] = {0};
    const std::string out = dir / "same.SPC";
    std::mutex mutex;
    std::condition_variable arrived;
    int halfway = 0;
    auto reader = [&](LONG r, CFmtSigRec& rec) {
        if (r == 10) {
            std::unique_lock<std::mutex> lock(mutex);
            ++halfway;
            arrived.notify_all();
            arrived.wait_for(lock, std::chrono::seconds(5), [&] { return halfway >= 2; });
        }
        return recording.Read(r, rec);
    };
    long errors[2] = {-1, -1};
    int results[2] = {0, 0};
    std::vector<std::thread> runs;
    for (int i = 0; i < 2; ++i)
        runs.emplace_back([&, i] {
            results[i] = ComputeSpectralFile(out.c_str(), recording.rec, 1, channels, settings, 20, reader, "", "",
                                             nullptr, nullptr, &errors[i]);
        });
    for (auto& t : runs) t.join();
    EXPECT_EQ(halfway, 2);
    EXPECT_EQ(results[0], 1) << errors[0];
    EXPECT_EQ(results[1], 1) << errors[1];
    CCsaFile* file = CCsaFile::Open(out.c_str(), 1);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->GetNumRecords(), 10u);
    file->Close();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path), std::filesystem::directory_iterator()),
              2);
}

TEST(ComputeSpectralFile, FailuresLeaveAnExistingPairAsItWas) {
    testsupport::TempDir dir;
    Recording recording;
    const WORD channels[1] = {1};
    const std::string out = dir / "night.SPC";
    {
        std::ofstream(out) << "old data";
        std::ofstream(dir / "night.SPH") << "old header";
    }
    auto reader = [&](LONG r, CFmtSigRec& rec) { return recording.Read(r, rec); };
    CSpectralSettings settings;
    long error = 0;

    recording.failAt = 30;
    EXPECT_EQ(ComputeSpectralFile(out.c_str(), recording.rec, 1, channels, settings, 40, reader, "", "", nullptr,
                                  nullptr, &error),
              0);
    EXPECT_EQ(error, ERROR_READ_FAULT);

    settings.csaEpochLen = 1.0f;  // shorter than the FFT epoch
    EXPECT_EQ(ComputeSpectralFile(out.c_str(), recording.rec, 1, channels, settings, 40, reader, "", "", nullptr,
                                  nullptr, &error),
              0);
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    settings.csaEpochLen = 0.0f;
    settings.fftEpochLen = 1.5f;  // 192 points at 128 Hz
    EXPECT_EQ(ComputeSpectralFile(out.c_str(), recording.rec, 1, channels, settings, 40, reader, "", "", nullptr,
                                  nullptr, &error),
              0);
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    settings.fftEpochLen = 2.0f;
    EXPECT_EQ(ComputeSpectralFile(out.c_str(), recording.rec, 1, channels, settings, 1, reader, "", "", nullptr,
                                  nullptr, &error),
              0);  // one second of recording for a 2 s epoch

    const std::vector<char> oldData = {'o', 'l', 'd', ' ', 'd', 'a', 't', 'a'};
    EXPECT_EQ(ReadAll(out), oldData);
    // Nothing but the pair is left in the folder.
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"night.SPC", "night.SPH"}));
    EXPECT_FALSE(VhlCheckFileExist(dir / "night.~tmp.SPH"));

    // Cancelled through the progress object.
    class Cancel : public CProgressInfo {
    public:
        bool IsCancelled() const override { return GetPos() >= 3; }
    } cancel;
    recording.failAt = -1;
    EXPECT_EQ(ComputeSpectralFile(out.c_str(), recording.rec, 1, channels, settings, 40, reader, "", "", nullptr,
                                  &cancel, &error),
              0);
    EXPECT_EQ(error, ERROR_INVALID_FUNCTION);
    EXPECT_EQ(ReadAll(out), oldData);

    // And a success replaces the pair.
    EXPECT_EQ(ComputeSpectralFile(out.c_str(), recording.rec, 1, channels, settings, 40, reader, "", "", nullptr,
                                  nullptr, &error),
              1);
    EXPECT_EQ(VhlGetFileSize(out), 20u * (8u + 4u * 128u));
}
