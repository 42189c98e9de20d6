#include "platform/FileOps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
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
    int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return Fail(errno);
    struct stat st {};
    if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
        int err = errno ? errno : EISDIR;
        ::close(in);
        return Fail(err);
    }
    std::string tmp = to + ".part~";
    int out = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (out < 0) {
        int err = errno;
        ::close(in);
        return Fail(err);
    }
    std::vector<char> buf(1 << 20);
    ULONGLONG total = static_cast<ULONGLONG>(st.st_size), done = 0;
    int err = 0;
    bool stopped = false;
    for (;;) {
        ssize_t n = ::read(in, buf.data(), buf.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            err = errno;
            break;
        }
        if (n == 0) break;
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
