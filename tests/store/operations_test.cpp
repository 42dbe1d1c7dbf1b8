#include <stdexcept>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

Dictionary parentOf(std::string_view identifier, const Value& children) {
  return stored(identifier, {{"ChildAccounts", children}});
}
class ChangesTest : public StoreTest {
 protected:
  const Store store =
      storeOf(array(parentOf("a", array(stored("a1"))), parentOf("b", array(stored("b1"))), stored("c")));
};

TEST_F(ChangesTest, ToANilRecordAreRefusedBeforeAnythingChanges) {
  const AccountPtr own = store->accountWithIdentifier("a");
  const std::string before = identifiers(store->allBasicSyncableAccounts());
  const std::function<void()> changes[] = {
      [&] { store->insertAccount(nullptr); },
      [&] { store->updateAccount(nullptr); },
      [&] { store->deleteAccount(nullptr); },
      [&] { store->replaceAccountWithAccount(nullptr, record("n")); },
      [&] { store->replaceAccountWithAccount(own, nullptr); },
      [&] {
        store->replaceAccountsWithTypesWithAccounts({"CalDAV"}, {record("n"), nullptr});
      },
      [&] { store->addChildToAccount(nullptr, own); },
      [&] { AccountsManager::accountWillChangeForDataclass(nullptr, "Mail"); },
      [&] { AccountsManager::accountDidChangeForDataclass(nullptr, "Mail"); }};
  for (std::size_t i = 0; i < std::size(changes); ++i) {
    EXPECT_THROW(changes[i](), std::invalid_argument) << i;
    EXPECT_EQ(identifiers(store->allBasicSyncableAccounts()), before) << i;
  }
}

TEST_F(ChangesTest, AChangeDuringAWalkOverTheAccountsEndsTheWalk) {
  const std::function<void()> changes[] = {
      [&] { store->updateAccount(record("b")); },
      [&] { store->insertAccount(record("n")); },
      [&] { store->deleteAccountWithIdentifier("b"); },
      [&] { store->replaceAccountWithAccount(store->allBasicAccounts()->at(0), record("m")); },
      [&] { store->replaceAccountsWithTypesWithAccounts({"Mail"}, {}); },
  };
  for (std::size_t i = 0; i < std::size(changes); ++i) {
    const auto walk = [&] {
      for (const AccountPtr& account : *store->allBasicAccounts()) account ? changes[i]() : void();
    };
    EXPECT_THROW(walk(), EnumerationMutation) << "change " << i;
  }
  EXPECT_EQ(identifiers(*store->allBasicAccounts()), "m c n") << "each change itself was made";
}

TEST_F(ChangesTest, RecordsThatLostTheirIdentifierDisturbNobody) {
  const AccountPtr nameless = record("n");
  nameless->removeAccountPropertyForKey("Identifier");
  store->insertAccount(record(""));
  store->insertAccount(nameless);
  store->updateAccount(nameless);
  store->deleteAccount(nameless);
  store->replaceAccountsWithTypesWithAccounts({}, {nameless});
  EXPECT_EQ(store->count(), 6U);
  store->saveAllAccounts();
  EXPECT_EQ(log.lines().back(),
            nameless->description() + " returned a nil identifier. Account properties may not get saved");
  EXPECT_EQ(store->accountWithIdentifier(""), store->allBasicAccounts()->at(3));
}

TEST_F(ChangesTest, MovingManyChildrenGoesThroughAParentsChildrenOnlyAFewTimes) {
  const Value rejected = stored("rejected", {{"Type", "Pigeon"}});  // each look at it leaves a line
  std::vector<Value> old = {rejected};
  std::vector<AccountPtr> given = {record("p", {{"ChildAccounts", array(rejected)}})};
  for (int i = 0; i < 100; ++i) {
    old.push_back(stored("child" + std::to_string(i)));
    given.push_back(record("child" + std::to_string(i)));
    given.back()->setParentAccount(given.front());
  }
  const Store crowded = storeOf(array(parentOf("q", Array(std::move(old)))));
  log.clear();
  crowded->replaceAccountsWithTypesWithAccounts({}, given);
  EXPECT_LE(linesWith(log.lines(), "Ignoring unknown child account"), 5U);
  EXPECT_EQ(crowded->allBasicSyncableAccounts().size(), 102U);
}

TEST_F(StoreTest, QueriesGoBySyncIdentifierAndTypeAndShowLaterChanges) {
  const Value children = array(stored("c", {{"Type", "CardDAV"}, {"Sync Identifier", "sync c"}}),
                               stored("twin", {{"Sync Identifier", "sync q"}}));
  const Store store =
      storeOf(array(stored("p", {{"Sync Identifier", "sync p"}, {"ChildAccounts", children}}),
                    stored("q", {{"Type", "Exchange"}, {"Sync Identifier", "sync q"}}), stored("r")));
  const auto all = store->allBasicAccounts();
  const AccountPtr child = store->childAccountWithIdentifier("c");
  EXPECT_EQ(store->syncableAccountWithSyncIdentifier("sync c"), child) << "itself, but its parent is shown";
  EXPECT_EQ(store->syncableAccountWithSyncIdentifier("sync q")->identifier(), "q") << "not the child";
  for (const char* shown : {"sync c", "sync p"})
    EXPECT_EQ(store->displayAccountWithSyncIdentifier(shown), all->at(0)) << shown;
  EXPECT_EQ(store->displayAccountWithSyncIdentifier(""), nullptr);
  for (const AccountPtr& none : {AccountPtr(), child, record("p")})
    EXPECT_EQ(store->childrenOfAccount(none).size(), 0U) << "it is not the very parent";
  EXPECT_EQ(identifiers(store->basicAccountsWithTypes({"CalDAV", "CardDAV"})), "p r");
  EXPECT_EQ(store->countOfBasicAccountsWithTypes({"CalDAV", "CardDAV"}), 2U);

  store->insertAccount(record("s", {{"Sync Identifier", ""}}));
  EXPECT_EQ(store->syncableAccountWithSyncIdentifier("")->identifier(), "s");
  EXPECT_EQ(store->syncableAccountWithSyncIdentifier(String()), nullptr) << "nil is not the empty text";
  store->replaceAccountsWithTypesWithAccounts({"Exchange"}, {record("t")});
  store->replaceAccountWithAccount(store->accountWithIdentifier("r"), record("u"));
  EXPECT_EQ(identifiers(*all), "p u s t");

  const auto title = &AccountsManager::displayNameForGroupOfAccountTypeForBeginningOfSentence;
  EXPECT_NE(title("Subscribed Calendar", false), title("Subscribed Calendar", true));
  EXPECT_TRUE(title("CalDAV", true).isNil());
}

}  // namespace
}  // namespace roster::testing
