// sigfile copy, rename, delete and check on whole recordings, and the
// library's French error texts when they fail.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "ToolFixture.h"

using testsupport::RunTool;

namespace {
bool Exists(const std::string& path) { return std::filesystem::exists(path); }
}  // namespace

TEST(FileOpsCommandTest, CopyRenameDeleteRoundTrip) {
    testsupport::TempDir dir;
    const std::string a = dir / "A.SIG", b = dir / "B.SIG", c = dir / "C.SIG";
    ASSERT_EQ(RunTool("demo " + a + " --minutes 1").status, 0);

    auto r = RunTool("copy " + a + " " + b);
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(r.out.empty());  // no progress bar without a terminal
    EXPECT_EQ(tooltest::ReadText(b), tooltest::ReadText(a));
    EXPECT_EQ(tooltest::ReadText(dir / "B.STS"), tooltest::ReadText(dir / "A.STS"));
    EXPECT_EQ(RunTool("check " + b).status, 0);

    EXPECT_EQ(RunTool("rename " + b + " " + c).status, 0);
    EXPECT_FALSE(Exists(b));
    EXPECT_FALSE(Exists(dir / "B.STS"));
    EXPECT_EQ(tooltest::ReadText(c), tooltest::ReadText(a));
    EXPECT_EQ(RunTool("info " + c).status, 0);

    EXPECT_EQ(RunTool("delete " + c).status, 0);
    EXPECT_FALSE(Exists(c));
    EXPECT_FALSE(Exists(dir / "C.STS"));
    EXPECT_TRUE(Exists(a));
}

TEST(FileOpsCommandTest, FailuresShowTheFrenchSystemTextOnOneLine) {
    testsupport::TempDir dir;
    const std::string a = dir / "A.SIG";
    ASSERT_EQ(RunTool("demo " + a + " --minutes 0.5").status, 0);
    const std::string before = tooltest::ReadText(a);

    auto r = RunTool("delete " + (dir / "none.SIG"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Erreur impliquant le fichier"), std::string::npos);
    EXPECT_NE(r.out.find("Le fichier spécifié est introuvable."), std::string::npos);
    EXPECT_EQ(tooltest::Lines(r.out).size(), 1u);

    // Renaming onto an existing recording is refused and changes nothing.
    ASSERT_EQ(RunTool("copy " + a + " " + (dir / "B.SIG")).status, 0);
    r = RunTool("rename " + (dir / "B.SIG") + " " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Le fichier existe."), std::string::npos) << r.out;
    EXPECT_EQ(tooltest::ReadText(a), before);

    r = RunTool("copy " + a + " " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(tooltest::ReadText(a), before);
    r = RunTool("copy " + (dir / "none.SIG") + " " + (dir / "D.SIG"));
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(Exists(dir / "D.SIG"));

    EXPECT_EQ(RunTool("copy " + a).status, 2);
    EXPECT_EQ(RunTool("rename").status, 2);
    EXPECT_EQ(RunTool("delete").status, 2);
}

TEST(FileOpsCommandTest, CheckAndInfoReportDamagedRecordings) {
    testsupport::TempDir dir;
    const std::string a = dir / "A.SIG";
    ASSERT_EQ(RunTool("demo " + a + " --minutes 1").status, 0);
    // Cut the data file in the middle of its records.
    std::filesystem::resize_file(a, 2874 * 100 + 10);
    auto r = RunTool("check " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("problem: La fiche d'état annonce 240 enregistrements, le fichier de données n'en contient que 100"),
              std::string::npos) << r.out;
    EXPECT_NE(r.out.find("records: 100 read, 0 unreadable"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("problems found"), std::string::npos);

    // A status file that is not an archive: the library's error box, one line.
    std::ofstream(dir / "A.STS", std::ios::trunc) << "garbage";
    r = RunTool("info " + a + " --json");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Erreur impliquant le fichier"), std::string::npos) << r.out;
    EXPECT_EQ(tooltest::Lines(r.out).size(), 1u);
    EXPECT_EQ(RunTool("events " + a).status, 1);
    EXPECT_EQ(RunTool("check " + a).status, 1);
}

TEST(FileOpsCommandTest, CheckAppliesTheDurationRuleAndFindsInconsistentItems) {
    testsupport::TempDir dir;
    const std::string a = dir / "A.SIG";
    ASSERT_EQ(RunTool("demo " + a + " --minutes 1").status, 0);
    // Add, through the library, a stage that ends 25 hours after the start
    // and a note whose end comes before its begin.
    auto addItems = [&](bool late, bool reversed) {
        long error = 0;
        std::unique_ptr<CSigFile, tooltest::FileDeleter> file(CSigFile::Open(a.c_str(), 0, &error));
        ASSERT_TRUE(file) << error;
        const CSDateTime start = file->GetStatusItemAt(0)->GetBeginTime();
        for (unsigned g = 0; g < file->GetNumGroups(); ++g) {
            const CStatusGroup* group = file->GetGroupAt(g);
            if (late && group->GetGroupName() == "Sleep Stages")
                file->AddStatusItem(new CStatusItem(group, 0, start, 7680, start + CSTimeSpan(25 * 3600.0), "", "W",
                                                    "", 0, 1));
            if (reversed && group->GetGroupName() == "Annotation")
                file->AddStatusItem(new CStatusItem(group, 600, start + CSTimeSpan(2.0), 100,
                                                    start + CSTimeSpan(1.0), "", "À l'envers", "", 0, 1));
        }
    };
    addItems(false, true);
    auto r = RunTool("check " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("À l'envers"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("fin avant le début"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("records: 240 read, 0 unreadable"), std::string::npos) << r.out;

    addItems(true, false);
    r = RunTool("check " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("La durée du fichier dépasse la limite de 24 heures!"), std::string::npos) << r.out;
    EXPECT_EQ(tooltest::Lines(r.out).size(), 1u);
    // info does not apply the rule.
    EXPECT_EQ(RunTool("info " + a).status, 0);
}
