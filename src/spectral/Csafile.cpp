#include "spectral/Csafile.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "montage/mtgs.h"
#include "platform/Archive.h"
#include "platform/Assert.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "spectral/Fft.h"
#include "spectral/Specrec.h"

namespace {

const char* const kSource = "Csafile";
const WORD kHeaderVersion = 1;

void PutLE(BYTE* p, const void* value, size_t size) {
    const BYTE* v = static_cast<const BYTE*>(value);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    for (size_t i = 0; i < size; ++i) p[i] = v[size - 1 - i];
#else
    std::memcpy(p, v, size);
#endif
}

void GetLE(const BYTE* p, void* value, size_t size) {
    BYTE* v = static_cast<BYTE*>(value);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    for (size_t i = 0; i < size; ++i) v[i] = p[size - 1 - i];
#else
    std::memcpy(v, p, size);
#endif
}

// Number of FFT points of a channel: frequency x epoch + 0.5, truncated;
// 0 when it does not fit in 16 bits.
unsigned FftPoints(unsigned freq, float epoch) {
    double points = freq * static_cast<double>(epoch) + 0.5;
    if (!(points >= 0.0 && points < 65536.0)) return 0;
    return static_cast<unsigned>(points);
}

bool HasExtension(const std::string& name, const char* ext) { return EqualsNoCase(ExtractExt(name), ext); }

// The name with its extension replaced; the letters of the new extension
// follow the case of the old one's letters, so "a.spc" pairs with "a.sph".
std::string WithExtension(const std::string& name, const char* upperExt) {
    std::string ext = ExtractExt(name);
    std::string result = name.substr(0, name.size() - ext.size());
    for (size_t i = 0; upperExt[i]; ++i) {
        char c = upperExt[i];
        if (i < ext.size() && ext[i] >= 'a' && ext[i] <= 'z' && c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        result += c;
    }
    return result;
}

long FileErrorCode(const CFileException& e) { return e.m_lOsError > 0 ? e.m_lOsError : ERROR_GEN_FAILURE; }

// Keeps recording montage recIndex of the physical montage and, inside it,
// reformatted montage refIndex (none when refIndex is negative).
void CleanPhysicalMontage(CPhysicalMontage& physical, int recIndex, int refIndex) {
    for (int i = physical.GetNumRecordingMontages() - 1; i >= 0; --i)
        if (i != recIndex) physical.DeleteRecordingMontage(i);
    CRecordingMontage* rec = physical.GetRecordingMontageAt(0);
    for (int j = static_cast<int>(rec->GetNumReformatedMontages()) - 1; j >= 0; --j)
        if (j != refIndex) rec->DeleteReformatedMontageAt(static_cast<unsigned>(j));
}

// Deletes every channel that is not selected, from the last one down.
bool CleanLogicalMontage(CLogicalMontage& logical, const std::vector<WORD>& keep) {
    for (int c = static_cast<int>(logical.GetNumChannels()) - 1; c >= 0; --c) {
        if (std::binary_search(keep.begin(), keep.end(), static_cast<WORD>(c))) continue;
        int done = 0;
        if (logical.IsKindOf(RUNTIME_CLASS(CReformatedMontage)))
            done = static_cast<CReformatedMontage&>(logical).DeleteChannel(static_cast<unsigned>(c));
        else if (logical.IsKindOf(RUNTIME_CLASS(CRecordingMontage)))
            done = static_cast<CRecordingMontage&>(logical).DeleteChannel(static_cast<unsigned>(c));
        if (!done) return false;
    }
    return true;
}

}  // namespace

// ---------------------------------------------------------------------------
// CCsaFileCache

CCsaFileCache::CCsaFileCache(CCsaFile* file)
    : CCacheDWordToOb(kEntries, RUNTIME_CLASS(CSpecRec)), m_pFile(file) {}

int CCsaFileCache::Load(DWORD key, CObject* object) { return m_pFile->Load(key, *static_cast<CSpecRec*>(object)); }

int CCsaFileCache::Save(DWORD key, CObject* object) { return m_pFile->Save(key, *static_cast<CSpecRec*>(object)); }

// ---------------------------------------------------------------------------
// Creation, opening, closing

CCsaFile::CCsaFile() = default;
CCsaFile::~CCsaFile() = default;

std::string CCsaFile::HeaderName(const std::string& dataName) { return WithExtension(dataName, ".SPH"); }

bool CCsaFile::PairNames(const char* name, std::string& data, std::string& header) {
    std::string n = name ? name : "";
    if (!HasExtension(n, ".SPC") && !HasExtension(n, ".SPH")) return false;
    data = WithExtension(n, ".SPC");
    header = WithExtension(n, ".SPH");
    return true;
}

void CCsaFile::GetFileNameExtension(const char* name, CString& base, CString& extension) {
    std::string n = name ? name : "";
    extension = ExtractExt(n);
    base = n.substr(0, n.size() - extension.size());
}

CCsaFile* CCsaFile::Create(const char* dataFileName, const char* sigFileName, const char* sigFileId,
                           const CPatientInfo* patient, float fftEpochLen, WORD preProcessing, WORD tapering,
                           WORD pcOverlap, float csaEpochLen, float restartInterval, const CLogicalMontage* montage,
                           unsigned numSelected, const WORD* selected, long* error) {
    auto fail = [error](long code) -> CCsaFile* {
        SetLastError(code);
        if (error) *error = code;
        return nullptr;
    };
    const std::string dataName = dataFileName ? dataFileName : "";
    if (!HasExtension(dataName, ".SPC")) return fail(ERROR_INVALID_PARAMETER);
    SF_ASSERT(preProcessing <= CFftFactory::preTrend, kSource, __LINE__);
    SF_ASSERT(tapering <= CFftFactory::taperBlackman, kSource, __LINE__);
    if (preProcessing > CFftFactory::preTrend || tapering > CFftFactory::taperBlackman ||
        !(fftEpochLen > 0.0f && std::isfinite(fftEpochLen)) || !montage || numSelected == 0 ||
        numSelected > kMaxMontageChannels || !selected)
        return fail(ERROR_INVALID_PARAMETER);

    // Where the logical montage sits in its physical montage.
    const CRecordingMontage* rec = montage->GetRecordingMontage();
    const CPhysicalMontage* physical = rec ? rec->GetPhysicalMontage() : nullptr;
    int recIndex = -1, refIndex = -1;
    if (physical)
        for (int i = 0; i < physical->GetNumRecordingMontages(); ++i)
            if (physical->GetRecordingMontageAt(i) == rec) recIndex = i;
    if (rec && montage != rec)
        for (unsigned j = 0; j < rec->GetNumReformatedMontages(); ++j)
            if (rec->GetReformatedMontageAt(j) == montage) refIndex = static_cast<int>(j);
    if (recIndex < 0 || (montage != rec && refIndex < 0)) return fail(ERROR_INVALID_PARAMETER);

    std::vector<WORD> keep(selected, selected + numSelected);
    std::sort(keep.begin(), keep.end());
    if (std::adjacent_find(keep.begin(), keep.end()) != keep.end() || keep.back() >= montage->GetNumChannels())
        return fail(ERROR_INVALID_PARAMETER);
    for (WORD c : keep) {
        unsigned points = FftPoints(montage->GetFrequency(c), fftEpochLen);
        if (points < 4 || (points & (points - 1)) != 0) return fail(ERROR_INVALID_PARAMETER);
    }

    std::unique_ptr<CCsaFile> file(new CCsaFile);
    file->m_pMontage = std::make_unique<CPhysicalMontage>(*physical);
    CleanPhysicalMontage(*file->m_pMontage, recIndex, refIndex);
    CLogicalMontage* logical = const_cast<CLogicalMontage*>(file->GetLogicalMontage());
    if (!logical || !CleanLogicalMontage(*logical, keep)) return fail(ERROR_INVALID_PARAMETER);

    file->m_strSigFileName = sigFileName ? sigFileName : "";
    file->m_strSigFileId = sigFileId ? sigFileId : "";
    file->m_pPatientInfo = patient ? std::make_unique<CPatientInfo>(*patient) : std::make_unique<CPatientInfo>();
    file->m_fftEpochLen = fftEpochLen;
    file->m_wFftPreProcessing = preProcessing;
    file->m_wFftTapering = tapering;
    file->m_wPcOverlap = pcOverlap;
    file->m_csaEpochLen = csaEpochLen;
    file->m_csaRestartInterval = restartInterval;
    if (!file->ComputeLayout()) return fail(ERROR_INVALID_PARAMETER);

    const std::string headerName = HeaderName(dataName);
    const UINT flags = CFile::modeCreate | CFile::modeReadWrite | CFile::shareDenyWrite;
    CFileException fe;
    if (!file->m_fileData.Open(dataName.c_str(), flags, &fe)) return fail(FileErrorCode(fe));
    if (!file->m_fileHeader.Open(headerName.c_str(), flags, &fe)) {
        file->m_fileData.Abort();
        DeleteFileName(dataName);
        return fail(FileErrorCode(fe));
    }
    file->m_dataPos = 0;
    file->m_pCache = std::make_unique<CCsaFileCache>(file.get());
    // The header goes out at once, so that the pair is valid from the start.
    if (!file->WriteHeader()) {
        long code = GetLastError();
        file->m_fileData.Abort();
        file->m_fileHeader.Abort();
        DeleteFileName(dataName);
        DeleteFileName(headerName);
        return fail(code ? code : ERROR_WRITE_FAULT);
    }
    return file.release();
}

CCsaFile* CCsaFile::Open(const char* fileName, int readOnly, long* error) {
    auto fail = [error](long code) -> CCsaFile* {
        SetLastError(code);
        if (error) *error = code;
        return nullptr;
    };
    const std::string dataName = fileName ? fileName : "";
    if (!HasExtension(dataName, ".SPC")) return fail(ERROR_INVALID_PARAMETER);
    const std::string headerName = HeaderName(dataName);
    RecoverPair(dataName.c_str());

    std::unique_ptr<CCsaFile> file(new CCsaFile);
    file->m_bReadOnly = readOnly ? 1 : 0;
    const UINT flags = readOnly ? CFile::modeRead | CFile::shareDenyNone : CFile::modeReadWrite | CFile::shareDenyWrite;
    CFileException fe;
    if (!file->m_fileData.Open(dataName.c_str(), flags, &fe)) return fail(FileErrorCode(fe));
    if (!file->m_fileHeader.Open(headerName.c_str(), flags, &fe)) return fail(FileErrorCode(fe));

    ULONGLONG dataLength = 0;
    try {
        CArchive ar(&file->m_fileHeader, CArchive::load, 4096);
        ar.m_strFileName = headerName;
        file->SerializeHeader(ar);
        if (!file->ComputeLayout())
            AfxThrowArchiveException(CArchiveException::genericException, headerName.c_str());
        dataLength = file->m_fileData.GetLength();
    } catch (const CFileException& e) {
        return fail(FileErrorCode(e));
    } catch (const CInvalidArgException&) {
        // A montage whose arrays disagree with its counts: a bad header.
        AfxThrowArchiveException(CArchiveException::genericException, headerName.c_str());
    }
    // Records that the data file does not hold whole are not counted.
    file->m_nRecords = static_cast<DWORD>(std::min<ULONGLONG>(file->m_nRecords, dataLength / file->m_nRecordSize));
    file->m_nCurRec = 0;
    file->m_pCache = std::make_unique<CCsaFileCache>(file.get());
    return file.release();
}

int CCsaFile::Close() {
    if (!m_bReadOnly) {
        if (!m_pCache->Flush()) return 0;
        if (!WriteHeader()) return 0;
        // A closed pair is on the disk: a replacement that follows can
        // count on it.
        try {
            m_fileData.FlushToDisk();
            m_fileHeader.FlushToDisk();
        } catch (const CFileException& e) {
            SetLastError(e.m_lOsError > 0 ? e.m_lOsError : ERROR_WRITE_FAULT);
            return 0;
        }
    }
    m_fileHeader.Abort();
    m_fileData.Abort();
    delete this;
    return 1;
}

void CCsaFile::SerializeHeader(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kHeaderVersion << m_strSigFileName << m_strSigFileId;
        m_pPatientInfo->Serialize(ar);
        ar << m_fftEpochLen << m_wFftPreProcessing << m_wFftTapering << m_wPcOverlap << m_csaEpochLen
           << m_csaRestartInterval;
        ar.WriteObject(m_pMontage.get());
        m_daDiscontinuities.Serialize(ar);
        m_mapAnnotations.Serialize(ar);
        ar << m_nRecords;
        return;
    }
    WORD version = 0;
    ar >> version;
    // Any version but 0 reads as this one.
    if (version == 0) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    ar >> m_strSigFileName >> m_strSigFileId;
    auto patient = std::make_unique<CPatientInfo>();
    patient->Serialize(ar);
    m_pPatientInfo = std::move(patient);
    ar >> m_fftEpochLen >> m_wFftPreProcessing >> m_wFftTapering >> m_wPcOverlap >> m_csaEpochLen >>
        m_csaRestartInterval;
    std::unique_ptr<CObject> montage(ar.ReadObject(RUNTIME_CLASS(CPhysicalMontage)));
    if (!montage) AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    m_pMontage.reset(static_cast<CPhysicalMontage*>(montage.release()));
    m_daDiscontinuities.Serialize(ar);
    m_mapAnnotations.Serialize(ar);
    ar >> m_nRecords;
}

int CCsaFile::WriteHeader() {
    try {
        CMemFile image;
        {
            CArchive ar(&image, CArchive::store, 4096);
            SerializeHeader(ar);
            ar.Close();
        }
        const std::vector<BYTE>& bytes = image.GetBuffer();
        m_fileHeader.SeekToBegin();
        m_fileHeader.Write(bytes.data(), static_cast<UINT>(bytes.size()));
        m_fileHeader.SetLength(bytes.size());
        m_fileHeader.Flush();
    } catch (const CFileException& e) {
        SetLastError(FileErrorCode(e));
        return 0;
    } catch (const CArchiveException&) {
        SetLastError(ERROR_WRITE_FAULT);
        return 0;
    }
    return 1;
}

bool CCsaFile::ComputeLayout() {
    m_numFreq.clear();
    // The epoch must be a positive length whose frequency step 1 / epoch is a
    // number too: a denormal epoch would make every band edge infinite (or
    // NaN for a channel without bands).
    if (!(m_fftEpochLen > 0.0f && std::isfinite(m_fftEpochLen) && std::isfinite(1.0f / m_fftEpochLen))) return false;
    const CLogicalMontage* logical = GetLogicalMontage();
    const unsigned channels = logical ? logical->GetNumChannels() : 0;
    if (channels > kMaxMontageChannels) return false;
    unsigned total = 0;
    for (unsigned c = 0; c < channels; ++c) {
        unsigned points = FftPoints(logical->GetFrequency(c), m_fftEpochLen);
        if (points == 0 && logical->GetFrequency(c) != 0) return false;
        m_numFreq.push_back(static_cast<WORD>(points / 2));
        total += points / 2;
    }
    if (total > 0xFFFF) return false;
    m_nRecordSize = 8 + 4 * total;
    m_recordBytes.assign(m_nRecordSize, 0);
    return true;
}

// ---------------------------------------------------------------------------
// Static operations on the pair

int CCsaFile::Copy(const char* from, const char* to, CProgressInfo* progress) {
    std::string fromData, fromHeader, toData, toHeader;
    if (!PairNames(from, fromData, fromHeader) || !PairNames(to, toData, toHeader)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const ULONGLONG total = VhlGetFileSize(fromData) + VhlGetFileSize(fromHeader);
    ULONGLONG base = 0;
    if (progress) progress->SetRange(total);
    CopyProgress report = [&](ULONGLONG done, ULONGLONG) {
        if (!progress) return true;
        progress->SetPos(base + done);
        return !progress->IsCancelled();
    };
    // Both files are copied beside their targets first, then renamed over
    // them, so that a failed copy leaves an existing target pair as it was.
    const std::string tmpData = toData + ".copy-tmp";
    const std::string tmpHeader = toHeader + ".copy-tmp";
    auto cleanup = [&] {
        long code = GetLastError();
        DeleteFileName(tmpData);
        DeleteFileName(tmpHeader);
        SetLastError(code);
        return 0;
    };
    if (!CopyFileReplace(fromData, tmpData, report)) return cleanup();
    base = VhlGetFileSize(fromData);
    if (!CopyFileReplace(fromHeader, tmpHeader, report)) return cleanup();
    if (!MoveFileReplace(tmpData, toData)) return cleanup();
    if (!MoveFileReplace(tmpHeader, toHeader)) return cleanup();
    return 1;
}

// The two files of a pair move, and are deleted, together: through a
// journal beside the target (ReplaceFileSet), finished by the next open or
// operation on the pair if the process dies half way.
namespace {
std::string PairJournal(const std::string& data) { return ExtractBase(data) + ".$P$"; }
}  // namespace

void CCsaFile::RecoverPair(const char* name) {
    std::string data, header;
    if (PairNames(name, data, header)) RecoverFileSet(PairJournal(data));
    if (name) CleanLeftoverTemporaries(ExtractBase(name));
}

int CCsaFile::Rename(const char* from, const char* to) {
    std::string fromData, fromHeader, toData, toHeader;
    if (!PairNames(from, fromData, fromHeader) || !PairNames(to, toData, toHeader)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    RecoverPair(from);
    RecoverPair(to);
    if (!VhlCheckFileExist(fromData) || !VhlCheckFileExist(fromHeader)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    return ReplaceFileSet(PairJournal(toData), {{fromData, toData}, {fromHeader, toHeader}}) ? 1 : 0;
}

int CCsaFile::Delete(const char* name) {
    std::string data, header;
    if (!PairNames(name, data, header)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    RecoverPair(name);
    if (!VhlCheckFileExist(data) && !VhlCheckFileExist(header)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    return ReplaceFileSet(PairJournal(data), {{"", data}, {"", header}}) ? 1 : 0;
}

// ---------------------------------------------------------------------------
// Records

int CCsaFile::MoveFirst() {
    m_nCurRec = 0;
    return m_nRecords > 0;
}

int CCsaFile::MoveLast() {
    m_nCurRec = m_nRecords > 0 ? m_nRecords - 1 : 0;
    return m_nRecords > 0;
}

int CCsaFile::MoveNext() {
    if (m_nCurRec < m_nRecords) ++m_nCurRec;
    return m_nCurRec < m_nRecords;
}

int CCsaFile::MovePrev() {
    if (m_nCurRec == 0) return 0;
    --m_nCurRec;
    return m_nCurRec < m_nRecords;
}

int CCsaFile::MoveTo(DWORD index) {
    SF_ASSERT(index <= m_nRecords, kSource, __LINE__);
    if (index > m_nRecords) return 0;
    m_nCurRec = index;
    return m_nCurRec < m_nRecords;
}

bool CCsaFile::IsSameShape(const CSpecRec& rec) const {
    if (rec.GetNumChannels() != m_numFreq.size()) return false;
    for (unsigned c = 0; c < m_numFreq.size(); ++c)
        if (rec.GetNumFreq(c) != m_numFreq[c]) return false;
    return true;
}

CSpecRec* CCsaFile::CreateCompatibleSpecRec() const {
    auto* rec = new CSpecRec;
    rec->Create(GetFreqRes(), static_cast<unsigned>(m_numFreq.size()), m_numFreq.data());
    return rec;
}

int CCsaFile::Load(DWORD index, CSpecRec& rec) {
    SF_ASSERT(index < m_nRecords, kSource, __LINE__);
    if (index >= m_nRecords) return 0;
    const ULONGLONG pos = static_cast<ULONGLONG>(index) * m_nRecordSize;
    try {
        if (m_dataPos != pos) {
            m_dataPos = ~0ull;
            m_fileData.Seek(static_cast<LONGLONG>(pos), CFile::begin);
        }
        UINT got = m_fileData.Read(m_recordBytes.data(), m_nRecordSize);
        m_dataPos = pos + got;
        if (got != m_nRecordSize) {
            SetLastError(ERROR_HANDLE_EOF);
            return 0;
        }
    } catch (const CFileException& e) {
        m_dataPos = ~0ull;
        SetLastError(FileErrorCode(e));
        return 0;
    }
    // The record is only touched once the whole image is in.
    if (!IsSameShape(rec)) rec.Create(GetFreqRes(), static_cast<unsigned>(m_numFreq.size()), m_numFreq.data());
    double time;
    GetLE(m_recordBytes.data(), &time, 8);
    rec.SetTime(CSDateTime(time));
    float* values = rec.GetData();
    for (unsigned i = 0, n = rec.GetNumValues(); i < n; ++i) GetLE(m_recordBytes.data() + 8 + 4 * i, values + i, 4);
    return 1;
}

int CCsaFile::Save(DWORD index, const CSpecRec& rec) {
    SF_ASSERT(index <= m_nRecords && IsSameShape(rec), kSource, __LINE__);
    if (index > m_nRecords || !IsSameShape(rec)) return 0;
    double time = rec.GetTime().GetValue();
    PutLE(m_recordBytes.data(), &time, 8);
    const float* values = rec.GetData();
    for (unsigned i = 0, n = rec.GetNumValues(); i < n; ++i) PutLE(m_recordBytes.data() + 8 + 4 * i, values + i, 4);
    const ULONGLONG pos = static_cast<ULONGLONG>(index) * m_nRecordSize;
    try {
        if (m_dataPos != pos) {
            m_dataPos = ~0ull;
            m_fileData.Seek(static_cast<LONGLONG>(pos), CFile::begin);
        }
        m_fileData.Write(m_recordBytes.data(), m_nRecordSize);
        m_dataPos = pos + m_nRecordSize;
    } catch (const CFileException& e) {
        m_dataPos = ~0ull;
        SetLastError(FileErrorCode(e));
        return 0;
    }
    return 1;
}

int CCsaFile::Read(CSpecRec& specRec) {
    SF_ASSERT(m_nCurRec < m_nRecords, kSource, __LINE__);
    if (m_nCurRec >= m_nRecords) return 0;
    CObject* object = nullptr;
    if (!m_pCache->LookUp(m_nCurRec, object, 0)) return 0;
    specRec = *static_cast<CSpecRec*>(object);
    return 1;
}

int CCsaFile::Write(const CSpecRec& specRec) {
    SF_ASSERT(!m_bReadOnly, kSource, __LINE__);
    SF_ASSERT(m_nCurRec == m_nRecords, kSource, __LINE__);
    if (m_bReadOnly || m_nCurRec != m_nRecords) return 0;
    if (!IsSameShape(specRec)) {
        SF_ASSERT(false, kSource, __LINE__);
        return 0;
    }
    if (m_nRecords == 0xFFFFFFFFu) return 0;
    if (m_nRecords > 0) {
        CObject* previous = nullptr;
        if (m_pCache->LookUp(m_nRecords - 1, previous, 0)) {
            double gap = (specRec.GetTime() - static_cast<CSpecRec*>(previous)->GetTime()).GetTotalSeconds();
            if (gap >= 1.5 * m_csaRestartInterval) m_daDiscontinuities.Add(m_nRecords);
        }
    }
    CObject* object = nullptr;
    if (!m_pCache->LookUp(m_nRecords, object, 1)) return 0;
    *static_cast<CSpecRec*>(object) = specRec;
    ++m_nRecords;
    m_nCurRec = m_nRecords;
    m_bChanged = 1;
    return 1;
}

// ---------------------------------------------------------------------------
// Settings and channels

float CCsaFile::GetFreqRes() const { return m_fftEpochLen > 0.0f ? 1.0f / m_fftEpochLen : 0.0f; }

float CCsaFile::GetMaxFreq() const {
    float m = 0.0f;
    for (unsigned c = 0; c < m_numFreq.size(); ++c) m = std::max(m, GetChannelMaxFreq(c));
    return m;
}

const CLogicalMontage* CCsaFile::GetLogicalMontage() const {
    if (!m_pMontage || m_pMontage->GetNumRecordingMontages() == 0) return nullptr;
    CRecordingMontage* rec = m_pMontage->GetRecordingMontageAt(0);
    if (!rec) return nullptr;
    if (rec->GetNumReformatedMontages() > 0) return rec->GetReformatedMontageAt(0);
    return rec;
}

unsigned CCsaFile::GetNumChannels() const { return static_cast<unsigned>(m_numFreq.size()); }

CString CCsaFile::GetChannelLabel(unsigned channel) const {
    SF_ASSERT(channel < GetNumChannels(), kSource, __LINE__);
    return channel < GetNumChannels() ? GetLogicalMontage()->GetLabel(channel) : CString();
}

unsigned CCsaFile::GetChannelSourceFreq(unsigned channel) const {
    SF_ASSERT(channel < GetNumChannels(), kSource, __LINE__);
    return channel < GetNumChannels() ? GetLogicalMontage()->GetFrequency(channel) : 0;
}

unsigned CCsaFile::GetChannelUnit(unsigned channel) const {
    SF_ASSERT(channel < GetNumChannels(), kSource, __LINE__);
    return channel < GetNumChannels() ? GetLogicalMontage()->GetUnit(channel) : 0;
}

unsigned CCsaFile::GetChannelType(unsigned channel) const {
    SF_ASSERT(channel < GetNumChannels(), kSource, __LINE__);
    return channel < GetNumChannels() ? GetLogicalMontage()->GetType(channel) : 0;
}

unsigned CCsaFile::GetChannelNumFreq(unsigned channel) const {
    SF_ASSERT(channel < GetNumChannels(), kSource, __LINE__);
    return channel < GetNumChannels() ? m_numFreq[channel] : 0;
}

float CCsaFile::GetChannelMaxFreq(unsigned channel) const {
    return static_cast<float>(GetChannelNumFreq(channel)) * GetFreqRes();
}

void CCsaFile::SetPatientInfo(const CPatientInfo& patient) {
    *m_pPatientInfo = patient;
    m_bChanged = 1;
}

// ---------------------------------------------------------------------------
// Discontinuities and annotations

int CCsaFile::IsDiscontinuityAt(DWORD index) const {
    for (int i = 0; i < m_daDiscontinuities.GetSize(); ++i)
        if (m_daDiscontinuities[i] == index) return 1;
    return 0;
}

DWORD CCsaFile::GetDiscontinuityAt(int i) const {
    SF_ASSERT(i >= 0 && i < m_daDiscontinuities.GetSize(), kSource, __LINE__);
    return (i >= 0 && i < m_daDiscontinuities.GetSize()) ? m_daDiscontinuities[i] : 0;
}

int CCsaFile::AddAnnotationAt(DWORD index, const CString& text) {
    SF_ASSERT(!m_bReadOnly && index < m_nRecords, kSource, __LINE__);
    if (m_bReadOnly || index >= m_nRecords) return 0;
    m_mapAnnotations.SetAt(index, text);
    m_bChanged = 1;
    return 1;
}

int CCsaFile::DeleteAnnotationAt(DWORD index) {
    SF_ASSERT(!m_bReadOnly, kSource, __LINE__);
    if (m_bReadOnly || !m_mapAnnotations.RemoveKey(index)) return 0;
    m_bChanged = 1;
    return 1;
}

int CCsaFile::IsAnnotationAt(DWORD index) const {
    CString text;
    return m_mapAnnotations.Lookup(index, text) ? 1 : 0;
}

CString CCsaFile::GetAnnotationAt(DWORD index) const {
    CString text;
    m_mapAnnotations.Lookup(index, text);
    return text;
}

int CCsaFile::GetPairAnnotRecIxAt(int i, DWORD& index, CString& text) const {
    if (i < 0 || i >= m_mapAnnotations.GetCount()) return 0;
    auto it = m_mapAnnotations.Map().begin();
    std::advance(it, i);
    index = it->first;
    text = it->second;
    return 1;
}
