// sigfile demo OUT.SIG [--minutes M] [--seed S]: writes a synthetic night
// recording through the library's own writer: 19 EEG sites against a common
// reference, eye, chin, heart, breathing and oxygen channels, a bipolar and
// an average-reference montage, sleep stages, bookmarks, annotations and
// detections.
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <string>

#include "Commands.h"
#include "formats/native/STDSIGFI.h"
#include "platform/FileOps.h"
#include "DemoSignals.h"
#include "ToolSupport.h"
#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "records/SigRec.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace sigfile_tool {
namespace {

using namespace demo;

struct DemoOptions {
    std::string out;
    double minutes = 10.0;
    std::uint64_t seed = 1;
};

// The recording starts at a fixed time so that a seed gives the same file.
const CSDateTime kStart(2026, 1, 31, 22, 5, 0.0);

// The 18 channels of the longitudinal bipolar ("double banana") montage.
const char* const kBipolar[][2] = {
    {"Fp1", "F7"}, {"F7", "T3"}, {"T3", "T5"}, {"T5", "O1"}, {"Fp2", "F8"}, {"F8", "T4"},
    {"T4", "T6"},  {"T6", "O2"}, {"Fp1", "F3"}, {"F3", "C3"}, {"C3", "P3"}, {"P3", "O1"},
    {"Fp2", "F4"}, {"F4", "C4"}, {"C4", "P4"}, {"P4", "O2"}, {"Fz", "Cz"}, {"Cz", "Pz"},
};

bool BuildMontage(CPhysicalMontage& physical) {
    const auto& channels = Channels();
    bool ok = true;
    for (const ChannelSpec& ch : channels)
        ok = ok && physical.AddElectrode(ch.electrode1, CPhysicalMontage::GetStdElecPosition(ch.electrode1));
    ok = ok && physical.AddElectrode("REF", CPhysicalMontage::GetStdElecPosition("REF"));
    CRecordingMontage* rec = physical.CreateRecordingMontage();
    ok = ok && rec && rec->SetMontageName("PSG") && rec->SetBaseFrequency(kBaseFrequency) &&
         rec->SetSamplesRecord(kSamplesRecord);
    for (const ChannelSpec& ch : channels)
        ok = ok && rec->AddChannel(ch.electrode1, ch.electrode2, CPhysicalMontage::GetStdElecTypeCode(ch.electrode1),
                                   CPhysicalMontage::GetStdElecUnitCode(ch.electrode1), ch.frequency,
                                   RGB(0, 0, 128), 0, "");
    if (!ok) return false;

    // Formulas name the channels by their first electrode.
    CReformatedMontage* bipolar = rec->CreateReformatedMontage();
    ok = bipolar && bipolar->SetMontageName("Bipolar");
    for (const auto& pair : kBipolar) {
        const std::string label = ToUpperAscii(pair[0]) + "-" + ToUpperAscii(pair[1]);
        ok = ok && bipolar->AddChannel(label.c_str(), label.c_str(), RGB(0, 0, 0));
    }
    CReformatedMontage* average = rec->CreateReformatedMontage();
    ok = ok && average && average->SetMontageName("Average");
    std::string sum;
    for (unsigned site = 0; site < kNumEegSites; ++site)
        sum += (site ? "+" : "") + ToUpperAscii(channels[site].electrode1);
    ok = ok && average->AddGlobal("AVG", ("(" + sum + ")/19").c_str());
    for (unsigned site = 0; site < kNumEegSites; ++site) {
        const std::string label = ToUpperAscii(channels[site].electrode1) + "-AVG";
        ok = ok && average->AddChannel(label.c_str(), label.c_str(), RGB(0, 64, 0));
    }
    return ok;
}

CCalibration BuildCalibration() {
    const auto& channels = Channels();
    // 0.1 µV per AD step at the amplifier input.
    CCalibration calibration(static_cast<unsigned>(channels.size()), -32768, -0.0032768f, 32767, 0.0032767f,
                             kBaseFrequency);
    for (unsigned c = 0; c < channels.size(); ++c)
        calibration.SetCalibFromPoints(c, 0, 0.0f, 0.0f, 10000, 0.001f, channels[c].worldPerMillivolt);
    return calibration;
}

CPatientInfo BuildPatient(std::uint64_t seed) {
    CPatientInfo p;
    p.SetPatientId1(StrFormat("DEMO-%04u", static_cast<unsigned>(seed % 10000)));
    p.SetPatientId2("PSG-2026-0131");
    p.SetLastName("Tremblay-Bérubé");
    p.SetFirstName("Hélène");
    p.SetBirthDate(CSDateTime(1961, 4, 17));
    p.SetSex(2);
    p.SetAddress("12, rue des Érables");
    p.SetCity("Québec");
    p.SetState("QC");
    p.SetCountry("Canada");
    p.SetZip("G1R 2L3");
    p.SetPhoneHome("418 555-0142");
    p.SetPhoneWork("418 555-0199");
    p.SetComment("Patiente fictive : enregistrement de démonstration, ronflements et somnolence diurne.");
    p.SetHeight(1.64, 1);
    p.SetWeight(61.5, 1);
    p.SetUserFieldP1("Ronflements");
    p.SetUserFieldP2("Épworth 14/24");
    p.SetUserFieldP3("Médecin : Dr Côté");
    return p;
}

// Adds the status groups and items that the plan implies.
class StatusWriter {
public:
    explicit StatusWriter(CSigFile& file) : m_file(file) {}

    const CStatusGroup* AddGroup(const char* id, unsigned type, unsigned extent, DWORD color,
                                 std::initializer_list<std::pair<const char*, const char*>> groupProps,
                                 std::initializer_list<std::pair<const char*, const char*>> itemProps) {
        auto* g = new CStatusGroup(id, GetDefaultGroupName(id).c_str(), GetDefaultGroupDesc(id).c_str(), type, 0,
                                   extent, -1, "", color, 0, 1, 0);
        for (const auto& [key, value] : groupProps) g->AddGroupProperty(key, GetGroupPropertyDesc(id, key).c_str(), value);
        for (const auto& [key, description] : itemProps) g->AddProperty(key, description);
        m_file.AddGroup(g);
        return g;
    }

    // begin and end in seconds from the start.
    void AddItem(const CStatusGroup* group, double begin, double end, const char* name, const char* channel = "",
                 const char* comments = "", std::initializer_list<std::pair<const char*, std::string>> props = {}) {
        auto* item = new CStatusItem(group, Sample(begin), kStart + CSTimeSpan(begin), Sample(end),
                                     kStart + CSTimeSpan(end), channel, name, comments, group->GetGroupColor(), 1);
        item->FitPropertiesToGroup();
        for (const auto& [key, value] : props) item->SetPropertyValueAt(key, value.c_str());
        m_file.AddStatusItem(item);
    }

private:
    static LONG Sample(double seconds) { return static_cast<LONG>(std::lround(seconds * kBaseFrequency)); }
    CSigFile& m_file;
};

void AddStatus(CSigFile& file, const Plan& plan) {
    StatusWriter w(file);
    const CStatusGroup* stages = w.AddGroup(groupid::kSleepStages, 4, 1, RGB(0, 0, 255), {{"EpochLength", "30"}}, {});
    const size_t wholeEpochs = static_cast<size_t>(plan.seconds / kEpochSeconds + 1e-9);
    for (size_t e = 0; e < wholeEpochs; ++e)
        w.AddItem(stages, e * kEpochSeconds, (e + 1) * kEpochSeconds, StageName(plan.stages[e]));

    const CStatusGroup* bookmarks = w.AddGroup(groupid::kBookmarks, 3, 0, RGB(255, 128, 0), {}, {});
    w.AddItem(bookmarks, 0.0, 0.0, "Début de l'enregistrement");
    if (plan.seconds >= 120.0) {
        w.AddItem(bookmarks, 30.0, 30.0, "Lumières éteintes");
        w.AddItem(bookmarks, plan.seconds - 30.0, plan.seconds - 30.0, "Lumières allumées");
    }

    const CStatusGroup* notes = w.AddGroup(groupid::kAnnotation, 3, 0, RGB(0, 128, 0), {}, {});
    w.AddItem(notes, std::min(15.0, plan.seconds), std::min(15.0, plan.seconds), "Calibration des yeux", "",
              "Regarder à gauche, à droite, cligner");
    if (plan.seconds >= 240.0) {
        w.AddItem(notes, 200.0, 200.0, "Électrode O1 réajustée", "O1-REF", "Impédance élevée signalée");
        w.AddItem(notes, plan.seconds * 0.6, plan.seconds * 0.6, "Ronflements", "", "Noté par la technicienne");
    }

    const CStatusGroup* spindles =
        w.AddGroup(groupid::kSpindle, 3, 1, RGB(128, 0, 128),
                   {{"SPNPWRTHR", "2.5"}, {"MINSPNDUR", "0.5"}, {"ARTREJTHR", "300"}},
                   {{"Frequency", "Fréquence (Hz)"}, {"Amplitude", "Amplitude crête (µV)"}});
    for (const Spindle& s : plan.spindles)
        w.AddItem(spindles, s.t0, s.t0 + s.duration, "Fuseau", "C3-REF", "",
                  {{"Frequency", StrFormat("%.1f", s.frequency)}, {"Amplitude", StrFormat("%.0f", s.amplitude)}});

    const CStatusGroup* respiratory =
        w.AddGroup(groupid::kRespiratory, 3, 1, RGB(200, 0, 0), {{"EVTLEN", "10"}, {"APNPER", "90"}, {"HYPPER", "30"}},
                   {{"FlowReduction", "Réduction du débit (%)"}});
    const CStatusGroup* desaturations =
        w.AddGroup(groupid::kDesaturation, 3, 1, RGB(0, 160, 160), {{"MINDUR", "3"}, {"THRESHOLD", "3"}},
                   {{"Nadir", "Saturation minimale (%)"}, {"Drop", "Baisse de la saturation (%)"}});
    for (const Breathing& b : plan.breathing) {
        w.AddItem(respiratory, b.t0, b.t0 + b.duration, b.apnea ? "Apnée obstructive" : "Hypopnée", "Flow", "",
                  {{"FlowReduction", StrFormat("%.0f", b.flowReduction)}});
        w.AddItem(desaturations, Plan::DesatBegin(b), Plan::DesatEnd(b), "Désaturation", "SpO2", "",
                  {{"Nadir", StrFormat("%.1f", Plan::kBaselineSpO2 - b.drop)}, {"Drop", StrFormat("%.1f", b.drop)}});
    }
}

// Writes the recording under name; false after the library's error box.
bool WriteRecording(const std::string& name, const std::string& shownName, const DemoOptions& opt) {
    const Plan plan = MakePlan(opt.minutes, opt.seed);
    CFileHeader header("Polysomnographie de démonstration", "Laboratoire du sommeil (démonstration)", 0, kStart);
    CPatientInfo patient = BuildPatient(opt.seed);
    CPhysicalMontage physical("Montage 10-20 et polygraphie", 0);
    CCalibration calibration = BuildCalibration();
    if (!BuildMontage(physical)) {
        CSigFile::ErrorMessageBox(shownName.c_str(), ERROR_INVALID_PARAMETER);
        return false;
    }
    long error = 0;
    SigFilePtr file(CSigFile::Create(name.c_str(), &header, &patient, &physical, &calibration, SIGFILE_FORMAT_NATIVE,
                                     &error, 1));
    if (!file) {
        CSigFile::ErrorMessageBox(shownName.c_str(), error);
        return false;
    }
    std::unique_ptr<CFmtSigRec> rec(file->CreateCompatibleFmtSigRec());
    Synthesizer synth(plan, opt.seed);
    ProgressBar bar("demo", static_cast<unsigned long long>(plan.records));
    for (long r = 0; r < plan.records; ++r) {
        synth.FillRecord(r, *rec);
        rec->SetTime(kStart + CSTimeSpan(static_cast<double>(r) * kRecordSeconds));
        file->MoveTo(r);
        if (!file->Write(rec.get())) {
            bar.Finish();
            CSigFile::ErrorMessageBox(shownName.c_str(), file->GetIOError() ? file->GetIOError() : ERROR_WRITE_FAULT);
            return false;
        }
        bar.Update(static_cast<unsigned long long>(r + 1));
    }
    bar.Finish();
    AddStatus(*file, plan);
    if (!file->Flush()) {
        CSigFile::ErrorMessageBox(shownName.c_str(), file->GetIOError() ? file->GetIOError() : ERROR_WRITE_FAULT);
        return false;
    }
    CSigFile* raw = file.release();
    const bool closed = raw->Close() != 0;
    const long code = raw->GetIOError();
    delete raw;
    if (!closed) CSigFile::ErrorMessageBox(shownName.c_str(), code ? code : ERROR_WRITE_FAULT);
    return closed;
}

int RunDemo(const DemoOptions& opt) {
    // The recording is made under a temporary name beside the target and
    // takes the target's name only once complete, so that an existing
    // recording is replaced only by a whole new one.
    const std::string temp = OwnedTemporaryName(opt.out, "demo");
    if (!CSigFile::IsValidFormat(opt.out.c_str()) || GetSigFileFormat(opt.out.c_str()) != SIGFILE_FORMAT_NATIVE) {
        CSigFile::ErrorMessageBox(opt.out.c_str(), ERROR_INVALID_NAME);
        return 1;
    }
    if (!WriteRecording(temp, opt.out, opt)) {
        CSigFile::Delete(temp.c_str());
        return 1;
    }
    SetLastError(0);
    // In place of an existing recording, all or nothing.
    if (!ReplaceRecording(temp, opt.out)) {
        const long code = GetLastError();
        CSigFile::Delete(temp.c_str());
        CSigFile::ErrorMessageBox(opt.out.c_str(), code ? code : ERROR_WRITE_FAULT);
        return 1;
    }
    return 0;
}

}  // namespace

void RegisterDemoCommand(CLI::App& app) {
    auto opt = std::make_shared<DemoOptions>();
    auto* cmd = app.add_subcommand("demo", "write a realistic synthetic night recording");
    cmd->add_option("OUT", opt->out, "recording to write (.SIG)")->required();
    cmd->add_option("--minutes", opt->minutes, "length in minutes (default 10)")
        ->check(CLI::Range(0.01, 1440.0));
    cmd->add_option("--seed", opt->seed, "seed of the synthetic signals and events (default 1)");
    cmd->callback([opt] { g_exitStatus = RunDemo(*opt); });
}

}  // namespace sigfile_tool
