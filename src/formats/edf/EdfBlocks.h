// Re-cuts the data signals of an EDF-family file into blocks of a fixed
// duration, e.g. the records of a native recording (64 samples at the base
// frequency), whatever the file's own record duration.  Signals may be
// resampled on the way (only where the user agreed to it).  Memory stays
// bounded by one file record and one block per signal.
//
// Blocks never span a gap between records of a "+D" file: the block before
// a gap may come out short (so may the last block of the file), and the
// block after it starts at the next record's start.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "formats/edf/EdfReader.h"
#include "formats/edf/EdfResample.h"

namespace edf {

// Whether record r of a file starts where record r - 1 ends (always so in a
// continuous file), within a thousandth of a record.
bool EdfRecordFollows(const EdfReader& reader, LONGLONG r);

struct EdfBlock {
    double start = 0;  // seconds from the header's start
    bool partial = false;  // some signal has fewer than its block samples
    std::vector<std::vector<LONG>> samples;  // one vector per data signal
};

class EdfBlockReader {
public:
    // targetRates: one rate per data signal of the reader; a rate other than
    // the signal's own makes it resampled (digital values rounded and kept
    // within the signal's digital limits).  blockDuration in seconds; every
    // signal takes round(rate x blockDuration) samples per block.
    EdfBlockReader(EdfReader& reader, const std::vector<double>& targetRates, double blockDuration);
    ~EdfBlockReader();

    // The next block; false at the end (error empty) or on a read error.
    bool Next(EdfBlock& block, std::string& error);

    const std::vector<int>& BlockSamples() const { return m_blockSamples; }

private:
    bool ReadRecord(std::string& error);
    bool Follows(LONGLONG record) const;
    bool Resampled(size_t signal) const;
    void StartSegment();
    void FinishSegment();
    size_t Queued(size_t signal) const;
    bool Ready() const;
    bool Empty() const;
    void Append(size_t signal, const std::vector<double>& values);
    void Take(EdfBlock& block);

    EdfReader& m_reader;
    std::vector<double> m_rates;
    double m_blockDuration;
    std::vector<int> m_blockSamples;
    std::vector<std::unique_ptr<EdfResampler>> m_resamplers;
    // Samples waiting for a block: per signal, from m_heads[i] on.
    std::vector<std::vector<LONG>> m_queues;
    std::vector<size_t> m_heads;
    std::vector<std::vector<LONG>> m_record;
    std::vector<double> m_in, m_out;
    LONGLONG m_next = 0;        // next file record to read
    double m_segmentStart = 0;  // start of the current run of contiguous records
    LONGLONG m_blocksInSegment = 0;
    bool m_segmentOpen = false;
    bool m_segmentFinished = false;  // its last record read, resamplers flushed
};

}  // namespace edf
