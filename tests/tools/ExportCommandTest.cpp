// sigfile export and sigfile events: CSV of recorded and computed channels,
// the status items as JSON, the refusals and the untouched outputs.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "ToolFixture.h"

using testsupport::RunTool;
using tooltest::DemoFile;

namespace {

// Channel indexes of the demo's recording montage.
enum { kFp1 = 0, kFp2 = 1, kF7 = 2, kC3 = 8, kO1 = 17, kLoc = 19 };

std::vector<std::vector<std::string>> ExportRows(const std::string& args, std::string* header = nullptr) {
    testsupport::TempDir dir;
    const std::string out = dir / "out.csv";
    auto r = RunTool("export " + DemoFile() + " " + out + " " + args);
    EXPECT_EQ(r.status, 0) << r.out;
    auto lines = tooltest::Lines(tooltest::ReadText(out));
    std::vector<std::vector<std::string>> rows;
    if (lines.empty()) return rows;
    if (header) *header = lines[0];
    for (size_t i = 1; i < lines.size(); ++i) rows.push_back(tooltest::Fields(lines[i]));
    return rows;
}

}  // namespace

TEST(ExportCommandTest, RecordedChannelsMatchTheLibrarysRead) {
    std::string header;
    auto rows = ExportRows("--channel Fp1-REF --channel c3-ref --records 2:4", &header);
    EXPECT_EQ(header, "time_s,Fp1-REF,C3-REF");
    ASSERT_EQ(rows.size(), 128u);
    auto file = tooltest::OpenReadOnly(DemoFile());
    ASSERT_TRUE(file);
    for (long r = 2; r < 4; ++r) {
        auto rec = tooltest::ReadRecord(*file, r);
        for (unsigned s = 0; s < 64; ++s) {
            const auto& row = rows[static_cast<size_t>((r - 2) * 64 + s)];
            ASSERT_EQ(row.size(), 3u);
            char time[32];
            std::snprintf(time, sizeof time, "%.6f", r * 0.25 + s / 256.0);
            EXPECT_EQ(row[0], time);
            // %.9g gives back the float exactly.
            EXPECT_EQ(std::stof(row[1]), rec->GetAt(kFp1, s));
            EXPECT_EQ(std::stof(row[2]), rec->GetAt(kC3, s));
        }
    }
}

TEST(ExportCommandTest, VoltsAndLowerRates) {
    auto file = tooltest::OpenReadOnly(DemoFile());
    ASSERT_TRUE(file);
    auto volts = ExportRows("--channel O1-REF --records 10:11 --volts");
    ASSERT_EQ(volts.size(), 64u);
    auto rec = tooltest::ReadRecord(*file, 10, true);
    auto world = tooltest::ReadRecord(*file, 10);
    for (unsigned s = 0; s < 64; ++s) {
        EXPECT_EQ(std::stof(volts[s][1]), rec->GetAt(kO1, s));
        EXPECT_NEAR(rec->GetAt(kO1, s) * 1e6, world->GetAt(kO1, s), 0.01);  // µV
    }
    // The eye channels at 128 Hz: 32 lines per record, 1/128 s apart.
    auto eyes = ExportRows("--channel Loc --channel Roc --records 0:2");
    ASSERT_EQ(eyes.size(), 64u);
    EXPECT_EQ(eyes[33][0], "0.257812");
    auto first = tooltest::ReadRecord(*file, 1);
    EXPECT_EQ(std::stof(eyes[33][1]), first->GetAt(kLoc, 1));
}

TEST(ExportCommandTest, BipolarChannelIsTheDifferenceOfItsElectrodes) {
    std::string header;
    auto rows = ExportRows("--montage bipolar --records 40:43", &header);
    EXPECT_EQ(header.rfind("time_s,FP1-F7,F7-T3,", 0), 0u);
    EXPECT_EQ(tooltest::Fields(header).size(), 19u);
    ASSERT_EQ(rows.size(), 3u * 64u);
    EXPECT_EQ(rows[0][0], "10.000000");
    auto file = tooltest::OpenReadOnly(DemoFile());
    ASSERT_TRUE(file);
    for (long r = 40; r < 43; ++r) {
        auto rec = tooltest::ReadRecord(*file, r);
        for (unsigned s = 0; s < 64; ++s) {
            const auto& row = rows[static_cast<size_t>((r - 40) * 64 + s)];
            const float expected = rec->GetAt(kFp1, s) - rec->GetAt(kF7, s);
            EXPECT_EQ(std::stof(row[1]), expected) << "record " << r << " sample " << s;
        }
    }
}

TEST(ExportCommandTest, AverageReferenceSubtractsTheMeanOfTheSites) {
    auto rows = ExportRows("--montage Average --channel FP2-AVG --records 7:8");
    ASSERT_EQ(rows.size(), 64u);
    auto file = tooltest::OpenReadOnly(DemoFile());
    ASSERT_TRUE(file);
    auto rec = tooltest::ReadRecord(*file, 7);
    for (unsigned s = 0; s < 64; ++s) {
        double sum = 0.0;
        for (unsigned site = 0; site < 19; ++site) sum += rec->GetAt(site, s);
        EXPECT_NEAR(std::stod(rows[s][1]), rec->GetAt(kFp2, s) - sum / 19.0, 1e-3);
    }
}

TEST(ExportCommandTest, MixedFrequenciesAreRefusedWithTheFrequencies) {
    testsupport::TempDir dir;
    auto r = RunTool("export " + DemoFile() + " " + (dir / "all.csv"));
    EXPECT_EQ(r.status, 1);
    for (const char* f : {"256 Hz", "128 Hz", "32 Hz", "4 Hz"}) EXPECT_NE(r.out.find(f), std::string::npos) << f;
    r = RunTool("export " + DemoFile() + " " + (dir / "two.csv") + " --channel Fp1-REF --channel SpO2");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("256 Hz, 4 Hz"), std::string::npos) << r.out;
    EXPECT_EQ(tooltest::Lines(r.out).size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(dir / "all.csv"));
    EXPECT_FALSE(std::filesystem::exists(dir / "two.csv"));
}

TEST(ExportCommandTest, AnExistingOutputIsUntouchedWhenExportFails) {
    testsupport::TempDir dir;
    const std::string out = dir / "keep.csv";
    std::ofstream(out) << "keep me\n";
    const std::string src = DemoFile();
    for (const std::string& args : {src + " " + out,                              // mixed frequencies
                                    src + " " + out + " --channel Nope",          // unknown channel
                                    src + " " + out + " --montage Laplacian",     // unknown montage
                                    src + " " + out + " --records 5:99999",       // beyond the end
                                    (dir / "missing.SIG") + " " + out}) {         // no such recording
        auto r = RunTool("export " + args);
        EXPECT_EQ(r.status, 1) << args << "\n" << r.out;
        EXPECT_FALSE(r.out.empty());
    }
    EXPECT_EQ(tooltest::ReadText(out), "keep me\n");
    int files = 0;
    for (auto& e : std::filesystem::directory_iterator(dir.path)) files += e.is_regular_file();
    EXPECT_EQ(files, 1);  // no temporary file left behind
    // A successful export replaces it.
    EXPECT_EQ(RunTool("export " + src + " " + out + " --channel Chin --records 0:1").status, 0);
    EXPECT_EQ(tooltest::Lines(tooltest::ReadText(out)).size(), 65u);
}

TEST(ExportCommandTest, TheRecordingsOwnFilesAreNeverTheOutput) {
    testsupport::TempDir dir;
    const std::string sig = dir / "copy.SIG";
    ASSERT_EQ(RunTool("copy " + DemoFile() + " " + sig).status, 0);
    const std::string data = tooltest::ReadText(sig), status = tooltest::ReadText(dir / "copy.STS");
    for (const std::string& out : {sig, dir / "copy.STS", dir / "copy.STS.csv"}) {
        auto r = RunTool("export " + sig + " " + out + " --channel Chin --records 0:1");
        if (out.ends_with(".csv")) {  // an ordinary name beside the recording is fine
            EXPECT_EQ(r.status, 0) << r.out;
            continue;
        }
        EXPECT_EQ(r.status, 1) << out << "\n" << r.out;
        EXPECT_NE(r.out.find("ne peut l'écraser"), std::string::npos) << r.out;
    }
    EXPECT_EQ(RunTool("export " + sig + " " + sig + " --records 0:1").status, 1);  // EDF-bound path too
    EXPECT_EQ(tooltest::ReadText(sig), data);
    EXPECT_EQ(tooltest::ReadText(dir / "copy.STS"), status);
}

TEST(ExportCommandTest, BadUsageExitsWithTwo) {
    const std::string src = DemoFile();
    EXPECT_EQ(RunTool("export").status, 2);
    EXPECT_EQ(RunTool("export " + src).status, 2);
    EXPECT_EQ(RunTool("export " + src + " /tmp/x.csv --records 3").status, 2);
    EXPECT_EQ(RunTool("export " + src + " /tmp/x.csv --records a:b").status, 2);
    EXPECT_EQ(RunTool("export " + src + " /tmp/x.csv --no-such-option").status, 2);
    auto r = RunTool("info");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.out.find("usage: sigfile info"), std::string::npos);
}

TEST(ExportCommandTest, EventsInFileOrderWithTheirProperties) {
    auto r = RunTool("events " + DemoFile() + " --json");
    ASSERT_EQ(r.status, 0);
    auto events = nlohmann::json::parse(r.out);
    auto file = tooltest::OpenReadOnly(DemoFile());
    ASSERT_TRUE(file);
    ASSERT_EQ(events.size(), file->GetNumStatusItems());
    std::set<std::string> stageNames;
    int spindles = 0;
    for (unsigned i = 0; i < events.size(); ++i) {
        const auto& e = events[i];
        const CStatusItem* item = file->GetStatusItemAt(i);
        EXPECT_EQ(e["name"], item->GetName());
        EXPECT_EQ(e["begin_sample"], item->GetBeginSample());
        EXPECT_EQ(e["end_sample"], item->GetEndSample());
        EXPECT_EQ(e["begin"], item->GetBeginTime().ToIso());
        EXPECT_EQ(e["group_id"], item->GetGroup()->GetGroupID());
        if (i > 0) {
            EXPECT_LE(events[i - 1]["begin_sample"].get<long>(), e["begin_sample"].get<long>());
        }
        if (e["group"] == "Sleep Stages") {
            stageNames.insert(e["name"].get<std::string>());
            EXPECT_EQ(e["end_sample"].get<long>() - e["begin_sample"].get<long>(), 30 * 256);
            EXPECT_TRUE(e["properties"].empty());
        }
        if (e["group"] == "Spindle Detection") {
            ++spindles;
            const double f = std::stod(e["properties"]["Frequency"].get<std::string>());
            EXPECT_TRUE(f >= 11.0 && f <= 15.0) << f;
            EXPECT_TRUE(e["properties"].contains("Amplitude"));
            EXPECT_EQ(e["channel"], "C3-REF");
        }
    }
    EXPECT_GT(spindles, 0);
    for (const char* stage : {"W", "N1", "N2", "N3", "REM"}) EXPECT_TRUE(stageNames.count(stage)) << stage;
    // The text form: one line per item.
    auto text = RunTool("events " + DemoFile());
    EXPECT_EQ(tooltest::Lines(text.out).size(), events.size());
    EXPECT_NE(text.out.find("Sleep Stages: W"), std::string::npos);
}
