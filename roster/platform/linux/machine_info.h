#pragma once

#include <string>
#include <string_view>

namespace roster {

/// The value of a variable in the text of a machine-info file, which holds assignments as a shell understands
/// them: values may be quoted either way, "#" starts a comment, the last assignment counts. Blanks around "="
/// and within a bare value are forgiven. Empty when the variable is not assigned, or assigned nothing.
std::string machineInfoValue(std::string_view text, std::string_view variable);

}  // namespace roster
