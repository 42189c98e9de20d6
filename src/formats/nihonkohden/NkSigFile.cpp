#include "formats/nihonkohden/NkSigFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <numeric>

#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "platform/strings/NkStrings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "records/SigCoDec.h"
#include "status/GroupDefaults.h"
#include "status/IntStsFile.h"
#include "status/stsitm.h"

IMPLEMENT_DYNAMIC(CNkSigFile, CIntSigFile)

namespace {

constexpr size_t kTimeBytes = 8;
constexpr unsigned kMaxRecordSamples = 65535;

const char* const kDevices[] = {"EEG-1100A V01.00", "EEG-1100B V01.00", "EEG-1100C V01.00", "QI-403A   V01.00",
                                "QI-403A   V02.00", "EEG-2100  V01.00", "EEG-2100  V02.00", "DAE-2100D V01.30",
                                "DAE-2100D V02.00", "EEG-1200A V01.00"};

bool IsDevice(const BYTE* p) {
    for (const char* d : kDevices)
        if (std::memcmp(p, d, 16) == 0) return true;
    return false;
}

// The standard names of electrode codes, used without a ".21E" file.
std::vector<std::string> DefaultNames() {
    std::vector<std::string> n = {"FP1", "FP2", "F3", "F4", "C3", "C4", "P3", "P4", "O1", "O2", "F7", "F8", "T3",
                                  "T4",  "T5",  "T6", "FZ", "CZ", "PZ", "E",  "PG1", "PG2", "A1", "A2", "T1", "T2"};
    for (int i = 1; i <= 11; ++i) n.push_back("X" + std::to_string(i));
    for (int i = 1; i <= 5; ++i) n.push_back("NA" + std::to_string(i));
    for (int i = 1; i <= 32; ++i) n.push_back(StrFormat("DC%02d", i));
    for (const char* s : {"BN1", "BN2", "Mark1", "Mark2"}) n.push_back(s);
    for (int i = 6; i <= 27; ++i) n.push_back("NA" + std::to_string(i));
    for (const char* s : {"X12/BP1", "X13/BP2", "X14/BP3", "X15/BP4"}) n.push_back(s);
    for (int i = 16; i <= 165; ++i) n.push_back("X" + std::to_string(i));
    n.push_back("NA28");
    n.push_back("Z");
    return n;
}

// A NUL-ended text of at most `width` bytes, UTF-8 (or Windows-1252), trimmed.
std::string Text(const BYTE* p, size_t width) {
    size_t n = 0;
    while (n < width && p[n]) ++n;
    std::string s(reinterpret_cast<const char*>(p), n);
    s = IsUtf8(s) ? s : Cp1252ToUtf8(s);
    const size_t a = s.find_first_not_of(' '), b = s.find_last_not_of(' ');
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

int Bcd(BYTE b) { return (b >> 4) * 10 + (b & 0x0F); }

bool Digits(const std::string& s) {
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The first of base + each spelling that exists, "" when none.
std::string SideFile(const std::string& base, std::initializer_list<const char*> spellings) {
    for (const char* ext : spellings)
        if (VhlCheckFileExist(base + ext)) return base + ext;
    return {};
}

std::vector<BYTE> ReadAll(const std::string& name, size_t limit = size_t(64) << 20) {
    std::ifstream in(name, std::ios::binary);
    std::vector<BYTE> bytes;
    if (!in) return bytes;
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size <= 0 || size_t(size) > limit) return bytes;
    bytes.resize(size_t(size));
    in.seekg(0);
    in.read(reinterpret_cast<char*>(bytes.data()), size);
    return bytes;
}

uint32_t U32(const std::vector<BYTE>& b, size_t at) {
    return at + 4 <= b.size() ? uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 |
                                    uint32_t(b[at + 3]) << 24
                              : 0;
}

// The codec of a record image: its time, then its multiplexed words.
class CNkCoDec : public CSigCoDec {
    DECLARE_DYNAMIC(CNkCoDec)
public:
    CNkCoDec(unsigned channels, unsigned samples) : m_counts(channels, static_cast<unsigned short>(samples)) {}
    unsigned GetCompRecSize() const override {
        return unsigned(kTimeBytes + size_t(m_counts.size() + 1) * (m_counts.empty() ? 0 : m_counts[0]) * 2);
    }
    unsigned GetNumChannels() const override { return unsigned(m_counts.size()); }
    unsigned GetSamplesRecord() const override { return m_counts.empty() ? 0 : m_counts[0]; }
    unsigned short* GetSamplesChannel() const override { return const_cast<unsigned short*>(m_counts.data()); }
    CRawSigRec* CreateCompatibleRawSigRec() const override { return new CRawSigRec(GetNumChannels(), GetSamplesChannel()); }
    CFmtSigRec* CreateCompatibleFmtSigRec() const override { return new CFmtSigRec(GetNumChannels(), GetSamplesChannel()); }
    void Compress(CRawSigRec*, CByteArray*) override {}
    void DeCompress(CByteArray* from, CRawSigRec* to) override {
        if (!from || !to || size_t(from->GetSize()) < GetCompRecSize() || to->GetNumChannels() != m_counts.size()) return;
        const BYTE* in = from->GetData();
        double t = 0;
        std::memcpy(&t, in, kTimeBytes);
        to->SetTime(CSDateTime(t));
        const size_t n = m_counts.size(), samples = GetSamplesRecord();
        for (size_t c = 0; c < n; ++c) {
            short* out = to->GetAt(unsigned(c));
            for (size_t s = 0; s < samples; ++s) {
                const BYTE* p = in + kTimeBytes + (s * (n + 1) + c) * 2;
                out[s] = short(uint16_t(p[0] | p[1] << 8) ^ 0x8000);
            }
        }
    }

private:
    std::vector<unsigned short> m_counts;
};
IMPLEMENT_DYNAMIC(CNkCoDec, CSigCoDec)

}  // namespace

CNkSigFile::CNkSigFile() = default;
CNkSigFile::~CNkSigFile() = default;

bool CNkSigFile::IsNkHeader(const BYTE* head, size_t size) {
    return size >= 0x92 && IsDevice(head) && IsDevice(head + 0x81);
}

std::vector<std::string> CNkSigFile::FilesOfSet(const std::string& name) {
    const std::string base = ExtractBase(name);
    std::vector<std::string> files;
    for (const char* ext : {".EEG", ".PNT", ".LOG", ".21E", ".11D", ".CMT", ".CN2", ".eeg", ".pnt", ".log", ".21e",
                            ".11d", ".cmt", ".cn2"})
        if (VhlCheckFileExist(base + ext)) files.push_back(base + ext);
    return files;
}

CNkSigFile* CNkSigFile::Open(const char* name, long* error, std::string* message) {
    return OpenBuilt(std::unique_ptr<CNkSigFile>(new CNkSigFile), name, error, message,
                     [name](CNkSigFile& file, std::string& why) -> long {
                         file.m_strFileName = name;
                         file.m_base = ExtractBase(name);
                         CFileException fe;
                         if (!file.m_file.Open(name, CFile::modeRead | CFile::shareDenyNone, &fe))
                             return fe.m_lOsError > 0 ? long(fe.m_lOsError) : long(ERROR_FILE_NOT_FOUND);
                         if (!file.ReadHeader(why)) return long(ERROR_BAD_FORMAT);
                         file.ReadPatient();
                         file.ReadLog();
                         return 0;
                     });
}

void CNkSigFile::ReadElectrodeNames(std::vector<std::string>& names) {
    names = DefaultNames();
    const std::string e21 = SideFile(m_base, {".21E", ".21e"});
    if (e21.empty()) {
        m_notes.push_back(LoadResString(IDS_NK_NOTE_NO_21E));
        return;
    }
    std::vector<BYTE> bytes = ReadAll(e21, size_t(4) << 20);
    std::string text(bytes.begin(), bytes.end());
    if (!IsUtf8(text)) text = Cp1252ToUtf8(text);
    bool inSection = false;
    size_t from = 0;
    while (from < text.size()) {
        size_t to = text.find('\n', from);
        if (to == std::string::npos) to = text.size();
        std::string line = text.substr(from, to - from);
        from = to + 1;
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
        if (!line.empty() && line[0] == '[') {
            inSection = line.find("ELECTRODE") != std::string::npos || line.find("REFERENCE") != std::string::npos;
            continue;
        }
        const size_t eq = line.find('=');
        if (!inSection || eq == std::string::npos || !Digits(line.substr(0, eq)) || eq > 6) continue;
        const size_t code = size_t(std::stoul(line.substr(0, eq)));
        if (code > 255) continue;
        if (code >= names.size()) names.resize(code + 1, "UNK");
        names[code] = line.substr(eq + 1);
    }
}

bool CNkSigFile::ReadHeader(std::string& error) {
    m_length = m_file.GetLength();
    // The header and the block tables, read once (at most 64 KiB).
    std::vector<BYTE> head(size_t(std::min<ULONGLONG>(m_length, 0x10000)));
    if (::pread(m_file.GetHandle(), head.data(), head.size(), 0) != ssize_t(head.size()) || !IsNkHeader(head.data(), head.size())) {
        error = LoadResString(IDS_NK_ERR_SIGNATURE);
        return false;
    }
    m_device = std::string(reinterpret_cast<const char*>(head.data()), 16);
    auto readAt = [&](ULONGLONG at, size_t n, std::vector<BYTE>& out) {
        out.assign(n, 0);
        return at + n <= m_length && ::pread(m_file.GetHandle(), out.data(), n, off_t(at)) == ssize_t(n);
    };
    // Start of the recording.
    const std::string when = Text(head.data() + 0x40, 14);
    if (when.size() == 14 && Digits(when)) {
        m_start = CSDateTime(std::stoi(when.substr(0, 4)), std::stoi(when.substr(4, 2)), std::stoi(when.substr(6, 2)),
                             std::stoi(when.substr(8, 2)), std::stoi(when.substr(10, 2)), std::stoi(when.substr(12, 2)));
    }
    std::vector<std::string> names;
    ReadElectrodeNames(names);

    const unsigned controls = head[0x91];
    if (controls == 0) {
        error = LoadResString(IDS_NK_ERR_NO_BLOCK);
        return false;
    }
    unsigned channels = 0;
    std::vector<BYTE> b;
    double previousEnd = 0;
    for (unsigned i = 0; i < controls; ++i) {
        if (!readAt(0x92 + 20ull * i, 4, b)) {
            error = StrFormat(LoadResString(IDS_NK_ERR_BLOCK_TABLE).c_str(), i);
            return false;
        }
        const ULONGLONG control = U32(b, 0);
        if (!readAt(control, 18, b)) {
            error = StrFormat(LoadResString(IDS_NK_ERR_BLOCK_PAST_END).c_str(), "control", i, (unsigned long long)control,
                              (unsigned long long)m_length);
            return false;
        }
        const unsigned datas = b[17];
        for (unsigned j = 0; j < datas; ++j) {
            if (!readAt(control + 18 + 20ull * j, 4, b)) {
                error = StrFormat(LoadResString(IDS_NK_ERR_BLOCK_TABLE).c_str(), j);
                return false;
            }
            const ULONGLONG data = U32(b, 0);
            if (!readAt(data, 0x27, b) || b[0] != 1) {
                error = StrFormat(LoadResString(IDS_NK_ERR_BLOCK_PAST_END).c_str(), "data", j, (unsigned long long)data,
                                  (unsigned long long)m_length);
                return false;
            }
            const unsigned rate = (unsigned(b[0x1A]) | unsigned(b[0x1B]) << 8) & 0x3FFF;
            const ULONGLONG tenths = U32(b, 0x1C);
            const unsigned n = b[0x26];
            if (rate == 0 || n == 0) {
                error = StrFormat(LoadResString(IDS_NK_ERR_BLOCK_EMPTY).c_str(), j);
                return false;
            }
            // The block's own start (BCD), from the recording's start.
            double start = previousEnd;
            const int yy = Bcd(b[0x14]), mo = Bcd(b[0x15]), dd = Bcd(b[0x16]), hh = Bcd(b[0x17]), mi = Bcd(b[0x18]),
                      ss = Bcd(b[0x19]);
            if (mo >= 1 && mo <= 12 && dd >= 1 && dd <= 31 && hh < 24 && mi < 60 && ss < 60 && m_start.GetValue() != 0) {
                const CSDateTime blockStart(2000 + yy, mo, dd, hh, mi, ss);
                start = (blockStart.GetValue() - m_start.GetValue()) * 86400.0;
                if (m_blocks.empty() && std::fabs(start) > 1) start = 0;
            }
            std::vector<BYTE> codes;
            if (!readAt(data + 0x27, size_t(n) * 10, codes)) {
                error = StrFormat(LoadResString(IDS_NK_ERR_BLOCK_PAST_END).c_str(), "data", j, (unsigned long long)data,
                                  (unsigned long long)m_length);
                return false;
            }
            if (m_blocks.empty()) {
                channels = n;
                m_rate = rate;
                for (unsigned c = 0; c < n; ++c) {
                    Channel ch;
                    ch.code = codes[size_t(c) * 10];
                    ch.name = ch.code < names.size() ? names[ch.code] : "UNK";
                    ch.millivolts = (ch.code >= 42 && ch.code <= 73) || ch.code == 76 || ch.code == 77;
                    const double lo = ch.millivolts ? -12002.9 : -3200.0, hi = ch.millivolts ? 12002.56 : 3199.902;
                    ch.gain = (hi - lo) / 65535.0;
                    ch.offset = lo + 32768.0 * ch.gain;
                    m_channels.push_back(ch);
                }
            } else {
                bool same = n == channels && rate == m_rate;
                for (unsigned c = 0; same && c < n; ++c) same = codes[size_t(c) * 10] == m_channels[c].code;
                if (!same) {
                    error = StrFormat(LoadResString(IDS_NK_ERR_BLOCKS_DIFFER).c_str(), j);
                    return false;
                }
            }
            Block block;
            block.data = data + 0x27 + 10ull * n;
            block.samples = tenths * rate / 10;
            block.start = start;
            // The samples the file really holds.
            const ULONGLONG frame = 2ull * (n + 1);
            const ULONGLONG held = block.data <= m_length ? (m_length - block.data) / frame : 0;
            if (held < block.samples) {
                m_notes.push_back(StrFormat(LoadResString(IDS_NK_NOTE_TRUNCATED).c_str(), j,
                                            (unsigned long long)block.samples, (unsigned long long)held));
                block.samples = held;
            }
            if (block.samples > 0) m_blocks.push_back(block);
            previousEnd = start + double(block.samples) / rate;
        }
    }
    if (m_blocks.empty()) {
        error = LoadResString(IDS_NK_ERR_NO_BLOCK);
        return false;
    }
    // Records: one second where every block holds whole seconds, else the
    // largest common part that fits a signal record.
    ULONGLONG common = 0;
    for (const Block& blk : m_blocks) common = std::gcd(common, blk.samples);
    ULONGLONG r = std::min<ULONGLONG>(common, m_rate);
    while (r > 1 && (common % r != 0 || r * channels > kMaxRecordSamples)) --r;
    m_recordSamples = unsigned(std::max<ULONGLONG>(r, 1));
    long next = 0;
    for (Block& blk : m_blocks) {
        blk.firstRecord = next;
        blk.records = long(blk.samples / m_recordSamples);
        next += blk.records;
    }
    SetSigCoDec(new CNkCoDec(channels, m_recordSamples));
    Describe();
    m_pStsFile->SetNumRecords(next);
    m_pStsFile->SetReadOnly();
    m_pStsFile->ClearChanged();
    m_nCurrentRecord = 0;
    return true;
}

void CNkSigFile::Describe() {
    auto header = std::make_unique<CFileHeader>("", Text(reinterpret_cast<const BYTE*>(m_device.data()), 16), 0, m_start);
    auto montage = std::make_unique<CPhysicalMontage>("Nihon Kohden", 0);
    CRecordingMontage* rec = montage->CreateRecordingMontage();
    rec->SetRecordShapeConfirmed(m_recordSamples, m_rate);
    auto calibration = std::make_unique<CCalibration>(unsigned(m_channels.size()), -32768, -0.0032768f, 32767,
                                                      0.0032767f, double(m_rate));
    std::map<std::string, int> used;
    for (size_t c = 0; c < m_channels.size(); ++c) {
        Channel& ch = m_channels[c];
        // Electrode names are unique in a montage: a repeated one gets a suffix.
        std::string elec = ch.name.empty() ? StrFormat("S%zu", c + 1) : ch.name;
        std::replace_if(elec.begin(), elec.end(), [](char x) { return x == '[' || x == ']'; }, '_');
        if (used[ToUpperAscii(elec)]++) elec += "-" + std::to_string(c + 1);
        if (!montage->IsElectrodeOfMontage(elec.c_str())) {
            const CPolar3D where = CPhysicalMontage::IsStdElec(elec.c_str()) ? CPhysicalMontage::GetStdElecPosition(elec.c_str())
                                                                            : CPolar3D();
            montage->AddElectrode(elec.c_str(), where);
        }
        const unsigned type = CPhysicalMontage::IsStdElec(elec.c_str()) ? CPhysicalMontage::GetStdElecTypeCode(elec.c_str()) : 1;
        rec->AppendChannelConfirmed(elec.c_str(), "", type, ch.millivolts ? 2 : 1, m_rate, 0, 0, "");
        rec->SetSamplesChannelConfirmed(unsigned(c), m_recordSamples);
        const double w1 = -32768.0 * ch.gain + ch.offset, w2 = 32767.0 * ch.gain + ch.offset;
        calibration->SetCalibFromPoints(unsigned(c), -32768, float(calibration->AdToVolt(-32768)), float(w1), 32767,
                                        float(calibration->AdToVolt(32767)), float(w2));
    }
    m_pStsFile->SetFileHeader(header.release());
    if (!m_pStsFile->GetPatientInfo()) m_pStsFile->SetPatientInfo(new CPatientInfo);
    m_pStsFile->SetPhysicalMontage(montage.release());
    m_pStsFile->SetCalibration(calibration.release());
    // Blocks that do not follow one another.
    for (size_t i = 1; i < m_blocks.size(); ++i) {
        const Block& b = m_blocks[i];
        const Block& p = m_blocks[i - 1];
        if (std::fabs(b.start - (p.start + double(p.samples) / m_rate)) < 0.5 / m_rate) continue;
        const CStatusGroup* g = nullptr;
        for (unsigned k = 0; k < m_pStsFile->GetNumGroups() && !g; ++k)
            if (EqualsNoCase(m_pStsFile->GetGroupAt(k)->GetGroupID(), groupid::kDiscontinuity)) g = m_pStsFile->GetGroupAt(k);
        if (!g) {
            auto* group = new CStatusGroup(groupid::kDiscontinuity, GetDefaultGroupName(groupid::kDiscontinuity).c_str(),
                                           GetDefaultGroupDesc(groupid::kDiscontinuity).c_str(), 0, 0, 0, -1, "", 0, 0, 1, 0);
            m_pStsFile->AddGroup(group);
            g = group;
        }
        const LONG s = LONG(ULONGLONG(b.firstRecord) * m_recordSamples);
        const CSDateTime when = m_start + CSTimeSpan(b.start);
        m_pStsFile->AddStatusItem(new CStatusItem(g, s, when, s, when, "", "", "", 0, 1));
    }
}

void CNkSigFile::ReadPatient() {
    auto patient = std::make_unique<CPatientInfo>();
    const std::string pnt = SideFile(m_base, {".PNT", ".pnt"});
    std::vector<BYTE> b = pnt.empty() ? std::vector<BYTE>() : ReadAll(pnt, size_t(1) << 20);
    if (pnt.empty()) {
        m_notes.push_back(LoadResString(IDS_NK_NOTE_NO_PNT));
    } else if (b.size() < 0x670 || !IsDevice(b.data())) {
        m_notes.push_back(StrFormat(LoadResString(IDS_NK_NOTE_BAD_PNT).c_str(), pnt.c_str()));
    } else {
        patient->SetPatientId1(Text(&b[0x604], 12), CPatientInfo::kMaxPatientId);
        const std::string name = Text(&b[0x62E], 22);
        // "Last First" as the acquisition software writes it.
        const size_t space = name.find(' ');
        patient->SetLastName(name.substr(0, space), CPatientInfo::kMaxName);
        if (space != std::string::npos) patient->SetFirstName(name.substr(space + 1), CPatientInfo::kMaxName);
        const std::string sex = ToUpperAscii(Text(&b[0x64A], 8));
        if (!sex.empty()) patient->SetSex(sex[0] == 'M' ? 1 : (sex[0] == 'F' || sex[0] == 'W') ? 2 : 0);
        const std::string birth = Text(&b[0x660], 12);
        if (birth.size() == 10 && birth[4] == '/' && birth[7] == '/' && Digits(birth.substr(0, 4)) &&
            Digits(birth.substr(5, 2)) && Digits(birth.substr(8, 2))) {
            const int y = std::stoi(birth.substr(0, 4)), m = std::stoi(birth.substr(5, 2)), d = std::stoi(birth.substr(8, 2));
            if (y > 1800 && m >= 1 && m <= 12 && d >= 1 && d <= 31) patient->SetBirthDate(CSDateTime(y, m, d));
        }
    }
    m_pStsFile->SetPatientInfo(patient.release());
}

void CNkSigFile::ReadLog() {
    const std::string log = SideFile(m_base, {".LOG", ".log"});
    if (log.empty()) {
        m_notes.push_back(LoadResString(IDS_NK_NOTE_NO_LOG));
        return;
    }
    const std::vector<BYTE> b = ReadAll(log);
    if (b.size() < 0x92 || !IsDevice(b.data())) {
        m_notes.push_back(StrFormat(LoadResString(IDS_NK_NOTE_BAD_LOG).c_str(), log.c_str()));
        return;
    }
    struct Event {
        std::string text;
        double seconds;
    };
    // The events of log block t: null when it is missing or not of this device.
    auto block = [&](unsigned t, std::vector<std::string>& raw) {
        raw.clear();
        const size_t at = 0x92 + 20 * size_t(t);
        const size_t address = U32(b, at);
        if (at + 4 > b.size() || address == 0 || address + 0x14 > b.size() || std::memcmp(&b[address + 1], b.data(), 16) != 0)
            return false;
        const unsigned n = b[address + 0x12];
        for (unsigned i = 0; i < n; ++i) {
            const size_t e = address + 0x14 + 45 * size_t(i);
            if (e + 45 > b.size()) return false;
            raw.emplace_back(reinterpret_cast<const char*>(&b[e]), 45);
        }
        return true;
    };
    std::vector<Event> events;
    const unsigned blocks = b[0x91];
    std::vector<std::string> logs, subs;
    for (unsigned t = 0; t < blocks; ++t) {
        if (!block(t, logs)) {
            m_notes.push_back(StrFormat(LoadResString(IDS_NK_NOTE_BAD_LOG_BLOCK).c_str(), log.c_str(), t));
            continue;
        }
        const bool withSubs = blocks <= 21 && block(t + 22, subs) && subs.size() == logs.size();
        for (size_t i = 0; i < logs.size(); ++i) {
            const std::string& e = logs[i];
            const std::string hhmmss = e.substr(20, 6);
            if (!Digits(hhmmss)) continue;
            double seconds = std::stoi(hhmmss.substr(0, 2)) * 3600.0 + std::stoi(hhmmss.substr(2, 2)) * 60.0 +
                             std::stoi(hhmmss.substr(4, 2));
            std::string text = e.substr(0, 20);
            if (withSubs) {
                text += subs[i].substr(0, 20);
                const std::string micro = subs[i].substr(24, 6);
                if (Digits(micro)) seconds += std::stoi(micro) / 1e6;
            }
            events.push_back({Text(reinterpret_cast<const BYTE*>(text.c_str()), text.size()), seconds});
        }
    }
    if (events.empty()) return;
    auto* group = new CStatusGroup(groupid::kAnnotation, GetDefaultGroupName(groupid::kAnnotation).c_str(),
                                   GetDefaultGroupDesc(groupid::kAnnotation).c_str(), 3, 0, 0, -1, "", 0, 0, 1, 0);
    m_pStsFile->AddGroup(group);
    for (const Event& e : events) {
        // The sample: in the block that holds the time, extrapolated after the last.
        double sample = std::round(e.seconds * m_rate);
        for (const Block& blk : m_blocks)
            if (e.seconds + 0.5 / m_rate >= blk.start)
                sample = double(ULONGLONG(blk.firstRecord) * m_recordSamples) + std::round((e.seconds - blk.start) * m_rate);
        const LONG s = LONG(std::clamp(sample, -2147483647.0, 2147483647.0));
        const CSDateTime when = m_start + CSTimeSpan(e.seconds);
        m_pStsFile->AddStatusItem(new CStatusItem(group, s, when, s, when, "", e.text.c_str(), "", 0, 1));
    }
}

int CNkSigFile::Close() { return CIntSigFile::Close(); }

LONGLONG CNkSigFile::GetFileSize() const {
    ULONGLONG total = 0;
    for (const std::string& f : FilesOfSet(m_strFileName)) total += VhlGetFileSize(f);
    return LONGLONG(total);
}

double CNkSigFile::GetRecordDuration() const { return m_rate ? double(m_recordSamples) / m_rate : 0.0; }

double CNkSigFile::GetChannelFrequency(unsigned channel) const {
    return channel < m_channels.size() ? double(m_rate) : 0.0;
}

int CNkSigFile::GetChannelInfo(unsigned channel, CSigChannelInfo* info) const {
    if (!info || channel >= m_channels.size()) return 0;
    const Channel& ch = m_channels[channel];
    *info = CSigChannelInfo();
    info->label = ch.name;
    info->unit = ch.millivolts ? "mV" : "uV";
    info->transducer = StrFormat("code %u", ch.code);
    info->frequency = m_rate;
    info->digitalMin = -32768;
    info->digitalMax = 32767;
    info->physicalMin = -32768.0 * ch.gain + ch.offset;
    info->physicalMax = 32767.0 * ch.gain + ch.offset;
    info->bits = 16;
    return 1;
}

void CNkSigFile::GetFormatNotes(CStringArray* notes) const {
    if (!notes) return;
    notes->RemoveAll();
    for (const std::string& n : m_notes) notes->Add(n);
}

const CNkSigFile::Block* CNkSigFile::BlockOf(long record, ULONGLONG& firstSample) const {
    for (const Block& b : m_blocks)
        if (record >= b.firstRecord && record < b.firstRecord + b.records) {
            firstSample = ULONGLONG(record - b.firstRecord) * m_recordSamples;
            return &b;
        }
    return nullptr;
}

bool CNkSigFile::ReadWords(long record, std::vector<uint16_t>& words) {
    ULONGLONG first = 0;
    const Block* b = BlockOf(record, first);
    if (!b) return false;
    const size_t frame = m_channels.size() + 1;
    words.resize(size_t(m_recordSamples) * frame);
    const size_t bytes = words.size() * 2;
    const ULONGLONG at = b->data + first * frame * 2;
    if (at + bytes > m_length) return false;
    size_t done = 0;
    while (done < bytes) {
        const ssize_t n = ::pread(m_file.GetHandle(), reinterpret_cast<BYTE*>(words.data()) + done, bytes - done,
                                  off_t(at + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            SetIOError(ERROR_READ_FAULT);
            return false;
        }
        done += size_t(n);
    }
    return true;
}

int CNkSigFile::Load(DWORD record, CObject* object) {
    auto* image = static_cast<CByteArray*>(object);
    if (!m_pCoDec || !ReadWords(long(record), m_words)) return 0;
    ULONGLONG first = 0;
    const Block* b = BlockOf(long(record), first);
    image->SetSize(int(m_pCoDec->GetCompRecSize()));
    const double t = (m_start + CSTimeSpan(b->start + double(first) / m_rate)).GetValue();
    std::memcpy(image->GetData(), &t, kTimeBytes);
    std::memcpy(image->GetData() + kTimeBytes, m_words.data(), m_words.size() * 2);
    return 1;
}

int CNkSigFile::ReadValues(CFmtSigRec* record, bool volts) {
    if (!record || IsIOError() || !m_pCoDec) return 0;
    const long current = GetCurrentRecord();
    ULONGLONG first = 0;
    const Block* b = current >= 0 ? BlockOf(current, first) : nullptr;
    if (!b || !ReadWords(current, m_words)) return 0;
    if (!HasCodecShape(record)) record->Create(m_pCoDec->GetNumChannels(), m_pCoDec->GetSamplesChannel());
    record->SetTime(m_start + CSTimeSpan(b->start + double(first) / m_rate));
    const size_t n = m_channels.size();
    for (size_t c = 0; c < n; ++c) {
        const Channel& ch = m_channels[c];
        const double unit = volts ? (ch.millivolts ? 1e-3 : 1e-6) : 1.0;
        const double gain = ch.gain * unit, offset = ch.offset * unit;
        float* out = record->GetAt(unsigned(c));
        for (size_t s = 0; s < m_recordSamples; ++s) {
            const uint16_t w = m_words[s * (n + 1) + c];
            out[s] = float(double(int16_t(uint16_t(w ^ 0x8000))) * gain + offset);
        }
    }
    return 1;
}

int CNkSigFile::Read(CFmtSigRec* record) { return ReadValues(record, false); }
int CNkSigFile::ReadAsVolts(CFmtSigRec* record) { return ReadValues(record, true); }
