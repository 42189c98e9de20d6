// The EDF family of open exchange formats: EDF and EDF+ (16-bit samples) and
// BDF and BDF+ (24-bit samples).  This header holds the plain data model
// shared by the writer and the reader, and the text helpers of the fixed-width
// ASCII header.
//
// File layout: a 256-byte header, then 256 bytes per signal (each field of
// every signal stored together, signal after signal), then the data records.
// A data record holds, signal after signal, that signal's samples of the
// record, little-endian two's complement (2 bytes for EDF, 3 for BDF).
//
// The "+" variants add one annotation signal, labelled "EDF Annotations"
// (EDF+) or "BDF Annotations" (BDF+; the common readers, MNE-Python among
// them, accept either label in either format, and so does ours), whose bytes
// hold time-stamped annotation lists (TALs):
//   "+onset" [0x15 "duration"] 0x14 "text" 0x14 ... 0x00
// The first TAL of every record is a time-keeping TAL with an empty text
// ("+12.5" 0x14 0x14 0x00): the record's start in seconds from the header's
// start date and time.  "EDF+C" / "BDF+C" in the reserved field says the
// records follow one another without gaps; "EDF+D" / "BDF+D" that they may
// not, the time-keeping TALs then giving each record's start.
//
// The pieces: EdfWriter (EdfWriter.h) writes a file record by record;
// EdfReader (EdfReader.h) checks and reads one; CEdfSigFile (EdfSigFile.h)
// opens one as a recording; CreateEdfCopy (EdfExport.h) writes any open
// recording as EDF+ or BDF+; EdfDescribe.h maps labels and annotations onto
// the object model.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/DateTime.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "platform/Types.h"
#include "platform/strings/EdfStrings.h"

namespace edf {

// A French text of the string table with its printf-style fields filled in.
template <typename... Args>
std::string EdfMsg(UINT id, Args... args) {
    return StrFormat(LoadResString(id).c_str(), args...);
}

enum class EdfFormat { Edf, EdfPlus, Bdf, BdfPlus };

inline bool IsBdf(EdfFormat f) { return f == EdfFormat::Bdf || f == EdfFormat::BdfPlus; }
inline bool IsPlus(EdfFormat f) { return f == EdfFormat::EdfPlus || f == EdfFormat::BdfPlus; }
// Bytes of one sample: 2 (EDF) or 3 (BDF).
inline int SampleBytes(EdfFormat f) { return IsBdf(f) ? 3 : 2; }
// The digital limits of the format.
inline LONG DigitalLimitMin(EdfFormat f) { return IsBdf(f) ? -8388608 : -32768; }
inline LONG DigitalLimitMax(EdfFormat f) { return IsBdf(f) ? 8388607 : 32767; }
// The label of the annotation signal the writer gives.
inline const char* AnnotationLabel(EdfFormat f) { return IsBdf(f) ? "BDF Annotations" : "EDF Annotations"; }

// Patient identification subfields: "code sex birthdate name".  Empty texts
// (and a birth year of 0) are written as "X", the EDF+ mark of "unknown".
struct EdfPatient {
    std::string code;
    char sex = 0;  // 'M', 'F' or 0 (unknown)
    int birthYear = 0, birthMonth = 0, birthDay = 0;
    std::string name;
    std::string additional;  // further subfields, as they stand
};

// Recording identification subfields after "Startdate dd-MMM-yyyy":
// "admincode technician equipment".
struct EdfRecordingId {
    std::string adminCode;
    std::string technician;
    std::string equipment;
    std::string additional;
};

struct EdfHeader {
    EdfFormat format = EdfFormat::EdfPlus;
    EdfPatient patient;
    EdfRecordingId recording;
    // The two 80-character identification fields as stored (filled by the
    // reader; the writer builds them from the subfields).
    std::string patientField;
    std::string recordingField;
    // Start of the recording.  The header keeps whole seconds; the writer
    // moves a fraction of a second into the records' time-keeping TALs.
    CSDateTime start;
    double recordDuration = 1.0;  // seconds
    LONGLONG recordCount = 0;     // filled by the reader (and by the writer on Close)
    bool discontinuous = false;   // "+D" (filled by the reader)
};

// One data signal (the annotation signal is not one of them).
struct EdfSignal {
    std::string label;       // at most 16 characters
    std::string transducer;  // at most 80
    std::string unit;        // physical dimension, at most 8 ("uV")
    double physicalMin = -3276.8;
    double physicalMax = 3276.7;
    LONG digitalMin = -32768;
    LONG digitalMax = 32767;
    std::string prefilter;  // at most 80 ("HP:0.1Hz LP:75Hz")
    int samplesPerRecord = 1;

    // Physical units per digital step, and the physical value of a sample.
    double Gain() const { return (physicalMax - physicalMin) / (double(digitalMax) - double(digitalMin)); }
    double ToPhysical(LONG digital) const { return physicalMin + (double(digital) - double(digitalMin)) * Gain(); }
    // Sampling rate for a record duration.
    double Rate(double recordDuration) const { return recordDuration > 0 ? samplesPerRecord / recordDuration : 0; }
};

struct EdfAnnotation {
    double onset = 0;                 // seconds from the header's start
    std::optional<double> duration;   // seconds, when the annotation has one
    std::string text;                 // UTF-8
    bool operator==(const EdfAnnotation&) const = default;
};

// ---- Text helpers of the header --------------------------------------------

// The most precise text of at most `width` characters for a value (plain
// decimal, never an exponent).  False when no text of that width holds the
// value to within 1e-6 of `scale` (the magnitude that gives the value its
// meaning, e.g. the width of a physical range, where 1e-6 is a fraction of
// one 16-bit step; 0 means the value's own magnitude).
bool FormatEdfNumber(double value, int width, std::string& text, double scale = 0);

// The value of the most precise plain decimal text of at most `width`
// characters for a value (NaN when even its integer part does not fit).
double RoundEdfNumber(double value, int width);

// Parses a number field: optional spaces around a plain decimal ("-12.5",
// "+3", ".5", "7.").  False for anything else (an exponent included).
bool ParseEdfNumber(const std::string& field, double& value);
// Parses an integer field: optional spaces around [+-]digits.
bool ParseEdfInteger(const std::string& field, LONGLONG& value);

// ASCII text of a header field: transliterated, control characters dropped,
// cut to `width` characters and padded with spaces.
std::string EdfAsciiField(const std::string& utf8, size_t width);
// A subfield of an identification field: ASCII, spaces turned into '_',
// "X" when empty.
std::string EdfSubfield(const std::string& utf8);

// "02-MAY-1951"; "X" when the year is 0.
std::string EdfSubfieldDate(int year, int month, int day);
// Parses "02-MAY-1951" (month in any case); false otherwise.
bool ParseEdfSubfieldDate(const std::string& text, int& year, int& month, int& day);

// The identification fields (80 characters, unpadded) of a header.
std::string BuildPatientField(const EdfPatient& patient);
std::string BuildRecordingField(const EdfRecordingId& recording, const CSDateTime& start);
// Reads the subfields of an EDF+ identification field; false when the field
// does not follow the EDF+ layout (it is then kept only as its raw text).
bool ParsePatientField(const std::string& field, EdfPatient& patient);
bool ParseRecordingField(const std::string& field, EdfRecordingId& recording, int& year, int& month, int& day);

// ---- Time-stamped annotation lists ----------------------------------------

// Onset and duration texts: "+12.5", "-0.25", "30"; up to 6 decimals.
std::string FormatTalTime(double seconds, bool sign);
// One TAL, terminated by its 0x00.  A null text makes the time-keeping TAL.
std::string BuildTal(double onset, const std::optional<double>& duration, const std::string* text);
std::string BuildTimeKeepingTal(double recordStart);
// Parses the annotation bytes of one record.  The first TAL must be the
// time-keeping one when `timeKeeping` is set; its onset goes to recordStart.
// Empty annotation texts are dropped; a text that is not UTF-8 is read as
// Windows-1252.  False with a message on a bad TAL.  A time-keeping TAL
// whose final 0x00 is missing before the next TAL is read as if it were
// there, and *repaired (when given) is set.
bool ParseTals(const std::string& bytes, bool timeKeeping, double& recordStart,
               std::vector<EdfAnnotation>& annotations, std::string& error, bool* repaired = nullptr);

// ---- Annotation plan for a writer -----------------------------------------

// Which record carries each annotation, and how many bytes each record's
// annotation signal holds (time-keeping TAL included).  An annotation goes
// into its home record, the last one starting at or before its onset (the
// first record when it comes before all of them), unless the room of that
// record is taken, when it goes into the next record with room: readers take
// an annotation's time from its onset, not from the record carrying it.  The
// room is the smallest that places every annotation this way, so that a
// burst of annotations does not widen every record of the file.
// recordStarts are ascending; the annotations keep their order within a
// record.
struct EdfAnnotationPlan {
    std::vector<std::vector<EdfAnnotation>> perRecord;
    size_t bytesPerRecord = 0;
};
// timeOffset is what the writer adds to every time it writes (see
// EdfStartFraction).
EdfAnnotationPlan PlanAnnotations(const std::vector<double>& recordStarts,
                                  const std::vector<EdfAnnotation>& annotations, double timeOffset = 0);

// The fraction of a second of a start time that the header's whole-second
// start time cannot hold; the writer adds it to every onset it writes.
double EdfStartFraction(const CSDateTime& start);

// Makes a signal's physical limits fit their 8-character fields: a signal in
// volts ("V", "mV", "uV") moves to a smaller unit until they do ("nV" at
// most); any other unit is only checked.  False when they cannot fit.
bool FitPhysicalUnit(EdfSignal& signal);

// The smallest count k of consecutive source records of `samples` samples at
// `baseFrequency` Hz such that k records last a duration whose decimal text
// fits the 8-character field exactly (0 when none up to 1000 does).
int RecordsPerEdfRecord(int samples, double baseFrequency);

}  // namespace edf
