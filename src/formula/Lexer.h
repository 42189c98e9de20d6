// The formula lexer: cuts a formula text into tokens, one per call.
//
// Only the space character is a blank.  A name starts with a letter or '$'
// and runs over letters, digits, '~', '_' and '$'; it is upper-cased.  A
// constant is digits, optionally '.' and digits, optionally 'E' or 'e' with
// an optional sign and digits; it carries no sign and cannot begin with '.'.
// Any other character is a one-character token or unknown.
//
// The lexer knows nothing of the names: the parser resolves them.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>
#include <string_view>

// Token codes as the compiler numbers them.
enum CCTokenCode : int {
    tokPlus = 0,
    tokMinus = 1,
    tokMul = 2,
    tokDiv = 3,
    tokOpen = 4,
    tokClose = 5,
    tokComma = 6,
    tokConstant = 7,
    tokVariable = 8,
    tokFunction = 10,
    tokEnd = 11,
    // Lexer-only kinds, resolved or reported by the parser.
    tokName = 100,
    tokUnknownChar = 101,
};

struct CCToken {
    int code = tokEnd;
    std::string text;   // the name (upper-cased), the constant's text or the character
    float value = 0.0f; // the constant's value
};

class CCLexer {
public:
    explicit CCLexer(std::string_view text) : m_text(text) {}

    // The next token; tokEnd at (and after) the end of the text.
    CCToken Next();
    // Offset of the next character to read.
    size_t GetPosition() const { return m_pos; }

private:
    CCToken LexName();
    CCToken LexConstant();

    std::string_view m_text;
    size_t m_pos = 0;
};
#pragma GCC visibility pop
