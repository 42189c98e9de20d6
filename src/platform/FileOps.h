// Whole-file operations used by the static file operations of the formats.
#pragma once

#include <functional>
#include <string>

#include "platform/Types.h"

// Called with bytes done and total; returning false stops the copy.
using CopyProgress = std::function<bool(ULONGLONG done, ULONGLONG total)>;

// Copies from to `to`, replacing it only when the copy is complete: the
// bytes go to a temporary file beside the target, which is flushed to the
// disk and renamed over it, and the folder is flushed.  Returns false with
// the thread's last error set on failure (nothing is left behind).
bool CopyFileReplace(const std::string& from, const std::string& to, const CopyProgress& progress = {});
// Renames, replacing the target; false with the last error set on failure.
bool MoveFileReplace(const std::string& from, const std::string& to);
// Flushes a folder's entries to the disk.
void FlushFolder(const std::string& folder);
// Deletes a file; false with the last error set on failure.
bool DeleteFileName(const std::string& name);
// Whether two names reach one existing file (same device and inode), whatever
// the spelling, links or folder shortcuts.  False when either is missing.
bool IsSameFile(const std::string& a, const std::string& b);
