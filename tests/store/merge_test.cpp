#include "roster/store/merge.h"

#include <gtest/gtest.h>

#include <array>

#include "roster/value/mutable_dictionary.h"

namespace roster {
namespace {

constexpr std::array keys = {"a", "b", "c"};
constexpr int states = 3;  // absent, 1, 2
constexpr int versions = states * states * states;

Dictionary version(int number) {
  MutableDictionary built;
  for (const char* key : keys) {
    if (number % states != 0) built.set(key, number % states);
    number /= states;
  }
  return built;
}

/// The rule, one key at a time.
Dictionary expectedMerge(const Dictionary& memory, const Dictionary& original, const Dictionary& disk) {
  if (original.empty() || disk.empty()) return memory;
  MutableDictionary merged;
  for (const char* key : keys) {
    const bool isUntouched = memory.find(key) == original.find(key);
    merged.set(key, isUntouched ? disk.find(key) : memory.find(key));
  }
  return merged;
}

TEST(Merge, GivesWhatTheRuleSaysForEveryThreeSmallVersions) {
  for (int number = 0; number < versions * versions * versions; ++number) {
    const Dictionary memory = version(number % versions);
    const Dictionary original = version(number / versions % versions);
    const Dictionary disk = version(number / versions / versions);
    ASSERT_EQ(mergeProperties(memory, original, disk), expectedMerge(memory, original, disk)) << number;
  }
}

}  // namespace
}  // namespace roster
