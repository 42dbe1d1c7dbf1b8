#include "roster/platform/assertion.h"

#include "roster/base/process_wide.h"
#include "roster/platform/system_log.h"

namespace roster {

AssertionFailure::AssertionFailure(AssertionReport report)
    : std::logic_error(report.message), report_(std::make_shared<const AssertionReport>(std::move(report))) {}

const AssertionReport& AssertionFailure::report() const { return *report_; }

AssertionHandler setAssertionHandler(AssertionHandler handler) {
  return immortalReplaceable<AssertionHandler>().replace(std::move(handler));
}

void assertionFailed(std::string_view operation, std::string_view sourceFile, std::string message,
                     unsigned line) {
  AssertionReport report{std::string(operation), std::string(sourceFile), line, std::move(message)};
  if (const AssertionHandler handler = immortalReplaceable<AssertionHandler>().current()) {
    handler(report);
    return;
  }
  systemLog("*** Assertion failure in %@, %@.cpp:%d: %@", report.operation, report.sourceFile, report.line,
            report.message);
  throw AssertionFailure(std::move(report));
}

}  // namespace roster
