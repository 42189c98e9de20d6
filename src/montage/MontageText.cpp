#include "montage/MontageText.h"

#include <cctype>

#include "montage/mtgs.h"
#include "platform/Strings.h"

namespace montage_detail {
namespace {

bool IsNameStart(char ch) {
    const unsigned char u = static_cast<unsigned char>(ch);
    return ch == '$' || (u < 0x80 && std::isalpha(u));
}

bool IsNameChar(char ch) {
    const unsigned char u = static_cast<unsigned char>(ch);
    return ch == '$' || ch == '~' || ch == '_' || (u < 0x80 && std::isalnum(u));
}

bool IsDigit(char ch) { return ch >= '0' && ch <= '9'; }

// Length of the constant that starts at text[i] (a digit).
size_t ConstantLength(const std::string& text, size_t i) {
    size_t j = i;
    while (j < text.size() && IsDigit(text[j])) ++j;
    if (j < text.size() && text[j] == '.') {
        ++j;
        while (j < text.size() && IsDigit(text[j])) ++j;
    }
    if (j < text.size() && (text[j] == 'E' || text[j] == 'e')) {
        size_t k = j + 1;
        if (k < text.size() && (text[k] == '+' || text[k] == '-')) ++k;
        if (k < text.size() && IsDigit(text[k])) {
            while (k < text.size() && IsDigit(text[k])) ++k;
            j = k;
        }
    }
    return j - i;
}

// Calls fn(start, length) for every name token.
template <class Fn>
void ForEachName(const std::string& text, Fn fn) {
    size_t i = 0;
    while (i < text.size()) {
        if (IsDigit(text[i])) {
            i += ConstantLength(text, i);
        } else if (IsNameStart(text[i])) {
            size_t j = i + 1;
            while (j < text.size() && IsNameChar(text[j])) ++j;
            fn(i, j - i);
            i = j;
        } else {
            ++i;
        }
    }
}

}  // namespace

bool RenameNameToken(std::string& text, const std::string& oldName, const std::string& newName) {
    const std::string key = ToUpperAscii(oldName);
    if (key.empty()) return false;
    std::string out;
    size_t copied = 0;
    bool changed = false;
    ForEachName(text, [&](size_t start, size_t len) {
        if (ToUpperAscii(text.substr(start, len)) != key) return;
        out.append(text, copied, start - copied);
        out += newName;
        copied = start + len;
        changed = true;
    });
    if (!changed) return false;
    out.append(text, copied, std::string::npos);
    text = std::move(out);
    return true;
}

bool HasNameToken(const std::string& text, const std::string& name) {
    const std::string key = ToUpperAscii(name);
    bool found = false;
    ForEachName(text, [&](size_t start, size_t len) {
        if (!found && ToUpperAscii(text.substr(start, len)) == key) found = true;
    });
    return found;
}

CRecordingMontage* CloneRecording(const CRecordingMontage& source) {
    if (source.IsKindOf(RUNTIME_CLASS(CSigViewRecMtg)))
        return new CSigViewRecMtg(static_cast<const CSigViewRecMtg&>(source));
    return new CRecordingMontage(source);
}

CReformatedMontage* CloneReformated(const CReformatedMontage& source) {
    if (source.IsKindOf(RUNTIME_CLASS(CSigViewRefMtg)))
        return new CSigViewRefMtg(static_cast<const CSigViewRefMtg&>(source));
    return new CReformatedMontage(source);
}

}  // namespace montage_detail
