/* Kills the process that loads it (LD_PRELOAD) at its Nth file-system call
 * that changes something on disk: SIGFILE_KILL_AT=N.  Without the variable,
 * or with N = 0, it only counts, and SIGFILE_KILL_COUNT=path receives the
 * count when the process exits.  Used by the kill tests to stop a command at
 * every instant where a crash could leave its files half written. */
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/types.h>
#include <unistd.h>

extern "C" {

static long g_calls = 0;
static long g_killAt = -1;

static void Report(void) {
    const char* path = getenv("SIGFILE_KILL_COUNT");
    if (!path) return;
    FILE* f = fopen(path, "w");
    if (f) {
        fprintf(f, "%ld\n", g_calls);
        fclose(f);
    }
}

static void Step(void) {
    if (g_killAt < 0) {
        const char* at = getenv("SIGFILE_KILL_AT");
        g_killAt = at ? atol(at) : 0;
        atexit(Report);
    }
    ++g_calls;
    if (g_killAt > 0 && g_calls == g_killAt) raise(SIGKILL);
}

#define NEXT(type, name, args) \
    static type(*next) args = nullptr; \
    if (!next) next = reinterpret_cast<type(*) args>(dlsym(RTLD_NEXT, name))

int rename(const char* a, const char* b) {
    NEXT(int, "rename", (const char*, const char*));
    Step();
    return next(a, b);
}
int renameat(int fa, const char* a, int fb, const char* b) {
    NEXT(int, "renameat", (int, const char*, int, const char*));
    Step();
    return next(fa, a, fb, b);
}
int unlink(const char* a) {
    NEXT(int, "unlink", (const char*));
    Step();
    return next(a);
}
int unlinkat(int fd, const char* a, int flags) {
    NEXT(int, "unlinkat", (int, const char*, int));
    Step();
    return next(fd, a, flags);
}
ssize_t write(int fd, const void* p, size_t n) {
    NEXT(ssize_t, "write", (int, const void*, size_t));
    if (fd > 2) Step();
    return next(fd, p, n);
}
ssize_t pwrite(int fd, const void* p, size_t n, off_t o) {
    NEXT(ssize_t, "pwrite", (int, const void*, size_t, off_t));
    Step();
    return next(fd, p, n, o);
}
ssize_t pwrite64(int fd, const void* p, size_t n, off_t o) {
    NEXT(ssize_t, "pwrite64", (int, const void*, size_t, off_t));
    Step();
    return next(fd, p, n, o);
}
int fsync(int fd) {
    NEXT(int, "fsync", (int));
    Step();
    return next(fd);
}
int fdatasync(int fd) {
    NEXT(int, "fdatasync", (int));
    Step();
    return next(fd);
}
int ftruncate(int fd, off_t n) {
    NEXT(int, "ftruncate", (int, off_t));
    Step();
    return next(fd, n);
}
int ftruncate64(int fd, off_t n) {
    NEXT(int, "ftruncate64", (int, off_t));
    Step();
    return next(fd, n);
}
static bool Creates(int flags) { return (flags & (O_CREAT | O_TRUNC)) != 0; }
int open(const char* path, int flags, ...) {
    NEXT(int, "open", (const char*, int, ...));
    mode_t mode = 0;
    if (flags & O_CREAT) {
        va_list ap;
        va_start(ap, flags);
        mode = static_cast<mode_t>(va_arg(ap, int));
        va_end(ap);
    }
    if (Creates(flags)) Step();
    return next(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    NEXT(int, "open64", (const char*, int, ...));
    mode_t mode = 0;
    if (flags & O_CREAT) {
        va_list ap;
        va_start(ap, flags);
        mode = static_cast<mode_t>(va_arg(ap, int));
        va_end(ap);
    }
    if (Creates(flags)) Step();
    return next(path, flags, mode);
}

}  // extern "C"
