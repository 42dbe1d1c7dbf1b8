#include "platform/value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "platform/enumeration_mutation.h"
#include "platform/ordered_map.h"
#include "tests/support/binary_assembler.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

Dictionary fromFile(const Dictionary& dictionary) {
  return *parse(*binaryPropertyList(dictionary))->dictionary();
}

MutableDictionary shallowCopy(const Dictionary& dictionary) { return MutableDictionary(dictionary); }

std::string keysOf(const Dictionary& dictionary) {
  std::string keys;
  for (const DictionaryEntry& entry : dictionary) keys += entry.key.str() + " ";
  return keys;
}

TEST(Value, NumbersAreEqualByNumber) {
  const double two53 = 9007199254740992.0;
  const double two63 = 9223372036854775808.0;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::tuple<Value, Value, bool> cases[] = {
      {1, 1.0, true},
      {1, true, false},
      {1, "1", false},
      {1, Date{1}, false},
      {1LL << 53, two53, true},
      {(1LL << 53) + 1, two53, false},
      {1ULL << 63, two63, true},
      {std::numeric_limits<std::int64_t>::max(), two63, false},
      {~0ULL, 2 * two63, false},
      {~0ULL, -1, false},
      {0, nan, false},
      {nan, nan, true},
      {1, 1.5, false},
      {1, std::numeric_limits<double>::infinity(), false},
  };
  for (const auto& [left, right, areEqual] : cases) {
    EXPECT_EQ(left == right, areEqual) << *left.real();
    EXPECT_EQ(right == left, areEqual) << *left.real();
  }
  EXPECT_FALSE(Value() == Value(0));
  EXPECT_TRUE(Value() == Value());
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
}

TEST(Value, ComparingASharedLongTextEndsSoon) {
  const auto tree = [] {
    const Value text = std::string(1U << 20U, 'x');
    return Value(Array(std::vector<Value>(300'000, text)));
  };
  EXPECT_FALSE(tree() == tree());
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
  MutableDictionary second = shallowCopy(copy);
  EXPECT_TRUE(copy.sharesContentsWith(base));
  EXPECT_TRUE(second.sharesContentsWith(base));
  copy.remove("absent");
  EXPECT_TRUE(copy.sharesContentsWith(base));

  copy.set("b", 20);
  copy.set("d", 4);
  copy.remove("a");
  copy.set("c", Value());
  EXPECT_EQ(copy, (Dictionary{{"b", 20}, {"d", 4}}));
  EXPECT_EQ(base, second);
  EXPECT_EQ(keysOf(base), "a b c ");

  second.set("d", 40);
  MutableDictionary third = shallowCopy(copy);
  copy.set("b", 21);
  EXPECT_EQ(copy, (Dictionary{{"b", 21}, {"d", 4}}));
  EXPECT_EQ(third, (Dictionary{{"b", 20}, {"d", 4}}));
}

TEST(MutableDictionary, StaysLiveWhereItIsPut) {
  MutableDictionary child;
  const Value children = array(child);
  MutableDictionary parent(Dictionary{{"ChildAccounts", children}});
  const Dictionary shallow = shallowCopy(parent);
  const Dictionary before = parent.deepCopy();
  child.set("Identifier", "C");
  const Dictionary expected{{"ChildAccounts", array(Dictionary{{"Identifier", "C"}})}};
  EXPECT_EQ(parent, expected);
  EXPECT_EQ(shallow, expected);
  EXPECT_EQ(before, (Dictionary{{"ChildAccounts", array(Dictionary())}}));
  EXPECT_EQ(children.array()->at(0).dictionary()->find("Identifier"), "C");
}

TEST(MutableDictionary, SnapshotsAreSharedUntilTheNextChange) {
  MutableDictionary inner;
  MutableDictionary outer(fromFile({{"a", 1}}));
  EXPECT_TRUE(outer.deepCopy().sharesContentsWith(outer));
  outer.set("a", 2);
  const Dictionary flat = outer.deepCopy();
  EXPECT_TRUE(flat.sharesContentsWith(outer.deepCopy()));
  outer.set("inner", array(inner));
  const Dictionary nested = outer.deepCopy();
  inner.set("b", 3);
  outer.set("a", 4);
  EXPECT_EQ(flat, (Dictionary{{"a", 2}}));
  EXPECT_EQ(nested, (Dictionary{{"a", 2}, {"inner", array(Dictionary())}}));
  EXPECT_EQ(outer, (Dictionary{{"a", 4}, {"inner", array(Dictionary{{"b", 3}})}}));
  EXPECT_TRUE(Value(nested).deepCopy().isIdenticalTo(nested));
}

TEST(MutableDictionary, ChangesEndAWalk) {
  const Dictionary base = fromFile({{"a", 1}, {"b", 2}, {"c", 3}});
  const auto walk = [&base](const auto& change) {
    MutableDictionary dictionary(base);
    for (const DictionaryEntry& entry : dictionary) change(dictionary, entry.key);
  };
  EXPECT_THROW(walk([](MutableDictionary& d, const String&) { d.set("new", 1); }), EnumerationMutation);
  EXPECT_THROW(walk([](MutableDictionary& d, const String& key) { d.remove(key); }), EnumerationMutation);
  EXPECT_NO_THROW(walk([](MutableDictionary& d, const String& key) { d.set(key, "changed"); }));
  EXPECT_NO_THROW(walk([](MutableDictionary& d, const String&) { d.remove("absent"); }));

  MutableDictionary holed(base);
  holed.set("d", 4);
  holed.remove("b");
  std::string keys;
  for (const DictionaryEntry& entry : holed) {
    keys += entry.key.str();
    EXPECT_EQ(holed.deepCopy(), holed);
  }
  EXPECT_EQ(keys, "acd");
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
      const bool isGrowing = step % 1000 < 500;
      if (random() % 3 == 0 ? isGrowing : !isGrowing) {
        EXPECT_EQ(map.erase(key), isKnown);
        if (isKnown) plain.erase(known);
        EXPECT_EQ(map.find(key), nullptr);
      } else {
        map.set(key, step);
        (isKnown ? *known : plain.emplace_back(key, 0)).second = step;
        ASSERT_NE(map.find(key), nullptr);
        EXPECT_EQ(*map.find(key), step);
      }
      if (random() % 500 == 0) map.reserve(random() % 100);
      ASSERT_EQ(map.size(), plain.size());
      if (step % 97 != 0) continue;
      std::vector<std::pair<std::string, int>> entries;
      for (const auto& entry : map) entries.emplace_back(entry.key.str(), entry.value);
      ASSERT_EQ(entries, plain) << keys << " keys, step " << step;
    }
  }
}

}  // namespace
}  // namespace roster::testing
