// Fixed-width names used throughout the library and in its archive forms.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <cstddef>
#include <cstdint>
#include <string>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using UINT = unsigned int;
using BOOL = int;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// Text in the API is UTF-8; conversion to the stored code page happens at the
// archive boundary only.
using CString = std::string;

// Colour reference 0x00BBGGRR.
inline constexpr DWORD RGB(BYTE r, BYTE g, BYTE b) { return DWORD(r) | (DWORD(g) << 8) | (DWORD(b) << 16); }

struct CPoint {
    LONG x = 0;
    LONG y = 0;
    CPoint() = default;
    CPoint(LONG px, LONG py) : x(px), y(py) {}
    bool operator==(const CPoint& o) const { return x == o.x && y == o.y; }
    bool operator!=(const CPoint& o) const { return !(*this == o); }
};
#pragma GCC visibility pop
