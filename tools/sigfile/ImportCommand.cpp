// sigfile import IN.(edf|bdf) OUT.SIG [--resample]: an EDF, EDF+, BDF or
// BDF+ file into a native recording.
#include "Commands.h"
#include "formats/edf/EdfImport.h"

namespace sigfile_tool {

void RegisterImportCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("import", "import an EDF, EDF+, BDF or BDF+ file into a native recording");
    static std::string in, out;
    static bool resample = false;
    cmd->add_option("IN", in, "EDF or BDF file")->required();
    cmd->add_option("OUT", out, "native recording to write (.SIG)")->required();
    cmd->add_flag("--resample", resample, "resample the signals whose rates do not fit a native recording");
    cmd->callback([] {
        edf::EdfImportOptions options;
        options.resample = resample;
        std::string error;
        if (edf::ImportEdf(in.c_str(), out.c_str(), options, &error)) {
            g_exitStatus = 0;
        } else {
            PrintError(error);
            g_exitStatus = 1;
        }
    });
}

}  // namespace sigfile_tool
