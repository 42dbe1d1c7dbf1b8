#pragma once

#include <array>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// One argument of a log message. It refers to what it was made from and lives as long as the call it is made
/// for.
class ROSTER_EXPORT LogArgument {
 public:
  LogArgument(std::string_view text) : content_(text) {}
  LogArgument(const char* text) : content_(std::string_view(text)) {}
  LogArgument(const std::string& text) : content_(std::string_view(text)) {}
  LogArgument(const String& text) : content_(text.value()) {}
  LogArgument(const Value& value) : content_(value) {}
  LogArgument(const Dictionary& dictionary) : content_(Value(dictionary)) {}
  LogArgument(bool number) : content_(static_cast<long long>(number)) {}
  LogArgument(int number) : content_(static_cast<long long>(number)) {}
  LogArgument(long number) : content_(static_cast<long long>(number)) {}
  LogArgument(long long number) : content_(number) {}
  LogArgument(unsigned number) : content_(static_cast<unsigned long long>(number)) {}
  LogArgument(unsigned long number) : content_(static_cast<unsigned long long>(number)) {}
  LogArgument(unsigned long long number) : content_(number) {}

  /// The argument as a log line shows it: texts and numbers as they are, other objects by their description.
  std::string text() const;

 private:
  std::variant<std::string_view, Value, long long, unsigned long long> content_;
};

/// Fills in a format of the system log's kind. "%@", "%s", "%d", "%u" and "%ld" each take the next argument,
/// whatever its type; "%%" is a percent sign. Surplus arguments are ignored and a missing one reads "(null)".
/// The result is one line: control characters and bytes that are not UTF-8 are escaped.
ROSTER_EXPORT std::string formatLogLine(std::string_view format, std::span<const LogArgument> arguments);

/// The same, with the arguments one by one.
template <class... Arguments>
std::string formatted(std::string_view format, const Arguments&... arguments) {
  const std::array<LogArgument, sizeof...(Arguments)> list{LogArgument(arguments)...};
  return formatLogLine(format, list);
}

/// Writes one formatted line to the system log, unconditionally.
ROSTER_EXPORT void writeSystemLog(std::string_view format, std::span<const LogArgument> arguments);

template <class... Arguments>
void systemLog(std::string_view format, const Arguments&... arguments) {
  const std::array<LogArgument, sizeof...(Arguments)> list{LogArgument(arguments)...};
  writeSystemLog(format, list);
}

/// Receives every line of the system log.
using SystemLogSink = std::function<void(std::string_view line)>;

/// Replaces the receiver of log lines for the whole process, from all threads; an empty one restores
/// syslog(3). Returns the receiver that was in place, empty for syslog(3).
ROSTER_EXPORT SystemLogSink setSystemLogSink(SystemLogSink sink);

/// Keeps the log lines of its own thread from being written, from its making to its end. Scopes may be
/// nested.
class ROSTER_EXPORT SystemLogSilence {
 public:
  SystemLogSilence();
  SystemLogSilence(const SystemLogSilence&) = delete;
  SystemLogSilence& operator=(const SystemLogSilence&) = delete;
  ~SystemLogSilence();
};

}  // namespace roster
