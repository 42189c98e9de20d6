// Opens a file with CSigFile::Open (whatever its format) and writes what the
// library sees in it: OUT.json (format, notes, channels with their exact
// rates and ranges, record duration and count, annotations with onsets in
// seconds from the first sample) and OUT.f64 (every channel's values in
// volts, channel after channel, float64).  On failure OUT.json holds the
// error box's text.  Used by compare_realworld.py.
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "formats/edf/EdfDescribe.h"
#include "formats/edf/EdfExport.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "sigfile/SIGFILE.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: recording_dump FILE OUT\n");
        return 2;
    }
    const std::string out = argv[2];
    std::string box;
    SetMessageSink([&](const std::string& text, const std::string&) { box += FoldToOneLine(text); });
    nlohmann::json j;
    CSigFilePtr file(CSigFile::Open(argv[1], 1));
    if (!file) {
        j["ok"] = false;
        j["error"] = box;
        std::ofstream(out + ".json") << j.dump(1);
        return 0;
    }
    j["ok"] = true;
    j["format"] = file->GetFormat();
    CStringArray notes;
    file->GetFormatNotes(&notes);
    j["notes"] = nlohmann::json::array();
    for (int i = 0; i < notes.GetSize(); ++i) j["notes"].push_back(notes[i]);
    j["records"] = file->GetNumRecords();
    j["record_duration"] = file->GetRecordDuration();
    const CSDateTime origin = file->GetFileHeader()->GetCreationDateTime();

    std::ofstream values(out + ".f64", std::ios::binary);
    std::unique_ptr<CFmtSigRec> rec(file->CreateCompatibleFmtSigRec());
    const unsigned channels = file->GetNumChannels();
    std::vector<std::vector<double>> data(channels);
    for (long r = 0; r < file->GetNumRecords(); ++r) {
        file->MoveTo(r);
        if (!file->ReadAsVolts(rec.get())) {
            j["ok"] = false;
            j["error"] = "record " + std::to_string(r) + " unreadable";
            break;
        }
        for (unsigned c = 0; c < channels; ++c)
            for (unsigned s = 0; s < rec->GetNumSamples(c); ++s) data[c].push_back(rec->GetAt(c, s));
    }
    j["channels"] = nlohmann::json::array();
    for (unsigned c = 0; c < channels; ++c) {
        CSigChannelInfo info;
        file->GetChannelInfo(c, &info);
        j["channels"].push_back({{"label", info.label},
                                 {"unit", info.unit},
                                 {"frequency", info.frequency},
                                 {"samples", data[c].size()},
                                 {"physical_min", info.physicalMin},
                                 {"physical_max", info.physicalMax},
                                 {"digital_min", info.digitalMin},
                                 {"digital_max", info.digitalMax},
                                 {"bits", info.bits}});
        values.write(reinterpret_cast<const char*>(data[c].data()), std::streamsize(data[c].size() * sizeof(double)));
    }
    // Annotations with the text they had in the file.
    j["annotations"] = nlohmann::json::array();
    for (unsigned i = 0; i < file->GetNumStatusItems(); ++i) {
        const CStatusItem* item = file->GetStatusItemAt(i);
        const CStatusGroup* group = item->GetGroup();
        if (!group || EqualsNoCase(group->GetGroupID(), groupid::kDiscontinuity)) continue;
        std::string text;
        if (group->GetGroupType() == 4)
            text = item->GetComments().empty() ? edf::TextOfStageName(item->GetName()) : item->GetComments();
        else
            text = edf::AnnotationTextOf(group->GetGroupName(),
                                         EqualsNoCase(group->GetGroupID(), groupid::kAnnotation), item->GetName());
        const double onset = (item->GetBeginTime() - origin).GetTotalSeconds();
        const double duration = (item->GetEndTime() - item->GetBeginTime()).GetTotalSeconds();
        j["annotations"].push_back({{"onset", onset}, {"duration", duration}, {"text", text}});
    }
    std::ofstream(out + ".json") << j.dump(1);
    return 0;
}
