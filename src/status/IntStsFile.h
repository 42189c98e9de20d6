// CIntStsFile keeps a recording's description in memory and stores it as
// one archive:
//
//   WORD file version (1), then as archive objects the file header, the
//   patient information, the codec, the calibration and the physical
//   montage, the record count (signed 32-bit), the groups (object array)
//   and the items (object array; each item's group is a reference to one
//   of the groups).
//
// Every read brings files of older versions up to date through a fixed chain
// of patch steps (PatchStsInfo).  A read either succeeds whole or leaves the
// object as it was: the archive is loaded into fresh objects that replace
// the held ones only at the end.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <vector>

#include "platform/Archive.h"
#include "platform/Collections.h"
#include "platform/File.h"
#include "status/StsFile.h"
#include "status/stsitm.h"

// The objects of one status archive.  Owns everything it holds.
struct CStsContent {
    CStsContent();
    ~CStsContent();
    CStsContent(const CStsContent&) = delete;
    CStsContent& operator=(const CStsContent&) = delete;
    void Swap(CStsContent& other);

    std::unique_ptr<CFileHeader> header;
    std::unique_ptr<CPatientInfo> patient;
    std::unique_ptr<CPhysicalMontage> montage;
    std::unique_ptr<CCalibration> calibration;
    std::unique_ptr<CSigCoDec> codec;
    LONG numRecords = 0;
    CStatusItemArray items;  // owned items, in order
    // Owned items added out of order and not yet merged into items.
    std::vector<CObject*> pending;
    CObArray groups;         // owned groups
};

class CIntStsFile : public CStsFile {
    DECLARE_DYNAMIC(CIntStsFile)
public:
    // Highest file version this class writes and reads.
    static constexpr WORD kFileVersion = 1;

    // An empty description: default header, patient, montage, calibration
    // and codec, no records, groups or items.
    CIntStsFile();
    ~CIntStsFile() override;

    // --- CStsFile ----------------------------------------------------------
    const CFileHeader* GetFileHeader() const override { return m_c.header.get(); }
    const CPatientInfo* GetPatientInfo() const override { return m_c.patient.get(); }
    const CPhysicalMontage* GetPhysicalMontage() const override { return m_c.montage.get(); }
    const CCalibration* GetCalibration() const override { return m_c.calibration.get(); }
    const CSigCoDec* GetSigCoDec() const override { return m_c.codec.get(); }
    long GetNumRecords() const override { return m_c.numRecords; }
    unsigned GetNumStatusItems() const override {
        return static_cast<unsigned>(m_c.items.GetSize() + m_c.pending.size());
    }
    const CStatusItem* GetStatusItemAt(unsigned index) const override;
    unsigned GetNumGroups() const override { return static_cast<unsigned>(m_c.groups.GetSize()); }
    const CStatusGroup* GetGroupAt(unsigned index) const override;
    const char* GetFileName() const override { return m_file ? m_file->GetFilePath().c_str() : ""; }
    LONGLONG GetFileSize() const override;

    void SetFileHeader(CFileHeader* header) override;
    void SetPatientInfo(CPatientInfo* patient) override;
    void SetPhysicalMontage(CPhysicalMontage* montage) override;
    void SetCalibration(CCalibration* calibration) override;
    void SetSigCoDec(CSigCoDec* codec) override;
    void SetNumRecords(long count) override;

    // An item is accepted only when its group is one of the file's groups
    // (else it asserts and the item is deleted); it goes to its place in
    // (begin sample, end sample) order.  Items that sort last are appended at
    // once; others wait in a side list that is sorted and merged in one pass
    // at the next access to the items, so that adding many events in any
    // order costs n log n rather than one array move per event.
    void AddStatusItem(CStatusItem* item) override;
    // Copies item into the item at index and moves it to its new place.
    void UpdateStatusItemAt(unsigned index, const CStatusItem* item) override;
    void DeleteStatusItemAt(unsigned index) override;
    void AddGroup(CStatusGroup* group) override;
    // Copies group into the group at index; its items take its new property
    // keys (values of kept positions stay).
    void UpdateGroupAt(unsigned index, const CStatusGroup* group) override;
    // Deletes the group and every item of it.
    void DeleteGroupAt(unsigned index) override;

    int IsReadOnly() const override { return m_bReadOnly; }
    void SetReadOnly() override { m_bReadOnly = 1; }
    void ClearReadOnly() override { m_bReadOnly = 0; }
    int IsChanged() const override { return m_bChanged; }
    void SetChanged() override { m_bChanged = 1; }
    void ClearChanged() override { m_bChanged = 0; }
    int IsIOError() const override { return m_bIOError; }
    void SetIOError(long error) override;
    void ClearIOError() override;
    long GetIOError() const override { return m_nIOError; }

    // Writes the description when it changed and the file is writable, then
    // closes the file.
    int Close() override;
    // Writes the description when it changed and the file is writable.
    int Flush() override;

    // --- Archive access ----------------------------------------------------
    // Stores the whole description (file version 1 first).
    void StoreToArchive(CArchive& ar) const;
    // Loads a whole description from a loading archive, refusing a file
    // version above maxVersion (archive exception, bad schema), patches it
    // and puts it in place of the held one; throws and changes nothing on
    // failure.  The codec must be a CStdCoDec (else it asserts at
    // codecAssertSource / codecAssertLine and the codec is kept as read); an
    // object that is no codec at all is refused (bad class).  The native
    // signal file, which reads the whole status file into memory, calls this
    // with its own file version limit and assertion source.
    void LoadFromArchive(CArchive& ar, WORD maxVersion = kFileVersion, const char* codecAssertSource = "IntStsFile",
                         int codecAssertLine = 666);
    // The same from a memory image of a status file.
    void LoadFromMemory(const BYTE* data, size_t size, WORD maxVersion = kFileVersion);

    // Reads a status file from disk: opens it with openFlags and loads it.
    // Returns 0 (I/O error set) when it cannot be opened; an archive or
    // memory exception passes through with the object unchanged.
    int ReadStsFile(const char* name, UINT openFlags = CFile::modeRead | CFile::shareDenyNone);
    // Writes the description at the start of the open file and cuts the
    // file after it.  0 when no file is open or the file is read-only.
    int WriteStsFile();

    // --- Patch chain ---------------------------------------------------------
    // Brings a description read from a file of any version up to date.
    static int PatchStsInfo(CStsContent& content, WORD fileVersion);
    static void PatchGroupIDs(CObArray& groups);
    static void PatchGroupProperties(CObArray& groups);
    static void PatchGroupQualifiers(CObArray& groups);
    static void PatchPatientSex(CPatientInfo* patient);
    static void PatchStageEventProperties(CObArray& groups, CStatusItemArray& items);
    static void PatchBookmarkEventProperties(CObArray& groups, CStatusItemArray& items,
                                             const CPhysicalMontage* montage);
    static void PatchSectionEvents(CObArray& groups, CStatusItemArray& items, double trueFrequency);
    // The section group that runs of the detection group named detectionName
    // produced: the first section group (type 1) whose name begins with the
    // detection group's name, compared without regard to case, and continues
    // with nothing or with a space, '-' or '_' (as in "Spike Detection
    // Section").  Null when there is none.
    static CStatusGroup* FindCorrespPrcSecGroup(const CObArray& groups, const char* detectionName);

protected:
    // Opens name into file; 0 (I/O error set) when it cannot be opened.
    int OpenStsFile(const char* name, UINT openFlags, std::unique_ptr<CFile>& file);
    int IsStsFileOpen() const { return m_file && m_file->IsOpen(); }
    // Empties the description to the state of a new object.
    void ResetStatusData();

private:
    int IndexOfGroup(const CStatusGroup* group) const;
    // Merges the waiting items into the ordered array.
    void Settle() const;
    void DeleteItemsOfGroup(const CStatusGroup* group);

    std::unique_ptr<CFile> m_file;
    CStsContent m_c;
    int m_bReadOnly = 0;
    int m_bChanged = 0;
    int m_bIOError = 0;
    long m_nIOError = 0;
};
#pragma GCC visibility pop
