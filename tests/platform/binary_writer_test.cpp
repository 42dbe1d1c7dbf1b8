#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "platform/limits.h"
#include "platform/value_description.h"
#include "tests/support/binary_assembler.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

std::uint64_t numberAt(std::string_view bytes, std::size_t at, unsigned width) {
  std::uint64_t number = 0;
  for (unsigned i = 0; i < width; ++i) number = number << 8U | static_cast<unsigned char>(bytes[at + i]);
  return number;
}

struct Trailer {
  explicit Trailer(std::string_view file)
      : offsetWidth(static_cast<unsigned>(numberAt(file, file.size() - 26, 1))),
        referenceWidth(static_cast<unsigned>(numberAt(file, file.size() - 25, 1))),
        objects(numberAt(file, file.size() - 24, 8)),
        table(numberAt(file, file.size() - 8, 8)) {}

  unsigned offsetWidth;
  unsigned referenceWidth;
  std::uint64_t objects;
  std::uint64_t table;
};

std::string write(const Value& value) {
  const Result<std::string> bytes = binaryPropertyList(value);
  EXPECT_TRUE(bytes) << bytes.error();
  return bytes ? *bytes : std::string();
}

std::uint64_t objectsIn(const Value& value) { return Trailer(write(value)).objects; }

std::string refusal(const Value& value) {
  const Result<std::string> bytes = binaryPropertyList(value);
  return bytes ? "written" : bytes.error();
}

std::string because(Fault fault) { return "a value " + std::string(describe(fault)); }

/// Equal in every type, too: equality alone takes 1 for 1.0.
bool isSame(const Value& left, const Value& right) {
  return left == right && describe(left) == describe(right);
}

class RandomValues {
 public:
  explicit RandomValues(unsigned seed) : random_(seed) {}

  Value next(int depth = 0) {
    const std::uint64_t kind = below(depth < 5 ? 10 : 8);
    const auto number = static_cast<std::int64_t>(random_());
    const Value scalars[] = {below(2) == 0,
                             number >> below(64),
                             random_() | 1ULL << 63U,
                             static_cast<double>(number) / 1024,
                             static_cast<double>(below(9)) / 2,
                             Date{static_cast<double>(below(1U << 30U)) / 4},
                             bytesValue(text()),
                             text()};
    if (kind < std::size(scalars)) return scalars[kind];
    std::vector<Value> elements(below(below(8) == 0 ? 120 : 12));
    std::generate(elements.begin(), elements.end(), [&] { return next(depth + 1); });
    if (kind == std::size(scalars)) return Array(std::move(elements));
    MutableDictionary dictionary;
    for (const Value& value : elements) dictionary.set(text() + std::to_string(dictionary.size()), value);
    return below(2) == 0 ? Value(dictionary) : Value(dictionary.deepCopy());
  }

 private:
  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }

  std::string text() {
    static constexpr const char* pieces[] = {"a", "Identifier", "é", "日本", "🎈", "\x7F", " ", "Mail", "0"};
    std::string text;
    for (std::uint64_t count = below(below(8) == 0 ? 40 : 4); count > 0; --count)
      text += pieces[below(std::size(pieces))];
    return text;
  }

  std::mt19937_64 random_;
};

TEST(BinaryWriter, WhatIsWrittenReadsBackEqual) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    const Value value = RandomValues(seed).next();
    const std::string bytes = write(value);
    const Result<Value> back = parse(bytes);
    ASSERT_TRUE(back) << seed << ": " << back.error();
    ASSERT_TRUE(isSame(*back, value)) << seed << ": " << describe(*back) << " is not " << describe(value);
    EXPECT_EQ(write(*back), bytes) << seed << ": written again, it is the same file";
  }
}

TEST(BinaryWriter, KeepsEveryNumberAndItsType) {
  using Limits = std::numeric_limits<std::int64_t>;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Value values[] = {
      0,      1,   -1,    255,        256,        65535,         65536,         true,
      false,  0.0, -0.0,  1.0,        0.1,        1e300,         -1e-300,       INFINITY,
      5e-324, nan, ~0ULL, 4294967295, 4294967296, Limits::max(), Limits::min(), 1ULL << 63U,
  };
  for (const Value& value : values) EXPECT_TRUE(isSame(*parse(write(value)), value)) << describe(value);
}

TEST(BinaryWriter, StoresWhatIsEqualOnce) {
  EXPECT_EQ(objectsIn(array("same", std::string("same"), "other")), 3U);
  EXPECT_EQ(objectsIn(Dictionary{{"same", "same"}}), 2U);
  EXPECT_EQ(objectsIn(array(7, 7LL, 7U, 7.0, 7.0, Date{7}, Date{7}, true, true, 1)), 6U);
  EXPECT_EQ(objectsIn(array(-1, ~0ULL, 0.0, -0.0)), 5U);

  const Value shared = array("part");
  EXPECT_EQ(objectsIn(array(shared, shared, Dictionary{{"part", shared}})), 4U);
  const MutableDictionary live;
  EXPECT_EQ(objectsIn(array(live, live)), 3U) << "an empty live dictionary is written each time it occurs";
  MutableDictionary filled;
  filled.set("key", "value");
  EXPECT_EQ(objectsIn(array(filled, filled, filled.deepCopy())), 4U);

  const Value read = *parse(write(array("same", shared, shared)));
  EXPECT_EQ(objectsIn(array("same", read, read, "part")), 5U) << "texts of files and of memory alike";
}

TEST(BinaryWriter, UsesTheNarrowestWidths) {
  const std::pair<std::uint64_t, unsigned> cases[] = {{2, 1},     {255, 1},   {256, 1},  {257, 2},
                                                      {65535, 2}, {65536, 2}, {65537, 3}};
  for (const auto& [objects, referenceWidth] : cases) {
    std::vector<Value> numbers;
    for (std::uint64_t i = 1; i < objects; ++i) numbers.emplace_back(i);
    const Value value = Array(std::move(numbers));
    const std::string file = write(value);
    const Trailer trailer(file);
    EXPECT_EQ(trailer.objects, objects);
    EXPECT_EQ(trailer.referenceWidth, referenceWidth) << objects;
    EXPECT_EQ(*parse(file), value) << objects;
  }
  for (const std::size_t size : {240U, 241U, 242U, 243U, 65520U, 65530U, 65531U, 65540U}) {
    const std::string file = write(array(std::string(size, 'x'), true));
    const Trailer trailer(file);
    const std::uint64_t last = numberAt(file, trailer.table + 2U * trailer.offsetWidth, trailer.offsetWidth);
    EXPECT_EQ(static_cast<unsigned char>(file[last]), 9);
    EXPECT_TRUE(trailer.offsetWidth == 1 || last >> (8 * (trailer.offsetWidth - 1)) != 0) << size;
  }
}

TEST(BinaryWriter, RefusesDictionariesThatContainThemselves) {
  MutableDictionary self;
  self.set("self", self);
  EXPECT_EQ(refusal(self), because(Fault::containsItself));
  EXPECT_TRUE(Value(self).deepCopy().isNil());
  EXPECT_TRUE(Value(self) == Value(self));
  self.set("self", array(1, array(self)));
  EXPECT_EQ(refusal(self), because(Fault::containsItself));
  EXPECT_TRUE(self.deepCopy().empty());
  self.set("self", "free again");
  EXPECT_EQ(refusal(self), "written");
}

TEST(BinaryWriter, RefusesWhatItsReaderWouldRefuse) {
  const auto nest = [](Value value, std::size_t levels) {
    for (; levels > 0; --levels) value = array(value);
    return value;
  };
  const std::size_t deepest = limits::maximumDepth;
  EXPECT_TRUE(parse(write(nest(1, deepest))));
  EXPECT_TRUE(parse(write(nest(Array(), deepest - 1))));
  EXPECT_EQ(refusal(nest(1, deepest + 1)), because(Fault::tooDeep));
  EXPECT_EQ(refusal(nest(Array(), deepest)), because(Fault::tooDeep));
  const Value low = array(Array());
  EXPECT_EQ(refusal(array(low, nest(low, deepest - 2))), because(Fault::tooDeep))
      << "met first where it is not deep";

  std::vector<Value> bombs = {"leaf"};
  for (int i = 0; i < 60; ++i) bombs.emplace_back(array(bombs.back(), bombs.back()));
  EXPECT_EQ(refusal(bombs.back()), because(Fault::tooLarge));
  EXPECT_EQ(refusal(Array(bombs)), because(Fault::tooLarge)) << "each part stands near the top";
  Value dictionaries = "leaf";
  for (int i = 0; i < 60; ++i) dictionaries = Dictionary{{"left", dictionaries}, {"right", dictionaries}};
  EXPECT_EQ(refusal(dictionaries), because(Fault::tooLarge));

  for (const char* text : {"\xC3(", "\xC0\x80", "\xED\xA0\xBC", "\xF5\x80\x80\x80", "\xE2\x82", "\x80"}) {
    EXPECT_EQ(refusal(text), because(Fault::badText));
    EXPECT_EQ(refusal(Dictionary{{text, 1}}), because(Fault::badText));
  }
  EXPECT_EQ(refusal(Value()), "there is no value");
}

TEST(BinaryWriter, RecordsMayShareALargePart) {
  std::vector<Value> parts;
  for (int i = 0; i < 20'000; ++i) parts.emplace_back(i);
  const Value large = Array(std::move(parts));
  std::vector<Value> records;
  for (int i = 0; i < 200; ++i) records.emplace_back(Dictionary{{"Identifier", i}, {"Shared", large}});
  const Result<Value> back =
      parse(write(Dictionary{{"Accounts", Array(std::move(records))}}), Soundness::inspected);
  ASSERT_TRUE(back) << back.error();
  EXPECT_EQ(back->fault(), Fault::tooLarge);
  EXPECT_EQ(back->dictionary()->find("Accounts").array()->at(199),
            (Dictionary{{"Identifier", 199}, {"Shared", large}}));
}

TEST(BinaryWriter, ValuesMayBeNestedDeeperThanTheStack) {
  Value deep = 0;
  for (int i = 0; i < 300'000; ++i)
    deep = i % 2 == 0 ? Value(array(deep)) : Value(Dictionary{{"next", deep}});
  EXPECT_EQ(refusal(deep), because(Fault::tooDeep));
  EXPECT_FALSE(deep == Value(array(deep)));
  EXPECT_TRUE(deep.deepCopy().isIdenticalTo(deep));
}

}  // namespace
}  // namespace roster::testing
