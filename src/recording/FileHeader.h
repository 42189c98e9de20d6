// What a recording file is: its description, the institution, a file type
// set by the status file's writers, when it was created, and which program
// version created it and last stored it.
//
// Archive form (WORD version 3): description, institution, WORD file type,
// creation date-time, created-by text, last-modified-by text.  Version 1 has
// neither program text, version 2 no last-modified-by text.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Archive.h"
#include "platform/DateTime.h"
#include "platform/Object.h"
#include "platform/Types.h"

class CFileHeader : public CObject {
    DECLARE_SERIAL(CFileHeader)
public:
    // Empty description and institution, file type 0, created now.
    CFileHeader();
    CFileHeader(const CString& fileDesc, const CString& institution, WORD fileType, const CSDateTime& creation);
    ~CFileHeader() override;

    // Stores the four values and sets the created-by text to the running
    // program's creator text.  Returns 1.
    int Create(const CString& fileDesc, const CString& institution, WORD fileType, const CSDateTime& creation);

    // Every store sets the last-modified-by text to the running program's
    // creator text before writing it.
    void Serialize(CArchive& ar) override;

    const CString& GetFileDesc() const { return m_fileDesc; }
    void SetFileDesc(const CString& text) { m_fileDesc = text; }
    const CString& GetInstitution() const { return m_institution; }
    void SetInstitution(const CString& text) { m_institution = text; }
    WORD GetFileType() const { return m_fileType; }
    void SetFileType(WORD type) { m_fileType = type; }
    const CSDateTime& GetCreationDateTime() const { return m_creation; }
    void SetCreationDateTime(const CSDateTime& when) { m_creation = when; }
    const CString& GetCreatedBy() const { return m_createdBy; }
    const CString& GetLastModifiedBy() const { return m_lastModifiedBy; }

    // "Tessaryn <version> <patch> <build>" of the running program.
    static CString GetCreatorText();

private:
    CString m_fileDesc;
    CString m_institution;
    WORD m_fileType = 0;
    CSDateTime m_creation;
    CString m_createdBy;
    CString m_lastModifiedBy;
};

CArchive& operator>>(CArchive& ar, CFileHeader*& header);
#pragma GCC visibility pop
