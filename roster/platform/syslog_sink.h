#pragma once

#include <string_view>

namespace roster {

/// Hands one line to syslog(3) as a notice of a user process, whole, under the name the program goes by. The
/// program's own openlog() settings stay as they are.
void writeToSyslog(std::string_view line);

}  // namespace roster
