// The codec interface: turns one stored record image into a CRawSigRec and
// back, and describes the shape of a recording's records.  Every format
// supplies its own codec; a status file stores it as an archive object so
// that a recording can be read without knowing the codec's class.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Collections.h"
#include "platform/Object.h"
#include "records/SigRec.h"

class CSigCoDec : public CObject {
    DECLARE_DYNAMIC(CSigCoDec)
public:
    ~CSigCoDec() override = default;

    // Copying through the base class is a programming error (it asserts):
    // each codec assigns only from its own class.
    virtual CSigCoDec& operator=(const CSigCoDec& src);
    // Bytes of one stored record.
    virtual unsigned GetCompRecSize() const = 0;
    virtual unsigned GetNumChannels() const = 0;
    virtual unsigned GetSamplesRecord() const = 0;
    // Samples per record of each channel (GetNumChannels values).
    virtual unsigned short* GetSamplesChannel() const = 0;
    // New records of the codec's shape; the caller owns them.
    virtual CRawSigRec* CreateCompatibleRawSigRec() const = 0;
    virtual CFmtSigRec* CreateCompatibleFmtSigRec() const = 0;
    // Encodes / decodes one record.
    virtual void Compress(CRawSigRec* from, CByteArray* to) = 0;
    virtual void DeCompress(CByteArray* from, CRawSigRec* to) = 0;

protected:
    CSigCoDec() = default;
    CSigCoDec(const CSigCoDec&) = default;
};
#pragma GCC visibility pop
