// JSON pieces shared by the commands that print --json.
#pragma once

#include <nlohmann/json.hpp>

class CPatientInfo;

namespace sigfile_tool {

// Keys keep the order they are set in, as the documented outputs show them.
using Json = nlohmann::ordered_json;

// The "patient" object of the documented info output (an empty patient when
// null).
Json PatientJson(const CPatientInfo* patient);

}  // namespace sigfile_tool
