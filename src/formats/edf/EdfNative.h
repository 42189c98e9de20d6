// What the EDF export and import share about native recordings: error texts
// of the native layer and the names of unit and trace type codes as the EDF
// header writes them.
#pragma once

#include <string>

namespace edf {

// "NAME : <system text of code>".
std::string NativeErrorText(const char* name, long code);

// ASCII name of a unit code for the EDF header ("uV", "degC", "%" ...);
// "" for an unknown code.
std::string EdfUnitText(unsigned unitCode);
// The unit code of an EDF unit text, and the factor that turns a value in
// that text's unit into the code's unit ("nV" gives microvolts and 0.001).
// Unknown texts give code 0 and factor 1.
unsigned UnitCodeOfText(const std::string& text, double& factor);
// The trace type code whose name the text is (any case); 0 when none.
unsigned TypeCodeOfText(const std::string& text);

}  // namespace edf
