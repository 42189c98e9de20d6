// Reads every record of a recording into formatted records (world units)
// and prints the seconds it took: the C++ figures that bench/python/read.py
// compares the Python module with.  With --into-arrays, the samples are also
// copied into one array per channel for the whole night (what the Python
// module's read() returns).  Without a file it does nothing (it is not a
// benchmark of its own).
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "sigfile/SIGFILE.h"

int main(int argc, char** argv) {
    if (argc < 2) return 0;
    const bool arrays = argc == 3 && std::strcmp(argv[2], "--into-arrays") == 0;
    const auto t0 = std::chrono::steady_clock::now();
    CSigFilePtr file(CSigFile::Open(argv[1], 1));
    if (!file) return 1;
    std::unique_ptr<CFmtSigRec> record(file->CreateCompatibleFmtSigRec());
    const unsigned channels = file->GetNumChannels();
    const long records = file->GetNumRecords();
    std::vector<std::unique_ptr<float[]>> night(arrays ? channels : 0);
    for (unsigned c = 0; arrays && c < channels; ++c)
        night[c].reset(new float[size_t(records) * file->GetSamplesChannel(c)]);
    double sum = 0;
    for (long r = 0; r < records; ++r) {
        file->MoveTo(r);
        if (!file->Read(record.get())) return 1;
        for (unsigned c = 0; arrays && c < channels; ++c) {
            const unsigned n = file->GetSamplesChannel(c);
            std::memcpy(night[c].get() + size_t(r) * n, record->GetAt(c), n * sizeof(float));
        }
        sum += record->GetData()[0];
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("%.6f %g\n", seconds, sum);
    return 0;
}
