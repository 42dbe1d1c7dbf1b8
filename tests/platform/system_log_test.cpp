#include "roster/platform/system_log.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "roster/base/limits.h"
#include "roster/platform/assertion.h"
#include "roster/value/date.h"
#include "roster/value/value_description.h"
#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

template <class... Arguments>
std::string format(std::string_view text, const Arguments&... arguments) {
  return formatLogLine(text, std::vector<LogArgument>{LogArgument(arguments)...});
}

TEST(SystemLog, FillsInPlaceholdersOnOneLine) {
  EXPECT_EQ(format("[%s] %@ %d %u %ld", "op", Value(2.0), -1, 2U, INT64_MIN),
            "[op] 2.0 -1 2 -9223372036854775808");
  EXPECT_EQ(format("100%% %x %l %@ %s%", String()), "100% %x %l (null) (null)%");
  EXPECT_EQ(format("%@", "%@ stays %s"), "%@ stays %s");
  EXPECT_EQ(format("a\n%@", std::string("b\r\t\x1B\x7F\0c", 7)), "a\\nb\\r\\t\\u001B\\u007F\\u0000c");
  EXPECT_EQ(format("%@", "\u0085 \u2028 ä \xC3 \xED\xA0\x80"), "\\u0085 \\u2028 ä \\xC3 \\xED\\xA0\\x80");
  EXPECT_EQ(format("%@.", std::string(limits::descriptionLength + 1, 'x')).size(),
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

TEST(ValueDescription, IsOneLineOfBoundedLengthWhateverTheValueRefersTo) {
  const std::byte twenty[20] = {std::byte{0xAB}};
  const std::pair<Value, const char*> cases[] = {
      {Value(), "(null)"},
      {Date{0.25}, "2001-01-01T00:00:00.250Z"},
      {Value::data(std::span(twenty).first(1)), "<1 byte ab>"},
      {Value::data(twenty), "<20 bytes ab000000000000000000000000000000…>"},
      {array("a\"\\\n", 1, false, Array(), Dictionary()), "[\"a\\\"\\\\\\n\", 1, false, [], {}]"},
      {Dictionary({{"Key", "text"}, {"Two Words", 12}}), "{Key = \"text\"; \"Two Words\" = 12}"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(describe(value), text);

  MutableDictionary cycle;
  cycle.set("again", array(cycle, cycle));
  EXPECT_LE(describe(cycle).size(), limits::descriptionLength + 3);
  cycle.remove("again");
  Value tower = 1;
  for (int i = 0; i < 60; ++i) tower = array(tower, tower);
  EXPECT_LE(describe(tower).size(), limits::descriptionLength + 3);
  std::string text(limits::descriptionLength - 1, 'x');
  EXPECT_EQ(describe(text + "ää"), text + "…");
}

TEST(DateText, WritesAndReadsTheWholeCalendar) {
  const std::pair<double, const char*> cases[] = {
      {0, "2001-01-01T00:00:00Z"},
      {-0.0004, "2001-01-01T00:00:00Z"},
      {-0.5, "2000-12-31T23:59:59.500Z"},
      {-63177062400, "-0001-01-01T00:00:00Z"},
      {252423993600, "+10000-01-01T00:00:00Z"},
      {INFINITY, "@inf"},
  };
  for (const auto& [seconds, text] : cases) {
    EXPECT_EQ(rfc3339Text({seconds}), text);
    EXPECT_EQ(rfc3339Text(dateFromText(text).value()), text);
  }
  for (const char* text : {"", "@1x", "2001-01-01T00:00:00", "2001-01-01T00:00:00Z ", "2001-1-01T00:00:00Z",
                           "2001-04-31T00:00:00Z", "1900-02-29T00:00:00Z", "2001-01-01T00:60:00Z",
                           "2001-01-01T00:00:00.Z", "20010-01-01T00:00:00Z"}) {
    EXPECT_FALSE(dateFromText(text)) << text;
  }
}

}  // namespace
}  // namespace roster::testing
