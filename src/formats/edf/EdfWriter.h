// Writes an EDF, EDF+, BDF or BDF+ file record by record, never holding more
// than one record in memory.  The bytes go to a temporary file beside the
// target, which replaces the target only when Close succeeds; a writer
// destroyed or aborted before that leaves the target untouched.
//
// Typical use, for an export of N records:
//   EdfAnnotationPlan plan = PlanAnnotations(starts, annotations, EdfStartFraction(header.start));
//   writer.Open(path, header, signals, plan.bytesPerRecord, error);
//   for each record i: writer.WriteRecord(starts[i], samples, plan.perRecord[i], error);
//   writer.Close(error);
// Every method returns false with a French message in `error` on failure;
// after a failure only Abort (or the destructor) is meaningful.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "formats/edf/Edf.h"

class CFile;

namespace edf {

class EdfWriter {
public:
    EdfWriter();
    ~EdfWriter();
    EdfWriter(const EdfWriter&) = delete;
    EdfWriter& operator=(const EdfWriter&) = delete;

    // Checks the header and the signals and writes the header to the
    // temporary file.  annotationBytes is the room of the annotation signal in
    // each record of a "+" format (PlanAnnotations gives it; 0 leaves room
    // for the time-keeping TAL only); plain EDF and BDF ignore it.  The
    // header's start keeps whole seconds; its fraction of a second is added
    // to every time written (record starts and onsets are given from the
    // exact start).
    bool Open(const std::string& path, const EdfHeader& header, const std::vector<EdfSignal>& signals,
              size_t annotationBytes, std::string& error);

    // Appends one record: its start in seconds from the header's start (after
    // the previous record's end; plain EDF and BDF take only contiguous
    // records), one vector of samplesPerRecord digital samples per signal, in
    // the signals' order, within each signal's digital limits, and the
    // annotations the record carries (only in a "+" format).
    bool WriteRecord(double start, const std::vector<std::vector<LONG>>& samples,
                     const std::vector<EdfAnnotation>& annotations, std::string& error);

    // The same for 16-bit samples: samples[i] points at the
    // samplesPerRecord values of signal i, signalCount being the number of
    // signals.  A record of a native recording goes through without a copy
    // into wider integers.
    bool WriteRecord(double start, const short* const* samples, size_t signalCount,
                     const std::vector<EdfAnnotation>& annotations, std::string& error);
    // The same for samples held as 32-bit integers (samples[i] points at
    // signal i's samplesPerRecord values), without copying them first.
    bool WriteRecord(double start, const LONG* const* samples, size_t signalCount,
                     const std::vector<EdfAnnotation>& annotations, std::string& error);

    // Writes the record count and, when some record did not follow the
    // previous one, the "+D" mark, then replaces the target with the file.
    bool Close(std::string& error);

    // Drops the temporary file; the target is not touched.
    void Abort();

    bool IsOpen() const;
    LONGLONG RecordCount() const { return m_records; }
    bool Discontinuous() const { return m_discontinuous; }
    // The samples per record of the annotation signal (0 without one).
    int AnnotationSamples() const { return m_annotationSamples; }

private:
    bool Fail(std::string& error, const std::string& message);
    std::string Where() const;
    bool BeginRecord(double start, size_t signalCount, const std::vector<EdfAnnotation>& annotations, bool& follows,
                     std::string& error);
    template <typename Sample>
    bool PackSignal(size_t signal, const Sample* values, size_t count, BYTE*& out, std::string& error);
    // One record from one pointer per signal to its samplesPerRecord samples.
    template <typename Sample>
    bool WriteRecordFrom(double start, const Sample* const* samples, size_t signalCount,
                         const std::vector<EdfAnnotation>& annotations, std::string& error);
    bool FinishRecord(double start, bool follows, const std::vector<EdfAnnotation>& annotations, BYTE* out,
                      std::string& error);
    bool WriteBlock(std::string& error);

    // Records are gathered into blocks of about this size before writing.
    static constexpr size_t kBlockBytes = size_t(1) << 20;

    std::unique_ptr<CFile> m_file;
    std::string m_path, m_tempPath;
    EdfFormat m_format = EdfFormat::EdfPlus;
    std::vector<EdfSignal> m_signals;
    double m_duration = 1;
    double m_offset = 0;  // fraction of a second of the start
    int m_annotationSamples = 0;
    size_t m_recordBytes = 0;
    std::vector<BYTE> m_block;  // records not written yet: the first m_blockUsed bytes
    size_t m_blockUsed = 0;
    size_t m_recordAt = 0;      // where the record being built starts in m_block
    ULONGLONG m_written = 0;    // bytes of the file written so far
    LONGLONG m_records = 0;
    double m_lastStart = 0;
    bool m_discontinuous = false;
};

// Builds the header bytes (256 + 256 per signal, the annotation signal last
// in a "+" format) for a record count; error names the field that cannot be
// written.  Exposed for the writer and its tests.
bool BuildEdfHeader(const EdfHeader& header, const std::vector<EdfSignal>& signals, int annotationSamples,
                    LONGLONG recordCount, bool discontinuous, std::string& bytes, std::string& error);

}  // namespace edf
