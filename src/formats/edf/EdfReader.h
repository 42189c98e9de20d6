// Reads EDF, EDF+, BDF and BDF+ files.  Open checks every header field and
// refuses a malformed file with a message naming the field; it reads the
// annotation signal of every record (the TALs and the records' start times)
// but no samples.  Samples are read record by record on demand, so memory
// stays bounded by one record whatever the length of the file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "formats/edf/Edf.h"

class CFile;

namespace edf {

class EdfReader {
public:
    EdfReader();
    ~EdfReader();
    EdfReader(const EdfReader&) = delete;
    EdfReader& operator=(const EdfReader&) = delete;

    // False with a French message naming the faulty field in `error`.
    bool Open(const std::string& path, std::string& error);
    void Close();
    bool IsOpen() const;

    // The header (identification subfields parsed when they follow the EDF+
    // layout) and the data signals, annotation signals left out.
    const EdfHeader& Header() const { return m_header; }
    const std::vector<EdfSignal>& Signals() const { return m_signals; }
    LONGLONG RecordCount() const { return m_header.recordCount; }

    // Start of a record in seconds from the header's start: from its
    // time-keeping TAL in a "+" file, index x duration otherwise.
    double RecordStart(LONGLONG index) const;
    // Departures from the standard that Open tolerated, one French line each.
    const std::vector<std::string>& Notes() const { return m_notes; }
    // True when the file has an annotation signal ("EDF Annotations" or
    // "BDF Annotations", in a "+" file or not).
    bool HasAnnotationSignal() const { return m_annotationSignals; }
    // Every annotation of every record, in the file's order.
    const std::vector<EdfAnnotation>& Annotations() const { return m_annotations; }

    // The digital samples of one record, one vector per data signal.
    bool ReadRecord(LONGLONG index, std::vector<std::vector<LONG>>& samples, std::string& error);

    // The bytes of one record as stored (RecordBytesSize() of them), valid
    // until the next read; null with a message on failure.  Data signal i
    // starts at SignalOffset(i), samplesPerRecord samples of
    // SampleBytes(format) bytes each, little-endian.
    const BYTE* RecordBytes(LONGLONG index, std::string& error);
    size_t RecordBytesSize() const { return m_recordBytes; }
    size_t SignalOffset(size_t signal) const;

private:
    struct Layout {
        bool annotation = false;
        size_t offset = 0;  // byte offset inside a record
        size_t bytes = 0;
    };
    bool ParseHeader(std::string& error);
    bool ReadAnnotations(std::string& error);
    bool ReadAt(ULONGLONG position, void* buffer, size_t size);

    std::unique_ptr<CFile> m_file;
    EdfHeader m_header;
    std::vector<EdfSignal> m_signals;
    std::vector<Layout> m_layout;  // every signal of the file, in order
    size_t m_headerBytes = 0;
    size_t m_recordBytes = 0;
    static constexpr size_t kReadAheadBytes = size_t(1) << 20;
    std::vector<BYTE> m_buffer;  // m_bufferRecords records from m_bufferFirst on
    LONGLONG m_bufferFirst = 0;
    LONGLONG m_bufferRecords = 0;
    std::vector<double> m_starts;  // kept for "+D" files only
    double m_firstStart = 0;
    std::vector<EdfAnnotation> m_annotations;
    std::vector<std::string> m_notes;
    bool m_annotationSignals = false;
    bool m_talRepairNoted = false;
    bool m_continuityNoted = false;
    bool m_durationAssumed = false;  // the header said 0 s for records with samples
};

}  // namespace edf
