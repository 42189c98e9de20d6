#include "ToolSupport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>

#include "Commands.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "montage/mtgs.h"

namespace sigfile_tool {

SigFilePtr OpenForReading(const std::string& name, int check24Hours) {
    long error = 0;
    CSigFile* file = CSigFile::Open(name.c_str(), 1, &error, 0, check24Hours);
    if (!file) {
        // -1: the failure was reported already.
        if (error != 0 && error != -1) CSigFile::ErrorMessageBox(name.c_str(), error);
        return nullptr;
    }
    return SigFilePtr(file);
}

void Fail(const std::string& text) { AfxMessageBox(text); }

// ---------------------------------------------------------------------------

ProgressBar::ProgressBar(std::string title, unsigned long long total)
    : m_title(std::move(title)), m_total(total), m_enabled(::isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() { Finish(); }

void ProgressBar::Update(unsigned long long done) {
    if (!m_enabled || m_total == 0) return;
    if (done > m_total) done = m_total;
    const int permille = static_cast<int>(done * 1000 / m_total);
    if (permille == m_lastPermille) return;
    m_lastPermille = permille;
    constexpr int kWidth = 40;
    const int filled = permille * kWidth / 1000;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kWidth - filled), ' ');
    std::fprintf(stderr, "\r%s [%s] %3d%%", m_title.c_str(), bar.c_str(), permille / 10);
    std::fflush(stderr);
    m_drawn = true;
}

void ProgressBar::Finish() {
    if (m_drawn) {
        std::fprintf(stderr, "\n");
        std::fflush(stderr);
    }
    m_drawn = false;
}

// ---------------------------------------------------------------------------

ReplacingOutput::ReplacingOutput(std::string target) : m_target(std::move(target)) {}

ReplacingOutput::~ReplacingOutput() {
    if (m_stream) std::fclose(m_stream);
    if (!m_committed && !m_temp.empty()) ::unlink(m_temp.c_str());
}

bool ReplacingOutput::Open() {
    // A temporary of this process beside the target; those of commands
    // that were killed are cleared first.
    CleanLeftoverTemporaries(ExtractBase(m_target));
    m_temp = OwnedTemporaryName(m_target, "out");
    int fd = ::open(m_temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        SetLastError(ErrnoToSystemError(errno));
        m_temp.clear();
        return false;
    }
    m_stream = ::fdopen(fd, "w");
    if (!m_stream) {
        SetLastError(ErrnoToSystemError(errno));
        ::close(fd);
        return false;
    }
    return true;
}

bool ReplacingOutput::Commit() {
    if (!m_stream) return false;
    bool ok = std::fflush(m_stream) == 0 && ::fsync(::fileno(m_stream)) == 0;
    int err = ok ? 0 : errno;
    if (std::fclose(m_stream) != 0 && ok) {
        ok = false;
        err = errno;
    }
    m_stream = nullptr;
    if (!ok) {
        SetLastError(ErrnoToSystemError(err ? err : EIO));
        return false;
    }
    if (!MoveFileReplace(m_temp, m_target)) return false;
    m_committed = true;
    return true;
}

std::string ChannelLabel(const CSigFile& file, unsigned channel) {
    CSigChannelInfo info;
    return file.GetChannelInfo(channel, &info) ? info.label : std::string();
}


}  // namespace sigfile_tool
