// What `sigfile info --json` and `sigfile events --json` print, shared with
// the Python module (whose Recording.info and events are the same objects).
#include <unistd.h>

#include <map>
#include <string>

#include "JsonSupport.h"
#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "records/SigCoDec.h"
#include "sigfile/SIGFILE.h"
#include "status/stsitm.h"

namespace sigfile_tool {

// Recording montage 0 (null without one).
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

namespace {

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

}  // namespace

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

// JSON text; a byte sequence that is not UTF-8 is replaced, never fatal.
std::string Dump(const Json& j) { return j.dump(2, ' ', false, Json::error_handler_t::replace); }

}  // namespace sigfile_tool
