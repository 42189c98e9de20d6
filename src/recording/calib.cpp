#include "recording/calib.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

#include "platform/Assert.h"
#include "records/SigRec.h"

IMPLEMENT_SERIAL(CCalibration, CObject, 1)

namespace {

constexpr const char* kSource = "calib";
constexpr WORD kVersion = 3;

// Assertion lines of the operations.
enum : int {
    kLineSetCalibFromPoints = 132,
    kLineGetCalibPoints = 163,
    kLineSetCalibFromGain = 175,
    kLineGetCalibGain = 202,
    kLineDecalChannels = 441,
    kLineDecalSamples = 448,
    kLineDecalRange = 453,
    kLineVoltsChannels = 468,
    kLineVoltsSamples = 474,
    kLineDecalVoltsChannels = 487,
    kLineDecalVoltsRange = 489,
    kLineDecalVoltsSamples = 494,
    kLineInsertChannel = 514,
    kLineDeleteChannel = 531,
    kLineAdToWorld = 556,
    kLineWorldToAd = 567,
};

// Truncation toward zero into a signed 32-bit value.  A value that has no
// such form (not a number, or out of range) gives INT_MIN, the "integer
// indefinite" value that the processor's own conversion produces.
inline int TruncToInt(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT_MIN;
    return static_cast<int>(v);
}

// The low 16 bits of value, as a signed sample.
inline short Low16(long long value) { return static_cast<short>(static_cast<WORD>(value & 0xFFFF)); }

// Samples of one channel that the record really holds: its start-table
// span, cut to the record's sample store.
template <class Rec>
unsigned ChannelRun(const Rec* rec, unsigned channel) {
    const unsigned short* start = rec->GetStartTable();
    if (!start || channel >= rec->GetNumChannels()) return 0;
    unsigned begin = start[channel];
    unsigned end = start[channel + 1];
    unsigned total = rec->GetTotalSamples();
    if (end < begin || begin >= total) return 0;
    return std::min(end, total) - begin;
}

// One channel of Calibrate: one subtract, multiply and add per sample, all
// in float.  raw - AD minimum is an integer below 2^17 in magnitude, exact in
// float, so converting both terms first gives the same value as converting
// their difference.  Eight samples at a time go through the compiler's
// vector types (the same IEEE operations lane by lane); the tail goes one
// sample at a time.
void CalibrateRun(const short* __restrict src, float* __restrict dst, unsigned n, float adMin, float step,
                  float offset) {
    unsigned i = 0;
#if defined(__GNUC__)
    typedef short Short8 __attribute__((vector_size(16)));
    typedef float Float8 __attribute__((vector_size(32)));
    const Float8 vAdMin = {adMin, adMin, adMin, adMin, adMin, adMin, adMin, adMin};
    const Float8 vStep = {step, step, step, step, step, step, step, step};
    const Float8 vOffset = {offset, offset, offset, offset, offset, offset, offset, offset};
    for (; i + 8 <= n; i += 8) {
        Short8 in;
        std::memcpy(&in, src + i, sizeof in);
        const Float8 out = (__builtin_convertvector(in, Float8) - vAdMin) * vStep + vOffset;
        std::memcpy(dst + i, &out, sizeof out);
    }
#endif
    for (; i < n; ++i) dst[i] = (static_cast<float>(src[i]) - adMin) * step + offset;
}

}  // namespace

CCalibration::CCalibration() = default;

CCalibration::CCalibration(unsigned numChannels, int adMin, float voltMin, int adMax, float voltMax,
                           double trueFrequency) {
    Create(numChannels, adMin, voltMin, adMax, voltMax, trueFrequency);
}

CCalibration::CCalibration(const CCalibration& src) : CObject() { *this = src; }

CCalibration::~CCalibration() = default;

int CCalibration::Create(unsigned numChannels, int adMin, float voltMin, int adMax, float voltMax,
                         double trueFrequency) {
    if (numChannels > kMaxChannels) AfxThrowInvalidArgException();
    m_trueFrequency = trueFrequency;
    m_adMin = static_cast<short>(adMin);
    m_voltMin = voltMin;
    m_adMax = static_cast<short>(adMax);
    m_voltMax = voltMax;
    m_numChannels = numChannels;
    for (CArray<LONG>* a : {&m_ad1, &m_ad2}) {
        a->RemoveAll();
        a->SetSize(static_cast<int>(numChannels));
    }
    for (CArray<float>* a : {&m_volt1, &m_world1, &m_volt2, &m_world2, &m_worldAtAdMin, &m_worldAtAdMax}) {
        a->RemoveAll();
        a->SetSize(static_cast<int>(numChannels));
    }
    for (unsigned c = 0; c < numChannels; ++c) SetCalibFromGain(c, 1.0f, 0.0f, 3);
    m_bposThresholds.RemoveAll();
    m_bposNames.RemoveAll();
    m_bposKeys.RemoveAll();
    m_bposUids.RemoveAll();
    m_numBpos = 0;
    return 1;
}

CCalibration& CCalibration::operator=(const CCalibration& src) {
    if (this == &src) return *this;
    m_trueFrequency = src.m_trueFrequency;
    m_adMin = src.m_adMin;
    m_voltMin = src.m_voltMin;
    m_adMax = src.m_adMax;
    m_voltMax = src.m_voltMax;
    m_numChannels = src.m_numChannels;
    m_ad1 = src.m_ad1;
    m_volt1 = src.m_volt1;
    m_world1 = src.m_world1;
    m_ad2 = src.m_ad2;
    m_volt2 = src.m_volt2;
    m_world2 = src.m_world2;
    m_worldAtAdMin = src.m_worldAtAdMin;
    m_worldAtAdMax = src.m_worldAtAdMax;
    std::copy(std::begin(src.m_worldStep), std::end(src.m_worldStep), std::begin(m_worldStep));
    m_numBpos = src.m_numBpos;
    m_bposThresholds.Copy(src.m_bposThresholds);
    m_bposNames.Copy(src.m_bposNames);
    m_bposKeys.Copy(src.m_bposKeys);
    m_bposUids.Copy(src.m_bposUids);
    return *this;
}

// ---------------------------------------------------------------------------
// Base calibration and channels

void CCalibration::SetBaseCalib(int adMin, float voltMin, int adMax, float voltMax) {
    m_adMin = static_cast<short>(adMin);
    m_voltMin = voltMin;
    m_adMax = static_cast<short>(adMax);
    m_voltMax = voltMax;
    for (unsigned c = 0; c < m_numChannels; ++c) {
        long ad1, ad2;
        float volt1, world1, volt2, world2;
        GetCalibPoints(c, ad1, volt1, world1, ad2, volt2, world2);
        SetCalibFromPoints(c, ad1, volt1, world1, ad2, volt2, world2);
    }
}

void CCalibration::GetBaseCalib(int& adMin, float& voltMin, int& adMax, float& voltMax) const {
    adMin = m_adMin;
    voltMin = m_voltMin;
    adMax = m_adMax;
    voltMax = m_voltMax;
}

void CCalibration::CheckChannel(unsigned channel, int line) const {
    if (channel >= m_numChannels) {
        VhlAssert(kSource, line);
        AfxThrowInvalidArgException();
    }
}

void CCalibration::UpdateWorldStep(unsigned channel) {
    const int i = static_cast<int>(channel);
    m_worldStep[channel] =
        (m_worldAtAdMax[i] - m_worldAtAdMin[i]) / static_cast<float>(m_adMax - m_adMin);
}

void CCalibration::SetCalibFromPoints(unsigned channel, long ad1, float volt1, float world1, long ad2,
                                      float volt2, float world2) {
    CheckChannel(channel, kLineSetCalibFromPoints);
    // AD positions of the two voltages under the base calibration.
    const double a1 = Eval(m_voltMin, m_adMin, m_voltMax, m_adMax, volt1);
    const double a2 = Eval(m_voltMin, m_adMin, m_voltMax, m_adMax, volt2);
    const double wmin = Eval(a1, world1, a2, world2, m_adMin);
    const double wmax = Eval(a1, world1, a2, world2, m_adMax);
    const int i = static_cast<int>(channel);
    m_ad1[i] = static_cast<LONG>(ad1);
    m_volt1[i] = volt1;
    m_world1[i] = world1;
    m_ad2[i] = static_cast<LONG>(ad2);
    m_volt2[i] = volt2;
    m_world2[i] = world2;
    m_worldAtAdMin[i] = static_cast<float>(wmin);
    m_worldAtAdMax[i] = static_cast<float>(wmax);
    UpdateWorldStep(channel);
}

void CCalibration::GetCalibPoints(unsigned channel, long& ad1, float& volt1, float& world1, long& ad2,
                                  float& volt2, float& world2) const {
    CheckChannel(channel, kLineGetCalibPoints);
    const int i = static_cast<int>(channel);
    ad1 = m_ad1[i];
    volt1 = m_volt1[i];
    world1 = m_world1[i];
    ad2 = m_ad2[i];
    volt2 = m_volt2[i];
    world2 = m_world2[i];
}

void CCalibration::SetCalibFromGain(unsigned channel, float gain, float offset, unsigned unit) {
    CheckChannel(channel, kLineSetCalibFromGain);
    // Only the gain is in the given unit; the offset is always in volts.
    double volt2;
    float world2;
    switch (unit) {
        case 1:
            volt2 = gain * 0.0001 + offset;
            world2 = 100.0f;
            break;
        case 2:
            volt2 = gain * 0.1 + offset;
            world2 = 100.0f;
            break;
        default:
            volt2 = gain + offset;
            world2 = 1.0f;
            break;
    }
    SetCalibFromPoints(channel, -1, offset, 0.0f, -1, static_cast<float>(volt2), world2);
}

void CCalibration::GetCalibGain(unsigned channel, float& gain, float& offset, unsigned unit) const {
    CheckChannel(channel, kLineGetCalibGain);
    const int i = static_cast<int>(channel);
    const double g0 = Eval(m_worldAtAdMin[i], m_voltMin, m_worldAtAdMax[i], m_voltMax, 0.0);
    const double g1 = Eval(m_worldAtAdMin[i], m_voltMin, m_worldAtAdMax[i], m_voltMax, 1.0);
    const double d = unit == 1 ? 1e-6 : unit == 2 ? 0.001 : 1.0;
    offset = static_cast<float>(g0);
    gain = static_cast<float>((g1 - g0) / d);
}

void CCalibration::GetWorldRange(unsigned channel, float& atAdMin, float& atAdMax) const {
    atAdMin = m_worldAtAdMin[static_cast<int>(channel)];
    atAdMax = m_worldAtAdMax[static_cast<int>(channel)];
}

float CCalibration::GetWorldStep(unsigned channel) const {
    if (channel >= kMaxChannels) AfxThrowInvalidArgException();
    return m_worldStep[channel];
}

int CCalibration::InsertChannel(unsigned index, float volt1, float world1, float volt2, float world2) {
    SF_ASSERT(index <= m_numChannels, kSource, kLineInsertChannel);
    if (index > m_numChannels || m_numChannels >= kMaxChannels) AfxThrowInvalidArgException();
    const int i = static_cast<int>(index);
    m_ad1.InsertAt(i, 0);
    m_volt1.InsertAt(i, 0.0f);
    m_world1.InsertAt(i, 0.0f);
    m_ad2.InsertAt(i, 0);
    m_volt2.InsertAt(i, 0.0f);
    m_world2.InsertAt(i, 0.0f);
    m_worldAtAdMin.InsertAt(i, 0.0f);
    m_worldAtAdMax.InsertAt(i, 0.0f);
    ++m_numChannels;
    // The world-step table is deliberately left unshifted.
    SetCalibFromPoints(index, -1, volt1, world1, -1, volt2, world2);
    return 1;
}

int CCalibration::AddChannel(float volt1, float world1, float volt2, float world2) {
    return InsertChannel(m_numChannels, volt1, world1, volt2, world2);
}

int CCalibration::DeleteChannel(unsigned index) {
    SF_ASSERT(index <= m_numChannels, kSource, kLineDeleteChannel);
    if (index >= m_numChannels) AfxThrowInvalidArgException();
    const int i = static_cast<int>(index);
    m_ad1.RemoveAt(i);
    m_volt1.RemoveAt(i);
    m_world1.RemoveAt(i);
    m_ad2.RemoveAt(i);
    m_volt2.RemoveAt(i);
    m_world2.RemoveAt(i);
    m_worldAtAdMin.RemoveAt(i);
    m_worldAtAdMax.RemoveAt(i);
    --m_numChannels;
    for (unsigned c = 0; c < m_numChannels; ++c) UpdateWorldStep(c);
    return 1;
}

// ---------------------------------------------------------------------------
// Single values

double CCalibration::Eval(double x1, double y1, double x2, double y2, double x) {
    const double slope = (y2 - y1) / (x2 - x1);
    return slope * x + (y1 - slope * x1);
}

double CCalibration::AdToWorld(unsigned channel, int ad) const {
    CheckChannel(channel, kLineAdToWorld);
    const int i = static_cast<int>(channel);
    const double wmin = m_worldAtAdMin[i];
    const double wmax = m_worldAtAdMax[i];
    return static_cast<double>(ad - m_adMin) * ((wmax - wmin) / static_cast<double>(m_adMax - m_adMin)) + wmin;
}

int CCalibration::WorldToAd(unsigned channel, double world) const {
    CheckChannel(channel, kLineWorldToAd);
    const int i = static_cast<int>(channel);
    const double wmin = m_worldAtAdMin[i];
    const double wmax = m_worldAtAdMax[i];
    const double steps = (world - wmin) * (static_cast<double>(m_adMax - m_adMin) / (wmax - wmin)) + 0.5;
    return static_cast<int>(static_cast<long long>(TruncToInt(steps)) + m_adMin);
}

double CCalibration::AdToVolt(int ad) const {
    return static_cast<double>(ad - m_adMin) *
               ((static_cast<double>(m_voltMax) - m_voltMin) / static_cast<double>(m_adMax - m_adMin)) +
           m_voltMin;
}

int CCalibration::VoltToAd(double volt) const {
    const double steps =
        (volt - m_voltMin) * (static_cast<double>(m_adMax - m_adMin) / (static_cast<double>(m_voltMax) - m_voltMin)) +
        0.5;
    return static_cast<int>(static_cast<long long>(TruncToInt(steps)) + m_adMin);
}

// ---------------------------------------------------------------------------
// Whole records

void CCalibration::Calibrate(const CRawSigRec* raw, CFmtSigRec* fmt) const {
    const unsigned channels = std::min(raw->GetNumChannels(), fmt->GetNumChannels());
    if (raw->GetNumChannels() > m_numChannels) AfxThrowInvalidArgException();
    fmt->SetTime(raw->GetTime());
    const float adMin = m_adMin;
    const float* worldAtAdMin = m_worldAtAdMin.GetData();
    // The usual case, checked once per record: both records have the same
    // ascending start table, so every channel's run lies inside both.
    const unsigned short* start = raw->GetStartTable();
    bool sameShape = raw->GetNumChannels() == fmt->GetNumChannels() && start && fmt->GetStartTable() &&
                     std::equal(start, start + channels + 1, fmt->GetStartTable());
    for (unsigned c = 0; sameShape && c < channels; ++c) sameShape = start[c] <= start[c + 1];
    const short* src = raw->GetData();
    float* dst = fmt->GetData();
    for (unsigned c = 0; c < channels; ++c) {
        if (sameShape) {
            CalibrateRun(src + start[c], dst + start[c], start[c + 1] - start[c], adMin, m_worldStep[c],
                         worldAtAdMin[c]);
        } else {
            const unsigned n = std::min(ChannelRun(raw, c), ChannelRun(fmt, c));
            CalibrateRun(raw->GetAt(c), fmt->GetAt(c), n, adMin, m_worldStep[c], worldAtAdMin[c]);
        }
    }
}

void CCalibration::Decalibrate(const CFmtSigRec* fmt, CRawSigRec* raw) const {
    SF_ASSERT(fmt->GetNumChannels() == raw->GetNumChannels(), kSource, kLineDecalChannels);
    const unsigned channels = std::min(fmt->GetNumChannels(), raw->GetNumChannels());
    if (channels > m_numChannels) AfxThrowInvalidArgException();
    raw->SetTime(fmt->GetTime());
    const float k = static_cast<float>(m_adMax - m_adMin);
    const long long adMin = m_adMin;
    for (unsigned c = 0; c < channels; ++c) {
        const unsigned nf = ChannelRun(fmt, c);
        const unsigned nr = ChannelRun(raw, c);
        SF_ASSERT(nf == nr, kSource, kLineDecalSamples);
        const int i = static_cast<int>(c);
        const float wmin = m_worldAtAdMin[i];
        const float wmax = m_worldAtAdMax[i];
        SF_ASSERT(wmax != wmin, kSource, kLineDecalRange);
        const float s = k / (wmax - wmin);
        const float* src = fmt->GetAt(c);
        short* dst = raw->GetAt(c);
        const unsigned n = std::min(nf, nr);
        for (unsigned j = 0; j < n; ++j) {
            const double d = (static_cast<double>(src[j]) - wmin) * static_cast<double>(s);
            const double r = d >= 0 ? std::floor(d + 0.5) : std::ceil(d - 0.5);
            dst[j] = Low16(TruncToInt(r) + adMin);
        }
    }
}

void CCalibration::CalibrateAsVolts(const CRawSigRec* raw, CFmtSigRec* fmt) const {
    SF_ASSERT(raw->GetNumChannels() == fmt->GetNumChannels(), kSource, kLineVoltsChannels);
    const unsigned channels = std::min(raw->GetNumChannels(), fmt->GetNumChannels());
    fmt->SetTime(raw->GetTime());
    const float s = (m_voltMax - m_voltMin) / static_cast<float>(m_adMax - m_adMin);
    const float adMin = m_adMin;
    for (unsigned c = 0; c < channels; ++c) {
        const unsigned nr = ChannelRun(raw, c);
        const unsigned nf = ChannelRun(fmt, c);
        SF_ASSERT(nr == nf, kSource, kLineVoltsSamples);
        CalibrateRun(raw->GetAt(c), fmt->GetAt(c), std::min(nr, nf), adMin, s, m_voltMin);
    }
}

void CCalibration::DecalibrateAsVolts(const CFmtSigRec* fmt, CRawSigRec* raw) const {
    SF_ASSERT(fmt->GetNumChannels() == raw->GetNumChannels(), kSource, kLineDecalVoltsChannels);
    SF_ASSERT(m_voltMax != m_voltMin, kSource, kLineDecalVoltsRange);
    const unsigned channels = std::min(fmt->GetNumChannels(), raw->GetNumChannels());
    raw->SetTime(fmt->GetTime());
    const float s = static_cast<float>(m_adMax - m_adMin) / (m_voltMax - m_voltMin);
    const long long adMin = m_adMin;
    for (unsigned c = 0; c < channels; ++c) {
        const unsigned nf = ChannelRun(fmt, c);
        const unsigned nr = ChannelRun(raw, c);
        SF_ASSERT(nf == nr, kSource, kLineDecalVoltsSamples);
        const float* src = fmt->GetAt(c);
        short* dst = raw->GetAt(c);
        const unsigned n = std::min(nf, nr);
        for (unsigned j = 0; j < n; ++j) {
            const float v = (src[j] - m_voltMin) * s;
            dst[j] = Low16(TruncToInt(v) + adMin);
        }
    }
}

// ---------------------------------------------------------------------------
// Bpos table

void CCalibration::SetBposArrSize(unsigned n) {
    if (n > static_cast<unsigned>(INT_MAX)) AfxThrowInvalidArgException();
    m_numBpos = n;
    m_bposThresholds.SetSize(static_cast<int>(n));
    m_bposNames.SetSize(static_cast<int>(n));
    m_bposKeys.SetSize(static_cast<int>(n));
    m_bposUids.SetSize(static_cast<int>(n));
}

void CCalibration::SetBposThresAt(int index, unsigned short threshold) { m_bposThresholds.SetAt(index, threshold); }
unsigned short CCalibration::GetBposThresAt(int index) const { return m_bposThresholds.GetAt(index); }
void CCalibration::SetBposNamesAt(int index, CString name) { m_bposNames.SetAt(index, name); }
CString CCalibration::GetBposNamesAt(int index) const { return m_bposNames.GetAt(index); }
void CCalibration::SetBposKeysAt(int index, CString key) { m_bposKeys.SetAt(index, key); }
CString CCalibration::GetBposKeysAt(int index) const { return m_bposKeys.GetAt(index); }
void CCalibration::SetBposUidAt(int index, unsigned short uid) { m_bposUids.SetAt(index, uid); }
unsigned short CCalibration::GetBposUidAt(int index) const { return m_bposUids.GetAt(index); }

// ---------------------------------------------------------------------------
// Archive

void CCalibration::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kVersion << m_trueFrequency << static_cast<WORD>(m_adMin) << m_voltMin << static_cast<WORD>(m_adMax)
           << m_voltMax << static_cast<WORD>(m_numChannels);
        for (LONG v : m_ad1) ar << static_cast<int>(v);
        for (float v : m_volt1) ar << v;
        for (float v : m_world1) ar << v;
        for (LONG v : m_ad2) ar << static_cast<int>(v);
        for (float v : m_volt2) ar << v;
        for (float v : m_world2) ar << v;
        ar << static_cast<WORD>(m_numBpos);
        m_bposThresholds.Serialize(ar);
        m_bposNames.Serialize(ar);
        m_bposKeys.Serialize(ar);
        m_bposUids.Serialize(ar);
        return;
    }

    // Everything is read before anything is changed, so that a refused or
    // truncated archive leaves the object as it was.
    WORD version = 0;
    ar >> version;
    if (version > kVersion) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    double frequency = 0.0;
    WORD adMin = 0, adMax = 0, count = 0;
    float voltMin = 0.0f, voltMax = 0.0f;
    ar >> frequency >> adMin >> voltMin >> adMax >> voltMax >> count;
    if (count > kMaxChannels) AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    ar.CheckCount(count, version == 1 ? 26 : 24);
    if (version == 1) {
        // One WORD per channel that later versions dropped.
        std::vector<BYTE> skipped(count * 2u);
        ar.ReadExact(skipped.data(), skipped.size());
    }
    std::vector<int> ad1(count), ad2(count);
    std::vector<float> volt1(count), world1(count), volt2(count), world2(count);
    for (int& v : ad1) ar >> v;
    for (float& v : volt1) ar >> v;
    for (float& v : world1) ar >> v;
    for (int& v : ad2) ar >> v;
    for (float& v : volt2) ar >> v;
    for (float& v : world2) ar >> v;
    WORD numBpos = 0;
    CWordArray thresholds, uids;
    CStringArray names, keys;
    if (version >= 3) {
        ar >> numBpos;
        thresholds.Serialize(ar);
        names.Serialize(ar);
        keys.Serialize(ar);
        uids.Serialize(ar);
    }

    m_trueFrequency = frequency;
    m_adMin = static_cast<short>(adMin);
    m_voltMin = voltMin;
    m_adMax = static_cast<short>(adMax);
    m_voltMax = voltMax;
    m_numChannels = count;
    for (CArray<LONG>* a : {&m_ad1, &m_ad2}) a->SetSize(count);
    for (CArray<float>* a : {&m_volt1, &m_world1, &m_volt2, &m_world2, &m_worldAtAdMin, &m_worldAtAdMax})
        a->SetSize(count);
    if (version >= 3) {
        m_numBpos = numBpos;
        m_bposThresholds.Copy(thresholds);
        m_bposNames.Copy(names);
        m_bposKeys.Copy(keys);
        m_bposUids.Copy(uids);
    }
    for (unsigned c = 0; c < count; ++c)
        SetCalibFromPoints(c, ad1[c], volt1[c], world1[c], ad2[c], volt2[c], world2[c]);
}

CArchive& operator>>(CArchive& ar, CCalibration*& calibration) {
    calibration = static_cast<CCalibration*>(ar.ReadObject(RUNTIME_CLASS(CCalibration)));
    return ar;
}
