#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "roster/base/export.h"

namespace roster {

/// Appends a text so that it cannot break the line it stands on, nor pass for a second one: control
/// characters and line separators are escaped as in "\n" and "\u0085", bytes that are not UTF-8 as "\xFF".
ROSTER_EXPORT void appendSingleLine(std::string& line, std::string_view text);

/// How many characters from the front of a text are printable and of ASCII: each is one byte that takes one
/// column and stands for itself on a line.
inline std::size_t plainRun(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] >= ' ' && text[length] <= '~') ++length;
  return length;
}

/// At most so many bytes from the front of a text, cut between two characters.
std::string_view frontOf(std::string_view text, std::size_t limit);

/// The text, or as much of its front as the limit allows and an ellipsis.
std::string clipped(std::string_view text, std::size_t limit);

/// The clipped text on one line, between quotation marks.
std::string quoted(std::string_view text, std::size_t limit);

}  // namespace roster
