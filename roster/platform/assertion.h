#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "roster/base/export.h"

namespace roster {

/// A programming or configuration error, as it is reported.
struct AssertionReport {
  /// The operation's full name: "-[BasicAccount init]".
  std::string operation;
  /// The class whose source reports it: "BasicAccount".
  std::string sourceFile;
  unsigned line = 0;
  std::string message;
};

/// What the default handler throws.
class ROSTER_EXPORT AssertionFailure : public std::logic_error {
 public:
  explicit AssertionFailure(AssertionReport report)
      : std::logic_error(report.message), report_(std::move(report)) {}
  const AssertionReport& report() const { return report_; }

 private:
  AssertionReport report_;
};

/// Decides what becomes of an assertion that failed. It may throw, end the process, or return; the operation
/// that failed then returns nil.
using AssertionHandler = std::function<void(const AssertionReport&)>;

/// Replaces the handler for the whole process; an empty one restores the default, which writes one line to
/// the system log and throws AssertionFailure. Returns the handler that was in place, empty for the default.
ROSTER_EXPORT AssertionHandler setAssertionHandler(AssertionHandler handler);

/// Reports a failed assertion to the handler; returns if the handler does. The line is the caller's.
ROSTER_EXPORT void assertionFailed(std::string_view operation, std::string_view sourceFile,
                                   std::string message, unsigned line = __builtin_LINE());

}  // namespace roster
