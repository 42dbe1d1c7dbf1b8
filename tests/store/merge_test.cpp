#include "store/merge.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <string>

namespace roster {
namespace {

/// A dictionary as the plainest thing there is.
using Plain = std::map<std::string, int>;

constexpr std::array keys = {"a", "b", "c"};
constexpr int states = 3;  // absent, 1, 2
constexpr int versions = states * states * states;

Plain plainVersion(int number) {
  Plain plain;
  for (const char* key : keys) {
    if (number % states != 0) plain[key] = number % states;
    number /= states;
  }
  return plain;
}

Dictionary dictionary(const Plain& plain) {
  MutableDictionary built;
  for (const auto& [key, value] : plain) built.set(key, value);
  return built;
}

/// The rule, one key at a time.
Plain expectedMerge(const Plain& memory, const Plain& original, const Plain& disk) {
  if (original.empty() || disk.empty()) return memory;
  Plain merged;
  for (const char* key : keys) {
    const bool isUntouched = memory.contains(key) == original.contains(key) &&
                             (!memory.contains(key) || memory.at(key) == original.at(key));
    const Plain& winner = isUntouched ? disk : memory;
    if (winner.contains(key)) merged[key] = winner.at(key);
  }
  return merged;
}

TEST(Merge, GivesWhatTheRuleSaysForEveryThreeSmallVersions) {
  for (int m = 0; m < versions; ++m) {
    for (int o = 0; o < versions; ++o) {
      for (int d = 0; d < versions; ++d) {
        const Plain memory = plainVersion(m);
        const Plain original = plainVersion(o);
        const Plain disk = plainVersion(d);
        const Dictionary merged = mergeProperties(dictionary(memory), dictionary(original), dictionary(disk));
        ASSERT_EQ(merged, dictionary(expectedMerge(memory, original, disk))) << m << ' ' << o << ' ' << d;
      }
    }
  }
}

TEST(Merge, WithoutAnOriginalOrAFileVersionIsMemoryItself) {
  const Dictionary memory{{"a", 1}};
  const Dictionary other{{"a", 2}};
  EXPECT_TRUE(mergeProperties(memory, Dictionary(), other).isIdenticalTo(memory));
  EXPECT_TRUE(mergeProperties(memory, other, Dictionary()).isIdenticalTo(memory));
}

TEST(Merge, OfAnUnchangedRecordIsTheFilesVersionButNotTheVeryDictionary) {
  MutableDictionary disk(Dictionary{{"a", 2}});
  const Dictionary memory{{"a", 1}};
  const Dictionary merged = mergeProperties(memory, memory, disk);
  disk.set("a", 3);
  EXPECT_EQ(merged, (Dictionary{{"a", 2}}));
}

}  // namespace
}  // namespace roster
