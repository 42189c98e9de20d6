// Whole-file operations used by the static file operations of the formats.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <functional>
#include <string>
#include <vector>

#include "platform/Types.h"

// Called with bytes done and total; returning false stops the copy.
using CopyProgress = std::function<bool(ULONGLONG done, ULONGLONG total)>;

// Copies from to `to`, replacing it only when the copy is complete: the
// bytes go to a temporary file beside the target, which is flushed to the
// disk and renamed over it, and the folder is flushed.  Returns false with
// the thread's last error set on failure (nothing is left behind).
bool CopyFileReplace(const std::string& from, const std::string& to, const CopyProgress& progress = {});
// Copies the first `bytes` bytes of from to `to` the same way (false, with
// the last error ERROR_HANDLE_EOF, when from is shorter).
bool CopyFilePart(const std::string& from, const std::string& to, ULONGLONG bytes, const CopyProgress& progress = {});
// Renames, replacing the target; false with the last error set on failure.
bool MoveFileReplace(const std::string& from, const std::string& to);
// Flushes a folder's entries to the disk.
void FlushFolder(const std::string& folder);
// Deletes a file; false with the last error set on failure.
bool DeleteFileName(const std::string& name);
// Whether two names reach one existing file (same device and inode), whatever
// the spelling, links or folder shortcuts.  False when either is missing.
bool IsSameFile(const std::string& a, const std::string& b);

// ---------------------------------------------------------------------------
// Replacing a set of files all or nothing.
//
// A recording is several files (".SIG", ".STS", companions); rename alone
// cannot swap several files at once.  ReplaceFileSet does it with a journal:
//   1. the new files are complete and forced to the disk under temporary
//      names (the caller's part);
//   2. the journal (every rename "from -> to", and every file of the old set
//      to delete) is written beside the targets under a temporary name,
//      forced to the disk, renamed to its own name and the folder forced:
//      from that moment the replacement is decided;
//   3. the renames and deletions are carried out and the folder forced;
//   4. the journal is deleted and the folder forced.
// Killed before step 2 completes, the old files stand (the temporaries are
// leftovers, see IsLeftoverTemporary); killed after it, the next
// RecoverFileSet on the journal's name (every open and every file operation
// of a recording calls it) finishes the renames: a rename whose source is
// gone was already done.  The old set and the new set are thus never
// mixed, whatever instant the process dies at, and a completed replacement
// survives a power cut.
struct CFileMove {
    std::string from;  // empty: delete `to`
    std::string to;
};

// Carries out the moves through the journal `journal`.  False with the last
// error set when the journal could not be written (nothing was changed) or
// a move failed (the journal stays, for RecoverFileSet to finish).
bool ReplaceFileSet(const std::string& journal, const std::vector<CFileMove>& moves);
// Finishes a replacement that a dead process left half done; true when
// there was nothing to finish or it is finished.  A journal that is not
// complete (it never reached its own name) is ignored.
bool RecoverFileSet(const std::string& journal);
// True when the complete journal `journal` moves or deletes a file whose
// name, extension left out, is `base` (as source or as target).
bool FileSetJournalTouches(const std::string& journal, const std::string& base);

// A temporary name beside `target` that tells which process owns it:
// "<target base>~<tag><pid>" + extension of `target`.
std::string OwnedTemporaryName(const std::string& target, const char* tag);
// True when `name` is such a temporary of a process that no longer runs.
bool IsLeftoverTemporary(const std::string& name);
// Deletes the leftover temporaries (of dead processes) of the files whose
// base is `base`, in its folder; returns how many were deleted.
int CleanLeftoverTemporaries(const std::string& base);
#pragma GCC visibility pop
