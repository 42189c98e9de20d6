// sigfile copy FROM TO, sigfile rename FROM TO, sigfile delete FILE: the
// static file operations of the library.  A failure shows the French system
// text of the thread's last error through the library's error box.
#include <memory>
#include <string>

#include "Commands.h"
#include "ToolSupport.h"
#include "platform/Messages.h"
#include "platform/Strings.h"

namespace sigfile_tool {
namespace {

struct TwoNames {
    std::string from;
    std::string to;
};

// The error box of a failed static operation: the last error, or "invalid
// format" when the library gave none (a file of no known format).
int Failed(const std::string& name) {
    long code = GetLastError();
    CSigFile::ErrorMessageBox(name.c_str(), code ? code : ERROR_BAD_FORMAT);
    return 1;
}

}  // namespace

void RegisterFileCommands(CLI::App& app) {
    auto copy = std::make_shared<TwoNames>();
    auto* cmd = app.add_subcommand("copy", "copy a recording with all its files");
    cmd->add_option("FROM", copy->from, "recording to copy")->required();
    cmd->add_option("TO", copy->to, "name of the copy")->required();
    cmd->callback([copy] {
        SetLastError(0);
        ProgressInfoBar progress("copy");
        int ok = CSigFile::Copy(copy->from.c_str(), copy->to.c_str(), &progress);
        progress.Finish();
        if (!ok && GetLastError() == 0 && EqualsNoCase(copy->from, copy->to))
            SetLastError(ERROR_INVALID_PARAMETER);  // a copy onto itself
        g_exitStatus = ok ? 0 : Failed(copy->from);
    });

    auto rename = std::make_shared<TwoNames>();
    cmd = app.add_subcommand("rename", "rename a recording with all its files");
    cmd->add_option("FROM", rename->from, "recording to rename")->required();
    cmd->add_option("TO", rename->to, "new name")->required();
    cmd->callback([rename] {
        SetLastError(0);
        g_exitStatus = CSigFile::Rename(rename->from.c_str(), rename->to.c_str()) ? 0 : Failed(rename->from);
    });

    auto del = std::make_shared<std::string>();
    cmd = app.add_subcommand("delete", "delete a recording with all its files");
    cmd->add_option("FILE", *del, "recording to delete")->required();
    cmd->callback([del] {
        SetLastError(0);
        g_exitStatus = CSigFile::Delete(del->c_str()) ? 0 : Failed(*del);
    });
}

}  // namespace sigfile_tool
