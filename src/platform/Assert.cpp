#include "platform/Assert.h"

#include <cstdio>
#include <mutex>

namespace {
AssertHandler& Handler() {
    static AssertHandler handler;
    return handler;
}
}  // namespace

void VhlAssert(const char* source, int line) {
    VhlDumpStack();
    const AssertHandler& h = Handler();
    if (h) {
        h(source ? source : "", line);
        return;
    }
    std::fprintf(stderr, "sigfile: assertion failed in %s line %d\n", source ? source : "?", line);
}

AssertHandler SetAssertHandler(AssertHandler handler) {
    AssertHandler old = std::move(Handler());
    Handler() = std::move(handler);
    return old;
}
