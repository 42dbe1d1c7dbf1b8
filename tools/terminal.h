#pragma once

#include <string>
#include <string_view>

namespace roster::tool {

/// The text on one line, with whatever could move a terminal's cursor escaped.
std::string singleLine(std::string_view text);

/// How many columns a single line takes on a terminal: wide characters take two, combining ones none.
std::size_t displayWidth(std::string_view line);

/// The line with spaces behind it up to a width.
std::string padded(std::string line, std::size_t width);

/// Whether the text is UTF-8 throughout.
bool isUtf8(std::string_view text);

/// The text in bold when the standard output is a terminal that shows colour and NO_COLOR does not forbid it.
std::string emphasised(const std::string& text);

/// Says on the standard error what the user should know although the command goes on.
void warn(std::string_view what);
void warn(std::string_view what, std::string_view why);

/// Says on the standard error what the user may want to know.
void note(std::string_view what);

}  // namespace roster::tool
