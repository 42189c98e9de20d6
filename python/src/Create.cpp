// sigfile.create: a native recording written from arrays of samples.
//
// Each channel's calibration is fitted to the range its samples use (the
// 16-bit codes -32767..32767 span its minimum to its maximum), so that the
// stored resolution is the best a 16-bit channel can give.  Values keep the
// unit they are given in.
// The rates must be whole numbers that share native records: the fastest
// channel sets the base frequency, a record holds 64 of its samples and
// every other channel a whole number of its own.  The last record is
// completed by holding each channel's last sample.
#include "Create.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "formats/edf/EdfNative.h"
#include "formats/native/STDSIGFI.h"
#include "montage/mtgs.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace sigfile_python {

namespace {

constexpr unsigned kRecordSamples = 64;

[[noreturn]] void Refuse(const std::string& text) { throw LibraryError{ERROR_INVALID_PARAMETER, text}; }

CPatientInfo MakePatient(const std::map<std::string, std::string>& fields) {
    CPatientInfo p;
    for (const auto& [key, value] : fields) {
        if (key == "id1") p.SetPatientId1(value, CPatientInfo::kMaxPatientId);
        else if (key == "id2") p.SetPatientId2(value, CPatientInfo::kMaxPatientId);
        else if (key == "last_name") p.SetLastName(value, CPatientInfo::kMaxName);
        else if (key == "first_name") p.SetFirstName(value, CPatientInfo::kMaxName);
        else if (key == "comment") p.SetComment(value);
        else if (key == "sex") p.SetSex(value == "M" || value == "1" ? 1 : value == "F" || value == "2" ? 2 : 0);
        else if (key == "birth_date") {
            CSDateTime date;
            if (!CSDateTime::FromText(value, date)) Refuse(Text(IDS_PY_BIRTH_DATE, value.c_str()));
            p.SetBirthDate(date);
        } else {
            Refuse(Text(IDS_PY_PATIENT_FIELD, key.c_str()));
        }
    }
    return p;
}

// Unique electrode names made of the labels (a montage names each electrode once).
std::vector<std::string> ElectrodeNames(const std::vector<std::string>& labels) {
    std::vector<std::string> names;
    std::map<std::string, int> used;
    for (size_t c = 0; c < labels.size(); ++c) {
        std::string name = labels[c];
        name.erase(0, name.find_first_not_of(' '));
        name.erase(name.find_last_not_of(' ') + 1);
        if (name.empty()) name = StrFormat("S%zu", c + 1);
        std::replace_if(name.begin(), name.end(), [](char x) { return x == '[' || x == ']'; }, '_');
        if (used[ToUpperAscii(name)]++) name += "~" + std::to_string(c + 1);
        names.push_back(name);
    }
    return names;
}

const CStatusGroup* GroupFor(CSigFile& file, const std::string& kind) {
    const char* id = kind == "sleep_stage" ? groupid::kSleepStages : groupid::kAnnotation;
    for (unsigned g = 0; g < file.GetNumGroups(); ++g)
        if (EqualsNoCase(file.GetGroupAt(g)->GetGroupID(), id)) return file.GetGroupAt(g);
    // Sleep stages are sections (type 4); annotations are spans (type 1).
    auto* group = new CStatusGroup(id, GetDefaultGroupName(id).c_str(), GetDefaultGroupDesc(id).c_str(),
                                   kind == "sleep_stage" ? 4 : 1, 0, 1, -1, "", 0, 0, 1, 0);
    file.AddGroup(group);
    return group;
}

}  // namespace

void CreateRecording(const CreateRequest& rq) {
    const size_t n = rq.data.size();
    if (n == 0) Refuse(Text(IDS_PY_NO_CHANNEL));
    if (n > kMaxMontageChannels) Refuse(Text(IDS_PY_TOO_MANY_CHANNELS, n, kMaxMontageChannels));
    if (rq.rates.size() != n || rq.labels.size() != n || rq.units.size() != n || rq.types.size() != n)
        Refuse(Text(IDS_PY_ONE_PER_CHANNEL));
    CSDateTime start;
    if (!CSDateTime::FromText(rq.start, start)) Refuse(Text(IDS_PY_START, rq.start.c_str()));

    // Rates: whole numbers sharing 64-sample records of the fastest.
    std::vector<unsigned> rates(n), perRecord(n);
    for (size_t c = 0; c < n; ++c) {
        const double f = rq.rates[c];
        if (!(f >= 1.0) || f > 65535.0 || std::fabs(f - std::round(f)) > 1e-9)
            Refuse(Text(IDS_PY_WHOLE_RATES, rq.labels[c].c_str(), f));
        rates[c] = static_cast<unsigned>(std::lround(f));
    }
    const unsigned base = *std::max_element(rates.begin(), rates.end());
    long long records = 0;
    for (size_t c = 0; c < n; ++c) {
        if ((static_cast<unsigned long long>(kRecordSamples) * rates[c]) % base != 0)
            Refuse(Text(IDS_PY_RATE_SHARE, rq.labels[c].c_str(), rates[c], kRecordSamples, base));
        perRecord[c] = static_cast<unsigned>(static_cast<unsigned long long>(kRecordSamples) * rates[c] / base);
        if (rq.data[c].empty()) Refuse(Text(IDS_PY_NO_SAMPLE, rq.labels[c].c_str()));
        for (float v : rq.data[c])
            if (!std::isfinite(v)) Refuse(Text(IDS_PY_NOT_FINITE, rq.labels[c].c_str()));
        records = std::max<long long>(records, (static_cast<long long>(rq.data[c].size()) + perRecord[c] - 1) / perRecord[c]);
    }
    if (records > 0x7FFFFFFF / static_cast<long long>(kRecordSamples)) Refuse(Text(IDS_PY_TOO_LONG));

    // Montage and calibration.
    const std::vector<std::string> electrodes = ElectrodeNames(rq.labels);
    CPhysicalMontage physical("", 0);
    CRecordingMontage* rec = physical.CreateRecordingMontage();
    rec->SetRecordShapeConfirmed(kRecordSamples, base);
    CCalibration calibration(static_cast<unsigned>(n), -32768, -0.0032768f, 32767, 0.0032767f, double(base));
    for (size_t c = 0; c < n; ++c) {
        const char* elec = electrodes[c].c_str();
        const bool standard = CPhysicalMontage::IsStdElec(elec);
        if (!physical.IsElectrodeOfMontage(elec))
            physical.AddElectrode(elec, standard ? CPhysicalMontage::GetStdElecPosition(elec) : CPolar3D());
        double factor = 1.0;
        unsigned unit = rq.units[c].empty() ? 3 : edf::UnitCodeOfText(rq.units[c], factor);
        if (!unit || factor != 1.0) Refuse(Text(IDS_PY_UNIT, rq.labels[c].c_str(), rq.units[c].c_str()));
        unsigned type = edf::TypeCodeOfText(rq.types[c]);
        if (!type) type = standard ? CPhysicalMontage::GetStdElecTypeCode(elec) : 1;
        rec->AppendChannelConfirmed(elec, "", type, unit, rates[c], 0, 0, "");
        rec->SetSamplesChannelConfirmed(static_cast<unsigned>(c), perRecord[c]);

        const auto [lo, hi] = std::minmax_element(rq.data[c].begin(), rq.data[c].end());
        double w1 = *lo, w2 = *hi;
        if (w2 - w1 < 1e-12 * std::max(1.0, std::fabs(w1))) {
            // A flat channel: any small range around its value.
            const double half = std::max(std::fabs(w1) * 1e-3, 1e-9);
            w1 -= half;
            w2 += half;
        }
        // The codes keep the file's common code-to-volt scale; the channel's
        // world values are what the fit gives each code.
        const float v1 = float(calibration.AdToVolt(-32767)), v2 = float(calibration.AdToVolt(32767));
        calibration.SetCalibFromPoints(static_cast<unsigned>(c), -32767, v1, float(w1), 32767, v2, float(w2));
    }

    CFileHeader header(rq.description, "", 0, start);
    CPatientInfo patient = MakePatient(rq.patient);

    // Written beside the target, which it replaces only once complete.
    const std::string temp = OwnedTemporaryName(rq.path, "create");
    CSigFile::Delete(temp.c_str());
    long error = 0;
    TakeCapturedMessages();
    CSigFilePtr file(CSigFile::Create(temp.c_str(), &header, &patient, &physical, &calibration, SIGFILE_FORMAT_NATIVE,
                                      &error, 1));
    if (!file) ThrowFileError(rq.path, error);
    auto fail = [&](long code) {
        file.reset();
        CSigFile::Delete(temp.c_str());
        ThrowFileError(rq.path, code ? code : ERROR_WRITE_FAULT);
    };
    std::unique_ptr<CFmtSigRec> record(file->CreateCompatibleFmtSigRec());
    const double recordSeconds = double(kRecordSamples) / base;
    for (long r = 0; r < records; ++r) {
        for (size_t c = 0; c < n; ++c) {
            const std::vector<float>& x = rq.data[c];
            float* out = record->GetAt(static_cast<unsigned>(c));
            const size_t from = size_t(r) * perRecord[c];
            for (unsigned s = 0; s < perRecord[c]; ++s) out[s] = x[std::min(from + s, x.size() - 1)];
        }
        record->SetTime(start + CSTimeSpan(double(r) * recordSeconds));
        file->MoveTo(r);
        if (!file->Write(record.get())) fail(file->GetIOError());
    }
    for (const CreateEvent& e : rq.events) {
        if (!std::isfinite(e.onset) || !std::isfinite(e.duration) || e.duration < 0)
            Refuse(Text(IDS_PY_EVENT, e.description.c_str()));
        const CStatusGroup* group = GroupFor(*file, e.kind);
        const LONG b = LONG(std::llround(e.onset * base)), end = LONG(std::llround((e.onset + e.duration) * base));
        file->AddStatusItem(new CStatusItem(group, b, start + CSTimeSpan(e.onset), std::max(b, end),
                                            start + CSTimeSpan(e.onset + e.duration), "", e.description.c_str(), "", 0,
                                            1));
    }
    if (!file->Flush()) fail(file->GetIOError());
    CSigFile* raw = file.release();
    const bool closed = raw->Close() != 0;
    const long code = raw->GetIOError();
    delete raw;
    if (!closed) {
        CSigFile::Delete(temp.c_str());
        ThrowFileError(rq.path, code ? code : ERROR_WRITE_FAULT);
    }
    SetLastError(0);
    if (!ReplaceRecording(temp, rq.path)) {
        const long replaceError = GetLastError();
        CSigFile::Delete(temp.c_str());
        ThrowFileError(rq.path, replaceError ? replaceError : ERROR_WRITE_FAULT);
    }
}

}  // namespace sigfile_python
