#include "roster/platform/system_log.h"

#include <gtest/gtest.h>

#include <thread>

#include "roster/base/limits.h"
#include "roster/platform/assertion.h"
#include "tests/support/temporary_device.h"

namespace roster::testing {
namespace {

TEST(SystemLog, FillsInPlaceholdersOnOneLine) {
  EXPECT_EQ(formatted("[%s] %@ %d %u %ld", "op", Value(2.0), -1, 2U, INT64_MIN),
            "[op] 2.0 -1 2 -9223372036854775808");
  EXPECT_EQ(formatted("100%% %x %l %@ %s%", String()), "100% %x %l (null) (null)%");
  EXPECT_EQ(formatted("%@", "%@ stays %s"), "%@ stays %s");
  EXPECT_EQ(formatted("a\n%@", std::string("b\r\t\x1B\x7F\0c", 7)), "a\\nb\\r\\t\\u001B\\u007F\\u0000c");
  EXPECT_EQ(formatted("%@", "\u0085 \u2028 ä \xC3 \xED\xA0\x80"), "\\u0085 \\u2028 ä \\xC3 \\xED\\xA0\\x80");
  EXPECT_EQ(formatted("%@.", std::string(limits::descriptionLength + 1, 'x')).size(),
            limits::descriptionLength + std::string("….").size());
}

TEST(SystemLog, ReachesTheSinkFromAllThreadsAndFromTheSinkItself) {
  std::atomic<int> count = 0;
  const SystemLogSink previous = setSystemLogSink([&](std::string_view line) {
    if (line == "outer") systemLog("inner");
    ++count;
  });
  const auto log = [] {
    for (int n = 0; n < 100; ++n) systemLog("outer");
  };
  std::thread other(log);
  log();
  other.join();
  setSystemLogSink(previous);
  EXPECT_EQ(count, 400);
}

TEST(Assertion, LogsOneLineAndThrowsUnlessAHandlerReturns) {
  const CapturedLog log;
  EXPECT_THROW(assertionFailed("-[A b]", "A", "two\nlines", 7), AssertionFailure);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"*** Assertion failure in -[A b], A.cpp:7: two\\nlines"});
  setAssertionHandler([](const AssertionReport& report) { EXPECT_EQ(report.operation, "-[A b]"); });
  assertionFailed("-[A b]", "A", "message");
  setAssertionHandler({});
  EXPECT_EQ(log.lines().size(), 1U);
}

}  // namespace
}  // namespace roster::testing
