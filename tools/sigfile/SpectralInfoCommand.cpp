// Description of a spectral file pair (".SPC" data, ".SPH" header): where it
// came from, the analysis settings, its records, channels, breaks and
// annotations; as text or as one JSON object.
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "Commands.h"
#include "JsonSupport.h"
#include "montage/mtgs.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "spectral/Csafile.h"
#include "spectral/Specrec.h"

namespace sigfile_tool {
namespace {


const char* const kTaperNames[] = {"rect", "cosine", "hanning", "hamming", "blackman"};
const char* const kDetrendNames[] = {"none", "mean", "linear"};

const char* TaperName(unsigned code) { return code < 5 ? kTaperNames[code] : "unknown"; }
const char* DetrendName(unsigned code) { return code < 3 ? kDetrendNames[code] : "unknown"; }

// A float as the shortest decimal text that reads back as the same float,
// converted to double (0.1f prints as 0.1, not 0.100000001).
double Decimal(float value) {
    char text[64];
    auto res = std::to_chars(text, text + sizeof text - 1, value);
    *res.ptr = '\0';
    return std::strtod(text, nullptr);
}

using CsaFilePtr = CCsaFilePtr;

// The data file's name for a name of either file of the pair: ".SPH" becomes
// ".SPC" in the same case.
std::string DataFileName(const std::string& name) {
    const std::string ext = ExtractExt(name);
    if (!EqualsNoCase(ext, ".SPH")) return name;
    std::string data = name;
    data.back() = ext.back() == 'h' ? 'c' : 'C';
    return data;
}

// Times of the first and last records (unset when there is none or they
// cannot be read).
struct RecordSpan {
    bool known = false;
    CSDateTime first, last;
};

RecordSpan ReadSpan(CCsaFile& file) {
    RecordSpan span;
    if (file.GetNumRecords() == 0) return span;
    std::unique_ptr<CSpecRec> rec(file.CreateCompatibleSpecRec());
    if (!rec || !file.MoveFirst() || !file.Read(*rec)) return span;
    span.first = rec->GetTime();
    if (!file.MoveLast() || !file.Read(*rec)) return span;
    span.last = rec->GetTime();
    span.known = true;
    return span;
}

Json InfoJson(const std::string& name, CCsaFile& file) {
    Json j = Json::object();
    j["file"] = name;
    j["source"] = {{"file", file.GetSigFileName()}, {"id", file.GetSigFileId()}};
    j["patient"] = PatientJson(file.GetPatientInfo());
    j["fft"] = {{"epoch_s", Decimal(file.GetFftEpochLength())},
                {"detrend", file.GetFftPreprocessing()},
                {"detrend_name", DetrendName(file.GetFftPreprocessing())},
                {"taper", file.GetFftTapering()},
                {"taper_name", TaperName(file.GetFftTapering())},
                {"overlap_percent", file.GetPcOverlap()}};
    j["analysis_epoch_s"] = Decimal(file.GetCsaEpochLength());
    j["restart_interval_s"] = Decimal(file.GetCsaRestartInterval());
    j["resolution_hz"] = Decimal(file.GetFreqRes());
    j["max_frequency_hz"] = Decimal(file.GetMaxFreq());
    j["records"] = file.GetNumRecords();
    j["record_size"] = file.GetRecordSize();
    const RecordSpan span = ReadSpan(file);
    j["first_record_time"] = span.known ? Json(span.first.ToIso()) : Json(nullptr);
    j["last_record_time"] = span.known ? Json(span.last.ToIso()) : Json(nullptr);
    const CLogicalMontage* montage = file.GetLogicalMontage();
    j["montage"] = montage ? montage->GetMontageName() : "";
    Json channels = Json::array();
    for (unsigned c = 0; c < file.GetNumChannels(); ++c)
        channels.push_back({{"label", file.GetChannelLabel(c)},
                            {"source_frequency", file.GetChannelSourceFreq(c)},
                            {"type", file.GetChannelType(c)},
                            {"unit", file.GetChannelUnit(c)},
                            {"frequencies", file.GetChannelNumFreq(c)},
                            {"max_frequency_hz", Decimal(file.GetChannelMaxFreq(c))}});
    j["channels"] = channels;
    Json breaks = Json::array();
    for (int i = 0; i < file.GetNumDiscontinuities(); ++i) breaks.push_back(file.GetDiscontinuityAt(i));
    j["discontinuities"] = breaks;
    Json notes = Json::array();
    for (int i = 0; i < file.GetNumPairsAnnotRecIx(); ++i) {
        DWORD index = 0;
        CString text;
        if (file.GetPairAnnotRecIxAt(i, index, text)) notes.push_back({{"record", index}, {"text", text}});
    }
    j["annotations"] = notes;
    return j;
}

void PrintText(const std::string& name, CCsaFile& file) {
    std::printf("file:        %s (spectral)\n", name.c_str());
    std::printf("source:      %s (id %s)\n", file.GetSigFileName().c_str(), file.GetSigFileId().c_str());
    if (const CPatientInfo* p = file.GetPatientInfo())
        std::printf("patient:     %s %s, id %s, born %s, sex %u\n", p->GetFirstName().c_str(),
                    p->GetLastName().c_str(), p->GetPatientId1().c_str(), p->GetBirthDate().ToIso().c_str(),
                    static_cast<unsigned>(p->GetSex()));
    std::printf("fft:         epoch %g s, detrend %s, taper %s, overlap %u%%\n",
                Decimal(file.GetFftEpochLength()), DetrendName(file.GetFftPreprocessing()),
                TaperName(file.GetFftTapering()), static_cast<unsigned>(file.GetPcOverlap()));
    std::printf("analysis:    epoch %g s, restart every %g s\n", Decimal(file.GetCsaEpochLength()),
                Decimal(file.GetCsaRestartInterval()));
    std::printf("spectrum:    resolution %g Hz, up to %g Hz\n", Decimal(file.GetFreqRes()),
                Decimal(file.GetMaxFreq()));
    const RecordSpan span = ReadSpan(file);
    std::printf("records:     %u of %u bytes", static_cast<unsigned>(file.GetNumRecords()),
                static_cast<unsigned>(file.GetRecordSize()));
    if (span.known) std::printf(", %s to %s", span.first.ToIso().c_str(), span.last.ToIso().c_str());
    std::printf("\n");
    const CLogicalMontage* montage = file.GetLogicalMontage();
    std::printf("montage \"%s\": %u channels\n", montage ? montage->GetMontageName() : "", file.GetNumChannels());
    for (unsigned c = 0; c < file.GetNumChannels(); ++c)
        std::printf("  %-17s %4u Hz  %5u frequencies up to %g Hz  type %u unit %u\n",
                    file.GetChannelLabel(c).c_str(), file.GetChannelSourceFreq(c), file.GetChannelNumFreq(c),
                    Decimal(file.GetChannelMaxFreq(c)), file.GetChannelType(c), file.GetChannelUnit(c));
    std::string breaks;
    for (int i = 0; i < file.GetNumDiscontinuities(); ++i)
        breaks += StrFormat(" %u", static_cast<unsigned>(file.GetDiscontinuityAt(i)));
    std::printf("discontinuities: %d%s%s\n", file.GetNumDiscontinuities(), breaks.empty() ? "" : " at", breaks.c_str());
    std::printf("annotations: %d\n", file.GetNumPairsAnnotRecIx());
    for (int i = 0; i < file.GetNumPairsAnnotRecIx(); ++i) {
        DWORD index = 0;
        CString text;
        if (file.GetPairAnnotRecIxAt(i, index, text))
            std::printf("  %8u  %s\n", static_cast<unsigned>(index), text.c_str());
    }
}

}  // namespace

int PrintSpectralInfo(const std::string& name, bool json) {
    const std::string data = DataFileName(name);
    try {
        long error = 0;
        CsaFilePtr file(CCsaFile::Open(data.c_str(), 1, &error));
        if (!file) {
            CSigFile::ErrorMessageBox(name.c_str(), error ? error : ERROR_BAD_FORMAT);
            return 1;
        }
        if (json)
            std::printf("%s\n", InfoJson(name, *file).dump(2, ' ', false, Json::error_handler_t::replace).c_str());
        else
            PrintText(name, *file);
        return 0;
    } catch (const CException&) {
        CSigFile::ErrorMessageBox(name.c_str(), ERROR_BAD_FORMAT);
        return 1;
    }
}

}  // namespace sigfile_tool
