#include "roster/platform/linux/machine_info.h"

#include <optional>

namespace roster {

namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Reads the value of one assignment piece by piece, as a shell puts a word together.
class ValueReader {
 public:
  explicit ValueReader(std::string_view text) : rest_(text) {}

  /// Nothing when a quotation is not closed.
  std::optional<std::string> read() {
    while (!rest_.empty()) {
      const char next = take();
      if (next == '#' && isAfterBlank_) break;
      isAfterBlank_ = blanks.find(next) != std::string_view::npos;
      if (next == '\'' || next == '"') {
        if (!readQuoted(next)) return std::nullopt;
      } else if (next == '\\' && !rest_.empty()) {
        keep(take());
      } else {
        value_ += next;
        if (!isAfterBlank_) keptSize_ = value_.size();
      }
    }
    value_.resize(keptSize_);
    return value_;
  }

 private:
  char take() {
    const char next = rest_.front();
    rest_.remove_prefix(1);
    return next;
  }

  /// Appends a character that is not to be trimmed from the end, whatever it is.
  void keep(char character) {
    value_ += character;
    keptSize_ = value_.size();
  }

  bool readQuoted(char quote) {
    while (!rest_.empty()) {
      const char next = take();
      if (next == quote) return true;
      const bool isEscape = quote == '"' && next == '\\' && !rest_.empty() &&
                            std::string_view("\"\\$`").find(rest_.front()) != std::string_view::npos;
      keep(isEscape ? take() : next);
    }
    return false;
  }

  std::string_view rest_;
  std::string value_;
  std::size_t keptSize_ = 0;
  bool isAfterBlank_ = false;
};

}  // namespace

std::string machineInfoValue(std::string_view text, std::string_view variable) {
  std::string found;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || trimmed(line.substr(0, equals)) != variable) continue;
    if (auto value = ValueReader(trimmed(line.substr(equals + 1))).read()) found = *std::move(value);
  }
  return found;
}

}  // namespace roster
