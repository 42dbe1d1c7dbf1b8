#include "roster/notify/change_detection.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

Dictionary with(const Dictionary& properties, std::string_view key, const Value& value) {
  auto copy = MutableDictionary::copyOf(properties);
  copy.set(key, value);
  return copy;
}

/// The dataclasses for which the number has a bit; nil for -1.
Value dataclassesOf(int bits) {
  if (bits < 0) return {};
  std::vector<Value> list;
  for (int i = 0; i < 3; ++i) {
    if ((bits >> i & 1) != 0) list.emplace_back("d" + std::to_string(i));
  }
  return Array(list);
}
Value concerned(RSAccountChangeType type, const Dictionary& original, const Dictionary& current) {
  StringList list = concernedDataclasses({type, original, current});
  std::sort(list.begin(), list.end());
  return arrayValue(list);
}

TEST(ChangeDetection, ConcernsWhatWasSwitchedAndWithOtherChangesAllThatIsEnabled) {
  const Dictionary plain{{"Type", "T"}, {"Port", 1}};
  const std::pair<Dictionary, bool> others[] = {{with(plain, "Port", 1.0), false},
                                                {with(plain, "IsActive", true), false},
                                                {with(plain, "ChildAccounts", array(plain)), false},
                                                {with(plain, "Port", 2), true},
                                                {with(plain, "Port", {}), true},
                                                {with(plain, "isActive", true), true}};
  for (int before = -1; before < 8; ++before) {
    for (int now = -1; now < 8; ++now) {
      for (const auto& [other, isChange] : others) {
        const Dictionary original = with(plain, "Enabled Dataclasses", dataclassesOf(before));
        const Dictionary current = with(other, "Enabled Dataclasses", dataclassesOf(now));
        const int was = std::max(before, 0);
        const int is = std::max(now, 0);
        const Value switched = dataclassesOf((was ^ is) | (isChange ? is : 0));
        SCOPED_TRACE(formatted("%@ and %@", original, current));
        EXPECT_EQ(concerned(RSAccountChangeTypeModified, original, current), switched);
        EXPECT_EQ(concerned(RSAccountChangeTypeAdded, {}, current), dataclassesOf(is));
        EXPECT_EQ(concerned(RSAccountChangeTypeRemoved, original, {}), dataclassesOf(was));
      }
    }
  }
}

TEST(ChangeDetection, BetweenSnapshotsTellsWhatWentThenWhatCameThenWhatIsOtherNow) {
  const TemporaryDevice device;
  const AccountPtr same = record("same"), other = record("other"), gone = record("gone");
  const Snapshot before(std::vector{other, gone, same});
  other->setDisplayName("new");
  const Snapshot after(std::vector{record("came"), same, other});
  std::string told;
  for (const AccountChange& change : changesBetween(before, after)) {
    told += std::to_string(change.type) + " " + change.identifier().str() + ", ";
  }
  EXPECT_EQ(told, "2 gone, 0 came, 1 other, ");
  EXPECT_TRUE(changesBetween(after, after).empty());
}

}  // namespace
}  // namespace roster::testing
