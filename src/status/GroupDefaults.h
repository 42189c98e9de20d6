// The well-known status groups: their ids, default names and descriptions,
// the descriptions of their properties, and the section group that a
// detection group produces.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

namespace groupid {
// Events and sections of every recording.
inline constexpr const char* kGeneric = "AAAAAAAA-1796-405F-8D4A-BAFC8E385163";
inline constexpr const char* kDiscontinuity = "6F80B696-F252-4D4E-8B70-CCBBA0AB2374";
inline constexpr const char* kSampleSection = "3B105C44-0417-4B59-9B0A-5E6AC9291806";
inline constexpr const char* kCalibrationSection = "566C42BA-7D61-4E14-B164-A6C0E292EA63";
inline constexpr const char* kPushButtonSection = "8115D6F8-FD9B-4673-AA6D-59B7369F162F";
inline constexpr const char* kScheduledSection = "D6B6E847-9C5D-4431-AE2F-CAB75A0038D7";
inline constexpr const char* kAnnotation = "99E65CBA-9E82-417A-90A7-B398116464A2";
inline constexpr const char* kBookmarks = "8D1996CC-55A2-41B7-9477-839A46DE2ABE";
inline constexpr const char* kTracesAsObserved = "1A81FC5E-4022-44FF-9ABC-483925EF8D19";
inline constexpr const char* kCalibrationLabel = "AA5870D6-55DC-41AA-BDDA-3A896B5A18CE";
inline constexpr const char* kTrigger = "63544DA0-06A1-41FF-83D1-F29FC461A626";
inline constexpr const char* kArtifact = "6364BEB1-8A23-44E7-B88C-7D4215798BF4";
inline constexpr const char* kQrs = "B84BF696-41A1-4E8A-BD4C-F392438EBCCA";
inline constexpr const char* kRespiratoryPap = "E3A05804-7216-48B6-8A42-A6DCFB4F316A";
inline constexpr const char* kRespiratory = "D8E7DF46-3544-41CB-9DE2-2515CE21DF00";
inline constexpr const char* kDesaturation = "5ACE8890-EB72-40CC-A12A-DA69F21E973A";
inline constexpr const char* kPeriodicLimbMovement = "59F36BAB-4E6B-4A8C-9497-921D9B52DCB1";
inline constexpr const char* kLimbMovement = "A34936D9-C413-4D2A-96BD-191F064DA64D";
inline constexpr const char* kSpindle = "258EE925-A6B1-11d1-8B40-008029ED91B7";  // lower-case d kept
inline constexpr const char* kHeartRate = "6A163030-677E-4A2C-8837-807FC1D22977";
inline constexpr const char* kHeartRateOther = "DBD37A8A-B0C4-4133-ABFC-22EE12224674";
inline constexpr const char* kSleepStages = "F4B8F3EE-8AC2-4EFC-BC86-2A55AF130A6C";
inline constexpr const char* kHyperventilation = "725824B1-4822-40CA-A017-F4B7E4D06D28";
inline constexpr const char* kPostHyperventilation = "20E29563-73B4-4B07-BD29-1E7B724DE98D";
inline constexpr const char* kPushButtonDetection = "5417524E-7EDD-4E6F-911A-224C22D744EE";
// Detections and the section groups that their runs produce.
inline constexpr const char* kEpiDetection = "E71D816D-D7AC-44A5-BFD5-839DA8BEC476";
inline constexpr const char* kRhythmDetection = "3043C123-5BA0-45AC-BB8A-15508A89B917";
inline constexpr const char* kEpiRhythmSection = "7BC1900E-1F1A-493E-9A39-EA6E7A59EC8D";
inline constexpr const char* kMultiSpikeDetection = "7964574F-B07A-4C90-9E8C-D67987F2C1CD";
inline constexpr const char* kMultiSpikeSection = "CA3503F6-A310-428B-8EC1-BC9CE237A45C";
inline constexpr const char* kSpikeStateDetection = "BC131598-1F0C-434F-9535-E22388E3C7AE";
inline constexpr const char* kSpikeStateSection = "C2B5B91E-AFCD-4FE5-BFF5-84CF2B74B42F";
inline constexpr const char* kSpikeDetection = "D9CC7293-33EC-4090-8AE7-740D9A074B11";
inline constexpr const char* kSpikeDerDetection = "6F69D0AB-5C98-496C-81F7-577C816CFF6F";
inline constexpr const char* kSpikeSection = "232B1F0E-D9CB-4307-A22D-DA11A500A484";
inline constexpr const char* kSeizureDetection = "75FE095C-4CB8-4EC5-95D5-D7CD26FBFC5C";
inline constexpr const char* kSeizureSection = "F902F02B-C627-4CD4-8EA4-5FCA871CC3E0";
// Notes kept with a recording whose time may lie outside it (entered
// before the start or after the end of acquisition): their sample positions
// are not checked against the recording.
inline constexpr const char* kOffRecordingNotes = "412A523B-F05D-4848-B5F8-05E577A2BDEB";
// A group without items whose properties keep how a converted recording's
// channels were described in the file they came from ("CH<n>" = montage
// label, label, dimension and transducer, separated by 0x1F), so that a
// conversion back writes them as they were.  It also keeps the source's
// record duration ("SOURCE_RECORD_S", seconds) and the records that hold
// signal in their first samples only ("PARTIAL", "record:samples" pairs).
inline constexpr const char* kChannelDescriptions = "C3E1A7D2-5B64-4F0A-9D8E-17B2F4A6C905";
}  // namespace groupid

// Keys of the channel descriptions group's conversion properties.
inline constexpr const char* kSourceRecordKey = "SOURCE_RECORD_S";
inline constexpr const char* kPartialRecordsKey = "PARTIAL";

// Default name and description of a well-known group ("" for any other id).
CString GetDefaultGroupName(const char* groupId);
CString GetDefaultGroupDesc(const char* groupId);
// Description of a group or item property key of a group; known keys have
// the same meaning in every group, so the id only matters for unknown keys
// (which give "").
CString GetGroupPropertyDesc(const char* groupId, const char* key);
// Id of the section group that a run of a detection group produces, "" when
// the group produces none.
CString GetDependentGroupId(const char* groupId);
// True when the id is one of the well-known ids (compared without regard to
// case).
bool IsWellKnownGroupId(const char* groupId);
#pragma GCC visibility pop
