#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <tuple>

#include "roster/base/limits.h"
#include "roster/value/representation.h"
#include "roster/value/value_description.h"
#include "tests/support/binary_assembler.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

std::uint64_t objectsOf(std::string_view file) {
  std::uint64_t number = 0;
  for (const char byte : file.substr(file.size() - 24, 8))
    number = number << 8U | static_cast<unsigned char>(byte);
  return number;
}

/// The file, or the reason why there is none, without the place.
std::string write(const Value& value) {
  const Result<std::string> bytes = binaryPropertyList(value);
  if (bytes) return *bytes;
  const std::string& message = bytes.error().message;
  constexpr std::string_view start = "a value at ";
  return message.starts_with(start) ? "a value" + message.substr(message.find(' ', start.size())) : message;
}

std::string because(Fault fault) { return "a value " + std::string(describe(fault)); }

TEST(BinaryWriter, StoresWhatIsEqualOnce) {
  const Value shared = array("part");
  const Value read = *parse(write(array("same", shared, shared)));
  const MutableDictionary empty;
  MutableDictionary filled;
  filled.set("key", "value");
  const std::pair<Value, std::uint64_t> cases[] = {
      {array("same", std::string("same"), Dictionary{{"same", "same"}}), 3},
      {array(7, 7LL, 7U, 7.0, 7.0, Date{7}, Date{7}, true, true, 1), 6},
      {array(-1, ~0ULL, 0.0, -0.0, 5e-324, HUGE_VAL, std::nan(""), Date{-1.5}), 9},
      {array(shared, shared, Dictionary{{"part", shared}}), 4},
      {array(empty, empty), 2},
      {array(filled, filled, filled.deepCopy()), 4},
      {array("same", read, read, "part"), 5},
  };
  for (const auto& [value, objects] : cases) {
    SCOPED_TRACE(describe(value));
    EXPECT_EQ(objectsOf(write(value)), objects);
    EXPECT_EQ(describe(*parse(write(value))), describe(value));
  }
  // A magic of 8 bytes, objects of 4, 3 and 1, an offset for each of a byte, and the end.
  EXPECT_EQ(write(array(256, true, true)).size(), 8 + 4 + 3 + 1 + 3 + 32U);
  // References to 257 objects are of two bytes, and so are offsets behind 256.
  std::vector<Value> numbers;
  while (numbers.size() < 256) numbers.emplace_back(numbers.size());
  EXPECT_EQ(write(Array(numbers)).size(), 8 + 4 + 2 * 256 + 2 * 256 + 2 * 257 + 32U);
}

TEST(BinaryWriter, RefusesDictionariesThatContainThemselves) {
  MutableDictionary self;
  for (const bool isDirect : {true, false}) {
    self.set("self", isDirect ? Value(self) : array(1, array(self)));
    EXPECT_EQ(write(self), because(Fault::containsItself)) << isDirect;
    EXPECT_TRUE(Value(self).deepCopy().isNil() && self.deepCopy().empty() && Value(self) == Value(self));
  }
  self.set("self", "free again");
  EXPECT_EQ(*parse(write(self)), self);
}

TEST(BinaryWriter, RefusesWhatItsReaderWouldRefuse) {
  const auto nest = [](Value value, std::size_t levels) {
    for (; levels > 0; --levels) value = array(value);
    return value;
  };
  const std::size_t deepest = limits::maximumDepth;
  const Value low = array(Array());
  EXPECT_TRUE(parse(write(nest(1, deepest))));
  EXPECT_TRUE(parse(write(nest(Array(), deepest - 1))));
  // The last is met first where it is not deep.
  for (const Value& value :
       {nest(1, deepest + 1), nest(Array(), deepest), array(low, nest(low, deepest - 2))})
    EXPECT_EQ(write(value), because(Fault::tooDeep));
  std::vector<Value> arrays = {"leaf"};
  Value dictionaries = "leaf";
  for (int i = 0; i < 60; ++i) {
    arrays.emplace_back(array(arrays.back(), arrays.back()));
    dictionaries = Dictionary{{"left", dictionaries}, {"right", dictionaries}};
  }
  for (const Value& bomb : {arrays.back(), Value(Array(arrays)), dictionaries})
    EXPECT_EQ(write(bomb), because(Fault::tooLarge));
  const Value large = array(Array(std::vector<Value>(20'000, "x")));
  const std::string file = write(array(Array(std::vector<Value>(200, large))));
  EXPECT_EQ(parse(file, Soundness::inspected)->fault(), Fault::tooLarge) << "records may share large parts";
  // A start without its end, too long a spelling, a surrogate, beyond the last, cut off, no start.
  for (const char* text : {"\xC3(", "\xC0\x80", "\xED\xA0\xBC", "\xF5\x80\x80\x80", "\xE2\x82", "\x80"}) {
    EXPECT_EQ(write(text), because(Fault::badText)) << ::testing::PrintToString(text);
    EXPECT_EQ(write(Dictionary{{text, 1}}), because(Fault::badText)) << ::testing::PrintToString(text);
  }
  EXPECT_EQ(write(Value()), "there is no value");
}

TEST(BinaryWriter, SaysWhereTheValueIsThatItRefuses) {
  MutableDictionary cyclic;
  cyclic.set("again", array(cyclic));
  OrderedMap<Value> nilKey;
  nilKey.set(String(), 1);
  OrderedMap<Value> nilValue;
  nilValue.set("k", Value());
  Value bomb = "x";
  for (int i = 0; i < 60; ++i) bomb = array(bomb, bomb);
  Value deep = array();
  for (std::size_t i = 0; i < limits::maximumDepth; ++i) deep = array(deep);
  const Value child = Dictionary{{"Identifier", "c"}, {"N", "\xFF"}};
  // What the account "work" holds besides, and the place behind it.
  const std::tuple<const char*, Value, const char*, Fault> rows[] = {
      {"Note", "\xFF", ".\"Note\"", Fault::badText},
      {"ChildAccounts", array(child), ".\"ChildAccounts\"[0] (c).\"N\"", Fault::badText},
      {"\xFF", 1, "", Fault::badText},
      {"Self", cyclic, ".\"Self\".\"again\"[0]", Fault::containsItself},
      {"D", ValueAccess::makeDictionary(nilKey, Fault::none), ".\"D\"", Fault::badKey},
      {"D", ValueAccess::makeDictionary(nilValue, Fault::none), ".\"D\".\"k\"", Fault::unknownObject},
      {"Bomb", bomb, "", Fault::tooLarge},
      {"Deep", deep, ".\"Deep\"[0][0][0][0][0]…", Fault::tooDeep},
      {"a\n", array("\xFF"), ".\"a\\n\"[0]", Fault::badText}};
  for (const auto& [key, value, place, fault] : rows) {
    const Dictionary account{{"Type", "Mail"}, {"Identifier", "work"}, {key, value}};
    const Dictionary registry{{"Version", 12}, {"Accounts", array(Dictionary(), Dictionary(), account)}};
    EXPECT_EQ(errorOf(binaryPropertyList(registry)),
              "a value at \"Accounts\"[2] (work)" + std::string(place) + " " + std::string(describe(fault)))
        << key;
  }
  cyclic.remove("again");
}

TEST(BinaryWriter, WritesChosenNumbersAsFastAsOthers) {
  // With so many elements a hash table of the standard library has this number of buckets: by their own
  // values all would fall into one.
  constexpr std::int64_t buckets = 85'229;
  std::vector<Value> chosen;
  for (std::int64_t i = 1; i <= 85'000; ++i) chosen.emplace_back(i * buckets);
  const auto start = std::chrono::steady_clock::now();
  write(Array(chosen));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}

TEST(BinaryWriter, ValuesMayBeNestedDeeperThanTheStack) {
  Value deep = 0;
  for (int i = 0; i < 300'000; ++i)
    deep = i % 2 == 0 ? Value(array(deep)) : Value(Dictionary{{"next", deep}});
  EXPECT_EQ(write(deep), because(Fault::tooDeep));
  EXPECT_FALSE(deep == Value(array(deep)));
  EXPECT_TRUE(deep.deepCopy().isIdenticalTo(deep));
}

}  // namespace
}  // namespace roster::testing
