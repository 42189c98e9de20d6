// What each recording format supplies to the dispatch of CSigFile: identify,
// open, create, delete, copy, rename and summarise.  A format that cannot do
// an operation leaves it null.
#pragma once

#include "sigfile/SIGFILE.h"

struct CSigFileDriver {
    unsigned format;
    const char* name;
    int (*IsValidFormat)(const char* name);
    CSigFile* (*Open)(const char* name, int readOnly, long* error);
    CSigFile* (*Create)(const char* name, CFileHeader* header, CPatientInfo* patient, CPhysicalMontage* montage,
                        CCalibration* calibration, long* error);
    int (*Delete)(const char* name);
    int (*Copy)(const char* from, const char* to, CProgressInfo* progress);
    int (*Rename)(const char* from, const char* to);
    CSigQuickInfo* (*GetFileQuickInfo)(const char* name, long* error);
    ULONGLONG (*GetDVSize)(const char* name);
    ULONGLONG (*GetDVIdxSize)(const char* name);
    int (*HasDV)(const char* name);
};

// The driver of a format number 1 to 5; null for any other.
const CSigFileDriver* GetSigFileDriver(unsigned format);

// Drivers, one per format, each defined beside its format's code.
extern const CSigFileDriver g_nativeDriver;
extern const CSigFileDriver g_dosDriver;
extern const CSigFileDriver g_nihonKohdenDriver;
extern const CSigFileDriver g_bmsiDriver;
extern const CSigFileDriver g_serverDriver;

// True when the montage is given and has a recording montage at index 0
// (the rule CSigFile::Create applies when asked to validate).
bool PhysicalMontageHasRecordingMontage(const CPhysicalMontage* montage);
