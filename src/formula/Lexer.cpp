#include "formula/Lexer.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "platform/Strings.h"

namespace {
// Letters as the C library's isalpha sees them in the "C" locale; written
// out so that the host's locale cannot change what a name is.
bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsNameChar(char c) { return IsLetter(c) || IsDigit(c) || c == '~' || c == '_' || c == '$'; }

// The decimal text as a double, as atof reads it: an exponent too large
// gives infinity, one too small gives 0.
double ParseDecimal(const std::string& text) {
    double value = 0.0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    (void)end;
    if (ec == std::errc::result_out_of_range) {
        const size_t e = text.find_first_of("eE");
        const bool negativeExponent = e != std::string::npos && e + 1 < text.size() && text[e + 1] == '-';
        return negativeExponent ? 0.0 : std::numeric_limits<double>::infinity();
    }
    return ec == std::errc() ? value : 0.0;
}
}  // namespace

CCToken CCLexer::Next() {
    while (m_pos < m_text.size() && m_text[m_pos] == ' ') ++m_pos;
    CCToken token;
    if (m_pos >= m_text.size()) {
        token.code = tokEnd;
        return token;
    }
    const char c = m_text[m_pos];
    if (IsLetter(c) || c == '$') return LexName();
    if (IsDigit(c)) return LexConstant();

    switch (c) {
    case '+': token.code = tokPlus; break;
    case '-': token.code = tokMinus; break;
    case '*': token.code = tokMul; break;
    case '/': token.code = tokDiv; break;
    case '(': token.code = tokOpen; break;
    case ')': token.code = tokClose; break;
    case ',': token.code = tokComma; break;
    default: {
        // Report the whole character, which may take several UTF-8 bytes.
        const std::string rest(m_text.substr(m_pos, 4));
        const size_t n = std::min(Utf8CharBytes(rest, 0), rest.size());
        token.code = tokUnknownChar;
        token.text = rest.substr(0, n);
        m_pos += n;
        return token;
    }
    }
    token.text = std::string(1, c);
    ++m_pos;
    return token;
}

// name ::= (letter | '$') (letter | digit | '~' | '_' | '$')*
CCToken CCLexer::LexName() {
    const size_t start = m_pos;
    ++m_pos;
    while (m_pos < m_text.size() && IsNameChar(m_text[m_pos])) ++m_pos;
    CCToken token;
    token.code = tokName;
    token.text = ToUpperAscii(std::string(m_text.substr(start, m_pos - start)));
    return token;
}

// constant ::= digit+ ('.' digit*)? (('E' | 'e') ('+' | '-')? digit*)?
CCToken CCLexer::LexConstant() {
    const size_t start = m_pos;
    auto digits = [this] {
        while (m_pos < m_text.size() && IsDigit(m_text[m_pos])) ++m_pos;
    };
    digits();
    if (m_pos < m_text.size() && m_text[m_pos] == '.') {
        ++m_pos;
        digits();
    }
    if (m_pos < m_text.size() && (m_text[m_pos] == 'E' || m_text[m_pos] == 'e')) {
        ++m_pos;
        if (m_pos < m_text.size() && (m_text[m_pos] == '+' || m_text[m_pos] == '-')) ++m_pos;
        digits();
    }
    CCToken token;
    token.code = tokConstant;
    token.text = std::string(m_text.substr(start, m_pos - start));
    token.value = static_cast<float>(ParseDecimal(token.text));
    return token;
}
