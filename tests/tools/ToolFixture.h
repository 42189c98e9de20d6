// Shared by the tests of the sigfile commands: one demo recording made by the
// program itself, kept for the whole test run, and small helpers to read
// files and records.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sigfile/SIGFILE.h"
#include "records/SigRec.h"
#include "status/stsitm.h"
#include "support/TestSupport.h"

namespace tooltest {

// A 10-minute demo night (seed 7), written once.
inline const std::string& DemoFile() {
    static testsupport::TempDir dir;
    static std::string name;
    if (name.empty()) {
        std::string candidate = dir / "NIGHT.SIG";
        auto r = testsupport::RunTool("demo " + candidate + " --minutes 10 --seed 7");
        EXPECT_EQ(r.status, 0) << r.out;
        name = candidate;
    }
    return name;
}

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::stringstream s(text);
    for (std::string line; std::getline(s, line);) lines.push_back(line);
    return lines;
}

inline std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields;
    std::stringstream s(line);
    for (std::string f; std::getline(s, f, ',');) fields.push_back(f);
    return fields;
}

struct FileDeleter {
    void operator()(CSigFile* f) const {
        if (f) f->Close();
        delete f;
    }
};
using SigFilePtr = std::unique_ptr<CSigFile, FileDeleter>;

inline SigFilePtr OpenReadOnly(const std::string& name) {
    long error = 0;
    SigFilePtr file(CSigFile::Open(name.c_str(), 1, &error));
    EXPECT_EQ(error, 0);
    return file;
}

// Record r of the file in world units (or volts).
inline std::unique_ptr<CFmtSigRec> ReadRecord(CSigFile& file, long r, bool volts = false) {
    std::unique_ptr<CFmtSigRec> rec(file.CreateCompatibleFmtSigRec());
    file.MoveTo(r);
    EXPECT_TRUE(volts ? file.ReadAsVolts(rec.get()) : file.Read(rec.get()));
    return rec;
}

}  // namespace tooltest
