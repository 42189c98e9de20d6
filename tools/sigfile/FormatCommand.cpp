// sigfile format FILE: the format number and its name.
#include <cstdio>

#include "Commands.h"
#include "sigfile/SIGFILE.h"

namespace sigfile_tool {

void RegisterFormatCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("format", "print the format number and name of a file");
    static std::string file;
    cmd->add_option("FILE", file, "recording file")->required();
    cmd->callback([] {
        unsigned format = GetSigFileFormat(file.c_str());
        std::printf("%u %s\n", format, GetSigFileFormatName(format));
        g_exitStatus = 0;
    });
}

}  // namespace sigfile_tool
