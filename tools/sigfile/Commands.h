// Subcommands of the sigfile program.  Each command file registers its
// subcommand on the application; the callback returns the exit status
// (0 success, 1 the operation failed, 2 bad usage).
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace sigfile_tool {

// Set by the subcommand's callback, returned by main.
extern int g_exitStatus;

void RegisterFormatCommand(CLI::App& app);
void RegisterSpectrumCommand(CLI::App& app);

// Describes a spectral file pair named by its ".SPC" or ".SPH" file on
// standard output, as text or as one JSON object; returns the exit status
// (0, or 1 with the French failure text on standard error).
int PrintSpectralInfo(const std::string& file, bool json);
void RegisterImportCommand(CLI::App& app);  // import IN.(edf|bdf) OUT.SIG [--resample]

void RegisterInfoCommands(CLI::App& app);     // info, events
void RegisterExportCommand(CLI::App& app);
void RegisterDemoCommand(CLI::App& app);
void RegisterCheckCommand(CLI::App& app);
void RegisterFileCommands(CLI::App& app);     // copy, rename, delete
void RegisterPlotCommands(CLI::App& app);     // plot page|hypnogram|spectrogram, report

// Prints one line per failure text on standard error.
void PrintError(const std::string& text);

}  // namespace sigfile_tool
