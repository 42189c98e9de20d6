// Replays every seed of fuzz/corpus/<target>/ and every regression input of
// tests/data/fuzz/<target>/ (inputs that once crashed a fuzz target) through
// the fuzz targets' own bodies.  A fault shows as a crash or a sanitizer
// report in the sanitizer build; here the test also checks that each folder
// names a target and is not empty.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "FuzzEntries.h"
#include "sigfile/SIGFILE.h"

namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> ReadInput(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Replays every file of root/<target>/; returns how many were replayed.
size_t ReplayFolder(const fs::path& root) {
    size_t replayed = 0;
    if (!fs::is_directory(root)) return 0;
    fuzzentry::LibraryGuard guard;
    for (const auto& folder : fs::directory_iterator(root)) {
        if (!folder.is_directory()) continue;
        const std::string name = folder.path().filename().string();
        const fuzzentry::Target* target = fuzzentry::FindTarget(name);
        EXPECT_NE(target, nullptr) << "no fuzz target named " << name;
        if (!target) continue;
        size_t inFolder = 0;
        for (const auto& file : fs::directory_iterator(folder.path())) {
            if (!file.is_regular_file()) continue;
            SCOPED_TRACE(file.path().string());
            const std::vector<uint8_t> input = ReadInput(file.path());
            const int result = target->entry(input.data(), input.size());
            EXPECT_TRUE(result == 0 || result == 1);
            ++inFolder;
        }
        EXPECT_GT(inFolder, 0u) << "empty folder " << folder.path();
        replayed += inFolder;
    }
    return replayed;
}

}  // namespace

TEST(CorpusReplayTest, SeedCorporaReplayCleanly) {
    EXPECT_GT(ReplayFolder(fs::path(SIGFILE_FUZZ_DIR) / "corpus"), 0u);
}

TEST(CorpusReplayTest, FuzzFindingsReplayCleanly) {
    // The folder exists once a finding has been recorded.
    ReplayFolder(fs::path(SIGFILE_TEST_DATA_DIR) / "fuzz");
}

TEST(CorpusReplayTest, ReachingTheFatalErrorRoutineIsACrash) {
    // Left alone, the routine ends the process with status 0, which a fuzzer
    // would not see; under the guard it aborts.
    EXPECT_DEATH(
        {
            fuzzentry::LibraryGuard guard;
            SetErrorCondition("fuzz", 1, "test");
        },
        "fatal error routine reached");
}
