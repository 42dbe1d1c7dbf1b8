#include "roster/platform/system_log.h"

#include <gtest/gtest.h>

#include "roster/base/limits.h"

namespace roster::testing {
namespace {

TEST(SystemLog, FillsInPlaceholdersOnOneLine) {
  EXPECT_EQ(formatted("[%s] %@ %d %u %ld", "op", Value(2.0), -1, 2U, INT64_MIN),
            "[op] 2.0 -1 2 -9223372036854775808");
  EXPECT_EQ(formatted("100%% %l %w %@ %s%", String()), "100% %l %w (null) (null)%");
  // Whatever printf knows takes its argument, so that the ones behind it stay in their places.
  EXPECT_EQ(formatted("%lu %llx %zu %-8.3f %hhd %c %p %i|%@", 1UL, 10, 2U, 0.5, -3, "c", 4L, 5, "end"),
            "1 10 2 0.5 -3 c 4 5|end");
  EXPECT_EQ(formatted("%*d %-*.*s|%@", 8, 1, 9, 2, "text", "end"), "1 text|end");
  EXPECT_EQ(formatted("%2$@ %1$s %@ %3$d %99$@ %0$@", "one", "two"), "two one one (null) (null) two");
  EXPECT_EQ(formatted("%@", "%@ stays %s"), "%@ stays %s");
  EXPECT_EQ(formatted("a\n%@", std::string("b\r\t\x1B\x7F\0c", 7)), "a\\nb\\r\\t\\u001B\\u007F\\u0000c");
  EXPECT_EQ(formatted("%@", "\u0085 \u2028 ä \xC3 \xED\xA0\x80"), "\\u0085 \\u2028 ä \\xC3 \\xED\\xA0\\x80");
  EXPECT_EQ(formatted("%@.", std::string(limits::descriptionLength + 1, 'x')).size(),
            limits::descriptionLength + std::string("….").size());
}

TEST(SystemLog, MayBeWrittenByTheSinkItself) {
  std::vector<std::string> lines;
  const SystemLogSink previous = setSystemLogSink([&](std::string_view line) {
    if (line == "outer") systemLog("inner");
    lines.emplace_back(line);
  });
  systemLog("outer");
  setSystemLogSink(previous);
  EXPECT_EQ(lines, (std::vector<std::string>{"inner", "outer"}));
}

}  // namespace
}  // namespace roster::testing
