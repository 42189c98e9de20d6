// Helpers shared by the sigfile commands: opening a recording with the
// library's error report, a progress bar on a terminal, output files that
// replace their target only on success, and small text conversions.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "sigfile/SIGFILE.h"

class CReformatedMontage;

namespace sigfile_tool {

// A signal file closed and deleted when the holder dies.
using SigFilePtr = CSigFilePtr;

// Opens a recording read-only; on failure the library's French error box is
// shown (one line on standard error) and null is returned.
SigFilePtr OpenForReading(const std::string& name, int check24Hours = 0);

// Shows one French failure line on standard error through the message sink.
void Fail(const std::string& text);

// A progress bar on standard error, drawn only when standard error is a
// terminal.  Update is cheap when nothing needs redrawing.
class ProgressBar {
public:
    explicit ProgressBar(std::string title, unsigned long long total = 0);
    ~ProgressBar();
    void SetTotal(unsigned long long total) { m_total = total; }
    void Update(unsigned long long done);
    void Finish();

private:
    std::string m_title;
    unsigned long long m_total;
    bool m_enabled;
    bool m_drawn = false;
    int m_lastPermille = -1;
};

// CProgressInfo that draws a ProgressBar (used by the copies).
class ProgressInfoBar : public CProgressInfo {
public:
    explicit ProgressInfoBar(const std::string& title) : m_bar(title) {}
    void SetRange(ULONGLONG total) override {
        CProgressInfo::SetRange(total);
        m_bar.SetTotal(total);
    }
    void SetPos(ULONGLONG pos) override {
        CProgressInfo::SetPos(pos);
        m_bar.Update(pos);
    }
    void Finish() { m_bar.Finish(); }

private:
    ProgressBar m_bar;
};

// A text output that goes to a temporary file beside the target and is
// renamed over it by Commit; a target that exists is never touched unless
// Commit succeeds.  The temporary file is removed if Commit is not reached.
class ReplacingOutput {
public:
    explicit ReplacingOutput(std::string target);
    ~ReplacingOutput();
    // False with the thread's last error set when the temporary file cannot
    // be made.
    bool Open();
    FILE* Stream() const { return m_stream; }
    // Closes, flushes to the disk and renames; false with the last error set.
    bool Commit();
    const std::string& Target() const { return m_target; }

private:
    std::string m_target;
    std::string m_temp;
    FILE* m_stream = nullptr;
    bool m_committed = false;
};

// The label of a record channel as its file names it.
std::string ChannelLabel(const CSigFile& file, unsigned channel);

}  // namespace sigfile_tool
