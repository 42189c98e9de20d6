// The library's assertion routine.  A failed precondition reports the source
// name and line through one replaceable handler and execution carries on.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <functional>

using AssertHandler = std::function<void(const char* source, int line)>;

// Reports a failed assertion through the current handler (default: one line
// on standard error).
void VhlAssert(const char* source, int line);
// Installs a handler and returns the previous one; a null handler restores
// the default.
AssertHandler SetAssertHandler(AssertHandler handler);
// Kept for callers that dump the stack before asserting; does nothing here.
inline void VhlDumpStack() {}

// Asserts cond, naming the source and line that the caller gives.
#define SF_ASSERT(cond, source, line)      \
    do {                                   \
        if (!(cond)) VhlAssert(source, line); \
    } while (0)
#pragma GCC visibility pop
