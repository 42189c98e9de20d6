// Re-cutting of EDF records into fixed-duration blocks.
#include "formats/edf/EdfBlocks.h"

#include <algorithm>
#include <cmath>

namespace edf {

EdfBlockReader::EdfBlockReader(EdfReader& reader, const std::vector<double>& targetRates, double blockDuration)
    : m_reader(reader), m_blockDuration(blockDuration) {
    const auto& signals = reader.Signals();
    const double duration = reader.Header().recordDuration;
    m_rates.resize(signals.size());
    m_blockSamples.resize(signals.size());
    m_resamplers.resize(signals.size());
    m_queues.resize(signals.size());
    m_heads.assign(signals.size(), 0);
    for (size_t i = 0; i < signals.size(); ++i) {
        double own = signals[i].Rate(duration);
        m_rates[i] = i < targetRates.size() && targetRates[i] > 0 ? targetRates[i] : own;
        m_blockSamples[i] = int(std::lround(m_rates[i] * blockDuration));
    }
}

EdfBlockReader::~EdfBlockReader() = default;

bool EdfBlockReader::Resampled(size_t i) const {
    double own = m_reader.Signals()[i].Rate(m_reader.Header().recordDuration);
    return std::fabs(m_rates[i] - own) > 1e-9 * own;
}

size_t EdfBlockReader::Queued(size_t i) const { return m_queues[i].size() - m_heads[i]; }

bool EdfBlockReader::Ready() const {
    for (size_t i = 0; i < m_queues.size(); ++i)
        if (Queued(i) < size_t(m_blockSamples[i])) return false;
    return true;
}

bool EdfBlockReader::Empty() const {
    for (size_t i = 0; i < m_queues.size(); ++i)
        if (Queued(i) > 0) return false;
    return true;
}

void EdfBlockReader::Take(EdfBlock& block) {
    block.samples.resize(m_queues.size());
    block.partial = false;
    block.start = m_segmentStart + double(m_blocksInSegment) * m_blockDuration;
    for (size_t i = 0; i < m_queues.size(); ++i) {
        size_t n = std::min(Queued(i), size_t(m_blockSamples[i]));
        if (n < size_t(m_blockSamples[i])) block.partial = true;
        auto from = m_queues[i].begin() + LONGLONG(m_heads[i]);
        block.samples[i].assign(from, from + LONGLONG(n));
        m_heads[i] += n;
        // Compact now and then rather than erasing at every block.
        if (m_heads[i] > m_queues[i].size() / 2) {
            m_queues[i].erase(m_queues[i].begin(), m_queues[i].begin() + LONGLONG(m_heads[i]));
            m_heads[i] = 0;
        }
    }
    ++m_blocksInSegment;
}

void EdfBlockReader::Append(size_t i, const std::vector<double>& values) {
    const EdfSignal& s = m_reader.Signals()[i];
    for (double v : values) {
        double r = std::round(v);
        r = std::clamp(r, double(s.digitalMin), double(s.digitalMax));
        m_queues[i].push_back(LONG(r));
    }
}

void EdfBlockReader::StartSegment() {
    m_segmentStart = m_reader.RecordStart(m_next);
    m_blocksInSegment = 0;
    m_segmentOpen = true;
    m_segmentFinished = false;
    const double duration = m_reader.Header().recordDuration;
    for (size_t i = 0; i < m_queues.size(); ++i)
        m_resamplers[i] = Resampled(i) ? std::make_unique<EdfResampler>(
                                             m_reader.Signals()[i].Rate(duration), m_rates[i])
                                       : nullptr;
}

void EdfBlockReader::FinishSegment() {
    for (size_t i = 0; i < m_queues.size(); ++i) {
        if (!m_resamplers[i]) continue;
        m_out.clear();
        m_resamplers[i]->Finish(m_out);
        Append(i, m_out);
        m_resamplers[i].reset();
    }
    m_segmentFinished = true;
}

bool EdfRecordFollows(const EdfReader& reader, LONGLONG r) {
    if (r == 0 || !reader.Header().discontinuous) return true;
    const double duration = reader.Header().recordDuration;
    return std::fabs(reader.RecordStart(r) - (reader.RecordStart(r - 1) + duration)) <= 1e-3 * duration + 1e-6;
}

bool EdfBlockReader::Follows(LONGLONG r) const { return EdfRecordFollows(m_reader, r); }

bool EdfBlockReader::ReadRecord(std::string& error) {
    if (!m_reader.ReadRecord(m_next, m_record, error)) return false;
    for (size_t i = 0; i < m_queues.size(); ++i) {
        if (m_resamplers[i]) {
            m_in.assign(m_record[i].begin(), m_record[i].end());
            m_out.clear();
            m_resamplers[i]->Push(m_in.data(), m_in.size(), m_out);
            Append(i, m_out);
        } else {
            m_queues[i].insert(m_queues[i].end(), m_record[i].begin(), m_record[i].end());
        }
    }
    ++m_next;
    return true;
}

bool EdfBlockReader::Next(EdfBlock& block, std::string& error) {
    error.clear();
    if (m_queues.empty()) return false;
    for (;;) {
        if (m_segmentOpen && Ready()) {
            Take(block);
            return true;
        }
        if (m_next < m_reader.RecordCount() && (!m_segmentOpen || (!m_segmentFinished && Follows(m_next)))) {
            if (!m_segmentOpen) StartSegment();
            if (!ReadRecord(error)) return false;
            continue;
        }
        if (!m_segmentOpen) return false;  // no record left
        if (!m_segmentFinished) {
            FinishSegment();
            continue;
        }
        if (!Empty()) {
            Take(block);
            return true;
        }
        m_segmentOpen = false;
    }
}

}  // namespace edf
