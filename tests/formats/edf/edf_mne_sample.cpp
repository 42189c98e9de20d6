// Writes an EDF+ and a BDF+ file with the library's writer, and beside each a
// JSON description of what an independent reader must find in it (labels,
// rates, physical values in volts, annotations).  Also writes a small native
// recording with status items and exports it to EDF+ through the library's
// export.  Used by check_with_mne.py.
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "../../support/SmallRecording.h"
#include "formats/edf/EdfExport.h"
#include "formats/edf/EdfWriter.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

using namespace edf;

namespace {

// Deterministic samples over the whole digital range.
LONG SampleAt(const EdfSignal& s, int record, int k, size_t signal) {
    long long span = (long long)s.digitalMax - s.digitalMin + 1;
    long long n = (long long)record * 7919 + k * 104729 + (long long)signal * 1299709;
    return LONG(s.digitalMin + (n * 2654435761ll) % span);
}

// `fraction`: a start that is not on a whole second; the header keeps the
// second and the TALs the fraction, and onsets stay relative to the first sample.
bool WriteOne(const std::string& path, EdfFormat format, double fraction) {
    const bool bdf = IsBdf(format);
    EdfHeader header;
    header.format = format;
    header.patient.code = "MNE-1";
    header.patient.sex = 'F';
    header.patient.birthYear = 1970;
    header.patient.birthMonth = 4;
    header.patient.birthDay = 9;
    header.patient.name = "Hélène Dupont";
    header.recording.equipment = "sigfile";
    header.start = CSDateTime(2024, 2, 29, 23, 59, 30 + fraction);
    header.recordDuration = 0.25;

    std::vector<EdfSignal> signals(3);
    const char* labels[] = {"Fp1-F3", "C3-A2", "EMG"};
    for (size_t i = 0; i < signals.size(); ++i) {
        EdfSignal& s = signals[i];
        s.label = labels[i];
        s.unit = "uV";
        s.samplesPerRecord = 64;  // 256 Hz
        s.digitalMin = bdf ? -8388608 : -32768;
        s.digitalMax = bdf ? 8388607 : 32767;
        s.physicalMin = i == 2 ? -100 : -3276.8;
        s.physicalMax = i == 2 ? 100 : 3276.7;
    }
    const int records = 40;
    std::vector<EdfAnnotation> annotations = {
        {0.5, 1.5, "Stade 1"}, {2.25, std::nullopt, "Éveil"}, {7.75, 0.125, "Mouvement"}};
    std::vector<double> starts;
    for (int r = 0; r < records; ++r) starts.push_back(r * 0.25);
    EdfAnnotationPlan plan = PlanAnnotations(starts, annotations, EdfStartFraction(header.start));

    nlohmann::json expected;
    expected["labels"] = nlohmann::json::array();
    for (const EdfSignal& s : signals) expected["labels"].push_back(s.label);
    expected["sfreq"] = 256.0;
    std::vector<std::vector<double>> volts(signals.size());

    EdfWriter writer;
    std::string error;
    bool ok = writer.Open(path, header, signals, plan.bytesPerRecord, error);
    for (int r = 0; ok && r < records; ++r) {
        std::vector<std::vector<LONG>> samples(signals.size());
        for (size_t i = 0; i < signals.size(); ++i)
            for (int k = 0; k < signals[i].samplesPerRecord; ++k) {
                LONG v = SampleAt(signals[i], r, k, i);
                samples[i].push_back(v);
                volts[i].push_back(signals[i].ToPhysical(v) * 1e-6);
            }
        ok = writer.WriteRecord(starts[size_t(r)], samples, plan.perRecord[size_t(r)], error);
    }
    if (ok) ok = writer.Close(error);
    if (!ok) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
        return false;
    }
    expected["data"] = volts;
    expected["annotations"] = nlohmann::json::array();
    for (const EdfAnnotation& a : annotations)
        expected["annotations"].push_back({{"onset", a.onset}, {"duration", a.duration.value_or(0.0)},
                                           {"text", a.text}});
    expected["meas_date"] = "2024-02-29T23:59:30";
    std::ofstream(path + ".json") << expected.dump();
    return true;
}

// A native recording of 3 channels at 256 Hz over 10 s with two items,
// exported to `path`; the expected values come from the native reads.
bool ExportNative(const std::string& folder, const std::string& path) {
    const std::string native = folder + "/native.SIG";
    auto d = testsupport::DescribeRecording({256, 256, 256});
    long code = 0;
    CSigFile* f = testsupport::CreateRecording(native, d, &code);
    if (!f) return false;
    std::unique_ptr<CRawSigRec> raw(f->CreateCompatibleRawSigRec());
    const long records = 40;
    for (long r = 0; r < records; ++r) {
        testsupport::FillRecord(*raw, r);
        f->MoveTo(r);
        f->Write(raw.get());
    }
    const CSDateTime start(2026, 1, 31, 22, 5, 0);
    auto* notes = new CStatusGroup(groupid::kAnnotation, "Annotation", "", 3, 0, 0, -1, "", 0, 0, 1, 0);
    auto* stages = new CStatusGroup("11111111-2222-3333-4444-555555555555", "Stades", "", 3, 0, 1, -1, "", 0, 0, 1, 0);
    f->AddGroup(notes);
    f->AddGroup(stages);
    f->AddStatusItem(new CStatusItem(notes, 128, start + CSTimeSpan(0.5), 128, start + CSTimeSpan(0.5), "",
                                     "Yeux fermés", "", 0, 1));
    f->AddStatusItem(new CStatusItem(stages, 512, start + CSTimeSpan(2.0), 1024, start + CSTimeSpan(4.0), "",
                                     "Stade 2", "", 0, 1));
    nlohmann::json expected;
    expected["labels"] = nlohmann::json::array();
    const CRecordingMontage* rec = f->GetPhysicalMontage()->GetRecordingMontageAt(0);
    for (unsigned c = 0; c < f->GetNumChannels(); ++c) expected["labels"].push_back(rec->GetLabel(c));
    expected["sfreq"] = 256.0;
    std::vector<std::vector<double>> volts(f->GetNumChannels());
    for (long r = 0; r < records; ++r) {
        f->MoveTo(r);
        f->Read(raw.get());
        for (unsigned c = 0; c < f->GetNumChannels(); ++c)
            for (unsigned k = 0; k < raw->GetNumSamples(c); ++k)
                volts[c].push_back(f->GetCalibration()->AdToWorld(c, raw->GetAt(c, k)) * 1e-6);
    }
    bool ok = f->Flush() != 0;
    f->Close();
    delete f;
    std::string error;
    if (!ok || !edf::ExportEdf(native.c_str(), path.c_str(), {}, &error)) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
        return false;
    }
    expected["data"] = volts;
    expected["annotations"] = {{{"onset", 0.5}, {"duration", 0.0}, {"text", "Yeux fermés"}},
                               {{"onset", 2.0}, {"duration", 2.0}, {"text", "Stades: Stade 2"}}};
    expected["meas_date"] = "2026-01-31T22:05:00";
    expected["tolerance"] = 1e-3 * 0.1e-6;  // a thousandth of the 0.1 uV step, in volts
    std::ofstream(path + ".json") << expected.dump();
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: edf_mne_sample FOLDER\n");
        return 2;
    }
    std::string dir = argv[1];
    return WriteOne(dir + "/sample.edf", EdfFormat::EdfPlus, 0) &&
                   WriteOne(dir + "/sample.bdf", EdfFormat::BdfPlus, 0.5) && ExportNative(dir, dir + "/native.edf")
               ? 0
               : 1;
}
