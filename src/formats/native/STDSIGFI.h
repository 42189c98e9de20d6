// The native recording: a ".SIG" data file of stored records back to back
// and a ".STS" status file holding the whole description as one archive.
//
// Writer protocol.  At every moment a writer can be killed, a valid ".STS"
// is on disk, and every record flushed before the kill is readable
// afterwards:
//   - A writer holds an exclusive lock on the ".SIG" for as long as the
//     recording is open, so there is at most one writer; a second one is
//     refused with error 32 and CSigFile::Open opens it read-only instead.
//   - The writer keeps its status in the working file ".ST$".  Flush writes
//     the dirty records to the ".SIG" and forces them to the disk, rewrites
//     the ".ST$", forces it to the disk, and then calls CreateStsBackup,
//     which copies the ".ST$" to the transfer file ".$T$", forces it to the
//     disk and renames it over the ".STS".  That rename is the only way the
//     ".STS" is ever replaced, and it is atomic: a reader sees the old or the
//     new status, each naming only records already on the disk.
//   - Close flushes and then removes the ".ST$".  A ".ST$" found by the next
//     writer (which holds the lock, so its writer is gone) is the status of
//     an interrupted writer: when it loads completely it is restored over the
//     ".STS" (through the ".$T$"); when it does not (the writer died while
//     writing it) it is discarded and the ".STS" stands.  Readers never
//     restore; they read the ".STS", and the ".ST$" only when the ".STS"
//     cannot be read.
//   - Create writes the ".STS" of an empty recording before it empties the
//     ".SIG", so a killed Create leaves an empty but valid recording.
//
// Video files live in a "DV" sub-folder of a recording kept in a folder of
// its own (folder-based storage: the folder bears the recording's base name,
// as in NIGHT1/NIGHT1.SIG).
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <string>
#include <vector>

#include "sigfile/IntSigFile.h"

// Puts the complete native recording `tempSig` (its ".SIG", ".STS" and
// companions, forced to the disk) in place of the recording `targetSig`,
// all or nothing (ReplaceFileSet; the journal is the target's ".$J$"): the
// target's own companions, working and transfer files go with the old
// recording.  Refused (0, last error 32) while a writer holds the target.
int ReplaceRecording(const std::string& tempSig, const std::string& targetSig);
// Finishes a replacement of the recording named by `sig` that a dead
// process left half done, and deletes the temporaries that dead processes
// left beside it.  Every open and every file operation of a native
// recording calls it first.
void RecoverRecording(const std::string& sig);

class CStdSigFile : public CIntSigFile {
    DECLARE_DYNAMIC(CStdSigFile)
public:
    ~CStdSigFile() override;

    static CStdSigFile* Open(const char* name, int readOnly, long* error);
    // Copies header, patient, montage and calibration (the caller keeps
    // its objects) and creates an empty recording open for writing.
    static CStdSigFile* Create(const char* name, CFileHeader* header, CPatientInfo* patient, CPhysicalMontage* montage,
                               CCalibration* calibration, long* error);
    static int Delete(const char* name);
    static int Copy(const char* from, const char* to, CProgressInfo* progress);
    static int Rename(const char* from, const char* to);
    static int IsValidFormat(const char* name);
    static CSigQuickInfo* GetFileQuickInfo(const char* name, long* error);
    static ULONGLONG GetDVSize(const char* name);
    static ULONGLONG GetDVIdxSize(const char* name);
    static int HasDV(const char* name);
    static int GetFileNameExtension(const char* name, CString& base, CString& extension, CString& statusExtension);
    // True when the recording keeps its files in a folder of its own;
    // folder receives that folder with a trailing separator.
    static int IsFolderBasedStorage(const char* name, std::string* folder);

    int Close() override;
    int Flush() override;
    LONGLONG GetFileSize() const override;
    void SetFileHeader(CFileHeader* header) override;
    void SetPatientInfo(CPatientInfo* patient) override;
    void SetPhysicalMontage(CPhysicalMontage* montage) override;
    void SetCalibration(CCalibration* calibration) override;

    // What opening found amiss: a short data file, a working status of
    // another recording set aside.
    void GetFormatNotes(CStringArray* notes) const override;

    // Saves the working status over the permanent ".STS" through the
    // transfer file; see the writer protocol above.
    int CreateStsBackup();

protected:
    int Load(DWORD record, CObject* bytes) override;
    int Save(DWORD record, CObject* bytes) override;

private:
    // name: the recording's data file (any letter case of ".SIG").
    explicit CStdSigFile(const std::string& name);
    void OpenFiles(int readOnly);
    void LoadStatus(const std::string& stsName);
    void CheckConsistency() const;
    void WriteWorkingStatus();
    void InvalidateReadAhead(DWORD record);
    // Writes the records gathered for writing; 0 (I/O error set) on failure.
    int FlushWriteBehind();

    std::vector<std::string> m_notes;
    std::string m_base;      // drive + folder + base name
    std::string m_stsName;   // base + ".STS"
    std::string m_workName;  // base + ".ST$"
    CFile m_workFile;        // the writer's ".ST$"
    // Sequential reads fetch several records at once.
    std::vector<BYTE> m_readAhead;
    DWORD m_readAheadFirst = 0;
    DWORD m_readAheadCount = 0;
    // Records saved in sequence are gathered and written together.
    std::vector<BYTE> m_writeBehind;
    DWORD m_writeBehindFirst = 0;
    DWORD m_writeBehindCount = 0;
};
#pragma GCC visibility pop
