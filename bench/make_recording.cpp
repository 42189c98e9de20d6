// Helper of bench/run (not a benchmark: it prints no RESULT line).
//
//   bench_make_recording make NAME.SIG
//       writes a 1-hour, 64-channel, 256 Hz native recording;
//   bench_make_recording peak PROGRAM [ARG...]
//       runs PROGRAM and prints its peak resident set size; bench/run uses
//       it to measure sigfile export and sigfile info on that recording.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "HourRecording.h"

// Runs a program (its standard output thrown away) and prints its peak
// resident set size as the system accounts it: "peak_kb N status S".  The
// figure is taken from a process this small because a child's peak counts
// what its parent had resident when it was forked.
int Peak(char** argv) {
    pid_t pid = ::fork();
    if (pid < 0) return 1;
    if (pid == 0) {
        int null = ::open("/dev/null", O_WRONLY);
        if (null >= 0) ::dup2(null, 1);
        ::execv(argv[0], argv);
        ::_exit(127);
    }
    int status = 0;
    struct rusage usage {};
    if (::wait4(pid, &status, 0, &usage) != pid) return 1;
    std::printf("peak_kb %ld status %d\n", long(usage.ru_maxrss), WIFEXITED(status) ? WEXITSTATUS(status) : 128);
    return 0;
}

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "make") == 0) return bench::WriteHourRecording(argv[2]) ? 0 : 1;
    if (argc >= 3 && std::strcmp(argv[1], "peak") == 0) return Peak(argv + 2);
    std::fprintf(stderr, "usage: %s make NAME.SIG | peak PROGRAM [ARG...]\n", argv[0]);
    return 2;
}
