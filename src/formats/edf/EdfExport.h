// Export of a recording to EDF+ or BDF+, and the conventions that the import
// (EdfImport.h) reverses.
//
// Header: patient code = patient id 1, sex (1 male, 2 female), birth date,
// name = "last first" (spaces become '_'); recording admin code = the file
// description, technician = the creator, equipment = the institution; all
// transliterated to ASCII.  The start is the time of the first exported
// record; one data record per native record (its duration = samples per
// record / base frequency).
//
// Signals of the recording montage: label = channel label, transducer = the
// trace type name ("EEG", "EMG" ...), prefilter = the preprocessing text,
// unit = the unit name in ASCII ("uV", "degC" ...), digital range = the AD
// range of the calibration and physical range = the world values at its ends
// (AdToWorld), so that every raw sample is written unchanged, in 16 bits (EDF)
// or 24 bits (BDF).
//
// Signals of a reformatted montage are computed through the formula engine in
// world units; each channel's physical range is the exact minimum and maximum
// of its values over the exported records (value +/- 1 for a flat channel),
// spread over the whole digital range, so the quantisation error is at most
// half of (max - min) / 65535 (EDF) or / 16777215 (BDF).
//
// Annotations: one per status item whose begin sample lies in the exported
// records: onset = the time of its begin sample (its record's start + the
// sample's offset / base frequency), duration = (end - begin samples) / base
// frequency (none when end == begin), text = "group: name".  Items of the
// "Annotation" group are written with their name alone unless the name
// itself holds ": ".  Records that do not follow one another make the file
// "+D".
#pragma once

#include <string>

namespace edf {

struct EdfExportOptions {
    std::string montage;      // reformatted montage name; empty: recording montage 0
    long firstRecord = 0;     // first native record exported
    long endRecord = -1;      // one past the last; -1: to the end
};

// Text of an item for the annotation signal, and its inverse: the group name
// ("" when the text names no group) and the item name.
std::string AnnotationTextOf(const std::string& group, bool annotationGroup, const std::string& name);
void SplitAnnotationText(const std::string& text, std::string& group, std::string& name);

// Writes sigName (any recording the library opens) to `out`: BDF+ when out
// ends in ".bdf" (any case), EDF+ otherwise.  1 on success; 0 with a French
// message in *error (when given), the target then untouched.
int ExportEdf(const char* sigName, const char* out, const EdfExportOptions& options, std::string* error);

// Parses a record range "A:B" (either side may be empty); false when malformed.
bool ParseRecordRange(const std::string& text, long& first, long& end);

}  // namespace edf
