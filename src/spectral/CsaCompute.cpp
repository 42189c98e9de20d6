#include "spectral/CsaCompute.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <deque>
#include <memory>
#include <vector>

#include "montage/mtgs.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "sigfile/SIGFILE.h"
#include "records/SigRec.h"
#include "spectral/Csafile.h"
#include "spectral/Fft.h"
#include "spectral/Specrec.h"

namespace {

// The records of the recording that the current FFT epoch needs, read once
// each and recycled as the epochs move on.
class RecordWindow {
public:
    RecordWindow(const SpectralRecordReader& reader) : m_reader(reader) {}

    // Makes the window hold records first .. last; false when one cannot be read.
    bool Hold(LONG first, LONG last) {
        if (first < m_first || m_recs.empty()) {
            Recycle(m_recs.size());
            m_first = first;
        }
        while (m_first < first && !m_recs.empty()) {
            Recycle(1);
            ++m_first;
        }
        if (m_recs.empty()) m_first = first;
        while (m_first + static_cast<LONG>(m_recs.size()) <= last) {
            std::unique_ptr<CFmtSigRec> rec;
            if (!m_spare.empty()) {
                rec = std::move(m_spare.back());
                m_spare.pop_back();
            } else {
                rec = std::make_unique<CFmtSigRec>();
            }
            if (!m_reader(m_first + static_cast<LONG>(m_recs.size()), *rec)) {
                m_spare.push_back(std::move(rec));
                return false;
            }
            m_recs.push_back(std::move(rec));
        }
        m_pointers.clear();
        for (LONG r = first; r <= last; ++r) m_pointers.push_back(m_recs[static_cast<size_t>(r - m_first)].get());
        return true;
    }
    const CFmtSigRec* const* Pointers() const { return m_pointers.data(); }
    int Count() const { return static_cast<int>(m_pointers.size()); }

private:
    void Recycle(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            m_spare.push_back(std::move(m_recs.front()));
            m_recs.pop_front();
        }
    }

    const SpectralRecordReader& m_reader;
    LONG m_first = 0;
    std::deque<std::unique_ptr<CFmtSigRec>> m_recs;
    std::vector<std::unique_ptr<CFmtSigRec>> m_spare;
    std::vector<const CFmtSigRec*> m_pointers;
};

int Fail(long code, long* error) {
    SetLastError(code);
    if (error) *error = code;
    return 0;
}

}  // namespace

int ComputeSpectralFile(const char* outName, const CLogicalMontage* montage, unsigned numSelected,
                        const WORD* selected, const CSpectralSettings& settings, LONG numRecords,
                        const SpectralRecordReader& reader, const char* sigFileName, const char* sigFileId,
                        const CPatientInfo* patient, CProgressInfo* progress, long* error) {
    const std::string out = outName ? outName : "";
    if (!EqualsNoCase(ExtractExt(out), ".SPC") || !montage || !montage->GetRecordingMontage() || !selected ||
        numSelected == 0 || numRecords <= 0 || !reader)
        return Fail(ERROR_INVALID_PARAMETER, error);

    const double fftEpoch = settings.fftEpochLen;
    const double csaEpoch = settings.csaEpochLen > 0.0f ? settings.csaEpochLen : settings.fftEpochLen;
    const double restart = settings.restartInterval > 0.0f ? settings.restartInterval : csaEpoch;
    const CRecordingMontage* rec = montage->GetRecordingMontage();
    if (!(fftEpoch > 0.0) || settings.pcOverlap >= 100 || csaEpoch + 1e-9 < fftEpoch || rec->GetBaseFrequency() == 0 ||
        rec->GetSamplesRecord() == 0)
        return Fail(ERROR_INVALID_PARAMETER, error);
    const double recDur = static_cast<double>(rec->GetSamplesRecord()) / rec->GetBaseFrequency();
    const double duration = numRecords * recDur;
    if (duration + 1e-9 < csaEpoch) return Fail(ERROR_INVALID_PARAMETER, error);
    const LONG numEpochs = static_cast<LONG>(std::floor((duration - csaEpoch) / restart + 1e-9)) + 1;
    const double step = fftEpoch * (100 - settings.pcOverlap) / 100.0;
    const int perEpoch = static_cast<int>(std::floor((csaEpoch - fftEpoch) / step + 1e-9)) + 1;

    std::vector<WORD> channels(selected, selected + numSelected);
    std::sort(channels.begin(), channels.end());
    channels.erase(std::unique(channels.begin(), channels.end()), channels.end());
    CFftFactory factory(fftEpoch, settings.preProcessing, settings.tapering);
    unsigned minFreq = 0xFFFF;
    for (WORD c : channels) {
        if (c >= montage->GetNumChannels()) return Fail(ERROR_INVALID_PARAMETER, error);
        const unsigned freq = montage->GetFrequency(c);
        const unsigned points = static_cast<unsigned>(freq * fftEpoch + 0.5);
        if (freq == 0 || freq > CFftFactory::kMaxFrequency || points < 4 || (points & (points - 1)) != 0)
            return Fail(ERROR_INVALID_PARAMETER, error);
        if (!factory.AddChannel(c, static_cast<WORD>(freq))) return Fail(ERROR_INVALID_PARAMETER, error);
        minFreq = std::min(minFreq, freq);
    }

    // Built under a temporary name of its own (process and call), renamed
    // over the target when complete: two computations of the same target
    // never write into each other's pair.
    static std::atomic<unsigned> calls{0};
    CCsaFile::RecoverPair(out.c_str());
    std::string tmpName;
    do {
        tmpName = OwnedTemporaryName(out, StrFormat("spc%u_", calls++).c_str());
    } while (VhlCheckFileExist(tmpName) || VhlCheckFileExist(CCsaFile::HeaderName(tmpName)));
    long code = 0;
    CCsaFile* file = CCsaFile::Create(tmpName.c_str(), sigFileName, sigFileId, patient, settings.fftEpochLen,
                                      settings.preProcessing, settings.tapering, settings.pcOverlap,
                                      static_cast<float>(csaEpoch), static_cast<float>(restart), montage,
                                      numSelected, selected, &code);
    if (!file) return Fail(code, error);
    auto abandon = [&](long why) {
        if (!file->Close()) delete file;
        CCsaFile::Delete(tmpName.c_str());
        return Fail(why, error);
    };

    std::unique_ptr<CFftRec> fft(factory.CreateCompatibleFftRec());
    std::unique_ptr<CSpecRec> sum(file->CreateCompatibleSpecRec());
    std::unique_ptr<CSpecRec> one(file->CreateCompatibleSpecRec());
    RecordWindow window(reader);
    if (progress) progress->SetRange(static_cast<ULONGLONG>(numEpochs));
    for (LONG k = 0; k < numEpochs; ++k) {
        for (int j = 0; j < perEpoch; ++j) {
            const double t = k * restart + j * step;
            // The epoch starts in the record where every channel's first
            // sample (rounded to the nearest) lies.
            LONG first = static_cast<LONG>(std::floor((t + 0.5 / minFreq) / recDur));
            first = std::min(first, numRecords - 1);
            const double offset = std::max(0.0, t - first * recDur);
            LONG last = static_cast<LONG>(std::ceil((t + fftEpoch) / recDur - 1e-9)) - 1;
            last = std::min(std::max(last, first), numRecords - 1);
            if (!window.Hold(first, last)) return abandon(GetLastError() ? GetLastError() : ERROR_READ_FAULT);
            if (!factory.Transform(offset, window.Pointers(), window.Count(), *fft))
                return abandon(ERROR_BAD_LENGTH);
            CSpecRec& target = j == 0 ? *sum : *one;
            target.Transform(*fft);
            if (j > 0) *sum += *one;
        }
        if (perEpoch > 1) *sum /= static_cast<float>(perEpoch);
        if (!file->Write(*sum)) return abandon(GetLastError() ? GetLastError() : ERROR_WRITE_FAULT);
        if (progress) {
            progress->SetPos(static_cast<ULONGLONG>(k + 1));
            if (progress->IsCancelled()) return abandon(ERROR_INVALID_FUNCTION);
        }
    }
    if (!file->Close()) {
        code = GetLastError();
        delete file;
        CCsaFile::Delete(tmpName.c_str());
        return Fail(code ? code : ERROR_WRITE_FAULT, error);
    }
    if (!CCsaFile::Rename(tmpName.c_str(), out.c_str())) {
        code = GetLastError();
        CCsaFile::Delete(tmpName.c_str());
        return Fail(code, error);
    }
    return 1;
}
