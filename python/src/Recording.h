// The Python module's view of an open recording and of the library's error
// convention.  The bindings (Module.cpp) are a thin layer over these classes,
// which hold no Python state besides the arrays they fill.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Messages.h"
#include "platform/Strings.h"
#include "platform/strings/PythonStrings.h"
#include "sigfile/SIGFILE.h"

namespace sigfile_python {

namespace py = pybind11;

// A failure of the library: its error code and its French text.  Raised in
// Python as sigfile.Error (with .code and .message).
struct LibraryError {
    long code;
    std::string message;
};

// A French text of the string table with its printf-style fields filled in.
template <typename... Args>
std::string Text(UINT id, Args... args) {
    return StrFormat(LoadResString(id).c_str(), args...);
}

// Collects what the library shows in message boxes, so that a failure's
// text can travel in the exception instead of being printed.
void InstallMessageCapture();
std::string TakeCapturedMessages();
// The library's French text for a failure on `name` with `code`.
[[noreturn]] void ThrowFileError(const std::string& name, long code);

// One channel of a recording or of a computed montage, as read() sees it.
struct ChannelSpec {
    std::string label;
    std::string alias;      // the montage's own label of a record channel
    double frequency = 0;   // samples per second
    unsigned samples = 0;   // per record
    unsigned type = 0;      // trace type code
    unsigned unit = 0;      // unit code
    std::string unitName;   // the file's own unit text, or the unit code's name
    std::string typeName;   // the trace type's name ("EEG", "SpO2" ...)
};

class Recording {
public:
    Recording(const std::string& path, bool readOnly);
    ~Recording();

    void Close();
    bool IsClosed() const { return !m_file; }
    const std::string& GetPath() const { return m_path; }
    // The open file; raises when the recording is closed.
    CSigFile& File() const;

    std::string InfoJson() const;
    // The status items as `sigfile events --json` gives them, each with its
    // onset and duration in seconds from the recording's start.
    std::string EventsJson() const;
    double RecordDuration() const { return File().GetRecordDuration(); }
    long NumRecords() const { return File().GetNumRecords(); }
    // The recording's start (header creation time) as ISO text.
    std::string StartIso() const;

    // Channels of the recording (montage empty) or of a computed montage;
    // described once per montage (a computed montage is compiled for it).
    const std::vector<ChannelSpec>& Channels(const std::string& montage) const;

    // Samples [first, first + count) of the given channels, which must share
    // their samples per record, as a (channels x count) float32 array filled
    // straight from the records.  Past the last record, the last sample is
    // held.
    py::array_t<float> Read(const std::vector<unsigned>& channels, long long first, long long count, bool volts,
                            const std::string& montage);

    // Several such reads (one per group of channels sharing their samples
    // per record, each with its own sample range) in one pass over the
    // records: each record is read once whatever the number of groups.
    struct Group {
        std::vector<unsigned> channels;
        long long first = 0, count = 0;
    };
    std::vector<py::array_t<float>> ReadGroups(const std::vector<Group>& groups, bool volts, const std::string& montage);

private:
    std::vector<ChannelSpec> DescribeChannels(const std::string& montage) const;

    std::string m_path;
    CSigFilePtr m_file;
    mutable std::map<std::string, std::vector<ChannelSpec>> m_channels;
};

}  // namespace sigfile_python
