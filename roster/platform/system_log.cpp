#include "roster/platform/system_log.h"

#include <algorithm>
#include <charconv>

#include "roster/base/limits.h"
#include "roster/base/process_wide.h"
#include "roster/base/single_line.h"
#include "roster/value/value_description.h"

namespace roster {

namespace {

/// One conversion of a format: "%-8.3ld" or "%2$@".
struct Conversion {
  /// How much of the format it takes; 0 when there is none at the front.
  std::size_t length = 0;
  /// How many further arguments give widths and precisions, one for each asterisk.
  std::size_t stars = 0;
  /// Which argument it names, from 1; 0 for the next one.
  std::size_t position = 0;
};

std::size_t skip(std::string_view text, std::size_t offset, std::string_view characters) {
  return std::min(text.find_first_not_of(characters, offset), text.size());
}

/// Reads a conversion of printf's grammar, or of its extension "%@", at the front of a format. How wide or
/// precise it is does not matter: arguments know how they are written.
Conversion conversionAt(std::string_view format) {
  constexpr std::string_view digits = "0123456789";
  constexpr std::string_view conversions = "@diouxXeEfFgGaAcCsSp";
  Conversion found;
  std::size_t offset = 1;
  if (const std::size_t end = skip(format, offset, digits);
      end > offset && end < format.size() && format[end] == '$') {
    std::from_chars(&format[offset], &format[end], found.position);
    offset = end + 1;
  }
  const std::size_t start = offset;
  offset = skip(format, offset, "0123456789-+ #'.*");
  found.stars =
      static_cast<std::size_t>(std::count(format.begin() + static_cast<std::ptrdiff_t>(start),
                                          format.begin() + static_cast<std::ptrdiff_t>(offset), '*'));
  offset = skip(format, offset, "hlLqjzt");
  if (offset < format.size() && conversions.find(format[offset]) != std::string_view::npos) {
    found.length = offset + 1;
  }
  return found;
}

/// How many scopes of this thread silence its log lines.
unsigned& silencingScopes() {
  thread_local unsigned scopes = 0;
  return scopes;
}

}  // namespace

SystemLogSilence::SystemLogSilence() { ++silencingScopes(); }

SystemLogSilence::~SystemLogSilence() { --silencingScopes(); }

std::string LogArgument::text() const {
  if (const auto* text = std::get_if<std::string_view>(&content_)) {
    return clipped(*text, limits::descriptionLength);
  }
  if (const auto* value = std::get_if<Value>(&content_)) return describe(*value);
  if (const auto* number = std::get_if<long long>(&content_)) return std::to_string(*number);
  if (const auto* number = std::get_if<double>(&content_)) return describe(Value(*number));
  return std::to_string(std::get<unsigned long long>(content_));
}

std::string formatLogLine(std::string_view format, std::span<const LogArgument> arguments) {
  std::string line;
  std::size_t next = 0;
  while (!format.empty()) {
    if (format.front() != '%') {
      const std::string_view plain = format.substr(0, format.find('%'));
      appendSingleLine(line, plain);
      format.remove_prefix(plain.size());
    } else if (const Conversion conversion = conversionAt(format); conversion.length > 0) {
      format.remove_prefix(conversion.length);
      const bool isNamed = conversion.position > 0;
      const std::size_t index = isNamed ? conversion.position - 1 : next + conversion.stars;
      appendSingleLine(line, index < arguments.size() ? arguments[index].text() : "(null)");
      if (!isNamed) next = index + 1;
    } else {
      line += '%';
      format.remove_prefix(format.starts_with("%%") ? 2 : 1);
    }
  }
  return line;
}

void writeSystemLog(std::string_view format, std::span<const LogArgument> arguments) {
  if (silencingScopes() > 0) return;
  const std::string line = formatLogLine(format, arguments);
  const SystemLogSink sink = immortalReplaceable<SystemLogSink>().current();
  if (sink) {
    sink(line);
  } else {
    writeToSyslog(line);
  }
}

SystemLogSink setSystemLogSink(SystemLogSink sink) {
  return immortalReplaceable<SystemLogSink>().replace(std::move(sink));
}

}  // namespace roster
