// Small Nihon Kohden ".EEG" files built byte by byte, for the reader's
// tests and the fuzz seeds.
#pragma once

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace nktest {

inline const char kDevice[] = "EEG-1100C V01.00";

struct Bytes {
    std::vector<BYTE> b;
    explicit Bytes(size_t size = 0) : b(size, 0) {}
    void Put(size_t at, const void* p, size_t n) {
        if (b.size() < at + n) b.resize(at + n, 0);
        std::memcpy(b.data() + at, p, n);
    }
    void Text(size_t at, const std::string& s) { Put(at, s.data(), s.size()); }
    void U8(size_t at, unsigned v) { Put(at, &v, 1); }
    void U16(size_t at, unsigned v) {
        const BYTE x[2] = {BYTE(v), BYTE(v >> 8)};
        Put(at, x, 2);
    }
    void U32(size_t at, unsigned long v) {
        const BYTE x[4] = {BYTE(v), BYTE(v >> 8), BYTE(v >> 16), BYTE(v >> 24)};
        Put(at, x, 4);
    }
    void Write(const std::string& name) const {
        std::ofstream(name, std::ios::binary).write(reinterpret_cast<const char*>(b.data()), std::streamsize(b.size()));
    }
};

inline BYTE Bcd(int v) { return BYTE((v / 10) << 4 | (v % 10)); }

// The sample of channel c at instant s of block k.
inline short SampleOf(int k, unsigned c, unsigned s) { return short((k * 1000 + int(c) * 37 + int(s) * 11) % 60000 - 30000); }

struct BlockSpec {
    int second;        // start: 2024-01-02 03:04:<second>
    unsigned tenths;   // duration
};

// An ".EEG" of 3 channels (codes 0, 1 and 76, the last in mV) at 100 Hz,
// one data block per spec.
inline Bytes MakeEeg(const std::vector<BlockSpec>& blocks, std::vector<unsigned> codes = {0, 1, 76}) {
    Bytes e(0x1800);
    e.Text(0, kDevice);
    e.Text(0x40, "20240102030400");
    e.Text(0x81, kDevice);
    e.U8(0x91, 1);
    e.U32(0x92, 0x400);
    e.U8(0x400 + 17, unsigned(blocks.size()));
    size_t at = 0x17FE;
    for (size_t k = 0; k < blocks.size(); ++k) {
        e.U32(0x400 + 18 + 20 * k, unsigned(at));
        e.U8(at, 1);
        const BYTE when[6] = {Bcd(24), Bcd(1), Bcd(2), Bcd(3), Bcd(4), Bcd(blocks[k].second)};
        e.Put(at + 0x14, when, 6);
        e.U16(at + 0x1A, 100 | 0xC000);
        e.U32(at + 0x1C, blocks[k].tenths);
        e.U8(at + 0x26, unsigned(codes.size()));
        for (size_t c = 0; c < codes.size(); ++c) e.U8(at + 0x27 + 10 * c, codes[c]);
        size_t data = at + 0x27 + 10 * codes.size();
        const unsigned samples = blocks[k].tenths * 10;
        for (unsigned s = 0; s < samples; ++s)
            for (size_t c = 0; c <= codes.size(); ++c, data += 2)
                e.U16(data, c < codes.size() ? unsigned(uint16_t(SampleOf(int(k), unsigned(c), s)) ^ 0x8000) : 0);
        at = data;
    }
    return e;
}


}  // namespace nktest
