// The sigfile program's contract: output, exit status.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/TestSupport.h"

using testsupport::RunTool;

TEST(FormatCommandTest, PrintsNumberAndName) {
    testsupport::TempDir dir;
    std::ofstream(dir / "s.SIG") << "KQUARSIG";
    std::ofstream(dir / "t.txt") << "hello";
    auto r = RunTool("format " + (dir / "s.SIG"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "5 server\n");
    r = RunTool("format " + (dir / "t.txt"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "0 unknown\n");
}

TEST(FormatCommandTest, BadUsageExitsWithTwo) {
    EXPECT_EQ(RunTool("format").status, 2);
    EXPECT_EQ(RunTool("no-such-command").status, 2);
    EXPECT_EQ(RunTool("--version").status, 0);
}
