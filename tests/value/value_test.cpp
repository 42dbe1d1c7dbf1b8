#include "roster/value/value.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <type_traits>
#include <unordered_set>

#include "roster/value/fault.h"
#include "roster/value/ordered_map.h"
#include "roster/value/value_description.h"
#include "tests/support/binary_assembler.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

Dictionary fromFile(const Dictionary& dictionary) {
  return *parse(*binaryPropertyList(dictionary))->dictionary();
}

// What would compile into something else than it says.
static_assert(sizeof(Value) == 16 && sizeof(MutableDictionary) == sizeof(Value));
static_assert(!std::is_constructible_v<Value, std::nullptr_t> && !std::is_constructible_v<Value, int*>);
static_assert(!std::is_constructible_v<Value, const void*> && !std::is_constructible_v<Value, void (*)()>);
static_assert(!std::is_constructible_v<Value, const wchar_t*> &&
              !std::is_constructible_v<Value, int Date::*>);
static_assert(!std::is_constructible_v<String, std::nullptr_t>);
static_assert(!std::is_constructible_v<MutableDictionary, const MutableDictionary&>);
static_assert(!std::is_constructible_v<MutableDictionary, const Dictionary&>);
static_assert(!std::is_assignable_v<MutableDictionary&, const MutableDictionary&>);

TEST(Value, IsMadeAndComparedAsItReads) {
  const char* const none = nullptr;
  EXPECT_TRUE(Value(none).isNil() && String(none).isNil());
  EXPECT_TRUE(String() == none && none == String());
  EXPECT_FALSE(String("") == none || String() == "" || String() == std::string());
  const String text = "x";
  const std::string same = "x";
  EXPECT_TRUE(text == same && same == text && text == "x" && "x" == text);
  EXPECT_TRUE(text == std::string_view(same) && std::string_view(same) == text);
  EXPECT_TRUE(text != same + "y" && same + "y" != text && text != std::string_view() && text != "y");
  EXPECT_EQ(Value(Array({text})), array("x"));
  EXPECT_TRUE(Value(same == text) == true);
}

TEST(Value, HasTheIdentityOfItsObject) {
  const Dictionary file = fromFile({{"a", array(1)}, {"b", array(2)}, {"c", 3}});
  MutableDictionary live;
  const MutableDictionary same = live.share();
  const std::unordered_set<ValueIdentity> objects = {Value(file).identity(), file.find("a").identity(),
                                                     file.find("b").identity(), Value(live).identity()};
  EXPECT_EQ(objects.size(), 4U);
  EXPECT_TRUE(objects.contains(file.find("b").identity()) && objects.contains(Value(same).identity()));
  EXPECT_FALSE(objects.contains(Value(MutableDictionary::copyOf(live)).identity()));
  EXPECT_EQ(file.find("c").identity(), ValueIdentity());
}

TEST(Date, ConvertsToTheSystemsClockAndBack) {
  using Clock = std::chrono::system_clock;
  using namespace std::chrono_literals;
  const Clock::time_point reference = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);
  const std::pair<const char*, Clock::duration> exact[] = {
      {"the reference", 0s},           {"a fraction", 1500ms}, {"a fraction before", -1500ms},
      {"1970", -978307200s},           {"2100", 3124224000s},  {"nearly the first", -8200000000s},
      {"nearly the last", 8200000000s}};
  for (const auto& [name, offset] : exact) {
    const Date date = Date::fromTimePoint(reference + offset);
    EXPECT_EQ(date.secondsSinceReference, std::chrono::duration<double>(offset).count()) << name;
    EXPECT_EQ(date.timePoint(), reference + offset) << name;
  }
  const Clock::time_point now = Clock::now();
  EXPECT_LE(std::chrono::abs(*Date::fromTimePoint(now).timePoint() - now), 120ns);
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
  EXPECT_EQ(dictionary, otherOrder);
  EXPECT_EQ(fromFile(dictionary), otherOrder);
  EXPECT_EQ(MutableDictionary::copyOf(fromFile(otherOrder)), dictionary);
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
    EXPECT_TRUE(on.booleanValue()) << describe(on);
  for (const Value& off : {Value(), Value(false), Value(0), Value("no"), Value("00"), array(1)})
    EXPECT_FALSE(off.booleanValue()) << describe(off);
}

TEST(MutableDictionary, CopiesShareEntriesUntilOneOfThemChanges) {
  struct Plain : std::vector<std::pair<std::string, int>> {
    std::string text() const {
      std::string text = "{";
      for (const auto& [key, value] : *this)
        text += (text.size() == 1 ? "" : "; ") + key + " = " + std::to_string(value);
      return text + "}";
    }
  };
  const Dictionary base = fromFile({{"a", 1}, {"b", 2}, {"c", 3}});
  for (unsigned seed = 0; seed < 30; ++seed) {
    std::mt19937 random(seed);
    std::vector<std::pair<MutableDictionary, Plain>> live;
    std::vector<std::pair<Dictionary, Plain>> copies(3, {base, {{{"a", 1}, {"b", 2}, {"c", 3}}}});
    for (auto& [copy, plain] : copies) live.emplace_back(MutableDictionary::copyOf(copy), plain);
    for (int step = 0; step < 300; ++step) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
      auto& [dictionary, plain] = live[random() % live.size()];
      const std::string key(1, static_cast<char>('a' + random() % 5));
      const auto known =
          std::find_if(plain.begin(), plain.end(), [&](auto& entry) { return entry.first == key; });
      switch (random() % 4) {
        case 0:
          dictionary.set(key, step);
          (known == plain.end() ? plain.emplace_back(key, 0) : *known).second = step;
          break;
        case 1:
          dictionary.set(key, Value());
          if (known != plain.end()) plain.erase(known);
          break;
        case 2: {
          auto& [copy, copied] = copies[random() % copies.size()];
          copy = dictionary.deepCopy();
          copied = plain;
          dictionary.remove("absent");
          ASSERT_TRUE(dictionary.sharesContentsWith(copy));
          break;
        }
        default: {
          const auto& [copy, copied] = copies[random() % copies.size()];
          live[random() % live.size()] = {MutableDictionary::copyOf(copy), copied};
        }
      }
      for (const auto& [changed, expected] : live) ASSERT_EQ(describe(changed), expected.text());
      for (const auto& [copy, expected] : copies) ASSERT_EQ(describe(copy), expected.text());
    }
  }
}

TEST(MutableDictionary, StaysLiveWhereItIsPutButNotInASnapshot) {
  MutableDictionary child;
  auto parent = MutableDictionary::copyOf(fromFile({{"a", 1}}));
  EXPECT_TRUE(parent.deepCopy().sharesContentsWith(parent));
  parent.set("a", 2);
  const Dictionary flat = parent.deepCopy();
  parent.set("ChildAccounts", array(child));
  const Dictionary shallow = MutableDictionary::copyOf(parent);
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
    auto dictionary = MutableDictionary::copyOf(base);
    for (const DictionaryEntry& entry : dictionary) change(dictionary, entry.key);
  };
  EXPECT_THROW(walk([](auto& dictionary, auto&) { dictionary.set("new", 1); }), EnumerationMutation);
  EXPECT_THROW(walk([](auto& dictionary, auto& key) { dictionary.remove(key); }), EnumerationMutation);
  EXPECT_NO_THROW(walk([](auto& dictionary, auto& key) { dictionary.set(key, "changed"); }));
  EXPECT_NO_THROW(walk([](auto& dictionary, auto&) { dictionary.remove("absent"); }));
  EXPECT_NO_THROW(walk([](auto& dictionary, auto&) { EXPECT_EQ(dictionary.deepCopy(), dictionary); }));
}

TEST(TextTable, HasASeedAndXmlIsReadWhereTheSystemGivesNoRandomNumbers) {
  const pid_t process = fork();
  if (process == 0) {
    // Neither from the call nor from a file: not one can be opened any more.
    const rlimit noFiles{0, 0};
    sock_filter refusing[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_getrandom, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(refusing), refusing};
    const bool isRefused = setrlimit(RLIMIT_NOFILE, &noFiles) == 0 &&
                           prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    if (!isRefused) _exit(77);
    _exit(drawSeed() != drawSeed() && parse("<plist><true/></plist>") ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(process, &status, 0), process);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "the system has no filters for calls";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "ended with status " << status;
  EXPECT_NE(drawSeed(), drawSeed());
}

TEST(OrderedMap, BehavesLikeAPlainList) {
  for (const unsigned keys : {5U, 17U, 40U, 400U}) {
    std::mt19937 random(keys);
    OrderedMap<int> map;
    std::vector<std::pair<std::string, int>> plain;
    for (int step = 0; step < 6000; ++step) {
      SCOPED_TRACE(std::to_string(keys) + " keys, step " + std::to_string(step));
      const std::string key = "key" + std::to_string(random() % keys);
      const auto known =
          std::find_if(plain.begin(), plain.end(), [&](auto& entry) { return entry.first == key; });
      const bool isKnown = known != plain.end();
      ASSERT_EQ(map.find(key) != nullptr, isKnown);
      const bool isGrowing = step % 1000 < 500;
      if (random() % 3 == 0 ? isGrowing : !isGrowing) {
        ASSERT_EQ(map.erase(key), isKnown);
        if (isKnown) plain.erase(known);
      } else {
        map.set(key, step);
        (isKnown ? *known : plain.emplace_back(key, 0)).second = step;
      }
      if (random() % 500 == 0) map.reserve(random() % 100);
      ASSERT_EQ(map.size(), plain.size());
      if (step % 97 != 0) continue;
      std::vector<std::pair<std::string, int>> entries;
      for (const auto& [stored, value] : map) entries.emplace_back(stored.str(), value);
      ASSERT_EQ(entries, plain);
    }
  }
}

}  // namespace
}  // namespace roster::testing
