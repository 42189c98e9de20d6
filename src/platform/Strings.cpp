#include "platform/Strings.h"

#include <cstdio>
#include <cstring>

namespace {
// Windows-1252 bytes 0x80-0x9F; the five unassigned bytes map to the C1
// control of the same value, as the platform's conversion does.
constexpr char32_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

int UnicodeToCp1252(char32_t c) {
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<int>(c);
    for (int i = 0; i < 32; ++i)
        if (kCp1252High[i] == c) return 0x80 + i;
    return -1;
}

void AppendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// Decodes one UTF-8 character at s[i]; advances i.  Returns false (and one
// byte consumed) for an invalid sequence.
bool DecodeUtf8(const std::string& s, size_t& i, char32_t& c) {
    auto b0 = static_cast<unsigned char>(s[i]);
    if (b0 < 0x80) {
        c = b0;
        ++i;
        return true;
    }
    int len = (b0 & 0xE0) == 0xC0 ? 2 : (b0 & 0xF0) == 0xE0 ? 3 : (b0 & 0xF8) == 0xF0 ? 4 : 0;
    if (len == 0 || i + static_cast<size_t>(len) > s.size()) {
        ++i;
        return false;
    }
    char32_t v = b0 & (0x7F >> len);
    for (int k = 1; k < len; ++k) {
        auto b = static_cast<unsigned char>(s[i + static_cast<size_t>(k)]);
        if ((b & 0xC0) != 0x80) {
            ++i;
            return false;
        }
        v = (v << 6) | (b & 0x3F);
    }
    static constexpr char32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (v < kMin[len] || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) {
        ++i;
        return false;
    }
    c = v;
    i += static_cast<size_t>(len);
    return true;
}

// Case folding of one code point (ASCII and Latin-1 letters).
char32_t FoldUpper(char32_t c) {
    if (c >= 'a' && c <= 'z') return c - 32;
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
    if (c == 0xFF) return 0x178;
    return c;
}
char32_t FoldLower(char32_t c) {
    if (c >= 'A' && c <= 'Z') return c + 32;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
    if (c == 0x178) return 0xFF;
    return c;
}

template <class F>
std::string MapChars(const std::string& s, F f) {
    std::string out;
    out.reserve(s.size());
    size_t i = 0;
    while (i < s.size()) {
        size_t start = i;
        char32_t c;
        if (DecodeUtf8(s, i, c)) AppendUtf8(out, f(c));
        else out.append(s, start, i - start);
    }
    return out;
}
}  // namespace

bool Utf8ToCp1252(const std::string& in, std::string& out) {
    out.clear();
    out.reserve(in.size());
    size_t i = 0;
    while (i < in.size()) {
        auto b = static_cast<unsigned char>(in[i]);
        if (b < 0x80) {
            out += static_cast<char>(b);
            ++i;
            continue;
        }
        char32_t c;
        if (!DecodeUtf8(in, i, c)) return false;
        int code = UnicodeToCp1252(c);
        if (code < 0) return false;
        out += static_cast<char>(code);
    }
    return true;
}

std::string Cp1252ToUtf8(const std::string& in) {
    std::string out;
    out.reserve(in.size() + in.size() / 8);
    for (char ch : in) {
        auto b = static_cast<unsigned char>(ch);
        if (b < 0x80) out += ch;
        else if (b < 0xA0) AppendUtf8(out, kCp1252High[b - 0x80]);
        else AppendUtf8(out, b);
    }
    return out;
}

std::u16string Utf8ToUtf16(const std::string& in) {
    std::u16string out;
    out.reserve(in.size());
    size_t i = 0;
    while (i < in.size()) {
        char32_t c;
        if (!DecodeUtf8(in, i, c)) c = 0xFFFD;
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<char16_t>(0xD800 | (c >> 10));
            out += static_cast<char16_t>(0xDC00 | (c & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

std::string Utf16ToUtf8(const std::u16string& in) {
    std::string out;
    out.reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        char32_t c = in[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < in.size() && in[i + 1] >= 0xDC00 && in[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (in[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        AppendUtf8(out, c);
    }
    return out;
}

size_t Utf8CharBytes(const std::string& s, size_t i) {
    size_t j = i;
    char32_t c;
    DecodeUtf8(s, j, c);
    return j - i;
}

size_t Utf8Length(const std::string& s) {
    size_t n = 0;
    for (size_t i = 0; i < s.size(); i += Utf8CharBytes(s, i)) ++n;
    return n;
}

std::string Utf8Left(const std::string& s, size_t n) {
    size_t i = 0;
    while (n > 0 && i < s.size()) {
        i += Utf8CharBytes(s, i);
        --n;
    }
    return s.substr(0, i);
}

int CompareNoCase(const std::string& a, const std::string& b) {
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        char32_t ca, cb;
        size_t i0 = i, j0 = j;
        if (!DecodeUtf8(a, i, ca)) ca = 0xDC00 + static_cast<unsigned char>(a[i0]);
        if (!DecodeUtf8(b, j, cb)) cb = 0xDC00 + static_cast<unsigned char>(b[j0]);
        ca = FoldUpper(ca);
        cb = FoldUpper(cb);
        if (ca != cb) return ca < cb ? -1 : 1;
    }
    if (i < a.size()) return 1;
    if (j < b.size()) return -1;
    return 0;
}

std::string ToUpper(const std::string& s) { return MapChars(s, FoldUpper); }
std::string ToLower(const std::string& s) { return MapChars(s, FoldLower); }

std::string ToUpperAscii(const std::string& s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    return out;
}

std::string StrFormatV(const char* fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    char small[256];
    int n = std::vsnprintf(small, sizeof small, fmt, copy);
    va_end(copy);
    if (n < 0) return {};
    if (static_cast<size_t>(n) < sizeof small) return std::string(small, static_cast<size_t>(n));
    std::string out(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(out.data(), out.size(), fmt, args);
    out.resize(static_cast<size_t>(n));
    return out;
}

std::string StrFormat(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::string out = StrFormatV(fmt, args);
    va_end(args);
    return out;
}

std::vector<std::string> SplitWords(const std::string& text, const char* delimiters) {
    std::vector<std::string> words;
    size_t i = 0;
    while (i < text.size()) {
        size_t start = text.find_first_not_of(delimiters, i);
        if (start == std::string::npos) break;
        size_t end = text.find_first_of(delimiters, start);
        if (end == std::string::npos) end = text.size();
        words.push_back(text.substr(start, end - start));
        i = end;
    }
    return words;
}

int GetNumWords(const std::string& text, const char* delimiters) {
    return static_cast<int>(SplitWords(text, delimiters).size());
}

std::string GetWordAt(const std::string& text, int index, const char* delimiters) {
    auto words = SplitWords(text, delimiters);
    if (index < 0 || static_cast<size_t>(index) >= words.size()) return {};
    return words[static_cast<size_t>(index)];
}

std::string TransliterateAscii(const std::string& s) {
    // Latin-1 supplement 0xC0-0xFF without accents.
    static const char* const kLatin1[64] = {
        "A", "A", "A", "A", "A", "A", "AE", "C", "E", "E", "E", "E", "I", "I", "I", "I",
        "D", "N", "O", "O", "O", "O", "O", "x", "O", "U", "U", "U", "U", "Y", "Th", "ss",
        "a", "a", "a", "a", "a", "a", "ae", "c", "e", "e", "e", "e", "i", "i", "i", "i",
        "d", "n", "o", "o", "o", "o", "o", "/", "o", "u", "u", "u", "u", "y", "th", "y"};
    std::string out;
    size_t i = 0;
    while (i < s.size()) {
        char32_t c;
        if (!DecodeUtf8(s, i, c)) {
            out += '?';
            continue;
        }
        if (c >= 0x20 && c < 0x7F) out += static_cast<char>(c);
        else if (c >= 0xC0 && c <= 0xFF) out += kLatin1[c - 0xC0];
        else if (c == 0x152) out += "OE";
        else if (c == 0x153) out += "oe";
        else if (c == 0x160) out += "S";
        else if (c == 0x161) out += "s";
        else if (c == 0x17D) out += "Z";
        else if (c == 0x17E) out += "z";
        else if (c == 0x178) out += "Y";
        else if (c == 0x2018 || c == 0x2019) out += '\'';
        else if (c == 0x201C || c == 0x201D) out += '"';
        else if (c == 0x2013 || c == 0x2014) out += '-';
        else if (c == 0xA0 || c == '\t') out += ' ';
        else out += '?';
    }
    return out;
}

bool IsUtf8(const std::string& s) {
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        size_t n = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        i += n;
    }
    return true;
}

