// Reading a Nihon Kohden recording whole into formatted records through
// CSigFile::Open, against reading the same bytes and converting them by
// hand (demultiplexing, d x gain + offset into floats), in the same run.
//
// The recording is built by the bench: one hour, 32 channels at 500 Hz, in
// one data block (about 120 MB).
//
//   RESULT nihonkohden_read <MB/s of samples> ratio=<library/by hand> target=1.5
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "sigfile/SIGFILE.h"

namespace {

constexpr unsigned kChannels = 32;
constexpr unsigned kRate = 500;
constexpr unsigned kSeconds = 3600;
constexpr size_t kDataAt = 0x17FE + 0x27 + 10 * kChannels;

double Seconds(std::chrono::steady_clock::time_point from) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

void Put(std::vector<unsigned char>& b, size_t at, const void* p, size_t n) { std::memcpy(b.data() + at, p, n); }
void Put32(std::vector<unsigned char>& b, size_t at, uint32_t v) { Put(b, at, &v, 4); }

bool WriteRecording(const std::string& name) {
    std::vector<unsigned char> head(kDataAt, 0);
    const char device[] = "EEG-1100C V01.00";
    Put(head, 0, device, 16);
    Put(head, 0x40, "20260131220000", 14);
    Put(head, 0x81, device, 16);
    head[0x91] = 1;
    Put32(head, 0x92, 0x400);
    head[0x400 + 17] = 1;
    Put32(head, 0x400 + 18, 0x17FE);
    head[0x17FE] = 1;
    const unsigned char when[6] = {0x26, 0x01, 0x31, 0x22, 0x00, 0x00};
    Put(head, 0x17FE + 0x14, when, 6);
    const uint16_t rate = kRate | 0xC000;
    Put(head, 0x17FE + 0x1A, &rate, 2);
    Put32(head, 0x17FE + 0x1C, kSeconds * 10);
    head[0x17FE + 0x26] = kChannels;
    for (unsigned c = 0; c < kChannels; ++c) head[0x17FE + 0x27 + 10 * c] = static_cast<unsigned char>(c);
    FILE* f = std::fopen(name.c_str(), "wb");
    if (!f) return false;
    std::fwrite(head.data(), 1, head.size(), f);
    std::vector<uint16_t> second(size_t(kRate) * (kChannels + 1));
    for (unsigned s = 0; s < kSeconds; ++s) {
        for (size_t i = 0; i < second.size(); ++i) second[i] = uint16_t(s * 7919 + i * 104729);
        std::fwrite(second.data(), 2, second.size(), f);
    }
    return std::fclose(f) == 0;
}

}  // namespace

int main() {
    char folder[] = "/tmp/sigfile-bench-nk-XXXXXX";
    if (!mkdtemp(folder)) return 1;
    const std::string name = std::string(folder) + "/night.EEG";
    if (!WriteRecording(name)) return 1;
    const double megabytes = double(kSeconds) * kRate * kChannels * 2 / 1e6;
    double byHand = 1e9, library = 1e9;
    double checksum = 0;
    for (int round = 0; round < 3; ++round) {
        auto t0 = std::chrono::steady_clock::now();
        {
            const int fd = ::open(name.c_str(), O_RDONLY);
            const double gain = 6399.902 / 65535.0, offset = -3200.0 + 32768.0 * gain;
            std::vector<uint16_t> block(size_t(kRate) * (kChannels + 1));
            std::vector<float> values(size_t(kRate) * kChannels);
            for (unsigned s = 0; s < kSeconds; ++s) {
                const off_t at = off_t(kDataAt + size_t(s) * block.size() * 2);
                if (::pread(fd, block.data(), block.size() * 2, at) != ssize_t(block.size() * 2)) return 1;
                for (unsigned c = 0; c < kChannels; ++c)
                    for (unsigned k = 0; k < kRate; ++k)
                        values[size_t(c) * kRate + k] =
                            float(double(int16_t(block[size_t(k) * (kChannels + 1) + c] ^ 0x8000)) * gain + offset);
                checksum += values[0];
            }
            ::close(fd);
        }
        byHand = std::min(byHand, Seconds(t0));
        t0 = std::chrono::steady_clock::now();
        {
            CSigFilePtr file(CSigFile::Open(name.c_str(), 1));
            if (!file) return 1;
            std::unique_ptr<CFmtSigRec> rec(file->CreateCompatibleFmtSigRec());
            for (long r = 0; r < file->GetNumRecords(); ++r) {
                file->MoveTo(r);
                if (!file->Read(rec.get())) return 1;
                checksum += rec->GetAt(0, 0);
            }
        }
        library = std::min(library, Seconds(t0));
    }
    std::printf("RESULT nihonkohden_read %.1f MB/s ratio=%.2f target=1.5\n", megabytes / library, library / byHand);
    std::fprintf(stderr, "(by hand %.3f s, library %.3f s, %.0f MB, checksum %g)\n", byHand, library, megabytes, checksum);
    ::unlink(name.c_str());
    ::rmdir(folder);
    return 0;
}
