// sigfile spectrum: spectral files computed from a recording with known
// sines, the channels an epoch allows, failures that leave an existing pair
// alone; and the description of spectral files.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Commands.h"
#include "montage/mtgs.h"
#include "spectral/Csafile.h"
#include "spectral/Specrec.h"
#include "support/SmallRecording.h"
#include "support/TestSupport.h"

using testsupport::RunTool;
using testsupport::TempDir;

namespace {

const CSDateTime kStart(2026, 1, 31, 22, 5, 0);
constexpr double kPi = 3.14159265358979323846;

using CsaPtr = CCsaFilePtr;

// Sum of sines (frequency in Hz, amplitude in AD units) of one channel.
using Sines = std::vector<std::pair<double, double>>;

// Writes a native recording of 0.25 s records (64 samples at the highest
// frequency): channel c holds sines[c], sampled at frequencies[c].  The
// first reformatted montage "bipolar" has the channel "Fp1-Fp2".  From
// record pauseAt on, the record times are a minute later (a paused recording).
void MakeRecording(const std::string& name, const std::vector<unsigned>& frequencies, const std::vector<Sines>& sines,
                   long records, long pauseAt = -1) {
    auto d = testsupport::DescribeRecording(frequencies);
    CReformatedMontage* ref = d.montage->GetRecordingMontageAt(0)->CreateReformatedMontage();
    ASSERT_TRUE(ref->SetMontageName("bipolar"));
    ASSERT_TRUE(ref->AddChannel("Fp1-Fp2", "FP1-FP2", 0));
    long error = 0;
    CSigFilePtr f(testsupport::CreateRecording(name, d, &error));
    ASSERT_TRUE(f) << error;
    std::unique_ptr<CRawSigRec> rec(f->CreateCompatibleRawSigRec());
    for (long r = 0; r < records; ++r) {
        for (unsigned c = 0; c < rec->GetNumChannels(); ++c) {
            const unsigned n = rec->GetNumSamples(c);
            for (unsigned s = 0; s < n; ++s) {
                const double t = (r * n + s) / static_cast<double>(frequencies[c]);
                double v = 0.0;
                for (const auto& [hz, amplitude] : sines[c]) v += amplitude * std::sin(2.0 * kPi * hz * t);
                rec->SetAt(c, s, static_cast<short>(std::lround(v)));
            }
        }
        rec->SetTime(kStart + CSTimeSpan(r * 0.25 + (pauseAt >= 0 && r >= pauseAt ? 60.0 : 0.0)));
        f->MoveTo(r);
        ASSERT_TRUE(f->Write(rec.get()));
    }
    ASSERT_TRUE(f->Flush());
}

// Index of the largest value of channel c.
unsigned PeakBin(const CSpecRec& rec, unsigned c) {
    unsigned best = 0;
    for (unsigned k = 1; k < rec.GetNumFreq(c); ++k)
        if (rec.GetAt(c, k) > rec.GetAt(c, best)) best = k;
    return best;
}

std::vector<char> FileBytes(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), {});
}

class SpectrumCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Fp1: 10 Hz and 20 Hz; Fp2: 20 Hz; F3 (128 Hz): 6 Hz; 40 records = 10 s.
        MakeRecording(sig, {256, 256, 128}, {{{10, 6000}, {20, 6000}}, {{20, 6000}}, {{6, 6000}}}, 40);
    }
    std::string Args(const std::string& rest) const { return sig + " " + spc + " " + rest; }

    TempDir dir;
    std::string sig = dir / "night.SIG";
    std::string spc = dir / "night.SPC";
};

}  // namespace

TEST_F(SpectrumCommandTest, OneRecordPerEpochWithThePeakOfEachChannelsSine) {
    auto r = RunTool("spectrum " + Args("--epoch 2 --taper hamming --detrend linear"));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, "");  // quiet on success, no bar when not on a terminal

    CsaPtr f(CCsaFile::Open(spc.c_str(), 1));
    ASSERT_TRUE(f);
    EXPECT_EQ(f->GetNumRecords(), 5u);
    EXPECT_EQ(f->GetFftTapering(), 3);
    EXPECT_EQ(f->GetFftPreprocessing(), 2);
    EXPECT_FLOAT_EQ(f->GetFftEpochLength(), 2.0f);
    EXPECT_FLOAT_EQ(f->GetCsaRestartInterval(), 2.0f);
    EXPECT_EQ(f->GetSigFileName(), sig);
    EXPECT_EQ(f->GetSigFileId(), kStart.ToIso());
    EXPECT_EQ(f->GetPatientInfo()->GetLastName(), "Martin");
    ASSERT_EQ(f->GetNumChannels(), 3u);
    EXPECT_EQ(f->GetChannelLabel(0), "Fp1-REF");
    EXPECT_EQ(f->GetChannelNumFreq(0), 256u);
    EXPECT_EQ(f->GetChannelNumFreq(2), 128u);
    EXPECT_EQ(f->GetNumDiscontinuities(), 0);

    std::unique_ptr<CSpecRec> rec(f->CreateCompatibleSpecRec());
    for (DWORD k = 0; k < 5; ++k) {
        ASSERT_TRUE(f->MoveTo(k));
        ASSERT_TRUE(f->Read(*rec));
        EXPECT_NEAR(rec->GetTime().GetValue(), (kStart + CSTimeSpan(2.0 * k)).GetValue(), 1e-8) << k;
        // 0.5 Hz bins: 10 Hz and 20 Hz of the same strength, 6 Hz at 128 Hz.
        EXPECT_TRUE(PeakBin(*rec, 0) == 20u || PeakBin(*rec, 0) == 40u) << k;
        EXPECT_NEAR(rec->GetAt(0, 20) / rec->GetAt(0, 40), 1.0, 0.2);
        EXPECT_EQ(PeakBin(*rec, 1), 40u);
        EXPECT_LT(rec->GetAt(1, 20), rec->GetAt(1, 40) * 1e-3);
        EXPECT_EQ(PeakBin(*rec, 2), 12u);
    }
}

TEST_F(SpectrumCommandTest, ReformattedMontageIsComputedThroughItsFormulas) {
    auto r = RunTool("spectrum " + Args("--epoch 1 --montage BIPOLAR"));
    ASSERT_EQ(r.status, 0) << r.out;
    CsaPtr f(CCsaFile::Open(spc.c_str(), 1));
    ASSERT_TRUE(f);
    EXPECT_EQ(f->GetNumRecords(), 10u);
    ASSERT_EQ(f->GetNumChannels(), 1u);
    EXPECT_EQ(f->GetChannelLabel(0), "Fp1-Fp2");
    EXPECT_STREQ(f->GetLogicalMontage()->GetMontageName(), "bipolar");
    std::unique_ptr<CSpecRec> rec(f->CreateCompatibleSpecRec());
    for (DWORD k = 0; k < 10; ++k) {
        ASSERT_TRUE(f->MoveTo(k));
        ASSERT_TRUE(f->Read(*rec));
        EXPECT_NEAR(rec->GetTime().GetValue(), (kStart + CSTimeSpan(1.0 * k)).GetValue(), 1e-8) << k;
        // 1 Hz bins: the 20 Hz common to both electrodes cancels out.
        EXPECT_EQ(PeakBin(*rec, 0), 10u) << k;
        EXPECT_LT(rec->GetAt(0, 20), rec->GetAt(0, 10) * 1e-3) << k;
    }
    r = RunTool("spectrum " + Args("--epoch 1 --montage nosuch"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Montage inconnu : nosuch"), std::string::npos) << r.out;
}

TEST_F(SpectrumCommandTest, ChannelsTheEpochDoesNotFitAreLeftOutOrRefused) {
    // 1/64 s: 4 points at 256 Hz, the fewest that can be analysed, and 2 at
    // 128 Hz: F3 is left out with a note.
    auto r = RunTool("spectrum " + Args("--epoch 0.015625"));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("F3-REF (128 Hz)"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("Fp1-REF"), std::string::npos) << r.out;
    {
        CsaPtr f(CCsaFile::Open(spc.c_str(), 1));
        ASSERT_TRUE(f);
        EXPECT_EQ(f->GetNumChannels(), 2u);
        EXPECT_EQ(f->GetNumRecords(), 640u);
    }
    // 1.5 s: 384 and 192 points, nothing can be analysed.
    r = RunTool("spectrum " + Args("--epoch 1.5"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Aucun canal"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Fp1-REF (256 Hz), Fp2-REF (256 Hz), F3-REF (128 Hz)"), std::string::npos) << r.out;
    // 16 s fits the channels but not the 10 s recording.
    r = RunTool("spectrum " + Args("--epoch 16"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("plus court"), std::string::npos) << r.out;
}

TEST_F(SpectrumCommandTest, APauseInTheRecordingBreaksTheSpectralSequence) {
    const std::string paused = dir / "paused.SIG";
    MakeRecording(paused, {256, 256}, {{{10, 6000}}, {}}, 40, 24);
    ASSERT_EQ(RunTool("spectrum " + paused + " " + spc + " --epoch 2").status, 0);
    CsaPtr f(CCsaFile::Open(spc.c_str(), 1));
    ASSERT_TRUE(f);
    ASSERT_EQ(f->GetNumRecords(), 5u);
    ASSERT_EQ(f->GetNumDiscontinuities(), 1);
    EXPECT_EQ(f->GetDiscontinuityAt(0), 3u);
    std::unique_ptr<CSpecRec> rec(f->CreateCompatibleSpecRec());
    ASSERT_TRUE(f->MoveTo(3));
    ASSERT_TRUE(f->Read(*rec));
    EXPECT_NEAR(rec->GetTime().GetValue(), (kStart + CSTimeSpan(66.0)).GetValue(), 1e-8);
}

TEST_F(SpectrumCommandTest, BadUsageExitsWithTwo) {
    for (const char* bad : {"--epoch 0", "--epoch -2", "--epoch abc", "--epoch nan", "--epoch 2 --taper square",
                            "--epoch 2 --detrend cubic", ""}) {
        auto r = RunTool("spectrum " + Args(bad));
        EXPECT_EQ(r.status, 2) << bad << ": " << r.out;
        EXPECT_NE(r.out.find("usage: sigfile spectrum"), std::string::npos) << r.out;
    }
    EXPECT_EQ(RunTool("spectrum " + sig + " " + (dir / "night.csv") + " --epoch 2").status, 2);
    EXPECT_EQ(RunTool("spectrum " + sig + " --epoch 2").status, 2);
}

TEST_F(SpectrumCommandTest, FailuresLeaveAnExistingPairAsItWas) {
    const std::string sph = dir / "night.SPH";
    std::ofstream(spc) << "previous data";
    std::ofstream(sph) << "previous header";
    for (const std::string& args : {Args("--epoch 1.5"), Args("--epoch 16"), Args("--epoch 2 --montage nosuch"),
                                    (dir / "missing.SIG") + " " + spc + " --epoch 2"}) {
        auto r = RunTool("spectrum " + args);
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_FALSE(r.out.empty());
        const std::vector<char> data = FileBytes(spc), header = FileBytes(sph);
        EXPECT_EQ(std::string(data.begin(), data.end()), "previous data") << args;
        EXPECT_EQ(std::string(header.begin(), header.end()), "previous header") << args;
    }
    EXPECT_FALSE(std::ifstream(dir / "night.~tmp.SPC").good());
    // A success replaces the pair.
    ASSERT_EQ(RunTool("spectrum " + Args("--epoch 2")).status, 0);
    CsaPtr f(CCsaFile::Open(spc.c_str(), 1));
    ASSERT_TRUE(f);
    EXPECT_EQ(f->GetNumRecords(), 5u);
}

TEST_F(SpectrumCommandTest, SpectralInfoDescribesThePairAsJsonAndText) {
    ASSERT_EQ(RunTool("spectrum " + Args("--epoch 2 --taper blackman --detrend mean")).status, 0);
    {
        CsaPtr f(CCsaFile::Open(spc.c_str(), 0));
        ASSERT_TRUE(f);
        ASSERT_TRUE(f->AddAnnotationAt(3, "réveil"));
    }
    ::testing::internal::CaptureStdout();
    int status = sigfile_tool::PrintSpectralInfo(dir / "night.SPH", true);
    std::fflush(stdout);
    const std::string json = ::testing::internal::GetCapturedStdout();
    ASSERT_EQ(status, 0);
    auto j = nlohmann::json::parse(json);
    EXPECT_EQ(j["file"], dir / "night.SPH");
    EXPECT_EQ(j["source"]["file"], sig);
    EXPECT_EQ(j["source"]["id"], kStart.ToIso());
    EXPECT_EQ(j["patient"]["last_name"], "Martin");
    EXPECT_EQ(j["patient"]["first_name"], "Hélène");
    EXPECT_EQ(j["fft"]["epoch_s"], 2.0);
    EXPECT_EQ(j["fft"]["taper"], 4);
    EXPECT_EQ(j["fft"]["taper_name"], "blackman");
    EXPECT_EQ(j["fft"]["detrend_name"], "mean");
    EXPECT_EQ(j["analysis_epoch_s"], 2.0);
    EXPECT_EQ(j["resolution_hz"], 0.5);
    EXPECT_EQ(j["max_frequency_hz"], 128.0);
    EXPECT_EQ(j["records"], 5);
    EXPECT_EQ(j["record_size"], 8 + 4 * (256 + 256 + 128));
    EXPECT_EQ(j["first_record_time"], kStart.ToIso());
    EXPECT_EQ(j["last_record_time"], (kStart + CSTimeSpan(8.0)).ToIso());
    ASSERT_EQ(j["channels"].size(), 3u);
    EXPECT_EQ(j["channels"][2]["label"], "F3-REF");
    EXPECT_EQ(j["channels"][2]["source_frequency"], 128);
    EXPECT_EQ(j["channels"][2]["frequencies"], 128);
    EXPECT_EQ(j["channels"][2]["max_frequency_hz"], 64.0);
    EXPECT_EQ(j["discontinuities"], nlohmann::json::array());
    ASSERT_EQ(j["annotations"].size(), 1u);
    EXPECT_EQ(j["annotations"][0]["record"], 3);
    EXPECT_EQ(j["annotations"][0]["text"], "réveil");

    ::testing::internal::CaptureStdout();
    status = sigfile_tool::PrintSpectralInfo(spc, false);
    std::fflush(stdout);
    const std::string text = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 0);
    EXPECT_NE(text.find("fft:         epoch 2 s, detrend mean, taper blackman, overlap 0%"), std::string::npos)
        << text;
    EXPECT_NE(text.find("records:     5 of 2568 bytes"), std::string::npos) << text;
    EXPECT_NE(text.find("F3-REF"), std::string::npos) << text;
    EXPECT_NE(text.find("       3  réveil"), std::string::npos) << text;

    testsupport::MessageRecorder messages;
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(sigfile_tool::PrintSpectralInfo(dir / "none.SPC", false), 1);
    std::ofstream(dir / "bad.SPC") << "";
    std::ofstream(dir / "bad.SPH") << "xx";
    EXPECT_EQ(sigfile_tool::PrintSpectralInfo(dir / "bad.SPC", true), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(messages.texts.size(), 2u);
}
