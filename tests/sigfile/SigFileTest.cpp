// Format dispatch, the static operations' error codes and the error texts.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "platform/Messages.h"
#include "platform/Paths.h"
#include "sigfile/SIGFILE.h"
#include "support/TestSupport.h"

using testsupport::AssertRecorder;
using testsupport::MessageRecorder;
using testsupport::TempDir;

namespace {
void WriteFile(const std::string& name, const std::string& content) {
    std::ofstream(name, std::ios::binary) << content;
}
}  // namespace

TEST(SigFileTest, ServerSignatureNeedsTheSigExtensionAndEightBytes) {
    TempDir dir;
    WriteFile(dir / "a.SIG", "KQUARSIG and more");
    WriteFile(dir / "b.sig", "KQUARSIG");
    WriteFile(dir / "c.DAT", "KQUARSIG");
    WriteFile(dir / "d.SIG", "KQUAR");
    EXPECT_EQ(GetSigFileFormat((dir / "a.SIG").c_str()), SIGFILE_FORMAT_SERVER);
    EXPECT_EQ(GetSigFileFormat((dir / "b.sig").c_str()), SIGFILE_FORMAT_SERVER);
    EXPECT_EQ(GetSigFileFormat((dir / "c.DAT").c_str()), SIGFILE_FORMAT_UNKNOWN);
    EXPECT_FALSE(IsOsgFileFormat((dir / "d.SIG").c_str()));
    EXPECT_FALSE(IsOsgFileFormat((dir / "missing.SIG").c_str()));
    EXPECT_EQ(GetSigFileFormat(nullptr), 0u);
    EXPECT_EQ(GetSigFileFormat(""), 0u);
    EXPECT_FALSE(CSigFile::IsValidFormat(""));
    EXPECT_STREQ(GetSigFileFormatName(SIGFILE_FORMAT_SERVER), "server");
}

TEST(SigFileTest, OpenReportsUnknownFormatsWithTheFrenchText) {
    TempDir dir;
    WriteFile(dir / "x.bin", "garbage");
    long error = 0;
    MessageRecorder boxes;
    EXPECT_EQ(CSigFile::Open((dir / "x.bin").c_str(), 0, &error), nullptr);
    EXPECT_EQ(error, ERROR_BAD_FORMAT);
    EXPECT_TRUE(boxes.texts.empty());  // with an error pointer nothing is shown

    EXPECT_EQ(CSigFile::Open((dir / "x.bin").c_str(), 0, nullptr), nullptr);
    ASSERT_EQ(boxes.texts.size(), 1u);
    EXPECT_EQ(boxes.texts[0], "Erreur impliquant le fichier\n" + (dir / "x.bin") +
                                  "\nou un fichier associé:\n\nTentative de charger un fichier comportant un\n"
                                  "format invalide ou non reconnu");
    EXPECT_EQ(CSigFile::Open(nullptr, 1, &error), nullptr);
    EXPECT_EQ(error, ERROR_BAD_FORMAT);
}

TEST(SigFileTest, ServerRecordingsCannotBeOpenedHere) {
    TempDir dir;
    WriteFile(dir / "s.SIG", "KQUARSIG");
    long error = 0;
    EXPECT_EQ(CSigFile::Open((dir / "s.SIG").c_str(), 0, &error), nullptr);
    EXPECT_EQ(error, ERROR_NOT_SUPPORTED);
}

TEST(SigFileTest, CreateRefusesFormatsItCannotMake) {
    AssertRecorder asserts;
    MessageRecorder boxes;
    long error = 0;
    // No montage with validation on: invalid argument.
    EXPECT_EQ(CSigFile::Create("n.SIG", nullptr, nullptr, nullptr, nullptr, 1, &error, 1), nullptr);
    EXPECT_EQ(error, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CSigFile::Create("n.SIG", nullptr, nullptr, nullptr, nullptr, SIGFILE_FORMAT_BMSI, &error, 0), nullptr);
    EXPECT_EQ(error, ERROR_INVALID_FUNCTION);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FUNCTION);
    EXPECT_TRUE(asserts.hits.empty());
    for (unsigned format : {3u, 6u}) {
        EXPECT_EQ(CSigFile::Create("n.SIG", nullptr, nullptr, nullptr, nullptr, format, &error, 0), nullptr);
        EXPECT_EQ(error, ERROR_BAD_FORMAT);
    }
    EXPECT_EQ(asserts.hits.size(), 2u);
    EXPECT_TRUE(asserts.Saw("SIGFILE", 451));
    EXPECT_TRUE(boxes.texts.empty());
    // Without an error pointer the failure is shown, with the system text.
    CSigFile::Create("n.SIG", nullptr, nullptr, nullptr, nullptr, SIGFILE_FORMAT_BMSI, nullptr, 0);
    ASSERT_EQ(boxes.texts.size(), 1u);
    EXPECT_NE(boxes.texts[0].find("Fonction incorrecte."), std::string::npos);
}

TEST(SigFileTest, ErrorTextsForEveryKindOfCode) {
    MessageRecorder boxes;
    CSigFile::ErrorMessageBox("f.SIG", 24);
    CSigFile::ErrorMessageBox("f.SIG", 32);
    CSigFile::ErrorMessageBox("f.SIG", 4321);
    CSigFile::ErrorMessageBox("", 2);
    CSigFile::ErrorMessageBox(nullptr, 2);
    ASSERT_EQ(boxes.texts.size(), 3u);
    EXPECT_NE(boxes.texts[0].find("La durée du fichier dépasse la limite de 24 heures!"), std::string::npos);
    EXPECT_NE(boxes.texts[1].find("utilisé par un autre processus"), std::string::npos);
    EXPECT_NE(boxes.texts[2].find("Code d'erreur = 4321"), std::string::npos);
}

TEST(SigFileTest, CopyOntoItselfTouchesNothing) {
    TempDir dir;
    WriteFile(dir / "r.SIG", "data");
    EXPECT_EQ(CSigFile::Copy((dir / "r.SIG").c_str(), (dir / "r.SIG").c_str()), 0);
    EXPECT_EQ(CSigFile::Copy((dir / "r.SIG").c_str(), (dir / "R.sig").c_str()), 0);
    EXPECT_FALSE(VhlCheckFileExist(dir / "R.sig"));
}

TEST(SigFileTest, StatusCompanionsAreFoundCopiedRenamedAndDeleted) {
    TempDir dir;
    WriteFile(dir / "rec.STS", "status");
    WriteFile(dir / "rec.000", "zero");
    WriteFile(dir / "rec.002", "two");
    WriteFile(dir / "rec.0001", "not a companion");
    CStringArray ext;
    CSigFile::GetStsExtensions((dir / "rec.SIG").c_str(), &ext);
    ASSERT_EQ(ext.GetSize(), 2);
    EXPECT_EQ(ext[0], ".000");
    EXPECT_EQ(ext[1], ".002");

    CProgressInfo progress;
    EXPECT_TRUE(CSigFile::CopyStsFile((dir / "rec.SIG").c_str(), (dir / "copy.SIG").c_str(), &progress));
    EXPECT_TRUE(VhlCheckFileExist(dir / "copy.STS"));
    EXPECT_TRUE(VhlCheckFileExist(dir / "copy.002"));
    EXPECT_EQ(VhlGetFileSize(dir / "copy.000"), 4u);

    EXPECT_TRUE(CSigFile::RenameStsFile((dir / "copy.SIG").c_str(), (dir / "moved.SIG").c_str()));
    EXPECT_FALSE(VhlCheckFileExist(dir / "copy.STS"));
    EXPECT_TRUE(VhlCheckFileExist(dir / "moved.000"));

    EXPECT_TRUE(CSigFile::DeleteStsFile((dir / "moved.SIG").c_str()));
    EXPECT_FALSE(VhlCheckFileExist(dir / "moved.000"));
    EXPECT_FALSE(VhlCheckFileExist(dir / "moved.002"));
    EXPECT_TRUE(VhlCheckFileExist(dir / "moved.STS"));  // the status file itself stays

    EXPECT_FALSE(CSigFile::CopyStsFile((dir / "none.SIG").c_str(), (dir / "x.SIG").c_str()));
}

TEST(SigFileTest, GenericExceptionKeepsAtMost127Characters) {
    std::string longText(200, 'F');
    CGenericException e(longText.c_str());
    char buf[256];
    EXPECT_TRUE(e.GetErrorMessage(buf, sizeof buf));
    EXPECT_EQ(std::string(buf).size(), 127u);
    char small[8];
    EXPECT_TRUE(e.GetErrorMessage(small, sizeof small));
    EXPECT_STREQ(small, "FFFFFFF");
    AssertRecorder asserts;
    EXPECT_FALSE(e.GetErrorMessage(buf, 0));
    EXPECT_TRUE(asserts.Saw("GenEx", 45));
    try {
        ThrowGenericException("Failure opening signal file");
    } catch (const CGenericException& g) {
        EXPECT_EQ(g.GetMessageText(), "Failure opening signal file");
        EXPECT_EQ(g.GetCode(), -1);
    }
    CGenericException empty(nullptr);
    EXPECT_EQ(empty.GetMessageText(), "");
}
