// Import of an EDF, EDF+ (C or D), BDF or BDF+ file into a native recording.
//
// - Rates: every signal must fit the native rules (CheckNativeRates); when
//   one does not, the import is refused with the offending signals named,
//   unless options.resample is set: the base frequency is then the highest
//   rate rounded up to a whole hertz and each signal is resampled to the
//   lowest base / 2^k not below its rate.
// - Records: one native record per 64 samples at the base frequency, its
//   time from the EDF data records (gaps of a "+D" file start a new native
//   record at the next data record; a native record cut short by a gap or the
//   end of the file is completed by repeating its last sample).
// - Montage: each label ("EEG Fp1-A1", "Fp1-A1", "ECG") gives electrode 1
//   (before the first '-') and electrode 2 (after it, if any); a leading word
//   that is a trace type name ("EEG", "EMG" ...) is dropped and gives the
//   type.  Electrodes of the standard table take its position, type and
//   unit; other names become sensors of their own.  The type comes from the
//   transducer field or the label's prefix when they name one, else from the
//   standard table; the unit from the unit text ("uV", "mV", "V", "nV",
//   "degC", "%" ...), else from the standard table.
// - Calibration: base range -32768..32767 AD for -3.2768..3.2767 mV.  A
//   signal whose digital range fits in 16 bits keeps its digital values as
//   AD values, the channel's two points being (AD of the digital min, its
//   physical value) and (AD of the digital max, its physical value).  A BDF
//   signal whose digital range does not fit is mapped linearly onto the whole
//   16-bit range: ad = round(-32768 + (d - dmin) x 65535 / (dmax - dmin)),
//   the physical range kept at the ends; the error is at most half a 16-bit
//   step, (physical max - physical min) / 131070.
// - Annotations: each becomes a status item of the group named by its text
//   ("group: name", the export's convention), the well-known group of that
//   name when there is one, else a group of its own (type 3, extent 1 when
//   some of its items have a duration); texts without a group go to the
//   "Annotation" group.  The begin sample is the sample at the onset in the
//   native record that holds it; the end sample adds the duration.
//
// The recording is created under a temporary name beside the target and
// renamed at the end; on failure it is deleted and the target is untouched.
#pragma once

#include <string>

namespace edf {

struct EdfImportOptions {
    bool resample = false;  // the user agrees to resample signals of other rates
};

// 1 on success; 0 with a French message in *error (when given).
int ImportEdf(const char* in, const char* outSig, const EdfImportOptions& options, std::string* error);

// True when a signal's digital range fits 16 bits: its values are kept as AD values.
inline bool FitsSixteenBits(long digitalMin, long digitalMax) {
    return digitalMin >= -32768 && digitalMax <= 32767;
}

}  // namespace edf
