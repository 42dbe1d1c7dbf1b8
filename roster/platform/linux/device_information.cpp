#include <sys/utsname.h>

#include <array>
#include <optional>

#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/linux/dictionary_file.h"

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

/// The value of a variable in the text of a machine-info file, which holds assignments as a shell understands
/// them: values may be quoted either way, "#" starts a comment, the last assignment counts. Blanks around "="
/// and within a bare value are forgiven. Empty when the variable is not assigned, or assigned nothing.
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

String processorArchitecture() {
  utsname system{};
  if (uname(&system) != 0) return {};
  const std::string_view machine = system.machine;
  // The kernel appends the byte order ("armv6l", "armv7b"), which is not part of the architecture's name.
  for (const std::string_view family : std::array<std::string_view, 2>{"armv6", "armv7"}) {
    if (machine.starts_with(family)) return family;
  }
  return machine;
}

String chassis() {
  const Result<Bytes> file = readFile(deviceRoot() + "/etc/machine-info");
  if (!file) return {};
  const std::string value = machineInfoValue(file->text(), "CHASSIS");
  return value.empty() ? String() : String(value);
}

}  // namespace

String deviceInformation(std::string_view key) {
  String described = currentDictionary(deviceRoot() + "/etc/roster/device.plist").find(key).string();
  if (described) return described;
  if (key == "CPUArchitecture") return processorArchitecture();
  if (key == "DeviceClass") return chassis();
  return {};
}

}  // namespace roster
