// The common implementation of the signal-file interface over a data file,
// a status file, a codec and a 32-entry write-back cache of stored record
// images.  Everything descriptive forwards to the status file; records go
// through the cache and the codec.  Each format derived from it supplies the
// two record-image operations Load and Save.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <string>

#include "platform/Collections.h"
#include "platform/File.h"
#include "platform/Messages.h"
#include "records/CacheDWO.h"
#include "sigfile/SIGFILE.h"

class CIntStsFile;
class CIntSigFile;

// The record cache of a signal file: its objects are CByteArrays, one
// stored record image each, loaded and saved by the owning file.
class CSigFileCache : public CCacheDWordToOb {
    DECLARE_DYNAMIC(CSigFileCache)
public:
    CSigFileCache(CIntSigFile* file, unsigned entries);

protected:
    int Load(DWORD record, CObject* bytes) override;
    int Save(DWORD record, CObject* bytes) override;

private:
    CIntSigFile* m_pFile;
};

class CIntSigFile : public CSigFile {
    DECLARE_DYNAMIC(CIntSigFile)
public:
    static constexpr unsigned kCacheEntries = 32;

    ~CIntSigFile() override;

    int Close() override;
    int Flush() override;
    LONGLONG GetFileSize() const override;
    const char* GetFileName() const override { return m_strFileName.c_str(); }
    int IsReadOnly() const override;
    void SetReadOnly() override;
    void ClearReadOnly() override;
    int IsChanged() const override;
    void SetChanged() override;
    void ClearChanged() override;
    int IsIOError() const override;
    void SetIOError(long error) override;
    void ClearIOError() override;
    long GetIOError() const override;
    const CFileHeader* GetFileHeader() const override;
    const CPatientInfo* GetPatientInfo() const override;
    const CPhysicalMontage* GetPhysicalMontage() const override;
    const CCalibration* GetCalibration() const override;
    const CSigCoDec* GetSigCoDec() const override;
    void SetFileHeader(CFileHeader* header) override;
    void SetPatientInfo(CPatientInfo* patient) override;
    void SetPhysicalMontage(CPhysicalMontage* montage) override;
    void SetCalibration(CCalibration* calibration) override;
    double GetTrueFrequency() const override;
    CRawSigRec* CreateCompatibleRawSigRec() const override;
    CFmtSigRec* CreateCompatibleFmtSigRec() const override;
    unsigned GetNumChannels() const override;
    unsigned GetSamplesRecord() const override;
    unsigned GetSamplesChannel(unsigned channel) const override;
    long GetCurrentRecord() const override { return m_nCurrentRecord; }
    long GetNumRecords() const override;
    int IsBOF() const override { return m_nCurrentRecord < 0; }
    int IsEOF() const override { return m_nCurrentRecord >= GetNumRecords(); }
    void MoveTo(long record) override { m_nCurrentRecord = record; }
    void MoveFirst() override { m_nCurrentRecord = 0; }
    void MoveLast() override { m_nCurrentRecord = GetNumRecords() - 1; }
    void MoveNext() override;
    void MovePrev() override;
    int Read(CFmtSigRec* record) override;
    int Read(CRawSigRec* record) override;
    int Read(CByteArray* bytes) override;
    int Write(CFmtSigRec* record) override;
    int Write(CRawSigRec* record) override;
    int ReadAsVolts(CFmtSigRec* record) override;
    int WriteAsVolts(CFmtSigRec* record) override;
    unsigned GetNumStatusItems() const override;
    const CStatusItem* GetStatusItemAt(unsigned index) const override;
    void AddStatusItem(CStatusItem* item) override;
    void UpdateStatusItemAt(unsigned index, const CStatusItem* item) override;
    void DeleteStatusItemAt(unsigned index) override;
    unsigned GetNumGroups() const override;
    const CStatusGroup* GetGroupAt(unsigned index) const override;
    void AddGroup(CStatusGroup* group) override;
    void UpdateGroupAt(unsigned index, const CStatusGroup* group) override;
    void DeleteGroupAt(unsigned index) override;

    // The codec used for the records; the file takes ownership.
    virtual void SetSigCoDec(CSigCoDec* codec);
    virtual CIntStsFile* GetStsFile() const { return m_pStsFile.get(); }
    // The status file; the file takes ownership.
    virtual void SetStsFile(CIntStsFile* stsFile);

protected:
    friend class CSigFileCache;
    CIntSigFile();

    // Reads the stored bytes of record into the CByteArray bytes; must leave
    // bytes unchanged on failure.
    virtual int Load(DWORD record, CObject* bytes) = 0;
    // Writes bytes as record.
    virtual int Save(DWORD record, CObject* bytes) = 0;

    // The record shape the codec describes, made once; formatted reads and
    // writes convert through it.
    CRawSigRec* Scratch();
    bool HasCodecShape(const CSigRecT<float>* record) const;
    // Looks the current record up in the cache: null when there is no such
    // record or it cannot be loaded.
    CByteArray* CurrentImage(int forWrite);

    CFile m_file;
    std::string m_strFileName;
    std::unique_ptr<CSigFileCache> m_pCache;
    std::unique_ptr<CSigCoDec> m_pCoDec;
    std::unique_ptr<CIntStsFile> m_pStsFile;
    long m_nCurrentRecord = 0;

private:
    std::unique_ptr<CRawSigRec> m_pScratch;
};
// The common end of a read-only driver's Open: `build` fills the new `file`
// from `name` and returns 0, or a system error code with the reason in
// `why`.  An exception while building fails the open (out of memory, or a
// bad format with the exception's text).  Returns the file; or null with the
// code in *error and as the thread's last error, and the reason in *message.
template <class File, class Build>
File* OpenBuilt(std::unique_ptr<File> file, const char* name, long* error, std::string* message, Build build) {
    SetLastError(0);
    std::string why;
    long code = 0;
    try {
        code = !name || !*name ? long(ERROR_INVALID_PARAMETER) : build(*file, why);
    } catch (const std::bad_alloc&) {
        code = ERROR_NOT_ENOUGH_MEMORY;
    } catch (const CException& e) {
        why = e.GetMessageText();
        code = ERROR_BAD_FORMAT;
    }
    if (code) {
        if (message) *message = why;
        if (error) *error = code;
        SetLastError(code);
        return nullptr;
    }
    if (error) *error = 0;
    return file.release();
}
#pragma GCC visibility pop
