#include "platform/FileOps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/Messages.h"
#include "platform/Paths.h"

namespace {
bool Fail(int err) {
    SetLastError(ErrnoToSystemError(err));
    return false;
}

std::string FolderOf(const std::string& path) {
    std::string dir = ExtractDriveDir(path);
    return dir.empty() ? std::string(".") : dir;
}
}  // namespace

void FlushFolder(const std::string& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

bool CopyFileReplace(const std::string& from, const std::string& to, const CopyProgress& progress) {
    struct stat st {};
    if (::stat(from.c_str(), &st) != 0) return Fail(errno);
    return CopyFilePart(from, to, static_cast<ULONGLONG>(st.st_size), progress);
}

bool CopyFilePart(const std::string& from, const std::string& to, ULONGLONG total, const CopyProgress& progress) {
    int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return Fail(errno);
    struct stat st {};
    if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
        int err = errno ? errno : EISDIR;
        ::close(in);
        return Fail(err);
    }
    // A temporary name of this process beside the target: a copy killed
    // half way leaves a file the next operation recognises as a leftover.
    const std::string tmp = OwnedTemporaryName(to, "part");
    int out = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (out < 0) {
        int err = errno;
        ::close(in);
        return Fail(err);
    }
    std::vector<char> buf(1 << 20);
    ULONGLONG done = 0;
    int err = 0;
    bool stopped = false;
    while (done < total) {
        ssize_t n = ::read(in, buf.data(), static_cast<size_t>(std::min<ULONGLONG>(buf.size(), total - done)));
        if (n < 0) {
            if (errno == EINTR) continue;
            err = errno;
            break;
        }
        if (n == 0) {
            err = -1;  // shorter than asked
            break;
        }
        for (ssize_t off = 0; off < n;) {
            ssize_t w = ::write(out, buf.data() + off, static_cast<size_t>(n - off));
            if (w < 0) {
                if (errno == EINTR) continue;
                err = errno;
                break;
            }
            off += w;
        }
        if (err) break;
        done += static_cast<ULONGLONG>(n);
        if (progress && !progress(done, total)) {
            stopped = true;
            break;
        }
    }
    if (!err && !stopped && ::fsync(out) != 0) err = errno;
    ::close(in);
    if (::close(out) != 0 && !err) err = errno;
    if (!err && !stopped && ::rename(tmp.c_str(), to.c_str()) != 0) err = errno;
    if (err || stopped) {
        ::unlink(tmp.c_str());
        if (err == -1) {
            SetLastError(ERROR_HANDLE_EOF);
            return false;
        }
        return Fail(err ? err : ECANCELED);
    }
    FlushFolder(FolderOf(to));
    return true;
}

bool MoveFileReplace(const std::string& from, const std::string& to) {
    if (::rename(from.c_str(), to.c_str()) != 0) return Fail(errno);
    FlushFolder(FolderOf(to));
    if (FolderOf(from) != FolderOf(to)) FlushFolder(FolderOf(from));
    return true;
}

bool IsSameFile(const std::string& a, const std::string& b) {
    struct stat sa {}, sb {};
    if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool DeleteFileName(const std::string& name) {
    if (::unlink(name.c_str()) != 0) return Fail(errno);
    return true;
}

// ---------------------------------------------------------------------------
// File sets

namespace {
constexpr const char* kJournalMagic = "SIGFILE-JOURNAL 1";

// Writes text to name and forces it to the disk.
bool WriteDurably(const std::string& name, const std::string& text) {
    int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return Fail(errno);
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            int err = n < 0 ? errno : EIO;
            ::close(fd);
            return Fail(err);
        }
        done += size_t(n);
    }
    int err = ::fsync(fd) != 0 ? errno : 0;
    if (::close(fd) != 0 && !err) err = errno;
    return err ? Fail(err) : true;
}

// The journal's lines: the magic, then "M\tfrom\tto" or "D\tto", then "END".
std::string JournalText(const std::vector<CFileMove>& moves) {
    std::string text = std::string(kJournalMagic) + "\n";
    for (const CFileMove& m : moves) text += m.from.empty() ? "D\t" + m.to + "\n" : "M\t" + m.from + "\t" + m.to + "\n";
    return text + "END\n";
}

bool ParseJournal(const std::string& journal, std::vector<CFileMove>& moves) {
    std::ifstream in(journal);
    std::string line;
    if (!std::getline(in, line) || line != kJournalMagic) return false;
    bool ended = false;
    while (std::getline(in, line)) {
        if (line == "END") {
            ended = true;
            break;
        }
        std::vector<std::string> f;
        std::stringstream ss(line);
        for (std::string part; std::getline(ss, part, '\t');) f.push_back(part);
        if (f.size() == 3 && f[0] == "M") moves.push_back({f[1], f[2]});
        else if (f.size() == 2 && f[0] == "D") moves.push_back({"", f[1]});
        else return false;
    }
    return ended;
}

bool CarryOut(const std::vector<CFileMove>& moves) {
    bool ok = true;
    for (const CFileMove& m : moves) {
        if (m.from.empty()) {
            if (::unlink(m.to.c_str()) != 0 && errno != ENOENT) ok = Fail(errno);
        } else if (::rename(m.from.c_str(), m.to.c_str()) != 0) {
            // A source already gone was moved before a crash.
            if (errno != ENOENT) ok = Fail(errno);
        }
    }
    return ok;
}
}  // namespace

bool ReplaceFileSet(const std::string& journal, const std::vector<CFileMove>& given) {
    // The journal names files from the root, whatever folder a later
    // process works in.
    std::vector<CFileMove> moves;
    for (const CFileMove& m : given) moves.push_back({m.from.empty() ? "" : AbsolutePath(m.from), AbsolutePath(m.to)});
    const std::string folder = FolderOf(journal);
    static std::atomic<unsigned> calls{0};
    const std::string pending = OwnedTemporaryName(journal, ("j" + std::to_string(calls++) + "_").c_str());
    if (!WriteDurably(pending, JournalText(moves))) {
        ::unlink(pending.c_str());
        return false;
    }
    if (::rename(pending.c_str(), journal.c_str()) != 0) {
        int err = errno;
        ::unlink(pending.c_str());
        return Fail(err);
    }
    FlushFolder(folder);
    // Decided: from here on a crash is finished by RecoverFileSet.
    if (!CarryOut(moves)) return false;
    for (const CFileMove& m : moves)
        if (!m.from.empty() && FolderOf(m.from) != folder) FlushFolder(FolderOf(m.from));
    FlushFolder(folder);
    ::unlink(journal.c_str());
    FlushFolder(folder);
    return true;
}

bool RecoverFileSet(const std::string& journal) {
    struct stat st {};
    if (::stat(journal.c_str(), &st) != 0) return true;
    std::vector<CFileMove> moves;
    if (!ParseJournal(journal, moves)) {
        // Never renamed into place complete: nothing was decided.
        ::unlink(journal.c_str());
        return true;
    }
    if (!CarryOut(moves)) return false;
    FlushFolder(FolderOf(journal));
    ::unlink(journal.c_str());
    FlushFolder(FolderOf(journal));
    return true;
}

bool FileSetJournalTouches(const std::string& journal, const std::string& given) {
    const std::string base = AbsolutePath(given);
    std::vector<CFileMove> moves;
    if (!ParseJournal(journal, moves)) return false;
    for (const CFileMove& m : moves)
        if ((!m.from.empty() && ExtractBase(m.from) == base) || ExtractBase(m.to) == base) return true;
    return false;
}

std::string OwnedTemporaryName(const std::string& target, const char* tag) {
    return ExtractBase(target) + "~" + tag + std::to_string(long(::getpid())) + ExtractExt(target);
}

bool IsLeftoverTemporary(const std::string& name) {
    const std::string stem = ExtractFName(name);
    const size_t tilde = stem.rfind('~');
    if (tilde == std::string::npos) return false;
    size_t digits = stem.size();
    while (digits > tilde + 1 && stem[digits - 1] >= '0' && stem[digits - 1] <= '9') --digits;
    if (digits == stem.size() || digits == tilde + 1) return false;
    const long pid = std::atol(stem.c_str() + digits);
    if (pid <= 0) return false;
    // Alive (or someone else's process): not a leftover.
    return ::kill(pid_t(pid), 0) != 0 && errno == ESRCH;
}

int CleanLeftoverTemporaries(const std::string& base) {
    const std::string folder = FolderOf(base);
    const std::string prefix = ExtractFName(base) + "~";
    int deleted = 0;
    if (DIR* d = ::opendir(folder.c_str())) {
        while (dirent* e = ::readdir(d)) {
            const std::string name = e->d_name;
            if (name.compare(0, prefix.size(), prefix) != 0) continue;
            const std::string path = ExtractDriveDir(base) + name;
            if (IsLeftoverTemporary(path) && ::unlink(path.c_str()) == 0) ++deleted;
        }
        ::closedir(d);
    }
    if (deleted) FlushFolder(folder);
    return deleted;
}
