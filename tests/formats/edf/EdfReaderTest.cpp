// The EDF-family reader: round trips through the writer keep every sample
// bit for bit, the identification, the annotations and the record times; a
// malformed file is refused with the faulty field named.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "formats/edf/EdfReader.h"
#include "formats/edf/EdfTestFiles.h"
#include "support/TestSupport.h"

using namespace edf;
using edftest::Pad;
using namespace std::string_literals;

namespace {

EdfHeader Header(EdfFormat format) {
    EdfHeader h;
    h.format = format;
    h.patient.code = "P-17";
    h.patient.sex = 'M';
    h.patient.birthYear = 1962;
    h.patient.birthMonth = 11;
    h.patient.birthDay = 30;
    h.patient.name = "Jean-Loïc Le Gall";
    h.recording.adminCode = "PSG 2041";
    h.recording.technician = "Zoé";
    h.recording.equipment = "Amp32";
    h.start = CSDateTime(2031, 7, 14, 22, 5, 7.25);
    h.recordDuration = 0.5;
    return h;
}

std::vector<EdfSignal> Signals(EdfFormat format) {
    const bool bdf = IsBdf(format);
    EdfSignal eeg = edftest::Signal("C3-A2", 128, bdf ? -8388608 : -32768, bdf ? 8388607 : 32767, -3276.8,
                                    3276.7, "uV");
    eeg.transducer = "Ag/AgCl";
    eeg.prefilter = "HP:0.3Hz LP:70Hz";
    return {eeg, edftest::Signal("SaO2", 1, 0, 1000, 0, 100, "%"),
            edftest::Signal("Thorax", 25, -2048, 2047, -1.5, 1.5, "mV")};
}

const std::vector<EdfAnnotation> kAnnotations = {
    {0.0, std::nullopt, "Lumière éteinte"},
    {0.3, 30.0, "Stade 2"},
    {0.3, 0.125, "Ronflement"},
    {1.2, 12.5, "Apnée obstructive"},
};

void ExpectSameSignals(const std::vector<EdfSignal>& got, const std::vector<EdfSignal>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(got[i].label, want[i].label);
        EXPECT_EQ(got[i].transducer, want[i].transducer);
        EXPECT_EQ(got[i].unit, want[i].unit);
        EXPECT_EQ(got[i].prefilter, want[i].prefilter);
        EXPECT_DOUBLE_EQ(got[i].physicalMin, want[i].physicalMin);
        EXPECT_DOUBLE_EQ(got[i].physicalMax, want[i].physicalMax);
        EXPECT_EQ(got[i].digitalMin, want[i].digitalMin);
        EXPECT_EQ(got[i].digitalMax, want[i].digitalMax);
        EXPECT_EQ(got[i].samplesPerRecord, want[i].samplesPerRecord);
    }
}

void ExpectSameSamples(EdfReader& reader, const std::vector<EdfSignal>& signals) {
    std::vector<std::vector<LONG>> got;
    std::string error;
    for (LONGLONG r = 0; r < reader.RecordCount(); ++r) {
        ASSERT_TRUE(reader.ReadRecord(r, got, error)) << error;
        EXPECT_EQ(got, edftest::Samples(signals, int(r))) << "record " << r;
    }
    EXPECT_FALSE(reader.ReadRecord(reader.RecordCount(), got, error));
    EXPECT_NE(error.find("hors du fichier"), std::string::npos);
}

class EdfRoundTrip : public ::testing::TestWithParam<EdfFormat> {};

TEST_P(EdfRoundTrip, KeepsSamplesIdentificationAnnotationsAndTimes) {
    const EdfFormat format = GetParam();
    testsupport::TempDir dir;
    const std::string path = dir / "night.edf";
    const EdfHeader header = Header(format);
    const auto signals = Signals(format);
    const std::vector<double> starts = {0, 0.5, 1.0, 1.5};
    const bool plus = IsPlus(format);
    std::string error;
    ASSERT_TRUE(edftest::WriteFile(path, header, signals, starts, plus ? kAnnotations : std::vector<EdfAnnotation>{},
                                   error))
        << error;

    EdfReader reader;
    ASSERT_TRUE(reader.Open(path, error)) << error;
    const EdfHeader& h = reader.Header();
    EXPECT_EQ(h.format, format);
    EXPECT_FALSE(h.discontinuous);
    EXPECT_EQ(reader.RecordCount(), 4);
    EXPECT_EQ(h.recordDuration, 0.5);
    EXPECT_EQ(h.start, CSDateTime(2031, 7, 14, 22, 5, 7));
    EXPECT_EQ(h.patient.code, "P-17");
    EXPECT_EQ(h.patient.sex, 'M');
    EXPECT_EQ(h.patient.birthYear, 1962);
    EXPECT_EQ(h.patient.birthMonth, 11);
    EXPECT_EQ(h.patient.birthDay, 30);
    EXPECT_EQ(h.patient.name, "Jean-Loic Le Gall");
    EXPECT_EQ(h.recording.adminCode, "PSG 2041");
    EXPECT_EQ(h.recording.technician, "Zoe");
    EXPECT_EQ(h.recording.equipment, "Amp32");
    ExpectSameSignals(reader.Signals(), signals);
    ExpectSameSamples(reader, signals);

    // The quarter second the header cannot hold is in the record times.
    const double offset = plus ? 0.25 : 0.0;
    for (LONGLONG r = 0; r < 4; ++r) EXPECT_DOUBLE_EQ(reader.RecordStart(r), starts[size_t(r)] + offset);
    if (!plus) {
        EXPECT_TRUE(reader.Annotations().empty());
        return;
    }
    ASSERT_EQ(reader.Annotations().size(), kAnnotations.size());
    for (size_t i = 0; i < kAnnotations.size(); ++i) {
        const EdfAnnotation& a = reader.Annotations()[i];
        EXPECT_DOUBLE_EQ(a.onset, kAnnotations[i].onset + 0.25);
        EXPECT_EQ(a.duration, kAnnotations[i].duration);
        EXPECT_EQ(a.text, kAnnotations[i].text);
    }
}

std::string FormatName(const ::testing::TestParamInfo<EdfFormat>& info) {
    static const char* const names[] = {"Edf", "EdfPlus", "Bdf", "BdfPlus"};
    return names[int(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Formats, EdfRoundTrip,
                         ::testing::Values(EdfFormat::Edf, EdfFormat::EdfPlus, EdfFormat::Bdf, EdfFormat::BdfPlus),
                         FormatName);

TEST(EdfReader, DiscontinuousRecordsKeepTheirStartTimes) {
    testsupport::TempDir dir;
    const std::string path = dir / "gaps.edf";
    EdfHeader header = Header(EdfFormat::EdfPlus);
    header.start = CSDateTime(2031, 7, 14, 22, 5, 7);
    const auto signals = Signals(EdfFormat::EdfPlus);
    const std::vector<double> starts = {0, 0.5, 10, 30.5, 31};
    // An annotation inside the gap travels with the record before it.
    const std::vector<EdfAnnotation> annotations = {{20, 1.0, "Déconnexion"}, {30.75, std::nullopt, "Retour"}};
    std::string error;
    ASSERT_TRUE(edftest::WriteFile(path, header, signals, starts, annotations, error)) << error;
    EdfReader reader;
    ASSERT_TRUE(reader.Open(path, error)) << error;
    EXPECT_TRUE(reader.Header().discontinuous);
    ASSERT_EQ(reader.RecordCount(), 5);
    for (LONGLONG r = 0; r < 5; ++r) EXPECT_EQ(reader.RecordStart(r), starts[size_t(r)]);
    EXPECT_EQ(reader.Annotations(), annotations);
    ExpectSameSamples(reader, signals);
}

TEST(EdfReader, ABurstOfAnnotationsIsSpreadOverTheFollowingRecords) {
    std::vector<double> starts;
    for (int r = 0; r < 300; ++r) starts.push_back(r);
    std::vector<EdfAnnotation> burst;
    for (int i = 0; i < 200; ++i) burst.push_back({1.0 + i * 0.001, 0.5, "Artefact " + std::to_string(i)});
    burst.push_back({250.5, std::nullopt, "Fin"});
    EdfAnnotationPlan plan = PlanAnnotations(starts, burst);
    // All in record 1 would take some 5 kB in each of the 300 records.
    EXPECT_LT(plan.bytesPerRecord, 100u);
    size_t placed = 0;
    for (size_t r = 0; r < plan.perRecord.size(); ++r)
        for (const EdfAnnotation& a : plan.perRecord[r]) {
            EXPECT_LE(starts[size_t(std::floor(a.onset))], starts[r]) << a.text << " before its onset";
            ++placed;
        }
    EXPECT_EQ(placed, burst.size());
    EXPECT_EQ(plan.perRecord[250].size(), 1u);  // past the burst, back home

    testsupport::TempDir dir;
    const std::string path = dir / "burst.edf";
    EdfHeader header = Header(EdfFormat::EdfPlus);
    header.recordDuration = 1;
    std::vector<EdfSignal> signals = {edftest::Signal("EEG", 8, -32768, 32767, -100, 100)};
    std::string error;
    ASSERT_TRUE(edftest::WriteFile(path, header, signals, starts, burst, error)) << error;
    EdfReader reader;
    ASSERT_TRUE(reader.Open(path, error)) << error;
    ASSERT_EQ(reader.Annotations().size(), burst.size());
    for (size_t i = 0; i < burst.size(); ++i) {
        EXPECT_NEAR(reader.Annotations()[i].onset, burst[i].onset + 0.25, 1e-9);
        EXPECT_EQ(reader.Annotations()[i].text, burst[i].text);
    }
}

TEST(EdfReader, TalsWithSeveralTextsDurationsAndNegativeOnsets) {
    struct Case {
        std::string bytes;
        double start;
        std::vector<EdfAnnotation> annotations;
    } cases[] = {
        {"+12.5\x14\x14\0"s, 12.5, {}},
        {"+0\x14\x14" "Debut\x14\0" "-0.5\x15" "3\x14" "A\x14" "B\x14\0\0\0"s, 0,
         {{0, std::nullopt, "Debut"}, {-0.5, 3.0, "A"}, {-0.5, 3.0, "B"}}},
        {"+7\x14\x14\0" "+8.000\x15" ".5\x14\x14\0"s, 7, {}},
        {"+1\x14\x14\0" "+2\x14" "R\xE9veil\x14" "\xC3\x89veil\x14\0"s, 1,
         {{2, std::nullopt, "Réveil"}, {2, std::nullopt, "Éveil"}}},
    };
    for (const Case& c : cases) {
        double start = -1;
        std::vector<EdfAnnotation> got;
        std::string error;
        ASSERT_TRUE(ParseTals(c.bytes, true, start, got, error)) << error;
        EXPECT_EQ(start, c.start);
        EXPECT_EQ(got, c.annotations);
    }
}

TEST(EdfReader, PlainEdfKeepsFreeTextIdentificationAndTheCenturyRule) {
    testsupport::TempDir dir;
    const std::string path = dir / "old.edf";
    EdfHeader header = Header(EdfFormat::Edf);
    header.start = CSDateTime(1999, 1, 2, 3, 4, 5);
    std::string error;
    ASSERT_TRUE(edftest::WriteFile(path, header, Signals(EdfFormat::Edf), {0}, {}, error)) << error;
    std::string bytes = edftest::ReadAll(path);
    bytes.replace(8, 80, Pad("Jean Martin", 80));
    bytes.replace(88, 80, Pad("Nuit du 2 janvier", 80));
    for (auto [date, year] : {std::pair{"02.01.85", 1985}, {"02.01.84", 2084}, {"02.01.00", 2000}}) {
        bytes.replace(168, 8, date);
        edftest::WriteAll(path, bytes);
        EdfReader reader;
        ASSERT_TRUE(reader.Open(path, error)) << error;
        EXPECT_EQ(reader.Header().start, CSDateTime(year, 1, 2, 3, 4, 5)) << date;
        EXPECT_EQ(reader.Header().patientField, "Jean Martin");
        EXPECT_EQ(reader.Header().recordingField, "Nuit du 2 janvier");
        EXPECT_TRUE(reader.Header().patient.name.empty());
    }
}

TEST(EdfReader, ReadsAHandBuiltFileInTheStylesOfOtherWriters) {
    // Right-justified numbers, an unknown record count (-1) with a partial
    // record at the end, an annotation inside the time-keeping TAL and every
    // identification subfield unknown ("X").
    std::string bytes = Pad("0", 8) + Pad("X X X X", 80) + Pad("Startdate X X X X", 80) + "05.06.07" + "08.09.10" +
                        "     768" + Pad("EDF+C", 44) + Pad("-1", 8) + "       1" + "   2";
    bytes += Pad("EEG", 16) + Pad("EDF Annotations", 16) + Pad("", 160) + Pad("uV", 8) + Pad("", 8);
    bytes += "    -100" + Pad("-1", 8) + "     100" + Pad("1", 8) + "   -2048" + Pad("-32768", 8) + "    2047" +
             Pad("32767", 8) + Pad("", 160) + "       4" + "       8" + Pad("", 64);
    ASSERT_EQ(bytes.size(), 768u);
    testsupport::Bytes records;
    records.u16(0xF800).u16(0x07FF).u16(0).u16(0xFFFF).raw("+0\x14\x14" "Start\x14").u8(0).u8(0).u8(0).u8(0).u8(0).u8(0);
    records.u16(1).u16(2).u16(3).u16(4).raw("+1\x14\x14").u8(0).raw("+1.5\x15" ".5\x14" "A\x14").u8(0);
    records.u8(1).u8(2).u8(3);
    bytes.append(records.data.begin(), records.data.end());
    testsupport::TempDir dir;
    edftest::WriteAll(dir / "other.edf", bytes);

    EdfReader reader;
    std::string error;
    ASSERT_TRUE(reader.Open(dir / "other.edf", error)) << error;
    EXPECT_EQ(reader.RecordCount(), 2);
    EXPECT_EQ(reader.Header().start, CSDateTime(2007, 6, 5, 8, 9, 10));
    EXPECT_EQ(reader.Header().patient.sex, 0);
    EXPECT_EQ(reader.Header().patient.birthYear, 0);
    EXPECT_TRUE(reader.Header().patient.name.empty());
    ASSERT_EQ(reader.Signals().size(), 1u);
    EXPECT_EQ(reader.Signals()[0].physicalMin, -100);
    EXPECT_EQ(reader.Signals()[0].digitalMax, 2047);
    EXPECT_EQ(reader.Annotations(),
              (std::vector<EdfAnnotation>{{0, std::nullopt, "Start"}, {1.5, 0.5, "A"}}));
    EXPECT_EQ(reader.RecordStart(1), 1.0);
    std::vector<std::vector<LONG>> got;
    ASSERT_TRUE(reader.ReadRecord(0, got, error)) << error;
    EXPECT_EQ(got, (std::vector<std::vector<LONG>>{{-2048, 2047, 0, -1}}));
    ASSERT_TRUE(reader.ReadRecord(1, got, error)) << error;
    EXPECT_EQ(got, (std::vector<std::vector<LONG>>{{1, 2, 3, 4}}));
}

// Random damage anywhere in a file: the reader either refuses it or reads
// every record; it never reads outside its buffers (the sanitizer build
// checks that).
TEST(EdfReader, SurvivesRandomDamage) {
    testsupport::TempDir dir;
    const std::string path = dir / "damaged.bdf";
    std::string error;
    EdfHeader header = Header(EdfFormat::BdfPlus);
    ASSERT_TRUE(edftest::WriteFile(path, header, Signals(EdfFormat::BdfPlus), {0, 0.5, 1, 5}, kAnnotations, error))
        << error;
    const std::string original = edftest::ReadAll(path);
    std::mt19937 random(20261122);
    int opened = 0, refused = 0;
    for (int round = 0; round < 250; ++round) {
        std::string bytes = original;
        const int edits = 1 + int(random() % 4);
        for (int e = 0; e < edits; ++e) {
            size_t at = random() % bytes.size();
            // Mostly the header and the annotation bytes, where the meaning is.
            if (random() % 2) at = random() % std::min<size_t>(bytes.size(), 1280);
            const char* digits = "0123456789+-. \x14\x15";
            bytes[at] = random() % 2 ? char(random()) : digits[random() % 16];
        }
        if (random() % 8 == 0) bytes.resize(random() % bytes.size());
        edftest::WriteAll(path, bytes);
        EdfReader reader;
        if (!reader.Open(path, error)) {
            EXPECT_FALSE(error.empty());
            ++refused;
            continue;
        }
        ++opened;
        std::vector<std::vector<LONG>> samples;
        for (LONGLONG r = 0; r < reader.RecordCount(); ++r) ASSERT_TRUE(reader.ReadRecord(r, samples, error)) << error;
    }
    EXPECT_GT(opened, 0);
    EXPECT_GT(refused, 0);
}

// ---- Malformed files --------------------------------------------------------

// The base file: EDF+, signals "C3-A2" (128), "SaO2" (1), "Thorax" (25) and
// the annotation signal, records at 0, 0.5, 1 and 1.5 s.
constexpr size_t kSignals = 4;
constexpr size_t kHeaderBytes = 256 * (kSignals + 1);

// Offset of a per-signal field (0 label ... 8 samples per record).
size_t FieldAt(int field, size_t signal) {
    static const size_t widths[] = {16, 80, 8, 8, 8, 8, 8, 80, 8, 32};
    size_t at = 256;
    for (int f = 0; f < field; ++f) at += widths[f] * kSignals;
    return at + widths[field] * signal;
}

struct Corruption {
    const char* name;
    size_t at;
    std::string bytes;   // written at `at`; empty: the file is cut to `at` bytes
    std::string field;   // expected in the message
    bool tolerated = false;  // opens, with a note naming the field
};

class EdfMalformed : public ::testing::TestWithParam<Corruption> {};

TEST_P(EdfMalformed, IsRefusedOrToleratedWithTheFieldNamed) {
    const Corruption& c = GetParam();
    testsupport::TempDir dir;
    const std::string path = dir / "bad.edf";
    std::string error;
    EdfHeader header = Header(EdfFormat::EdfPlus);
    header.start = CSDateTime(2031, 7, 14, 22, 5, 7);
    ASSERT_TRUE(edftest::WriteFile(path, header, Signals(EdfFormat::EdfPlus), {0, 0.5, 1, 1.5}, kAnnotations, error))
        << error;
    std::string bytes = edftest::ReadAll(path);
    {
        EdfReader reader;
        ASSERT_TRUE(reader.Open(path, error)) << error;
    }
    if (c.bytes.empty()) bytes.resize(c.at);
    else bytes.replace(c.at, c.bytes.size(), c.bytes);
    edftest::WriteAll(path, bytes);
    EdfReader reader;
    if (c.tolerated) {
        // Departures the common readers accept: the file opens and says
        // what was tolerated.
        ASSERT_TRUE(reader.Open(path, error)) << error;
        std::string notes;
        for (const std::string& n : reader.Notes()) notes += n + "\n";
        EXPECT_NE(notes.find(c.field), std::string::npos) << notes;
        return;
    }
    EXPECT_FALSE(reader.Open(path, error));
    EXPECT_NE(error.find(c.field), std::string::npos) << error;
    EXPECT_FALSE(reader.IsOpen());
}

// Record layout: 128 + 1 + 25 samples, then the annotation signal.
constexpr size_t kAnnotationAt = (128 + 1 + 25) * 2;
size_t RecordAt(size_t r, size_t recordBytes) { return kHeaderBytes + r * recordBytes; }

std::vector<Corruption> Corruptions() {
    return {
        {"version", 0, "1       ", "version"},
        {"patient_control", 8, "\t", "local patient identification"},
        {"recording_control", 100, std::string(1, '\x1B'), "local recording identification"},
        {"startdate", 168, "31.02.31", "startdate", true},
        {"startdate_shape", 168, "3.09.251", "startdate"},
        {"starttime", 176, "22:05:07", "starttime"},
        {"header_bytes_text", 184, "10x4    ", "number of bytes in header record"},
        {"header_bytes_value", 184, "768     ", "number of bytes in header record"},
        {"reserved", 192, "EDF+X", "reserved"},
        {"records_text", 236, "four    ", "number of data records"},
        {"records_too_many", 236, "5       ", "number of data records", true},
        {"records_negative", 236, "-2      ", "number of data records"},
        {"duration_exponent", 244, "5e-1    ", "duration of a data record"},
        {"duration_zero", 244, "0       ", "duration of a data record", true},
        {"signals_zero", 252, "0   ", "number of signals"},
        {"signals_mismatch", 252, "5   ", "number of bytes in header record"},
        {"label_control", FieldAt(0, 1), "\x01", "label"},
        {"physical_min", FieldAt(3, 0), "-3.2.1  ", "physical minimum (signal 1)"},
        {"physical_equal", FieldAt(4, 1), "0       ", "physical maximum (signal 2)"},
        {"digital_min_range", FieldAt(5, 2), "-40000  ", "digital minimum / maximum (signal 3)", true},
        {"digital_min_text", FieldAt(5, 2), "-4e4    ", "digital minimum (signal 3)"},
        {"digital_max_text", FieldAt(6, 0), "32767.5 ", "digital maximum (signal 1)"},
        {"digital_max_below_min", FieldAt(6, 1), "0       ", "digital maximum (signal 2)"},
        {"no_samples", FieldAt(8, 2), "0       ", "number of samples in each data record (signal 3)"},
        {"annotation_label", FieldAt(0, 3), "EDF Notes       ", "aucun signal « EDF Annotations »", true},
        {"short_header", 100, "", "header"},
        {"cut_in_signal_header", 600, "", "number of bytes in header record"},
        {"cut_in_data", 0, "", "number of data records", true},  // `at` set below
        {"tal_onset", 0, "x", "EDF Annotations, enregistrement 0"},
        {"tal_unterminated", 0, "", "EDF Annotations, enregistrement 1"},
        {"tal_not_time_keeping", 0, "+1\x14" "hi\x14\0"s, "enregistrement 2 : la première TAL"},
        {"tal_not_contiguous", 0, "+2\x14\x14\0"s, "continu (+C)", true},
        {"tal_overlap", 0, "+0\x14\x14\0"s, "continu (+C)", true},
    };
}

// The record size depends on the planned annotation room; the cases that
// touch records are completed from a file written the same way.
std::vector<Corruption> CompletedCorruptions() {
    testsupport::TempDir dir;
    std::string error;
    EdfHeader header = Header(EdfFormat::EdfPlus);
    header.start = CSDateTime(2031, 7, 14, 22, 5, 7);
    edftest::WriteFile(dir / "f.edf", header, Signals(EdfFormat::EdfPlus), {0, 0.5, 1, 1.5}, kAnnotations, error);
    const std::string file = edftest::ReadAll(dir / "f.edf");
    const size_t recordBytes = (file.size() - kHeaderBytes) / 4;
    std::vector<Corruption> cases = Corruptions();
    for (Corruption& c : cases) {
        const std::string name = c.name;
        if (name == "cut_in_data") c.at = file.size() - 5;
        else if (name == "tal_onset") c.at = RecordAt(0, recordBytes) + kAnnotationAt + 1;
        else if (name == "tal_unterminated") {
            c.at = RecordAt(1, recordBytes) + kAnnotationAt;
            c.bytes = std::string(recordBytes - kAnnotationAt, 'a');
        } else if (name.rfind("tal_", 0) == 0)
            c.at = RecordAt(2, recordBytes) + kAnnotationAt;
    }
    return cases;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Fields, EdfMalformed, ::testing::ValuesIn(CompletedCorruptions()),
                         [](const ::testing::TestParamInfo<Corruption>& info) { return std::string(info.param.name); });
