// The library's folders use one another only as src/layers.txt allows: every
// #include "folder/file" line of src/ is checked against that table.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace {

using Table = std::map<std::string, std::set<std::string>>;

Table ReadTable(const fs::path& file) {
    Table table;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        const size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        std::set<std::string>& allowed = table[line.substr(0, colon)];
        std::istringstream words(line.substr(colon + 1));
        std::string word;
        while (words >> word) allowed.insert(word);
    }
    return table;
}

bool Covers(const std::string& folder, const std::string& used) {
    return used == folder || used.rfind(folder + "/", 0) == 0;
}

// The table's line for a folder: its own, or that of the nearest parent.
const std::set<std::string>* RuleOf(const Table& table, std::string folder, std::string& ruleFolder) {
    while (true) {
        auto it = table.find(folder);
        if (it != table.end()) {
            ruleFolder = folder;
            return &it->second;
        }
        const size_t slash = folder.rfind('/');
        if (slash == std::string::npos) return nullptr;
        folder.resize(slash);
    }
}

// Whether `folder` may include a header of `used`: its layer (the folder of
// its line in the table) with its sub-folders,
// and the folders its line names (with their sub-folders).
bool Allowed(const Table& table, const std::string& folder, const std::string& used) {
    std::string ruleFolder;
    const std::set<std::string>* rule = RuleOf(table, folder, ruleFolder);
    if (!rule) return false;
    if (Covers(ruleFolder, used)) return true;
    for (const std::string& allowed : *rule)
        if (Covers(allowed, used)) return true;
    return false;
}

}  // namespace

TEST(Layers, EveryIncludeFollowsTheTable) {
    const fs::path src = fs::path(SIGFILE_SOURCE_DIR) / "src";
    const Table table = ReadTable(src / "layers.txt");
    ASSERT_FALSE(table.empty());
    const std::regex include(R"re(^\s*#\s*include\s*"([a-z_]+(?:/[a-z_]+)*)/[^/"]+")re");
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(src)) {
        const std::string ext = entry.path().extension().string();
        if (ext != ".h" && ext != ".cpp" && ext != ".inc") continue;
        ++files;
        const std::string folder = fs::relative(entry.path().parent_path(), src).generic_string();
        std::string ruleFolder;
        ASSERT_NE(RuleOf(table, folder, ruleFolder), nullptr) << folder << " has no line in src/layers.txt";
        std::ifstream in(entry.path());
        std::string line;
        int number = 0;
        while (std::getline(in, line)) {
            ++number;
            std::smatch m;
            if (!std::regex_search(line, m, include)) continue;
            const std::string used = m[1];
            EXPECT_TRUE(Allowed(table, folder, used))
                << entry.path().generic_string() << ":" << number << " (" << folder << ") may not use " << used;
        }
    }
    EXPECT_GT(files, 50);
}

TEST(Layers, TheTableIsAcyclic) {
    const Table table = ReadTable(fs::path(SIGFILE_SOURCE_DIR) / "src" / "layers.txt");
    // Depth-first search over "folder uses folder" edges.
    std::map<std::string, int> state;  // 1 visiting, 2 done
    std::function<bool(const std::string&)> visit = [&](const std::string& folder) {
        if (state[folder] == 1) return false;
        if (state[folder] == 2) return true;
        state[folder] = 1;
        auto it = table.find(folder);
        if (it != table.end())
            for (const std::string& used : it->second)
                if (!visit(used)) return false;
        state[folder] = 2;
        return true;
    };
    for (const auto& [folder, uses] : table) EXPECT_TRUE(visit(folder)) << "cycle through " << folder;
}
