// Nihon Kohden file sets built byte by byte: what opens, what is tolerated,
// what is refused, and the set moving as one on copy, rename and delete.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "recording/ptntinfo.h"
#include "sigfile/SIGFILE.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"
#include "support/NkFiles.h"
#include "support/TestSupport.h"

using testsupport::TempDir;

namespace {

using namespace nktest;

void WriteSet(const std::string& base, const Bytes& eeg, bool pnt = true, bool log = true, bool e21 = true) {
    eeg.Write(base + ".EEG");
    if (pnt) {
        Bytes p(0x700);
        p.Text(0, kDevice);
        p.Text(0x40, "20240102030400");
        p.Text(0x604, "ID-77");
        p.Text(0x62E, "Dupont H\xE9l\xE8ne");  // Windows-1252
        p.Text(0x64A, "Weibl.");
        p.Text(0x660, "1961/05/02");
        p.Write(base + ".PNT");
    }
    if (log) {
        Bytes l(0x600);
        l.Text(0, kDevice);
        l.U8(0x91, 1);
        l.U32(0x92, 0x400);
        l.Text(0x401, kDevice);
        l.U8(0x400 + 0x12, 2);
        l.Text(0x414, "Yeux ferm\xC3\xA9s");  // UTF-8
        l.Text(0x414 + 20, "000001");
        l.Text(0x414 + 45, "Artefact");
        l.Text(0x414 + 45 + 20, "000012");
        l.Write(base + ".LOG");
    }
    if (e21) std::ofstream(base + ".21E") << "[ELECTRODE]\r\n0000=Fp2\r\n0001=Fp1\r\n[REFERENCE]\r\n0076=$A2\r\n";
}

}  // namespace

TEST(NihonKohden, ASetOpensWithItsChannelsValuesBlocksPatientAndEvents) {
    TempDir dir;
    const std::string base = dir / "night";
    // Two blocks of 2 s, the second 3 s after the first ends.
    WriteSet(base, MakeEeg({{0, 20}, {5, 20}}));
    EXPECT_EQ(GetSigFileFormat((base + ".EEG").c_str()), SIGFILE_FORMAT_NIHONKOHDEN);
    long error = 0;
    CSigFilePtr f(CSigFile::Open((base + ".EEG").c_str(), 0, &error));
    ASSERT_TRUE(f) << error;
    EXPECT_TRUE(f->IsReadOnly());
    ASSERT_EQ(f->GetNumChannels(), 3u);
    CSigChannelInfo info;
    f->GetChannelInfo(0, &info);
    EXPECT_EQ(info.label, "Fp2");
    f->GetChannelInfo(2, &info);
    EXPECT_EQ(info.label, "$A2");
    EXPECT_EQ(info.unit, "mV");
    EXPECT_DOUBLE_EQ(f->GetChannelFrequency(1), 100.0);
    ASSERT_EQ(f->GetNumRecords(), 4);  // one-second records
    std::unique_ptr<CFmtSigRec> fmt(f->CreateCompatibleFmtSigRec());
    std::unique_ptr<CRawSigRec> raw(f->CreateCompatibleRawSigRec());
    for (long r = 0; r < 4; ++r) {
        f->MoveTo(r);
        ASSERT_TRUE(f->ReadAsVolts(fmt.get()));
        ASSERT_TRUE(f->Read(raw.get()));
        const int block = int(r / 2);
        for (unsigned c = 0; c < 3; ++c) {
            const double lo = c == 2 ? -12002.9 : -3200.0, hi = c == 2 ? 12002.56 : 3199.902;
            const double unit = c == 2 ? 1e-3 : 1e-6;
            for (unsigned s = 0; s < 100; ++s) {
                const short d = SampleOf(block, c, unsigned(r % 2) * 100 + s);
                EXPECT_EQ(raw->GetAt(c, s), d);
                EXPECT_FLOAT_EQ(fmt->GetAt(c, s), float((lo + (d + 32768.0) * (hi - lo) / 65535.0) * unit));
            }
        }
        const double expected = r < 2 ? r : 5 + (r - 2);
        EXPECT_NEAR((fmt->GetTime() - CSDateTime(2024, 1, 2, 3, 4, 0)).GetTotalSeconds(), expected, 1e-3) << r;
    }
    const CPatientInfo* p = f->GetPatientInfo();
    EXPECT_EQ(p->GetPatientId1(), "ID-77");
    EXPECT_EQ(p->GetLastName(), "Dupont");
    EXPECT_EQ(p->GetFirstName(), "H\xC3\xA9l\xC3\xA8ne");
    EXPECT_EQ(p->GetSex(), 2);
    EXPECT_EQ(p->GetBirthDate().GetYear(), 1961);
    // The gap is a discontinuity; the log's events keep their times.
    std::vector<std::string> events;
    for (unsigned i = 0; i < f->GetNumStatusItems(); ++i) {
        const CStatusItem* it = f->GetStatusItemAt(i);
        if (EqualsNoCase(it->GetGroup()->GetGroupID(), groupid::kDiscontinuity)) {
            EXPECT_EQ(it->GetBeginSample(), 200);
            continue;
        }
        events.push_back(it->GetName() + " " +
                         StrFormat("%.0f", (it->GetBeginTime() - CSDateTime(2024, 1, 2, 3, 4, 0)).GetTotalSeconds()));
    }
    EXPECT_EQ(events, (std::vector<std::string>{"Yeux ferm\xC3\xA9s 1", "Artefact 12"}));
    CStringArray notes;
    f->GetFormatNotes(&notes);
    EXPECT_EQ(notes.GetSize(), 0);
}

TEST(NihonKohden, MissingSideFilesAndTruncationAreToleratedAndSaid) {
    TempDir dir;
    const std::string base = dir / "rec";
    Bytes eeg = MakeEeg({{0, 30}});
    eeg.b.resize(eeg.b.size() - 8 * 50 - 3);  // the last 50 instants and a half
    WriteSet(base, eeg, false, false, false);
    long error = 0;
    CSigFilePtr f(CSigFile::Open((base + ".EEG").c_str(), 1, &error));
    ASSERT_TRUE(f) << error;
    CStringArray notes;
    f->GetFormatNotes(&notes);
    std::string all;
    for (const std::string& n : notes) all += n + "\n";
    EXPECT_NE(all.find(".21E"), std::string::npos) << all;
    EXPECT_NE(all.find(".PNT"), std::string::npos) << all;
    EXPECT_NE(all.find(".LOG"), std::string::npos) << all;
    EXPECT_NE(all.find("300 échantillons"), std::string::npos) << all;
    // 249 whole instants: records of the largest common part that fits.
    EXPECT_EQ(f->GetNumRecords() * long(f->GetSamplesChannel(0)), 249);
    CSigChannelInfo info;
    f->GetChannelInfo(0, &info);
    EXPECT_EQ(info.label, "FP1");  // the standard table
}

TEST(NihonKohden, DamagedSetsAreRefusedWithAClearMessage) {
    TempDir dir;
    std::string box;
    auto refused = [&](const std::string& name, const std::string& field) {
        long error = 0;
        CSigFilePtr f(CSigFile::Open(name.c_str(), 1, &error));
        EXPECT_FALSE(f) << name;
        EXPECT_EQ(error, ERROR_BAD_FORMAT);
        box.clear();
        auto old = SetMessageSink([&](const std::string& text, const std::string&) { box += text; });
        CSigFile::ErrorMessageBox(name.c_str(), error);
        SetMessageSink(old);
        EXPECT_NE(box.find(field), std::string::npos) << box;
    };
    // A data block announced past the end of the file.
    Bytes e = MakeEeg({{0, 10}});
    e.U32(0x400 + 18, 0x7FFFFFF0);
    WriteSet(dir / "past", e);
    refused(dir / "past.EEG", "au-delà");
    // A second block with other channels.
    Bytes mixed = MakeEeg({{0, 10}, {1, 10}});
    const size_t second = 0x17FE + 0x27 + 30 + 100 * 4 * 2;  // the second block's header
    mixed.U8(second + 0x27 + 20, 5);                        // its third code
    WriteSet(dir / "codes", mixed);
    refused(dir / "codes.EEG", "canaux");
    // A file that merely bears the extension is not claimed.
    std::ofstream(dir / "other.EEG") << std::string(2000, 'x');
    EXPECT_EQ(GetSigFileFormat((dir / "other.EEG").c_str()), SIGFILE_FORMAT_UNKNOWN);
}

TEST(NihonKohden, CopyRenameAndDeleteMoveTheWholeSet) {
    TempDir dir;
    WriteSet(dir / "a", MakeEeg({{0, 10}}));
    std::ofstream(dir / "a.CMT") << "comments";
    ASSERT_TRUE(CSigFile::Copy((dir / "a.EEG").c_str(), (dir / "b.EEG").c_str()));
    for (const char* ext : {".EEG", ".PNT", ".LOG", ".21E", ".CMT"}) {
        EXPECT_TRUE(VhlCheckFileExist(dir / (std::string("a") + ext))) << ext;
        EXPECT_TRUE(VhlCheckFileExist(dir / (std::string("b") + ext))) << ext;
    }
    ASSERT_TRUE(CSigFile::Rename((dir / "b.EEG").c_str(), (dir / "c.EEG").c_str()));
    EXPECT_FALSE(VhlCheckFileExist(dir / "b.LOG"));
    EXPECT_TRUE(VhlCheckFileExist(dir / "c.LOG"));
    long error = 0;
    CSigFilePtr f(CSigFile::Open((dir / "c.EEG").c_str(), 1, &error));
    ASSERT_TRUE(f);
    EXPECT_EQ(f->GetNumStatusItems(), 2u);
    f.reset();
    ASSERT_TRUE(CSigFile::Delete((dir / "c.EEG").c_str()));
    for (const char* ext : {".EEG", ".PNT", ".LOG", ".21E", ".CMT"})
        EXPECT_FALSE(VhlCheckFileExist(dir / (std::string("c") + ext))) << ext;
}
