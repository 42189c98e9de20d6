// What the pictures need from a recording, read through the library: the
// sleep stages and the other status items placed in seconds from the
// recording start, the traces of one page window (recorded channels or a
// reformatted montage, read through the record source, only the window's
// records), the spectrogram of one channel (each record read once, in
// order) and the spectrogram kept in a spectral file pair.
//
// Positions: an item is placed by its sample position at the recording's
// base frequency, as the records place it, so that it sits over the samples
// it marks even across discontinuities; a recording without records (a
// scoring file) places items by their time from its start.
#pragma once

#include <string>
#include <vector>

#include "PlotLayout.h"
#include "SleepFigures.h"
#include "Spectrogram.h"
#include "platform/DateTime.h"

class CSigFile;
class CStatusItem;

namespace sigplot {

// Seconds of the recording (records x record duration).
double RecordingSeconds(const CSigFile& file);
// Start of the recording: its header's date and time.
CSDateTime RecordingStart(const CSigFile& file);
// Seconds since midnight of a date and time.
double SecondsOfDay(const CSDateTime& when);
// Begin and end of an item in seconds from the recording start.
void ItemSeconds(const CSigFile& file, const CStatusItem& item, double& begin, double& end);

bool HasSleepStages(const CSigFile& file);
std::vector<StageSpan> ReadStages(const CSigFile& file);

// A status item drawn on a page or counted in a report.
struct EventMark {
    double begin = 0, end = 0;
    std::string name, group;
    unsigned long rgb = 0;  // 0x00BBGGRR
};
// Items overlapping [from, to], other than sleep stages and discontinuities,
// at most maxItems of them (the first ones in time).
std::vector<EventMark> ReadEvents(const CSigFile& file, double from, double to, size_t maxItems);
// Positions of the discontinuities inside [from, to].
std::vector<double> ReadGaps(const CSigFile& file, double from, double to);
// Number of items of every group (other than sleep stages, discontinuities
// and groups without items) that begin inside [from, to].
struct GroupCount {
    std::string name;
    unsigned count = 0;
};
std::vector<GroupCount> CountGroups(const CSigFile& file, double from, double to);

// One page window.
struct PageRequest {
    double start = 0;
    double duration = 0;  // 0: DefaultPageSeconds
    std::string montage;
    std::vector<std::string> channels;
    double sensitivity = 7.0;  // µV/mm
    unsigned buckets = 1600;   // points kept per trace, about two per point of width
};

struct PageTrace {
    std::string label, unit;
    double toMicrovolts = 0;  // world unit to µV; 0 for a trace that is not a voltage (scaled to fit)
    std::vector<TracePoint> points;
};

struct PageData {
    std::string title;
    double start = 0, duration = 0;
    double clockAtZero = 0;  // seconds of day at position 0 of the recording
    double sensitivity = 7.0;
    std::string montage;
    std::vector<PageTrace> traces;
    std::vector<EventMark> events;
    std::vector<double> gaps;
    std::string stage;  // stage scored at the window's start, "" when none
};

// 10 s, or one 30-s scoring epoch when the recording has sleep stages.
double DefaultPageSeconds(const CSigFile& file);
// Reads the window; false with a French message in error.
bool ReadPage(CSigFile& file, const PageRequest& request, PageData& page, std::string& error);

// Label of the channel a night report analyses: a central EEG site (C3, C4,
// Cz in its label), else the first EEG channel, else the first channel.
std::string CentralChannel(const CSigFile& file);

// Spectrogram of one recorded channel (its label; "" for CentralChannel)
// up to fmax Hz, reading every record once in order.  False with a French
// message in error.
bool ComputeSpectrogram(CSigFile& file, const std::string& channel, double fmax, SpectrogramMatrix& matrix,
                        std::string& error);

// The recording a spectral file was computed from, as the file names it.
struct SpectralSource {
    std::string fileName, fileId;
    std::string start;            // time of the first spectral record (ISO)
    double seconds = 0;           // from the first record to the end of the last
    std::vector<std::string> labels;  // of the analysed channels
};
// Spectrogram of one channel of a spectral file pair (".SPC" or ".SPH";
// channel "" for the first channel), columns placed from origin (an unset
// origin, value 0: from the first spectral record).  False with a French
// message in error.
bool ReadSpectralFile(const std::string& name, const std::string& channel, double fmax, CSDateTime origin,
                      SpectrogramMatrix& matrix, SpectralSource& source, std::string& error);
// True when the spectral file was computed from this recording: the same
// identifier (the recording's creation time, which recordings of one
// acquisition setup may share) and either the same file name or channels
// and a length that the recording has (a recording renamed since).
bool SpectralFileMatches(const SpectralSource& source, const CSigFile& file);
// The creation time identifying a recording to its spectral files.
std::string RecordingId(const CSigFile& file);

}  // namespace sigplot
