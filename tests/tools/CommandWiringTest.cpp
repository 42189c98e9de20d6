// The commands that hand a file to another format's code: export to EDF+ /
// BDF+ and info on a spectral file.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ToolFixture.h"
#include "platform/Paths.h"

using testsupport::RunTool;

TEST(CommandWiringTest, ExportToEdfAndImportBack) {
    testsupport::TempDir dir;
    const std::string& night = tooltest::DemoFile();
    auto r = RunTool("export " + night + " " + (dir / "night.edf") + " --records 0:400");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(tooltest::ReadText(dir / "night.edf").substr(0, 8), "0       ");
    r = RunTool("import " + (dir / "night.edf") + " " + (dir / "BACK.SIG"));
    ASSERT_EQ(r.status, 0) << r.out;
    auto info = nlohmann::json::parse(RunTool("info " + (dir / "BACK.SIG") + " --json").out);
    auto original = nlohmann::json::parse(RunTool("info " + night + " --json").out);
    EXPECT_EQ(info["records"], 400);
    EXPECT_EQ(info["recording_montages"][0]["channels"].size(), original["recording_montages"][0]["channels"].size());
    // CSV-only options are refused for EDF output, and nothing is written.
    EXPECT_EQ(RunTool("export " + night + " " + (dir / "x.bdf") + " --volts").status, 2);
    EXPECT_FALSE(VhlCheckFileExist(dir / "x.bdf"));
}

TEST(CommandWiringTest, InfoDescribesASpectralFile) {
    testsupport::TempDir dir;
    const std::string& night = tooltest::DemoFile();
    auto r = RunTool("spectrum " + night + " " + (dir / "S.SPC") + " --epoch 2");
    ASSERT_EQ(r.status, 0) << r.out;
    r = RunTool("info " + (dir / "S.SPC") + " --json");
    ASSERT_EQ(r.status, 0) << r.out;
    auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["records"], 300);  // 10 minutes in 2 s epochs
    EXPECT_EQ(j["resolution_hz"], 0.5);
    EXPECT_EQ(RunTool("info " + (dir / "none.SPC")).status, 1);
}
