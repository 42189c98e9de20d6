// Building the native codec from a recording montage.
#include "montage/mtgs.h"
#include "platform/Assert.h"
#include "records/stdcodec.h"

CStdCoDec::CStdCoDec(const CRecordingMontage* montage) {
    m_nSamplesRecord = 64;
    m_nCompRecSize = 8;  // the record's time
    if (!montage) return;
    m_nChannels = static_cast<WORD>(montage->GetNumChannels());
    m_pSamplesChannel.reset(new unsigned short[m_nChannels]());
    for (unsigned c = 0; c < m_nChannels; ++c) {
        unsigned count = montage->GetSamplesChannel(c);
        SF_ASSERT(count > 0, "stdcodec", 42);
        m_pSamplesChannel[c] = static_cast<unsigned short>(count);
        m_nCompRecSize = static_cast<WORD>(m_nCompRecSize + 2 * count);
    }
}
