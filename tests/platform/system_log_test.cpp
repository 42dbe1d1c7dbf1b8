#include "platform/system_log.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "platform/assertion.h"
#include "platform/date_text.h"
#include "platform/limits.h"
#include "platform/value_description.h"
#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

template <class... Arguments>
std::string format(std::string_view text, const Arguments&... arguments) {
  return formatLogLine(text, std::vector<LogArgument>{LogArgument(arguments)...});
}

TEST(SystemLog, FillsInPlaceholders) {
  EXPECT_EQ(format("[%s] %@ %d %u %ld", "op", Value(2.0), -1, 2U, INT64_MIN),
            "[op] 2.0 -1 2 -9223372036854775808");
  EXPECT_EQ(format("%@ %s", String()), "(null) (null)");
  EXPECT_EQ(format("100%% %x %l %", 1), "100% %x %l %");
  EXPECT_EQ(format("%@", "%@ stays %s"), "%@ stays %s");
}

TEST(SystemLog, KeepsEveryMessageOnOneLine) {
  EXPECT_EQ(format("a\n%@", std::string("b\r\t\x1B\x7F\0c", 7)), "a\\nb\\r\\t\\u001B\\u007F\\u0000c");
  EXPECT_EQ(format("%@", "\u0085 \u2028 ä \xC3 \xED\xA0\x80"), "\\u0085 \\u2028 ä \\xC3 \\xED\\xA0\\x80");
  const std::string line = format("%@.", std::string(100, 'x') + std::string(limits::descriptionLength, 'y'));
  EXPECT_EQ(line.size(), limits::descriptionLength + std::string("….").size());
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
  try {
    assertionFailed("-[A b]", "A", "two\nlines", 7);
    FAIL() << "nothing was thrown";
  } catch (const AssertionFailure& failure) {
    EXPECT_EQ(failure.report().message, "two\nlines");
  }
  EXPECT_EQ(log.lines(), std::vector<std::string>{"*** Assertion failure in -[A b], A.cpp:7: two\\nlines"});

  std::string seen;
  setAssertionHandler([&](const AssertionReport& report) { seen = report.operation + report.sourceFile; });
  assertionFailed("-[A b]", "A", "message");
  EXPECT_TRUE(setAssertionHandler({}));
  EXPECT_EQ(seen, "-[A b]A");
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(ValueDescription, ReadsAsWordsOnOneLine) {
  const std::byte twenty[20] = {std::byte{0xAB}};
  const std::pair<Value, const char*> cases[] = {
      {Value(), "(null)"},
      {"a \"b\"\n", "a \"b\"\\n"},
      {false, "false"},
      {UINT64_MAX, "18446744073709551615"},
      {-1.0, "-1.0"},
      {1e300, "1e+300"},
      {Date{0.25}, "2001-01-01T00:00:00.250Z"},
      {Value::data({}), "<0 bytes>"},
      {Value::data(std::span(twenty).first(1)), "<1 byte ab>"},
      {Value::data(twenty), "<20 bytes ab000000000000000000000000000000…>"},
      {array("a\"\\\n", 1, Array(), Dictionary()), "[\"a\\\"\\\\\\n\", 1, [], {}]"},
      {Dictionary({{"Key", "text"}, {"Two Words", 12}}), "{Key = \"text\"; \"Two Words\" = 12}"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(describe(value), text);
}

TEST(ValueDescription, IsBoundedWhateverTheValueRefersTo) {
  MutableDictionary cycle;
  cycle.set("self", cycle);
  cycle.set("again", array(cycle, cycle));
  EXPECT_LE(describe(cycle).size(), limits::descriptionLength + 3);
  cycle.remove("self");
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
      {-0.125, "2000-12-31T23:59:59.875Z"},
      {-63177062400, "-0001-01-01T00:00:00Z"},
      {252423993599, "9999-12-31T23:59:59Z"},
      {252423993600, "+10000-01-01T00:00:00Z"},
      {INFINITY, "@inf"},
  };
  for (const auto& [seconds, text] : cases) {
    EXPECT_EQ(rfc3339Text({seconds}), text);
    ASSERT_TRUE(dateFromText(text)) << text;
    EXPECT_EQ(rfc3339Text(*dateFromText(text)), text);
  }
  EXPECT_EQ(dateFromText("2001-01-01T00:00:00.5Z"), Date{0.5});
  for (const char* text :
       {"", "@", "@1x", "2001-01-01T00:00:00", "2001-01-01T00:00:00Z ", "2001-1-01T00:00:00Z",
        "2001-00-01T00:00:00Z", "2001-04-31T00:00:00Z", "1900-02-29T00:00:00Z", "2001-01-01T00:60:00Z",
        "2001-01-01T00:00:60Z", "2001-01-01T00:00:00.Z", "+99999-01-01T00:00:00Z", "20010-01-01T00:00:00Z"}) {
    EXPECT_FALSE(dateFromText(text)) << text;
  }
}

}  // namespace
}  // namespace roster::testing
