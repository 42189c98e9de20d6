// sigfile spectrum FILE OUT.SPC --epoch SECONDS [--taper NAME] [--detrend NAME]
//                  [--montage NAME]
// A spectral file pair computed from a recording: one spectral record per
// epoch of the given length, for the channels of recording montage 0 or of
// one of its reformatted montages (computed through the formula engine).
//
// A channel can be analysed only when its frequency x the epoch is a power of
// two of at least 4 points (the FFT length).  Channels that are not are left
// out and named in a note on standard error; when none is left the command
// fails and names them all.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "formula/RFMT.h"
#include "montage/mtgs.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "sigfile/SIGFILE.h"
#include "records/SigRec.h"
#include "sigfile/RecordSource.h"
#include "spectral/CsaCompute.h"
#include "spectral/Fft.h"

namespace sigfile_tool {
namespace {

struct SpectrumOptions {
    std::string file;
    std::string out;
    double epoch = 0.0;
    std::string taper = "hanning";
    std::string detrend = "none";
    std::string montage;
    std::vector<std::string> derives;
};

const std::map<std::string, WORD> kTapers = {
    {"rect", 0}, {"cosine", 1}, {"hanning", 2}, {"hamming", 3}, {"blackman", 4}};
const std::map<std::string, WORD> kDetrends = {{"none", 0}, {"mean", 1}, {"linear", 2}};

// Largest FFT length the factory accepts as a power of two (16-bit lengths).
constexpr unsigned kMaxFftPoints = 32768;
// A spectral record holds at most this many values.
constexpr unsigned long kMaxRecordValues = 65535;

int Failure(const std::string& text) {
    AfxMessageBox(text);
    return 1;
}

// A progress bar on standard error, drawn only when it is a terminal.
class ProgressBar : public CProgressInfo {
public:
    ProgressBar() : m_enabled(::isatty(STDERR_FILENO) == 1) {}
    ~ProgressBar() override { Finish(); }
    void SetPos(ULONGLONG pos) override {
        CProgressInfo::SetPos(pos);
        if (!m_enabled || GetRange() == 0) return;
        const int percent = static_cast<int>(std::min<ULONGLONG>(pos, GetRange()) * 100 / GetRange());
        if (percent == m_lastPercent) return;
        m_lastPercent = percent;
        constexpr int kWidth = 40;
        std::string bar(static_cast<size_t>(percent * kWidth / 100), '#');
        bar.resize(kWidth, ' ');
        std::fprintf(stderr, "\rspectrum [%s] %3d%%", bar.c_str(), percent);
        std::fflush(stderr);
        m_drawn = true;
    }
    void Finish() {
        if (m_drawn) std::fprintf(stderr, "\n");
        m_drawn = false;
    }

private:
    bool m_enabled;
    bool m_drawn = false;
    int m_lastPercent = -1;
};

// FFT length of a channel for the epoch as the factory computes it; 0 when
// the channel cannot be analysed.
unsigned FftPoints(unsigned frequency, float epoch) {
    if (frequency == 0 || frequency > CFftFactory::kMaxFrequency) return 0;
    const double points = frequency * static_cast<double>(epoch) + 0.5;
    if (!(points >= 4.0 && points < kMaxFftPoints + 1.0)) return 0;
    const unsigned n = static_cast<unsigned>(points);
    return (n & (n - 1)) == 0 ? n : 0;
}

// Text of a failure code of the computation.
std::string FailureDetail(long code) {
    if (code == ERROR_INVALID_FUNCTION) return "opération interrompue";
    std::string text;
    if (GetSystemErrorText(code, text)) return text;
    return StrFormat(LoadResString(IDS_ERR_CODE).c_str(), code);
}

// Reads records of the recording as the channels of the logical montage:
// through the library's record source (the recording montage's records as
// they are, or the outputs of the formula engine), with its rule for the
// records beyond the ends.
class MontageRecordReader {
public:
    MontageRecordReader(CSigFile& file, CReformatedMontage* computed) : m_file(file), m_source(file) {
        if (computed) m_derived = std::make_unique<CDerivedSource>(file, computed);
    }

    bool Compile(std::string& error) { return !m_derived || m_derived->Compile(&error); }

    int operator()(LONG index, CFmtSigRec& record) {
        if (record.GetNumChannels() == 0) {
            std::unique_ptr<CFmtSigRec> shape(m_derived ? m_derived->CreateCompatibleFmtSigRec()
                                                        : m_source.CreateCompatibleFmtSigRec());
            record = *shape;
        }
        const int ok = m_derived ? m_derived->Read(index, record) : m_source.Read(index, record);
        if (ok) return 1;
        const long code = m_file.GetIOError() > 0 ? m_file.GetIOError() : ERROR_READ_FAULT;
        m_failure = StrFormat("Lecture impossible de l'enregistrement %ld du fichier %s : %s", static_cast<long>(index),
                              m_file.GetFileName(), FailureDetail(code).c_str());
        SetLastError(code);
        return 0;
    }

    // What went wrong with the last record that could not be given.
    const std::string& GetFailure() const { return m_failure; }

private:
    CSigFile& m_file;
    CRecordSource m_source;
    std::unique_ptr<CDerivedSource> m_derived;
    std::string m_failure;
};

int RunSpectrum(const SpectrumOptions& opt) {
    long error = 0;
    CSigFilePtr file(CSigFile::Open(opt.file.c_str(), 1, &error));
    if (!file) {
        // -1: the failure was reported already.
        if (error != 0 && error != -1) CSigFile::ErrorMessageBox(opt.file.c_str(), error);
        return 1;
    }
    // A copy of the montages, which the formula engine compiles from.
    const CPhysicalMontage* stored = file->GetPhysicalMontage();
    if (!stored || stored->GetNumRecordingMontages() == 0 ||
        stored->GetRecordingMontageAt(0)->GetBaseFrequency() == 0) {
        CSigFile::ErrorMessageBox(opt.file.c_str(), ERROR_BAD_FORMAT);
        return 1;
    }
    CPhysicalMontage physical(*stored);
    CRecordingMontage* rec0 = physical.GetRecordingMontageAt(0);
    CLogicalMontage* montage = rec0;
    CComputedMontage computed;
    std::string why;
    if (!computed.Choose(*file, opt.montage, opt.derives, why)) return Failure(why);
    MontageRecordReader reader(*file, computed.Get());
    if (computed.Get()) {
        if (!reader.Compile(why)) {
            const std::string name = opt.montage.empty() ? std::string("--derive") : opt.montage;
            return Failure("Impossible de calculer le montage " + name + (why.empty() ? "" : "\n" + why));
        }
        montage = computed.Get();
    } else if (rec0->GetNumChannels() != file->GetNumChannels()) {
        CSigFile::ErrorMessageBox(opt.file.c_str(), ERROR_BAD_FORMAT);
        return 1;
    }

    // The channels that the epoch allows.
    const float epoch = static_cast<float>(opt.epoch);
    std::vector<WORD> selected;
    std::string leftOut;
    unsigned long values = 0;
    for (unsigned c = 0; c < montage->GetNumChannels(); ++c) {
        const unsigned points = FftPoints(montage->GetFrequency(c), epoch);
        if (points) {
            selected.push_back(static_cast<WORD>(c));
            values += points / 2;
        } else {
            leftOut += StrFormat("%s%s (%u Hz)", leftOut.empty() ? "" : ", ", montage->GetLabel(c).c_str(),
                                 montage->GetFrequency(c));
        }
    }
    if (selected.empty())
        return Failure(StrFormat("Aucun canal ne peut être analysé avec une époque de %g s (fréquence x époque doit "
                                 "être une puissance de deux d'au moins 4 points) : %s",
                                 static_cast<double>(epoch), leftOut.c_str()));
    if (values > kMaxRecordValues)
        return Failure(StrFormat("Trop de valeurs par enregistrement spectral (%lu, au plus %lu) : choisir une "
                                 "époque plus courte ou un montage de moins de canaux",
                                 values, kMaxRecordValues));

    const LONG numRecords = file->GetNumRecords();
    const double recordSeconds = static_cast<double>(rec0->GetSamplesRecord()) / rec0->GetBaseFrequency();
    const double duration = numRecords * recordSeconds;
    if (duration + 1e-9 < epoch)
        return Failure(StrFormat("L'enregistrement (%g s) est plus court que l'époque d'analyse (%g s)", duration,
                                 static_cast<double>(epoch)));
    if (!leftOut.empty())
        std::fprintf(stderr, "Canaux non analysés (fréquence x époque n'est pas une puissance de deux) : %s\n",
                     leftOut.c_str());

    CSpectralSettings settings;
    settings.fftEpochLen = epoch;
    settings.preProcessing = kDetrends.at(opt.detrend);
    settings.tapering = kTapers.at(opt.taper);
    const CFileHeader* header = file->GetFileHeader();
    const std::string sigFileId = header ? header->GetCreationDateTime().ToIso() : std::string();
    ProgressBar progress;
    long code = 0;
    const int ok = ComputeSpectralFile(
        opt.out.c_str(), montage, static_cast<unsigned>(selected.size()), selected.data(), settings, numRecords,
        [&reader](LONG index, CFmtSigRec& record) { return reader(index, record); }, opt.file.c_str(),
        sigFileId.c_str(), file->GetPatientInfo(), &progress, &code);
    progress.Finish();
    if (!ok && !reader.GetFailure().empty()) return Failure(reader.GetFailure());
    if (!ok)
        return Failure("Impossible d'écrire le fichier spectral " + opt.out + " : " +
                       FailureDetail(code ? code : ERROR_WRITE_FAULT));
    return 0;
}

}  // namespace

void RegisterSpectrumCommand(CLI::App& app) {
    auto opt = std::make_shared<SpectrumOptions>();
    auto* cmd = app.add_subcommand("spectrum", "write a spectral file pair (.SPC and .SPH) computed from a recording");
    cmd->add_option("FILE", opt->file, "recording file")->required();
    cmd->add_option("OUT", opt->out, "spectral data file to write (.SPC); its header goes beside it (.SPH)")
        ->required()
        ->check([](const std::string& name) {
            return EqualsNoCase(ExtractExt(name), ".SPC") ? std::string() : std::string("expected a name ending in .SPC");
        });
    cmd->add_option("--epoch", opt->epoch, "epoch length in seconds (one spectral record per epoch)")
        ->required()
        ->check([](const std::string& text) {
            char* end = nullptr;
            const double v = std::strtod(text.c_str(), &end);
            if (end == text.c_str() || *end != '\0' || !std::isfinite(v) || v <= 0.0)
                return std::string("expected a number of seconds above 0");
            return std::string();
        });
    std::vector<std::string> tapers, detrends;
    for (const auto& t : kTapers) tapers.push_back(t.first);
    for (const auto& d : kDetrends) detrends.push_back(d.first);
    cmd->add_option("--taper", opt->taper, "tapering window (default hanning)")->check(CLI::IsMember(tapers));
    cmd->add_option("--detrend", opt->detrend, "removed before the FFT, after tapering (default none)")
        ->check(CLI::IsMember(detrends));
    cmd->add_option("--montage", opt->montage, "reformatted montage whose channels are computed and analysed");
    cmd->add_option("--derive", opt->derives, "a computed channel LABEL=FORMULA to analyse (repeatable)")
        ->allow_extra_args(false);
    cmd->callback([opt] {
        try {
            g_exitStatus = RunSpectrum(*opt);
        } catch (const CException& e) {
            PrintError(e.GetMessageText());
            g_exitStatus = 1;
        }
    });
}

}  // namespace sigfile_tool
