#include "sigfile/IntSigFile.h"

#include "platform/Assert.h"
#include "platform/Messages.h"
#include "recording/calib.h"
#include "records/SigCoDec.h"
#include "status/IntStsFile.h"

IMPLEMENT_DYNAMIC(CSigFileCache, CCacheDWordToOb)
IMPLEMENT_DYNAMIC(CIntSigFile, CSigFile)

CSigFileCache::CSigFileCache(CIntSigFile* file, unsigned entries)
    : CCacheDWordToOb(entries, RUNTIME_CLASS(CByteArray)), m_pFile(file) {
    SF_ASSERT(file != nullptr && entries > 0, "IntSigFile", 301);
}

int CSigFileCache::Load(DWORD record, CObject* bytes) { return m_pFile ? m_pFile->Load(record, bytes) : 0; }

int CSigFileCache::Save(DWORD record, CObject* bytes) { return m_pFile ? m_pFile->Save(record, bytes) : 0; }

CIntSigFile::CIntSigFile() : m_pCache(new CSigFileCache(this, kCacheEntries)), m_pStsFile(new CIntStsFile) {}

CIntSigFile::~CIntSigFile() = default;

int CIntSigFile::Close() {
    int flushed = Flush();
    int closed = m_pStsFile ? m_pStsFile->Close() : 1;
    m_pStsFile.reset();
    m_file.Abort();
    return flushed && closed;
}

int CIntSigFile::Flush() {
    if (IsReadOnly()) return 1;
    if (!m_pCache->Flush()) return 0;
    return m_pStsFile->Flush();
}

LONGLONG CIntSigFile::GetFileSize() const {
    return m_file.IsOpen() ? static_cast<LONGLONG>(m_file.GetLength()) : 0;
}

int CIntSigFile::IsReadOnly() const { return m_pStsFile->IsReadOnly(); }
void CIntSigFile::SetReadOnly() { m_pStsFile->SetReadOnly(); }
void CIntSigFile::ClearReadOnly() { m_pStsFile->ClearReadOnly(); }
int CIntSigFile::IsChanged() const { return m_pStsFile->IsChanged(); }
void CIntSigFile::SetChanged() { m_pStsFile->SetChanged(); }
void CIntSigFile::ClearChanged() { m_pStsFile->ClearChanged(); }
int CIntSigFile::IsIOError() const { return m_pStsFile->IsIOError(); }
void CIntSigFile::SetIOError(long error) { m_pStsFile->SetIOError(error); }
void CIntSigFile::ClearIOError() { m_pStsFile->ClearIOError(); }
long CIntSigFile::GetIOError() const { return m_pStsFile->GetIOError(); }

const CFileHeader* CIntSigFile::GetFileHeader() const { return m_pStsFile->GetFileHeader(); }
const CPatientInfo* CIntSigFile::GetPatientInfo() const { return m_pStsFile->GetPatientInfo(); }
const CPhysicalMontage* CIntSigFile::GetPhysicalMontage() const { return m_pStsFile->GetPhysicalMontage(); }
const CCalibration* CIntSigFile::GetCalibration() const { return m_pStsFile->GetCalibration(); }
const CSigCoDec* CIntSigFile::GetSigCoDec() const { return m_pCoDec.get(); }

void CIntSigFile::SetFileHeader(CFileHeader* header) { m_pStsFile->SetFileHeader(header); }
void CIntSigFile::SetPatientInfo(CPatientInfo* patient) { m_pStsFile->SetPatientInfo(patient); }
void CIntSigFile::SetPhysicalMontage(CPhysicalMontage* montage) {
    m_pStsFile->SetPhysicalMontage(montage);
    UpdateNewPhyMtgToStsGrpsItms(montage);
}
void CIntSigFile::SetCalibration(CCalibration* calibration) { m_pStsFile->SetCalibration(calibration); }

void CIntSigFile::SetSigCoDec(CSigCoDec* codec) {
    m_pCoDec.reset(codec);
    m_pScratch.reset();
}

void CIntSigFile::SetStsFile(CIntStsFile* stsFile) { m_pStsFile.reset(stsFile); }

double CIntSigFile::GetTrueFrequency() const {
    const CCalibration* c = GetCalibration();
    return c ? c->GetTrueFrequency() : 0.0;
}

CRawSigRec* CIntSigFile::CreateCompatibleRawSigRec() const {
    return m_pCoDec ? m_pCoDec->CreateCompatibleRawSigRec() : new CRawSigRec;
}

CFmtSigRec* CIntSigFile::CreateCompatibleFmtSigRec() const {
    return m_pCoDec ? m_pCoDec->CreateCompatibleFmtSigRec() : new CFmtSigRec;
}

unsigned CIntSigFile::GetNumChannels() const { return m_pCoDec ? m_pCoDec->GetNumChannels() : 0; }
unsigned CIntSigFile::GetSamplesRecord() const { return m_pCoDec ? m_pCoDec->GetSamplesRecord() : 0; }

unsigned CIntSigFile::GetSamplesChannel(unsigned channel) const {
    if (!m_pCoDec || channel >= m_pCoDec->GetNumChannels()) return 0;
    return m_pCoDec->GetSamplesChannel()[channel];
}

long CIntSigFile::GetNumRecords() const { return m_pStsFile->GetNumRecords(); }

void CIntSigFile::MoveNext() {
    if (m_nCurrentRecord < GetNumRecords()) ++m_nCurrentRecord;
}

void CIntSigFile::MovePrev() {
    if (m_nCurrentRecord >= 0) --m_nCurrentRecord;
}

CRawSigRec* CIntSigFile::Scratch() {
    if (!m_pScratch && m_pCoDec) m_pScratch.reset(m_pCoDec->CreateCompatibleRawSigRec());
    return m_pScratch.get();
}

bool CIntSigFile::HasCodecShape(const CSigRecT<float>* record) const {
    if (!m_pCoDec || !record || record->GetNumChannels() != m_pCoDec->GetNumChannels()) return false;
    const unsigned short* counts = m_pCoDec->GetSamplesChannel();
    for (unsigned c = 0; c < record->GetNumChannels(); ++c)
        if (record->GetNumSamples(c) != counts[c]) return false;
    return true;
}

CByteArray* CIntSigFile::CurrentImage(int forWrite) {
    if (IsIOError() || !m_pCoDec) return nullptr;
    long count = GetNumRecords();
    // Reads stay inside the recording; a write may append one record.
    if (m_nCurrentRecord < 0 || m_nCurrentRecord > count || (!forWrite && m_nCurrentRecord == count)) return nullptr;
    CObject* ob = nullptr;
    if (!m_pCache->LookUp(static_cast<DWORD>(m_nCurrentRecord), ob, forWrite)) return nullptr;
    return static_cast<CByteArray*>(ob);
}

int CIntSigFile::Read(CRawSigRec* record) {
    if (!record) return 0;
    CByteArray* image = CurrentImage(0);
    if (!image) return 0;
    m_pCoDec->DeCompress(image, record);
    return 1;
}

int CIntSigFile::Read(CByteArray* bytes) {
    if (!bytes) return 0;
    CByteArray* image = CurrentImage(0);
    if (!image) return 0;
    bytes->Copy(*image);
    return 1;
}

int CIntSigFile::Read(CFmtSigRec* record) {
    const CCalibration* calibration = GetCalibration();
    CRawSigRec* raw = Scratch();
    if (!record || !calibration || !raw || !Read(raw)) return 0;
    // The calibration writes as many samples as the raw record holds: give
    // the formatted record the same shape first.
    if (!HasCodecShape(record)) record->Create(m_pCoDec->GetNumChannels(), m_pCoDec->GetSamplesChannel());
    calibration->Calibrate(raw, record);
    return 1;
}

int CIntSigFile::ReadAsVolts(CFmtSigRec* record) {
    const CCalibration* calibration = GetCalibration();
    CRawSigRec* raw = Scratch();
    if (!record || !calibration || !raw || !Read(raw)) return 0;
    if (!HasCodecShape(record)) record->Create(m_pCoDec->GetNumChannels(), m_pCoDec->GetSamplesChannel());
    calibration->CalibrateAsVolts(raw, record);
    return 1;
}

int CIntSigFile::Write(CRawSigRec* record) {
    SF_ASSERT(!IsReadOnly(), "IntSigFile", 241);
    if (!record || IsReadOnly() || IsIOError()) return 0;
    long count = GetNumRecords();
    CByteArray* image = CurrentImage(1);
    if (!image) return 0;
    m_pCoDec->Compress(record, image);
    if (m_nCurrentRecord == count) m_pStsFile->SetNumRecords(count + 1);
    SetChanged();
    return 1;
}

int CIntSigFile::Write(CFmtSigRec* record) {
    const CCalibration* calibration = GetCalibration();
    CRawSigRec* raw = Scratch();
    // The conversion reads as many samples as the formatted record claims:
    // only records of the file's shape are accepted.
    if (!calibration || !raw || !HasCodecShape(record)) return 0;
    calibration->Decalibrate(record, raw);
    return Write(raw);
}

int CIntSigFile::WriteAsVolts(CFmtSigRec* record) {
    const CCalibration* calibration = GetCalibration();
    CRawSigRec* raw = Scratch();
    if (!calibration || !raw || !HasCodecShape(record)) return 0;
    calibration->DecalibrateAsVolts(record, raw);
    return Write(raw);
}

unsigned CIntSigFile::GetNumStatusItems() const { return m_pStsFile->GetNumStatusItems(); }
const CStatusItem* CIntSigFile::GetStatusItemAt(unsigned index) const { return m_pStsFile->GetStatusItemAt(index); }
void CIntSigFile::AddStatusItem(CStatusItem* item) { m_pStsFile->AddStatusItem(item); }
void CIntSigFile::UpdateStatusItemAt(unsigned index, const CStatusItem* item) {
    m_pStsFile->UpdateStatusItemAt(index, item);
}
void CIntSigFile::DeleteStatusItemAt(unsigned index) { m_pStsFile->DeleteStatusItemAt(index); }
unsigned CIntSigFile::GetNumGroups() const { return m_pStsFile->GetNumGroups(); }
const CStatusGroup* CIntSigFile::GetGroupAt(unsigned index) const { return m_pStsFile->GetGroupAt(index); }
void CIntSigFile::AddGroup(CStatusGroup* group) { m_pStsFile->AddGroup(group); }
void CIntSigFile::UpdateGroupAt(unsigned index, const CStatusGroup* group) { m_pStsFile->UpdateGroupAt(index, group); }
void CIntSigFile::DeleteGroupAt(unsigned index) { m_pStsFile->DeleteGroupAt(index); }
