// The native codec.  Samples are stored without compression; a stored record
// is the 8-byte time of its first sample (the CSDateTime double as held in
// memory) followed by each channel's 16-bit samples in montage order:
//
//   offset 0                    8 bytes   record time
//   offset 8                    2 x n(0)  channel 0
//   offset 8 + 2 x n(0)         2 x n(1)  channel 1, ...
//
// record size = 8 + 2 x (n(0) + n(1) + ...).
//
// Archive form (WORD each): version 1, channels, record size, samples per
// record, then each channel's samples per record.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>

#include "records/SigCoDec.h"

class CRecordingMontage;

class CStdCoDec : public CSigCoDec {
    DECLARE_SERIAL(CStdCoDec)
public:
    CStdCoDec() = default;
    // Shape of the records of a recording montage: 64 samples per record,
    // each channel's count from the montage.
    explicit CStdCoDec(const CRecordingMontage* montage);
    CStdCoDec(const CStdCoDec& src);
    ~CStdCoDec() override = default;

    void Serialize(CArchive& ar) override;
    CSigCoDec& operator=(const CSigCoDec& src) override;
    CStdCoDec& operator=(const CStdCoDec& src) { return static_cast<CStdCoDec&>(*this = static_cast<const CSigCoDec&>(src)); }

    unsigned GetCompRecSize() const override { return m_nCompRecSize; }
    unsigned GetNumChannels() const override { return m_nChannels; }
    unsigned GetSamplesRecord() const override { return m_nSamplesRecord; }
    unsigned short* GetSamplesChannel() const override { return m_pSamplesChannel.get(); }
    CRawSigRec* CreateCompatibleRawSigRec() const override;
    CFmtSigRec* CreateCompatibleFmtSigRec() const override;
    void Compress(CRawSigRec* from, CByteArray* to) override;
    void DeCompress(CByteArray* from, CRawSigRec* to) override;

private:
    WORD m_nCompRecSize = 0;
    WORD m_nSamplesRecord = 0;
    WORD m_nChannels = 0;
    std::unique_ptr<unsigned short[]> m_pSamplesChannel;
};
#pragma GCC visibility pop
