#include <gtest/gtest.h>

#include <cmath>

#include "roster/base/limits.h"
#include "roster/value/date.h"
#include "roster/value/value_description.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

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
    EXPECT_EQ(rfc3339Text({seconds}), text) << seconds;
    EXPECT_EQ(rfc3339Text(dateFromText(text).value()), text) << seconds;
  }
  for (const char* text : {"", "@1x", "2001-01-01T00:00:00", "2001-01-01T00:00:00Z ", "2001-1-01T00:00:00Z",
                           "2001-04-31T00:00:00Z", "1900-02-29T00:00:00Z", "2001-01-01T00:60:00Z",
                           "2001-01-01T00:00:00.Z", "20010-01-01T00:00:00Z"}) {
    EXPECT_FALSE(dateFromText(text)) << text;
  }
}

}  // namespace
}  // namespace roster::testing
