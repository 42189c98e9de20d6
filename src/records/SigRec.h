// Signal records: one fixed stretch of time for every channel of a
// recording.  CRawSigRec holds the 16-bit AD samples, CFmtSigRec the same
// record as calibrated floats.  Samples are channel-major: all samples of
// channel 0, then channel 1, ...; channels may differ in sample count.
//
// Archive form: WORD version (1), CSDateTime, WORD channels, WORD greatest
// count, (channels + 1) WORD start table, samples.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>

#include "platform/Archive.h"
#include "platform/DateTime.h"
#include "platform/Object.h"

template <class T>
class CSigRecT : public CObject {
public:
    using Sample = T;

    CSigRecT() = default;
    CSigRecT(unsigned channels, unsigned samples) { Create(channels, samples); }
    CSigRecT(unsigned channels, const unsigned short* counts) { Create(channels, counts); }
    ~CSigRecT() override { Destroy(); }
    CSigRecT(const CSigRecT&) = delete;

    int Create(unsigned channels, unsigned samples);
    int Create(unsigned channels, const unsigned short* counts);
    void Destroy();

    // Same shape: only the time and the samples are copied into the existing
    // arrays; otherwise the record takes the source's shape first.
    virtual CSigRecT& operator=(const CSigRecT& src);

    unsigned GetNumChannels() const { return m_nChannels; }
    unsigned GetNumSamples() const { return m_nMaxSamples; }
    unsigned GetNumSamples(unsigned channel) const;
    // Total samples of all channels.
    unsigned GetTotalSamples() const { return m_pStart ? m_pStart[m_nChannels] : 0; }
    const unsigned short* GetStartTable() const { return m_pStart.get(); }

    CSDateTime GetTime() const { return m_time; }
    void SetTime(CSDateTime t) { m_time = t; }

    T GetAt(unsigned channel, unsigned sample) const { return m_pData[m_pStart[channel] + sample]; }
    T* GetAt(unsigned channel) { return m_pData.get() + m_pStart[channel]; }
    const T* GetAt(unsigned channel) const { return m_pData.get() + m_pStart[channel]; }
    T* GetData() { return m_pData.get(); }
    const T* GetData() const { return m_pData.get(); }

    void SetAll(T value);
    void SetAt(unsigned channel, T value);
    void SetAt(unsigned channel, unsigned sample, T value) { m_pData[m_pStart[channel] + sample] = value; }

    void Serialize(CArchive& ar) override;

protected:
    // Source name used by the assertions of this record class.
    virtual const char* AssertSource() const = 0;

    WORD m_nChannels = 0;
    WORD m_nMaxSamples = 0;
    CSDateTime m_time;
    std::unique_ptr<unsigned short[]> m_pStart;
    std::unique_ptr<T[]> m_pData;
};

class CRawSigRec : public CSigRecT<short> {
    DECLARE_SERIAL(CRawSigRec)
public:
    using CSigRecT<short>::CSigRecT;
    using CSigRecT<short>::operator=;

protected:
    const char* AssertSource() const override { return "RSIGREC"; }
};

class CFmtSigRec : public CSigRecT<float> {
    DECLARE_SERIAL(CFmtSigRec)
public:
    using CSigRecT<float>::CSigRecT;
    using CSigRecT<float>::operator=;

protected:
    const char* AssertSource() const override { return "FSIGREC"; }
};

// The stored samples of a record as integers, whatever their width (16-bit
// native and EDF samples, 24-bit BDF samples): what CSigFile::ReadDigital
// gives.  Not stored in archives.
class CDigSigRec : public CSigRecT<LONG> {
    DECLARE_DYNAMIC(CDigSigRec)
public:
    using CSigRecT<LONG>::CSigRecT;
    using CSigRecT<LONG>::operator=;

protected:
    const char* AssertSource() const override { return "DSIGREC"; }
};

// Read a whole record object of that class (class record or back reference).
CArchive& operator>>(CArchive& ar, CRawSigRec*& rec);
CArchive& operator>>(CArchive& ar, CFmtSigRec*& rec);
#pragma GCC visibility pop
