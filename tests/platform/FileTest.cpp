// Files: the share-mode locking rule, error codes, and whole-file operations.
#include <gtest/gtest.h>

#include "platform/File.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "support/TestSupport.h"

TEST(FileTest, SecondWriterGetsSharingViolationReadersDoNot) {
    testsupport::TempDir dir;
    std::string name = dir / "x.SIG";
    CFile writer;
    ASSERT_TRUE(writer.Open(name.c_str(), CFile::modeCreate | CFile::modeReadWrite | CFile::shareDenyWrite));
    writer.Write("abcd", 4);

    CFile second;
    CFileException e;
    EXPECT_FALSE(second.Open(name.c_str(), CFile::modeReadWrite | CFile::shareDenyWrite, &e));
    EXPECT_EQ(e.m_lOsError, ERROR_SHARING_VIOLATION);
    EXPECT_EQ(e.m_cause, CFileException::sharingViolation);
    // The refused writer must not have truncated the file.
    EXPECT_FALSE(second.Open(name.c_str(), CFile::modeCreate | CFile::modeReadWrite | CFile::shareExclusive, &e));
    EXPECT_EQ(VhlGetFileSize(name), 4u);

    CFile reader;
    ASSERT_TRUE(reader.Open(name.c_str(), CFile::modeRead | CFile::shareDenyNone));
    char buf[8];
    EXPECT_EQ(reader.Read(buf, 8), 4u);

    writer.Close();
    EXPECT_TRUE(second.Open(name.c_str(), CFile::modeReadWrite | CFile::shareDenyWrite));
}

TEST(FileTest, MissingFilesReportSystemCodes) {
    testsupport::TempDir dir;
    CFile f;
    CFileException e;
    EXPECT_FALSE(f.Open((dir / "none.bin").c_str(), CFile::modeRead, &e));
    EXPECT_EQ(e.m_lOsError, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(f.Open((dir / "no/such/dir.bin").c_str(), CFile::modeRead, &e));
    EXPECT_EQ(e.m_cause, CFileException::fileNotFound);
    std::string text;
    EXPECT_TRUE(GetSystemErrorText(ERROR_SHARING_VIOLATION, text));
    EXPECT_NE(text.find("utilisé par un autre processus"), std::string::npos);
}

TEST(FileTest, CopyReplacesOnlyWhenComplete) {
    testsupport::TempDir dir;
    std::string from = dir / "a", to = dir / "b";
    {
        CFile f(from.c_str(), CFile::modeCreate | CFile::modeWrite);
        std::string data(3 << 20, 'z');
        f.Write(data.data(), static_cast<UINT>(data.size()));
    }
    {
        CFile f(to.c_str(), CFile::modeCreate | CFile::modeWrite);
        f.Write("old", 3);
    }
    // A copy stopped half-way leaves the old target as it was.
    EXPECT_FALSE(CopyFileReplace(from, to, [](ULONGLONG done, ULONGLONG) { return done < (1u << 20); }));
    EXPECT_EQ(VhlGetFileSize(to), 3u);
    EXPECT_FALSE(VhlCheckFileExist(to + ".part~"));
    ULONGLONG last = 0;
    EXPECT_TRUE(CopyFileReplace(from, to, [&](ULONGLONG done, ULONGLONG total) { last = done; return done <= total; }));
    EXPECT_EQ(VhlGetFileSize(to), 3u << 20);
    EXPECT_EQ(last, 3u << 20);
    EXPECT_FALSE(CopyFileReplace(dir / "missing", to));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(FileTest, PathPieces) {
    EXPECT_EQ(ExtractDriveDir("/data/night/N1.SIG"), "/data/night/");
    EXPECT_EQ(ExtractFName("/data/night/N1.SIG"), "N1");
    EXPECT_EQ(ExtractExt("/data/night/N1.SIG"), ".SIG");
    EXPECT_EQ(ExtractExt("/data/n.x/N1"), "");
    EXPECT_EQ(ExtractBase("N1.sig"), "N1");
}
