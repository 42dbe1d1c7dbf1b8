#include "roster/value/value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "roster/value/enumeration_mutation.h"
#include "roster/value/ordered_map.h"
#include "roster/value/value_description.h"
#include "tests/support/binary_assembler.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

Dictionary fromFile(const Dictionary& dictionary) {
  return *parse(*binaryPropertyList(dictionary))->dictionary();
}

MutableDictionary shallowCopy(const Dictionary& dictionary) { return MutableDictionary(dictionary); }

TEST(Value, NumbersAreEqualByNumber) {
  const double two53 = 9007199254740992.0;
  const double two63 = 9223372036854775808.0;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::pair<Value, Value> equal[] = {{1, 1.0},   {1LL << 53, two53}, {1ULL << 63, two63},
                                           {nan, nan}, {0.0, -0.0},        {Value(), Value()}};
  for (const auto& [left, right] : equal) EXPECT_TRUE(left == right && right == left) << describe(left);
  const std::pair<Value, Value> different[] = {
      {1, true},          {1, "1"},       {1, Date{1}},       {(1LL << 53) + 1, two53},
      {INT64_MAX, two63}, {0, 2 * two63}, {~0ULL, 2 * two63}, {~0ULL, -1},
      {0, nan},           {1, 1.5},       {1, INFINITY},      {0, Value()}};
  for (const auto& [left, right] : different)
    EXPECT_FALSE(left == right || right == left) << describe(left) << " and " << describe(right);
  EXPECT_FALSE(Value(1ULL << 63).integer());
  EXPECT_EQ(Value(1ULL << 63).unsignedInteger(), 1ULL << 63);
  EXPECT_FALSE(Value(-1).unsignedInteger());
}

TEST(Value, ContainersAreEqualByContent) {
  const Dictionary dictionary{{"a", 1}, {"b", array("x", 2.0)}, {"c", Dictionary{{"d", true}}}};
  const Dictionary otherOrder{{"c", Dictionary{{"d", true}}}, {"b", array("x", 2)}, {"a", 1.0}};
  EXPECT_EQ(dictionary, otherOrder);
  EXPECT_EQ(fromFile(dictionary), otherOrder);
  EXPECT_EQ(MutableDictionary(fromFile(otherOrder)), dictionary);
  EXPECT_FALSE(dictionary == (Dictionary{{"a", 1}, {"b", array("x", 2.0)}, {"e", Dictionary{{"d", true}}}}));
  EXPECT_FALSE(array(1, 2) == array(2, 1));
  EXPECT_FALSE(array(1) == array(1, 1));
  EXPECT_THROW(array(1, Value()), std::invalid_argument);
  EXPECT_THROW(array(1).array()->at(1), std::out_of_range);
  const auto sharing = [] { return array(Array(std::vector<Value>(300'000, std::string(1U << 20U, 'x')))); };
  EXPECT_FALSE(sharing() == sharing()) << "this would take minutes to compare";
}

TEST(Value, ReadsAsASwitch) {
  for (const Value& on : {Value(true), Value(-0.5), Value("yes"), Value(" True"), Value("-01")})
    EXPECT_TRUE(on.booleanValue());
  for (const Value& off : {Value(), Value(false), Value(0), Value("no"), Value("00"), array(1)})
    EXPECT_FALSE(off.booleanValue());
}

TEST(MutableDictionary, CopiesOnlyWhenItChanges) {
  const Dictionary base = fromFile({{"a", 1}, {"b", 2}, {"c", 3}});
  MutableDictionary copy(base);
  const MutableDictionary second = shallowCopy(copy);
  copy.remove("absent");
  EXPECT_TRUE(copy.sharesContentsWith(base) && second.sharesContentsWith(base));

  copy.set("b", 20);
  copy.set("d", 4);
  copy.remove("a");
  copy.set("c", Value());
  MutableDictionary third = shallowCopy(copy);
  copy.set("b", 21);
  third.set("e", 5);
  EXPECT_EQ(describe(copy), "{b = 21; d = 4}");
  EXPECT_EQ(describe(third), "{b = 20; d = 4; e = 5}");
  EXPECT_EQ(describe(base) + describe(second), "{a = 1; b = 2; c = 3}{a = 1; b = 2; c = 3}");
}

TEST(MutableDictionary, StaysLiveWhereItIsPutButNotInASnapshot) {
  MutableDictionary child;
  MutableDictionary parent(fromFile({{"a", 1}}));
  EXPECT_TRUE(parent.deepCopy().sharesContentsWith(parent));
  parent.set("a", 2);
  const Dictionary flat = parent.deepCopy();
  parent.set("ChildAccounts", array(child));
  const Dictionary shallow = shallowCopy(parent);
  const Dictionary nested = parent.deepCopy();
  child.set("Identifier", "C");
  parent.set("a", 3);
  const Value live = array(Dictionary{{"Identifier", "C"}});
  EXPECT_EQ(parent, (Dictionary{{"a", 3}, {"ChildAccounts", live}}));
  EXPECT_EQ(shallow, (Dictionary{{"a", 2}, {"ChildAccounts", live}}));
  EXPECT_EQ(nested, (Dictionary{{"a", 2}, {"ChildAccounts", array(Dictionary())}}));
  EXPECT_EQ(flat, (Dictionary{{"a", 2}}));
  EXPECT_TRUE(Value(nested).deepCopy().isIdenticalTo(nested));
}

TEST(MutableDictionary, ChangesEndAWalk) {
  const Dictionary base = fromFile({{"a", 1}, {"b", 2}, {"c", 3}});
  const auto walk = [&base](void (*change)(MutableDictionary&, const String& key)) {
    MutableDictionary dictionary(base);
    for (const DictionaryEntry& entry : dictionary) change(dictionary, entry.key);
  };
  EXPECT_THROW(walk([](auto& dictionary, auto&) { dictionary.set("new", 1); }), EnumerationMutation);
  EXPECT_THROW(walk([](auto& dictionary, auto& key) { dictionary.remove(key); }), EnumerationMutation);
  EXPECT_NO_THROW(walk([](auto& dictionary, auto& key) { dictionary.set(key, "changed"); }));
  EXPECT_NO_THROW(walk([](auto& dictionary, auto&) { dictionary.remove("absent"); }));
  EXPECT_NO_THROW(walk([](auto& dictionary, auto&) { EXPECT_EQ(dictionary.deepCopy(), dictionary); }));
}

TEST(OrderedMap, BehavesLikeAPlainList) {
  for (const unsigned keys : {5U, 17U, 40U, 400U}) {
    std::mt19937 random(keys);
    OrderedMap<int> map;
    std::vector<std::pair<std::string, int>> plain;
    for (int step = 0; step < 6000; ++step) {
      const std::string key = "key" + std::to_string(random() % keys);
      const auto known =
          std::find_if(plain.begin(), plain.end(), [&](auto& entry) { return entry.first == key; });
      const bool isKnown = known != plain.end();
      ASSERT_EQ(map.find(key) != nullptr, isKnown);
      const bool isGrowing = step % 1000 < 500;
      if (random() % 3 == 0 ? isGrowing : !isGrowing) {
        EXPECT_EQ(map.erase(key), isKnown);
        if (isKnown) plain.erase(known);
      } else {
        map.set(key, step);
        (isKnown ? *known : plain.emplace_back(key, 0)).second = step;
      }
      if (random() % 500 == 0) map.reserve(random() % 100);
      ASSERT_EQ(map.size(), plain.size());
      if (step % 97 != 0) continue;
      std::vector<std::pair<std::string, int>> entries;
      for (const auto& entry : map) entries.emplace_back(entry.key.str(), *map.find(entry.key.str()));
      ASSERT_EQ(entries, plain) << keys << " keys, step " << step;
    }
  }
}

}  // namespace
}  // namespace roster::testing
