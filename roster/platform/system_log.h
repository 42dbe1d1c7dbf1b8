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

class LogArgument;

/// Fills in a format of the system log's kind: "%@" and every conversion of printf ("%s", "%d", "%lu",
/// "%-8.3f") take the next argument, whatever its type, and "%2$@" the second one; "%%" is a percent sign. An
/// argument is written as its own type is, so flags, width, precision and length change nothing; an asterisk
/// takes an argument of its own. Surplus arguments are ignored and a missing one reads "(null)"; a percent
/// sign before anything else stands for itself. The result is one line: control characters and bytes that are
/// not UTF-8 are escaped. Long texts are cut off, and an ellipsis says so.
ROSTER_EXPORT std::string formatLogLine(std::string_view format, std::span<const LogArgument> arguments);

/// Writes one line, formatted by `formatLogLine`, to the system log, unless a scope of this thread silences
/// it. May be called from any thread; a failure of the log goes unnoticed.
ROSTER_EXPORT void writeSystemLog(std::string_view format, std::span<const LogArgument> arguments);

/// One argument of a log message. It refers to what it was made from and lives as long as the call it is made
/// for.
class LogArgument {
 public:
  /// A text, written as it is.
  LogArgument(std::string_view text) : content_(text) {}
  /// A text that ends with a zero byte, written as it is; never null.
  LogArgument(const char* text) : content_(std::string_view(text)) {}
  /// A text, written as it is.
  LogArgument(const std::string& text) : content_(std::string_view(text)) {}
  /// A text, written as it is; nil reads "(null)".
  LogArgument(const String& text) : content_(text.value()) {}
  /// A value, written as `describe` describes it; a text alone is written as it is.
  LogArgument(const Value& value) : content_(value) {}
  /// A dictionary, written as `describe` describes it.
  LogArgument(const Dictionary& dictionary) : content_(Value(dictionary)) {}
  /// 1 for true and 0 for false.
  LogArgument(bool number) : content_(static_cast<long long>(number)) {}
  /// A number, in decimal digits.
  LogArgument(int number) : content_(static_cast<long long>(number)) {}
  /// A number, in decimal digits.
  LogArgument(long number) : content_(static_cast<long long>(number)) {}
  /// A number, in decimal digits.
  LogArgument(long long number) : content_(number) {}
  /// A real number, written as `describe` describes it.
  LogArgument(double number) : content_(number) {}
  /// A number, in decimal digits.
  LogArgument(unsigned number) : content_(static_cast<unsigned long long>(number)) {}
  /// A number, in decimal digits.
  LogArgument(unsigned long number) : content_(static_cast<unsigned long long>(number)) {}
  /// A number, in decimal digits.
  LogArgument(unsigned long long number) : content_(number) {}

 private:
  friend std::string formatLogLine(std::string_view format, std::span<const LogArgument> arguments);

  std::string text() const;

  std::variant<std::string_view, Value, long long, unsigned long long, double> content_;
};

/// The line that `formatLogLine` makes of a format and the arguments behind it.
template <class... Arguments>
std::string formatted(std::string_view format, const Arguments&... arguments) {
  const std::array<LogArgument, sizeof...(Arguments)> list{LogArgument(arguments)...};
  return formatLogLine(format, list);
}

/// Writes one line to the system log, as `writeSystemLog` does, with the arguments behind the format.
template <class... Arguments>
void systemLog(std::string_view format, const Arguments&... arguments) {
  const std::array<LogArgument, sizeof...(Arguments)> list{LogArgument(arguments)...};
  writeSystemLog(format, list);
}

/// Receives every line of the system log, from any thread and from several at once. It may log itself.
using SystemLogSink = std::function<void(std::string_view line)>;

/// Replaces the receiver of log lines for the whole process; an empty one restores `writeToSyslog`. Returns
/// the receiver that was in place, empty for `writeToSyslog`. May be called from any thread; a call of the
/// old receiver may still be running afterwards.
ROSTER_EXPORT SystemLogSink setSystemLogSink(SystemLogSink sink);

/// The receiver that is in place by default: hands one line to syslog(3) as a notice of a user process,
/// whole, under the name the program goes by. The program's own openlog() settings stay as they are.
ROSTER_EXPORT void writeToSyslog(std::string_view line);

/// Keeps the log lines of its own thread from being written, from its making to its end. Scopes may be
/// nested.
class ROSTER_EXPORT SystemLogSilence {
 public:
  /// Begins the scope, for the calling thread.
  SystemLogSilence();
  /// Not copyable: a scope ends once.
  SystemLogSilence(const SystemLogSilence&) = delete;
  /// Not copyable: a scope ends once.
  SystemLogSilence& operator=(const SystemLogSilence&) = delete;
  /// Ends the scope; to be destroyed by the thread that made it.
  ~SystemLogSilence();
};

}  // namespace roster
