// sigfile demo and sigfile info: the synthetic night and its description.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "ToolFixture.h"

using nlohmann::json;
using testsupport::RunTool;
using tooltest::DemoFile;

namespace {

const char* const kSites[] = {"Fp1", "Fp2", "F7", "F3", "Fz", "F4", "F8", "T3", "C3", "Cz",
                              "C4",  "T4",  "T5", "P3", "Pz", "P4", "T6", "O1", "O2"};

json InfoJson(const std::string& file) {
    auto r = RunTool("info " + file + " --json");
    EXPECT_EQ(r.status, 0) << r.out;
    return json::parse(r.out);
}

}  // namespace

TEST(DemoCommandTest, InfoJsonDescribesTheDemoNight) {
    json j = InfoJson(DemoFile());
    EXPECT_EQ(j["file"], DemoFile());
    EXPECT_EQ(j["format"], 1);
    EXPECT_EQ(j["read_only"], false);

    const json& h = j["header"];
    EXPECT_EQ(h["description"], "Polysomnographie de démonstration");
    EXPECT_EQ(h["created"], "2026-01-31T22:05:00.000");
    EXPECT_EQ(h["file_type"], 0);
    EXPECT_EQ(h["created_by"].get<std::string>().rfind("Tessaryn ", 0), 0u);
    EXPECT_EQ(h["last_modified_by"], h["created_by"]);

    const json& p = j["patient"];
    EXPECT_EQ(p["first_name"], "Hélène");
    EXPECT_EQ(p["last_name"], "Tremblay-Bérubé");
    EXPECT_EQ(p["id1"], "DEMO-0007");
    EXPECT_EQ(p["birth_date"], "1961-04-17T00:00:00.000");
    EXPECT_EQ(p["sex"], 2);
    EXPECT_EQ(p["city"], "Québec");
    EXPECT_EQ(p["height"], "1.64000000");
    ASSERT_EQ(p["user_fields"].size(), 5u);
    EXPECT_EQ(p["user_fields"][1], "Épworth 14/24");
    EXPECT_EQ(p["user_fields"][4], "");

    const json& c = j["calibration"];
    EXPECT_EQ(c["true_frequency"], 256.0);
    EXPECT_EQ(c["ad_min"], -32768);
    EXPECT_EQ(c["ad_max"], 32767);
    EXPECT_DOUBLE_EQ(c["volt_min"].get<double>(), -0.0032768);
    EXPECT_DOUBLE_EQ(c["volt_max"].get<double>(), 0.0032767);
    EXPECT_EQ(c["channels"], 27);

    // 10 minutes of 0.25-s records: 64 samples at 256 Hz.  A record holds
    // its 8-byte time and 19 x 64 + 2 x 32 + 64 + 64 + 3 x 8 + 1 samples.
    EXPECT_EQ(j["records"], 2400);
    EXPECT_EQ(j["samples_per_record"], 64);
    EXPECT_EQ(j["base_frequency"], 256);
    EXPECT_EQ(j["record_size"], 8 + 2 * (19 * 64 + 2 * 32 + 64 + 64 + 3 * 8 + 1));
    EXPECT_DOUBLE_EQ(j["duration_s"].get<double>(), 600.0);

    const json& electrodes = j["physical_montage"]["electrodes"];
    EXPECT_EQ(electrodes.size(), 28u);
    EXPECT_NE(std::find(electrodes.begin(), electrodes.end(), "REF"), electrodes.end());

    ASSERT_EQ(j["recording_montages"].size(), 1u);
    const json& rec = j["recording_montages"][0];
    EXPECT_EQ(rec["name"], "PSG");
    ASSERT_EQ(rec["channels"].size(), 27u);
    for (unsigned i = 0; i < 19; ++i) {
        const json& ch = rec["channels"][i];
        EXPECT_EQ(ch["label"], std::string(kSites[i]) + "-REF");
        EXPECT_EQ(ch["electrode1"], kSites[i]);
        EXPECT_EQ(ch["electrode2"], "REF");
        EXPECT_EQ(ch["frequency"], 256);
        EXPECT_EQ(ch["type"], 1);
        EXPECT_EQ(ch["unit"], 1);
        EXPECT_EQ(ch["samples_per_record"], 64);
    }
    std::map<std::string, std::pair<int, int>> others;  // label -> frequency, samples
    for (unsigned i = 19; i < 27; ++i)
        others[rec["channels"][i]["label"]] = {rec["channels"][i]["frequency"], rec["channels"][i]["samples_per_record"]};
    EXPECT_EQ(others["Loc"], std::make_pair(128, 32));
    EXPECT_EQ(others["Chin"], std::make_pair(256, 64));
    EXPECT_EQ(others["Ecg"], std::make_pair(256, 64));
    EXPECT_EQ(others["Thor"], std::make_pair(32, 8));
    EXPECT_EQ(others["SpO2"], std::make_pair(4, 1));
    EXPECT_EQ(rec["channels"][22]["unit"], 2);  // ECG in mV
    EXPECT_EQ(rec["channels"][26]["unit"], 4);  // SpO2 in %

    ASSERT_EQ(rec["reformatted_montages"].size(), 2u);
    const json& bipolar = rec["reformatted_montages"][0];
    EXPECT_EQ(bipolar["name"], "Bipolar");
    EXPECT_TRUE(bipolar["globals"].empty());
    ASSERT_EQ(bipolar["channels"].size(), 18u);
    EXPECT_EQ(bipolar["channels"][0]["label"], "FP1-F7");
    EXPECT_EQ(bipolar["channels"][0]["formula"], "FP1-F7");
    EXPECT_EQ(bipolar["channels"][17]["label"], "CZ-PZ");
    EXPECT_EQ(bipolar["channels"][0]["frequency"], 256);
    const json& average = rec["reformatted_montages"][1];
    EXPECT_EQ(average["name"], "Average");
    ASSERT_EQ(average["globals"].size(), 1u);
    EXPECT_EQ(average["globals"][0]["name"], "AVG");
    EXPECT_EQ(average["channels"].size(), 19u);
    EXPECT_EQ(average["channels"][18]["label"], "O2-AVG");

    // Groups with their well-known ids; the item counts add up to the events.
    std::map<std::string, json> groups;
    unsigned total = 0;
    for (const json& g : j["groups"]) {
        groups[g["id"]] = g;
        total += g["items"].get<unsigned>();
    }
    EXPECT_EQ(j["events"], total);
    const json& stages = groups["F4B8F3EE-8AC2-4EFC-BC86-2A55AF130A6C"];
    EXPECT_EQ(stages["type"], 4);
    EXPECT_EQ(stages["extent"], 1);
    EXPECT_EQ(stages["items"], 20);
    EXPECT_EQ(groups["8D1996CC-55A2-41B7-9477-839A46DE2ABE"]["extent"], 0);
    EXPECT_EQ(groups["8D1996CC-55A2-41B7-9477-839A46DE2ABE"]["name"], "Bookmarks");
    EXPECT_GT(groups["258EE925-A6B1-11d1-8B40-008029ED91B7"]["items"].get<int>(), 5);
    EXPECT_TRUE(groups.count("99E65CBA-9E82-417A-90A7-B398116464A2"));
    EXPECT_TRUE(groups.count("5ACE8890-EB72-40CC-A12A-DA69F21E973A"));
}

TEST(DemoCommandTest, InfoTextNamesTheMainFacts) {
    auto r = RunTool("info " + DemoFile());
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("1 native"), std::string::npos);
    EXPECT_NE(r.out.find("Hélène"), std::string::npos);
    EXPECT_NE(r.out.find("2400 of 64 samples at 256 Hz"), std::string::npos);
    EXPECT_NE(r.out.find("\"Bipolar\": 18 channels"), std::string::npos);
}

TEST(DemoCommandTest, SeedReproducesTheFileBitForBit) {
    testsupport::TempDir dir;
    for (const char* name : {"A", "B", "C"}) {
        std::string seed = name[0] == 'C' ? "4" : "3";
        auto r = RunTool("demo " + (dir / (std::string(name) + ".SIG")) + " --minutes 1.5 --seed " + seed);
        ASSERT_EQ(r.status, 0) << r.out;
    }
    const std::string a = tooltest::ReadText(dir / "A.SIG"), b = tooltest::ReadText(dir / "B.SIG");
    EXPECT_EQ(a.size(), 360u * 2874u);
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(tooltest::ReadText(dir / "A.STS") == tooltest::ReadText(dir / "B.STS"));
    EXPECT_FALSE(a == tooltest::ReadText(dir / "C.SIG"));
    // Only the two recordings' files remain: the temporary name is gone.
    int files = 0;
    for (auto& e : std::filesystem::directory_iterator(dir.path)) files += e.is_regular_file();
    EXPECT_EQ(files, 6);
}

TEST(DemoCommandTest, SignalsFollowTheEvents) {
    auto file = tooltest::OpenReadOnly(DemoFile());
    ASSERT_TRUE(file);
    const unsigned spo2 = 26;
    // Each desaturation reaches about its nadir inside its window; outside
    // breathing events the saturation stays near its baseline.
    int desaturations = 0;
    for (unsigned i = 0; i < file->GetNumStatusItems(); ++i) {
        const CStatusItem* item = file->GetStatusItemAt(i);
        if (item->GetGroup()->GetGroupID() != "5ACE8890-EB72-40CC-A12A-DA69F21E973A") continue;
        ++desaturations;
        float lowest = 100.0f;
        for (long r = item->GetBeginSample() / 64; r <= item->GetEndSample() / 64; ++r)
            lowest = std::min(lowest, tooltest::ReadRecord(*file, r)->GetAt(spo2, 0));
        EXPECT_NEAR(lowest, std::stod(item->GetPropertyValueAt("Nadir")), 1.2);
    }
    EXPECT_GT(desaturations, 0);
    EXPECT_NEAR(tooltest::ReadRecord(*file, 0)->GetAt(spo2, 0), 96.8, 1.2);

    // Wake (first epoch) shows occipital alpha, deep sleep large slow waves
    // at the front: compare mean absolute values of O1 and Fz.
    auto meanAbs = [&](long first, unsigned channel) {
        double sum = 0.0;
        for (long r = first; r < first + 120; ++r) {
            auto rec = tooltest::ReadRecord(*file, r);
            for (unsigned s = 0; s < 64; ++s) sum += std::fabs(rec->GetAt(channel, s));
        }
        return sum / (120 * 64);
    };
    long deep = -1;
    for (unsigned i = 0; i < file->GetNumStatusItems() && deep < 0; ++i) {
        const CStatusItem* item = file->GetStatusItemAt(i);
        if (item->GetName() == "N3") deep = item->GetBeginSample() / 64 + 12;  // after the fade
    }
    ASSERT_GE(deep, 0);
    EXPECT_GT(meanAbs(deep, 4), 2.0 * meanAbs(0, 4));  // Fz
    EXPECT_GT(meanAbs(0, 17), meanAbs(0, 0) * 0.8);      // O1 against Fp1 in wake
}

TEST(DemoCommandTest, CheckFindsNothingWrongWithTheDemo) {
    auto r = RunTool("check " + DemoFile());
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("records: 2400 read, 0 unreadable"), std::string::npos);
    EXPECT_NE(r.out.find("status items: consistent"), std::string::npos);
}

TEST(DemoCommandTest, DemoRefusesBadArgumentsAndKeepsAnExistingRecording) {
    testsupport::TempDir dir;
    const std::string out = dir / "KEEP.SIG";
    ASSERT_EQ(RunTool("demo " + out + " --minutes 0.5").status, 0);
    const std::string before = tooltest::ReadText(out);
    EXPECT_EQ(RunTool("demo " + out + " --minutes 0").status, 2);
    EXPECT_EQ(RunTool("demo " + out + " --minutes abc").status, 2);
    EXPECT_EQ(RunTool("demo").status, 2);
    EXPECT_EQ(tooltest::ReadText(out), before);
    // Not a native name: nothing is written.
    auto r = RunTool("demo " + (dir / "night.txt"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Erreur impliquant le fichier"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir / "night.txt"));
    // A new demo replaces the recording whole.
    ASSERT_EQ(RunTool("demo " + out + " --minutes 1 --seed 9").status, 0);
    EXPECT_EQ(tooltest::ReadText(out).size(), 240u * 2874u);
}
