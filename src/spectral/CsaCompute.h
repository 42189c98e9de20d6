// Computing a whole spectral file from the records of a recording.
//
// The recording is analysed in analysis epochs that start every restart
// interval from the start of the first record.  Inside an analysis epoch,
// FFT epochs start every FFT epoch x (100 - overlap) / 100 seconds while
// they fit; their power spectra are averaged into one spectral record, whose
// time is that of the first FFT epoch.  A channel's samples are cut across
// record boundaries as CFftFactory::Transform does.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <functional>

#include "platform/Types.h"

class CFmtSigRec;
class CLogicalMontage;
class CPatientInfo;
class CProgressInfo;

struct CSpectralSettings {
    float fftEpochLen = 2.0f;     // seconds
    WORD preProcessing = 0;       // CFftFactory::PreProcessing
    WORD tapering = 2;            // CFftFactory::Tapering (Hanning)
    WORD pcOverlap = 0;           // overlap of consecutive FFT epochs, percent, below 100
    float csaEpochLen = 0.0f;     // analysis epoch, seconds; 0: the FFT epoch
    float restartInterval = 0.0f; // seconds between analysis epochs; 0: the analysis epoch
};

// Reads record index of the recording into record: channel c of the record
// is channel c of the logical montage, with the montage's sample counts.
// Returns 0 on failure (the thread's last error then says why).
using SpectralRecordReader = std::function<int(LONG index, CFmtSigRec& record)>;

// Writes the spectral file pair outName (".SPC") and its ".SPH" for the
// selected channels of montage, from numRecords records of the recording
// (each lasting the recording montage's samples per record / base
// frequency).  The pair is built under temporary names and renamed over
// outName only when complete, so a failure leaves an existing pair as it
// was.  Returns 1, or 0 with the code in error (when given) and as the
// thread's last error: 87 for settings or channels that cannot be analysed
// (an FFT length that is not a power of two, an analysis epoch shorter than
// the FFT epoch, a recording shorter than one analysis epoch, ...), the
// reader's or the file system's code otherwise, 1 when cancelled.
int ComputeSpectralFile(const char* outName, const CLogicalMontage* montage, unsigned numSelected,
                        const WORD* selected, const CSpectralSettings& settings, LONG numRecords,
                        const SpectralRecordReader& reader, const char* sigFileName, const char* sigFileId,
                        const CPatientInfo* patient, CProgressInfo* progress = nullptr, long* error = nullptr);
#pragma GCC visibility pop
