// Fuzz target bodies; see FuzzEntries.h.
#include "FuzzEntries.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "formula/RFMT.h"
#include "formula/filters.h"
#include "montage/mtgs.h"
#include "platform/Assert.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/FormatDriver.h"
#include "sigfile/SIGFILE.h"
#include "records/SigRec.h"
#include "formats/edf/EdfReader.h"
#include "spectral/Csafile.h"
#include "spectral/Specrec.h"
#include "status/IntStsFile.h"
#include "status/stsitm.h"

namespace fuzzentry {
namespace {

// Reading loops stop there: a hostile count must not turn one input into a
// long run, and a few thousand records reach every code path.
constexpr long kMaxRecords = 2048;

// A private folder for the files an entry writes, removed at exit.
class WorkFolder {
public:
    WorkFolder() {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/sigfile-fuzz-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (!mkdtemp(buffer.data())) {
            std::perror("mkdtemp");
            std::abort();
        }
        path_ = buffer.data();
    }
    ~WorkFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

const std::string& WorkDir() {
    static WorkFolder folder;
    return folder.path();
}

// A property every accepted input must keep; breaking it is a finding.
void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "broken property: %s\n", what);
    std::abort();
}

void WriteFile(const std::string& name, const uint8_t* data, size_t size) {
    FILE* f = std::fopen(name.c_str(), "wb");
    if (!f) {
        std::perror(name.c_str());
        std::abort();
    }
    if (size && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);
}

// Splits a JoinPair input.
struct Pair {
    const uint8_t* first;
    size_t firstSize;
    const uint8_t* second;
    size_t secondSize;
};

Pair SplitPair(const uint8_t* data, size_t size) {
    static const uint8_t empty = 0;
    if (size < 4) return {data ? data : &empty, size, &empty, 0};
    const size_t declared = size_t(data[0]) | size_t(data[1]) << 8 | size_t(data[2]) << 16 | size_t(data[3]) << 24;
    const size_t firstSize = std::min(declared, size - 4);
    return {data + 4, firstSize, data + 4 + firstSize, size - 4 - firstSize};
}

// Reads everything a loaded status description (CStsFile or CSigFile)
// offers.
template <class Description>
void WalkDescription(const Description& sts) {
    volatile size_t sink = 0;
    for (unsigned g = 0; g < sts.GetNumGroups(); ++g) {
        const CStatusGroup* group = sts.GetGroupAt(g);
        sink = sink + group->GetGroupName().size() + group->GetGroupNumProperties();
    }
    for (unsigned i = 0; i < sts.GetNumStatusItems(); ++i) {
        const CStatusItem* item = sts.GetStatusItemAt(i);
        sink = sink + item->GetName().size() + static_cast<size_t>(item->GetNumProperties());
        // Ranges come from the file: any two 32-bit samples, so subtract wide.
        sink = sink + static_cast<size_t>(static_cast<long long>(item->GetEndSample()) - item->GetBeginSample());
    }
    // The derived channels of every montage are compiled as a viewer would.
    if (const CPhysicalMontage* montage = sts.GetPhysicalMontage()) {
        for (int m = 0; m < montage->GetNumRecordingMontages(); ++m) {
            CRecordingMontage* rec = montage->GetRecordingMontageAt(m);
            if (!rec) continue;
            for (unsigned c = 0; c < rec->GetNumChannels(); ++c) sink = sink + rec->GetLabel(c).size();
            for (unsigned r = 0; r < rec->GetNumReformatedMontages(); ++r) {
                CCReformater reformater;
                sink = sink + static_cast<size_t>(reformater.Compile(rec->GetReformatedMontageAt(r)));
            }
        }
    }
}

// Evaluates a compiled reformater over a few records of a smooth signal:
// one restarting call, then streaming calls.
void EvaluateSome(CCReformater& r, unsigned numInputs, const unsigned short* samplesPerInput) {
    std::unique_ptr<CFmtSigRec> output(r.CreateCompatibleFmtSigRec());
    if (!output) return;
    const int span = r.GetSpanLength();
    if (span <= 0 || span > 64) return;
    auto makeRecord = [&](long k) {
        auto rec = std::make_unique<CFmtSigRec>(numInputs, samplesPerInput);
        for (unsigned c = 0; c < numInputs; ++c)
            for (unsigned s = 0; s < samplesPerInput[c]; ++s)
                rec->SetAt(c, s, static_cast<float>((k * samplesPerInput[c] + s) % 17) - 8.0f + c);
        return rec;
    };
    for (long k = 0; k < 4; ++k) {
        std::vector<std::unique_ptr<CFmtSigRec>> records;
        if (k == 0)
            for (int o = 0; o < span; ++o) records.push_back(makeRecord(o));
        else
            records.push_back(makeRecord(span - 1 + k));
        std::vector<const CFmtSigRec*> pointers;
        for (auto& rec : records) pointers.push_back(rec.get());
        if (!r.Eval(pointers.data(), output.get(), k == 0 ? 1 : 0)) return;
    }
}

}  // namespace

// ---------------------------------------------------------------------------

struct LibraryGuard::Saved {
    AssertHandler asserts;
    MessageSink messages;
};

LibraryGuard::LibraryGuard() : m_saved(new Saved) {
    m_saved->asserts = SetAssertHandler([](const char*, int) {});
    m_saved->messages = SetMessageSink([](const std::string& text, const std::string& caption) {
        // The fatal error routine shows its box with the internal error caption
        // and then ends the process.
        if (caption.find(LoadResString(IDS_INTERNAL_ERROR)) != std::string::npos) {
            std::fprintf(stderr, "fatal error routine reached: %s\n", text.c_str());
            std::abort();
        }
    });
}

LibraryGuard::~LibraryGuard() {
    SetAssertHandler(std::move(m_saved->asserts));
    SetMessageSink(std::move(m_saved->messages));
    delete m_saved;
}

std::vector<uint8_t> JoinPair(const std::vector<uint8_t>& first, const std::vector<uint8_t>& second) {
    std::vector<uint8_t> out;
    const size_t n = first.size();
    out.push_back(uint8_t(n));
    out.push_back(uint8_t(n >> 8));
    out.push_back(uint8_t(n >> 16));
    out.push_back(uint8_t(n >> 24));
    out.insert(out.end(), first.begin(), first.end());
    out.insert(out.end(), second.begin(), second.end());
    return out;
}

int Status(const uint8_t* data, size_t size) {
    CIntStsFile sts;
    try {
        sts.LoadFromMemory(data, size);
    } catch (CException&) {
        return 0;
    }
    WalkDescription(sts);
    return 1;
}

int SigFile(const uint8_t* data, size_t size) {
    const Pair pair = SplitPair(data, size);
    const std::string base = WorkDir() + "/rec";
    WriteFile(base + ".STS", pair.first, pair.firstSize);
    WriteFile(base + ".SIG", pair.second, pair.secondSize);
    std::remove((base + ".ST$").c_str());
    std::remove((base + ".$T$").c_str());

    long error = 0;
    CSigFile* file = nullptr;
    try {
        file = CSigFile::Open((base + ".SIG").c_str(), 1, &error);
    } catch (CException&) {
        return 0;
    }
    if (!file) return 0;
    int whole = 1;
    WalkDescription(*file);
    std::unique_ptr<CRawSigRec> raw(file->CreateCompatibleRawSigRec());
    std::unique_ptr<CFmtSigRec> fmt(file->CreateCompatibleFmtSigRec());
    CByteArray bytes;
    const long count = std::min(file->GetNumRecords(), kMaxRecords);
    try {
        for (long r = 0; r < count && whole; ++r) {
            file->MoveTo(r);
            if (!raw || !file->Read(raw.get())) whole = 0;
            file->MoveTo(r);
            if (!fmt || !file->Read(fmt.get())) whole = 0;
            file->MoveTo(r);
            if (!fmt || !file->ReadAsVolts(fmt.get())) whole = 0;
            file->MoveTo(r);
            if (!file->Read(&bytes)) whole = 0;
        }
    } catch (CException&) {
        whole = 0;
    }
    file->Close();
    delete file;
    return whole;
}

int Filters(const uint8_t* data, size_t size) {
    WriteFile(WorkDir() + "/default.flt", data, size);
    const char* previous = std::getenv("SIGFILE_USER_DIR");
    const std::string saved = previous ? previous : "";
    setenv("SIGFILE_USER_DIR", WorkDir().c_str(), 1);
    CFilterSet set;
    const int read = set.Refresh();
    if (previous)
        setenv("SIGFILE_USER_DIR", saved.c_str(), 1);
    else
        unsetenv("SIGFILE_USER_DIR");
    if (!read) return 0;

    for (UINT f = 0; f < set.GetNumFilters(); ++f) {
        const CFilter& filter = set[f];
        for (UINT i = 0; i < filter.GetNumItems(); ++i) {
            const UINT freq = filter.GetTraceFreq(i);
            const CString label = filter.GetTraceLabel(i);
            const CString formula = filter.GetFilteredFormula("A", freq, filter.GetTraceType(i), label.c_str());
            // One second per record; the evaluation stays short for the
            // frequencies a recording really has.
            if (freq == 0 || freq > 2048) continue;
            CCReformater r;
            r.AddInput("A", "", freq, freq, filter.GetTraceType(i), 1);
            r.AddOutput("OUT", formula.c_str());
            if (r.Compile()) {
                const unsigned short spr = static_cast<unsigned short>(freq);
                EvaluateSome(r, 1, &spr);
            }
        }
    }
    return 1;
}

int SpectralHeader(const uint8_t* data, size_t size) {
    const Pair pair = SplitPair(data, size);
    const std::string base = WorkDir() + "/spec";
    WriteFile(base + ".SPH", pair.first, pair.firstSize);
    WriteFile(base + ".SPC", pair.second, pair.secondSize);

    CCsaFile* file = nullptr;
    try {
        file = CCsaFile::Open((base + ".SPC").c_str(), 1);
    } catch (CException&) {
        return 0;
    }
    if (!file) return 0;
    int whole = 1;
    volatile size_t sink = 0;
    Require(std::isfinite(file->GetFreqRes()) && file->GetFreqRes() > 0, "the frequency step is a positive number");
    for (unsigned c = 0; c < file->GetNumChannels(); ++c) {
        const float top = file->GetChannelMaxFreq(c);
        Require(std::isfinite(top) && top >= 0, "a channel's highest frequency is a number");
        sink = sink + file->GetChannelLabel(c).size() + file->GetChannelNumFreq(c) + static_cast<size_t>(top);
    }
    for (int i = 0; i < file->GetNumDiscontinuities(); ++i) sink = sink + file->GetDiscontinuityAt(i);
    for (int i = 0; i < file->GetNumPairsAnnotRecIx(); ++i) {
        DWORD index = 0;
        CString text;
        if (file->GetPairAnnotRecIxAt(i, index, text)) sink = sink + text.size() + file->IsAnnotationAt(index);
    }
    std::unique_ptr<CSpecRec> rec(file->CreateCompatibleSpecRec());
    const DWORD count = std::min<DWORD>(file->GetNumRecords(), kMaxRecords);
    for (DWORD r = 0; r < count && whole; ++r) {
        if (!file->MoveTo(r) || !rec || !file->Read(*rec)) whole = 0;
    }
    file->Close();
    return whole;
}

// The input is a list of lines.  "G NAME=formula" declares a global,
// "O NAME=formula" or a bare formula an output (named OUTn).  Inputs A and B
// have 4 samples per record at 256 Hz, C 2 samples at 128 Hz.  Returns 1 when
// everything compiled (and was evaluated).
int Formula(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CCReformater r;
    r.AddInput("A", "", 4, 256, 1, 1);
    r.AddInput("B", "", 4, 256, 1, 1);
    r.AddInput("C", "", 2, 128, 1, 1);
    size_t start = 0;
    int outputs = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        start = end + 1;
        if (line.empty()) continue;
        const bool global = line.rfind("G ", 0) == 0;
        const bool output = line.rfind("O ", 0) == 0;
        std::string name = "OUT" + std::to_string(outputs);
        if (global || output) {
            line = line.substr(2);
            const size_t eq = line.find('=');
            if (eq != std::string::npos) {
                name = line.substr(0, eq);
                line = line.substr(eq + 1);
            }
        }
        if (global) {
            r.AddGlobal(name.c_str(), line.c_str());
        } else {
            r.AddOutput(name.c_str(), line.c_str());
            ++outputs;
        }
    }
    if (!r.Compile()) return 0;
    const unsigned short spr[3] = {4, 4, 2};
    EvaluateSome(r, 3, spr);
    return 1;
}

int Edf(const uint8_t* data, size_t size) {
    const std::string name = WorkDir() + "/input.edf";
    WriteFile(name, data, size);
    edf::EdfReader reader;
    std::string error;
    if (!reader.Open(name, error)) return 0;
    volatile double sink = 0;
    for (const edf::EdfAnnotation& a : reader.Annotations()) sink = sink + a.onset + static_cast<double>(a.text.size());
    std::vector<std::vector<LONG>> samples;
    const LONGLONG count = std::min<LONGLONG>(reader.RecordCount(), kMaxRecords);
    for (LONGLONG r = 0; r < count; ++r) {
        sink = sink + reader.RecordStart(r);
        if (!reader.ReadRecord(r, samples, error)) return 0;
    }
    // Then the file as a recording (CSigFile::Open through the registry):
    // every record read formatted and as stored, and the whole import into
    // a native recording, with resampling allowed for every other input.
    if (reader.RecordCount() > kMaxRecords) return 1;
    reader.Close();
    {
        CSigFilePtr file(CSigFile::Open(name.c_str(), 1));
        if (!file) return 1;
        std::unique_ptr<CFmtSigRec> fmt(file->CreateCompatibleFmtSigRec());
        CDigSigRec digital;
        for (long r = 0; r < file->GetNumRecords(); ++r) {
            file->MoveTo(r);
            if (!file->Read(fmt.get()) || !file->ReadDigital(&digital)) break;
            sink = sink + fmt->GetTime().GetValue();
        }
        for (unsigned i = 0; i < file->GetNumStatusItems(); ++i) sink = sink + file->GetStatusItemAt(i)->GetBeginSample();
    }
    const std::string out = WorkDir() + "/imported.SIG";
    CSigFileCopyOptions options;
    options.resample = (size & 1) != 0;
    if (ConvertSigFile(name.c_str(), out.c_str(), options, &error)) CSigFile::Delete(out.c_str());
    return 1;
}

// A Nihon Kohden set: the input is the ".EEG"; the same bytes also stand
// for its ".PNT" and ".LOG", so that their parsers meet hostile bytes too.
int NihonKohden(const uint8_t* data, size_t size) {
    const std::string base = WorkDir() + "/nk";
    WriteFile(base + ".EEG", data, size);
    WriteFile(base + ".PNT", data, size);
    WriteFile(base + ".LOG", data, size);
    CSigFilePtr file(CSigFile::Open((base + ".EEG").c_str(), 1));
    if (!file) return 0;
    std::unique_ptr<CFmtSigRec> fmt(file->CreateCompatibleFmtSigRec());
    std::unique_ptr<CRawSigRec> raw(file->CreateCompatibleRawSigRec());
    volatile double sink = 0;
    const long count = std::min(file->GetNumRecords(), kMaxRecords);
    for (long r = 0; r < count; ++r) {
        file->MoveTo(r);
        if (!file->ReadAsVolts(fmt.get()) || !file->Read(raw.get())) return 0;
        sink = sink + fmt->GetTime().GetValue();
    }
    for (unsigned i = 0; i < file->GetNumStatusItems(); ++i) sink = sink + file->GetStatusItemAt(i)->GetBeginSample();
    return 1;
}

const std::vector<Target>& Targets() {
    static const std::vector<Target> targets = {
        {"status", Status},         {"sigfile", SigFile}, {"filters", Filters},
        {"spectral_header", SpectralHeader}, {"formula", Formula}, {"edf", Edf},
        {"nihonkohden", NihonKohden},
    };
    return targets;
}

const Target* FindTarget(const std::string& name) {
    for (const Target& t : Targets())
        if (name == t.name) return &t;
    return nullptr;
}

}  // namespace fuzzentry
