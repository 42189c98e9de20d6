// The abstract signal file: the face of every recording the library opens,
// the static operations that decide a file's format and forward to its
// class, and the library's error convention.
//
// Format numbers: 0 not recognised, 1 native (".SIG" + ".STS"), 2 legacy DOS,
// 3 Nihon Kohden, 4 BMSI, 5 external signal-file server, 6 EDF / EDF+,
// 7 BDF / BDF+.  The drivers of the formats and their probing order are in
// sigfile/FormatDriver.h and formats/Registry.cpp.
//
// Static entry points take an optional long* error: when it is null a failure
// is shown through ErrorMessageBox, otherwise it is only stored there.  Error
// -1 means "already reported" and is never shown.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <map>
#include <memory>
#include <string>

#include "platform/Collections.h"
#include "platform/DateTime.h"
#include "platform/Exceptions.h"
#include "platform/Object.h"
#include "records/SigRec.h"

class CFileHeader;
class CPatientInfo;
class CPhysicalMontage;
class CCalibration;
class CSigCoDec;
class CStatusItem;
class CStatusGroup;

enum : unsigned {
    SIGFILE_FORMAT_UNKNOWN = 0,
    SIGFILE_FORMAT_NATIVE = 1,
    SIGFILE_FORMAT_DOS = 2,
    SIGFILE_FORMAT_NIHONKOHDEN = 3,
    SIGFILE_FORMAT_BMSI = 4,
    SIGFILE_FORMAT_SERVER = 5,
    SIGFILE_FORMAT_EDF = 6,
    SIGFILE_FORMAT_BDF = 7,
};

// Name of a format number ("native", "unknown", ...).
const char* GetSigFileFormatName(unsigned format);

// Progress of a long operation (copies).  The default does nothing; a caller
// derives to show a bar and may ask the operation to stop.
class CProgressInfo {
public:
    virtual ~CProgressInfo() = default;
    virtual void SetRange(ULONGLONG total) { m_total = total; }
    virtual void SetPos(ULONGLONG pos) { m_pos = pos; }
    virtual bool IsCancelled() const { return false; }
    ULONGLONG GetRange() const { return m_total; }
    ULONGLONG GetPos() const { return m_pos; }

private:
    ULONGLONG m_total = 0;
    ULONGLONG m_pos = 0;
};

// Summary of a recording read without opening it.
class CSigQuickInfo {
public:
    CSigQuickInfo() = default;
    CSigQuickInfo(const CSigQuickInfo&) = default;
    CSigQuickInfo& operator=(const CSigQuickInfo&) = default;

    std::string m_strDescription;  // left empty by the native format
    std::string m_strFileName;     // the name as given
    std::string m_strLastName;
    std::string m_strFirstName;
    std::string m_strPatientId1;
    std::string m_strPatientId2;
    ULONGLONG m_nTotalSize = 0;    // bytes of all the recording's files
    ULONGLONG m_nSecondSize = 0;   // zero unless a format fills it
    CSDateTime m_creation;
};

// The library's own exception: English texts that begin with "Failure".
class CGenericException : public CSimpleException {
public:
    CGenericException() = default;
    explicit CGenericException(const char* message) { SetErrorMessage(message); }

    // Copies at most 127 characters; asserts (GenEx) that the code is -1.
    void SetErrorMessage(const char* message);
    BOOL GetErrorMessage(char* buffer, UINT size, UINT* helpContext = nullptr) const override;
    std::string GetMessageText() const override;
    long GetCode() const { return m_code; }

private:
    char m_message[128] = {};
    long m_code = -1;  // -1: the exception carries its own message
};

[[noreturn]] void ThrowGenericException(const char* message);

// One channel as its file describes it.  The shared model (montage and
// calibration) holds integer rates, unit codes and 16-bit samples; formats
// that store more say it here.
struct CSigChannelInfo {
    std::string label;       // as the file names it
    std::string unit;        // physical dimension as text ("uV", "degC")
    std::string transducer;  // sensor description
    std::string prefilter;   // filtering applied before digitising
    double frequency = 0;    // samples per second, exact
    double physicalMin = 0;  // physical value of digitalMin
    double physicalMax = 0;  // physical value of digitalMax
    long digitalMin = 0;     // stored sample range
    long digitalMax = 0;
    unsigned bits = 16;      // bits of a stored sample
};

class CSigFile : public CObject {
    DECLARE_DYNAMIC(CSigFile)
public:
    ~CSigFile() override = default;

    // The shared table of operations, in order.
    virtual int Close() = 0;
    virtual int Flush() = 0;
    virtual LONGLONG GetFileSize() const = 0;
    virtual const char* GetFileName() const = 0;
    virtual int IsReadOnly() const = 0;
    virtual void SetReadOnly() = 0;
    virtual void ClearReadOnly() = 0;
    virtual int IsChanged() const = 0;
    virtual void SetChanged() = 0;
    virtual void ClearChanged() = 0;
    virtual int IsIOError() const = 0;
    virtual void SetIOError(long error) = 0;
    virtual void ClearIOError() = 0;
    virtual long GetIOError() const = 0;
    virtual const CFileHeader* GetFileHeader() const = 0;
    virtual const CPatientInfo* GetPatientInfo() const = 0;
    virtual const CPhysicalMontage* GetPhysicalMontage() const = 0;
    virtual const CCalibration* GetCalibration() const = 0;
    virtual const CSigCoDec* GetSigCoDec() const = 0;
    virtual void SetFileHeader(CFileHeader* header) = 0;
    virtual void SetPatientInfo(CPatientInfo* patient) = 0;
    virtual void SetPhysicalMontage(CPhysicalMontage* montage) = 0;
    virtual void SetCalibration(CCalibration* calibration) = 0;
    virtual double GetTrueFrequency() const = 0;
    virtual CRawSigRec* CreateCompatibleRawSigRec() const = 0;
    virtual CFmtSigRec* CreateCompatibleFmtSigRec() const = 0;
    virtual unsigned GetNumChannels() const = 0;
    virtual unsigned GetSamplesRecord() const = 0;
    virtual unsigned GetSamplesChannel(unsigned channel) const = 0;
    virtual long GetCurrentRecord() const = 0;
    virtual long GetNumRecords() const = 0;
    virtual int IsBOF() const = 0;
    virtual int IsEOF() const = 0;
    virtual void MoveTo(long record) = 0;
    virtual void MoveFirst() = 0;
    virtual void MoveLast() = 0;
    virtual void MoveNext() = 0;
    virtual void MovePrev() = 0;
    virtual int Read(CFmtSigRec* record) = 0;
    virtual int Read(CRawSigRec* record) = 0;
    virtual int Read(CByteArray* bytes) = 0;
    virtual int Write(CFmtSigRec* record) = 0;
    virtual int Write(CRawSigRec* record) = 0;
    virtual int ReadAsVolts(CFmtSigRec* record) = 0;
    virtual int WriteAsVolts(CFmtSigRec* record) = 0;
    virtual unsigned GetNumStatusItems() const = 0;
    virtual const CStatusItem* GetStatusItemAt(unsigned index) const = 0;
    virtual void AddStatusItem(CStatusItem* item) = 0;
    virtual void UpdateStatusItemAt(unsigned index, const CStatusItem* item) = 0;
    virtual void DeleteStatusItemAt(unsigned index) = 0;
    virtual unsigned GetNumGroups() const = 0;
    virtual const CStatusGroup* GetGroupAt(unsigned index) const = 0;
    virtual void AddGroup(CStatusGroup* group) = 0;
    virtual void UpdateGroupAt(unsigned index, const CStatusGroup* group) = 0;
    virtual void DeleteGroupAt(unsigned index) = 0;

    // --- Beyond the shared table: what formats other than the native one
    // need to say.  The defaults describe a native-like recording from its
    // montage and calibration.
    // Format number of the open file.
    virtual unsigned GetFormat() const { return SIGFILE_FORMAT_NATIVE; }
    // Seconds covered by one record: samples per record / true frequency.
    virtual double GetRecordDuration() const;
    // Samples per second of a record channel, exact.
    virtual double GetChannelFrequency(unsigned channel) const;
    // The file's own description of a record channel; 0 when there is no
    // such channel.
    virtual int GetChannelInfo(unsigned channel, CSigChannelInfo* info) const;
    // The current record's stored samples as integers, exact whatever their
    // width (GetChannelInfo gives each channel's digital range and bits).
    // The default widens the raw 16-bit record.
    virtual int ReadDigital(CDigSigRec* record);
    // Departures from the format's standard that opening tolerated, one
    // French line each (shown by check); none by default.
    virtual void GetFormatNotes(CStringArray* notes) const;
    // Records that hold signal in their first samples only (the rest of the
    // record repeats the last sample): record index -> samples at recording
    // montage 0's base frequency that hold signal.  A native recording
    // converted from a file whose runs of data did not end on one of its own
    // record boundaries lists the last record of each such run; other
    // recordings list none.
    virtual void GetPartialRecords(std::map<long, unsigned>* fills) const;
    // Seconds per record of the file the recording was converted from (0 when
    // it was not): a conversion back cuts its records the same way.
    virtual double GetSourceRecordDuration() const;

    // Brings the montage references of the status groups and items up to
    // date after the physical montage was replaced.
    void UpdateNewPhyMtgToStsGrpsItms(CPhysicalMontage* montage);

    // Static operations.  Names are file paths.
    static CSigFile* Open(const char* name, int readOnly = 0, long* error = nullptr, int reserved = 0,
                          int check24Hours = 0);
    static CSigFile* Create(const char* name, CFileHeader* header, CPatientInfo* patient,
                            CPhysicalMontage* montage, CCalibration* calibration,
                            unsigned format = SIGFILE_FORMAT_NATIVE, long* error = nullptr,
                            int validate = 1);
    static int Delete(const char* name);
    static int Copy(const char* from, const char* to, CProgressInfo* progress = nullptr);
    static int Rename(const char* from, const char* to);
    static int IsValidFormat(const char* name);
    static ULONGLONG GetDVSize(const char* name);
    static ULONGLONG GetDVIdxSize(const char* name);
    static int HasDV(const char* name);
    static CSigQuickInfo* GetFileQuickInfo(const char* name, long* error = nullptr);
    static int CopyStsFile(const char* from, const char* to, CProgressInfo* progress = nullptr);
    static int RenameStsFile(const char* from, const char* to);
    static int DeleteStsFile(const char* name);
    static void GetStsExtensions(const char* name, CStringArray* extensions);
    static void ErrorMessageBox(const char* name, long code);

    // The whole-recording duration rule: the latest end of an item of an
    // extent-1 group must lie less than 86401 s after the creation time.
    static int IsDurationWithin24hrs(const CSigFile* file);

protected:
    CSigFile() = default;
};

// Format of a file: the drivers' signature tests in the registry's order
// (strong signatures first), then the tests by name.
unsigned GetSigFileFormat(const char* name);
// A ".SIG" file whose first 8 bytes are "KQUARSIG".
int IsOsgFileFormat(const char* name);
// Fatal error of the library: shows a box and ends the process with status 0.
[[noreturn]] void SetErrorCondition(const char* sourceFile, int line, const char* message = nullptr);
// Consistency of the status items of an open file.
int ValidateStatusItems(CSigFile* file);
// Whether `name` is one of the files of the recording `sigName`: its data
// file, its status file, the writer's working and transfer copies, or a
// companion (".000" to ".999").  An export or import must never write over
// one of them.
bool IsFileOfRecording(const std::string& sigName, const std::string& name);

class CRecordingMontage;
// The recording montage that describes record channel `channel` (recording
// montage channel / 128 holds it, as entry channel % 128) and that entry in
// *index; null when the file has no such montage or entry.
const CRecordingMontage* RecordingMontageOfChannel(const CSigFile& file, unsigned channel, unsigned* index);

// Owner of an open signal file for C++ callers: closes and deletes it.
struct CSigFileCloser {
    void operator()(CSigFile* file) const {
        if (file) {
            file->Close();
            delete file;
        }
    }
};
using CSigFilePtr = std::unique_ptr<CSigFile, CSigFileCloser>;
#pragma GCC visibility pop
