// The native driver's create-copy: any open recording written as a native
// recording (import of EDF/BDF and other formats, native copies of parts or
// of computed channels).
//
// - Rates: a native recording stores 64 samples per record at its base
//   frequency, a whole number of hertz, and every channel at that frequency
//   divided by 1, 2, 4 ... 64, a whole number of hertz too.  The base is the
//   highest channel rate.  A recording whose rates do not fit is refused,
//   the channels named, unless resampling is allowed: the base is then the
//   highest rate rounded up to a whole hertz and every other channel goes to
//   the lowest fitting rate not below its own, resampled (band-limited) only
//   when its rate changes.  The rate stored is the rate of the samples.
// - Records: the source's records are cut into native records, gaps (a
//   record that does not follow the previous one) starting a new record; a
//   native record cut short by a gap or the end is completed by repeating
//   its last samples (reported).  A discontinuity item marks each gap.
// - Samples: 16-bit samples (and any sample whose stored range fits 16
//   bits) go through as they are, the calibration describing their physical
//   range.  Wider samples (24-bit) are fitted to the range the channel
//   actually uses: shifted as they are when that range spans at most 65536
//   values, else spread over the 16-bit range (the resolution kept is
//   reported).  Computed channels (a reformatted montage, formulas) are
//   fitted the same way from their values.
// - Trigger channels (labels "Status", "Trigger", "STI..."): each change of
//   code to a code other than 0 becomes an item of the trigger group, named
//   by the code (the lower 16 bits of a 24-bit status word), lasting until
//   the code changes again; the channel itself keeps those 16 bits.
// - Description: header and patient as they are, the creation time being
//   the first record's; a physical montage of the channels' electrodes;
//   the source's labels, dimensions and transducers kept in the channel
//   descriptions group (groupid::kChannelDescriptions) so that a conversion
//   back writes them unchanged; every status group and item, each item's
//   times kept and its samples placed on the native records.
// - Limits: at most 128 channels (choose them with options.channels).
#pragma once

#include <string>
#include <vector>

#include "sigfile/FormatDriver.h"

// Writes `source` to the native recording `to` (".SIG").  What the copy had
// to do (resampling, padding, fitted resolutions, duplicate labels) is
// appended to *notes when given.  1 on success; 0 with a French message in
// *error, `to` untouched.
int CreateNativeCopy(CSigFile* source, const char* to, const CSigFileCopyOptions& options, std::string* error,
                     CProgressInfo* progress, std::vector<std::string>* notes = nullptr);
