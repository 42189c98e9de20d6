// Unit and trace type names for the EDF header, native error texts.
#include "formats/edf/EdfNative.h"

#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Strings.h"

namespace edf {

namespace {
// Unit and type codes are small: their names are looked up in this range.
constexpr unsigned kCodes = 64;

std::string Trim(const std::string& s) {
    size_t a = s.find_first_not_of(' '), b = s.find_last_not_of(' ');
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}
}  // namespace

std::string NativeErrorText(const char* name, long code) {
    std::string detail;
    if (!GetSystemErrorText(code, detail)) detail = StrFormat("erreur %ld", code);
    return std::string(name ? name : "") + " : " + detail;
}

std::string EdfUnitText(unsigned unitCode) {
    std::string name = VhlGetUnitName(unitCode);
    if (name == "\xC2\xB5V") return "uV";
    if (name == "\xC2\xB0" "C") return "degC";
    return TransliterateAscii(name);
}

unsigned UnitCodeOfText(const std::string& text, double& factor) {
    factor = 1;
    const std::string t = Trim(text);
    if (t == "nV") {
        factor = 0.001;
        return 1;
    }
    if (t == "\xC2\xB5V") return 1;
    for (unsigned c = 1; c < kCodes; ++c) {
        std::string name = EdfUnitText(c);
        if (!name.empty() && name == t) return c;
    }
    for (unsigned c = 1; c < kCodes; ++c) {
        std::string name = EdfUnitText(c);
        if (!name.empty() && EqualsNoCase(name, t)) return c;
    }
    return 0;
}

unsigned TypeCodeOfText(const std::string& text) {
    const std::string t = Trim(text);
    if (t.empty()) return 0;
    for (unsigned c = 1; c < kCodes; ++c)
        if (*VhlGetTraceTypeName(c) && EqualsNoCase(VhlGetTraceTypeName(c), t)) return c;
    return 0;
}

}  // namespace edf
