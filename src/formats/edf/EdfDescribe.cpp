#include "formats/edf/EdfDescribe.h"

#include <algorithm>
#include <map>
#include <set>

#include "formats/edf/EdfExport.h"
#include "formats/edf/EdfNative.h"
#include "platform/Strings.h"
#include "status/GroupDefaults.h"

namespace edf {

LabelParts SplitLabel(const std::string& label, size_t index) {
    LabelParts p;
    std::string rest = label;
    const size_t space = rest.find(' ');
    if (space != std::string::npos) {
        if (const unsigned type = TypeCodeOfText(rest.substr(0, space))) {
            const size_t next = rest.find_first_not_of(' ', space);
            p.type = type;
            rest = next == std::string::npos ? std::string() : rest.substr(next);
        }
    }
    const size_t dash = rest.find('-');
    if (dash != std::string::npos && dash > 0 && dash + 1 < rest.size()) {
        p.elec1 = rest.substr(0, dash);
        p.elec2 = rest.substr(dash + 1);
    } else {
        p.elec1 = rest;
    }
    if (p.elec1.empty()) p.elec1 = StrFormat("S%zu", index + 1);
    // Brackets name electrode groups in a physical montage.
    for (std::string* e : {&p.elec1, &p.elec2})
        std::replace_if(e->begin(), e->end(), [](char c) { return c == '[' || c == ']'; }, '_');
    return p;
}

std::vector<std::string> UniqueLabels(const std::vector<std::string>& labels, std::vector<std::string>* changed) {
    std::map<std::string, int> count;
    for (const std::string& l : labels) ++count[l];
    std::vector<std::string> out = labels;
    std::set<std::string> taken(labels.begin(), labels.end());
    std::map<std::string, int> seen;
    for (std::string& l : out) {
        if (count[l] < 2) continue;
        const std::string stem = l;
        if (changed && seen[stem] == 0) changed->push_back(stem);
        // The running number first, then letters, as long as the name is taken.
        std::string candidate = stem + "-" + std::to_string(seen[stem]);
        for (char c = 'a'; taken.count(candidate) && c <= 'z'; ++c) candidate = stem + "-" + std::string(1, c);
        ++seen[stem];
        taken.insert(candidate);
        l = candidate;
    }
    return out;
}

namespace {

const char* const kKnownGroups[] = {
    groupid::kAnnotation,       groupid::kBookmarks,   groupid::kTracesAsObserved, groupid::kSleepStages,
    groupid::kArtifact,         groupid::kRespiratory, groupid::kDesaturation,     groupid::kLimbMovement,
    groupid::kSpindle,          groupid::kSampleSection, groupid::kTrigger,        groupid::kCalibrationLabel,
    groupid::kHyperventilation, groupid::kPostHyperventilation, groupid::kOffRecordingNotes,
    groupid::kDiscontinuity,    groupid::kPeriodicLimbMovement, groupid::kQrs,     groupid::kHeartRate,
    groupid::kRespiratoryPap};

std::string KnownGroupId(const std::string& name) {
    for (const char* id : kKnownGroups)
        if (GetDefaultGroupName(id) == name) return id;
    return {};
}

struct StageSpelling {
    const char* text;  // after "Sleep stage ", compared without regard to case
    const char* name;
};
const StageSpelling kStages[] = {{"W", "W"},   {"Wake", "W"}, {"1", "N1"}, {"N1", "N1"},  {"2", "N2"},
                                 {"N2", "N2"}, {"3", "N3"},   {"N3", "N3"}, {"4", "N4"},  {"N4", "N4"},
                                 {"R", "REM"}, {"REM", "REM"}, {"?", "?"}};

}  // namespace

std::string StageNameOfText(const std::string& text) {
    static const std::string kPrefix = "sleep stage ";
    if (text.size() <= kPrefix.size() || !EqualsNoCase(text.substr(0, kPrefix.size()), kPrefix)) return {};
    const std::string rest = text.substr(kPrefix.size());
    for (const StageSpelling& s : kStages)
        if (EqualsNoCase(rest, s.text)) return s.name;
    return {};
}

std::string TextOfStageName(const std::string& name) {
    if (name == "W") return "Sleep stage W";
    if (name == "REM" || name == "R") return "Sleep stage R";
    if (name.size() == 2 && name[0] == 'N' && name[1] >= '1' && name[1] <= '4') return "Sleep stage " + name;
    return "Sleep stage " + name;
}

std::string GroupIdOfName(const std::string& name) {
    unsigned long long h = 1469598103934665603ull, g = 1099511628211ull;
    for (unsigned char c : name) {
        h = (h ^ c) * 1099511628211ull;
        g = (g ^ c) * 6364136223846793005ull + 1442695040888963407ull;
    }
    return StrFormat("%08X-%04X-%04X-%04X-%012llX", unsigned(h >> 32), unsigned(h >> 16) & 0xFFFF,
                     unsigned(h) & 0xFFFF, unsigned(g >> 48), g & 0xFFFFFFFFFFFFull);
}

AnnotationTarget TargetOfAnnotation(const std::string& text) {
    AnnotationTarget t;
    const std::string stage = StageNameOfText(text);
    if (!stage.empty()) {
        t.groupId = groupid::kSleepStages;
        t.groupName = GetDefaultGroupName(groupid::kSleepStages);
        t.itemName = stage;
        t.groupType = 4;
        return t;
    }
    std::string group, name;
    SplitAnnotationText(text, group, name);
    if (group.empty()) group = GetDefaultGroupName(groupid::kAnnotation);
    t.groupName = group;
    t.itemName = name;
    t.groupId = KnownGroupId(group);
    if (t.groupId.empty()) t.groupId = GroupIdOfName(group);
    if (t.groupId == groupid::kSleepStages) t.groupType = 4;
    if (t.groupId == groupid::kDiscontinuity) t.groupType = 0;
    return t;
}

}  // namespace edf
