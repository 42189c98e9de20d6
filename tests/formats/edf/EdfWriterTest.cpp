// The EDF-family writer: header bytes against fields typed by hand, record
// bytes, number fields, and refusals that leave the target untouched.
#include <gtest/gtest.h>

#include <filesystem>

#include "formats/edf/EdfReader.h"
#include "formats/edf/EdfTestFiles.h"
#include "support/TestSupport.h"

using namespace edf;
using edftest::Pad;

namespace {

EdfHeader SampleHeader(EdfFormat format) {
    EdfHeader h;
    h.format = format;
    h.patient.code = "MCH-0234567";
    h.patient.sex = 'F';
    h.patient.birthYear = 1951;
    h.patient.birthMonth = 5;
    h.patient.birthDay = 2;
    h.patient.name = "Hélène Dupont";
    h.recording.adminCode = "PSG-1234/2002";
    h.recording.technician = "NN";
    h.recording.equipment = "Telemetry03";
    h.start = CSDateTime(2002, 3, 2, 22, 5, 7);
    h.recordDuration = 0.5;
    return h;
}

std::vector<EdfSignal> SampleSignals() {
    EdfSignal eeg = edftest::Signal("EEG Fp1", 4, -32768, 32767, -3276.8, 3276.7, "uV");
    eeg.transducer = "AgAgCl electrode";
    eeg.prefilter = "HP:0.1Hz";
    return {eeg, edftest::Signal("Resp", 1, -2048, 2047, -1, 1, "mV")};
}

std::vector<BYTE> Tail(const std::string& file, size_t from) {
    return std::vector<BYTE>(file.begin() + LONGLONG(from), file.end());
}

TEST(EdfWriter, EdfPlusHeaderAndRecordsMatchHandBuiltBytes) {
    testsupport::TempDir dir;
    const std::string path = dir / "out.edf";
    auto signals = SampleSignals();
    std::vector<EdfAnnotation> annotations = {{0.1, 2.0, "Éveil"}};
    std::string error;
    ASSERT_TRUE(edftest::WriteFile(path, SampleHeader(EdfFormat::EdfPlus), signals, {0, 0.5}, annotations, error))
        << error;
    const std::string file = edftest::ReadAll(path);

    std::string expected = Pad("0", 8) + Pad("MCH-0234567 F 02-MAY-1951 Helene_Dupont", 80) +
                           Pad("Startdate 02-MAR-2002 PSG-1234/2002 NN Telemetry03", 80) + "02.03.02" + "22.05.07" +
                           Pad("1024", 8) + Pad("EDF+C", 44) + Pad("2", 8) + Pad("0.5", 8) + Pad("3", 4);
    expected += Pad("EEG Fp1", 16) + Pad("Resp", 16) + Pad("EDF Annotations", 16);
    expected += Pad("AgAgCl electrode", 80) + Pad("", 80) + Pad("", 80);
    expected += Pad("uV", 8) + Pad("mV", 8) + Pad("", 8);
    expected += Pad("-3276.8", 8) + Pad("-1", 8) + Pad("-1", 8);
    expected += Pad("3276.7", 8) + Pad("1", 8) + Pad("1", 8);
    expected += Pad("-32768", 8) + Pad("-2048", 8) + Pad("-32768", 8);
    expected += Pad("32767", 8) + Pad("2047", 8) + Pad("32767", 8);
    expected += Pad("HP:0.1Hz", 80) + Pad("", 80) + Pad("", 80);
    // Busiest record: "+0\x14\x14\0" (5) + "+0.1\x15" "2\x14" "Éveil\x14\0" (15) = 20 bytes = 10 samples.
    expected += Pad("4", 8) + Pad("1", 8) + Pad("10", 8);
    expected += std::string(96, ' ');
    ASSERT_EQ(expected.size(), 1024u);
    ASSERT_GE(file.size(), 1024u);
    EXPECT_EQ(file.substr(0, 1024), expected);

    testsupport::Bytes records;
    for (int r = 0; r < 2; ++r) {
        auto samples = edftest::Samples(signals, r);
        for (const auto& sig : samples)
            for (LONG v : sig) records.u16(unsigned(v) & 0xFFFF);
        size_t before = records.data.size();
        if (r == 0) records.raw("+0\x14\x14").u8(0).raw("+0.1\x15" "2\x14" "\xC3\x89veil\x14").u8(0);
        else records.raw("+0.5\x14\x14").u8(0);
        while (records.data.size() - before < 20) records.u8(0);
    }
    EXPECT_EQ(Tail(file, 1024), records.data);
}

TEST(EdfWriter, BdfHeaderAndTwentyFourBitSamples) {
    testsupport::TempDir dir;
    const std::string path = dir / "out.bdf";
    EdfHeader header = SampleHeader(EdfFormat::Bdf);
    header.start = CSDateTime(1999, 12, 31, 23, 59, 58);
    header.recordDuration = 1;
    std::vector<EdfSignal> signals = {edftest::Signal("Status", 3, -8388608, 8388607, -262144, 262143.96875)};
    EdfWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(path, header, signals, 0, error)) << error;
    ASSERT_TRUE(writer.WriteRecord(0, {{-8388608, 8388607, 0x123456}}, {}, error)) << error;
    ASSERT_TRUE(writer.WriteRecord(1, {{-2, 1, 0}}, {}, error)) << error;
    ASSERT_TRUE(writer.Close(error)) << error;
    const std::string file = edftest::ReadAll(path);
    std::string expected = std::string("\xFF" "BIOSEMI") + Pad("MCH-0234567 F 02-MAY-1951 Helene_Dupont", 80) +
                           Pad("Startdate 31-DEC-1999 PSG-1234/2002 NN Telemetry03", 80) + "31.12.99" + "23.59.58" +
                           Pad("512", 8) + Pad("24BIT", 44) + Pad("2", 8) + Pad("1", 8) + Pad("1", 4) +
                           Pad("Status", 16) + Pad("", 80) + Pad("uV", 8) + Pad("-262144", 8) + Pad("262144", 8) +
                           Pad("-8388608", 8) + Pad("8388607", 8) + Pad("", 80) + Pad("3", 8) + Pad("", 32);
    ASSERT_EQ(file.size(), 512u + 18u);
    EXPECT_EQ(file.substr(0, 512), expected);
    testsupport::Bytes data;
    data.u8(0x00).u8(0x00).u8(0x80).u8(0xFF).u8(0xFF).u8(0x7F).u8(0x56).u8(0x34).u8(0x12);
    data.u8(0xFE).u8(0xFF).u8(0xFF).u8(0x01).u8(0x00).u8(0x00).u8(0x00).u8(0x00).u8(0x00);
    EXPECT_EQ(Tail(file, 512), data.data);
}

TEST(EdfWriter, GapsMarkTheFileDiscontinuousAndFractionsGoToTheTals) {
    testsupport::TempDir dir;
    const std::string path = dir / "gap.bdf";
    EdfHeader header = SampleHeader(EdfFormat::BdfPlus);
    header.start = CSDateTime(2084, 1, 2, 3, 4, 5.25);
    auto signals = SampleSignals();
    signals[0].digitalMin = -8388608;
    signals[0].digitalMax = 8388607;
    std::string error;
    ASSERT_TRUE(edftest::WriteFile(path, header, signals, {0, 0.5, 10}, {}, error)) << error;
    const std::string file = edftest::ReadAll(path);
    EXPECT_EQ(file.substr(168, 16), "02.01.8403.04.05");
    EXPECT_EQ(file.substr(88, 21), "Startdate 02-JAN-2084");
    EXPECT_EQ(file.substr(192, 44), Pad("BDF+D", 44));
    EXPECT_EQ(file.substr(256 + 32, 16), Pad("BDF Annotations", 16));
    // Records of 4 + 1 samples and 3 samples (9 bytes) for "+10.25\x14\x14\0".
    const size_t record = (4 + 1 + 3) * 3;
    ASSERT_EQ(file.size(), 1024 + 3 * record);
    EXPECT_EQ(file.substr(1024 + 15, 9), std::string("+0.25\x14\x14\0\0", 9));
    EXPECT_EQ(file.substr(1024 + 2 * record + 15, 9), std::string("+10.25\x14\x14\0", 9));
}

// 16-bit samples go straight into the record; the file must be the one the
// 32-bit entry writes, in both widths, over enough records to fill several
// output blocks, and a sample outside a narrow digital range is still refused.
TEST(EdfWriter, SixteenBitRecordsWriteTheSameFileAsWideOnes) {
    testsupport::TempDir dir;
    std::vector<EdfSignal> signals = {edftest::Signal("EEG C3", 3000, -32768, 32767, -3276.8, 3276.7),
                                      edftest::Signal("Resp", 7, -2048, 2047, -1, 1, "mV")};
    constexpr int kRecords = 400;  // 2.4 MB in EDF, 3.6 MB in BDF
    std::vector<double> starts;
    std::vector<EdfAnnotation> annotations;
    for (int r = 0; r < kRecords; ++r) {
        starts.push_back(r < 200 ? r : r + 3.0);  // one gap
        if (r % 50 == 7) annotations.push_back({r + 0.25, 1.0, "Arousal"});
    }
    for (EdfFormat format : {EdfFormat::EdfPlus, EdfFormat::BdfPlus}) {
        const EdfHeader header = SampleHeader(format);
        const std::string wide = dir / "wide.edf", narrow = dir / "narrow.edf";
        std::string error;
        ASSERT_TRUE(edftest::WriteFile(wide, header, signals, starts, annotations, error)) << error;
        EdfAnnotationPlan plan = PlanAnnotations(starts, annotations, EdfStartFraction(header.start));
        EdfWriter writer;
        ASSERT_TRUE(writer.Open(narrow, header, signals, plan.bytesPerRecord, error)) << error;
        for (int r = 0; r < kRecords; ++r) {
            auto samples = edftest::Samples(signals, r);
            std::vector<std::vector<short>> values(samples.size());
            std::vector<const short*> channels;
            for (size_t i = 0; i < samples.size(); ++i) {
                for (LONG v : samples[i]) values[i].push_back(short(v));
                channels.push_back(values[i].data());
            }
            ASSERT_TRUE(writer.WriteRecord(starts[size_t(r)], channels.data(), channels.size(),
                                           plan.perRecord[size_t(r)], error))
                << error;
        }
        ASSERT_TRUE(writer.Close(error)) << error;
        EXPECT_EQ(edftest::ReadAll(narrow), edftest::ReadAll(wide)) << int(format);

        // Read back backwards and forwards: the reader's read-ahead spans
        // many records and must hand out the right one either way.
        EdfReader reader;
        ASSERT_TRUE(reader.Open(wide, error)) << error;
        ASSERT_EQ(reader.RecordCount(), kRecords);
        EXPECT_DOUBLE_EQ(reader.RecordStart(kRecords - 1), kRecords + 2.0);
        std::vector<std::vector<LONG>> got;
        for (int r : {kRecords - 1, 0, 150, 149, 151, 399, 398}) {
            ASSERT_TRUE(reader.ReadRecord(r, got, error)) << error;
            EXPECT_EQ(got, edftest::Samples(signals, r)) << r;
        }
        for (int r = kRecords - 1; r >= 0; r -= 3) {
            ASSERT_TRUE(reader.ReadRecord(r, got, error)) << error;
            ASSERT_EQ(got, edftest::Samples(signals, r)) << r;
        }
    }

    EdfWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(dir / "bad.edf", SampleHeader(EdfFormat::EdfPlus), signals, 0, error)) << error;
    std::vector<short> eeg(3000, 0), resp(7, 0);
    resp[5] = 2048;
    const short* channels[] = {eeg.data(), resp.data()};
    EXPECT_FALSE(writer.WriteRecord(0, channels, 2, {}, error));
    EXPECT_NE(error.find("2048 sort des limites -2048 à 2047"), std::string::npos) << error;
    EXPECT_FALSE(writer.WriteRecord(0, channels, 1, {}, error));  // the writer is closed after a failure
}

TEST(EdfWriter, NothingReachesTheTargetUntilClose) {
    testsupport::TempDir dir;
    const std::string path = dir / "night.edf";
    edftest::WriteAll(path, "previous export");
    auto signals = SampleSignals();
    std::string error;
    {
        EdfWriter writer;
        ASSERT_TRUE(writer.Open(path, SampleHeader(EdfFormat::EdfPlus), signals, 0, error)) << error;
        ASSERT_TRUE(writer.WriteRecord(0, edftest::Samples(signals, 0), {}, error)) << error;
        EXPECT_EQ(edftest::ReadAll(path), "previous export");
    }  // dropped without Close, as when the caller gives up
    EXPECT_EQ(edftest::ReadAll(path), "previous export");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path), std::filesystem::directory_iterator()), 1);

    // An export without records is still a valid file.
    EdfWriter writer;
    ASSERT_TRUE(writer.Open(path, SampleHeader(EdfFormat::EdfPlus), signals, 0, error)) << error;
    ASSERT_TRUE(writer.Close(error)) << error;
    const std::string file = edftest::ReadAll(path);
    EXPECT_EQ(file.size(), 1024u);
    EXPECT_EQ(file.substr(236, 8), Pad("0", 8));
    EXPECT_FALSE(writer.Close(error));
}

TEST(EdfWriter, NumberFieldsKeepTheirMeaningInEightCharacters) {
    struct Case {
        double value, scale;
        const char* text;  // null when refused
    } cases[] = {
        {3276.7, 0, "3276.7"},      {-3276.8, 0, "-3276.8"},  {0.25, 0, "0.25"},
        {1.0 / 3, 0, ".3333333"},   {-0.5, 0, "-0.5"},        {-1.0 / 3, 0, "-.333333"},
        {12345678, 0, "12345678"},  {123456789, 0, nullptr},  {-0.0032768, 0.0065535, nullptr},
        {262143.96875, 524288, "262144"}, {0, 1, "0"},      {1e-9, 1, "0"},
    };
    for (const Case& c : cases) {
        std::string text;
        bool ok = FormatEdfNumber(c.value, 8, text, c.scale);
        if (c.text) {
            EXPECT_TRUE(ok) << c.value;
            EXPECT_EQ(text, c.text) << c.value;
        } else {
            EXPECT_FALSE(ok) << c.value << " gave " << text;
        }
    }
    // 0.0032768 V cannot keep its digits in 8 characters; 3.2768 mV can.
    EdfSignal volts = edftest::Signal("EEG", 1, -32768, 32767, -0.0032768, 0.0032767, "V");
    ASSERT_TRUE(FitPhysicalUnit(volts));
    EXPECT_EQ(volts.unit, "mV");
    EXPECT_NEAR(volts.physicalMin, -3.2768, 1e-12);
    EdfSignal small = edftest::Signal("EEG", 1, -32768, 32767, -0.0000032768, 0.0000032767, "mV");
    ASSERT_TRUE(FitPhysicalUnit(small));
    EXPECT_EQ(small.unit, "nV");
    EXPECT_NEAR(small.physicalMin, -3.2768, 1e-12);
    EdfSignal pressure = edftest::Signal("Press", 1, -32768, 32767, -0.0032768, 0.0032767, "mmHg");
    EXPECT_FALSE(FitPhysicalUnit(pressure));
    EXPECT_EQ(RecordsPerEdfRecord(64, 256), 1);
    EXPECT_EQ(RecordsPerEdfRecord(64, 200), 1);   // 0.32 s
    EXPECT_EQ(RecordsPerEdfRecord(64, 300), 3);   // 0.64 s; 0.21333... has no exact text
    EXPECT_EQ(RecordsPerEdfRecord(64, 384), 3);   // 0.5 s
    EXPECT_EQ(RecordsPerEdfRecord(64, 1001), 0);  // would need 1001 records
}

// Each bad call fails with the field or record named, and the target keeps its
// old contents with no temporary file left beside it.
struct Refusal {
    const char* name;
    void (*change)(EdfHeader&, std::vector<EdfSignal>&);
    std::vector<double> starts;
    bool annotate;
    const char* expected;
};

class EdfWriterRefusal : public ::testing::TestWithParam<Refusal> {};

TEST_P(EdfWriterRefusal, LeavesTheTargetUntouched) {
    const Refusal& c = GetParam();
    testsupport::TempDir dir;
    const std::string path = dir / "target.edf";
    edftest::WriteAll(path, "old contents");
    EdfHeader header = SampleHeader(EdfFormat::EdfPlus);
    auto signals = SampleSignals();
    c.change(header, signals);
    std::vector<EdfAnnotation> annotations;
    if (c.annotate) annotations.push_back({0, std::nullopt, "Lumière éteinte"});
    EdfWriter writer;
    std::string error;
    bool ok = writer.Open(path, header, signals, c.annotate ? 20 : 0, error);
    for (size_t r = 0; ok && r < c.starts.size(); ++r) {
        auto samples = edftest::Samples(signals, int(r));
        if (std::string(c.name) == "sample_out_of_range") samples[1][0] = 2048;
        if (std::string(c.name) == "annotation_time") annotations[0].duration = -1;
        ok = writer.WriteRecord(c.starts[r], samples, r == 0 ? annotations : std::vector<EdfAnnotation>{}, error);
    }
    if (ok) ok = writer.Close(error);
    EXPECT_FALSE(ok);
    EXPECT_NE(error.find(c.expected), std::string::npos) << error;
    EXPECT_EQ(edftest::ReadAll(path), "old contents");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path), std::filesystem::directory_iterator()), 1);
}

void Keep(EdfHeader&, std::vector<EdfSignal>&) {}

INSTANTIATE_TEST_SUITE_P(
    Cases, EdfWriterRefusal,
    ::testing::Values(
        Refusal{"long_label", [](EdfHeader&, std::vector<EdfSignal>& s) { s[0].label = "EEG Fp1-F3 (bipolar)"; },
                {0}, false, "label : signal 1"},
        Refusal{"reserved_label", [](EdfHeader&, std::vector<EdfSignal>& s) { s[1].label = "EDF Annotations"; },
                {0}, false, "label : signal 2"},
        Refusal{"long_unit", [](EdfHeader&, std::vector<EdfSignal>& s) { s[1].unit = "millivolts"; }, {0}, false,
                "physical dimension"},
        Refusal{"physical_range", [](EdfHeader&, std::vector<EdfSignal>& s) { s[1].physicalMax = -1; }, {0}, false,
                "physical minimum : signal 2"},
        Refusal{"physical_precision",
                [](EdfHeader&, std::vector<EdfSignal>& s) { s[0].physicalMin = -0.0032768; s[0].physicalMax = 0.0032767; },
                {0}, false, "physical minimum : signal 1"},
        Refusal{"digital_limits", [](EdfHeader&, std::vector<EdfSignal>& s) { s[0].digitalMax = 40000; }, {0}, false,
                "digital minimum : signal 1"},
        Refusal{"no_samples", [](EdfHeader&, std::vector<EdfSignal>& s) { s[1].samplesPerRecord = 0; }, {0}, false,
                "number of samples in each data record"},
        Refusal{"duration", [](EdfHeader& h, std::vector<EdfSignal>&) { h.recordDuration = 1.0 / 3; }, {0}, false,
                "duration of a data record"},
        Refusal{"old_year", [](EdfHeader& h, std::vector<EdfSignal>&) { h.start = CSDateTime(1984, 1, 1); }, {0},
                false, "startdate"},
        Refusal{"sample_out_of_range", Keep, {0}, false, "enregistrement 0 : signal 2"},
        Refusal{"overlap", Keep, {0, 0.25}, false, "enregistrement 1 : commence avant"},
        Refusal{"gap_in_plain_edf", [](EdfHeader& h, std::vector<EdfSignal>&) { h.format = EdfFormat::Edf; },
                {0, 2}, false, "enregistrement 1 : ne suit pas"},
        Refusal{"annotation_in_plain_edf", [](EdfHeader& h, std::vector<EdfSignal>&) { h.format = EdfFormat::Edf; },
                {0}, true, "pas d'annotations"},
        Refusal{"annotation_time", Keep, {0}, true, "enregistrement 0 : l'annotation « Lumière éteinte »"},
        Refusal{"annotations_too_big", [](EdfHeader&, std::vector<EdfSignal>&) {}, {0}, true,
                "le signal d'annotations en a 20"}),
    [](const ::testing::TestParamInfo<Refusal>& info) { return std::string(info.param.name); });

}  // namespace
