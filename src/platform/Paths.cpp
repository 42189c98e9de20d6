#include "platform/Paths.h"

#include <unistd.h>

#include <vector>

#include <sys/stat.h>

#include <cstdlib>

namespace {
size_t LastSeparator(const std::string& path) {
    size_t a = path.find_last_of('/');
    return a;
}
}  // namespace

std::string ExtractDrive(const std::string&) { return {}; }

std::string ExtractDriveDir(const std::string& path) {
    size_t sep = LastSeparator(path);
    return sep == std::string::npos ? std::string() : path.substr(0, sep + 1);
}

std::string ExtractFName(const std::string& path) {
    size_t sep = LastSeparator(path);
    std::string name = sep == std::string::npos ? path : path.substr(sep + 1);
    size_t dot = name.find_last_of('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string ExtractExt(const std::string& path) {
    size_t sep = LastSeparator(path);
    size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (sep != std::string::npos && dot < sep)) return {};
    return path.substr(dot);
}

std::string ExtractBase(const std::string& path) { return ExtractDriveDir(path) + ExtractFName(path); }

std::string NormalizeSeparators(const std::string& path) {
    std::string out(path);
    for (char& c : out)
        if (c == '\\') c = '/';
    return out;
}

bool VhlCheckFileExist(const std::string& path) {
    struct stat st {};
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool VhlCheckFolderExist(const std::string& path) {
    struct stat st {};
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

ULONGLONG VhlGetFileSize(const std::string& path) {
    struct stat st {};
    if (path.empty() || ::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return 0;
    return static_cast<ULONGLONG>(st.st_size);
}

std::string VhlGetUserPath() {
    std::string dir;
    if (const char* own = std::getenv("SIGFILE_USER_DIR"); own && *own) {
        dir = own;
    } else if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) {
        dir = std::string(xdg) + "/sigfile";
    } else {
        const char* home = std::getenv("HOME");
        dir = std::string(home && *home ? home : ".") + "/.config/sigfile";
    }
    if (dir.back() != '/') dir += '/';
    return dir;
}

std::string AbsolutePath(const std::string& path) {
    std::string full = path;
    if (path.empty() || path[0] != '/') {
        char buffer[4096];
        const char* cwd = ::getcwd(buffer, sizeof buffer);
        full = std::string(cwd ? cwd : ".") + "/" + path;
    }
    std::vector<std::string> parts;
    size_t from = 0;
    while (from <= full.size()) {
        size_t to = full.find('/', from);
        if (to == std::string::npos) to = full.size();
        const std::string part = full.substr(from, to - from);
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        from = to + 1;
    }
    std::string out;
    for (const std::string& p : parts) out += "/" + p;
    return out.empty() ? "/" : out;
}
