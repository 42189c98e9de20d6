#include <gtest/gtest.h>

#include <memory>

#include "platform/Support.h"
#include "recording/FileHeader.h"
#include "support/TestSupport.h"

using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

namespace {

const std::string kCreator =
    "Tessaryn " + VhlGetVersionText(2) + " " + VhlGetVersionText(3) + " " + VhlGetVersionText(6);

std::vector<BYTE> Store(CFileHeader& h) {
    return StoreToBytes([&](CArchive& ar) { h.Serialize(ar); });
}

// Items common to every version: description, institution, type, creation.
Bytes HeaderStart(unsigned version) {
    return Bytes().u16(version).str("\xC9tude du sommeil").str("H\xF4pital Nord").u16(2).f64(45000.25);
}

}  // namespace

TEST(FileHeaderTest, NewHeaderIsCreatedNowByThisProgram) {
    const CSDateTime before = CSDateTime::GetTickCount();
    CFileHeader h;
    const CSDateTime after = CSDateTime::GetTickCount();
    EXPECT_EQ(h.GetFileDesc(), "");
    EXPECT_EQ(h.GetInstitution(), "");
    EXPECT_EQ(h.GetFileType(), 0);
    EXPECT_GE(h.GetCreationDateTime(), before);
    EXPECT_LE(h.GetCreationDateTime(), after);
    EXPECT_EQ(h.GetCreatedBy(), kCreator);
    EXPECT_EQ(CFileHeader::GetCreatorText(), kCreator);

    EXPECT_EQ(h.Create("Étude", "Hôpital", 4, CSDateTime(40000.0)), 1);
    EXPECT_EQ(h.GetFileDesc(), "Étude");
    EXPECT_EQ(h.GetInstitution(), "Hôpital");
    EXPECT_EQ(h.GetFileType(), 4);
    EXPECT_EQ(h.GetCreationDateTime(), CSDateTime(40000.0));
}

TEST(FileHeaderTest, StoresVersion3AndStampsTheWritingProgram) {
    CFileHeader h("Étude du sommeil", "Hôpital Nord", 2, CSDateTime(45000.25));
    EXPECT_EQ(h.GetLastModifiedBy(), "");
    const Bytes expected = HeaderStart(3).str(kCreator).str(kCreator);
    EXPECT_EQ(Store(h), expected.data);
    EXPECT_EQ(h.GetLastModifiedBy(), kCreator);

    const std::vector<BYTE> object = StoreToBytes([&](CArchive& ar) { ar << &h; });
    EXPECT_EQ(object, Bytes().newClass("CFileHeader").append(expected).data);
    CFileHeader* loaded = nullptr;
    LoadFromBytes(object, [&](CArchive& ar) { ar >> loaded; });
    std::unique_ptr<CFileHeader> owner(loaded);
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded->GetFileDesc(), "Étude du sommeil");
    EXPECT_EQ(loaded->GetInstitution(), "Hôpital Nord");
    EXPECT_EQ(loaded->GetFileType(), 2);
    EXPECT_EQ(loaded->GetCreationDateTime(), CSDateTime(45000.25));
    EXPECT_EQ(loaded->GetCreatedBy(), kCreator);
    EXPECT_EQ(loaded->GetLastModifiedBy(), kCreator);
}

TEST(FileHeaderTest, StoringAgainChangesOnlyTheLastModifiedByText) {
    // A header written by an older program.
    const Bytes old = HeaderStart(3).str("Tessaryn 4.2 7 b19").str("Tessaryn 4.3 0 b20");
    CFileHeader h;
    LoadFromBytes(old.data, [&](CArchive& ar) { h.Serialize(ar); });
    EXPECT_EQ(h.GetCreatedBy(), "Tessaryn 4.2 7 b19");
    EXPECT_EQ(h.GetLastModifiedBy(), "Tessaryn 4.3 0 b20");
    EXPECT_EQ(Store(h), HeaderStart(3).str("Tessaryn 4.2 7 b19").str(kCreator).data);
    EXPECT_EQ(h.GetCreatedBy(), "Tessaryn 4.2 7 b19");
    EXPECT_EQ(h.GetLastModifiedBy(), kCreator);
}

TEST(FileHeaderTest, ReadsVersions1And2) {
    CFileHeader h;
    LoadFromBytes(HeaderStart(1).data, [&](CArchive& ar) { h.Serialize(ar); });
    EXPECT_EQ(h.GetFileDesc(), "Étude du sommeil");
    EXPECT_EQ(h.GetInstitution(), "Hôpital Nord");
    EXPECT_EQ(h.GetFileType(), 2);
    EXPECT_EQ(h.GetCreationDateTime(), CSDateTime(45000.25));
    EXPECT_EQ(h.GetCreatedBy(), "Tessaryn 5.3 or earlier");
    EXPECT_EQ(h.GetLastModifiedBy(), "Tessaryn 5.3 or earlier");

    LoadFromBytes(HeaderStart(2).str("Tessaryn 6.0 1 x").data, [&](CArchive& ar) {
        h.Serialize(ar);
        EXPECT_EQ(ar.GetRemaining(), 0u);
    });
    EXPECT_EQ(h.GetCreatedBy(), "Tessaryn 6.0 1 x");
    EXPECT_EQ(h.GetLastModifiedBy(), "Tessaryn 6.0 1 x");
}

TEST(FileHeaderTest, RefusedAndTruncatedArchivesChangeNothing) {
    CFileHeader h("Garde", "Clinique", 1, CSDateTime(41000.0));
    try {
        LoadFromBytes(HeaderStart(4).str("a").str("b").data, [&](CArchive& ar) { h.Serialize(ar); });
        ADD_FAILURE() << "version 4 accepted";
    } catch (const CArchiveException& e) {
        EXPECT_EQ(e.m_cause, CArchiveException::badSchema);
    }
    std::vector<BYTE> cut = HeaderStart(3).str("Tessaryn 6.0 1 x").str("Tessaryn 6.0 1 x").data;
    cut.pop_back();
    EXPECT_THROW(LoadFromBytes(cut, [&](CArchive& ar) { h.Serialize(ar); }), CArchiveException);
    EXPECT_EQ(h.GetFileDesc(), "Garde");
    EXPECT_EQ(h.GetInstitution(), "Clinique");
    EXPECT_EQ(h.GetFileType(), 1);
    EXPECT_EQ(h.GetCreationDateTime(), CSDateTime(41000.0));
    EXPECT_EQ(h.GetCreatedBy(), kCreator);
}
