// The format drivers: what each kind of recording supplies to the static
// operations of CSigFile.  One driver per format, each defined beside its
// format's code (src/formats/<format>/), gathered in one table by the
// registry (src/formats/Registry.cpp), which probes them in a fixed order,
// strong signatures first.
//
// A driver that cannot do an operation leaves it null: the static operation
// then fails with ERROR_NOT_SUPPORTED (or 0 for the int operations, the last
// error set to ERROR_NOT_SUPPORTED).
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>
#include <vector>

#include "platform/Types.h"
#include "sigfile/SIGFILE.h"

// What a driver sees when it is asked whether a file is one of its own: the
// name as given, its extension in upper case, and up to kHeadBytes of its
// first bytes (fewer when the file is shorter, none when it cannot be read).
struct CSigFileProbe {
    static constexpr size_t kHeadBytes = 512;
    const char* name = nullptr;
    std::string extension;  // ".SIG", ".EDF" ...; empty when the name has none
    const BYTE* head = nullptr;
    size_t headSize = 0;
    bool readable = false;  // the file exists and could be opened for reading
};

// Options of a create-copy: writing an open recording as a new file of the
// driver's format (export, import, conversion).  A driver reads the fields
// it understands; an option it cannot honour makes it fail with a message.
struct CSigFileCopyOptions {
    std::string montage;                // reformatted montage; empty: the recording channels
    std::vector<std::string> derives;   // computed channels "LABEL=FORMULA" (CComputedMontage)
    std::vector<std::string> channels;  // channel labels to keep, in this order; empty: all
    long firstRecord = 0;               // first record of the source
    long endRecord = -1;                // one past the last; -1: to the end
    bool resample = false;              // the user agrees to resample what does not fit
    bool volts = false;                 // values in volts rather than world units (text outputs)
    // Receives, one French line each, what the copy had to do to fit the
    // output's model (resampling, fitted resolutions, padding); may be null.
    std::vector<std::string>* notes = nullptr;
};

struct CSigFileDriver {
    unsigned format = 0;
    const char* name = "";         // short name: "native", "edf", ...
    const char* description = "";  // one line for people: "EDF / EDF+ (16-bit)"
    // Output extensions this format is chosen for, upper case, null-ended
    // (".SIG", ".EDF"); null when it is never chosen by name.
    const char* const* outputExtensions = nullptr;

    // Non-zero when the probed file is of this format.
    int (*Identify)(const CSigFileProbe& probe) = nullptr;
    CSigFile* (*Open)(const char* name, int readOnly, long* error) = nullptr;
    CSigFile* (*Create)(const char* name, CFileHeader* header, CPatientInfo* patient, CPhysicalMontage* montage,
                        CCalibration* calibration, long* error) = nullptr;
    int (*Delete)(const char* name) = nullptr;
    int (*Copy)(const char* from, const char* to, CProgressInfo* progress) = nullptr;
    int (*Rename)(const char* from, const char* to) = nullptr;
    CSigQuickInfo* (*GetFileQuickInfo)(const char* name, long* error) = nullptr;
    ULONGLONG (*GetDVSize)(const char* name) = nullptr;
    ULONGLONG (*GetDVIdxSize)(const char* name) = nullptr;
    int (*HasDV)(const char* name) = nullptr;
    // Writes the open recording `source` as a new file `to` of this format,
    // replacing an existing one only when complete.  1 on success; 0 with a
    // French message in *error (when given), `to` then untouched.
    int (*CreateCopy)(CSigFile* source, const char* to, const CSigFileCopyOptions& options, std::string* error,
                      CProgressInfo* progress) = nullptr;
};

// The driver of a format number; null for 0 and unknown numbers.
const CSigFileDriver* GetSigFileDriver(unsigned format);
// Every driver, in probing order.
const std::vector<const CSigFileDriver*>& GetSigFileDrivers();
// The driver chosen to write a file of this name (by its extension); null
// when no driver writes such names.
const CSigFileDriver* GetSigFileDriverForOutput(const char* name);
// Reads the first bytes of a file for the drivers' Identify.
CSigFileProbe ProbeSigFile(const char* name, std::vector<BYTE>& buffer);

// Writes the open recording `source` as `to`, in the format chosen by the
// name of `to`.  1 on success; 0 with a French message in *error.
int CreateSigFileCopy(CSigFile* source, const char* to, const CSigFileCopyOptions& options, std::string* error,
                      CProgressInfo* progress = nullptr);

// Opens `from` (any format) and writes it as `to` (CreateSigFileCopy).
int ConvertSigFile(const char* from, const char* to, const CSigFileCopyOptions& options, std::string* error,
                   CProgressInfo* progress = nullptr);

// A recording's quick information from its header and patient, for the
// drivers' GetFileQuickInfo (the description is left to the driver).
CSigQuickInfo* MakeSigQuickInfo(const char* name, const CFileHeader& header, const CPatientInfo& patient,
                                ULONGLONG totalSize);
// True when the montage is given and has a recording montage at index 0
// (the rule CSigFile::Create applies when asked to validate).
bool PhysicalMontageHasRecordingMontage(const CPhysicalMontage* montage);
#pragma GCC visibility pop
