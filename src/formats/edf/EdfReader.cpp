// The EDF-family reader.  Every count a file states is checked against the
// bytes the file really holds before anything is allocated or read.
#include "formats/edf/EdfReader.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>

#include "platform/File.h"
#include "platform/Strings.h"

namespace edf {
namespace {

long long LL(LONGLONG v) { return v; }
unsigned long long ULL(ULONGLONG v) { return v; }

constexpr LONGLONG kMaxSamplesPerRecord = 1 << 26;
// Digital limits a header may state (beyond the format's own, tolerated).
constexpr LONGLONG kDigitalBound = -2147483647;
// Far above any real recording; keeps a hostile file from filling the memory
// with tiny TALs.
constexpr size_t kMaxAnnotations = 4000000;

std::string Trimmed(const std::string& s) {
    size_t e = s.find_last_not_of(' ');
    if (e == std::string::npos) return std::string();
    size_t b = s.find_first_not_of(' ');
    return s.substr(b, e - b + 1);
}

// A header text: control characters are refused; bytes above 0x7F (which
// the format does not allow but some writers put in names) are read as
// Windows-1252.
bool TextField(const std::string& raw, std::string& text) {
    for (unsigned char c : raw)
        if (c < 0x20 || c == 0x7F) return false;
    text = Cp1252ToUtf8(Trimmed(raw));
    return true;
}

std::string Shown(const std::string& raw) { return "« " + TransliterateAscii(Cp1252ToUtf8(Trimmed(raw))) + " »"; }

bool TwoDigits(const std::string& s, size_t at, int& value) {
    if (s[at] < '0' || s[at] > '9' || s[at + 1] < '0' || s[at + 1] > '9') return false;
    value = (s[at] - '0') * 10 + (s[at + 1] - '0');
    return true;
}

// "dd.mm.yy" / "hh.mm.ss".
bool ThreeParts(const std::string& s, int& a, int& b, int& c) {
    return s.size() == 8 && s[2] == '.' && s[5] == '.' && TwoDigits(s, 0, a) && TwoDigits(s, 3, b) &&
           TwoDigits(s, 6, c);
}

int DaysInMonth(int year, int month) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

}  // namespace

EdfReader::EdfReader() = default;
EdfReader::~EdfReader() { Close(); }

bool EdfReader::IsOpen() const { return m_file && m_file->IsOpen(); }

void EdfReader::Close() {
    if (m_file) m_file->Abort();
    m_file.reset();
    m_header = EdfHeader();
    m_signals.clear();
    m_layout.clear();
    m_buffer.clear();
    m_bufferFirst = m_bufferRecords = 0;
    m_starts.clear();
    m_annotations.clear();
    m_firstStart = 0;
    m_notes.clear();
    m_annotationSignals = false;
    m_talRepairNoted = m_continuityNoted = m_durationAssumed = false;
}

bool EdfReader::ReadAt(ULONGLONG position, void* buffer, size_t size) {
    // One positioned read per call: the annotation pass reads a few bytes of
    // every record.
    BYTE* p = static_cast<BYTE*>(buffer);
    while (size > 0) {
        ssize_t n = ::pread(m_file->GetHandle(), p, std::min<size_t>(size, size_t(1) << 30), off_t(position));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= size_t(n);
        position += ULONGLONG(n);
    }
    return true;
}

bool EdfReader::Open(const std::string& path, std::string& error) {
    Close();
    m_file = std::make_unique<CFile>();
    CFileException fe;
    if (!m_file->Open(path.c_str(), CFile::modeRead | CFile::shareDenyNone, &fe)) {
        error = fe.GetMessageText();
        m_file.reset();
        return false;
    }
    bool ok = ParseHeader(error) && ReadAnnotations(error);
    if (!ok) {
        Close();
        error = EdfMsg(IDS_EDF_R_INVALID_FILE, path.c_str(), error.c_str());
    }
    return ok;
}

bool EdfReader::ParseHeader(std::string& error) {
    const ULONGLONG length = m_file->GetLength();
    if (length < 256) {
        error = EdfMsg(IDS_EDF_R_SHORT_HEADER, ULL(length));
        return false;
    }
    std::string h(256, '\0');
    if (!ReadAt(0, h.data(), 256)) {
        error = EdfMsg(IDS_EDF_R_HEADER_READ);
        return false;
    }
    auto field = [&](size_t at, size_t width) { return h.substr(at, width); };
    EdfHeader& hd = m_header;

    const std::string version = field(0, 8);
    bool bdf;
    if (version == "0       ") bdf = false;
    else if (version == std::string("\xFF" "BIOSEMI")) bdf = true;
    else {
        error = EdfMsg(IDS_EDF_R_VERSION, Shown(version).c_str());
        return false;
    }
    if (!TextField(field(8, 80), hd.patientField)) {
        error = EdfMsg(IDS_EDF_R_PATIENT_CONTROL);
        return false;
    }
    if (!TextField(field(88, 80), hd.recordingField)) {
        error = EdfMsg(IDS_EDF_R_RECORDING_CONTROL);
        return false;
    }
    int day, month, yy, hour, minute, second;
    const bool dateOk = ThreeParts(field(168, 8), day, month, yy) && month >= 1 && month <= 12 && day >= 1 &&
                        day <= DaysInMonth(yy >= 85 ? 1900 + yy : 2000 + yy, month);
    const bool timeOk = ThreeParts(field(176, 8), hour, minute, second) && hour <= 23 && minute <= 59 && second <= 59;
    if (!dateOk || !timeOk) {
        // Digits where they belong but no valid date: read as the EDF's own
        // "unknown" start (01.01.85 00.00.00), as the common readers do.  A
        // field of another shape means the header is not laid out as EDF.
        int a, b, c;
        if (!ThreeParts(field(168, 8), a, b, c)) {
            error = EdfMsg(IDS_EDF_R_STARTDATE, Shown(field(168, 8)).c_str());
            return false;
        }
        if (!ThreeParts(field(176, 8), a, b, c)) {
            error = EdfMsg(IDS_EDF_R_STARTTIME, Shown(field(176, 8)).c_str());
            return false;
        }
        m_notes.push_back(EdfMsg(IDS_EDF_R_NOTE_BAD_DATE, Shown(field(168, 8)).c_str(), Shown(field(176, 8)).c_str()));
        day = month = 1;
        yy = 85;
        hour = minute = second = 0;
    }
    LONGLONG headerBytes = 0, records = 0, ns = 0;
    if (!ParseEdfInteger(field(184, 8), headerBytes)) {
        error = EdfMsg(IDS_EDF_R_HEADER_BYTES, Shown(field(184, 8)).c_str());
        return false;
    }
    const std::string reserved = field(192, 44);
    bool plus = false;
    hd.discontinuous = false;
    if (reserved.compare(0, 4, "EDF+") == 0 || reserved.compare(0, 4, "BDF+") == 0) {
        if (reserved[4] != 'C' && reserved[4] != 'D') {
            error = EdfMsg(IDS_EDF_R_RESERVED, Shown(reserved).c_str());
            return false;
        }
        plus = true;
        hd.discontinuous = reserved[4] == 'D';
    }
    hd.format = bdf ? (plus ? EdfFormat::BdfPlus : EdfFormat::Bdf) : (plus ? EdfFormat::EdfPlus : EdfFormat::Edf);
    if (!ParseEdfInteger(field(236, 8), records) || records < -1) {
        error = EdfMsg(IDS_EDF_R_RECORDS, Shown(field(236, 8)).c_str());
        return false;
    }
    if (!ParseEdfNumber(field(244, 8), hd.recordDuration) || hd.recordDuration < 0) {
        error = EdfMsg(IDS_EDF_R_DURATION, Shown(field(244, 8)).c_str());
        return false;
    }
    if (!ParseEdfInteger(field(252, 4), ns) || ns < 1) {
        error = EdfMsg(IDS_EDF_R_SIGNALS, Shown(field(252, 4)).c_str());
        return false;
    }
    if (headerBytes != 256 * (ns + 1)) {
        error = EdfMsg(IDS_EDF_R_HEADER_SIZE, LL(headerBytes), LL(256 * (ns + 1)), LL(ns));
        return false;
    }
    if (ULONGLONG(headerBytes) > length) {
        error = EdfMsg(IDS_EDF_R_HEADER_PAST_END, LL(headerBytes), ULL(length));
        return false;
    }
    m_headerBytes = size_t(headerBytes);

    // Per-signal fields.
    std::string s(size_t(ns) * 256, '\0');
    if (!ReadAt(256, s.data(), s.size())) {
        error = EdfMsg(IDS_EDF_R_HEADER_READ);
        return false;
    }
    size_t at = 0;
    auto next = [&](size_t width) {
        std::vector<std::string> v;
        for (LONGLONG i = 0; i < ns; ++i, at += width) v.push_back(s.substr(at, width));
        return v;
    };
    auto labels = next(16), transducers = next(80), units = next(8), pmins = next(8), pmaxs = next(8),
         dmins = next(8), dmaxs = next(8), prefilters = next(80), counts = next(8);
    const LONG limMin = DigitalLimitMin(hd.format), limMax = DigitalLimitMax(hd.format);
    const int width = SampleBytes(hd.format);
    ULONGLONG recordBytes = 0;
    bool timeKeepingFound = false;
    bool plainAnnotationsNoted = false;
    for (LONGLONG i = 0; i < ns; ++i) {
        const std::string which = StrFormat(" (signal %lld)", LL(i + 1));
        EdfSignal sig;
        if (!TextField(labels[i], sig.label) || !TextField(transducers[i], sig.transducer) ||
            !TextField(units[i], sig.unit) || !TextField(prefilters[i], sig.prefilter)) {
            error = EdfMsg(IDS_EDF_R_SIGNAL_CONTROL, which.c_str());
            return false;
        }
        Layout lay;
        lay.annotation = sig.label == "EDF Annotations" || sig.label == "BDF Annotations";
        if (lay.annotation && !plus && !plainAnnotationsNoted) {
            m_notes.push_back(EdfMsg(IDS_EDF_R_NOTE_PLAIN_ANNOTATIONS, bdf ? "BDF" : "EDF", sig.label.c_str()));
            plainAnnotationsNoted = true;
        }
        LONGLONG dmin = 0, dmax = 0, count = 0;
        if (!ParseEdfNumber(pmins[i], sig.physicalMin)) {
            error = EdfMsg(IDS_EDF_R_PHYS_MIN, which.c_str(), Shown(pmins[i]).c_str());
            return false;
        }
        if (!ParseEdfNumber(pmaxs[i], sig.physicalMax)) {
            error = EdfMsg(IDS_EDF_R_PHYS_MAX, which.c_str(), Shown(pmaxs[i]).c_str());
            return false;
        }
        if (!ParseEdfInteger(dmins[i], dmin) || dmin < kDigitalBound || dmin > -kDigitalBound) {
            error = EdfMsg(IDS_EDF_R_DIG_MIN, which.c_str(), Shown(dmins[i]).c_str());
            return false;
        }
        if (!ParseEdfInteger(dmaxs[i], dmax) || dmax < kDigitalBound || dmax > -kDigitalBound) {
            error = EdfMsg(IDS_EDF_R_DIG_MAX, which.c_str(), Shown(dmaxs[i]).c_str());
            return false;
        }
        // Samples are stored in 16 (24) bits whatever the header says: a
        // range beyond the format's limits (a digital maximum of 65534 for a
        // 16-bit sample, say) is read as written, samples as stored.
        if (dmin < limMin || dmax > limMax)
            m_notes.push_back(EdfMsg(IDS_EDF_R_NOTE_DIGITAL_LIMITS, which.c_str(), LL(dmin), LL(dmax), long(limMin),
                                    long(limMax)));
        if (!lay.annotation) {
            if (dmin >= dmax) {
                error = EdfMsg(IDS_EDF_R_DIG_ORDER, which.c_str());
                return false;
            }
            if (sig.physicalMin == sig.physicalMax) {
                error = EdfMsg(IDS_EDF_R_PHYS_EQUAL, which.c_str());
                return false;
            }
        }
        if (!ParseEdfInteger(counts[i], count) || count < 1 || count > kMaxSamplesPerRecord) {
            error = EdfMsg(IDS_EDF_R_SAMPLES, which.c_str(), Shown(counts[i]).c_str());
            return false;
        }
        sig.digitalMin = LONG(dmin);
        sig.digitalMax = LONG(dmax);
        sig.samplesPerRecord = int(count);
        lay.offset = size_t(recordBytes);
        lay.bytes = size_t(count) * width;
        recordBytes += lay.bytes;
        if (lay.annotation) timeKeepingFound = true;
        else m_signals.push_back(sig);
        m_layout.push_back(lay);
    }
    if (plus && !timeKeepingFound) {
        m_notes.push_back(EdfMsg(IDS_EDF_R_NOTE_NO_ANNOTATIONS, AnnotationLabel(hd.format), bdf ? "BDF+" : "EDF+"));
        hd.discontinuous = false;
    }
    m_annotationSignals = timeKeepingFound;
    if (hd.recordDuration == 0 && !m_signals.empty()) {
        // Samples need a duration: take one second, as the common readers do.
        m_notes.push_back(EdfMsg(IDS_EDF_R_NOTE_ZERO_DURATION));
        hd.recordDuration = 1.0;
        m_durationAssumed = true;
    }
    const ULONGLONG data = length - m_headerBytes;
    if (recordBytes > data && records != 0) {
        error = EdfMsg(IDS_EDF_R_DATA_SHORT, ULL(data), ULL(recordBytes));
        return false;
    }
    if (records == -1) records = LONGLONG(data / recordBytes);
    else if (ULONGLONG(records) > data / recordBytes) {
        // A recording that was not closed: what is there is read.
        m_notes.push_back(EdfMsg(IDS_EDF_R_NOTE_FEWER_RECORDS, LL(records), ULL(data / recordBytes)));
        records = LONGLONG(data / recordBytes);
    }
    hd.recordCount = records;
    m_recordBytes = size_t(recordBytes);

    // Identification subfields; the EDF+ start year comes from "Startdate".
    int year = yy >= 85 ? 1900 + yy : 2000 + yy;
    ParsePatientField(hd.patientField, hd.patient);
    int ry = 0, rm = 0, rd = 0;
    if (ParseRecordingField(hd.recordingField, hd.recording, ry, rm, rd) && ry > 0) {
        if (ry % 100 == yy && rm == month && rd == day) year = ry;
    }
    hd.start = CSDateTime(year, month, day, hour, minute, second);
    return true;
}

bool EdfReader::ReadAnnotations(std::string& error) {
    if (!m_annotationSignals) return true;
    const LONGLONG records = m_header.recordCount;
    const double duration = m_header.recordDuration;
    const double tolerance = 1e-3 * duration + 1e-6;
    std::string bytes;
    double previous = 0;
    for (LONGLONG r = 0; r < records; ++r) {
        bool first = true;
        double start = 0;
        for (const Layout& lay : m_layout) {
            if (!lay.annotation) continue;
            bytes.resize(lay.bytes);
            if (!ReadAt(m_headerBytes + ULONGLONG(r) * m_recordBytes + lay.offset, bytes.data(), bytes.size())) {
                error = EdfMsg(IDS_EDF_R_RECORD_READ, LL(r));
                return false;
            }
            std::string why;
            bool repaired = false;
            if (!ParseTals(bytes, first, start, m_annotations, why, &repaired)) {
                error = EdfMsg(IDS_EDF_R_TAL, AnnotationLabel(m_header.format), LL(r), why.c_str());
                return false;
            }
            if (repaired && !m_talRepairNoted) {
                m_notes.push_back(EdfMsg(IDS_EDF_R_NOTE_TAL_REPAIRED, AnnotationLabel(m_header.format), LL(r)));
                m_talRepairNoted = true;
            }
            first = false;
            if (m_annotations.size() > kMaxAnnotations) {
                error = EdfMsg(IDS_EDF_R_TOO_MANY_ANNOTATIONS, AnnotationLabel(m_header.format), kMaxAnnotations);
                return false;
            }
        }
        if (r == 0) m_firstStart = start;
        else if (m_header.discontinuous && !m_durationAssumed && start < previous + duration - tolerance) {
            error = EdfMsg(IDS_EDF_R_RECORD_OVERLAP, AnnotationLabel(m_header.format), LL(r), start);
            return false;
        } else if (!m_header.discontinuous && duration > 0 &&
                   std::fabs(start - (m_firstStart + r * duration)) > tolerance && !m_continuityNoted) {
            // A continuous file's records follow one another whatever their
            // time-keeping TALs say.
            m_notes.push_back(EdfMsg(IDS_EDF_R_NOTE_CONTINUITY, AnnotationLabel(m_header.format), LL(r), start,
                                    m_firstStart + r * duration));
            m_continuityNoted = true;
        }
        if (m_header.discontinuous) m_starts.push_back(start);
        previous = start;
    }
    return true;
}

double EdfReader::RecordStart(LONGLONG index) const {
    if (m_header.discontinuous && index >= 0 && ULONGLONG(index) < m_starts.size()) return m_starts[size_t(index)];
    return m_firstStart + double(index) * m_header.recordDuration;
}

const BYTE* EdfReader::RecordBytes(LONGLONG index, std::string& error) {
    if (!IsOpen() || index < 0 || index >= m_header.recordCount) {
        error = EdfMsg(IDS_EDF_R_RECORD_OUTSIDE, LL(index));
        return nullptr;
    }
    if (index < m_bufferFirst || index >= m_bufferFirst + m_bufferRecords) {
        // Reads ahead about a megabyte of records: sequential reading then
        // costs one system call per megabyte instead of two per record.
        const LONGLONG ahead = LONGLONG(std::max<size_t>(1, kReadAheadBytes / std::max<size_t>(m_recordBytes, 1)));
        const LONGLONG count = std::min(ahead, m_header.recordCount - index);
        m_buffer.resize(size_t(count) * m_recordBytes);
        m_bufferRecords = 0;
        if (!ReadAt(m_headerBytes + ULONGLONG(index) * m_recordBytes, m_buffer.data(), m_buffer.size())) {
            error = EdfMsg(IDS_EDF_R_RECORD_READ, LL(index));
            return nullptr;
        }
        m_bufferFirst = index;
        m_bufferRecords = count;
    }
    return m_buffer.data() + size_t(index - m_bufferFirst) * m_recordBytes;
}

size_t EdfReader::SignalOffset(size_t signal) const {
    size_t k = 0;
    for (const Layout& lay : m_layout) {
        if (lay.annotation) continue;
        if (k++ == signal) return lay.offset;
    }
    return m_recordBytes;
}

bool EdfReader::ReadRecord(LONGLONG index, std::vector<std::vector<LONG>>& samples, std::string& error) {
    const BYTE* record = RecordBytes(index, error);
    if (!record) return false;
    const bool bdf = IsBdf(m_header.format);
    samples.resize(m_signals.size());
    size_t k = 0;
    for (const Layout& lay : m_layout) {
        if (lay.annotation) continue;
        std::vector<LONG>& out = samples[k];
        out.resize(size_t(m_signals[k].samplesPerRecord));
        const BYTE* p = record + lay.offset;
        LONG* v = out.data();
        const size_t n = out.size();
        if (bdf) {
            for (size_t i = 0; i < n; ++i, p += 3) {
                uint32_t u = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16;
                v[i] = LONG(int32_t(u << 8) >> 8);  // sign of bit 23
            }
        } else {
            for (size_t i = 0; i < n; ++i, p += 2) v[i] = LONG(int16_t(uint16_t(p[0] | p[1] << 8)));
        }
        ++k;
    }
    return true;
}

}  // namespace edf
