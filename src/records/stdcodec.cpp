// The native codec: shape of the records, archive form, and the copy between
// stored record images and CRawSigRec.
//
// The assertions here report and carry on, so the copies never trust the
// shapes to agree: each channel copies only the samples that fit both the
// record and the image, and whatever the copy could not fill is zero.
#include "records/stdcodec.h"

#include <algorithm>
#include <cstring>

#include "platform/Assert.h"

IMPLEMENT_SERIAL(CStdCoDec, CSigCoDec, 1)

namespace {

constexpr const char* kSource = "stdcodec";
constexpr size_t kTimeBytes = 8;

// Samples of channel c that can be addressed in rec without leaving its data,
// and the first of them; 0 when the record has no such channel.
size_t RecordRoom(const CRawSigRec* rec, unsigned c, short*& first) {
    first = nullptr;
    if (!rec->GetStartTable() || c >= rec->GetNumChannels()) return 0;
    size_t start = rec->GetStartTable()[c];
    size_t total = rec->GetTotalSamples();
    if (start >= total) return 0;
    first = const_cast<short*>(rec->GetData()) + start;
    return std::min<size_t>(rec->GetNumSamples(c), total - start);
}

}  // namespace

CStdCoDec::CStdCoDec(const CStdCoDec& src) : CSigCoDec(src) { *this = src; }

CSigCoDec& CStdCoDec::operator=(const CSigCoDec& src) {
    const auto* other = dynamic_cast<const CStdCoDec*>(&src);
    SF_ASSERT(other != nullptr, kSource, 51);
    if (!other || other == this) return *this;
    m_nCompRecSize = other->m_nCompRecSize;
    m_nSamplesRecord = other->m_nSamplesRecord;
    m_nChannels = other->m_nChannels;
    m_pSamplesChannel.reset();
    if (other->m_pSamplesChannel) {
        m_pSamplesChannel.reset(new unsigned short[m_nChannels]);
        std::copy_n(other->m_pSamplesChannel.get(), m_nChannels, m_pSamplesChannel.get());
    }
    return *this;
}

void CStdCoDec::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << WORD(1) << m_nChannels << m_nCompRecSize << m_nSamplesRecord;
        for (unsigned c = 0; c < m_nChannels; ++c) ar << WORD(m_pSamplesChannel ? m_pSamplesChannel[c] : 0);
        return;
    }
    WORD version, channels, recSize, samplesRecord;
    ar >> version;
    if (version > 1) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    ar >> channels >> recSize >> samplesRecord;
    ar.CheckCount(channels, sizeof(WORD));
    std::unique_ptr<unsigned short[]> counts(channels ? new unsigned short[channels] : nullptr);
    for (unsigned c = 0; c < channels; ++c) ar >> counts[c];
    // Only a complete read replaces the codec's shape.
    m_nChannels = channels;
    m_nCompRecSize = recSize;
    m_nSamplesRecord = samplesRecord;
    m_pSamplesChannel = std::move(counts);
}

CRawSigRec* CStdCoDec::CreateCompatibleRawSigRec() const {
    auto* rec = new CRawSigRec;
    if (m_pSamplesChannel) rec->Create(m_nChannels, m_pSamplesChannel.get());
    else rec->Create(0, 0u);
    return rec;
}

CFmtSigRec* CStdCoDec::CreateCompatibleFmtSigRec() const {
    auto* rec = new CFmtSigRec;
    if (m_pSamplesChannel) rec->Create(m_nChannels, m_pSamplesChannel.get());
    else rec->Create(0, 0u);
    return rec;
}

void CStdCoDec::Compress(CRawSigRec* from, CByteArray* to) {
    if (!from || !to) AfxThrowInvalidArgException();
    if (to->GetSize() != static_cast<int>(m_nCompRecSize)) to->SetSize(m_nCompRecSize);
    SF_ASSERT(to->GetSize() == static_cast<int>(m_nCompRecSize), kSource, 105);
    if (to->GetSize() < 1) AfxThrowInvalidArgException();
    BYTE* out = to->GetData();
    const size_t size = static_cast<size_t>(to->GetSize());
    std::memset(out, 0, size);
    double t = from->GetTime().GetValue();
    std::memcpy(out, &t, std::min(kTimeBytes, size));

    size_t offset = kTimeBytes;
    for (unsigned c = 0; c < m_nChannels; ++c) {
        size_t count = m_pSamplesChannel ? m_pSamplesChannel[c] : 0;
        SF_ASSERT(c < from->GetNumChannels() && from->GetNumSamples(c) == count, kSource, 111);
        short* samples = nullptr;
        size_t n = std::min(count, RecordRoom(from, c, samples));
        if (offset < size) n = std::min(n, (size - offset) / 2);
        else n = 0;
        if (n) std::memcpy(out + offset, samples, n * 2);
        offset += count * 2;
    }
}

void CStdCoDec::DeCompress(CByteArray* from, CRawSigRec* to) {
    if (!from || !to) AfxThrowInvalidArgException();
    if (from->GetSize() != static_cast<int>(m_nCompRecSize)) from->SetSize(m_nCompRecSize);
    if (from->GetSize() < 1) AfxThrowInvalidArgException();
    const BYTE* in = from->GetData();
    const size_t size = static_cast<size_t>(from->GetSize());
    double t = 0.0;
    std::memcpy(&t, in, std::min(kTimeBytes, size));
    to->SetTime(CSDateTime(t));

    size_t offset = kTimeBytes;
    for (unsigned c = 0; c < m_nChannels; ++c) {
        size_t count = m_pSamplesChannel ? m_pSamplesChannel[c] : 0;
        SF_ASSERT(c < to->GetNumChannels() && to->GetNumSamples(c) == count, kSource, 131);
        short* samples = nullptr;
        size_t room = RecordRoom(to, c, samples);
        size_t n = std::min(count, room);
        if (offset < size) n = std::min(n, (size - offset) / 2);
        else n = 0;
        if (n) std::memcpy(samples, in + offset, n * 2);
        if (room > n) std::fill(samples + n, samples + room, short(0));
        offset += count * 2;
    }
}
