// Writing any open recording as EDF+ or BDF+ (the create-copy of the EDF and
// BDF drivers), and the conventions that the reader reverses.
//
// Header: patient code = patient id 1, sex (1 male, 2 female), birth date,
// name = "last first" (spaces become '_'); recording admin code = the file
// description, technician = the creator, equipment = the institution; all
// transliterated to ASCII.  The start is the time of the first exported
// record.
//
// Records: one data record per record of the recording; records whose
// duration has no exact 8-character text are grouped k at a time (the
// smallest k whose duration has one).  Record times come from the
// recording's own: a record within a thousandth of its duration of the
// previous end follows it ("+C"), any other makes a gap ("+D").
//
// Signals of the recording's channels (all, or those --channel names, by
// their label or their montage label): label, transducer, prefiltering and
// physical dimension as the recording describes them (GetChannelInfo), in
// ASCII; the stored samples go through unchanged (ReadDigital) with their
// digital range, the physical limits rounded to the closest 8-character
// texts, which must move no sample by more than half a step.  A channel
// whose digital range does not fit the format (24-bit samples into EDF) is
// spread over the format's range, fitted to the values the data use.
//
// Signals of a reformatted montage (or of formulas, CComputedMontage) are
// computed through the formula engine (CDerivedSource) in world units; each
// channel's physical limits are the smallest 8-character texts that hold
// its values over the exported records, spread over the whole digital range.
//
// Annotations: one per status item (discontinuities excepted, the record
// times carry them): onset = its begin time from the first exported record,
// duration = its end time minus its begin time (none when 0), to the
// microsecond; text = "group: name", items of the "Annotation" group by
// their name alone unless it holds ": ", sleep stages by their stage text
// ("Sleep stage W" ..., or the spelling they were read with).  A whole
// export keeps every item, those outside the data included; a range keeps
// the items that begin inside it.
//
// A recording without channels (a hypnogram) is written as records of no
// duration, one annotation each.
#pragma once

#include <string>

#include "formats/edf/Edf.h"
#include "sigfile/FormatDriver.h"

class CStatusItem;

namespace edf {

struct EdfExportOptions {
    std::string montage;      // reformatted montage name; empty: the recording channels
    long firstRecord = 0;     // first record exported
    long endRecord = -1;      // one past the last; -1: to the end
};

// Text of an item for the annotation signal, and its inverse: the group name
// ("" when the text names no group) and the item name.
std::string AnnotationTextOf(const std::string& group, bool annotationGroup, const std::string& name);
// The text an item had (or would have) in an annotation signal: a sleep
// stage as it was scored ("Sleep stage N2"), another item as
// AnnotationTextOf gives it.
std::string TextOfItem(const CStatusItem& item);
void SplitAnnotationText(const std::string& text, std::string& group, std::string& name);

// Writes `source` to `out` in `format` (EDF+ or BDF+).  1 on success; 0 with
// a French message in *error (when given), the target then untouched.
int CreateEdfCopy(CSigFile* source, const char* out, const CSigFileCopyOptions& options, EdfFormat format,
                  std::string* error, CProgressInfo* progress);

// The same from a file name (any format the library opens): BDF+ when out
// ends in ".bdf" (any case), EDF+ otherwise.
int ExportEdf(const char* name, const char* out, const EdfExportOptions& options, std::string* error);

// Parses a record range "A:B" (either side may be empty); false when malformed.
bool ParseRecordRange(const std::string& text, long& first, long& end);

}  // namespace edf
