// sigfile info FILE [--json]: what a recording holds.
// sigfile events FILE [--json]: its status items in file order.
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "Commands.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "JsonSupport.h"
#include "ToolSupport.h"
#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "records/SigCoDec.h"
#include "status/stsitm.h"

namespace sigfile_tool {
namespace {


struct FileOptions {
    std::string file;
    bool json = false;
};

void PrintInfoText(const std::string& name, CSigFile& file) {
    const unsigned format = GetSigFileFormat(name.c_str());
    std::printf("file:        %s\n", name.c_str());
    std::printf("format:      %u %s%s\n", format, GetSigFileFormatName(format),
                IsWriteProtected(file) ? " (read-only)" : "");
    if (const CFileHeader* h = file.GetFileHeader()) {
        std::printf("description: %s\n", h->GetFileDesc().c_str());
        std::printf("institution: %s\n", h->GetInstitution().c_str());
        std::printf("created:     %s by %s (last stored by %s)\n", h->GetCreationDateTime().ToIso().c_str(),
                    h->GetCreatedBy().c_str(), h->GetLastModifiedBy().c_str());
    }
    if (const CPatientInfo* p = file.GetPatientInfo())
        std::printf("patient:     %s %s, id %s, born %s, sex %u\n", p->GetFirstName().c_str(),
                    p->GetLastName().c_str(), p->GetPatientId1().c_str(), p->GetBirthDate().ToDateText().c_str(),
                    p->GetSex());
    const CRecordingMontage* rec0 = FirstRecordingMontage(file);
    std::printf("records:     %ld of %u samples at %u Hz, %u bytes each; %.3f s\n", file.GetNumRecords(),
                rec0 ? rec0->GetSamplesRecord() : 0, rec0 ? rec0->GetBaseFrequency() : 0,
                file.GetSigCoDec() ? file.GetSigCoDec()->GetCompRecSize() : 0, DurationSeconds(file));
    if (const CCalibration* c = file.GetCalibration())
        std::printf("calibration: %u channels, true frequency %g Hz, AD %d..%d = %g..%g V\n", c->GetNumChannels(),
                    c->GetTrueFrequency(), c->GetAdMin(), c->GetAdMax(), FloatForJson(c->GetVoltMin()),
                    FloatForJson(c->GetVoltMax()));
    const CPhysicalMontage* physical = file.GetPhysicalMontage();
    if (!physical) return;
    std::printf("physical montage \"%s\": %u electrodes\n", physical->GetMontageName(), physical->GetNumElectrodes());
    for (int m = 0; m < physical->GetNumRecordingMontages(); ++m) {
        const CRecordingMontage* rec = physical->GetRecordingMontageAt(m);
        if (!rec) continue;
        std::printf("recording montage %d \"%s\": %u channels\n", m, rec->GetMontageName(), rec->GetNumChannels());
        for (unsigned c = 0; c < rec->GetNumChannels(); ++c) {
            std::printf("  %-17s %4u Hz  %-6s %s", rec->GetLabel(c).c_str(), rec->GetFrequency(c),
                        VhlGetTraceTypeName(rec->GetType(c)), VhlGetUnitName(rec->GetUnit(c)));
            // What the file itself says, where the montage rounds it.
            CSigChannelInfo info;
            const unsigned channel = static_cast<unsigned>(m) * kMaxMontageChannels + c;
            if (file.GetFormat() != SIGFILE_FORMAT_NATIVE && file.GetChannelInfo(channel, &info))
                std::printf("   [%s, %.9g Hz, %s, %u bits]", info.label.c_str(), info.frequency, info.unit.c_str(),
                            info.bits);
            std::printf("\n");
        }
        for (unsigned r = 0; r < rec->GetNumReformatedMontages(); ++r) {
            const CReformatedMontage* ref = rec->GetReformatedMontageAt(r);
            if (ref)
                std::printf("  reformatted montage \"%s\": %u channels, %u globals\n", ref->GetMontageName(),
                            ref->GetNumChannels(), ref->GetNumGlobals());
        }
    }
    CStringArray notes;
    file.GetFormatNotes(&notes);
    for (int i = 0; i < notes.GetSize(); ++i) std::printf("tolerated:   %s\n", notes[i].c_str());
    const auto counts = ItemsPerGroup(file);
    std::printf("status groups: %u, events: %u\n", file.GetNumGroups(), file.GetNumStatusItems());
    for (unsigned g = 0; g < file.GetNumGroups(); ++g) {
        const CStatusGroup* group = file.GetGroupAt(g);
        if (!group) continue;
        auto it = counts.find(group);
        std::printf("  %-36s %-28s type %u extent %u: %u items\n", group->GetGroupID().c_str(),
                    group->GetGroupName().c_str(), group->GetGroupType(), group->GetGroupExtent(),
                    it == counts.end() ? 0u : it->second);
    }
}

void PrintEventText(const CStatusItem& item) {
    const CStatusGroup* group = item.GetGroup();
    const double seconds = (item.GetEndTime() - item.GetBeginTime()).GetTotalSeconds();
    char duration[32];
    std::snprintf(duration, sizeof duration, " %9.3f s", seconds);
    std::string line = item.GetBeginTime().ToIso() + duration + "  " +
                       (group ? group->GetGroupName() : std::string("?")) + ": " + item.GetName();
    if (!item.GetChannel().empty()) line += " [" + item.GetChannel() + "]";
    for (int p = 0; p < item.GetNumProperties(); ++p)
        line += " " + item.GetPropertyKeyAt(p) + "=" + item.GetPropertyValueAt(p);
    if (!item.GetComments().empty()) line += "  -- " + item.GetComments();
    std::printf("%s\n", line.c_str());
}

}  // namespace

void RegisterInfoCommands(CLI::App& app) {
    auto info = std::make_shared<FileOptions>();
    auto* cmd = app.add_subcommand("info", "describe a recording");
    cmd->add_option("FILE", info->file, "recording file")->required();
    cmd->add_flag("--json", info->json, "print one JSON object");
    cmd->callback([info] {
        // Spectral file pairs are described by their own reader.
        std::string ext = ToUpper(ExtractExt(info->file));
        if (ext == ".SPC" || ext == ".SPH") {
            g_exitStatus = PrintSpectralInfo(info->file, info->json);
            return;
        }
        SigFilePtr file = OpenForReading(info->file);
        if (!file) {
            g_exitStatus = 1;
            return;
        }
        if (info->json)
            std::printf("%s\n", Dump(InfoJson(info->file, *file)).c_str());
        else
            PrintInfoText(info->file, *file);
        g_exitStatus = 0;
    });

    auto events = std::make_shared<FileOptions>();
    cmd = app.add_subcommand("events", "list the status items of a recording");
    cmd->add_option("FILE", events->file, "recording file")->required();
    cmd->add_flag("--json", events->json, "print one JSON array");
    cmd->callback([events] {
        SigFilePtr file = OpenForReading(events->file);
        if (!file) {
            g_exitStatus = 1;
            return;
        }
        if (events->json) {
            Json all = Json::array();
            for (unsigned i = 0; i < file->GetNumStatusItems(); ++i)
                if (const CStatusItem* item = file->GetStatusItemAt(i)) all.push_back(EventJson(*item));
            std::printf("%s\n", Dump(all).c_str());
        } else {
            for (unsigned i = 0; i < file->GetNumStatusItems(); ++i)
                if (const CStatusItem* item = file->GetStatusItemAt(i)) PrintEventText(*item);
        }
        g_exitStatus = 0;
    });
}

}  // namespace sigfile_tool
