#include "notify/snapshot.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

using Accounts = std::vector<std::shared_ptr<BasicAccount>>;

class SnapshotTest : public ::testing::Test {
 protected:
  template <class Account = BasicAccount>
  static std::shared_ptr<BasicAccount> account(const Value& identifier, const Value& note = {}) {
    return Account::accountWithProperties(
        {{"Type", "Mail"}, {"Class", "X"}, {"Identifier", identifier}, {"Note", note}});
  }

  TemporaryDevice device;
  CapturedLog log;
};

TEST_F(SnapshotTest, IsReachedByNoLaterChangeHoweverDeep) {
  MutableDictionary child(Dictionary{{"Identifier", "child"}, {"Ports", Dictionary{{"in", 1}}}});
  const auto parent = account("parent", array(child));
  const Snapshot snapshot(Accounts{parent});
  child.set("Identifier", "other");
  parent->setDisplayName("new");
  parent->removeAccountPropertyForKey("Class");

  const Value children = array(Dictionary{{"Identifier", "child"}, {"Ports", Dictionary{{"in", 1}}}});
  const Dictionary expected = {
      {"Type", "Mail"}, {"Class", "X"}, {"Identifier", "parent"}, {"Note", children}};
  ASSERT_EQ(snapshot.propertiesByID().size(), 1U) << "a child has no entry of its own";
  EXPECT_EQ(*snapshot.propertiesByID().find("parent"), expected);
}

TEST_F(SnapshotTest, HoldsTheLastOfThoseWithOneIdentifierAndNoneWithout) {
  EXPECT_TRUE(Snapshot(Accounts{}).propertiesByID().empty());
  const auto nameless = account("gone");
  nameless->removeAccountPropertyForKey("Identifier");
  const Snapshot snapshot(Accounts{account("1", "first"), nameless, account("2"), account("1", "second")});
  ASSERT_EQ(snapshot.propertiesByID().size(), 2U);
  EXPECT_EQ(snapshot.propertiesByID().find("1")->find("Note"), Value("second"));
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{nameless->description() +
                                     " returned a nil identifier. Account properties may not get saved"});
}

class SecretiveAccount : public AccountSubclass<SecretiveAccount> {
 public:
  using AccountSubclass::AccountSubclass;
  String identifier() const override { return "secret"; }
  Dictionary propertiesToSave() const override { return {{"Saved", true}}; }
};

TEST_F(SnapshotTest, AsksTheAccountForItsIdentifierAndForWhatItSaves) {
  const Snapshot snapshot(Accounts{account<SecretiveAccount>("1")});
  ASSERT_TRUE(snapshot.propertiesByID().contains("secret"));
  EXPECT_EQ(*snapshot.propertiesByID().find("secret"), (Dictionary{{"Saved", true}}));
}

}  // namespace
}  // namespace roster::testing
