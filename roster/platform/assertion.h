#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "roster/base/export.h"

namespace roster {

/// A programming or configuration error, as it is reported.
struct AssertionReport {
  std::string operation;   ///< The operation's full name: "-[BasicAccount init]".
  std::string sourceFile;  ///< The class whose source reports it: "BasicAccount".
  unsigned line = 0;       ///< The line in that source, from 1.
  std::string message;     ///< What is wrong, for people.
};

/// What the default handler throws. Its text is the report's message.
class ROSTER_EXPORT AssertionFailure : public std::logic_error {
 public:
  /// An exception for the report.
  explicit AssertionFailure(AssertionReport report);

  /// The report, valid as long as any copy of the exception.
  const AssertionReport& report() const;

 private:
  std::shared_ptr<const AssertionReport> report_;
};

/// Decides what becomes of an assertion that failed. It may throw, end the process, or return; the operation
/// that failed then returns nil. It may be called from several threads at once.
using AssertionHandler = std::function<void(const AssertionReport&)>;

/// Replaces the handler for the whole process; an empty one restores the default, which writes one line to
/// the system log and throws AssertionFailure. Returns the handler that was in place, empty for the default.
/// May be called from any thread; a call of the old handler may still be running afterwards.
ROSTER_EXPORT AssertionHandler setAssertionHandler(AssertionHandler handler);

/// Reports a failed assertion to the handler: returns if the handler does, and throws what it throws. The
/// line is the caller's. May be called from any thread.
ROSTER_EXPORT void assertionFailed(std::string_view operation, std::string_view sourceFile,
                                   std::string message, unsigned line = __builtin_LINE());

}  // namespace roster
