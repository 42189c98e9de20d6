// The sigfile command: a thin layer over the library's public API.
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>

#include "Commands.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/Support.h"

namespace sigfile_tool {
int g_exitStatus = 0;

void PrintError(const std::string& text) { std::fprintf(stderr, "%s\n", FoldToOneLine(text).c_str()); }
}  // namespace sigfile_tool

int main(int argc, char** argv) {
    using namespace sigfile_tool;
    CLI::App app{"sigfile: create, inspect and convert EEG/PSG recordings"};
    app.set_version_flag("--version", "sigfile " + VhlGetVersionText(2) + "." + VhlGetVersionText(3) + " (" +
                                          VhlGetVersionText(6) + ")");
    app.require_subcommand(1);
    app.fallthrough(false);

    // A write past the file size limit fails with an error the commands
    // report, instead of killing the process without a word.
    std::signal(SIGXFSZ, SIG_IGN);
    // Every message box of the library becomes one line on standard error.
    SetMessageSink([](const std::string& text, const std::string&) { PrintError(text); });

    RegisterFormatCommand(app);
    RegisterSpectrumCommand(app);
    RegisterImportCommand(app);
    RegisterInfoCommands(app);
    RegisterExportCommand(app);
    RegisterDemoCommand(app);
    RegisterCheckCommand(app);
    RegisterFileCommands(app);
    RegisterPlotCommands(app);

    try {
        app.parse(argc, argv);
    } catch (const CException& e) {
        // A failure that no command caught: the library's own text.
        PrintError(e.GetMessageText());
        return 1;
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const std::bad_alloc&) {
        std::string text;
        GetSystemErrorText(ERROR_NOT_ENOUGH_MEMORY, text);
        PrintError(text);
        return 1;
    } catch (const CLI::ParseError& e) {
        // Bad usage: what was wrong, then a usage line.
        std::fprintf(stderr, "%s\n", e.what());
        std::string name = "<command>";
        for (const CLI::App* sub : app.get_subcommands()) name = sub->get_name();
        std::fprintf(stderr, "usage: sigfile %s ... (see sigfile %s--help)\n", name.c_str(),
                     name == "<command>" ? "" : (name + " ").c_str());
        return 2;
    } catch (const std::exception& e) {
        PrintError(std::string("Erreur interne : ") + e.what());
        return 1;
    } catch (...) {
        PrintError(LoadResString(IDS_INTERNAL_ERROR));
        return 1;
    }
    return g_exitStatus;
}
