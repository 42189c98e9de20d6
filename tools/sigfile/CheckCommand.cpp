// sigfile check FILE: opens with the 24-hour rule, checks the status items,
// reads every record, and says what it found.  Exit status 1 when anything
// is wrong.
#include <cstdio>
#include <memory>
#include <string>

#include "Commands.h"
#include "ToolSupport.h"
#include "platform/Strings.h"
#include "records/SigRec.h"
#include "status/StatusCheck.h"

namespace sigfile_tool {
namespace {

int RunCheck(const std::string& name) {
    SigFilePtr file = OpenForReading(name, 1);
    if (!file) return 1;
    const unsigned format = GetSigFileFormat(name.c_str());
    std::printf("format %u %s: %ld records, %u channels, %u status groups, %u events\n", format,
                GetSigFileFormatName(format), file->GetNumRecords(), file->GetNumChannels(), file->GetNumGroups(),
                file->GetNumStatusItems());
    std::printf("duration: within 24 hours\n");
    // What opening tolerated: departures of the file from its format's standard.
    CStringArray notes;
    file->GetFormatNotes(&notes);
    // A native recording has no standard to depart from: what its opening
    // found amiss is a problem of the recording.
    const bool native = file->GetFormat() == SIGFILE_FORMAT_NATIVE;
    for (int i = 0; i < notes.GetSize(); ++i) std::printf("%s: %s\n", native ? "problem" : "tolerated", notes[i].c_str());

    int problems = native ? notes.GetSize() : 0;
    CStringArray findings;
    if (!ValidateStatusItems(file.get(), &findings)) {
        for (int i = 0; i < findings.GetSize(); ++i) std::printf("%s\n", findings[i].c_str());
        problems += findings.GetSize() > 0 ? findings.GetSize() : 1;
        std::printf("status items: %d problems\n", findings.GetSize());
    } else {
        std::printf("status items: consistent\n");
    }

    std::unique_ptr<CRawSigRec> rec(file->CreateCompatibleRawSigRec());
    const long count = file->GetNumRecords();
    long unreadable = 0, outOfOrder = 0;
    CSDateTime previous;
    ProgressBar bar("check", static_cast<unsigned long long>(count));
    for (long r = 0; r < count; ++r) {
        file->MoveTo(r);
        if (!rec || !file->Read(rec.get())) {
            if (++unreadable <= 20) std::printf("record %ld: unreadable\n", r);
        } else {
            // Records follow one another in time.
            if (r > 0 && rec->GetTime() <= previous && ++outOfOrder <= 20)
                std::printf("record %ld: time %s not after the previous record's\n", r, rec->GetTime().ToIso().c_str());
            previous = rec->GetTime();
        }
        bar.Update(static_cast<unsigned long long>(r + 1));
    }
    bar.Finish();
    std::printf("records: %ld read, %ld unreadable, %ld out of time order\n", count - unreadable, unreadable,
                outOfOrder);
    problems += static_cast<int>(unreadable + outOfOrder);
    if (file->IsIOError()) {
        CSigFile::ErrorMessageBox(name.c_str(), file->GetIOError());
        ++problems;
    }
    std::printf("%s\n", problems ? "problems found" : "no problem found");
    return problems ? 1 : 0;
}

}  // namespace

void RegisterCheckCommand(CLI::App& app) {
    auto file = std::make_shared<std::string>();
    auto* cmd = app.add_subcommand("check", "check a recording: duration, status items, every record");
    cmd->add_option("FILE", *file, "recording file")->required();
    cmd->callback([file] { g_exitStatus = RunCheck(*file); });
}

}  // namespace sigfile_tool
