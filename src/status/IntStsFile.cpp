// CIntStsFile: the held description, its editing, and the status archive.
#include "status/IntStsFile.h"

#include <algorithm>
#include <unordered_set>

#include "montage/mtgs.h"
#include "platform/Assert.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "records/stdcodec.h"

IMPLEMENT_DYNAMIC(CStsFile, CObject)
IMPLEMENT_DYNAMIC(CIntStsFile, CStsFile)

namespace {

constexpr const char* kSource = "IntStsFile";

[[noreturn]] void Refuse(CArchive& ar, int cause = CArchiveException::genericException) {
    AfxThrowArchiveException(cause, ar.m_strFileName.c_str());
}

template <class T>
std::unique_ptr<T> ReadRequired(CArchive& ar) {
    std::unique_ptr<T> ob(static_cast<T*>(ar.ReadObject(T::GetThisClass())));
    if (!ob) Refuse(ar);
    return ob;
}

}  // namespace

// ---------------------------------------------------------------------------

CStsContent::CStsContent() = default;

CStsContent::~CStsContent() {
    items.DeleteAll();
    for (CObject* item : pending) delete item;
    for (CObject* g : groups) delete g;
    groups.RemoveAll();
}

void CStsContent::Swap(CStsContent& other) {
    std::swap(header, other.header);
    std::swap(patient, other.patient);
    std::swap(montage, other.montage);
    std::swap(calibration, other.calibration);
    std::swap(codec, other.codec);
    std::swap(numRecords, other.numRecords);
    items.Vector().swap(other.items.Vector());
    pending.swap(other.pending);
    groups.Vector().swap(other.groups.Vector());
}

// ---------------------------------------------------------------------------

CIntStsFile::CIntStsFile() { ResetStatusData(); }

CIntStsFile::~CIntStsFile() = default;

void CIntStsFile::ResetStatusData() {
    CStsContent fresh;
    fresh.header = std::make_unique<CFileHeader>();
    fresh.patient = std::make_unique<CPatientInfo>();
    fresh.montage = std::make_unique<CPhysicalMontage>();
    fresh.calibration = std::make_unique<CCalibration>();
    fresh.codec = std::make_unique<CStdCoDec>();
    m_c.Swap(fresh);
}

void CIntStsFile::Settle() const {
    // The merge changes only the order in which the held items are kept, not
    // what the description is: it is done on demand from const accessors.
    auto& c = const_cast<CStsContent&>(m_c);
    if (c.pending.empty()) return;
    const CStatusItemArray& order = c.items;
    auto less = [&order](const CObject* a, const CObject* b) { return order.Compare(a, b) < 0; };
    std::stable_sort(c.pending.begin(), c.pending.end(), less);
    auto& v = c.items.Vector();
    const auto held = static_cast<std::ptrdiff_t>(v.size());
    v.insert(v.end(), c.pending.begin(), c.pending.end());
    c.pending.clear();
    // Stable: of equal ranges, the items held before come first.
    std::inplace_merge(v.begin(), v.begin() + held, v.end(), less);
}

const CStatusItem* CIntStsFile::GetStatusItemAt(unsigned index) const {
    Settle();
    return m_c.items.GetItemAt(static_cast<int>(index));
}

const CStatusGroup* CIntStsFile::GetGroupAt(unsigned index) const {
    return static_cast<const CStatusGroup*>(m_c.groups.GetAt(static_cast<int>(index)));
}

LONGLONG CIntStsFile::GetFileSize() const {
    return IsStsFileOpen() ? static_cast<LONGLONG>(m_file->GetLength()) : 0;
}

// Setters refuse a null object (assertion) and keep the held one.
void CIntStsFile::SetFileHeader(CFileHeader* header) {
    SF_ASSERT(header != nullptr, kSource, 120);
    if (!header) return;
    m_c.header.reset(header);
    SetChanged();
}

void CIntStsFile::SetPatientInfo(CPatientInfo* patient) {
    SF_ASSERT(patient != nullptr, kSource, 128);
    if (!patient) return;
    m_c.patient.reset(patient);
    SetChanged();
}

void CIntStsFile::SetPhysicalMontage(CPhysicalMontage* montage) {
    SF_ASSERT(montage != nullptr, kSource, 136);
    if (!montage) return;
    m_c.montage.reset(montage);
    SetChanged();
}

void CIntStsFile::SetCalibration(CCalibration* calibration) {
    SF_ASSERT(calibration != nullptr, kSource, 144);
    if (!calibration) return;
    m_c.calibration.reset(calibration);
    SetChanged();
}

void CIntStsFile::SetSigCoDec(CSigCoDec* codec) {
    SF_ASSERT(codec != nullptr, kSource, 152);
    if (!codec) return;
    m_c.codec.reset(codec);
    SetChanged();
}

void CIntStsFile::SetNumRecords(long count) {
    SF_ASSERT(count >= 0 && count <= 0x7FFFFFFF, kSource, 160);
    if (count < 0 || count > 0x7FFFFFFF) return;
    m_c.numRecords = static_cast<LONG>(count);
    SetChanged();
}

int CIntStsFile::IndexOfGroup(const CStatusGroup* group) const {
    if (!group) return -1;
    for (int i = 0; i < m_c.groups.GetSize(); ++i)
        if (m_c.groups[i] == group) return i;
    return -1;
}

void CIntStsFile::AddStatusItem(CStatusItem* item) {
    std::unique_ptr<CStatusItem> owned(item);
    SF_ASSERT(item != nullptr && IndexOfGroup(item->GetGroup()) >= 0, kSource, 181);
    if (!item || IndexOfGroup(item->GetGroup()) < 0) return;
    auto& v = m_c.items.Vector();
    if (m_c.pending.empty() && (v.empty() || m_c.items.Compare(v.back(), item) <= 0)) v.push_back(owned.release());
    else m_c.pending.push_back(owned.release());
    SetChanged();
}

void CIntStsFile::UpdateStatusItemAt(unsigned index, const CStatusItem* item) {
    Settle();
    if (index >= GetNumStatusItems()) AfxThrowInvalidArgException();
    SF_ASSERT(item != nullptr && IndexOfGroup(item->GetGroup()) >= 0, kSource, 190);
    if (!item || IndexOfGroup(item->GetGroup()) < 0) return;
    CStatusItem* held = m_c.items.GetItemAt(static_cast<int>(index));
    if (held == item) return;
    const bool sameRange =
        held->GetBeginSample() == item->GetBeginSample() && held->GetEndSample() == item->GetEndSample();
    *held = *item;
    // An item whose range is unchanged keeps its index, so that callers can
    // walk the items and update them in place.
    if (!sameRange) {
        m_c.items.RemoveAt(static_cast<int>(index));
        m_c.items.InsertSorted(held);
    }
    SetChanged();
}

void CIntStsFile::DeleteStatusItemAt(unsigned index) {
    Settle();
    if (index >= GetNumStatusItems()) AfxThrowInvalidArgException();
    delete m_c.items.GetItemAt(static_cast<int>(index));
    m_c.items.RemoveAt(static_cast<int>(index));
    SetChanged();
}

void CIntStsFile::AddGroup(CStatusGroup* group) {
    SF_ASSERT(group != nullptr && IndexOfGroup(group) < 0, kSource, 208);
    if (!group || IndexOfGroup(group) >= 0) return;
    m_c.groups.Add(group);
    SetChanged();
}

void CIntStsFile::UpdateGroupAt(unsigned index, const CStatusGroup* group) {
    if (index >= GetNumGroups()) AfxThrowInvalidArgException();
    SF_ASSERT(group != nullptr, kSource, 216);
    if (!group) return;
    auto* held = static_cast<CStatusGroup*>(m_c.groups[static_cast<int>(index)]);
    if (held == group) return;
    *held = *group;
    Settle();
    for (int i = 0; i < m_c.items.GetSize(); ++i) {
        CStatusItem* item = m_c.items.GetItemAt(i);
        if (item->GetGroup() == held) item->FitPropertiesToGroup();
    }
    SetChanged();
}

void CIntStsFile::DeleteItemsOfGroup(const CStatusGroup* group) {
    Settle();
    auto& v = m_c.items.Vector();
    auto keep = std::stable_partition(v.begin(), v.end(), [group](CObject* ob) {
        return static_cast<CStatusItem*>(ob)->GetGroup() != group;
    });
    for (auto it = keep; it != v.end(); ++it) delete *it;
    v.erase(keep, v.end());
}

void CIntStsFile::DeleteGroupAt(unsigned index) {
    if (index >= GetNumGroups()) AfxThrowInvalidArgException();
    auto* group = static_cast<CStatusGroup*>(m_c.groups[static_cast<int>(index)]);
    DeleteItemsOfGroup(group);
    m_c.groups.RemoveAt(static_cast<int>(index));
    delete group;
    SetChanged();
}

void CIntStsFile::SetIOError(long error) {
    m_bIOError = 1;
    m_nIOError = error;
}

void CIntStsFile::ClearIOError() {
    m_bIOError = 0;
    m_nIOError = 0;
}

// ---------------------------------------------------------------------------

void CIntStsFile::StoreToArchive(CArchive& ar) const {
    Settle();
    ar << kFileVersion;
    ar.WriteObject(m_c.header.get());
    ar.WriteObject(m_c.patient.get());
    ar.WriteObject(m_c.codec.get());
    ar.WriteObject(m_c.calibration.get());
    ar.WriteObject(m_c.montage.get());
    ar << static_cast<int>(m_c.numRecords);
    const_cast<CObArray&>(m_c.groups).Serialize(ar);
    const_cast<CStatusItemArray&>(m_c.items).Serialize(ar);
}

void CIntStsFile::LoadFromArchive(CArchive& ar, WORD maxVersion, const char* codecAssertSource,
                                  int codecAssertLine) {
    CStsContent fresh;
    WORD version;
    ar >> version;
    if (version > maxVersion) Refuse(ar, CArchiveException::badSchema);
    fresh.header = ReadRequired<CFileHeader>(ar);
    fresh.patient = ReadRequired<CPatientInfo>(ar);
    fresh.codec = ReadRequired<CSigCoDec>(ar);
    SF_ASSERT(fresh.codec->IsKindOf(RUNTIME_CLASS(CStdCoDec)), codecAssertSource, codecAssertLine);
    fresh.calibration = ReadRequired<CCalibration>(ar);
    fresh.montage = ReadRequired<CPhysicalMontage>(ar);
    int numRecords;
    ar >> numRecords;
    if (numRecords < 0) Refuse(ar);
    fresh.numRecords = numRecords;

    // Groups: each a new CStatusGroup object, none null.
    DWORD numGroups = ar.ReadCount();
    ar.CheckCount(numGroups, 2);
    ar.SetLoadParams(16);
    std::unordered_set<const CObject*> groupSet;
    for (DWORD i = 0; i < numGroups; ++i) {
        CObject* group = ar.ReadObject(RUNTIME_CLASS(CStatusGroup));
        if (!group) Refuse(ar);
        fresh.groups.Add(group);
        groupSet.insert(group);
    }

    // Items: each a new CStatusItem whose group is one of the groups above.
    DWORD numItems = ar.ReadCount();
    ar.CheckCount(numItems, 2);
    ar.SetLoadParams(2048);
    fresh.items.Vector().reserve(numItems);
    for (DWORD i = 0; i < numItems; ++i) {
        auto* item = static_cast<CStatusItem*>(ar.ReadObject(RUNTIME_CLASS(CStatusItem)));
        if (!item) Refuse(ar);
        fresh.items.Add(item);
        if (!groupSet.count(item->GetGroup())) Refuse(ar, CArchiveException::badIndex);
    }
    fresh.items.Sort();

    PatchStsInfo(fresh, version);
    m_c.Swap(fresh);
}

void CIntStsFile::LoadFromMemory(const BYTE* data, size_t size, WORD maxVersion) {
    CMemFile file(data, size);
    CArchive ar(&file, CArchive::load, 4096);
    LoadFromArchive(ar, maxVersion);
}

int CIntStsFile::OpenStsFile(const char* name, UINT openFlags, std::unique_ptr<CFile>& file) {
    file = std::make_unique<CFile>();
    CFileException error;
    if (!name || !file->Open(name, openFlags, &error)) {
        SetIOError(name ? error.m_lOsError : 87);
        file.reset();
        return 0;
    }
    return 1;
}

int CIntStsFile::ReadStsFile(const char* name, UINT openFlags) {
    std::unique_ptr<CFile> file;
    if (!OpenStsFile(name, openFlags, file) || !file->IsOpen()) return 0;
    file->SeekToBegin();
    {
        CArchive ar(file.get(), CArchive::load, 4096);
        ar.m_strFileName = name;
        LoadFromArchive(ar);
    }
    // The new file replaces the one held only once its content is in place.
    m_file = std::move(file);
    m_bReadOnly = (openFlags & (CFile::modeWrite | CFile::modeReadWrite)) ? 0 : 1;
    ClearChanged();
    ClearIOError();
    return 1;
}

int CIntStsFile::WriteStsFile() {
    if (!IsStsFileOpen() || m_bReadOnly) return 0;
    try {
        m_file->SeekToBegin();
        CArchive ar(m_file.get(), CArchive::store, 4096);
        ar.m_strFileName = m_file->GetFilePath();
        StoreToArchive(ar);
        ar.Close();
        m_file->SetLength(m_file->GetPosition());
        m_file->Flush();
    } catch (CFileException& e) {
        SetIOError(e.m_lOsError);
        return 0;
    }
    ClearChanged();
    return 1;
}

int CIntStsFile::Flush() {
    if (!IsStsFileOpen() || m_bReadOnly || !m_bChanged) return 1;
    return WriteStsFile();
}

int CIntStsFile::Close() {
    int ok = Flush();
    if (m_file) {
        m_file->Abort();
        m_file.reset();
    }
    return ok;
}
