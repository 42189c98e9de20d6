// A writer killed at random moments while it appends and flushes never
// leaves a recording that cannot be opened, and every record it flushed
// before the kill is there, bit for bit.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <thread>

#include "sigfile/SIGFILE.h"
#include "support/SmallRecording.h"
#include "support/TestSupport.h"

using namespace testsupport;

namespace {
// The child: opens the recording for writing and appends records, flushing
// every few, and reports each flushed count on the pipe.
[[noreturn]] void Writer(const std::string& name, int out, unsigned seed) {
    long error = 0;
    CSigFile* f = CSigFile::Open(name.c_str(), 0, &error);
    if (!f || f->IsReadOnly()) _exit(3);
    std::unique_ptr<CRawSigRec> rec(f->CreateCompatibleRawSigRec());
    std::minstd_rand rng(seed);
    for (;;) {
        long n = f->GetNumRecords();
        int batch = 1 + static_cast<int>(rng() % 40);
        for (int i = 0; i < batch; ++i) {
            FillRecord(*rec, n + i);
            f->MoveTo(n + i);
            if (!f->Write(rec.get())) _exit(4);
        }
        if (!f->Flush()) _exit(5);
        long flushed = n + batch;
        if (write(out, &flushed, sizeof flushed) != sizeof flushed) _exit(6);
    }
}
}  // namespace

TEST(WriterKillTest, EveryFlushedRecordSurvivesSigkill) {
    TempDir dir;
    std::string name = dir / "kill.SIG";
    {
        auto d = DescribeRecording({256, 128, 64, 4});
        long error = 0;
        CSigFile* f = CreateRecording(name, d, &error);
        ASSERT_TRUE(f);
        f->Close();
        delete f;
    }
    std::mt19937 rng(20261122);
    long confirmed = 0;
    int kills = 0;
    for (int round = 0; round < 200; ++round) {
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            Writer(name, fds[1], static_cast<unsigned>(round));
        }
        close(fds[1]);
        std::this_thread::sleep_for(std::chrono::microseconds(rng() % 120000));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        if (WIFSIGNALED(status)) ++kills;
        else ADD_FAILURE() << "writer ended by itself with status " << WEXITSTATUS(status);
        long value = 0;
        while (read(fds[0], &value, sizeof value) == sizeof value) confirmed = std::max(confirmed, value);
        close(fds[0]);

        // A reader opens it and finds every flushed record.
        long error = 0;
        CSigFile* f = CSigFile::Open(name.c_str(), 1, &error);
        ASSERT_TRUE(f) << "round " << round << " error " << error;
        ASSERT_GE(f->GetNumRecords(), confirmed) << "round " << round;
        std::unique_ptr<CRawSigRec> rec(f->CreateCompatibleRawSigRec());
        for (long r = 0; r < f->GetNumRecords(); ++r) {
            f->MoveTo(r);
            ASSERT_TRUE(f->Read(rec.get())) << "round " << round << " record " << r;
            ASSERT_TRUE(RecordMatches(*rec, r)) << "round " << round << " record " << r;
        }
        f->Close();
        delete f;
    }
    EXPECT_EQ(kills, 200);
    EXPECT_GT(confirmed, 0);
    std::printf("%d kills, %ld records confirmed flushed\n", kills, confirmed);
}
