// The EDF-family writer: header text fields of fixed width, then the records
// streamed one by one into a temporary file that replaces the target on Close.
#include "formats/edf/EdfWriter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "platform/File.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"

namespace edf {
namespace {

// Room of the time-keeping TAL of any start below 10^8 s ("+99999999.999999",
// two separators and the final 0x00).
constexpr size_t kTimeKeepingRoom = 20;

std::string Pad(const std::string& ascii, size_t width) {
    std::string s = ascii.substr(0, width);
    s.resize(width, ' ');
    return s;
}

bool NumberField(double value, double scale, std::string& out, const std::string& what, std::string& error) {
    std::string text;
    if (!FormatEdfNumber(value, 8, text, scale)) {
        error = EdfMsg(IDS_EDF_W_NUMBER_WIDTH, what.c_str(), value);
        return false;
    }
    out += Pad(text, 8);
    return true;
}

bool IntegerField(LONGLONG value, size_t width, std::string& out, const std::string& what, std::string& error) {
    std::string text = std::to_string(value);
    if (text.size() > width) {
        error = EdfMsg(IDS_EDF_W_INTEGER_WIDTH, what.c_str(), (long long)value, width);
        return false;
    }
    out += Pad(text, width);
    return true;
}

std::string SignalName(const EdfSignal& s, size_t index) {
    return EdfMsg(IDS_EDF_W_SIGNAL_NAME, index + 1, s.label.c_str());
}

// The start written in the header: whole seconds of the exact start.
CSDateTime WholeSeconds(const CSDateTime& start) {
    int y, mo, d, h, mi, s, ms;
    start.GetParts(y, mo, d, h, mi, s, ms);
    return CSDateTime(y, mo, d, h, mi, s);
}

}  // namespace

bool BuildEdfHeader(const EdfHeader& header, const std::vector<EdfSignal>& signals, int annotationSamples,
                    LONGLONG recordCount, bool discontinuous, std::string& bytes, std::string& error) {
    const EdfFormat f = header.format;
    const bool plus = IsPlus(f);
    const size_t ns = signals.size() + (plus ? 1 : 0);
    if (ns == 0) {
        error = EdfMsg(IDS_EDF_W_NO_SIGNAL);
        return false;
    }
    if (ns > 9999) {
        error = EdfMsg(IDS_EDF_W_TOO_MANY_SIGNALS, ns);
        return false;
    }
    int y, mo, d, h, mi, s, ms;
    header.start.GetParts(y, mo, d, h, mi, s, ms);
    if (y < 1985 || y > 2084) {
        error = EdfMsg(IDS_EDF_W_YEAR, y);
        return false;
    }
    std::string out;
    out += IsBdf(f) ? std::string("\xFF" "BIOSEMI") : Pad("0", 8);
    out += Pad(BuildPatientField(header.patient), 80);
    out += Pad(BuildRecordingField(header.recording, header.start), 80);
    out += StrFormat("%02d.%02d.%02d", d, mo, y % 100);
    out += StrFormat("%02d.%02d.%02d", h, mi, s);
    if (!IntegerField(LONGLONG(256 * (ns + 1)), 8, out, "number of bytes in header record", error)) return false;
    std::string reserved;
    if (plus) reserved = std::string(IsBdf(f) ? "BDF+" : "EDF+") + (discontinuous ? "D" : "C");
    else if (IsBdf(f)) reserved = "24BIT";
    out += Pad(reserved, 44);
    if (!IntegerField(recordCount, 8, out, "number of data records", error)) return false;
    if (header.recordDuration == 0 && signals.empty() && plus) {
        // Annotations only: records of no duration, as the standard allows.
        out += Pad("0", 8);
    } else if (!(header.recordDuration > 0)) {
        error = EdfMsg(IDS_EDF_W_DURATION, header.recordDuration);
        return false;
    } else if (!NumberField(header.recordDuration, header.recordDuration * 1e-3, out, "duration of a data record",
                            error)) {
        return false;
    }
    out += Pad(std::to_string(ns), 4);

    // Per-signal fields, each field for every signal in turn.
    const std::string annLabel = AnnotationLabel(f);
    auto each = [&](auto fieldOf) {
        for (size_t i = 0; i < signals.size(); ++i)
            if (!fieldOf(signals[i], i)) return false;
        return true;
    };
    bool ok = each([&](const EdfSignal& sig, size_t i) {
        std::string label = EdfAsciiField(sig.label, 80);
        while (!label.empty() && label.back() == ' ') label.pop_back();
        if (label.size() > 16) {
            error = EdfMsg(IDS_EDF_W_LABEL_LONG, SignalName(sig, i).c_str());
            return false;
        }
        if (label == "EDF Annotations" || label == "BDF Annotations") {
            error = EdfMsg(IDS_EDF_W_LABEL_RESERVED, SignalName(sig, i).c_str());
            return false;
        }
        out += Pad(label, 16);
        return true;
    });
    if (!ok) return false;
    if (plus) out += Pad(annLabel, 16);
    each([&](const EdfSignal& sig, size_t) { out += EdfAsciiField(sig.transducer, 80); return true; });
    if (plus) out += Pad("", 80);
    ok = each([&](const EdfSignal& sig, size_t i) {
        std::string unit = EdfAsciiField(sig.unit, 80);
        while (!unit.empty() && unit.back() == ' ') unit.pop_back();
        if (unit.size() > 8) {
            error = EdfMsg(IDS_EDF_W_UNIT_LONG, SignalName(sig, i).c_str());
            return false;
        }
        out += Pad(unit, 8);
        return true;
    });
    if (!ok) return false;
    if (plus) out += Pad("", 8);
    for (int pass = 0; pass < 2; ++pass) {
        ok = each([&](const EdfSignal& sig, size_t i) {
            double range = std::fabs(sig.physicalMax - sig.physicalMin);
            if (!(range > 0)) {
                error = EdfMsg(IDS_EDF_W_PHYS_EQUAL, SignalName(sig, i).c_str());
                return false;
            }
            return pass == 0 ? NumberField(sig.physicalMin, range, out, "physical minimum : " + SignalName(sig, i), error)
                             : NumberField(sig.physicalMax, range, out, "physical maximum : " + SignalName(sig, i), error);
        });
        if (!ok) return false;
        if (plus) out += Pad(pass == 0 ? "-1" : "1", 8);
    }
    for (int pass = 0; pass < 2; ++pass) {
        ok = each([&](const EdfSignal& sig, size_t i) {
            if (sig.digitalMin >= sig.digitalMax || sig.digitalMin < DigitalLimitMin(f) ||
                sig.digitalMax > DigitalLimitMax(f)) {
                error = EdfMsg(IDS_EDF_W_DIGITAL_LIMITS,
                                  pass == 0 ? "digital minimum" : "digital maximum", SignalName(sig, i).c_str(),
                                  long(sig.digitalMin), long(sig.digitalMax), long(DigitalLimitMin(f)),
                                  long(DigitalLimitMax(f)));
                return false;
            }
            out += Pad(std::to_string(pass == 0 ? sig.digitalMin : sig.digitalMax), 8);
            return true;
        });
        if (!ok) return false;
        if (plus) out += Pad(std::to_string(pass == 0 ? DigitalLimitMin(f) : DigitalLimitMax(f)), 8);
    }
    each([&](const EdfSignal& sig, size_t) { out += EdfAsciiField(sig.prefilter, 80); return true; });
    if (plus) out += Pad("", 80);
    ok = each([&](const EdfSignal& sig, size_t i) {
        if (sig.samplesPerRecord < 1) {
            error = EdfMsg(IDS_EDF_W_NO_SAMPLES, SignalName(sig, i).c_str());
            return false;
        }
        return IntegerField(sig.samplesPerRecord, 8, out, "number of samples in each data record", error);
    });
    if (!ok) return false;
    if (plus && !IntegerField(annotationSamples, 8, out, "number of samples in each data record", error)) return false;
    out += std::string(32 * ns, ' ');
    bytes = std::move(out);
    return true;
}

EdfWriter::EdfWriter() = default;

EdfWriter::~EdfWriter() { Abort(); }

bool EdfWriter::IsOpen() const { return m_file && m_file->IsOpen(); }

bool EdfWriter::Fail(std::string& error, const std::string& message) {
    error = message;
    Abort();
    return false;
}

void EdfWriter::Abort() {
    if (m_file) {
        m_file->Abort();
        m_file.reset();
    }
    if (!m_tempPath.empty()) {
        ::unlink(m_tempPath.c_str());
        m_tempPath.clear();
    }
}

bool EdfWriter::Open(const std::string& path, const EdfHeader& header, const std::vector<EdfSignal>& signals,
                     size_t annotationBytes, std::string& error) {
    Abort();
    m_format = header.format;
    m_signals = signals;
    m_duration = header.recordDuration;
    m_offset = EdfStartFraction(header.start);
    m_records = 0;
    m_discontinuous = false;
    m_annotationSamples = 0;
    if (IsPlus(m_format)) {
        size_t room = annotationBytes ? annotationBytes : kTimeKeepingRoom;
        if (room > (size_t(1) << 24)) {
            error = EdfMsg(IDS_EDF_W_ANNOTATIONS_BIG);
            return false;
        }
        m_annotationSamples = int((room + SampleBytes(m_format) - 1) / SampleBytes(m_format));
    }
    EdfHeader written = header;
    written.start = WholeSeconds(header.start);
    std::string bytes;
    if (!BuildEdfHeader(written, signals, m_annotationSamples, -1, false, bytes, error)) return false;

    // Samples of one record; refused when a record would not fit in memory.
    unsigned long long samples = m_annotationSamples;
    for (const EdfSignal& s : signals) samples += unsigned(s.samplesPerRecord);
    m_recordBytes = size_t(samples * SampleBytes(m_format));
    if (samples > (1ull << 26)) {
        error = EdfMsg(IDS_EDF_W_RECORD_BIG);
        return false;
    }
    // Room for a block: the first record taking it to kBlockBytes or more
    // sends it to the file.
    m_block.assign(kBlockBytes + m_recordBytes, 0);
    m_blockUsed = 0;

    std::string tmpl = path + ".XXXXXX";
    std::vector<char> name(tmpl.begin(), tmpl.end());
    name.push_back('\0');
    int fd = ::mkstemp(name.data());
    if (fd < 0) {
        long code = ErrnoToSystemError(errno);
        std::string text;
        GetSystemErrorText(code, text);
        error = EdfMsg(IDS_EDF_W_CREATE, path.c_str(), text.c_str());
        return false;
    }
    ::fchmod(fd, 0644);  // mkstemp makes it private; an export is an ordinary file
    ::close(fd);
    m_path = path;
    m_tempPath = name.data();
    m_file = std::make_unique<CFile>();
    CFileException fe;
    if (!m_file->Open(m_tempPath.c_str(), CFile::modeWrite | CFile::shareExclusive, &fe))
        return Fail(error, fe.GetMessageText());
    try {
        m_file->Write(bytes.data(), UINT(bytes.size()));
        m_written = bytes.size();
    } catch (const CException& e) {
        return Fail(error, e.GetMessageText());
    }
    return true;
}

std::string EdfWriter::Where() const { return EdfMsg(IDS_EDF_W_RECORD, (long long)m_records); }

bool EdfWriter::BeginRecord(double start, size_t signalCount, const std::vector<EdfAnnotation>& annotations,
                            bool& follows, std::string& error) {
    if (!IsOpen()) {
        error = EdfMsg(IDS_EDF_W_NOT_OPEN);
        return false;
    }
    if (!std::isfinite(start) || start < 0) return Fail(error, Where() + EdfMsg(IDS_EDF_W_START));
    follows = std::fabs(start - (m_records == 0 ? 0.0 : m_lastStart + m_duration)) <= 1e-6 * m_duration;
    if (m_records > 0 && start < m_lastStart + m_duration - 1e-6 * m_duration)
        return Fail(error, Where() + EdfMsg(IDS_EDF_W_OVERLAP));
    if (!follows && !IsPlus(m_format))
        return Fail(error, Where() + EdfMsg(IDS_EDF_W_GAP_PLAIN));
    if (!annotations.empty() && !IsPlus(m_format))
        return Fail(error, Where() + EdfMsg(IDS_EDF_W_ANNOTATIONS_PLAIN));
    if (signalCount != m_signals.size())
        return Fail(error, Where() + EdfMsg(IDS_EDF_W_SIGNAL_COUNT, signalCount, m_signals.size()));
    // The record goes at the end of the output block, which is written out
    // once it holds enough records.
    m_recordAt = m_blockUsed;
    m_blockUsed += m_recordBytes;
    return true;
}

template <typename Sample>
bool EdfWriter::PackSignal(size_t i, const Sample* v, size_t n, BYTE*& p, std::string& error) {
    const EdfSignal& sig = m_signals[i];
    if (n != size_t(sig.samplesPerRecord))
        return Fail(error, Where() + SignalName(sig, i) +
                               EdfMsg(IDS_EDF_W_SAMPLE_COUNT, n, sig.samplesPerRecord));
    // 16-bit samples need no check against limits that hold every one.
    if (sizeof(Sample) > 2 || sig.digitalMin > -32768 || sig.digitalMax < 32767) {
        bool inRange = true;
        for (size_t k = 0; k < n; ++k) inRange &= v[k] >= sig.digitalMin && v[k] <= sig.digitalMax;
        if (!inRange) {
            LONG bad = LONG(*std::find_if(v, v + n, [&](Sample x) { return x < sig.digitalMin || x > sig.digitalMax; }));
            return Fail(error, Where() + SignalName(sig, i) +
                                   EdfMsg(IDS_EDF_W_SAMPLE_LIMITS, long(bad),
                                             long(sig.digitalMin), long(sig.digitalMax)));
        }
    }
    if (SampleBytes(m_format) == 3) {
        for (size_t k = 0; k < n; ++k, p += 3) {
            uint32_t u = static_cast<uint32_t>(LONG(v[k]));
            p[0] = BYTE(u);
            p[1] = BYTE(u >> 8);
            p[2] = BYTE(u >> 16);
        }
    } else if (sizeof(Sample) == 2 && std::endian::native == std::endian::little) {
        std::memcpy(p, v, n * 2);  // already the file's little-endian 16 bits
        p += n * 2;
    } else if (std::endian::native == std::endian::little) {
        // Narrowed in a loop the compiler turns into vector packs.
        for (size_t k = 0; k < n; ++k) {
            const int16_t x = static_cast<int16_t>(v[k]);
            std::memcpy(p + 2 * k, &x, 2);
        }
        p += n * 2;
    } else {
        for (size_t k = 0; k < n; ++k, p += 2) {
            uint32_t u = static_cast<uint32_t>(LONG(v[k]));
            p[0] = BYTE(u);
            p[1] = BYTE(u >> 8);
        }
    }
    return true;
}

bool EdfWriter::WriteRecord(double start, const std::vector<std::vector<LONG>>& samples,
                            const std::vector<EdfAnnotation>& annotations, std::string& error) {
    bool follows = false;
    if (!BeginRecord(start, samples.size(), annotations, follows, error)) return false;
    BYTE* p = m_block.data() + m_recordAt;
    for (size_t i = 0; i < m_signals.size(); ++i)
        if (!PackSignal(i, samples[i].data(), samples[i].size(), p, error)) return false;
    return FinishRecord(start, follows, annotations, p, error);
}

template <typename Sample>
bool EdfWriter::WriteRecordFrom(double start, const Sample* const* samples, size_t signalCount,
                                const std::vector<EdfAnnotation>& annotations, std::string& error) {
    bool follows = false;
    if (!BeginRecord(start, signalCount, annotations, follows, error)) return false;
    BYTE* p = m_block.data() + m_recordAt;
    for (size_t i = 0; i < m_signals.size(); ++i)
        if (!PackSignal(i, samples[i], size_t(m_signals[i].samplesPerRecord), p, error)) return false;
    return FinishRecord(start, follows, annotations, p, error);
}

bool EdfWriter::WriteRecord(double start, const short* const* samples, size_t signalCount,
                            const std::vector<EdfAnnotation>& annotations, std::string& error) {
    return WriteRecordFrom(start, samples, signalCount, annotations, error);
}

bool EdfWriter::WriteRecord(double start, const LONG* const* samples, size_t signalCount,
                            const std::vector<EdfAnnotation>& annotations, std::string& error) {
    return WriteRecordFrom(start, samples, signalCount, annotations, error);
}

bool EdfWriter::FinishRecord(double start, bool follows, const std::vector<EdfAnnotation>& annotations, BYTE* p,
                             std::string& error) {
    if (IsPlus(m_format)) {
        const int width = SampleBytes(m_format);
        std::string tals = BuildTimeKeepingTal(start + m_offset);
        for (const EdfAnnotation& a : annotations) {
            if (!std::isfinite(a.onset) || (a.duration && !(*a.duration >= 0 && std::isfinite(*a.duration))))
                return Fail(error, Where() + EdfMsg(IDS_EDF_W_ANNOTATION_TIME, a.text.c_str()));
            tals += BuildTal(a.onset + m_offset, a.duration, &a.text);
        }
        size_t room = size_t(m_annotationSamples) * width;
        if (tals.size() > room)
            return Fail(error, Where() + EdfMsg(IDS_EDF_W_ANNOTATION_ROOM,
                                                   tals.size(), room));
        std::copy(tals.begin(), tals.end(), p);
        std::fill(p + tals.size(), p + room, BYTE(0));
    }
    if (m_blockUsed >= kBlockBytes && !WriteBlock(error)) return false;
    if (!follows) m_discontinuous = true;
    m_lastStart = start;
    ++m_records;
    return true;
}

bool EdfWriter::WriteBlock(std::string& error) {
    if (m_blockUsed == 0) return true;
    try {
        m_file->Write(m_block.data(), UINT(m_blockUsed));
    } catch (const CException& e) {
        return Fail(error, e.GetMessageText());
    }
    // Let the disk take the block while the next ones are prepared, so that
    // the flush on Close finds little left to write.
    m_file->StartWriteBack(m_written, m_blockUsed);
    m_written += m_blockUsed;
    m_blockUsed = 0;
    return true;
}

bool EdfWriter::Close(std::string& error) {
    if (!IsOpen()) {
        error = EdfMsg(IDS_EDF_W_NOT_OPEN);
        return false;
    }
    if (m_records > 99999999) return Fail(error, EdfMsg(IDS_EDF_W_TOO_MANY_RECORDS));
    if (!WriteBlock(error)) return false;
    try {
        std::string count = Pad(std::to_string(m_records), 8);
        m_file->Seek(236, CFile::begin);
        m_file->Write(count.data(), 8);
        if (IsPlus(m_format) && m_discontinuous) {
            m_file->Seek(196, CFile::begin);
            m_file->Write("D", 1);
        }
        m_file->FlushToDisk();
        m_file->Close();
    } catch (const CException& e) {
        return Fail(error, e.GetMessageText());
    }
    m_file.reset();
    if (!MoveFileReplace(m_tempPath, m_path)) {
        std::string text;
        GetSystemErrorText(GetLastError(), text);
        return Fail(error, EdfMsg(IDS_EDF_W_REPLACE, m_path.c_str(), text.c_str()));
    }
    m_tempPath.clear();
    return true;
}

}  // namespace edf
