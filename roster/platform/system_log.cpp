#include "roster/platform/system_log.h"

#include "roster/base/limits.h"
#include "roster/base/process_wide.h"
#include "roster/base/single_line.h"
#include "roster/value/value_description.h"

namespace roster {

namespace {

/// How much of the front of a format asks for an argument; 0 when it asks for none.
std::size_t placeholderLength(std::string_view format) {
  if (format.starts_with("%ld")) return 3;
  const bool isShort = format.size() >= 2 && format[0] == '%' &&
                       std::string_view("@sdu").find(format[1]) != std::string_view::npos;
  return isShort ? 2 : 0;
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
  return std::to_string(std::get<unsigned long long>(content_));
}

std::string formatLogLine(std::string_view format, std::span<const LogArgument> arguments) {
  std::string line;
  while (!format.empty()) {
    if (format.front() != '%') {
      const std::string_view plain = format.substr(0, format.find('%'));
      appendSingleLine(line, plain);
      format.remove_prefix(plain.size());
    } else if (const std::size_t length = placeholderLength(format); length > 0) {
      format.remove_prefix(length);
      appendSingleLine(line, arguments.empty() ? "(null)" : arguments.front().text());
      if (!arguments.empty()) arguments = arguments.subspan(1);
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
