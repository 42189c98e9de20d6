// sigfile import IN OUT.SIG [--resample] [--channel LABEL]...
//                           [--records A:B]
// sigfile import IN --events-into NIGHT.SIG
// A recording of any format the library reads (EDF, EDF+, BDF, BDF+, ...)
// into a native recording: the native format's create-copy.  With
// --events-into, only the status items of IN go into an existing recording,
// placed by their times.
#include <cstdio>

#include "Commands.h"
#include "ToolSupport.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "sigfile/FormatDriver.h"
#include "sigfile/StatusMerge.h"

namespace sigfile_tool {

namespace {
struct ImportOptions {
    std::string in, out, eventsInto;
    bool resample = false;
    std::vector<std::string> channels;
};

int RunEventsInto(const ImportOptions& opt) {
    SigFilePtr from = OpenForReading(opt.in);
    if (!from) return 1;
    long code = 0;
    SigFilePtr into(CSigFile::Open(opt.eventsInto.c_str(), 0, &code));
    if (!into) {
        CSigFile::ErrorMessageBox(opt.eventsInto.c_str(), code);
        return 1;
    }
    if (into->IsReadOnly()) {
        CSigFile::ErrorMessageBox(opt.eventsInto.c_str(), ERROR_ACCESS_DENIED);
        return 1;
    }
    std::string error;
    const long added = MergeStatusItems(*from, *into, &error);
    if (added < 0) {
        PrintError(error);
        return 1;
    }
    if (!into->Flush()) {
        CSigFile::ErrorMessageBox(opt.eventsInto.c_str(), into->GetIOError());
        return 1;
    }
    std::fprintf(stderr, "%ld événements ajoutés à %s\n", added, opt.eventsInto.c_str());
    return 0;
}
}  // namespace

void RegisterImportCommand(CLI::App& app) {
    auto opt = std::make_shared<ImportOptions>();
    auto* cmd = app.add_subcommand("import", "import a recording of any format (EDF, BDF ...) into a native recording");
    cmd->add_option("IN", opt->in, "recording to import")->required();
    cmd->add_option("OUT", opt->out, "native recording to write (.SIG)");
    cmd->add_flag("--resample", opt->resample, "resample the signals whose rates do not fit a native recording");
    cmd->add_option("--channel", opt->channels, "label of a signal to import (repeatable)")->allow_extra_args(false);
    cmd->add_option("--events-into", opt->eventsInto, "add IN's events to this existing recording instead");
    cmd->callback([opt] {
        if (!opt->eventsInto.empty()) {
            g_exitStatus = opt->out.empty() ? RunEventsInto(*opt) : 2;
            if (!opt->out.empty()) std::fprintf(stderr, "usage: sigfile import IN --events-into NIGHT.SIG\n");
            return;
        }
        if (opt->out.empty()) {
            std::fprintf(stderr, "usage: sigfile import IN OUT.SIG [--resample] [--channel LABEL]...\n");
            g_exitStatus = 2;
            return;
        }
        SigFilePtr file = OpenForReading(opt->in);
        if (!file) {
            g_exitStatus = 1;
            return;
        }
        std::vector<std::string> notes;
        CSigFileCopyOptions options;
        options.resample = opt->resample;
        options.channels = opt->channels;
        options.notes = &notes;
        std::string error;
        const CSigFileDriver* native = GetSigFileDriver(SIGFILE_FORMAT_NATIVE);
        ProgressInfoBar progress("import");
        const int ok = native->CreateCopy(file.get(), opt->out.c_str(), options, &error, &progress);
        progress.Finish();
        for (const std::string& n : notes) std::fprintf(stderr, "%s\n", n.c_str());
        if (!ok) PrintError(error);
        g_exitStatus = ok ? 0 : 1;
    });
}

}  // namespace sigfile_tool
