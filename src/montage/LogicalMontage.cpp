// The common part of recording and reformatted montages: a named list of
// channels with frequency, type, unit, detection options and colour.
#include <algorithm>
#include <vector>

#include "montage/mtgs.h"
#include "platform/Assert.h"

namespace {
constexpr const char* kSource = "mtgs";
constexpr WORD kLogicalSchema = 7;

template <class A>
void PermuteArray(A& array, const CWordArray& order) {
    auto copy = array.Vector();
    for (int k = 0; k < order.GetSize(); ++k) array.SetAt(k, copy.at(order[k]));
}
}  // namespace

IMPLEMENT_SERIAL_ABSTRACT(CLogicalMontage, CObject, 1)

CLogicalMontage::~CLogicalMontage() = default;

void CLogicalMontage::Empty() {
    m_strName.clear();
    m_nChannels = 0;
    m_waFrequency.RemoveAll();
    m_waType.RemoveAll();
    m_waUnit.RemoveAll();
    m_waSpikeOptions.RemoveAll();
    m_waSeizureOptions.RemoveAll();
    m_dwaColor.RemoveAll();
}

unsigned CLogicalMontage::GetFrequency(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_waFrequency.GetAt(static_cast<int>(index));
}

unsigned CLogicalMontage::GetType(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_waType.GetAt(static_cast<int>(index));
}

unsigned CLogicalMontage::GetUnit(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_waUnit.GetAt(static_cast<int>(index));
}

unsigned CLogicalMontage::GetSpikeOptions(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_waSpikeOptions.GetAt(static_cast<int>(index));
}

unsigned CLogicalMontage::GetSeizureOptions(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_waSeizureOptions.GetAt(static_cast<int>(index));
}

unsigned long CLogicalMontage::GetColor(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_dwaColor.GetAt(static_cast<int>(index));
}

const char* CLogicalMontage::GetGlobalName(unsigned) const {
    SF_ASSERT(false, kSource, __LINE__);
    return nullptr;
}

const char* CLogicalMontage::GetGlobalFormula(const char*) const {
    SF_ASSERT(false, kSource, __LINE__);
    return nullptr;
}

const char* CLogicalMontage::GetGlobalFormula(unsigned) const {
    SF_ASSERT(false, kSource, __LINE__);
    return nullptr;
}

int CLogicalMontage::SetMontageName(const char* name) {
    m_strName = name ? name : "";
    return TRUE;
}

int CLogicalMontage::SetFrequency(unsigned index, unsigned frequency) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels || frequency > 0xFFFF) return FALSE;
    m_waFrequency.SetAt(static_cast<int>(index), static_cast<WORD>(frequency));
    return TRUE;
}

int CLogicalMontage::SetType(unsigned index, unsigned type) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels || type > 0xFFFF) return FALSE;
    m_waType.SetAt(static_cast<int>(index), static_cast<WORD>(type));
    return TRUE;
}

int CLogicalMontage::SetUnit(unsigned index, unsigned unit) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels || unit > 0xFFFF) return FALSE;
    m_waUnit.SetAt(static_cast<int>(index), static_cast<WORD>(unit));
    return TRUE;
}

int CLogicalMontage::SetColor(unsigned index, unsigned long color) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    m_dwaColor.SetAt(static_cast<int>(index), static_cast<DWORD>(color));
    return TRUE;
}

int CLogicalMontage::SetSpikeOptions(unsigned index, unsigned options) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    m_waSpikeOptions.SetAt(static_cast<int>(index), static_cast<WORD>(options));
    return TRUE;
}

int CLogicalMontage::SetSeizureOptions(unsigned index, unsigned options) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    m_waSeizureOptions.SetAt(static_cast<int>(index), static_cast<WORD>(options));
    return TRUE;
}

int CLogicalMontage::IsLabelUsed(const char* label) const {
    if (!label) return FALSE;
    for (unsigned i = 0; i < m_nChannels; ++i)
        if (GetLabel(i) == label) return TRUE;
    return FALSE;
}

int CLogicalMontage::EqualsBase(const CLogicalMontage& o) const {
    return m_strName == o.m_strName && m_nChannels == o.m_nChannels && m_waFrequency == o.m_waFrequency &&
           m_waType == o.m_waType && m_waUnit == o.m_waUnit && m_waSpikeOptions == o.m_waSpikeOptions &&
           m_waSeizureOptions == o.m_waSeizureOptions && m_dwaColor == o.m_dwaColor;
}

void CLogicalMontage::InsertBaseChannel(unsigned index, unsigned frequency, unsigned type, unsigned unit,
                                        unsigned long color) {
    const int i = static_cast<int>(index);
    m_waFrequency.InsertAt(i, static_cast<WORD>(frequency));
    m_waType.InsertAt(i, static_cast<WORD>(type));
    m_waUnit.InsertAt(i, static_cast<WORD>(unit));
    m_waSpikeOptions.InsertAt(i, 0);
    m_waSeizureOptions.InsertAt(i, 0);
    m_dwaColor.InsertAt(i, static_cast<DWORD>(color));
    ++m_nChannels;
}

void CLogicalMontage::RemoveBaseChannel(unsigned index) {
    const int i = static_cast<int>(index);
    m_waFrequency.RemoveAt(i);
    m_waType.RemoveAt(i);
    m_waUnit.RemoveAt(i);
    m_waSpikeOptions.RemoveAt(i);
    m_waSeizureOptions.RemoveAt(i);
    m_dwaColor.RemoveAt(i);
    --m_nChannels;
}

void CLogicalMontage::SwapBaseChannel(unsigned a, unsigned b) {
    const int i = static_cast<int>(a), j = static_cast<int>(b);
    std::swap(m_waFrequency[i], m_waFrequency[j]);
    std::swap(m_waType[i], m_waType[j]);
    std::swap(m_waUnit[i], m_waUnit[j]);
    std::swap(m_waSpikeOptions[i], m_waSpikeOptions[j]);
    std::swap(m_waSeizureOptions[i], m_waSeizureOptions[j]);
    std::swap(m_dwaColor[i], m_dwaColor[j]);
}

void CLogicalMontage::MoveBaseChannels(const CWordArray& order) {
    PermuteArray(m_waFrequency, order);
    PermuteArray(m_waType, order);
    PermuteArray(m_waUnit, order);
    PermuteArray(m_waSpikeOptions, order);
    PermuteArray(m_waSeizureOptions, order);
    PermuteArray(m_dwaColor, order);
}

void CLogicalMontage::CheckLoadedLength(int length) const {
    if (length != static_cast<int>(m_nChannels))
        AfxThrowArchiveException(CArchiveException::genericException);
}

void CLogicalMontage::Serialize(CArchive& ar) { SerializeBase(ar); }

bool CLogicalMontage::SerializeBase(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kLogicalSchema << m_strName << m_nChannels;
        m_waFrequency.Serialize(ar);
        m_waType.Serialize(ar);
        m_waUnit.Serialize(ar);
        m_waSpikeOptions.Serialize(ar);
        m_waSeizureOptions.Serialize(ar);
        m_dwaColor.Serialize(ar);
        return true;
    }
    WORD schema;
    ar >> schema;
    CLogicalMontage::Empty();
    if (schema > kLogicalSchema) {
        m_strName = kIncompatibleMontageName;
        return false;
    }
    ar >> m_strName >> m_nChannels;
    if (m_nChannels > kMaxMontageChannels) {
        m_nChannels = 0;
        AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    }
    CWordArray* wordArrays[] = {&m_waFrequency, &m_waType, &m_waUnit, &m_waSpikeOptions, &m_waSeizureOptions};
    try {
        for (CWordArray* a : wordArrays) {
            a->Serialize(ar);
            CheckLoadedLength(a->GetSize());
        }
        m_dwaColor.Serialize(ar);
        CheckLoadedLength(m_dwaColor.GetSize());
    } catch (...) {
        // Never leave a count that the arrays cannot back.
        CLogicalMontage::Empty();
        throw;
    }
    return true;
}
