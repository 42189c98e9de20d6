// Native recordings through EDF+ and BDF+ and back: samples bit for bit,
// labels, record times, annotations with their groups; the header and signal
// fields of an export; imports of foreign files (wide BDF ranges, mixed
// rates, malformed headers) and the import command.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

#include "montage/mtgs.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "formats/edf/EdfExport.h"
#include "formats/edf/EdfReader.h"
#include "formats/edf/EdfWriter.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"
#include "support/SmallRecording.h"
#include "support/TestSupport.h"

using namespace testsupport;
using namespace edf;

namespace {

using FilePtr = CSigFilePtr;

const CSDateTime kStart(2026, 1, 31, 22, 5, 0.5);

// 20 records of 0.25 s at 256 Hz (channels at 256, 256 and 128 Hz), a 3 s gap
// before record 12, three groups of items.
void MakeRecording(const std::string& name, long records = 20) {
    auto d = DescribeRecording({256, 256, 128});
    d.patient->SetPatientId1("ID-42");
    d.patient->SetSex(2);
    d.patient->SetBirthDate(CSDateTime(1961, 5, 2));
    d.montage->GetRecordingMontageAt(0)->SetType(2, 3);  // EMG
    d.calibration->SetCalibFromGain(1, 2.0f, 0.0f, 1);    // world unit = 2 uV
    long error = 0;
    FilePtr f(CreateRecording(name, d, &error));
    ASSERT_TRUE(f) << error;
    std::unique_ptr<CRawSigRec> rec(f->CreateCompatibleRawSigRec());
    for (long r = 0; r < records; ++r) {
        FillRecord(*rec, r);
        rec->SetTime(kStart + CSTimeSpan(r * 0.25 + (r >= 12 ? 3.0 : 0.0)));
        f->MoveTo(r);
        ASSERT_TRUE(f->Write(rec.get()));
    }
    auto* notes = new CStatusGroup(groupid::kAnnotation, "Annotation", "", 3, 0, 0, -1, "", 0, 0, 1, 0);
    auto* marks = new CStatusGroup(groupid::kBookmarks, "Bookmarks", "", 3, 0, 0, -1, "", 0, 0, 1, 0);
    auto* stages = new CStatusGroup("11111111-2222-3333-4444-555555555555", "Stades", "", 3, 0, 1, -1, "", 0, 0, 1, 0);
    f->AddGroup(notes);
    f->AddGroup(marks);
    f->AddGroup(stages);
    // Item times follow the record times (the gap included).
    auto at = [](LONG s) { return kStart + CSTimeSpan(s / 256.0 + (s >= 12 * 64 ? 3.0 : 0.0)); };
    auto add = [&](CStatusGroup* g, LONG b, LONG e, const char* text) {
        f->AddStatusItem(new CStatusItem(g, b, at(b), e, at(e), "", text, "", 0, 1));
    };
    add(notes, 5, 5, "Yeux fermés");
    add(notes, 100, 100, "Remarque: artefact");
    add(marks, 700, 700, "Signet");      // record 10
    add(stages, 800, 1088, "Stade 2");   // record 12, after the gap
    add(stages, 1200, 1264, "Éveil");
    ASSERT_TRUE(f->Flush());
}

struct ItemView {
    std::string group, name;
    LONG begin, end;
    bool operator==(const ItemView&) const = default;
};

// The items of a recording; the gap markers that a conversion adds where
// records do not follow one another are left out.
std::vector<ItemView> Items(CSigFile& f) {
    std::vector<ItemView> v;
    for (unsigned i = 0; i < f.GetNumStatusItems(); ++i) {
        const CStatusItem* it = f.GetStatusItemAt(i);
        if (EqualsNoCase(it->GetGroup()->GetGroupID(), groupid::kDiscontinuity)) continue;
        v.push_back({it->GetGroup()->GetGroupName(), it->GetName(), it->GetBeginSample(), it->GetEndSample()});
    }
    return v;
}

std::vector<BYTE> ReadBytes(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::vector<BYTE>(std::istreambuf_iterator<char>(in), {});
}

void WriteBytes(const std::string& name, const std::vector<BYTE>& bytes) {
    std::ofstream(name, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// Writes a small foreign file: one signal per (label, samples per 1 s record).
void WriteForeign(const std::string& path, EdfFormat format, const std::vector<std::pair<std::string, int>>& sigs,
                  LONG dmin, LONG dmax, int records = 4) {
    EdfHeader h;
    h.format = format;
    h.start = CSDateTime(2025, 6, 1, 8, 0, 0);
    h.recordDuration = 1;
    std::vector<EdfSignal> signals;
    for (const auto& [label, n] : sigs) {
        EdfSignal s;
        s.label = label;
        s.unit = "uV";
        s.samplesPerRecord = n;
        s.digitalMin = dmin;
        s.digitalMax = dmax;
        s.physicalMin = -500;
        s.physicalMax = 500;
        signals.push_back(s);
    }
    EdfWriter w;
    std::string error;
    ASSERT_TRUE(w.Open(path, h, signals, 0, error)) << error;
    for (int r = 0; r < records; ++r) {
        std::vector<std::vector<LONG>> samples;
        for (size_t i = 0; i < signals.size(); ++i) {
            samples.emplace_back();
            for (int k = 0; k < signals[i].samplesPerRecord; ++k)
                samples.back().push_back(LONG(dmin + ((long long)(r * 977 + k * 7919 + i * 31) * 104729) %
                                                         ((long long)dmax - dmin + 1)));
        }
        ASSERT_TRUE(w.WriteRecord(r, samples, {}, error)) << error;
    }
    ASSERT_TRUE(w.Close(error)) << error;
}

// An import is the native driver's create-copy of the opened file.
int ImportEdf(const char* in, const char* out, const CSigFileCopyOptions& options, std::string* error) {
    return ConvertSigFile(in, out, options, error);
}

bool NoRecordingIn(const TempDir& dir, const std::string& base) {
    for (const char* ext : {".SIG", ".STS"})
        if (VhlCheckFileExist(dir / (base + ext))) return false;
    return true;
}

}  // namespace

TEST(EdfExportImportTest, NativeThroughEdfAndBdfAndBackKeepsSamplesLabelsTimesAndItems) {
    TempDir dir;
    const std::string native = dir / "night.SIG";
    MakeRecording(native);
    FilePtr original(CSigFile::Open(native.c_str(), 1));
    ASSERT_TRUE(original);
    const std::vector<ItemView> items = Items(*original);
    ASSERT_EQ(items.size(), 5u);

    for (const char* ext : {".edf", ".bdf"}) {
        SCOPED_TRACE(ext);
        const std::string exported = dir / (std::string("night") + ext);
        const std::string back = dir / (std::string("back") + (ext[1] == 'e' ? "E" : "B") + ".SIG");
        std::string error;
        ASSERT_EQ(ExportEdf(native.c_str(), exported.c_str(), {}, &error), 1) << error;

        EdfReader reader;
        ASSERT_TRUE(reader.Open(exported, error)) << error;
        EXPECT_EQ(reader.Header().format, ext[1] == 'e' ? EdfFormat::EdfPlus : EdfFormat::BdfPlus);
        EXPECT_TRUE(reader.Header().discontinuous);
        EXPECT_EQ(reader.Header().recordDuration, 0.25);
        EXPECT_EQ(reader.RecordCount(), 20);
        EXPECT_NEAR(reader.RecordStart(12), 6.5, 1e-6);  // from the header's whole second
        ASSERT_EQ(reader.Signals().size(), 3u);
        EXPECT_EQ(reader.Signals()[0].label, "Fp1-REF");
        EXPECT_EQ(reader.Signals()[2].transducer, "EMG");
        EXPECT_EQ(reader.Signals()[1].unit, "uV");
        EXPECT_EQ(reader.Signals()[2].samplesPerRecord, 32);
        EXPECT_EQ(reader.Signals()[0].digitalMin, -32768);
        EXPECT_NEAR(reader.Signals()[1].physicalMax, 1638.35, 1e-3);
        EXPECT_EQ(reader.Header().patient.code, "ID-42");
        EXPECT_EQ(reader.Header().patient.sex, 'F');
        EXPECT_EQ(reader.Header().patient.birthYear, 1961);
        EXPECT_EQ(reader.Header().patient.name, "Martin Helene");
        // Onsets from the record times; group convention in the texts.
        std::vector<EdfAnnotation> expected = {{5 / 256.0 + 0.5, std::nullopt, "Yeux fermés"},
                                               {100 / 256.0 + 0.5, std::nullopt, "Annotation: Remarque: artefact"},
                                               {700 / 256.0 + 0.5, std::nullopt, "Bookmarks: Signet"},
                                               {800 / 256.0 + 3.5, 288 / 256.0, "Stades: Stade 2"},
                                               {1200 / 256.0 + 3.5, 0.25, "Stades: Éveil"}};
        ASSERT_EQ(reader.Annotations().size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) {
            EXPECT_NEAR(reader.Annotations()[i].onset, expected[i].onset, 1e-6) << i;
            EXPECT_EQ(reader.Annotations()[i].duration.has_value(), expected[i].duration.has_value()) << i;
            EXPECT_NEAR(reader.Annotations()[i].duration.value_or(0), expected[i].duration.value_or(0), 1e-6);
            EXPECT_EQ(reader.Annotations()[i].text, expected[i].text);
        }
        reader.Close();

        ASSERT_EQ(ImportEdf(exported.c_str(), back.c_str(), {}, &error), 1) << error;
        FilePtr f(CSigFile::Open(back.c_str(), 1));
        ASSERT_TRUE(f);
        ASSERT_EQ(f->GetNumRecords(), 20);
        ASSERT_EQ(f->GetNumChannels(), 3u);
        const CRecordingMontage* rec = f->GetPhysicalMontage()->GetRecordingMontageAt(0);
        const CRecordingMontage* orig = original->GetPhysicalMontage()->GetRecordingMontageAt(0);
        EXPECT_EQ(rec->GetBaseFrequency(), 256u);
        for (unsigned c = 0; c < 3; ++c) {
            EXPECT_EQ(rec->GetLabel(c), orig->GetLabel(c));
            EXPECT_EQ(rec->GetFrequency(c), orig->GetFrequency(c));
            EXPECT_EQ(rec->GetType(c), orig->GetType(c));
            EXPECT_EQ(rec->GetUnit(c), orig->GetUnit(c));
            for (int ad : {-32768, -1, 0, 32767})
                EXPECT_NEAR(f->GetCalibration()->AdToWorld(c, ad), original->GetCalibration()->AdToWorld(c, ad),
                            1e-3);
        }
        std::unique_ptr<CRawSigRec> a(original->CreateCompatibleRawSigRec()), b(f->CreateCompatibleRawSigRec());
        for (long r = 0; r < 20; ++r) {
            original->MoveTo(r);
            f->MoveTo(r);
            ASSERT_TRUE(original->Read(a.get()));
            ASSERT_TRUE(f->Read(b.get()));
            ASSERT_EQ(a->GetTotalSamples(), b->GetTotalSamples());
            ASSERT_TRUE(std::equal(a->GetData(), a->GetData() + a->GetTotalSamples(), b->GetData())) << r;
            EXPECT_NEAR((b->GetTime() - a->GetTime()).GetTotalSeconds(), 0.0, 1e-5) << r;
        }
        EXPECT_EQ(Items(*f), items);
        for (unsigned g = 0; g < f->GetNumGroups(); ++g) {
            const CStatusGroup* group = f->GetGroupAt(g);
            if (group->GetGroupName() == "Annotation") {
                EXPECT_EQ(group->GetGroupID(), groupid::kAnnotation);
            } else if (group->GetGroupName() == "Bookmarks") {
                EXPECT_EQ(group->GetGroupID(), groupid::kBookmarks);
            } else if (group->GetGroupID() == groupid::kDiscontinuity) {
                EXPECT_EQ(group->GetGroupType(), 0u);  // the gap before record 12
            } else if (group->GetGroupID() == groupid::kChannelDescriptions) {
                // CH0..CH2 and the source's record duration (no partial record here).
                EXPECT_EQ(group->GetGroupNumProperties(), 4);
                EXPECT_FALSE(group->GetGroupPropertyValueAt(kSourceRecordKey).empty());
            } else {
                EXPECT_EQ(group->GetGroupName(), "Stades");
                EXPECT_EQ(group->GetGroupExtent(), 1u);
            }
        }
        EXPECT_EQ(f->GetPatientInfo()->GetPatientId1(), "ID-42");
        EXPECT_EQ(f->GetPatientInfo()->GetLastName(), "Martin");
        EXPECT_EQ(f->GetPatientInfo()->GetSex(), 2);
        EXPECT_NEAR((f->GetFileHeader()->GetCreationDateTime() - kStart).GetTotalSeconds(), 0.0, 1e-5);
        EXPECT_TRUE(NoRecordingIn(dir, ExtractFName(back) + "~edf0"));
    }
}

TEST(EdfExportImportTest, RecordRangeAndReformattedMontage) {
    TempDir dir;
    const std::string native = dir / "night.SIG";
    MakeRecording(native);
    std::string error;
    EdfExportOptions range;
    ASSERT_TRUE(ParseRecordRange("4:14", range.firstRecord, range.endRecord));
    ASSERT_EQ(ExportEdf(native.c_str(), (dir / "part.edf").c_str(), range, &error), 1) << error;
    EdfReader reader;
    ASSERT_TRUE(reader.Open(dir / "part.edf", error)) << error;
    EXPECT_EQ(reader.RecordCount(), 10);
    EXPECT_NEAR(reader.RecordStart(8), 5.5, 1e-6);  // record 12, after the gap; start 22:05:01.5
    ASSERT_EQ(reader.Annotations().size(), 2u);                          // items of records 4 to 13
    EXPECT_NEAR(reader.Annotations()[1].onset, 800 / 256.0 + 3.0 - 1.0 + 0.5, 1e-6);
    reader.Close();

    // An empty range gives a valid file without records.
    EdfExportOptions none;
    ASSERT_TRUE(ParseRecordRange("3:3", none.firstRecord, none.endRecord));
    ASSERT_EQ(ExportEdf(native.c_str(), (dir / "empty.edf").c_str(), none, &error), 1) << error;
    ASSERT_TRUE(reader.Open(dir / "empty.edf", error)) << error;
    EXPECT_EQ(reader.RecordCount(), 0);
    EXPECT_EQ(reader.Signals().size(), 3u);
    reader.Close();

    // Out-of-range and malformed ranges.
    EdfExportOptions bad;
    bad.firstRecord = 5;
    bad.endRecord = 21;
    EXPECT_EQ(ExportEdf(native.c_str(), (dir / "bad.edf").c_str(), bad, &error), 0);
    EXPECT_NE(error.find("21"), std::string::npos);
    EXPECT_FALSE(VhlCheckFileExist(dir / "bad.edf"));
    long a, b;
    EXPECT_FALSE(ParseRecordRange("4-14", a, b));
    EXPECT_FALSE(ParseRecordRange("x:3", a, b));
    ASSERT_TRUE(ParseRecordRange(":", a, b));
    EXPECT_EQ(a, 0);
    EXPECT_EQ(b, -1);

    // A reformatted montage: the bipolar derivation computed by the formula
    // engine, digitised over its own range.
    {
        FilePtr f(CSigFile::Open(native.c_str(), 0));
        ASSERT_TRUE(f);
        auto* physical = new CPhysicalMontage(*f->GetPhysicalMontage());
        CReformatedMontage* ref = physical->GetRecordingMontageAt(0)->CreateReformatedMontage();
        ref->SetMontageName("Bipolaire");
        ASSERT_TRUE(ref->AddChannel("Fp1-Fp2", "FP1-FP2", 0));
        f->SetPhysicalMontage(physical);
        ASSERT_TRUE(f->Flush());
    }
    EdfExportOptions montage;
    montage.montage = "Bipolaire";
    ASSERT_EQ(ExportEdf(native.c_str(), (dir / "bip.bdf").c_str(), montage, &error), 1) << error;
    montage.montage = "Absent";
    EXPECT_EQ(ExportEdf(native.c_str(), (dir / "none.edf").c_str(), montage, &error), 0);
    EXPECT_NE(error.find("Absent"), std::string::npos);

    ASSERT_TRUE(reader.Open(dir / "bip.bdf", error)) << error;
    ASSERT_EQ(reader.Signals().size(), 1u);
    const EdfSignal& s = reader.Signals()[0];
    EXPECT_EQ(s.label, "Fp1-Fp2");
    EXPECT_EQ(s.digitalMin, -8388608);
    FilePtr f(CSigFile::Open(native.c_str(), 1));
    std::unique_ptr<CFmtSigRec> fmt(f->CreateCompatibleFmtSigRec());
    double worst = 0, top = -1e9;
    for (long r = 0; r < 20; ++r) {
        std::vector<std::vector<LONG>> samples;
        ASSERT_TRUE(reader.ReadRecord(r, samples, error));
        f->MoveTo(r);
        ASSERT_TRUE(f->Read(fmt.get()));
        for (unsigned k = 0; k < 64; ++k) {
            double want = double(fmt->GetAt(0, k)) - double(fmt->GetAt(1, k));
            worst = std::max(worst, std::fabs(s.ToPhysical(samples[0][k]) - want));
            top = std::max(top, want);
        }
    }
    EXPECT_LT(worst, 1e-3);  // float world values; the step is about 1e-3 uV
    EXPECT_NEAR(s.physicalMax, top, 1e-2);
}

TEST(EdfExportImportTest, WideBdfRangesAreMappedOntoSixteenBitsWithinHalfAStep) {
    TempDir dir;
    const std::string bdf = dir / "wide.bdf";
    WriteForeign(bdf, EdfFormat::Bdf, {{"EEG C3-A2", 256}, {"Pulse", 256}}, -8388608, 8388607);
    std::string error;
    ASSERT_EQ(ImportEdf(bdf.c_str(), (dir / "wide.SIG").c_str(), {}, &error), 1) << error;
    FilePtr f(CSigFile::Open((dir / "wide.SIG").c_str(), 1));
    ASSERT_TRUE(f);
    const CRecordingMontage* rec = f->GetPhysicalMontage()->GetRecordingMontageAt(0);
    EXPECT_EQ(std::string(rec->GetElectrodeName1(0)), "C3");
    EXPECT_EQ(std::string(rec->GetElectrodeName2(0)), "A2");
    EXPECT_EQ(rec->GetType(0), 1u);
    EXPECT_EQ(std::string(rec->GetElectrodeName1(1)), "Pulse");
    EXPECT_EQ(std::string(rec->GetElectrodeName2(1)), "");
    EXPECT_EQ(f->GetNumRecords(), 16);  // 4 s in records of 0.25 s

    EdfReader reader;
    ASSERT_TRUE(reader.Open(bdf, error));
    const double halfStep = 1000.0 / 65535 / 2;
    std::unique_ptr<CRawSigRec> raw(f->CreateCompatibleRawSigRec());
    double worst = 0;
    for (long r = 0; r < 4; ++r) {
        std::vector<std::vector<LONG>> samples;
        ASSERT_TRUE(reader.ReadRecord(r, samples, error));
        for (long q = 0; q < 4; ++q) {
            f->MoveTo(r * 4 + q);
            ASSERT_TRUE(f->Read(raw.get()));
            for (unsigned c = 0; c < 2; ++c)
                for (unsigned k = 0; k < 64; ++k) {
                    double want = reader.Signals()[c].ToPhysical(samples[c][q * 64 + k]);
                    double got = f->GetCalibration()->AdToWorld(c, raw->GetAt(c, k));
                    worst = std::max(worst, std::fabs(got - want));
                }
        }
    }
    EXPECT_LE(worst, halfStep * 1.01);
    EXPECT_GT(worst, halfStep * 0.5);  // the mapping does lose the low bits
}

// A 16-bit file of 1 s records is copied four native records at a time; a
// BDF+ file of the same values goes through the general re-cutting path.
// Both must give the same recording: samples, record times across gaps,
// items.
TEST(EdfExportImportTest, WholeRecordCopyMatchesTheGeneralPathAcrossGaps) {
    TempDir dir;
    const std::vector<double> starts = {0, 1, 2, 5, 6, 9.5};
    const std::vector<EdfAnnotation> annotations = {{0.5, 2.0, "Arousal"}, {6.25, {}, "Note: mark"}};
    std::vector<EdfSignal> signals;
    for (const auto& [label, n] : std::vector<std::pair<std::string, int>>{{"EEG C3-A2", 256}, {"Resp", 32}}) {
        EdfSignal s;
        s.label = label;
        s.unit = "uV";
        s.samplesPerRecord = n;
        s.digitalMin = -32768;
        s.digitalMax = 32767;
        s.physicalMin = -3276.8;
        s.physicalMax = 3276.7;
        signals.push_back(s);
    }
    auto samplesOf = [&](size_t r) {
        std::vector<std::vector<LONG>> v(signals.size());
        for (size_t c = 0; c < signals.size(); ++c)
            for (int k = 0; k < signals[c].samplesPerRecord; ++k)
                v[c].push_back(LONG((long long)(r * 7919 + size_t(k) * 104729 + c * 31) % 65536 - 32768));
        return v;
    };
    std::vector<FilePtr> imported;
    for (EdfFormat format : {EdfFormat::EdfPlus, EdfFormat::BdfPlus}) {
        const std::string path = dir / (format == EdfFormat::EdfPlus ? "gaps.edf" : "gaps.bdf");
        const std::string out = dir / (format == EdfFormat::EdfPlus ? "fromedf.SIG" : "frombdf.SIG");
        EdfHeader h;
        h.format = format;
        h.start = CSDateTime(2025, 6, 1, 8, 0, 0);
        h.recordDuration = 1;
        EdfAnnotationPlan plan = PlanAnnotations(starts, annotations);
        EdfWriter w;
        std::string error;
        ASSERT_TRUE(w.Open(path, h, signals, plan.bytesPerRecord, error)) << error;
        for (size_t r = 0; r < starts.size(); ++r)
            ASSERT_TRUE(w.WriteRecord(starts[r], samplesOf(r), plan.perRecord[r], error)) << error;
        ASSERT_TRUE(w.Close(error)) << error;
        ASSERT_EQ(ImportEdf(path.c_str(), out.c_str(), {}, &error), 1) << error;
        imported.emplace_back(CSigFile::Open(out.c_str(), 1));
        ASSERT_TRUE(imported.back());
    }
    CSigFile& fast = *imported[0];
    CSigFile& general = *imported[1];
    ASSERT_EQ(fast.GetNumRecords(), 24);
    ASSERT_EQ(general.GetNumRecords(), 24);
    std::unique_ptr<CRawSigRec> a(fast.CreateCompatibleRawSigRec()), b(general.CreateCompatibleRawSigRec());
    for (long r = 0; r < 24; ++r) {
        fast.MoveTo(r);
        general.MoveTo(r);
        ASSERT_TRUE(fast.Read(a.get()));
        ASSERT_TRUE(general.Read(b.get()));
        const auto source = samplesOf(size_t(r / 4));
        for (unsigned c = 0; c < 2; ++c)
            for (unsigned k = 0; k < a->GetNumSamples(c); ++k) {
                ASSERT_EQ(a->GetAt(c, k), source[c][(r % 4) * a->GetNumSamples(c) + k]) << r << " " << c;
                ASSERT_EQ(a->GetAt(c, k), b->GetAt(c, k));
            }
        const double expected = starts[size_t(r / 4)] + (r % 4) * 0.25;
        EXPECT_NEAR((a->GetTime() - CSDateTime(2025, 6, 1, 8, 0, 0)).GetTotalSeconds(), expected, 1e-3) << r;
        EXPECT_EQ(a->GetTime(), b->GetTime()) << r;
    }
    EXPECT_EQ(Items(fast), Items(general));
    EXPECT_EQ(Items(fast).size(), 2u);
}

// An output that is one of the files being read (whatever its spelling or a
// link to it) is refused before anything is written.
TEST(EdfExportImportTest, NeitherDirectionWritesOverTheRecordingItReads) {
    TempDir dir;
    const std::string sig = dir / "night.SIG";
    MakeRecording(sig);
    WriteBytes(dir / "night.001", {1, 2, 3});  // a companion file
    std::filesystem::create_symlink(sig, dir / "link.edf");
    const auto data = ReadBytes(sig), status = ReadBytes(dir / "night.STS");
    std::string error;
    for (const std::string& out : {sig, dir / "night.STS", dir.path + "/./night.SIG", dir / "night.001", dir / "link.edf"}) {
        EXPECT_EQ(ExportEdf(sig.c_str(), out.c_str(), {}, &error), 0) << out;
        EXPECT_NE(error.find("ne peut l'écraser"), std::string::npos) << error;
    }
    EXPECT_EQ(ReadBytes(sig), data);
    EXPECT_EQ(ReadBytes(dir / "night.STS"), status);

    // An EDF file carrying a recording's name cannot be imported over itself.
    ASSERT_EQ(ExportEdf(sig.c_str(), (dir / "night.edf").c_str(), {}, &error), 1) << error;
    const std::string disguised = dir / "other.SIG";
    WriteBytes(disguised, ReadBytes(dir / "night.edf"));
    EXPECT_EQ(ImportEdf(disguised.c_str(), disguised.c_str(), {}, &error), 0);
    EXPECT_NE(error.find("ne peut l'écraser"), std::string::npos) << error;
    EXPECT_EQ(ReadBytes(disguised), ReadBytes(dir / "night.edf"));
}

TEST(EdfExportImportTest, MixedRatesNeedConsentAndBadFilesLeaveNothing) {
    TempDir dir;
    const std::string edf = dir / "mixed.edf";
    WriteForeign(edf, EdfFormat::Edf, {{"Fp1", 256}, {"Resp", 100}}, -32768, 32767);
    const std::string out = dir / "mixed.SIG";
    std::string error;
    EXPECT_EQ(ImportEdf(edf.c_str(), out.c_str(), {}, &error), 0);
    EXPECT_NE(error.find("Resp (100 Hz)"), std::string::npos) << error;
    EXPECT_EQ(error.find("Fp1"), std::string::npos) << error;
    EXPECT_TRUE(NoRecordingIn(dir, "mixed"));

    CSigFileCopyOptions consent;
    consent.resample = true;
    ASSERT_EQ(ImportEdf(edf.c_str(), out.c_str(), consent, &error), 1) << error;
    FilePtr f(CSigFile::Open(out.c_str(), 1));
    ASSERT_TRUE(f);
    EXPECT_EQ(f->GetPhysicalMontage()->GetRecordingMontageAt(0)->GetFrequency(1), 128u);
    EXPECT_EQ(f->GetSamplesChannel(1), 32u);
    f.reset();

    // Malformed: the field is named, nothing is created, the existing target stays.
    const auto before = ReadBytes(out);
    auto bytes = ReadBytes(edf);
    std::copy_n("x2  ", 4, bytes.begin() + 252);  // number of signals
    WriteBytes(dir / "broken.edf", bytes);
    EXPECT_EQ(ImportEdf((dir / "broken.edf").c_str(), out.c_str(), consent, &error), 0);
    EXPECT_NE(error.find("signaux"), std::string::npos) << error;
    EXPECT_EQ(ReadBytes(out), before);
    bytes.resize(bytes.size() - 100);  // truncated data
    WriteBytes(dir / "short.edf", bytes);
    EXPECT_EQ(ImportEdf((dir / "short.edf").c_str(), (dir / "short.SIG").c_str(), consent, &error), 0);
    EXPECT_TRUE(NoRecordingIn(dir, "short"));
    EXPECT_TRUE(NoRecordingIn(dir, "short~edf0"));
    EXPECT_EQ(ImportEdf(edf.c_str(), (dir / "wrong.txt").c_str(), consent, &error), 0);
}

TEST(EdfExportImportTest, ImportCommand) {
    TempDir dir;
    const std::string edf = dir / "in.edf";
    WriteForeign(edf, EdfFormat::EdfPlus, {{"Fp1-A1", 256}, {"Resp", 64}}, -2048, 2047);
    auto r = RunTool("import " + edf + " " + (dir / "a.SIG"));
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(GetSigFileFormat((dir / "a.SIG").c_str()), SIGFILE_FORMAT_NATIVE);
    r = RunTool("import " + edf + " " + (dir / "a.SIG"));  // replaces it
    EXPECT_EQ(r.status, 0) << r.out;

    WriteForeign(dir / "odd.edf", EdfFormat::Edf, {{"Fp1", 256}, {"SpO2", 1}}, -32768, 32767);
    r = RunTool("import " + (dir / "odd.edf") + " " + (dir / "b.SIG"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("SpO2 (1 Hz)"), std::string::npos) << r.out;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1);
    EXPECT_TRUE(NoRecordingIn(dir, "b"));
    r = RunTool("import " + (dir / "odd.edf") + " " + (dir / "b.SIG") + " --resample");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(RunTool("import " + edf).status, 2);
}

// A file whose length is not a whole number of native records: the native
// recording says which record ends early and what record duration the file
// had, and the way back (directly, or through a second native copy) gives
// the file's own records and samples, nothing repeated.
TEST(EdfExportImportTest, RoundTripKeepsTheRecordsAndTheNumberOfSamples) {
    TempDir dir;
    const std::string edf = dir / "odd.edf";
    WriteForeign(edf, EdfFormat::Edf, {{"EEG C3-A2", 100}, {"Resp", 50}}, -32768, 32767, 7);
    std::string error;
    ASSERT_EQ(ImportEdf(edf.c_str(), (dir / "odd.SIG").c_str(), {}, &error), 1) << error;
    {
        FilePtr f(CSigFile::Open((dir / "odd.SIG").c_str(), 1));
        ASSERT_TRUE(f);
        EXPECT_EQ(f->GetNumRecords(), 11);  // 700 samples in records of 64
        std::map<long, unsigned> partial;
        f->GetPartialRecords(&partial);
        EXPECT_EQ(partial, (std::map<long, unsigned>{{10, 60}}));
        EXPECT_DOUBLE_EQ(f->GetSourceRecordDuration(), 1.0);
    }
    CSigFileCopyOptions copy;
    ASSERT_EQ(ConvertSigFile((dir / "odd.SIG").c_str(), (dir / "again.SIG").c_str(), copy, &error), 1) << error;
    for (const char* from : {"odd.SIG", "again.SIG"}) {
        const std::string back = dir / (std::string(from) + ".edf");
        ASSERT_EQ(ConvertSigFile((dir / from).c_str(), back.c_str(), copy, &error), 1) << error;
        EdfReader original, reader;
        ASSERT_TRUE(original.Open(edf, error)) << error;
        ASSERT_TRUE(reader.Open(back, error)) << error;
        EXPECT_EQ(reader.Header().recordDuration, 1.0) << from;
        ASSERT_EQ(reader.RecordCount(), 7) << from;
        for (long r = 0; r < 7; ++r) {
            std::vector<std::vector<LONG>> want, got;
            ASSERT_TRUE(original.ReadRecord(r, want, error));
            ASSERT_TRUE(reader.ReadRecord(r, got, error));
            ASSERT_EQ(got.size(), 2u);
            EXPECT_EQ(got[0], want[0]) << from << " record " << r;
            EXPECT_EQ(got[1], want[1]) << from << " record " << r;
        }
    }
}
