#include "recording/FileHeader.h"

#include "platform/Strings.h"
#include "platform/Support.h"

IMPLEMENT_SERIAL(CFileHeader, CObject, 1)

namespace {
constexpr WORD kVersion = 3;
// Created-by text of files written before the program stamped its version.
constexpr const char* kOldCreator = "Tessaryn 5.3 or earlier";
}  // namespace

CFileHeader::CFileHeader() { Create({}, {}, 0, CSDateTime::GetTickCount()); }

CFileHeader::CFileHeader(const CString& fileDesc, const CString& institution, WORD fileType,
                         const CSDateTime& creation) {
    Create(fileDesc, institution, fileType, creation);
}

CFileHeader::~CFileHeader() = default;

int CFileHeader::Create(const CString& fileDesc, const CString& institution, WORD fileType,
                        const CSDateTime& creation) {
    m_fileDesc = fileDesc;
    m_institution = institution;
    m_fileType = fileType;
    m_creation = creation;
    m_createdBy = GetCreatorText();
    return 1;
}

CString CFileHeader::GetCreatorText() {
    return StrFormat("Tessaryn %s %s %s", VhlGetVersionText(2).c_str(), VhlGetVersionText(3).c_str(),
                     VhlGetVersionText(6).c_str());
}

void CFileHeader::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kVersion << m_fileDesc << m_institution << m_fileType << m_creation << m_createdBy;
        m_lastModifiedBy = GetCreatorText();
        ar << m_lastModifiedBy;
        return;
    }
    // Read everything first: a refused or truncated archive changes nothing.
    WORD version = 0;
    ar >> version;
    if (version > kVersion) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    CString fileDesc, institution, createdBy, lastModifiedBy;
    WORD fileType = 0;
    CSDateTime creation;
    ar >> fileDesc >> institution >> fileType >> creation;
    if (version < 2) createdBy = kOldCreator;
    else ar >> createdBy;
    if (version < 3) lastModifiedBy = createdBy;
    else ar >> lastModifiedBy;
    m_fileDesc = std::move(fileDesc);
    m_institution = std::move(institution);
    m_fileType = fileType;
    m_creation = creation;
    m_createdBy = std::move(createdBy);
    m_lastModifiedBy = std::move(lastModifiedBy);
}

CArchive& operator>>(CArchive& ar, CFileHeader*& header) {
    header = static_cast<CFileHeader*>(ar.ReadObject(RUNTIME_CLASS(CFileHeader)));
    return ar;
}
