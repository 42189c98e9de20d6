// Path helpers.  A name's "drive + folder + base name" is the path without
// its extension; the drive is always empty on POSIX systems.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>

#include "platform/Types.h"

std::string ExtractDrive(const std::string& path);
// Drive and folder with the trailing separator ("" for a bare name).
std::string ExtractDriveDir(const std::string& path);
// File name without folder and extension.
std::string ExtractFName(const std::string& path);
// Extension with its dot ("" when none).
std::string ExtractExt(const std::string& path);
// Drive + folder + base name.
std::string ExtractBase(const std::string& path);
// The path from the root: a relative path joined to the working folder,
// "." and ".." parts resolved (links are not followed).
std::string AbsolutePath(const std::string& path);
// Turns the '\\' separators of stored paths into '/'.
std::string NormalizeSeparators(const std::string& path);

bool VhlCheckFileExist(const std::string& path);
bool VhlCheckFolderExist(const std::string& path);
// Size in bytes; 0 for a missing file.
ULONGLONG VhlGetFileSize(const std::string& path);
// The user's folder: $SIGFILE_USER_DIR, else $XDG_CONFIG_HOME/sigfile, else
// ~/.config/sigfile; with a trailing separator.
std::string VhlGetUserPath();
#pragma GCC visibility pop
