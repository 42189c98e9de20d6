// How the EDF family maps onto the shared object model, for the reader
// (CEdfSigFile) and the writers alike:
//
// - Labels: "EEG Fp1-A1" gives the trace type EEG (a leading word that names
//   a trace type), electrode 1 "Fp1" and electrode 2 "A1" (split at the
//   first '-'); "ECG" gives electrode 1 alone.  Formulas name a channel by
//   its electrode 1.  Duplicate labels get running suffixes ("-0", "-1"),
//   as the common readers do.
// - Annotations: a text "group: name" belongs to the group of that name
//   (a well-known group when the name is one, else a group of its own);
//   sleep-stage texts ("Sleep stage W", "Sleep stage 1".."4", "Sleep stage
//   R", "Sleep stage ?", the AASM spellings "Sleep stage N1".."N3" and
//   "Sleep stage REM"/"R") belong to the sleep-stage group under the
//   native stage names W, N1, N2, N3, N4, REM, "?"; any other text belongs
//   to the "Annotation" group.
#pragma once

#include <string>
#include <vector>

namespace edf {

struct LabelParts {
    std::string elec1, elec2;
    unsigned type = 0;  // trace type named by the label's first word, 0 when none
};

// Electrodes and type of one label (index gives "S<n>" to an empty label).
LabelParts SplitLabel(const std::string& label, size_t index);

// The labels made unique with running suffixes; `changed` (when given)
// receives the original labels that had duplicates.
std::vector<std::string> UniqueLabels(const std::vector<std::string>& labels, std::vector<std::string>* changed);

struct AnnotationTarget {
    std::string groupId;    // well-known id, or a stable id made from the group name
    std::string groupName;
    std::string itemName;
    unsigned groupType = 3;  // 3 events; 4 sleep stages
};

// The group and item name of an annotation text.
AnnotationTarget TargetOfAnnotation(const std::string& text);

// The native stage name of a sleep-stage text, "" when the text is none.
std::string StageNameOfText(const std::string& text);
// The annotation text of a native stage name ("Sleep stage W" ...).
std::string TextOfStageName(const std::string& name);

// A stable group id (GUID form) for a group name that is no well-known one.
std::string GroupIdOfName(const std::string& name);

}  // namespace edf
