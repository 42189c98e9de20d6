// Writing a native recording from arrays (sigfile.create).
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Recording.h"

namespace sigfile_python {

struct CreateEvent {
    double onset = 0;      // seconds from the start
    double duration = 0;   // seconds
    std::string description;
    std::string kind;      // "annotation" or "sleep_stage"
};

struct CreateRequest {
    std::string path;
    std::vector<std::vector<float>> data;  // one array per channel, in its unit
    std::vector<double> rates;
    std::vector<std::string> labels;
    std::vector<std::string> units;        // "V", "uV", "%" ...; empty: volts
    std::vector<std::string> types;        // trace type names ("EEG", "EOG" ...); empty: by label
    std::string start;                     // ISO date and time
    std::string description;
    std::map<std::string, std::string> patient;
    std::vector<CreateEvent> events;
};

// Writes the recording, replacing an existing one only when complete;
// raises LibraryError on failure.
void CreateRecording(const CreateRequest& request);

}  // namespace sigfile_python
