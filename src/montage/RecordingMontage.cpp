// The recording montage: the digitised channels of a recording and the
// reformatted montages computed from them.
#include <memory>
#include <vector>

#include "montage/MontageText.h"
#include "montage/mtgs.h"
#include "platform/Assert.h"
#include "platform/Strings.h"
#include "platform/Support.h"

using montage_detail::CloneReformated;

namespace {
constexpr const char* kSource = "mtgs";

void ThrowBadData(CArchive& ar) {
    AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
}
}  // namespace

IMPLEMENT_SERIAL(CRecordingMontage, CLogicalMontage, 1)

CRecordingMontage::CRecordingMontage() = default;

CRecordingMontage::CRecordingMontage(CPhysicalMontage* physical) : m_pPhysicalMontage(physical) {}

CRecordingMontage::CRecordingMontage(const CRecordingMontage& other) : CLogicalMontage() { CopyFrom(other); }

CRecordingMontage& CRecordingMontage::operator=(const CRecordingMontage& other) {
    if (this != &other) {
        DeleteReformatedMontages();
        CopyFrom(other);
    }
    return *this;
}

CRecordingMontage::~CRecordingMontage() { Empty(); }

void CRecordingMontage::CopyFrom(const CRecordingMontage& other) {
    CLogicalMontage::operator=(other);
    m_pPhysicalMontage = other.m_pPhysicalMontage;
    m_wSamplesRecord = other.m_wSamplesRecord;
    m_wBaseFrequency = other.m_wBaseFrequency;
    m_saElectrode1.Copy(other.m_saElectrode1);
    m_saElectrode2.Copy(other.m_saElectrode2);
    m_waUnderSampling.Copy(other.m_waUnderSampling);
    m_saPreprocessing.Copy(other.m_saPreprocessing);
    m_samplesConfirmed = other.m_samplesConfirmed;
    for (const CObject* ob : other.m_oaRefMontages) {
        CReformatedMontage* copy = CloneReformated(*static_cast<const CReformatedMontage*>(ob));
        copy->SetRecordingMontage(this);
        m_oaRefMontages.Add(copy);
    }
}

int CRecordingMontage::operator==(const CRecordingMontage& o) const {
    if (!EqualsBase(o) || m_wSamplesRecord != o.m_wSamplesRecord || m_wBaseFrequency != o.m_wBaseFrequency ||
        !(m_saElectrode1 == o.m_saElectrode1) || !(m_saElectrode2 == o.m_saElectrode2) ||
        !(m_waUnderSampling == o.m_waUnderSampling) || !(m_saPreprocessing == o.m_saPreprocessing) ||
        m_oaRefMontages.GetSize() != o.m_oaRefMontages.GetSize())
        return FALSE;
    for (unsigned i = 0; i < GetNumReformatedMontages(); ++i)
        if (*GetReformatedMontageAt(i) != *o.GetReformatedMontageAt(i)) return FALSE;
    return TRUE;
}

void CRecordingMontage::DeleteReformatedMontages() {
    for (int i = m_oaRefMontages.GetSize() - 1; i >= 0; --i) {
        delete m_oaRefMontages[i];
        m_oaRefMontages.RemoveAt(i);
    }
}

void CRecordingMontage::Empty() {
    m_pPhysicalMontage = nullptr;
    DeleteReformatedMontages();
    CLogicalMontage::Empty();
    m_saElectrode1.RemoveAll();
    m_saElectrode2.RemoveAll();
    m_waUnderSampling.RemoveAll();
    m_saPreprocessing.RemoveAll();
    m_samplesConfirmed.clear();
}

// ------------------------------------------------------------------ queries

unsigned CRecordingMontage::GetSamplesChannel(unsigned index) const {
    if (index < m_samplesConfirmed.size() && m_samplesConfirmed[index]) return m_samplesConfirmed[index];
    return VhlGetSamplesChannel(m_wSamplesRecord, m_wBaseFrequency, GetFrequency(index));
}

void CRecordingMontage::SetSamplesChannelConfirmed(unsigned index, unsigned samples) {
    if (index >= m_nChannels) return;
    if (m_samplesConfirmed.size() < m_nChannels) m_samplesConfirmed.resize(m_nChannels, 0);
    m_samplesConfirmed[index] = samples;
}

CString CRecordingMontage::GetLabel(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    const CString& e1 = m_saElectrode1.GetAt(static_cast<int>(index));
    const CString& e2 = m_saElectrode2.GetAt(static_cast<int>(index));
    CString label = e2.empty() ? e1 : Utf8Left(e1, 8) + "-" + Utf8Left(e2, 8);
    SF_ASSERT(Utf8Length(label) < 18, kSource, __LINE__);
    return label;
}

CString CRecordingMontage::GetFormula(unsigned index) const { return GetElectrodeName1(index); }

const char* CRecordingMontage::GetElectrodeName1(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_saElectrode1.GetAt(static_cast<int>(index)).c_str();
}

const char* CRecordingMontage::GetElectrodeName2(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_saElectrode2.GetAt(static_cast<int>(index)).c_str();
}

unsigned CRecordingMontage::GetUnderSamplingMethod(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_waUnderSampling.GetAt(static_cast<int>(index));
}

const char* CRecordingMontage::GetPreprocessing(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    return m_saPreprocessing.GetAt(static_cast<int>(index)).c_str();
}

int CRecordingMontage::IsDepthChannel(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels || !m_pPhysicalMontage) return FALSE;
    // The active electrode decides: a referential channel against an ear or
    // a remote reference is not a depth channel because of its reference.
    const CPhysicalMontage* pm = m_pPhysicalMontage;
    const char* name = GetElectrodeName1(index);
    if (pm->IsElecOfGroup(name)) return TRUE;
    for (unsigned e = 0; e < pm->GetNumElectrodes(); ++e)
        if (!pm->IsElecGroup(e) && EqualsNoCase(pm->GetElectrodeName(e), name) && pm->IsDepthElectrode(e))
            return TRUE;
    return FALSE;
}

int CRecordingMontage::HasDepthChannel() const {
    for (unsigned i = 0; i < m_nChannels; ++i)
        if (IsDepthChannel(i)) return TRUE;
    return FALSE;
}

int CRecordingMontage::CheckUsageElectrode(const char* name) const {
    if (!name || !*name) return FALSE;
    for (unsigned i = 0; i < m_nChannels; ++i)
        if (EqualsNoCase(GetElectrodeName1(i), name) || EqualsNoCase(GetElectrodeName2(i), name)) return TRUE;
    return FALSE;
}

int CRecordingMontage::IsRecChLabelFoundElseInRecMtg(const char* label) const {
    if (!label || !m_pPhysicalMontage) return FALSE;
    for (int m = 0; m < m_pPhysicalMontage->GetNumRecordingMontages(); ++m) {
        const CRecordingMontage* other = m_pPhysicalMontage->GetRecordingMontageAt(m);
        if (other == this) continue;
        for (unsigned i = 0; i < other->GetNumChannels(); ++i)
            if (EqualsNoCase(other->GetLabel(i), label)) return TRUE;
    }
    return FALSE;
}

int CRecordingMontage::FindInputChannel(const char* name) const {
    if (!name) return -1;
    const CString key = ToUpperAscii(name);
    for (unsigned i = 0; i < m_nChannels; ++i)
        if (ToUpperAscii(GetElectrodeName1(i)) == key) return static_cast<int>(i);
    return -1;
}

// ------------------------------------------------------------------ editing

int CRecordingMontage::SetMontageName(const char* name) {
    if (!m_pPhysicalMontage || !name) return FALSE;
    for (int m = 0; m < m_pPhysicalMontage->GetNumRecordingMontages(); ++m) {
        const CRecordingMontage* other = m_pPhysicalMontage->GetRecordingMontageAt(m);
        if (other != this && EqualsNoCase(other->GetMontageName(), name)) return FALSE;
    }
    m_strName = name;
    return TRUE;
}

int CRecordingMontage::FrequencyFits(unsigned base, unsigned samples, unsigned frequency) const {
    return frequency != 0 && frequency <= base && base / frequency <= samples && base % frequency == 0;
}

int CRecordingMontage::SetBaseFrequency(unsigned frequency) {
    if (frequency > 0xFFFF) return FALSE;
    for (unsigned i = 0; i < m_nChannels; ++i)
        if (!FrequencyFits(frequency, m_wSamplesRecord, GetFrequency(i))) return FALSE;
    m_wBaseFrequency = static_cast<WORD>(frequency);
    RefreshReformated();
    return TRUE;
}

int CRecordingMontage::SetSamplesRecord(unsigned samples) {
    if (samples < 1 || samples > 0xFFFF) return FALSE;
    for (unsigned i = 0; i < m_nChannels; ++i)
        if (!FrequencyFits(m_wBaseFrequency, samples, GetFrequency(i))) return FALSE;
    m_wSamplesRecord = static_cast<WORD>(samples);
    RefreshReformated();
    return TRUE;
}

// The insertion rules for electrode names and frequency; ignoreIndex is the
// channel being replaced (-1 for an insertion).
int CRecordingMontage::CheckChannelArgs(int ignoreIndex, const char* elec1, const char* elec2,
                                        unsigned frequency) const {
    if (!m_pPhysicalMontage) return FALSE;
    if (!elec1 || !m_pPhysicalMontage->IsElectrodeOfMontage(elec1)) return FALSE;
    const char* e2 = elec2 ? elec2 : "";
    if (*e2 && !m_pPhysicalMontage->IsElectrodeOfMontage(e2)) return FALSE;
    for (unsigned i = 0; i < m_nChannels; ++i) {
        if (static_cast<int>(i) == ignoreIndex) continue;
        if (EqualsNoCase(GetElectrodeName1(i), elec1) && EqualsNoCase(GetElectrodeName2(i), e2)) return FALSE;
    }
    return FrequencyFits(m_wBaseFrequency, m_wSamplesRecord, frequency);
}

int CRecordingMontage::AddChannel(const char* elec1, const char* elec2, unsigned type, unsigned unit,
                                  unsigned frequency, unsigned long color, unsigned underSampling,
                                  const char* preprocessing) {
    return InsertChannel(m_nChannels, elec1, elec2, type, unit, frequency, color, underSampling, preprocessing);
}

int CRecordingMontage::InsertChannel(unsigned index, const char* elec1, const char* elec2, unsigned type,
                                     unsigned unit, unsigned frequency, unsigned long color, unsigned underSampling,
                                     const char* preprocessing) {
    if (!m_pPhysicalMontage) return FALSE;
    if (index >= kMaxMontageChannels || m_nChannels >= kMaxMontageChannels) return FALSE;
    SF_ASSERT(index <= m_nChannels, kSource, __LINE__);
    if (index > m_nChannels) return FALSE;
    if (!CheckChannelArgs(-1, elec1, elec2, frequency)) return FALSE;
    const int i = static_cast<int>(index);
    InsertBaseChannel(index, frequency, type, unit, color);
    m_saElectrode1.InsertAt(i, elec1);
    m_saElectrode2.InsertAt(i, elec2 ? elec2 : "");
    m_waUnderSampling.InsertAt(i, static_cast<WORD>(underSampling));
    m_saPreprocessing.InsertAt(i, preprocessing ? preprocessing : "");
    return TRUE;
}

int CRecordingMontage::AppendChannelConfirmed(const char* elec1, const char* elec2, unsigned type, unsigned unit,
                                              unsigned frequency, unsigned long color, unsigned underSampling,
                                              const char* preprocessing) {
    if (!m_pPhysicalMontage || m_nChannels >= kMaxMontageChannels) return FALSE;
    const int i = static_cast<int>(m_nChannels);
    InsertBaseChannel(m_nChannels, frequency, type, unit, color);
    m_saElectrode1.InsertAt(i, elec1 ? elec1 : "");
    m_saElectrode2.InsertAt(i, elec2 ? elec2 : "");
    m_waUnderSampling.InsertAt(i, static_cast<WORD>(underSampling));
    m_saPreprocessing.InsertAt(i, preprocessing ? preprocessing : "");
    return TRUE;
}

int CRecordingMontage::ReplaceChannelConfirmed(unsigned index, const char* elec1, const char* elec2, unsigned type,
                                               unsigned unit, unsigned frequency, unsigned long color,
                                               unsigned underSampling, const char* preprocessing) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    const int i = static_cast<int>(index);
    m_waFrequency.SetAt(i, static_cast<WORD>(frequency));
    m_waType.SetAt(i, static_cast<WORD>(type));
    m_waUnit.SetAt(i, static_cast<WORD>(unit));
    m_dwaColor.SetAt(i, static_cast<DWORD>(color));
    m_saElectrode1.SetAt(i, elec1 ? elec1 : "");
    m_saElectrode2.SetAt(i, elec2 ? elec2 : "");
    m_waUnderSampling.SetAt(i, static_cast<WORD>(underSampling));
    m_saPreprocessing.SetAt(i, preprocessing ? preprocessing : "");
    return TRUE;
}

namespace {
// The content of the reformatted montages, to undo a change that made one of
// them fail to compile.  The objects themselves stay, so that pointers held
// by callers remain valid.
class RefSnapshot {
public:
    explicit RefSnapshot(const CRecordingMontage& rec) {
        for (unsigned r = 0; r < rec.GetNumReformatedMontages(); ++r)
            m_copies.emplace_back(new CReformatedMontage(*rec.GetReformatedMontageAt(r)));
    }
    void Restore(CRecordingMontage& rec) const {
        for (unsigned r = 0; r < rec.GetNumReformatedMontages() && r < m_copies.size(); ++r)
            static_cast<CReformatedMontage&>(*rec.GetReformatedMontageAt(r)) = *m_copies[r];
    }

private:
    std::vector<std::unique_ptr<CReformatedMontage>> m_copies;
};
}  // namespace

int CRecordingMontage::ReplaceChannel(unsigned index, const char* elec1, const char* elec2, unsigned type,
                                      unsigned unit, unsigned frequency, unsigned long color, unsigned underSampling,
                                      const char* preprocessing) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    if (!CheckChannelArgs(static_cast<int>(index), elec1, elec2, frequency)) return FALSE;
    const CString old1 = GetElectrodeName1(index), old2 = GetElectrodeName2(index);
    const unsigned oldType = GetType(index), oldUnit = GetUnit(index), oldFreq = GetFrequency(index);
    const unsigned long oldColor = GetColor(index);
    const unsigned oldUsm = GetUnderSamplingMethod(index);
    const CString oldPre = GetPreprocessing(index);
    const RefSnapshot snapshot(*this);
    ReplaceChannelConfirmed(index, elec1, elec2, type, unit, frequency, color, underSampling, preprocessing);
    CarryChangeRecordingChannel(index, old1.c_str());
    for (unsigned r = 0; r < GetNumReformatedMontages(); ++r) {
        if (GetReformatedMontageAt(r)->CompilesWith()) continue;
        ReplaceChannelConfirmed(index, old1.c_str(), old2.c_str(), oldType, oldUnit, oldFreq, oldColor, oldUsm,
                                oldPre.c_str());
        snapshot.Restore(*this);
        return FALSE;
    }
    RefreshReformated();
    return TRUE;
}

int CRecordingMontage::CarryChangeRecordingChannel(unsigned index, const char* oldElec1, int* montages,
                                                   int* channels) {
    int nMontages = 0, nChannels = 0;
    const bool valid = index < m_nChannels && oldElec1 && *oldElec1;
    SF_ASSERT(valid, kSource, __LINE__);
    if (valid && ToUpperAscii(oldElec1) != ToUpperAscii(GetElectrodeName1(index))) {
        // Formulas reached this channel by the old name only when no earlier
        // channel has that name.
        const int reached = FindInputChannel(oldElec1);
        if (reached < 0 || reached > static_cast<int>(index)) {
            const CString newName = GetElectrodeName1(index);
            for (unsigned r = 0; r < GetNumReformatedMontages(); ++r) {
                CReformatedMontage* ref = GetReformatedMontageAt(r);
                int changedHere = 0;
                for (unsigned g = 0; g < ref->GetNumGlobals(); ++g) {
                    CString formula = ref->GetGlobalFormula(g);
                    if (montage_detail::RenameNameToken(formula, oldElec1, newName))
                        ref->ReplaceGlobalConfirmed(g, ref->GetGlobalName(g), formula.c_str());
                }
                for (unsigned c = 0; c < ref->GetNumChannels(); ++c) {
                    CString formula = ref->GetFormula(c), label = ref->GetLabel(c);
                    const bool f = montage_detail::RenameNameToken(formula, oldElec1, newName);
                    const bool l = montage_detail::RenameNameToken(label, oldElec1, newName);
                    if (f) ref->ReplaceFormulaConfirmed(c, formula.c_str());
                    if (l) ref->ReplaceLabelConfirmed(c, label.c_str());
                    if (f || l) ++changedHere;
                }
                if (changedHere) {
                    ++nMontages;
                    nChannels += changedHere;
                }
            }
        }
    }
    RefreshReformated();
    if (montages) *montages = nMontages;
    if (channels) *channels = nChannels;
    return nChannels;
}

int CRecordingMontage::DeleteChannel(unsigned index) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    if (!AllReformatedCompile(static_cast<int>(index), -1, nullptr)) return FALSE;
    return DeleteChannelConfirmed(index);
}

int CRecordingMontage::DeleteChannelConfirmed(unsigned index) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    const int i = static_cast<int>(index);
    RemoveBaseChannel(index);
    m_saElectrode1.RemoveAt(i);
    m_saElectrode2.RemoveAt(i);
    m_waUnderSampling.RemoveAt(i);
    m_saPreprocessing.RemoveAt(i);
    if (index < m_samplesConfirmed.size()) m_samplesConfirmed.erase(m_samplesConfirmed.begin() + i);
    return TRUE;
}

int CRecordingMontage::CarryDeleteRecordingChannel(unsigned index, int* montages, int* channels) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    int nMontages = 0, nChannels = 0;
    if (index < m_nChannels) {
        // The dependants go first, while the channel is still there to be
        // left out of the trial compilations.
        for (unsigned r = 0; r < GetNumReformatedMontages(); ++r) {
            CReformatedMontage* ref = GetReformatedMontageAt(r);
            int changedHere = 0;
            // A global that needs the channel goes, and with it (failing
            // below on its unknown name) every channel that uses it.
            for (unsigned g = ref->GetNumGlobals(); g-- > 0;)
                if (!ref->CompilesGlobal(g, static_cast<int>(index))) ref->DeleteGlobalConfirmed(g);
            for (unsigned c = ref->GetNumChannels(); c-- > 0;) {
                if (ref->CompilesChannel(c, static_cast<int>(index))) continue;
                ref->DeleteChannel(c);
                ++changedHere;
            }
            if (changedHere) {
                ++nMontages;
                nChannels += changedHere;
            }
        }
        DeleteChannelConfirmed(index);
        RefreshReformated();
    }
    if (montages) *montages = nMontages;
    if (channels) *channels = nChannels;
    return nChannels;
}

int CRecordingMontage::SwapChannel(unsigned a, unsigned b) {
    SF_ASSERT(a < m_nChannels && b < m_nChannels, kSource, __LINE__);
    if (a >= m_nChannels || b >= m_nChannels) return FALSE;
    if (a == b) return TRUE;
    auto swapAll = [&] {
        SwapBaseChannel(a, b);
        const int i = static_cast<int>(a), j = static_cast<int>(b);
        std::swap(m_saElectrode1[i], m_saElectrode1[j]);
        std::swap(m_saElectrode2[i], m_saElectrode2[j]);
        std::swap(m_waUnderSampling[i], m_waUnderSampling[j]);
        std::swap(m_saPreprocessing[i], m_saPreprocessing[j]);
    };
    swapAll();
    // Only when both channels answer to the same name can a formula now
    // reach another channel.
    if (ToUpperAscii(GetElectrodeName1(a)) == ToUpperAscii(GetElectrodeName1(b))) {
        if (!AllReformatedCompile(-1, -1, nullptr)) {
            swapAll();
            return FALSE;
        }
        RefreshReformated();
    }
    return TRUE;
}

int CRecordingMontage::SetFrequency(unsigned index, unsigned frequency) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels || !FrequencyFits(m_wBaseFrequency, m_wSamplesRecord, frequency)) return FALSE;
    if (CheckChannelPropertyInConflict(index, GetType(index), GetUnit(index), frequency)) return FALSE;
    CLogicalMontage::SetFrequency(index, frequency);
    RefreshReformated();
    return TRUE;
}

int CRecordingMontage::SetType(unsigned index, unsigned type) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels || type > 0xFFFF) return FALSE;
    if (CheckChannelPropertyInConflict(index, type, GetUnit(index), GetFrequency(index))) return FALSE;
    CLogicalMontage::SetType(index, type);
    RefreshReformated();
    return TRUE;
}

int CRecordingMontage::SetUnit(unsigned index, unsigned unit) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels || unit > 0xFFFF) return FALSE;
    if (CheckChannelPropertyInConflict(index, GetType(index), unit, GetFrequency(index))) return FALSE;
    CLogicalMontage::SetUnit(index, unit);
    RefreshReformated();
    return TRUE;
}

int CRecordingMontage::CheckChannelPropertyInConflict(unsigned index, unsigned type, unsigned unit,
                                                      unsigned frequency) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    ChannelDesc desc;
    desc.elec1 = GetElectrodeName1(index);
    desc.elec2 = GetElectrodeName2(index);
    desc.type = type;
    desc.unit = unit;
    desc.frequency = frequency;
    return !AllReformatedCompile(-1, static_cast<int>(index), &desc);
}

void CRecordingMontage::RefreshReformated() {
    for (unsigned r = 0; r < GetNumReformatedMontages(); ++r) {
        CReformatedMontage* ref = GetReformatedMontageAt(r);
        for (unsigned c = 0; c < ref->GetNumChannels(); ++c) ref->RefreshChannel(c);
    }
}

// ----------------------------------------------------- reformatted montages

CReformatedMontage* CRecordingMontage::CreateReformatedMontage() {
    auto* ref = new CReformatedMontage(this);
    m_oaRefMontages.Add(ref);
    return ref;
}

CReformatedMontage* CRecordingMontage::GetReformatedMontageAt(unsigned index) const {
    SF_ASSERT(index < GetNumReformatedMontages(), kSource, __LINE__);
    return static_cast<CReformatedMontage*>(m_oaRefMontages.GetAt(static_cast<int>(index)));
}

CReformatedMontage* CRecordingMontage::GetReformatedMontage(const char* name) const {
    if (!name) return nullptr;
    for (CObject* ob : m_oaRefMontages) {
        auto* ref = static_cast<CReformatedMontage*>(ob);
        if (EqualsNoCase(ref->GetMontageName(), name)) return ref;
    }
    return nullptr;
}

CReformatedMontage* CRecordingMontage::ImportReformatedMontage(const CReformatedMontage* source, const char* name) {
    SF_ASSERT(source != nullptr, kSource, __LINE__);
    if (!source) return nullptr;
    const CString newName = name ? name : source->GetMontageName();
    if (GetReformatedMontage(newName.c_str())) return nullptr;
    CReformatedMontage* ref = CreateReformatedMontage();
    ref->SetMontageName(newName.c_str());
    for (unsigned g = 0; g < source->GetNumGlobals(); ++g)
        ref->AddGlobal(source->GetGlobalName(g), source->GetGlobalFormula(g));
    for (unsigned c = 0; c < source->GetNumChannels(); ++c) {
        if (!ref->AddChannel(source->GetLabel(c).c_str(), source->GetFormula(c).c_str(), source->GetColor(c)))
            continue;
        const unsigned added = ref->GetNumChannels() - 1;
        ref->SetSpikeOptions(added, source->GetSpikeOptions(c));
        ref->SetSeizureOptions(added, source->GetSeizureOptions(c));
    }
    return ref;
}

int CRecordingMontage::AddReformatedMontage(CReformatedMontage* montage) {
    return InsertReformatedMontageAt(GetNumReformatedMontages(), montage);
}

int CRecordingMontage::InsertReformatedMontageAt(unsigned index, CReformatedMontage* montage) {
    SF_ASSERT(montage != nullptr, kSource, __LINE__);
    SF_ASSERT(index <= GetNumReformatedMontages(), kSource, __LINE__);
    if (!montage || index > GetNumReformatedMontages()) return FALSE;
    for (const CObject* ob : m_oaRefMontages)
        if (ob == montage) return FALSE;
    montage->SetRecordingMontage(this);
    m_oaRefMontages.InsertAt(static_cast<int>(index), montage);
    return TRUE;
}

int CRecordingMontage::DeleteReformatedMontageAt(unsigned index) {
    SF_ASSERT(index < GetNumReformatedMontages(), kSource, __LINE__);
    if (index >= GetNumReformatedMontages()) return FALSE;
    CObject* ob = m_oaRefMontages[static_cast<int>(index)];
    m_oaRefMontages.RemoveAt(static_cast<int>(index));
    delete ob;
    return TRUE;
}

int CRecordingMontage::DeleteReformatedMontage(CReformatedMontage* montage) {
    for (unsigned i = 0; i < GetNumReformatedMontages(); ++i)
        if (m_oaRefMontages[static_cast<int>(i)] == montage) return DeleteReformatedMontageAt(i);
    return FALSE;
}

// ------------------------------------------------------------------- archive

void CRecordingMontage::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        SerializeBase(ar);
        ar.WriteObject(m_pPhysicalMontage);
        ar << m_wSamplesRecord << m_wBaseFrequency;
        m_saElectrode1.Serialize(ar);
        m_saElectrode2.Serialize(ar);
        m_waUnderSampling.Serialize(ar);
        m_saPreprocessing.Serialize(ar);
        m_oaRefMontages.Serialize(ar);
        return;
    }
    Empty();
    if (!SerializeBase(ar)) return;
    try {
        // A recording montage read inside its physical montage refers back to
        // it; the physical montage points its children to itself after loading.
        m_pPhysicalMontage =
            static_cast<CPhysicalMontage*>(ar.ReadReference(RUNTIME_CLASS(CPhysicalMontage), true));
        ar >> m_wSamplesRecord >> m_wBaseFrequency;
        m_saElectrode1.Serialize(ar);
        CheckLoadedLength(m_saElectrode1.GetSize());
        m_saElectrode2.Serialize(ar);
        CheckLoadedLength(m_saElectrode2.GetSize());
        m_waUnderSampling.Serialize(ar);
        CheckLoadedLength(m_waUnderSampling.GetSize());
        m_saPreprocessing.Serialize(ar);
        CheckLoadedLength(m_saPreprocessing.GetSize());
        m_oaRefMontages.Serialize(ar);
        for (CObject* ob : m_oaRefMontages)
            if (!ob || !ob->IsKindOf(RUNTIME_CLASS(CReformatedMontage))) ThrowBadData(ar);
    } catch (...) {
        Empty();
        throw;
    }
    for (CObject* ob : m_oaRefMontages) static_cast<CReformatedMontage*>(ob)->SetRecordingMontage(this);
}

CArchive& operator>>(CArchive& ar, CRecordingMontage*& montage) {
    montage = static_cast<CRecordingMontage*>(ar.ReadObject(RUNTIME_CLASS(CRecordingMontage)));
    return ar;
}
