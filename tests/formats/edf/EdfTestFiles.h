// Helpers shared by the EDF writer and reader tests: a small recording with
// known samples and annotations, and whole-file byte access.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "formats/edf/EdfWriter.h"

namespace edftest {

inline std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
}

// Field text padded with spaces to its width.
inline std::string Pad(const std::string& s, size_t width) {
    std::string r = s;
    r.resize(width, ' ');
    return r;
}

inline edf::EdfSignal Signal(const std::string& label, int samples, LONG dmin, LONG dmax, double pmin, double pmax,
                             const std::string& unit = "uV") {
    edf::EdfSignal s;
    s.label = label;
    s.samplesPerRecord = samples;
    s.digitalMin = dmin;
    s.digitalMax = dmax;
    s.physicalMin = pmin;
    s.physicalMax = pmax;
    s.unit = unit;
    return s;
}

// Deterministic samples covering each signal's whole digital range,
// extremes included.
inline std::vector<std::vector<LONG>> Samples(const std::vector<edf::EdfSignal>& signals, int record) {
    std::vector<std::vector<LONG>> out;
    for (size_t i = 0; i < signals.size(); ++i) {
        const edf::EdfSignal& s = signals[i];
        std::vector<LONG> v;
        long long span = (long long)s.digitalMax - s.digitalMin + 1;
        for (int k = 0; k < s.samplesPerRecord; ++k) {
            long long n = (long long)record * 7919 + k * 104729 + (long long)i * 1299709;
            LONG value = LONG(s.digitalMin + (n * 2654435761ll) % span);
            if (record == 0 && k == 0) value = s.digitalMin;
            if (record == 0 && k == 1) value = s.digitalMax;
            v.push_back(value);
        }
        out.push_back(v);
    }
    return out;
}

// Writes records with the given starts, annotations planned by the library.
inline bool WriteFile(const std::string& path, const edf::EdfHeader& header,
                      const std::vector<edf::EdfSignal>& signals, const std::vector<double>& starts,
                      const std::vector<edf::EdfAnnotation>& annotations, std::string& error) {
    edf::EdfAnnotationPlan plan = edf::PlanAnnotations(starts, annotations, edf::EdfStartFraction(header.start));
    edf::EdfWriter writer;
    if (!writer.Open(path, header, signals, plan.bytesPerRecord, error)) return false;
    for (size_t r = 0; r < starts.size(); ++r)
        if (!writer.WriteRecord(starts[r], Samples(signals, int(r)), plan.perRecord[r], error)) return false;
    return writer.Close(error);
}

}  // namespace edftest
