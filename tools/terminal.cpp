#include "tools/terminal.h"

#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <iostream>

#include "roster/base/single_line.h"
#include "roster/base/unicode.h"

namespace roster::tool {

namespace {

/// A variable of the environment; empty when it is not set.
std::string_view environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): the tool has one thread
  return value == nullptr ? std::string_view() : value;
}

bool isColourful() {
  static const bool answer =
      isatty(STDOUT_FILENO) == 1 && environment("NO_COLOR").empty() && environment("TERM") != "dumb";
  return answer;
}

/// How many columns of a terminal a character takes.
std::size_t columnsOf(char32_t codePoint) {
  // All text here is UTF-8, whatever the user's locale. Most commands never ask, and reading a locale's
  // tables takes a while. Without them columns are less straight, which is no reason to stop.
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the tool has one thread
  static const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
  const int columns = locale == nullptr ? 1 : wcwidth(static_cast<wchar_t>(codePoint));
  return columns > 0 ? static_cast<std::size_t>(columns) : 0;
}

}  // namespace

std::string singleLine(std::string_view text) {
  std::string line;
  appendSingleLine(line, text);
  return line;
}

std::size_t displayWidth(std::string_view line) {
  std::size_t width = 0;
  while (!line.empty()) {
    const std::size_t plain = plainRun(line);
    width += plain;
    line.remove_prefix(plain);
    if (line.empty()) break;
    const std::optional<char32_t> codePoint = takeCodePoint(line);
    if (!codePoint) {
      line.remove_prefix(1);
      ++width;
      continue;
    }
    width += columnsOf(*codePoint);
  }
  return width;
}

std::string padded(std::string line, std::size_t width) {
  const std::size_t taken = displayWidth(line);
  if (taken < width) line.append(width - taken, ' ');
  return line;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    if (!takeCodePoint(text)) return false;
  }
  return true;
}

std::string emphasised(const std::string& text) {
  return isColourful() && !text.empty() ? "\033[1m" + text + "\033[0m" : text;
}

void warn(std::string_view what) { std::cerr << "rosterctl: warning: " << singleLine(what) << '\n'; }

void warn(std::string_view what, std::string_view why) {
  std::cerr << "rosterctl: warning: " << singleLine(what) << ": " << singleLine(why) << '\n';
}

void note(std::string_view what) { std::cerr << "rosterctl: note: " << singleLine(what) << '\n'; }

}  // namespace roster::tool
