// Messages: the French string table, system error codes and their texts, the
// thread's last error, and the message sink through which every message box
// goes.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <functional>
#include <string>

#include "platform/Types.h"

// String table ids used by the library.
enum : UINT {
    IDS_UNIT_METER = 5,
    IDS_UNIT_FEET = 6,
    IDS_UNIT_INCH = 7,
    IDS_UNIT_KG = 8,
    IDS_UNIT_POUND = 9,
    IDS_UNIT_OUNCE = 10,
    IDS_ERR_INVALID_FORMAT = 16,
    IDS_ERR_CODE = 17,
    IDS_ERR_FILE_BOX = 18,
    IDS_ERR_24_HOURS = 21,
    IDS_AT = 23440,
    IDS_INTERNAL_ERROR = 23441,
    IDS_RFMT_UNKNOWN_ID = 23442,
    IDS_RFMT_EXPECTED = 23443,
    IDS_RFMT_UNKNOWN_CHAR = 23444,
    IDS_RFMT_CONSTANT_EXPECTED = 23445,
    IDS_RFMT_SAME_REFERENCE = 23446,
    IDS_RFMT_SAME_SAMPLES = 23447,
    IDS_RFMT_SAME_FREQUENCY = 23448,
    IDS_RFMT_SAME_TYPE = 23449,
    IDS_RFMT_SAME_UNIT = 23450,
    IDS_RFMT_BAD_ARGUMENT = 23451,
    IDS_RFMT_MISSING_OPERAND = 23452,
    IDS_RFMT_INTERNAL = 23453,
    IDS_RFMT_WARNING = 23454,
    IDS_RFMT_CANNOT_COMPILE = 23455,
    IDS_RFMT_BAD_MACRO_NAME = 23456,
    IDS_RFMT_INCOMPLETE = 23457,
    IDS_FILTERS_INCOMPATIBLE = 23458,
};

// The UTF-8 text of a string table entry; empty for an unknown id.
const std::string& LoadResString(UINT id);

// System error codes as the library reports them.
enum : long {
    ERROR_SUCCESS = 0,
    ERROR_INVALID_FUNCTION = 1,
    ERROR_FILE_NOT_FOUND = 2,
    ERROR_PATH_NOT_FOUND = 3,
    ERROR_TOO_MANY_OPEN_FILES = 4,
    ERROR_ACCESS_DENIED = 5,
    ERROR_INVALID_HANDLE = 6,
    ERROR_NOT_ENOUGH_MEMORY = 8,
    ERROR_BAD_FORMAT = 11,
    ERROR_WRITE_PROTECT = 19,
    ERROR_BAD_LENGTH = 24,
    ERROR_SEEK = 25,
    ERROR_WRITE_FAULT = 29,
    ERROR_READ_FAULT = 30,
    ERROR_GEN_FAILURE = 31,
    ERROR_SHARING_VIOLATION = 32,
    ERROR_LOCK_VIOLATION = 33,
    ERROR_HANDLE_EOF = 38,
    ERROR_NOT_SUPPORTED = 50,
    ERROR_FILE_EXISTS = 80,
    ERROR_INVALID_PARAMETER = 87,
    ERROR_DISK_FULL = 112,
    ERROR_INVALID_NAME = 123,
    ERROR_DIR_NOT_EMPTY = 145,
    ERROR_ALREADY_EXISTS = 183,
    ERROR_FILENAME_EXCED_RANGE = 206,
};

// Maps an errno value to the system error code.
long ErrnoToSystemError(int err);
// The French system text of a code; false when the library has none.
bool GetSystemErrorText(long code, std::string& text);

// The calling thread's last system error.
void SetLastError(long code);
long GetLastError();
// A French text that says more about a failure of the given code (the field
// of a file that a reader refused, say), kept per thread until the next
// SetLastErrorDetail; the error box of that code shows it after its own
// text.  An empty text clears it.
void SetLastErrorDetail(long code, const std::string& text);
// The detail kept for code, "" when none.
std::string GetLastErrorDetail(long code);

// Message boxes.  The sink receives the text and the caption of one box.
using MessageSink = std::function<void(const std::string& text, const std::string& caption)>;
// Installs a sink and returns the previous one; null restores the default
// (one message per box on standard error).
MessageSink SetMessageSink(MessageSink sink);
// The text of a box on one line: runs of line breaks become one space.
std::string FoldToOneLine(const std::string& text);
// Shows a box with an OK button through the sink; returns 1 (OK).
int AfxMessageBox(const std::string& text, const std::string& caption = "");
#pragma GCC visibility pop
