#include "Recording.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "JsonSupport.h"
#include "formats/edf/EdfExport.h"
#include "status/GroupDefaults.h"
#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "sigfile/RecordSource.h"
#include "status/stsitm.h"

namespace sigfile_python {

namespace {

std::mutex g_messagesLock;
std::string g_messages;

// The start of a recording: its header's creation time.
CSDateTime StartOf(const CSigFile& file) {
    const CFileHeader* header = file.GetFileHeader();
    return header ? header->GetCreationDateTime() : CSDateTime();
}

}  // namespace

void InstallMessageCapture() {
    SetMessageSink([](const std::string& text, const std::string&) {
        std::lock_guard<std::mutex> lock(g_messagesLock);
        if (!g_messages.empty()) g_messages += "\n";
        g_messages += text;
    });
}

std::string TakeCapturedMessages() {
    std::lock_guard<std::mutex> lock(g_messagesLock);
    std::string text;
    text.swap(g_messages);
    return text;
}

void ThrowFileError(const std::string& name, long code) {
    TakeCapturedMessages();
    if (code != -1) CSigFile::ErrorMessageBox(name.c_str(), code ? code : ERROR_GEN_FAILURE);
    std::string text = TakeCapturedMessages();
    if (text.empty()) text = Text(IDS_PY_ERROR_CODE, name.c_str(), code);
    throw LibraryError{code, text};
}

Recording::Recording(const std::string& path, bool readOnly) : m_path(path) {
    long error = 0;
    TakeCapturedMessages();
    CSigFile* file = CSigFile::Open(path.c_str(), readOnly ? 1 : 0, &error);
    if (!file) ThrowFileError(path, error);
    m_file.reset(file);
}

Recording::~Recording() = default;

void Recording::Close() {
    m_file.reset();
    m_channels.clear();
}

CSigFile& Recording::File() const {
    if (!m_file) throw LibraryError{ERROR_INVALID_HANDLE, Text(IDS_PY_CLOSED, m_path.c_str())};
    return *m_file;
}

std::string Recording::InfoJson() const { return sigfile_tool::Dump(sigfile_tool::InfoJson(m_path, File())); }

std::string Recording::EventsJson() const {
    CSigFile& file = File();
    const CSDateTime start = StartOf(file);
    sigfile_tool::Json events = sigfile_tool::Json::array();
    for (unsigned i = 0; i < file.GetNumStatusItems(); ++i) {
        const CStatusItem* item = file.GetStatusItemAt(i);
        if (!item) continue;
        sigfile_tool::Json j = sigfile_tool::EventJson(*item);
        j["onset_s"] = (item->GetBeginTime() - start).GetTotalSeconds();
        j["duration_s"] = (item->GetEndTime() - item->GetBeginTime()).GetTotalSeconds();
        // The one-line text an EDF+ annotation of this item holds.
        j["text"] = edf::TextOfItem(*item);
        events.push_back(std::move(j));
    }
    return sigfile_tool::Dump(events);
}

std::string Recording::StartIso() const { return StartOf(File()).ToIso(); }

const std::vector<ChannelSpec>& Recording::Channels(const std::string& montage) const {
    File();  // raises when closed
    auto it = m_channels.find(montage);
    if (it == m_channels.end()) it = m_channels.emplace(montage, DescribeChannels(montage)).first;
    return it->second;
}

std::vector<ChannelSpec> Recording::DescribeChannels(const std::string& montage) const {
    CSigFile& file = File();
    std::vector<ChannelSpec> specs;
    if (!montage.empty()) {
        CComputedMontage computed;
        std::string error;
        if (!computed.Choose(file, montage, {}, error) || !computed.Get()) throw LibraryError{ERROR_INVALID_PARAMETER, error};
        CDerivedSource source(file, computed.Get());
        if (!source.Compile(&error))
            throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_MONTAGE, montage.c_str(), error.c_str())};
        const double seconds = file.GetRecordDuration();
        for (unsigned c = 0; c < source.GetNumChannels(); ++c) {
            const unsigned n = source.GetSamplesRec(c);
            specs.push_back({source.GetLabel(c), "", seconds > 0 ? n / seconds : 0.0, n, source.GetType(c),
                             source.GetUnit(c), VhlGetUnitName(source.GetUnit(c)), VhlGetTraceTypeName(source.GetType(c))});
        }
        return specs;
    }
    for (unsigned c = 0; c < file.GetNumChannels(); ++c) {
        ChannelSpec spec;
        CSigChannelInfo info;
        if (file.GetChannelInfo(c, &info)) {
            spec.label = info.label;
            spec.unitName = info.unit;
        }
        unsigned k = 0;
        if (const CRecordingMontage* rec = RecordingMontageOfChannel(file, c, &k)) {
            spec.alias = rec->GetLabel(k);
            spec.type = rec->GetType(k);
            spec.unit = rec->GetUnit(k);
        }
        if (spec.label.empty()) spec.label = spec.alias;
        if (spec.unitName.empty()) spec.unitName = VhlGetUnitName(spec.unit);
        spec.typeName = VhlGetTraceTypeName(spec.type);
        spec.frequency = file.GetChannelFrequency(c);
        spec.samples = file.GetSamplesChannel(c);
        specs.push_back(spec);
    }
    return specs;
}

py::array_t<float> Recording::Read(const std::vector<unsigned>& channels, long long first, long long count, bool volts,
                                   const std::string& montage) {
    return ReadGroups({Group{channels, first, count}}, volts, montage).front();
}

std::vector<py::array_t<float>> Recording::ReadGroups(const std::vector<Group>& groups, bool volts,
                                                      const std::string& montage) {
    CSigFile& file = File();
    const std::vector<ChannelSpec>& specs = Channels(montage);
    struct Plan {
        const Group* group;
        unsigned perRecord;
        long firstRecord, lastRecord;  // lastRecord < firstRecord: nothing to read
        float* data;
    };
    std::vector<Plan> plans;
    std::vector<py::array_t<float>> arrays;
    long from = 0, to = -1;
    for (const Group& g : groups) {
        if (g.channels.empty()) throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_NOTHING_TO_READ)};
        for (unsigned c : g.channels)
            if (c >= specs.size()) throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_UNKNOWN_CHANNEL, std::to_string(c).c_str())};
        const unsigned perRecord = specs[g.channels[0]].samples;
        for (unsigned c : g.channels)
            if (specs[c].samples != perRecord)
                throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_SAME_RATE)};
        const long long total = static_cast<long long>(file.GetNumRecords()) * perRecord;
        if (g.first < 0 || g.count < 0 || perRecord == 0 || g.first + g.count > total)
            throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_SAMPLE_RANGE, g.first, g.count, total)};
        arrays.emplace_back(std::vector<py::ssize_t>{static_cast<py::ssize_t>(g.channels.size()),
                                                     static_cast<py::ssize_t>(g.count)});
        Plan p{&g, perRecord, static_cast<long>(g.first / perRecord),
               g.count ? static_cast<long>((g.first + g.count - 1) / perRecord) : -1, arrays.back().mutable_data()};
        if (p.lastRecord >= p.firstRecord) {
            from = to < from ? p.firstRecord : std::min(from, p.firstRecord);
            to = std::max(to, p.lastRecord);
        }
        plans.push_back(p);
    }

    // The montage and its engine, when the channels are computed.
    CComputedMontage computed;
    std::unique_ptr<CDerivedSource> derived;
    const CRecordSource::Unit unit = volts ? CRecordSource::Unit::Volts : CRecordSource::Unit::World;
    if (!montage.empty()) {
        std::string error;
        computed.Choose(file, montage, {}, error);
        derived = std::make_unique<CDerivedSource>(file, computed.Get(), unit);
        if (!derived->Compile(&error)) throw LibraryError{ERROR_INVALID_PARAMETER, error};
    }
    std::unique_ptr<CFmtSigRec> record(derived ? derived->CreateCompatibleFmtSigRec() : file.CreateCompatibleFmtSigRec());
    if (!record) throw LibraryError{ERROR_NOT_ENOUGH_MEMORY, Text(IDS_PY_MEMORY)};

    long failed = -1;
    {
        py::gil_scoped_release unlocked;
        for (long r = from; r <= to; ++r) {
            int ok;
            if (derived) {
                ok = derived->Read(r, *record);
            } else {
                file.MoveTo(r);
                ok = volts ? file.ReadAsVolts(record.get()) : file.Read(record.get());
            }
            if (!ok) {
                failed = r;
                break;
            }
            for (const Plan& p : plans) {
                if (r < p.firstRecord || r > p.lastRecord) continue;
                // The part of this record inside [first, first + count).
                const Group& g = *p.group;
                const long long recordStart = static_cast<long long>(r) * p.perRecord;
                const long long lo = std::max(g.first, recordStart);
                const long long hi = std::min(g.first + g.count, recordStart + p.perRecord);
                for (size_t k = 0; k < g.channels.size(); ++k)
                    std::memcpy(p.data + k * g.count + (lo - g.first), record->GetAt(g.channels[k]) + (lo - recordStart),
                                static_cast<size_t>(hi - lo) * sizeof(float));
            }
        }
    }
    if (failed >= 0) {
        const long code = file.GetIOError();
        ThrowFileError(m_path, code ? code : ERROR_READ_FAULT);
    }
    return arrays;
}

}  // namespace sigfile_python
