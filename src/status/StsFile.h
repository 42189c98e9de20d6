// The status file: everything about a recording except its samples.
// CStsFile is the interface; CIntStsFile (IntStsFile.h) keeps the objects in
// memory and stores them as one archive.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Object.h"
#include "platform/Types.h"

class CFileHeader;
class CPatientInfo;
class CPhysicalMontage;
class CCalibration;
class CSigCoDec;
class CStatusItem;
class CStatusGroup;

class CStsFile : public CObject {
    DECLARE_DYNAMIC(CStsFile)
public:
    ~CStsFile() override = default;

    virtual const CFileHeader* GetFileHeader() const = 0;
    virtual const CPatientInfo* GetPatientInfo() const = 0;
    virtual const CPhysicalMontage* GetPhysicalMontage() const = 0;
    virtual const CCalibration* GetCalibration() const = 0;
    virtual const CSigCoDec* GetSigCoDec() const = 0;
    virtual long GetNumRecords() const = 0;
    virtual unsigned GetNumStatusItems() const = 0;
    virtual const CStatusItem* GetStatusItemAt(unsigned index) const = 0;
    virtual unsigned GetNumGroups() const = 0;
    virtual const CStatusGroup* GetGroupAt(unsigned index) const = 0;
    virtual const char* GetFileName() const = 0;
    virtual LONGLONG GetFileSize() const = 0;

    // Setters take ownership and replace the held value.
    virtual void SetFileHeader(CFileHeader* header) = 0;
    virtual void SetPatientInfo(CPatientInfo* patient) = 0;
    virtual void SetPhysicalMontage(CPhysicalMontage* montage) = 0;
    virtual void SetCalibration(CCalibration* calibration) = 0;
    virtual void SetSigCoDec(CSigCoDec* codec) = 0;
    virtual void SetNumRecords(long count) = 0;

    // Editing of items and groups.  Added objects become the file's.
    virtual void AddStatusItem(CStatusItem* item) = 0;
    virtual void UpdateStatusItemAt(unsigned index, const CStatusItem* item) = 0;
    virtual void DeleteStatusItemAt(unsigned index) = 0;
    virtual void AddGroup(CStatusGroup* group) = 0;
    virtual void UpdateGroupAt(unsigned index, const CStatusGroup* group) = 0;
    virtual void DeleteGroupAt(unsigned index) = 0;

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

    virtual int Close() = 0;
    virtual int Flush() = 0;

protected:
    CStsFile() = default;
};
#pragma GCC visibility pop
