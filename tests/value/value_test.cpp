#include "roster/value/value.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <type_traits>

#include "roster/base/limits.h"
#include "roster/base/text_table.h"
#include "roster/value/date.h"
#include "roster/value/fault.h"
#include "roster/value/value_description.h"
#include "tests/store/store_test.h"
#include "tests/support/binary_assembler.h"

namespace roster::testing {
namespace {

Dictionary fromFile(const Dictionary& dictionary) {
  return *parse(*binaryPropertyList(dictionary))->dictionary();
}

// What would compile into something else than it says.
static_assert(!std::is_constructible_v<Value, std::nullptr_t> && !std::is_constructible_v<Value, int*>);
static_assert(!std::is_constructible_v<Value, void (*)()> && !std::is_constructible_v<Value, int Date::*>);
static_assert(!std::is_constructible_v<Value, const wchar_t*> &&
              !std::is_constructible_v<String, std::nullptr_t>);
static_assert(!std::is_constructible_v<MutableDictionary, const MutableDictionary&>);
static_assert(!std::is_constructible_v<MutableDictionary, const Dictionary&>);
static_assert(!std::is_assignable_v<MutableDictionary&, const MutableDictionary&>);

TEST(Value, IsMadeAndComparedAsItReads) {
  const char* const none = nullptr;
  EXPECT_TRUE(Value(none).isNil() && String(none).isNil() && String() == none && none == String());
  EXPECT_FALSE(String("") == none || String() == "" || String() == std::string());
  const String text = "x";
  const std::string same = "x";
  EXPECT_TRUE(text == same && same == text && text == "x" && std::string_view(same) == text);
  EXPECT_TRUE(text != same + "y" && text != std::string_view() && text != "y");
  EXPECT_EQ(Value(Array({text})), array("x"));
}

TEST(Value, HasTheIdentityOfItsObject) {
  const Dictionary file = fromFile({{"a", array(1)}, {"b", array(2)}, {"c", 3}});
  MutableDictionary live;
  EXPECT_NE(file.find("a").identity(), file.find("b").identity());
  EXPECT_EQ(Value(live.share()).identity(), Value(live).identity());
  EXPECT_NE(Value(MutableDictionary::copyOf(live)).identity(), Value(live).identity());
  EXPECT_EQ(file.find("c").identity(), ValueIdentity());
}

TEST(Date, ConvertsToTheSystemsClockAndBack) {
  using Clock = std::chrono::system_clock;
  using namespace std::chrono_literals;
  const Clock::time_point reference = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);
  // Fractions behind and before the reference, 1970, nearly the first and the last.
  for (const Clock::duration offset :
       {Clock::duration(1500ms), Clock::duration(-1500ms), Clock::duration(-978307200s),
        Clock::duration(-8200000000s), Clock::duration(8200000000s)}) {
    const Date date = Date::fromTimePoint(reference + offset);
    EXPECT_EQ(date.secondsSinceReference, std::chrono::duration<double>(offset).count());
    EXPECT_EQ(date.timePoint(), reference + offset) << offset.count();
  }
  for (const double seconds : {1e10, -1.2e10, 1e300, -HUGE_VAL, std::nan("")})
    EXPECT_FALSE(Date{seconds}.timePoint()) << seconds;
}

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
  EXPECT_EQ(fromFile(dictionary), otherOrder);
  EXPECT_EQ(MutableDictionary::copyOf(fromFile(otherOrder)), dictionary);
  EXPECT_FALSE(dictionary == (Dictionary{{"a", 1}, {"b", array("x", 2.0)}, {"e", Dictionary{{"d", true}}}}));
  EXPECT_FALSE(array(1, 2) == array(2, 1) || array(1) == array(1, 1));
  EXPECT_THROW(array(1, Value()), std::invalid_argument);
  EXPECT_THROW(array(1).array()->at(1), std::out_of_range);
  const auto sharing = [] { return array(Array(std::vector<Value>(300'000, std::string(1U << 20U, 'x')))); };
  EXPECT_FALSE(sharing() == sharing()) << "this would take minutes to compare";
}

TEST(Value, ReadsAsASwitch) {
  for (const Value& on : {Value(true), Value(-0.5), Value("yes"), Value(" True"), Value("-01")})
    EXPECT_TRUE(on.booleanValue()) << describe(on);
  for (const Value& off : {Value(), Value(false), Value(0), Value("no"), Value("00"), array(1)})
    EXPECT_FALSE(off.booleanValue()) << describe(off);
}

TEST(MutableDictionary, CopiesShareEntriesUntilOneOfThemChanges) {
  using Plain = std::vector<std::pair<std::string, int>>;
  const auto entriesOf = [](const Dictionary& dictionary) {
    Plain entries;
    for (const DictionaryEntry& entry : dictionary)
      entries.emplace_back(entry.key.str(), entry.value.integer().value());
    return entries;
  };
  const Dictionary base = fromFile({{"a0", 1}, {"a1", 2}, {"a2", 3}});
  for (const unsigned keys : {4U, 5U, 6U, 17U, 40U, 400U}) {
    std::mt19937 random(keys);
    std::vector<std::pair<MutableDictionary, Plain>> live;
    std::vector<std::pair<Dictionary, Plain>> copies(3, {base, {{"a0", 1}, {"a1", 2}, {"a2", 3}}});
    for (auto& [copy, plain] : copies) live.emplace_back(MutableDictionary::copyOf(copy), plain);
    for (unsigned step = 0; step < 6000; ++step) {
      SCOPED_TRACE(std::to_string(keys) + " keys, step " + std::to_string(step));
      auto& [dictionary, plain] = live[random() % live.size()];
      auto& [copy, copied] = copies[random() % copies.size()];
      const std::string key = "a" + std::to_string(random() % keys);
      const auto known =
          std::find_if(plain.begin(), plain.end(), [&](auto& entry) { return entry.first == key; });
      ASSERT_EQ(dictionary.contains(key), known != plain.end());
      const auto operation = random() % (4 * keys);
      if (operation == 0) {
        copy = dictionary.deepCopy();
        copied = plain;
        dictionary.remove("absent");
        ASSERT_TRUE(dictionary.sharesContentsWith(copy));
      } else if (operation == 1) {
        live[random() % live.size()] = {MutableDictionary::copyOf(copy), copied};
      } else if (random() % 3 == 0 ? step % 1000 < 500 : step % 1000 >= 500) {
        dictionary.set(key, Value());
        if (known != plain.end()) plain.erase(known);
      } else {
        dictionary.set(key, step);
        (known == plain.end() ? plain.emplace_back(key, 0) : *known).second = static_cast<int>(step);
      }
      if (step % keys != 0) continue;
      for (const auto& [changed, expected] : live) ASSERT_EQ(entriesOf(changed), expected);
      for (const auto& [kept, expected] : copies) ASSERT_EQ(entriesOf(kept), expected);
    }
  }
}

TEST(MutableDictionary, StaysLiveWhereItIsPutButNotInASnapshot) {
  MutableDictionary child;
  auto parent = MutableDictionary::copyOf(fromFile({{"a", 1}}));
  parent.set("ChildAccounts", array(child));
  const Dictionary shallow = MutableDictionary::copyOf(parent);
  const Dictionary nested = parent.deepCopy();
  child.set("Identifier", "C");
  EXPECT_EQ(shallow.find("ChildAccounts"), array(Dictionary{{"Identifier", "C"}}));
  EXPECT_EQ(nested.find("ChildAccounts"), array(Dictionary()));
}

TEST(MutableDictionary, ChangesEndAWalk) {
  const Dictionary base = fromFile({{"a", 1}, {"b", 2}, {"c", 3}});
  const auto walk = [&base](void (*change)(MutableDictionary&, const String& key)) {
    auto dictionary = MutableDictionary::copyOf(base);
    for (const DictionaryEntry& entry : dictionary) change(dictionary, entry.key);
  };
  EXPECT_THROW(walk([](auto& dictionary, auto&) { dictionary.set("new", 1); }), EnumerationMutation);
  EXPECT_THROW(walk([](auto& dictionary, auto& key) { dictionary.remove(key); }), EnumerationMutation);
  EXPECT_NO_THROW(walk([](auto& dictionary, auto& key) {
    dictionary.set(key, "changed");
    dictionary.remove("absent");
    EXPECT_EQ(dictionary.deepCopy(), dictionary);
  }));
}

TEST(TextTable, HasASeedAndXmlIsReadWhereTheSystemGivesNoRandomNumbers) {
  const auto isRefused = [] {
    // Neither from the call nor from a file: not one can be opened any more.
    const rlimit noFiles{0, 0};
    sock_filter refusing[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                              BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_getrandom, 0, 1),
                              BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                              BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{std::size(refusing), refusing};
    return setrlimit(RLIMIT_NOFILE, &noFiles) == 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
  };
  if (!endsWell(startProcess(isRefused))) GTEST_SKIP() << "the system has no filters for calls";
  EXPECT_TRUE(endsWell(startProcess(
      [&] { return isRefused() && drawSeed() != drawSeed() && parse("<plist><true/></plist>"); })));
}

TEST(ValueDescription, IsOneLineOfBoundedLengthWhateverTheValueRefersTo) {
  const std::byte twenty[20] = {std::byte{0xAB}};
  const std::pair<Value, const char*> cases[] = {
      {Value::data(std::span(twenty).first(1)), "<1 byte ab>"},
      {Value::data(twenty), "<20 bytes ab000000000000000000000000000000…>"},
      {array("a\"\\\n", 1, false, Date{0.25}), "[\"a\\\"\\\\\\n\", 1, false, 2001-01-01T00:00:00.250Z]"},
      {Dictionary({{"Key", "text"}, {"Two Words", 12}}), "{Key = \"text\"; \"Two Words\" = 12}"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(describe(value), text);
  MutableDictionary cycle;
  cycle.set("again", array(cycle, cycle));
  EXPECT_LE(describe(cycle).size(), limits::descriptionLength + 3);
  cycle.remove("again");
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
