// Reformatted montages (derived channels defined by formulas over the
// channels of a recording montage) and the signal viewer's variants.
#include <algorithm>
#include <memory>
#include <vector>

#include "montage/MontageText.h"
#include "montage/mtgs.h"
#include "platform/Assert.h"
#include "platform/Strings.h"
#include "platform/Support.h"

namespace {
constexpr const char* kSource = "mtgs";
constexpr WORD kNoOrigin = 0xFFFF;

template <class A>
void Permute(A& array, const CWordArray& order) {
    auto copy = array.Vector();
    for (int k = 0; k < order.GetSize(); ++k) array.SetAt(k, copy.at(order[k]));
}

// True when order is a permutation of 0 .. count - 1.
bool IsPermutation(const CWordArray& order, unsigned count) {
    if (static_cast<unsigned>(order.GetSize()) != count) return false;
    std::vector<bool> seen(count, false);
    for (WORD w : order) {
        if (w >= count || seen[w]) return false;
        seen[w] = true;
    }
    return true;
}
}  // namespace

IMPLEMENT_SERIAL(CReformatedMontage, CLogicalMontage, 1)
IMPLEMENT_SERIAL(CSigViewRefMtg, CReformatedMontage, 1)
IMPLEMENT_SERIAL(CSigViewRecMtg, CRecordingMontage, 1)

CReformatedMontage::CReformatedMontage() = default;
CReformatedMontage::CReformatedMontage(CRecordingMontage* recording) : m_pRecordingMontage(recording) {}
CReformatedMontage::CReformatedMontage(const CReformatedMontage& other) : CLogicalMontage() { CopyFrom(other); }

CReformatedMontage& CReformatedMontage::operator=(const CReformatedMontage& other) {
    if (this != &other) CopyFrom(other);
    return *this;
}

CReformatedMontage::~CReformatedMontage() = default;

void CReformatedMontage::CopyFrom(const CReformatedMontage& other) {
    CLogicalMontage::operator=(other);
    m_pRecordingMontage = other.m_pRecordingMontage;
    m_saLabels.Copy(other.m_saLabels);
    m_saFormulas.Copy(other.m_saFormulas);
    m_saGlobalNames.Copy(other.m_saGlobalNames);
    m_saGlobalFormulas.Copy(other.m_saGlobalFormulas);
}

int CReformatedMontage::operator==(const CReformatedMontage& o) const {
    return EqualsBase(o) && m_saLabels == o.m_saLabels && m_saFormulas == o.m_saFormulas &&
           m_saGlobalNames == o.m_saGlobalNames && m_saGlobalFormulas == o.m_saGlobalFormulas;
}

void CReformatedMontage::Empty() {
    CLogicalMontage::Empty();
    m_saLabels.RemoveAll();
    m_saFormulas.RemoveAll();
    m_saGlobalNames.RemoveAll();
    m_saGlobalFormulas.RemoveAll();
}

unsigned CReformatedMontage::GetSamplesChannel(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (!m_pRecordingMontage || index >= m_nChannels) return 0;
    return VhlGetSamplesChannel(m_pRecordingMontage->GetSamplesRecord(), m_pRecordingMontage->GetBaseFrequency(),
                                GetFrequency(index));
}

CString CReformatedMontage::GetLabel(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_saLabels.GetAt(static_cast<int>(index));
}

CString CReformatedMontage::GetFormula(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_saFormulas.GetAt(static_cast<int>(index));
}

const char* CReformatedMontage::GetGlobalName(unsigned index) const {
    SF_ASSERT(index < GetNumGlobals(), kSource, __LINE__);
    return m_saGlobalNames.GetAt(static_cast<int>(index)).c_str();
}

const char* CReformatedMontage::GetGlobalFormula(unsigned index) const {
    SF_ASSERT(index < GetNumGlobals(), kSource, __LINE__);
    return m_saGlobalFormulas.GetAt(static_cast<int>(index)).c_str();
}

const char* CReformatedMontage::GetGlobalFormula(const char* name) const {
    const int i = FindGlobal(name);
    return i < 0 ? nullptr : m_saGlobalFormulas[i].c_str();
}

int CReformatedMontage::FindGlobal(const char* name) const {
    if (!name) return -1;
    for (int i = 0; i < m_saGlobalNames.GetSize(); ++i)
        if (EqualsNoCase(m_saGlobalNames[i], name)) return i;
    return -1;
}

int CReformatedMontage::SetMontageName(const char* name) {
    if (!name) return FALSE;
    if (m_pRecordingMontage) {
        for (unsigned r = 0; r < m_pRecordingMontage->GetNumReformatedMontages(); ++r) {
            const CReformatedMontage* other = m_pRecordingMontage->GetReformatedMontageAt(r);
            if (other != this && EqualsNoCase(other->GetMontageName(), name)) return FALSE;
        }
    }
    m_strName = name;
    return TRUE;
}

int CReformatedMontage::IsRefChLabelFoundElseInRecMtg(CString label) const {
    if (!m_pRecordingMontage) return FALSE;
    for (unsigned r = 0; r < m_pRecordingMontage->GetNumReformatedMontages(); ++r) {
        const CReformatedMontage* other = m_pRecordingMontage->GetReformatedMontageAt(r);
        if (other == this) continue;
        for (unsigned c = 0; c < other->GetNumChannels(); ++c)
            if (EqualsNoCase(other->GetLabel(c), label)) return TRUE;
    }
    return FALSE;
}

// ----------------------------------------------------------------- channels

int CReformatedMontage::AddChannel(const char* label, const char* formula, unsigned long color) {
    return InsertChannel(m_nChannels, label, formula, color);
}

int CReformatedMontage::InsertChannel(unsigned index, const char* label, const char* formula, unsigned long color) {
    if (index >= kMaxMontageChannels || m_nChannels >= kMaxMontageChannels) return FALSE;
    SF_ASSERT(index <= m_nChannels, kSource, __LINE__);
    if (index > m_nChannels) return FALSE;
    const char* l = label ? label : "";
    const char* f = formula ? formula : "";
    unsigned frequency = 0, type = 0, unit = 0;
    if (!CompileOne(l, f, &frequency, &type, &unit)) return FALSE;
    InsertBaseChannel(index, frequency, type, unit, color);
    m_saLabels.InsertAt(static_cast<int>(index), l);
    m_saFormulas.InsertAt(static_cast<int>(index), f);
    return TRUE;
}

int CReformatedMontage::ReplaceChannel(unsigned index, const char* label, const char* formula, unsigned long color) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    const char* l = label ? label : "";
    const char* f = formula ? formula : "";
    unsigned frequency = 0, type = 0, unit = 0;
    if (!CompileOne(l, f, &frequency, &type, &unit)) return FALSE;
    const int i = static_cast<int>(index);
    m_saLabels.SetAt(i, l);
    m_saFormulas.SetAt(i, f);
    m_waFrequency.SetAt(i, static_cast<WORD>(frequency));
    m_waType.SetAt(i, static_cast<WORD>(type));
    m_waUnit.SetAt(i, static_cast<WORD>(unit));
    m_dwaColor.SetAt(i, static_cast<DWORD>(color));
    return TRUE;
}

int CReformatedMontage::DeleteChannel(unsigned index) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    RemoveBaseChannel(index);
    m_saLabels.RemoveAt(static_cast<int>(index));
    m_saFormulas.RemoveAt(static_cast<int>(index));
    return TRUE;
}

int CReformatedMontage::SwapChannel(unsigned a, unsigned b) {
    SF_ASSERT(a < m_nChannels && b < m_nChannels, kSource, __LINE__);
    if (a >= m_nChannels || b >= m_nChannels) return FALSE;
    SwapBaseChannel(a, b);
    std::swap(m_saLabels[static_cast<int>(a)], m_saLabels[static_cast<int>(b)]);
    std::swap(m_saFormulas[static_cast<int>(a)], m_saFormulas[static_cast<int>(b)]);
    return TRUE;
}

int CReformatedMontage::MoveChannel(CWordArray* order) {
    SF_ASSERT(order != nullptr && static_cast<unsigned>(order->GetSize()) == m_nChannels, kSource, __LINE__);
    if (!order || !IsPermutation(*order, m_nChannels)) return FALSE;
    MoveBaseChannels(*order);
    Permute(m_saLabels, *order);
    Permute(m_saFormulas, *order);
    return TRUE;
}

int CReformatedMontage::ReplaceFormulaConfirmed(unsigned index, const char* formula) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    m_saFormulas.SetAt(static_cast<int>(index), formula ? formula : "");
    return TRUE;
}

int CReformatedMontage::ReplaceLabelConfirmed(unsigned index, const char* label) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    m_saLabels.SetAt(static_cast<int>(index), label ? label : "");
    return TRUE;
}

// ------------------------------------------------------------------ globals

int CReformatedMontage::AddGlobal(const char* name, const char* formula) {
    return InsertGlobal(GetNumGlobals(), name, formula);
}

int CReformatedMontage::InsertGlobal(unsigned index, const char* name, const char* formula) {
    SF_ASSERT(index <= GetNumGlobals(), kSource, __LINE__);
    if (index > GetNumGlobals() || !name || !*name || FindGlobal(name) >= 0) return FALSE;
    const char* f = formula ? formula : "";
    m_saGlobalNames.InsertAt(static_cast<int>(index), name);
    m_saGlobalFormulas.InsertAt(static_cast<int>(index), f);
    if (!CompilesGlobal(index)) {
        m_saGlobalNames.RemoveAt(static_cast<int>(index));
        m_saGlobalFormulas.RemoveAt(static_cast<int>(index));
        return FALSE;
    }
    return TRUE;
}

int CReformatedMontage::ReplaceGlobal(unsigned index, const char* name, const char* formula) {
    SF_ASSERT(index < GetNumGlobals(), kSource, __LINE__);
    if (index >= GetNumGlobals() || !name || !*name) return FALSE;
    const int other = FindGlobal(name);
    if (other >= 0 && other != static_cast<int>(index)) return FALSE;
    const CReformatedMontage saved(*this);
    const CString oldName = m_saGlobalNames[static_cast<int>(index)];
    ReplaceGlobalConfirmed(index, name, formula);
    if (oldName != name) CarryChangeGlobal(oldName.c_str(), name);
    if (!CompilesGlobal(index) || !CompilesWith()) {
        CopyFrom(saved);
        return FALSE;
    }
    for (unsigned c = 0; c < m_nChannels; ++c) RefreshChannel(c);
    return TRUE;
}

int CReformatedMontage::ReplaceGlobalConfirmed(unsigned index, const char* name, const char* formula) {
    SF_ASSERT(index < GetNumGlobals(), kSource, __LINE__);
    if (index >= GetNumGlobals()) return FALSE;
    m_saGlobalNames.SetAt(static_cast<int>(index), name ? name : "");
    m_saGlobalFormulas.SetAt(static_cast<int>(index), formula ? formula : "");
    return TRUE;
}

int CReformatedMontage::DeleteGlobal(unsigned index) {
    SF_ASSERT(index < GetNumGlobals(), kSource, __LINE__);
    if (index >= GetNumGlobals()) return FALSE;
    if (!CompilesWith(-1, static_cast<int>(index))) return FALSE;
    return DeleteGlobalConfirmed(index);
}

int CReformatedMontage::DeleteGlobalConfirmed(unsigned index) {
    SF_ASSERT(index < GetNumGlobals(), kSource, __LINE__);
    if (index >= GetNumGlobals()) return FALSE;
    m_saGlobalNames.RemoveAt(static_cast<int>(index));
    m_saGlobalFormulas.RemoveAt(static_cast<int>(index));
    return TRUE;
}

int CReformatedMontage::CarryChangeGlobal(const char* oldName, const char* newName, int* channels) {
    int changed = 0;
    // A name that an input answers to never reached the global.
    const bool reachable = oldName && newName && !(m_pRecordingMontage && m_pRecordingMontage->FindInputChannel(oldName) >= 0);
    if (reachable) {
        for (unsigned c = 0; c < m_nChannels; ++c) {
            CString formula = m_saFormulas[static_cast<int>(c)];
            if (!montage_detail::RenameNameToken(formula, oldName, newName)) continue;
            m_saFormulas.SetAt(static_cast<int>(c), formula);
            ++changed;
        }
    }
    if (channels) *channels = changed;
    return changed;
}

int CReformatedMontage::CarryDeleteGlobal(const char* name, int* channels) {
    int deleted = 0;
    const int g = FindGlobal(name);
    if (g >= 0) {
        const CReformatedMontage without = [&] {
            CReformatedMontage copy(*this);
            copy.DeleteGlobalConfirmed(static_cast<unsigned>(g));
            return copy;
        }();
        for (unsigned c = m_nChannels; c-- > 0;) {
            if (without.CompilesChannel(c)) continue;
            DeleteChannel(c);  // virtual: the viewer's crosswalk follows
            ++deleted;
        }
    }
    if (channels) *channels = deleted;
    return deleted;
}

// ------------------------------------------------------------------- archive

void CReformatedMontage::RepairLabels() {
    int counter = 1;
    for (int i = 0; i < m_saLabels.GetSize(); ++i) {
        CString& label = m_saLabels[i];
        if (label.empty()) {
            CString candidate;
            bool taken;
            do {
                candidate = StrFormat("SEP%d", counter++);
                taken = std::find(m_saLabels.begin(), m_saLabels.end(), candidate) != m_saLabels.end();
            } while (taken);
            label = candidate;
        } else if (label == m_saFormulas[i] && Utf8Length(label) > 17) {
            label.erase(std::remove(label.begin(), label.end(), ' '), label.end());
        }
    }
}

void CReformatedMontage::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        SerializeBase(ar);
        ar.WriteObject(m_pRecordingMontage);
        m_saLabels.Serialize(ar);
        m_saFormulas.Serialize(ar);
        m_saGlobalNames.Serialize(ar);
        m_saGlobalFormulas.Serialize(ar);
        return;
    }
    Empty();
    m_pRecordingMontage = nullptr;
    if (!SerializeBase(ar)) return;
    try {
        m_pRecordingMontage =
            static_cast<CRecordingMontage*>(ar.ReadReference(RUNTIME_CLASS(CRecordingMontage), true));
        m_saLabels.Serialize(ar);
        CheckLoadedLength(m_saLabels.GetSize());
        m_saFormulas.Serialize(ar);
        CheckLoadedLength(m_saFormulas.GetSize());
        m_saGlobalNames.Serialize(ar);
        m_saGlobalFormulas.Serialize(ar);
        if (m_saGlobalNames.GetSize() != m_saGlobalFormulas.GetSize())
            AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    } catch (...) {
        Empty();
        m_pRecordingMontage = nullptr;
        throw;
    }
    RepairLabels();
}

CArchive& operator>>(CArchive& ar, CReformatedMontage*& montage) {
    montage = static_cast<CReformatedMontage*>(ar.ReadObject(RUNTIME_CLASS(CReformatedMontage)));
    return ar;
}

// ------------------------------------------------------ signal viewer kinds

CSigViewRefMtg::CSigViewRefMtg() = default;
CSigViewRefMtg::CSigViewRefMtg(CRecordingMontage* recording) : CReformatedMontage(recording) { ResetChanCrsWlk(); }

CSigViewRefMtg& CSigViewRefMtg::operator=(const CReformatedMontage& other) {
    if (this != &other) {
        CReformatedMontage::operator=(other);
        ResetChanCrsWlk();
    }
    return *this;
}

void CSigViewRefMtg::Empty() {
    CReformatedMontage::Empty();
    m_waCrossWalk.RemoveAll();
}

int CSigViewRefMtg::InsertChannel(unsigned index, const char* label, const char* formula, unsigned long color) {
    if (!CReformatedMontage::InsertChannel(index, label, formula, color)) return FALSE;
    if (index <= static_cast<unsigned>(m_waCrossWalk.GetSize()))
        m_waCrossWalk.InsertAt(static_cast<int>(index), kNoOrigin);
    return TRUE;
}

int CSigViewRefMtg::ReplaceChannel(unsigned index, const char* label, const char* formula, unsigned long color) {
    // The channel keeps its place, and so its original index.
    return CReformatedMontage::ReplaceChannel(index, label, formula, color);
}

int CSigViewRefMtg::DeleteChannel(unsigned index) {
    if (!CReformatedMontage::DeleteChannel(index)) return FALSE;
    if (index < static_cast<unsigned>(m_waCrossWalk.GetSize())) m_waCrossWalk.RemoveAt(static_cast<int>(index));
    return TRUE;
}

int CSigViewRefMtg::SwapChannel(unsigned a, unsigned b) {
    if (!CReformatedMontage::SwapChannel(a, b)) return FALSE;
    const unsigned n = static_cast<unsigned>(m_waCrossWalk.GetSize());
    if (a < n && b < n) std::swap(m_waCrossWalk[static_cast<int>(a)], m_waCrossWalk[static_cast<int>(b)]);
    return TRUE;
}

int CSigViewRefMtg::MoveChannel(CWordArray* order) {
    if (!CReformatedMontage::MoveChannel(order)) return FALSE;
    if (m_waCrossWalk.GetSize() == order->GetSize()) Permute(m_waCrossWalk, *order);
    return TRUE;
}

void CSigViewRefMtg::Serialize(CArchive& ar) {
    CReformatedMontage::Serialize(ar);
    if (ar.IsLoading()) ResetChanCrsWlk();
}

void CSigViewRefMtg::ResetChanCrsWlk() {
    m_waCrossWalk.SetSize(static_cast<int>(m_nChannels));
    for (unsigned k = 0; k < m_nChannels; ++k) m_waCrossWalk[static_cast<int>(k)] = static_cast<WORD>(k);
}

unsigned short CSigViewRefMtg::GetChanCrsWlkNewToOrg(unsigned short index) const {
    const bool ok = static_cast<unsigned>(m_waCrossWalk.GetSize()) == m_nChannels && index < m_nChannels;
    SF_ASSERT(ok, kSource, __LINE__);
    return ok ? m_waCrossWalk[index] : kNoOrigin;
}

unsigned short CSigViewRefMtg::GetChanCrsWlkOrgToNew(unsigned short index) const {
    const bool ok = static_cast<unsigned>(m_waCrossWalk.GetSize()) == m_nChannels;
    SF_ASSERT(ok, kSource, __LINE__);
    if (!ok || index == kNoOrigin) return kNoOrigin;
    for (int k = 0; k < m_waCrossWalk.GetSize(); ++k)
        if (m_waCrossWalk[k] == index) return static_cast<unsigned short>(k);
    return kNoOrigin;
}

CSigViewRecMtg::CSigViewRecMtg() = default;
CSigViewRecMtg::CSigViewRecMtg(CPhysicalMontage* physical) : CRecordingMontage(physical) {}

CSigViewRecMtg& CSigViewRecMtg::operator=(const CRecordingMontage& other) {
    CRecordingMontage::operator=(other);
    return *this;
}

CSigViewRecMtg& CSigViewRecMtg::operator=(const CSigViewRecMtg& other) {
    CRecordingMontage::operator=(other);
    return *this;
}

CReformatedMontage* CSigViewRecMtg::CreateReformatedMontage() {
    auto* ref = new CSigViewRefMtg(this);
    AddReformatedMontage(ref);
    return ref;
}
