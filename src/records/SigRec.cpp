#include "records/SigRec.h"

#include <algorithm>
#include <cstring>

#include "platform/Assert.h"

IMPLEMENT_SERIAL(CRawSigRec, CObject, 1)
IMPLEMENT_SERIAL(CFmtSigRec, CObject, 1)

template <class T>
int CSigRecT<T>::Create(unsigned channels, unsigned samples) {
    Destroy();
    m_nChannels = static_cast<WORD>(channels);
    m_nMaxSamples = static_cast<WORD>(samples);
    m_pStart.reset(new unsigned short[m_nChannels + 1u]);
    for (unsigned c = 0; c <= m_nChannels; ++c) m_pStart[c] = static_cast<unsigned short>(c * samples);
    m_pData.reset(new T[m_pStart[m_nChannels]]());
    return 1;
}

template <class T>
int CSigRecT<T>::Create(unsigned channels, const unsigned short* counts) {
    Destroy();
    m_nChannels = static_cast<WORD>(channels);
    m_pStart.reset(new unsigned short[m_nChannels + 1u]);
    unsigned short sum = 0;
    WORD greatest = 0;
    m_pStart[0] = 0;
    for (unsigned c = 0; c < m_nChannels; ++c) {
        sum = static_cast<unsigned short>(sum + counts[c]);  // 16-bit sums, as stored
        m_pStart[c + 1] = sum;
        greatest = std::max<WORD>(greatest, counts[c]);
    }
    m_nMaxSamples = greatest;
    m_pData.reset(new T[sum]());
    return 1;
}

template <class T>
void CSigRecT<T>::Destroy() {
    m_pStart.reset();
    m_pData.reset();
    m_nChannels = 0;
    m_nMaxSamples = 0;
}

template <class T>
CSigRecT<T>& CSigRecT<T>::operator=(const CSigRecT& src) {
    if (this == &src) return *this;
    bool sameShape = m_nChannels == src.m_nChannels && m_pStart && src.m_pStart &&
                     std::equal(m_pStart.get(), m_pStart.get() + m_nChannels + 1, src.m_pStart.get());
    if (!sameShape) {
        Destroy();
        if (src.m_pStart) {
            m_nChannels = src.m_nChannels;
            m_nMaxSamples = src.m_nMaxSamples;
            m_pStart.reset(new unsigned short[m_nChannels + 1u]);
            std::copy(src.m_pStart.get(), src.m_pStart.get() + m_nChannels + 1, m_pStart.get());
            m_pData.reset(new T[m_pStart[m_nChannels]]());
        }
    } else {
        m_nMaxSamples = src.m_nMaxSamples;
    }
    m_time = src.m_time;
    if (m_pStart && m_pStart[m_nChannels])
        std::copy(src.m_pData.get(), src.m_pData.get() + m_pStart[m_nChannels], m_pData.get());
    return *this;
}

template <class T>
unsigned CSigRecT<T>::GetNumSamples(unsigned channel) const {
    SF_ASSERT(channel <= m_nChannels, AssertSource(), 133);
    // The entry one past the last channel has no end in the table: 0 samples.
    if (channel >= m_nChannels || !m_pStart) return 0;
    return static_cast<unsigned>(m_pStart[channel + 1] - m_pStart[channel]);
}

template <class T>
void CSigRecT<T>::SetAll(T value) {
    if (m_pData) std::fill(m_pData.get(), m_pData.get() + m_pStart[m_nChannels], value);
}

template <class T>
void CSigRecT<T>::SetAt(unsigned channel, T value) {
    SF_ASSERT(channel < m_nChannels, AssertSource(), 176);
    if (channel >= m_nChannels) return;
    std::fill(m_pData.get() + m_pStart[channel], m_pData.get() + m_pStart[channel + 1], value);
}

template <class T>
void CSigRecT<T>::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << static_cast<WORD>(1) << m_time << m_nChannels << m_nMaxSamples;
        for (unsigned c = 0; c <= m_nChannels; ++c) ar << static_cast<WORD>(m_pStart ? m_pStart[c] : 0);
        for (unsigned i = 0, n = GetTotalSamples(); i < n; ++i) ar << m_pData[i];
        return;
    }
    WORD version;
    ar >> version;
    if (version > 1) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    CSDateTime time;
    WORD channels, greatest;
    ar >> time >> channels >> greatest;
    ar.CheckCount(channels + 1u, 2);
    std::unique_ptr<unsigned short[]> start(new unsigned short[channels + 1u]);
    for (unsigned c = 0; c <= channels; ++c) ar >> start[c];
    // The table must start at 0 and never decrease, or channel pointers would
    // leave the sample array.
    if (start[0] != 0) AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    for (unsigned c = 0; c < channels; ++c)
        if (start[c + 1] < start[c]) AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    unsigned total = start[channels];
    ar.CheckCount(total, sizeof(T));
    std::unique_ptr<T[]> data(new T[total]());
    for (unsigned i = 0; i < total; ++i) ar >> data[i];
    Destroy();
    m_time = time;
    m_nChannels = channels;
    m_nMaxSamples = greatest;
    m_pStart = std::move(start);
    m_pData = std::move(data);
}

template class CSigRecT<short>;
template class CSigRecT<float>;
template class CSigRecT<LONG>;
IMPLEMENT_DYNAMIC(CDigSigRec, CObject)

CArchive& operator>>(CArchive& ar, CRawSigRec*& rec) {
    rec = static_cast<CRawSigRec*>(ar.ReadObject(RUNTIME_CLASS(CRawSigRec)));
    return ar;
}

CArchive& operator>>(CArchive& ar, CFmtSigRec*& rec) {
    rec = static_cast<CFmtSigRec*>(ar.ReadObject(RUNTIME_CLASS(CFmtSigRec)));
    return ar;
}
