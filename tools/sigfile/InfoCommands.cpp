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

// Samples per record and base frequency of recording montage 0 (0 without one).
const CRecordingMontage* FirstRecordingMontage(const CSigFile& file) {
    const CPhysicalMontage* physical = file.GetPhysicalMontage();
    if (!physical || physical->GetNumRecordingMontages() == 0) return nullptr;
    return physical->GetRecordingMontageAt(0);
}

// Native recordings count in whole base-frequency samples; other formats
// give their own record duration (fractional rates, sub-hertz rates).
double DurationSeconds(const CSigFile& file) {
    if (file.GetFormat() != SIGFILE_FORMAT_NATIVE) return static_cast<double>(file.GetNumRecords()) * file.GetRecordDuration();
    const CRecordingMontage* rec = FirstRecordingMontage(file);
    if (!rec || rec->GetBaseFrequency() == 0) return 0.0;
    return static_cast<double>(file.GetNumRecords()) * rec->GetSamplesRecord() / rec->GetBaseFrequency();
}

// The file's own description of every record channel.
Json SignalsJson(const CSigFile& file) {
    Json signals = Json::array();
    for (unsigned c = 0; c < file.GetNumChannels(); ++c) {
        CSigChannelInfo info;
        if (!file.GetChannelInfo(c, &info)) continue;
        signals.push_back(Json{{"label", info.label},
                               {"unit", info.unit},
                               {"transducer", info.transducer},
                               {"prefilter", info.prefilter},
                               {"frequency", info.frequency},
                               {"physical_min", info.physicalMin},
                               {"physical_max", info.physicalMax},
                               {"digital_min", info.digitalMin},
                               {"digital_max", info.digitalMax},
                               {"bits", info.bits}});
    }
    return signals;
}

Json NotesJson(const CSigFile& file) {
    CStringArray notes;
    file.GetFormatNotes(&notes);
    Json j = Json::array();
    for (int i = 0; i < notes.GetSize(); ++i) j.push_back(notes[i]);
    return j;
}

Json HeaderJson(const CFileHeader* h) {
    Json j = Json::object();
    j["description"] = h ? h->GetFileDesc() : "";
    j["institution"] = h ? h->GetInstitution() : "";
    j["file_type"] = h ? h->GetFileType() : 0;
    j["created"] = h ? h->GetCreationDateTime().ToIso() : CSDateTime().ToIso();
    j["created_by"] = h ? h->GetCreatedBy() : "";
    j["last_modified_by"] = h ? h->GetLastModifiedBy() : "";
    return j;
}

Json CalibrationJson(const CCalibration* c) {
    Json j = Json::object();
    j["true_frequency"] = c ? c->GetTrueFrequency() : 0.0;
    j["ad_min"] = c ? c->GetAdMin() : 0;
    j["volt_min"] = FloatForJson(c ? c->GetVoltMin() : 0.0f);
    j["ad_max"] = c ? c->GetAdMax() : 0;
    j["volt_max"] = FloatForJson(c ? c->GetVoltMax() : 0.0f);
    j["channels"] = c ? c->GetNumChannels() : 0;
    return j;
}

Json ReformatedJson(const CReformatedMontage& ref) {
    Json j = Json::object();
    j["name"] = ref.GetMontageName();
    Json globals = Json::array();
    for (unsigned g = 0; g < ref.GetNumGlobals(); ++g)
        globals.push_back(Json{{"name", ref.GetGlobalName(g)}, {"formula", ref.GetGlobalFormula(g)}});
    j["globals"] = globals;
    Json channels = Json::array();
    for (unsigned c = 0; c < ref.GetNumChannels(); ++c)
        channels.push_back(Json{{"label", ref.GetLabel(c)},
                                {"formula", ref.GetFormula(c)},
                                {"frequency", ref.GetFrequency(c)},
                                {"type", ref.GetType(c)},
                                {"unit", ref.GetUnit(c)}});
    j["channels"] = channels;
    return j;
}

Json RecordingJson(const CRecordingMontage& rec) {
    Json j = Json::object();
    j["name"] = rec.GetMontageName();
    Json channels = Json::array();
    for (unsigned c = 0; c < rec.GetNumChannels(); ++c)
        channels.push_back(Json{{"label", rec.GetLabel(c)},
                                {"electrode1", rec.GetElectrodeName1(c)},
                                {"electrode2", rec.GetElectrodeName2(c)},
                                {"frequency", rec.GetFrequency(c)},
                                {"type", rec.GetType(c)},
                                {"unit", rec.GetUnit(c)},
                                {"samples_per_record", rec.GetSamplesChannel(c)}});
    j["channels"] = channels;
    Json refs = Json::array();
    for (unsigned r = 0; r < rec.GetNumReformatedMontages(); ++r)
        if (const CReformatedMontage* ref = rec.GetReformatedMontageAt(r)) refs.push_back(ReformatedJson(*ref));
    j["reformatted_montages"] = refs;
    return j;
}

std::map<const CStatusGroup*, unsigned> ItemsPerGroup(const CSigFile& file) {
    std::map<const CStatusGroup*, unsigned> counts;
    for (unsigned i = 0; i < file.GetNumStatusItems(); ++i)
        if (const CStatusItem* item = file.GetStatusItemAt(i)) ++counts[item->GetGroup()];
    return counts;
}

// The recording's write protection as a read-write open would find it: the
// command itself only reads and never takes the writer's lock.
bool IsWriteProtected(const CSigFile& file) { return ::access(file.GetFileName(), W_OK) != 0; }

Json InfoJson(const std::string& name, CSigFile& file) {
    Json j = Json::object();
    j["file"] = name;
    j["format"] = GetSigFileFormat(name.c_str());
    j["read_only"] = IsWriteProtected(file);
    j["header"] = HeaderJson(file.GetFileHeader());
    j["patient"] = PatientJson(file.GetPatientInfo());
    j["calibration"] = CalibrationJson(file.GetCalibration());
    const CRecordingMontage* rec0 = FirstRecordingMontage(file);
    j["records"] = file.GetNumRecords();
    j["samples_per_record"] = rec0 ? rec0->GetSamplesRecord() : 0;
    j["base_frequency"] = rec0 ? rec0->GetBaseFrequency() : 0;
    j["record_size"] = file.GetSigCoDec() ? file.GetSigCoDec()->GetCompRecSize() : 0;
    j["duration_s"] = DurationSeconds(file);
    j["format_name"] = GetSigFileFormatName(file.GetFormat());
    j["record_duration_s"] = file.GetRecordDuration();
    j["signals"] = SignalsJson(file);
    j["notes"] = NotesJson(file);

    const CPhysicalMontage* physical = file.GetPhysicalMontage();
    Json pm = Json::object();
    pm["name"] = physical ? physical->GetMontageName() : "";
    Json electrodes = Json::array();
    for (unsigned e = 0; physical && e < physical->GetNumElectrodes(); ++e)
        electrodes.push_back(physical->GetElectrodeName(e));
    pm["electrodes"] = electrodes;
    j["physical_montage"] = pm;

    Json recs = Json::array();
    for (int m = 0; physical && m < physical->GetNumRecordingMontages(); ++m)
        if (const CRecordingMontage* rec = physical->GetRecordingMontageAt(m)) recs.push_back(RecordingJson(*rec));
    j["recording_montages"] = recs;

    const auto counts = ItemsPerGroup(file);
    Json groups = Json::array();
    for (unsigned g = 0; g < file.GetNumGroups(); ++g) {
        const CStatusGroup* group = file.GetGroupAt(g);
        if (!group) continue;
        auto it = counts.find(group);
        groups.push_back(Json{{"id", group->GetGroupID()},
                              {"name", group->GetGroupName()},
                              {"type", group->GetGroupType()},
                              {"extent", group->GetGroupExtent()},
                              {"items", it == counts.end() ? 0u : it->second}});
    }
    j["groups"] = groups;
    j["events"] = file.GetNumStatusItems();
    return j;
}

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

Json EventJson(const CStatusItem& item) {
    const CStatusGroup* group = item.GetGroup();
    Json j = Json::object();
    j["group_id"] = group ? group->GetGroupID() : "";
    j["group"] = group ? group->GetGroupName() : "";
    j["name"] = item.GetName();
    j["channel"] = item.GetChannel();
    j["begin_sample"] = item.GetBeginSample();
    j["end_sample"] = item.GetEndSample();
    j["begin"] = item.GetBeginTime().ToIso();
    j["end"] = item.GetEndTime().ToIso();
    j["comments"] = item.GetComments();
    j["color"] = item.GetColor();
    Json props = Json::object();
    for (int p = 0; p < item.GetNumProperties(); ++p) props[item.GetPropertyKeyAt(p)] = item.GetPropertyValueAt(p);
    j["properties"] = props;
    return j;
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

// JSON text; a byte sequence that is not UTF-8 is replaced, never fatal.
std::string Dump(const Json& j) { return j.dump(2, ' ', false, Json::error_handler_t::replace); }

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
