// JSON pieces shared by the commands that print --json.
#pragma once

#include <nlohmann/json.hpp>

#include <map>
#include <string>

class CPatientInfo;
class CRecordingMontage;
class CSigFile;
class CStatusGroup;
class CStatusItem;

namespace sigfile_tool {

// Keys keep the order they are set in, as the documented outputs show them.
using Json = nlohmann::ordered_json;

// The "patient" object of the documented info output (an empty patient when
// null).
Json PatientJson(const CPatientInfo* patient);

// The object of `sigfile info --json` for the open recording named `name`.
Json InfoJson(const std::string& name, CSigFile& file);
// One status item as `sigfile events --json` prints it.
Json EventJson(const CStatusItem& item);
// JSON text; a byte sequence that is not UTF-8 is replaced, never fatal.
std::string Dump(const Json& j);

// A float as the shortest decimal text that reads back as the same float,
// converted to double (so that 0.0032767f prints as 0.0032767).
double FloatForJson(float value);

// Recording montage 0 (null without one).
const CRecordingMontage* FirstRecordingMontage(const CSigFile& file);
// Seconds of signal: native recordings count in whole base-frequency
// samples, other formats give their own record duration.
double DurationSeconds(const CSigFile& file);
// Items of each status group.
std::map<const CStatusGroup*, unsigned> ItemsPerGroup(const CSigFile& file);
// The recording's write protection as a read-write open would find it.
bool IsWriteProtected(const CSigFile& file);

}  // namespace sigfile_tool
