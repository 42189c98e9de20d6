// The bodies of the fuzz targets, shared by the libFuzzer programs and by the
// test that replays the corpora and the regression inputs.
//
// Each entry feeds one input to one reader of the library and returns 1 when
// the reader accepted it whole, 0 when it refused it cleanly.  Anything else
// (a crash, a sanitizer report, an escaped exception, the library's fatal
// error routine) is a finding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzzentry {

using Entry = int (*)(const uint8_t* data, size_t size);

struct Target {
    const char* name;  // folder name under fuzz/corpus/ and tests/data/fuzz/
    Entry entry;
};

// Every target, in a fixed order.
const std::vector<Target>& Targets();
// The target of that name, or null.
const Target* FindTarget(const std::string& name);

// While alive, makes library assertions silent (they report and carry on,
// which is what a fuzz input may provoke) and turns the library's fatal error
// routine into an abort, so that reaching it is reported rather than ending
// the process with status 0.  The previous handlers come back at the end.
class LibraryGuard {
public:
    LibraryGuard();
    ~LibraryGuard();
    LibraryGuard(const LibraryGuard&) = delete;
    LibraryGuard& operator=(const LibraryGuard&) = delete;

private:
    struct Saved;
    Saved* m_saved;
};

// Inputs made of two files: a 4-byte little-endian length n, then the first
// file (n bytes, cut to what is left), then the second file.
std::vector<uint8_t> JoinPair(const std::vector<uint8_t>& first, const std::vector<uint8_t>& second);

// CIntStsFile::LoadFromMemory on the bytes of a status file, then a walk of
// what it loaded (items, groups, montages, whose formulas are compiled).
int Status(const uint8_t* data, size_t size);
// A ".STS" / ".SIG" pair (JoinPair form) opened read-only by CSigFile::Open;
// every record is read raw, formatted and in volts.
int SigFile(const uint8_t* data, size_t size);
// The bytes of "default.flt" read by CFilterSet::Refresh; every filter item
// is then wrapped around a channel and compiled.
int Filters(const uint8_t* data, size_t size);
// A ".SPH" / ".SPC" pair (JoinPair form) opened read-only by CCsaFile::Open;
// every record and annotation is read.
int SpectralHeader(const uint8_t* data, size_t size);
// Formula lines compiled by CCReformater over three inputs A, B (4 samples
// per record, 256 Hz) and C (2 samples, 128 Hz); see FuzzEntries.cpp.
int Formula(const uint8_t* data, size_t size);
// An EDF/BDF file opened by the EDF reader, every record read, then
// imported into a native recording (resampling allowed for odd sizes).
int Edf(const uint8_t* data, size_t size);

}  // namespace fuzzentry
