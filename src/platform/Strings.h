// Text helpers: the API speaks UTF-8; archives and files hold Windows-1252
// (or UTF-16 where a character has no Windows-1252 code).
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <cstdarg>
#include <string>
#include <vector>

#include "platform/Types.h"

// UTF-8 -> Windows-1252.  False when some character has no Windows-1252 code
// (or the text is not valid UTF-8); out is then unspecified.
bool Utf8ToCp1252(const std::string& in, std::string& out);
// Windows-1252 -> UTF-8.  The five unassigned bytes map to U+0081 etc.
std::string Cp1252ToUtf8(const std::string& in);
// UTF-8 <-> UTF-16.  Invalid UTF-8 sequences become U+FFFD.
std::u16string Utf8ToUtf16(const std::string& in);
std::string Utf16ToUtf8(const std::u16string& in);

// Number of characters (code points) of a UTF-8 text.
size_t Utf8Length(const std::string& s);
// The first n characters of a UTF-8 text.
std::string Utf8Left(const std::string& s, size_t n);
// Byte length of the UTF-8 character that starts at s[i] (1 for stray bytes).
size_t Utf8CharBytes(const std::string& s, size_t i);

// Comparison without regard to case: ASCII and the Latin-1 letters fold.
int CompareNoCase(const std::string& a, const std::string& b);
inline bool EqualsNoCase(const std::string& a, const std::string& b) { return CompareNoCase(a, b) == 0; }
// Upper case of ASCII and Latin-1 letters.
std::string ToUpper(const std::string& s);
std::string ToLower(const std::string& s);
// ASCII-only upper case, as the formula lexer needs it.
std::string ToUpperAscii(const std::string& s);

// printf-style formatting into a std::string.
std::string StrFormat(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string StrFormatV(const char* fmt, va_list args);

// Words separated by any of the delimiters (empty words are skipped).
int GetNumWords(const std::string& text, const char* delimiters = ",");
std::string GetWordAt(const std::string& text, int index, const char* delimiters = ",");
std::vector<std::string> SplitWords(const std::string& text, const char* delimiters = ",");

// ASCII transliteration: accented Latin letters lose their accents
// ("Hélène" -> "Helene"); characters without an ASCII form become '?'.
std::string TransliterateAscii(const std::string& s);

// True when the bytes are well-formed UTF-8.
bool IsUtf8(const std::string& s);
#pragma GCC visibility pop
