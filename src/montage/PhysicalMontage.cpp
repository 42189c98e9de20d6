// The physical montage: electrodes, sensors and electrode groups with their
// head positions, and the recording montages that use them.
#include <memory>

#include "montage/MontageText.h"
#include "montage/mtgs.h"
#include "platform/Assert.h"
#include "platform/Strings.h"

using montage_detail::CloneRecording;

namespace {
constexpr const char* kSource = "mtgs";
constexpr WORD kPhysicalSchema = 7;

void ThrowBadData(CArchive& ar) {
    AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
}
}  // namespace

IMPLEMENT_SERIAL(CPhysicalMontage, CObject, 1)

CPhysicalMontage::CPhysicalMontage() = default;

CPhysicalMontage::CPhysicalMontage(const char* name, unsigned mapType)
    : m_strName(name ? name : ""), m_wMapType(static_cast<WORD>(mapType)) {}

CPhysicalMontage::CPhysicalMontage(const CPhysicalMontage& other) : CObject() { CopyFrom(other); }

CPhysicalMontage::~CPhysicalMontage() { DeleteContents(); }

CPhysicalMontage& CPhysicalMontage::operator=(const CPhysicalMontage& other) {
    if (this != &other) {
        DeleteContents();
        CopyFrom(other);
    }
    return *this;
}

void CPhysicalMontage::DeleteContents() {
    for (int i = m_oaRecMontages.GetSize() - 1; i >= 0; --i) delete m_oaRecMontages[i];
    m_oaRecMontages.RemoveAll();
    for (CObject* ob : m_oaElecGroups) delete ob;
    m_oaElecGroups.RemoveAll();
}

void CPhysicalMontage::CopyFrom(const CPhysicalMontage& other) {
    m_strName = other.m_strName;
    m_wMapType = other.m_wMapType;
    m_wNumElectrodes = other.m_wNumElectrodes;
    m_saElectrodes.Copy(other.m_saElectrodes);
    m_daPositions.Copy(other.m_daPositions);
    for (const CObject* ob : other.m_oaRecMontages) {
        CRecordingMontage* copy = CloneRecording(*static_cast<const CRecordingMontage*>(ob));
        copy->SetPhysicalMontage(this);
        m_oaRecMontages.Add(copy);
    }
    for (const CObject* ob : other.m_oaElecGroups)
        m_oaElecGroups.Add(new CElecGroup(*static_cast<const CElecGroup*>(ob)));
}

int CPhysicalMontage::operator==(const CPhysicalMontage& other) const {
    if (m_strName != other.m_strName || m_wMapType != other.m_wMapType ||
        m_wNumElectrodes != other.m_wNumElectrodes || !(m_saElectrodes == other.m_saElectrodes) ||
        !(m_daPositions == other.m_daPositions) || m_oaRecMontages.GetSize() != other.m_oaRecMontages.GetSize() ||
        m_oaElecGroups.GetSize() != other.m_oaElecGroups.GetSize())
        return FALSE;
    for (int i = 0; i < m_oaRecMontages.GetSize(); ++i)
        if (*GetRecordingMontageAt(i) != *other.GetRecordingMontageAt(i)) return FALSE;
    for (int i = 0; i < m_oaElecGroups.GetSize(); ++i)
        if (*GetElecGroupAt(i) != *other.GetElecGroupAt(i)) return FALSE;
    return TRUE;
}

// ------------------------------------------------------------------ entries

const char* CPhysicalMontage::GetElectrodeName(unsigned index) const {
    SF_ASSERT(index < m_wNumElectrodes, kSource, __LINE__);
    return m_saElectrodes.GetAt(static_cast<int>(index)).c_str();
}

CPolar3D CPhysicalMontage::GetElectrodePosition(unsigned index) const {
    SF_ASSERT(index < m_wNumElectrodes, kSource, __LINE__);
    const int base = static_cast<int>(index) * 3;
    return CPolar3D(m_daPositions.GetAt(base), m_daPositions.GetAt(base + 1), m_daPositions.GetAt(base + 2));
}

void CPhysicalMontage::SetElectrodePosition(unsigned index, CPolar3D position) {
    SF_ASSERT(index < m_wNumElectrodes, kSource, __LINE__);
    const int base = static_cast<int>(index) * 3;
    m_daPositions.SetAt(base, position.radius);
    m_daPositions.SetAt(base + 1, position.inclination);
    m_daPositions.SetAt(base + 2, position.azimuth);
}

// True when name is a plain entry (other than ignoreEntry) without regard to
// case, or a name that one of the groups (other than ignoreEntry's) could
// produce.
int CPhysicalMontage::IsNameTaken(const char* name, int ignoreEntry) const {
    for (int i = 0; i < static_cast<int>(m_wNumElectrodes); ++i) {
        if (i == ignoreEntry) continue;
        const CString& entry = m_saElectrodes[i];
        if (CElecGroup::IsElecGroup(entry.c_str())) {
            const CElecGroup* g = GetElecGroup(entry.c_str());
            if (g && CElecGroup::CheckNameReservedInGroup(g->GetBaseName().c_str(), name, g->GetNumRow(),
                                                           g->GetNumCol()))
                return TRUE;
        } else if (EqualsNoCase(entry, name)) {
            return TRUE;
        }
    }
    return FALSE;
}

int CPhysicalMontage::AddElectrode(const char* name, CPolar3D position) {
    return InsertElectrode(m_wNumElectrodes, name, position);
}

int CPhysicalMontage::InsertElectrode(unsigned index, const char* name, CPolar3D position) {
    SF_ASSERT(index <= m_wNumElectrodes, kSource, __LINE__);
    if (index > m_wNumElectrodes || m_wNumElectrodes == 0xFFFF) return FALSE;
    if (!name || !*name || CElecGroup::IsElecGroup(name)) return FALSE;
    if (IsNameTaken(name, -1)) return FALSE;
    const int i = static_cast<int>(index);
    m_saElectrodes.InsertAt(i, name);
    m_daPositions.InsertAt(i * 3, position.azimuth);
    m_daPositions.InsertAt(i * 3, position.inclination);
    m_daPositions.InsertAt(i * 3, position.radius);
    ++m_wNumElectrodes;
    return TRUE;
}

// Checks the names of a group against the other entries: its bracketed name
// must be new, it must not be able to produce a plain entry's name, and none
// of its electrodes may be a name another group could produce.
int CPhysicalMontage::CheckGroupNames(const CElecGroup* group, int ignoreEntry) const {
    const CString base = group->GetBaseName();
    for (int i = 0; i < static_cast<int>(m_wNumElectrodes); ++i) {
        if (i == ignoreEntry) continue;
        const CString& entry = m_saElectrodes[i];
        if (EqualsNoCase(entry, group->GetName())) return FALSE;
        if (!CElecGroup::IsElecGroup(entry.c_str())) {
            if (CElecGroup::CheckNameReservedInGroup(base.c_str(), entry.c_str(), group->GetNumRow(),
                                                     group->GetNumCol()))
                return FALSE;
            continue;
        }
        const CElecGroup* other = GetElecGroup(entry.c_str());
        if (!other) continue;
        for (int e = 0; e < group->GetElectrodeCount(); ++e)
            if (CElecGroup::CheckNameReservedInGroup(other->GetBaseName().c_str(), group->GetElectrodeAt(e)->GetName(),
                                                     other->GetNumRow(), other->GetNumCol()))
                return FALSE;
        for (int e = 0; e < other->GetElectrodeCount(); ++e)
            if (CElecGroup::CheckNameReservedInGroup(base.c_str(), other->GetElectrodeAt(e)->GetName(),
                                                     group->GetNumRow(), group->GetNumCol()))
                return FALSE;
    }
    return TRUE;
}

int CPhysicalMontage::AddElectrode(CElecGroup* group) { return InsertElectrode(m_wNumElectrodes, group); }

int CPhysicalMontage::InsertElectrode(unsigned index, CElecGroup* group) {
    SF_ASSERT(group != nullptr, kSource, __LINE__);
    SF_ASSERT(index <= m_wNumElectrodes, kSource, __LINE__);
    if (!group || index > m_wNumElectrodes || m_wNumElectrodes == 0xFFFF) return FALSE;
    if (!CElecGroup::IsElecGroup(group->GetName()) || GroupIndexOf(group->GetName()) >= 0) return FALSE;
    if (!CheckGroupNames(group, -1)) return FALSE;
    const int i = static_cast<int>(index);
    m_saElectrodes.InsertAt(i, group->GetName());
    const CPolar3D none;
    m_daPositions.InsertAt(i * 3, none.azimuth);
    m_daPositions.InsertAt(i * 3, none.inclination);
    m_daPositions.InsertAt(i * 3, none.radius);
    ++m_wNumElectrodes;
    AddElecGroup(group);
    return TRUE;
}

int CPhysicalMontage::SetElectrodeName(unsigned index, const char* name) {
    SF_ASSERT(index < m_wNumElectrodes, kSource, __LINE__);
    if (index >= m_wNumElectrodes || !name || !*name || CElecGroup::IsElecGroup(name)) return FALSE;
    const CString old = m_saElectrodes[static_cast<int>(index)];
    if (CElecGroup::IsElecGroup(old.c_str())) return FALSE;
    if (old == name) return TRUE;
    if (IsNameTaken(name, static_cast<int>(index))) return FALSE;
    m_saElectrodes.SetAt(static_cast<int>(index), name);
    CarryChangeElectrode(old.c_str(), name);
    return TRUE;
}

int CPhysicalMontage::DeleteElectrode(unsigned index) {
    SF_ASSERT(index < m_wNumElectrodes, kSource, __LINE__);
    if (index >= m_wNumElectrodes) return FALSE;
    const CString& entry = m_saElectrodes[static_cast<int>(index)];
    if (CElecGroup::IsElecGroup(entry.c_str())) {
        // A group is in use when one of its contacts is the active electrode
        // of a channel.
        if (const CElecGroup* g = GetElecGroup(entry.c_str())) {
            for (const CObject* ob : m_oaRecMontages) {
                const auto* rec = static_cast<const CRecordingMontage*>(ob);
                for (unsigned c = 0; c < rec->GetNumChannels(); ++c)
                    if (g->IsElectrodeExist(rec->GetElectrodeName1(c))) return FALSE;
            }
        }
    } else {
        for (const CObject* ob : m_oaRecMontages)
            if (static_cast<const CRecordingMontage*>(ob)->CheckUsageElectrode(entry.c_str())) return FALSE;
    }
    return DeleteElectrodeConfirmed(index);
}

int CPhysicalMontage::DeleteElectrodeConfirmed(unsigned index) {
    SF_ASSERT(index < m_wNumElectrodes, kSource, __LINE__);
    if (index >= m_wNumElectrodes) return FALSE;
    const int i = static_cast<int>(index);
    const CString entry = m_saElectrodes[i];
    m_saElectrodes.RemoveAt(i);
    m_daPositions.RemoveAt(i * 3, 3);
    --m_wNumElectrodes;
    if (CElecGroup::IsElecGroup(entry.c_str())) DeleteElecGroupConfirmed(entry.c_str());
    return TRUE;
}

int CPhysicalMontage::GetElectrodeNumber(const char* name) const {
    if (!name) return -1;
    for (int i = 0; i < static_cast<int>(m_wNumElectrodes); ++i)
        if (m_saElectrodes[i] == name) return i;
    return -1;
}

int CPhysicalMontage::CheckElectrode(const char* name) const {
    if (!name) return FALSE;
    for (const CObject* ob : m_oaRecMontages) {
        const auto* rec = static_cast<const CRecordingMontage*>(ob);
        for (unsigned c = 0; c < rec->GetNumChannels(); ++c)
            if (std::string(rec->GetElectrodeName1(c)) == name || std::string(rec->GetElectrodeName2(c)) == name)
                return TRUE;
    }
    return FALSE;
}

int CPhysicalMontage::IsDepthElectrode(unsigned index) const { return GetElectrodePosition(index).radius < 1.0; }

int CPhysicalMontage::IsElectrodeOfMontage(const char* name) const {
    if (!name || !*name) return FALSE;
    for (int i = 0; i < static_cast<int>(m_wNumElectrodes); ++i) {
        const CString& entry = m_saElectrodes[i];
        if (!CElecGroup::IsElecGroup(entry.c_str()) && EqualsNoCase(entry, name)) return TRUE;
    }
    return IsElecOfGroup(name);
}

// -------------------------------------------------------- recording montages

CRecordingMontage* CPhysicalMontage::GetRecordingMontageAt(int index) const {
    return static_cast<CRecordingMontage*>(m_oaRecMontages.GetAt(index));
}

CRecordingMontage* CPhysicalMontage::GetRecordingMontage(const char* name) const {
    if (!name) return nullptr;
    for (CObject* ob : m_oaRecMontages) {
        auto* rec = static_cast<CRecordingMontage*>(ob);
        if (std::string(rec->GetMontageName()) == name) return rec;
    }
    return nullptr;
}

CRecordingMontage* CPhysicalMontage::CreateRecordingMontage() {
    auto* rec = new CRecordingMontage(this);
    m_oaRecMontages.Add(rec);
    return rec;
}

int CPhysicalMontage::AddRecordingMontage(CRecordingMontage* montage) {
    return InsertRecordingMontageAt(m_oaRecMontages.GetSize(), montage);
}

int CPhysicalMontage::InsertRecordingMontageAt(int index, CRecordingMontage* montage) {
    SF_ASSERT(montage != nullptr, kSource, __LINE__);
    SF_ASSERT(index >= 0 && index <= m_oaRecMontages.GetSize(), kSource, __LINE__);
    if (!montage || index < 0 || index > m_oaRecMontages.GetSize()) return FALSE;
    for (const CObject* ob : m_oaRecMontages)
        if (ob == montage) return FALSE;
    montage->SetPhysicalMontage(this);
    m_oaRecMontages.InsertAt(index, montage);
    return TRUE;
}

CRecordingMontage* CPhysicalMontage::ImportRecordingMontage(const CRecordingMontage* source, const char* name,
                                                             unsigned index) {
    SF_ASSERT(source != nullptr, kSource, __LINE__);
    if (!source || !name || !*name) return nullptr;
    for (const CObject* ob : m_oaRecMontages)
        if (EqualsNoCase(static_cast<const CRecordingMontage*>(ob)->GetMontageName(), name)) return nullptr;
    auto rec = std::make_unique<CRecordingMontage>(this);
    rec->SetSamplesRecord(source->GetSamplesRecord());
    rec->SetBaseFrequency(source->GetBaseFrequency());
    for (unsigned c = 0; c < source->GetNumChannels(); ++c) {
        if (!rec->AddChannel(source->GetElectrodeName1(c), source->GetElectrodeName2(c), source->GetType(c),
                             source->GetUnit(c), source->GetFrequency(c), source->GetColor(c),
                             source->GetUnderSamplingMethod(c), source->GetPreprocessing(c)))
            continue;
        const unsigned added = rec->GetNumChannels() - 1;
        rec->SetSpikeOptions(added, source->GetSpikeOptions(c));
        rec->SetSeizureOptions(added, source->GetSeizureOptions(c));
    }
    if (rec->GetNumChannels() == 0) return nullptr;
    const int at = index < static_cast<unsigned>(m_oaRecMontages.GetSize()) ? static_cast<int>(index)
                                                                             : m_oaRecMontages.GetSize();
    CRecordingMontage* result = rec.release();
    m_oaRecMontages.InsertAt(at, result);
    result->SetMontageName(name);
    for (unsigned r = 0; r < source->GetNumReformatedMontages(); ++r)
        result->ImportReformatedMontage(source->GetReformatedMontageAt(r));
    return result;
}

int CPhysicalMontage::DeleteRecordingMontage(const char* name) {
    CRecordingMontage* rec = GetRecordingMontage(name);
    return rec ? DeleteRecordingMontage(rec) : FALSE;
}

int CPhysicalMontage::DeleteRecordingMontage(CRecordingMontage* montage) {
    for (int i = 0; i < m_oaRecMontages.GetSize(); ++i)
        if (m_oaRecMontages[i] == montage) return DeleteRecordingMontage(i);
    return FALSE;
}

int CPhysicalMontage::DeleteRecordingMontage(int index) {
    SF_ASSERT(index >= 0 && index < m_oaRecMontages.GetSize(), kSource, __LINE__);
    if (index < 0 || index >= m_oaRecMontages.GetSize()) return FALSE;
    CObject* ob = m_oaRecMontages[index];
    m_oaRecMontages.RemoveAt(index);
    delete ob;
    return TRUE;
}

// -------------------------------------------------------------------- groups

int CPhysicalMontage::GroupIndexOf(const char* name) const {
    if (!name) return -1;
    for (int i = 0; i < m_oaElecGroups.GetSize(); ++i)
        if (EqualsNoCase(static_cast<const CElecGroup*>(m_oaElecGroups[i])->GetName(), name)) return i;
    return -1;
}

CElecGroup* CPhysicalMontage::GetElecGroup(const char* name) const {
    const int i = GroupIndexOf(name);
    return i < 0 ? nullptr : static_cast<CElecGroup*>(m_oaElecGroups[i]);
}

CElecGroup* CPhysicalMontage::GetElecGroupAt(int index) const {
    return static_cast<CElecGroup*>(m_oaElecGroups.GetAt(index));
}

int CPhysicalMontage::IsElecGroup(unsigned index) const {
    SF_ASSERT(index < m_wNumElectrodes, kSource, __LINE__);
    if (index >= m_wNumElectrodes) return FALSE;
    return CElecGroup::IsElecGroup(m_saElectrodes[static_cast<int>(index)].c_str());
}

int CPhysicalMontage::IsElecOfGroup(const char* name) const {
    for (const CObject* ob : m_oaElecGroups)
        if (static_cast<const CElecGroup*>(ob)->IsElectrodeExist(name)) return TRUE;
    return FALSE;
}

CElecGroup* CPhysicalMontage::CreateElecGroup(const CElecGroup& model) {
    auto* g = new CElecGroup(model);
    AddElecGroup(g);
    return g;
}

void CPhysicalMontage::AddElecGroup(CElecGroup* group) {
    SF_ASSERT(group != nullptr, kSource, __LINE__);
    if (group) m_oaElecGroups.Add(group);
}

int CPhysicalMontage::DeleteElecGroupAt(int index) {
    if (index < 0 || index >= m_oaElecGroups.GetSize()) return FALSE;
    const CString name = GetElecGroupAt(index)->GetName();
    const int entry = GetElectrodeNumber(name.c_str());
    return entry >= 0 ? DeleteElectrode(static_cast<unsigned>(entry)) : DeleteElecGroupConfirmed(name.c_str());
}

int CPhysicalMontage::DeleteElecGroupConfirmed(const char* name) {
    const int i = GroupIndexOf(name);
    if (i < 0) return FALSE;
    CObject* ob = m_oaElecGroups[i];
    m_oaElecGroups.RemoveAt(i);
    delete ob;
    return TRUE;
}

int CPhysicalMontage::ReplaceElecGroupAt(unsigned index, CElecGroup* group) {
    SF_ASSERT(group != nullptr, kSource, __LINE__);
    SF_ASSERT(index < m_wNumElectrodes, kSource, __LINE__);
    if (!group || index >= m_wNumElectrodes || !IsElecGroup(index)) return FALSE;
    if (!CElecGroup::IsElecGroup(group->GetName())) return FALSE;
    const CString oldName = m_saElectrodes[static_cast<int>(index)];
    const int gi = GroupIndexOf(oldName.c_str());
    if (gi >= 0 && m_oaElecGroups[gi] == group) return FALSE;  // the group it replaces, edited in place
    const int other = GroupIndexOf(group->GetName());
    if (other >= 0 && other != gi) return FALSE;
    if (!CheckGroupNames(group, static_cast<int>(index))) return FALSE;
    // Every contact in use must find its grid position in the new group.
    std::vector<std::pair<CString, CString>> renames;
    if (gi >= 0) {
        const CElecGroup* old = GetElecGroupAt(gi);
        for (int e = 0; e < old->GetElectrodeCount(); ++e) {
            const CElectrode* elec = old->GetElectrodeAt(e);
            bool used = false;
            for (const CObject* ob : m_oaRecMontages)
                if (static_cast<const CRecordingMontage*>(ob)->CheckUsageElectrode(elec->GetName())) used = true;
            if (!used) continue;
            const CElectrode* match = nullptr;
            for (int n = 0; n < group->GetElectrodeCount() && !match; ++n)
                if (*group->GetElectrodeAt(n)->GetPosition() == *elec->GetPosition()) match = group->GetElectrodeAt(n);
            if (!match) return FALSE;
            if (std::string(match->GetName()) != elec->GetName()) renames.emplace_back(elec->GetName(), match->GetName());
        }
    }
    // Plain entries must not clash with the new contact names (checked
    // above), and renamed contacts are carried in two steps so that a
    // rotation of names (A1 <-> A2) cannot merge two electrodes.
    m_saElectrodes.SetAt(static_cast<int>(index), group->GetName());
    if (gi >= 0) {
        delete m_oaElecGroups[gi];
        m_oaElecGroups.SetAt(gi, group);
    } else {
        AddElecGroup(group);
    }
    std::vector<CString> temps;
    for (size_t r = 0; r < renames.size(); ++r) {
        temps.push_back(StrFormat("$~TMP%zu~$", r));
        CarryChangeElectrode(renames[r].first.c_str(), temps.back().c_str());
    }
    for (size_t r = 0; r < renames.size(); ++r) CarryChangeElectrode(temps[r].c_str(), renames[r].second.c_str());
    return TRUE;
}

// ------------------------------------------------------------- carry changes

int CPhysicalMontage::CarryChangeElectrode(const char* oldName, const char* newName, int* montages, int* channels) {
    int nMontages = 0, nChannels = 0;
    if (oldName && newName) {
        for (CObject* ob : m_oaRecMontages) {
            auto* rec = static_cast<CRecordingMontage*>(ob);
            int changedHere = 0;
            for (unsigned c = 0; c < rec->GetNumChannels(); ++c) {
                const bool e1 = EqualsNoCase(rec->GetElectrodeName1(c), oldName);
                const bool e2 = EqualsNoCase(rec->GetElectrodeName2(c), oldName);
                if (!e1 && !e2) continue;
                const CString oldE1 = rec->GetElectrodeName1(c);
                rec->ReplaceChannelConfirmed(c, e1 ? newName : rec->GetElectrodeName1(c),
                                             e2 ? newName : rec->GetElectrodeName2(c), rec->GetType(c), rec->GetUnit(c),
                                             rec->GetFrequency(c), rec->GetColor(c), rec->GetUnderSamplingMethod(c),
                                             rec->GetPreprocessing(c));
                if (e1) rec->CarryChangeRecordingChannel(c, oldE1.c_str());
                ++changedHere;
            }
            if (changedHere) {
                ++nMontages;
                nChannels += changedHere;
            }
        }
    }
    if (montages) *montages = nMontages;
    if (channels) *channels = nChannels;
    return nChannels;
}

int CPhysicalMontage::CarryDeleteElectrode(const char* name, int* montages, int* channels) {
    int nMontages = 0, nChannels = 0;
    if (name) {
        for (CObject* ob : m_oaRecMontages) {
            auto* rec = static_cast<CRecordingMontage*>(ob);
            int deletedHere = 0;
            for (unsigned c = rec->GetNumChannels(); c-- > 0;) {
                if (!EqualsNoCase(rec->GetElectrodeName1(c), name) && !EqualsNoCase(rec->GetElectrodeName2(c), name))
                    continue;
                rec->CarryDeleteRecordingChannel(c);
                ++deletedHere;
            }
            if (deletedHere) {
                ++nMontages;
                nChannels += deletedHere;
            }
        }
    }
    if (montages) *montages = nMontages;
    if (channels) *channels = nChannels;
    return nChannels;
}

// ------------------------------------------------------------------- archive

void CPhysicalMontage::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kPhysicalSchema << m_strName << m_wNumElectrodes;
        m_saElectrodes.Serialize(ar);
        ar << m_wMapType;
        m_daPositions.Serialize(ar);
        m_oaRecMontages.Serialize(ar);
        m_oaElecGroups.Serialize(ar);
        return;
    }
    WORD schema;
    ar >> schema;
    DeleteContents();
    m_saElectrodes.RemoveAll();
    m_daPositions.RemoveAll();
    m_wNumElectrodes = 0;
    m_wMapType = 0;
    if (schema > kPhysicalSchema) {
        m_strName = kIncompatibleMontageName;
        return;
    }
    ar >> m_strName >> m_wNumElectrodes;
    m_saElectrodes.Serialize(ar);
    ar >> m_wMapType;
    m_daPositions.Serialize(ar);
    if (m_saElectrodes.GetSize() != m_wNumElectrodes || m_daPositions.GetSize() != 3 * m_wNumElectrodes) {
        m_wNumElectrodes = 0;
        m_saElectrodes.RemoveAll();
        m_daPositions.RemoveAll();
        ThrowBadData(ar);
    }
    // Owned children: everything read so far is ours to delete if a later
    // part of the archive is refused.
    m_oaRecMontages.Serialize(ar);
    for (CObject* ob : m_oaRecMontages)
        if (!ob || !ob->IsKindOf(RUNTIME_CLASS(CRecordingMontage))) ThrowBadData(ar);
    for (CObject* ob : m_oaRecMontages) static_cast<CRecordingMontage*>(ob)->SetPhysicalMontage(this);
    if (schema > 4) {
        m_oaElecGroups.Serialize(ar);
        for (CObject* ob : m_oaElecGroups)
            if (!ob || !ob->IsKindOf(RUNTIME_CLASS(CElecGroup))) ThrowBadData(ar);
    }
    RepairAfterLoad(schema);
}

void CPhysicalMontage::RepairAfterLoad(WORD schema) {
    // Fz sits on the midline, in front.
    for (int i = 0; i < static_cast<int>(m_wNumElectrodes); ++i) {
        if (m_saElectrodes[i] != "Fz" || m_daPositions[i * 3 + 2] == 90.0) continue;
        m_daPositions[i * 3 + 2] = 90.0;
        break;
    }
    if (schema >= 7) return;
    // Older versions kept a strip's contacts row after row across the table.
    for (CObject* ob : m_oaElecGroups) {
        auto* g = static_cast<CElecGroup*>(ob);
        const int(&old)[18][8] = *g->GetElectrodeStatusArray();
        int table[18][8] = {};
        const int rows = g->GetNumRow(), cols = g->GetNumCol();
        if (g->GetType() != 1) {
            for (int r = 0; r < rows && r < 18; ++r)
                for (int c = 0; c < cols && c < 8; ++c) table[r][c] = old[r][c];
        } else {
            for (int k = 0; k < 8 && k < rows; ++k) table[k][0] = old[0][k];
            for (int k = 0; k < 8 && 8 + k < rows && 8 + k < 18; ++k) table[8 + k][0] = old[1][k];
        }
        g->SetGroupParams(g->GetType(), rows, cols, &table);
    }
}

CArchive& operator>>(CArchive& ar, CPhysicalMontage*& montage) {
    montage = static_cast<CPhysicalMontage*>(ar.ReadObject(RUNTIME_CLASS(CPhysicalMontage)));
    return ar;
}
