// Seed inputs of the fuzz targets, made by the library's own writers: every
// one must be accepted whole by its target.  With SIGFILE_WRITE_FUZZ_SEEDS
// set to a folder, the seeds are also written there as <target>/<name>
// (that is how the named seeds of fuzz/corpus/ are made:
//   SIGFILE_WRITE_FUZZ_SEEDS=fuzz/corpus build/default/tests/sigfile_tests
//       --gtest_filter='FuzzSeedsTest.*';
// the files named by a hash beside them are inputs fuzzing found that reach
// code the seeds do not, kept with libFuzzer's -merge=1).
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "FuzzEntries.h"
#include "formula/filters.h"
#include "formats/edf/EdfTestFiles.h"
#include "spectral/Csafile.h"
#include "spectral/Specrec.h"
#include "status/stsitm.h"
#include "support/NkFiles.h"
#include "support/SmallRecording.h"
#include "support/TestSupport.h"

using testsupport::TempDir;

namespace {

using Seeds = std::map<std::string, std::vector<uint8_t>>;

std::vector<uint8_t> ReadFileBytes(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Checks that the target accepts every seed, and writes them out when asked.
void CheckAndPublish(const std::string& target, const Seeds& seeds) {
    const fuzzentry::Target* t = fuzzentry::FindTarget(target);
    ASSERT_NE(t, nullptr);
    fuzzentry::LibraryGuard guard;
    for (const auto& [name, bytes] : seeds) EXPECT_EQ(t->entry(bytes.data(), bytes.size()), 1) << target << "/" << name;
    const char* out = std::getenv("SIGFILE_WRITE_FUZZ_SEEDS");
    if (!out || !*out) return;
    const std::filesystem::path folder = std::filesystem::path(out) / target;
    std::filesystem::create_directories(folder);
    for (const auto& [name, bytes] : seeds)
        std::ofstream(folder / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// A small native recording with a derived montage, status groups and items;
// returns its ".STS" and ".SIG" bytes.
std::pair<std::vector<uint8_t>, std::vector<uint8_t>> NativeRecording(const std::vector<unsigned>& freqs, long records,
                                                                      bool withStatus) {
    TempDir dir;
    const std::string name = dir / "seed.SIG";
    auto d = testsupport::DescribeRecording(freqs);
    if (withStatus) {
        CRecordingMontage* rec = d.montage->GetRecordingMontageAt(0);
        CReformatedMontage* bip = rec->CreateReformatedMontage();
        bip->SetMontageName("Bip");
        bip->AddChannel("Fp1-Fp2", "Fp1-Fp2", 0);
        bip->AddChannel("Mean", "(Fp1+Fp2)/2", 0);
    }
    long error = 0;
    CSigFile* file = testsupport::CreateRecording(name, d, &error);
    EXPECT_NE(file, nullptr) << error;
    if (!file) return {};
    std::unique_ptr<CRawSigRec> raw(file->CreateCompatibleRawSigRec());
    for (long r = 0; r < records; ++r) {
        testsupport::FillRecord(*raw, r);
        file->MoveTo(r);
        EXPECT_TRUE(file->Write(raw.get()));
    }
    if (withStatus) {
        auto* stretch = new CStatusGroup("SECTION", "Sections", "", 1, 0, 1, -1, "", 0, 0, 1, 0);
        auto* point = new CStatusGroup("BOOKMARK", "Signets", "", 3, 0, 0, -1, "", 0, 0, 1, 0);
        file->AddGroup(stretch);
        file->AddGroup(point);
        const CSDateTime start = file->GetFileHeader()->GetCreationDateTime();
        file->AddStatusItem(new CStatusItem(stretch, 0, start, 256, start + CSTimeSpan(1.0), "", "Veille", "", 0, 1));
        file->AddStatusItem(new CStatusItem(point, 100, start + CSTimeSpan(100 / 256.0), 100,
                                            start + CSTimeSpan(100 / 256.0), "Fp1", "Repère", "éveil", 0, 1));
    }
    EXPECT_TRUE(file->Close());
    delete file;
    return {ReadFileBytes(dir / "seed.STS"), ReadFileBytes(dir / "seed.SIG")};
}

}  // namespace

TEST(FuzzSeedsTest, StatusAndNativeRecordings) {
    const auto small = NativeRecording({256, 256, 128}, 3, true);
    const auto bare = NativeRecording({128}, 1, false);
    const auto empty = NativeRecording({256, 64}, 0, true);
    CheckAndPublish("status", {{"described.sts", small.first}, {"bare.sts", bare.first}, {"empty.sts", empty.first}});
    CheckAndPublish("sigfile", {{"described", fuzzentry::JoinPair(small.first, small.second)},
                                {"bare", fuzzentry::JoinPair(bare.first, bare.second)},
                                {"empty", fuzzentry::JoinPair(empty.first, empty.second)}});
}

TEST(FuzzSeedsTest, FilterDefinitions) {
    TempDir dir;
    const char* previous = std::getenv("SIGFILE_USER_DIR");
    const std::string saved = previous ? previous : "";
    setenv("SIGFILE_USER_DIR", dir.path.c_str(), 1);
    CFilterSet set;
    CFilter* eeg = set.AddNew();
    eeg->SetName("EEG");
    eeg->SetFilterType(CFilter::typeBandPass);
    eeg->Add(256, 1, "", CFilter::classIIR, 2, 0.3f, 70.0f);
    eeg->Add(128, 0, "C3", CFilter::classFIR, 15, 0.5f, 30.0f);
    CFilter* notch = set.AddNew();
    notch->SetName("Secteur");
    notch->SetFilterType(CFilter::typeBandStop);
    notch->Add(256, 0, "", CFilter::classIIR, 4, 48.0f, 52.0f);
    CFilter* low = set.AddNew();
    low->SetName("Passe-bas");
    low->SetFilterType(CFilter::typeLowPass);
    low->Add(64, 2, "", CFilter::classFIR, 9, 0.0f, 15.0f);
    const int written = set.Update();
    const std::vector<uint8_t> full = ReadFileBytes(dir / "default.flt");
    CFilterSet none;
    const int writtenEmpty = none.Update();
    const std::vector<uint8_t> empty = ReadFileBytes(dir / "default.flt");
    if (previous)
        setenv("SIGFILE_USER_DIR", saved.c_str(), 1);
    else
        unsetenv("SIGFILE_USER_DIR");
    ASSERT_EQ(written, 1);
    ASSERT_EQ(writtenEmpty, 1);
    CheckAndPublish("filters", {{"three.flt", full}, {"empty.flt", empty}});
}

TEST(FuzzSeedsTest, SpectralFiles) {
    CPhysicalMontage pm("Head", 0);
    for (const char* e : {"Fp1", "F3", "C3", "A1"}) pm.AddElectrode(e, CPhysicalMontage::GetStdElecPosition(e));
    CRecordingMontage* rec = pm.CreateRecordingMontage();
    rec->SetMontageName("Rec");
    rec->SetSamplesRecord(256);
    rec->SetBaseFrequency(256);
    rec->AddChannel("Fp1", "A1", 1, 1, 256, 0, 0, "");
    rec->AddChannel("F3", "A1", 1, 1, 128, 0, 0, "");
    rec->AddChannel("C3", "A1", 1, 1, 256, 0, 0, "");
    CReformatedMontage* bip = rec->CreateReformatedMontage();
    bip->SetMontageName("Bip");
    bip->AddChannel("Fp1-C3", "Fp1-C3", 0);

    Seeds seeds;
    auto make = [&](const std::string& seed, const CLogicalMontage* montage, unsigned n, const WORD* selected,
                    int records) {
        TempDir dir;
        const std::string spc = dir / "seed.SPC";
        CPatientInfo patient;
        patient.SetLastName("Dupont");
        CCsaFile* file = CCsaFile::Create(spc.c_str(), "night.SIG", "ID-42", &patient, 0.5f, 1, 2, 50, 2.0f, 2.0f,
                                          montage, n, selected);
        ASSERT_NE(file, nullptr);
        std::unique_ptr<CSpecRec> specRec(file->CreateCompatibleSpecRec());
        for (int r = 0; r < records; ++r) {
            specRec->SetTime(CSDateTime(2026, 2, 1, 23, 0, 0) + CSTimeSpan(r * (r == 2 ? 9.0 : 2.0)));
            for (unsigned c = 0; c < specRec->GetNumChannels(); ++c)
                for (unsigned f = 0; f < specRec->GetNumFreq(c); ++f) specRec->SetAt(c, f, r + c * 10.0f + f * 0.25f);
            ASSERT_EQ(file->Write(*specRec), 1);
        }
        if (records) {
            ASSERT_EQ(file->AddAnnotationAt(0, "Début"), 1);
        }
        ASSERT_EQ(file->Close(), 1);
        seeds[seed] = fuzzentry::JoinPair(ReadFileBytes(dir / "seed.SPH"), ReadFileBytes(spc));
    };
    const WORD two[2] = {2, 0};
    const WORD one[1] = {0};
    make("recorded", rec, 2, two, 3);
    make("derived", bip, 1, one, 1);
    make("no_records", rec, 1, one, 0);
    CheckAndPublish("spectral_header", seeds);
}

TEST(FuzzSeedsTest, Formulas) {
    auto text = [](const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); };
    CheckAndPublish("formula", {
        {"bipolar", text("A-B\n")},
        {"average", text("G MEAN=(A+B)/2\nO A_AVG=A-MEAN\nO B_AVG=B-MEAN\n")},
        {"functions", text("ABS(A)*CMP(B,0,10,1,0)\nSUM(A,2,2)\n")},
        {"filters", text("IIR(A,3,2,0.3,70)\nFIR(B,3,15,0.5,30)\n")},
        {"mixed_rates", text("C*2-1\nO X=-(C)\n")},
    });
}

TEST(FuzzSeedsTest, EdfFiles) {
    using edf::EdfFormat;
    Seeds seeds;
    for (EdfFormat format : {EdfFormat::Edf, EdfFormat::EdfPlus, EdfFormat::Bdf, EdfFormat::BdfPlus}) {
        const bool bdf = edf::IsBdf(format);
        edf::EdfHeader header;
        header.format = format;
        header.patient.code = "P-17";
        header.patient.name = "Jean Martin";
        header.recording.adminCode = "PSG 2041";
        header.start = CSDateTime(2031, 7, 14, 22, 5, 7);
        header.recordDuration = 0.5;
        const std::vector<edf::EdfSignal> signals = {
            edftest::Signal("C3-A2", 8, bdf ? -8388608 : -32768, bdf ? 8388607 : 32767, -3276.8, 3276.7, "uV"),
            edftest::Signal("SaO2", 1, 0, 1000, 0, 100, "%")};
        std::vector<edf::EdfAnnotation> annotations;
        if (edf::IsPlus(format)) annotations = {{0.25, 1.0, "Éveil"}, {1.0, std::nullopt, "Lumière éteinte"}};
        TempDir dir;
        const std::string name = dir / "seed.edf";
        std::string error;
        ASSERT_TRUE(edftest::WriteFile(name, header, signals, {0.0, 0.5, 1.0}, annotations, error)) << error;
        static const char* const kNames[] = {"plain.edf", "plus.edf", "plain.bdf", "plus.bdf"};
        seeds[kNames[static_cast<int>(format)]] = ReadFileBytes(name);
    }
    CheckAndPublish("edf", seeds);
}

TEST(FuzzSeedsTest, NihonKohdenFiles) {
    Seeds seeds;
    seeds["one-block.EEG"] = nktest::MakeEeg({{0, 10}}).b;
    seeds["two-blocks.EEG"] = nktest::MakeEeg({{0, 10}, {3, 5}}).b;
    CheckAndPublish("nihonkohden", seeds);
}
