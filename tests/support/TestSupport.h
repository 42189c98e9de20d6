// Shared helpers for the tests: a recorder of library assertions, a builder
// of expected archive bytes, and archive round trips through memory.
#pragma once

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "platform/Archive.h"
#include "platform/Assert.h"
#include "platform/File.h"
#include "platform/Messages.h"

namespace testsupport {

// Records every (source, line) the library asserts while it is alive.
class AssertRecorder {
public:
    AssertRecorder() {
        previous_ = SetAssertHandler([this](const char* source, int line) { hits.emplace_back(source, line); });
    }
    ~AssertRecorder() { SetAssertHandler(std::move(previous_)); }
    bool Saw(const std::string& source, int line) const {
        for (const auto& h : hits)
            if (h.first == source && h.second == line) return true;
        return false;
    }
    std::vector<std::pair<std::string, int>> hits;

private:
    AssertHandler previous_;
};

// Records the message boxes shown while it is alive.
class MessageRecorder {
public:
    MessageRecorder() {
        previous_ = SetMessageSink([this](const std::string& text, const std::string&) { texts.push_back(text); });
    }
    ~MessageRecorder() { SetMessageSink(std::move(previous_)); }
    std::vector<std::string> texts;

private:
    MessageSink previous_;
};

// Builds expected bytes by hand, little-endian.
class Bytes {
public:
    Bytes& u8(unsigned v) { data.push_back(static_cast<BYTE>(v)); return *this; }
    Bytes& u16(unsigned v) { return u8(v & 0xFF).u8((v >> 8) & 0xFF); }
    Bytes& u32(unsigned long long v) { return u16(v & 0xFFFF).u16((v >> 16) & 0xFFFF); }
    Bytes& i32(int v) { return u32(static_cast<unsigned>(v)); }
    Bytes& u64(unsigned long long v) { return u32(v & 0xFFFFFFFFull).u32(v >> 32); }
    Bytes& f32(float v) { unsigned u; std::memcpy(&u, &v, 4); return u32(u); }
    Bytes& f64(double v) { unsigned long long u; std::memcpy(&u, &v, 8); return u64(u); }
    Bytes& raw(const std::string& s) { data.insert(data.end(), s.begin(), s.end()); return *this; }
    // Short archive string (Windows-1252 bytes, length below 255).
    Bytes& str(const std::string& cp1252) { return u8(static_cast<unsigned>(cp1252.size())).raw(cp1252); }
    // Class record of a class new to the archive (schema 1).
    Bytes& newClass(const std::string& name) { return u16(0xFFFF).u16(1).u16(static_cast<unsigned>(name.size())).raw(name); }
    Bytes& append(const Bytes& o) { data.insert(data.end(), o.data.begin(), o.data.end()); return *this; }
    std::vector<BYTE> data;
};

// Stores with fn into memory and returns the bytes.
template <class Fn>
std::vector<BYTE> StoreToBytes(Fn fn) {
    CMemFile file;
    {
        CArchive ar(&file, CArchive::store);
        fn(ar);
        ar.Close();
    }
    return file.Detach();
}

// Loads from bytes with fn; the archive must be used inside fn only.
template <class Fn>
void LoadFromBytes(const std::vector<BYTE>& bytes, Fn fn) {
    CMemFile file(bytes.data(), bytes.size());
    CArchive ar(&file, CArchive::load);
    fn(ar);
}

// A fresh temporary folder removed when the object dies.
class TempDir {
public:
    TempDir() {
        std::string tmpl = (std::filesystem::temp_directory_path() / "sigfile-test-XXXXXX").string();
        std::vector<char> buf(tmpl.begin(), tmpl.end());
        buf.push_back('\0');
        path = mkdtemp(buf.data());
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

// Runs the sigfile program with the arguments (a shell command line) and
// returns its exit status and what it printed (standard output and error).
struct ToolResult {
    int status;
    std::string out;
};
inline ToolResult RunTool(const std::string& args) {
    std::string cmd = std::string(SIGFILE_TOOL_PATH) + " " + args + " 2>&1";
    ToolResult r{-1, {}};
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return r;
}

}  // namespace testsupport
