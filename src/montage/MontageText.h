// Helpers shared by the montage classes: rewriting the names that a formula
// text refers to, and copies that keep a montage's class.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>

class CRecordingMontage;
class CReformatedMontage;

namespace montage_detail {

// Replaces every name token of text that equals oldName (upper-cased as the
// formula lexer does) by newName.  Name tokens are those of the formula
// language: a letter or '$', then letters, digits, '~', '_' and '$'; the
// digits and exponent of a constant are never taken for a name.  Returns
// whether anything changed.
bool RenameNameToken(std::string& text, const std::string& oldName, const std::string& newName);

// True when the text has a name token equal to name (upper-cased).
bool HasNameToken(const std::string& text, const std::string& name);

// A copy of the same class (the signal viewer's variants included).
CRecordingMontage* CloneRecording(const CRecordingMontage& source);
CReformatedMontage* CloneReformated(const CReformatedMontage& source);

}  // namespace montage_detail
#pragma GCC visibility pop
