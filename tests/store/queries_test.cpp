#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

class QueriesTest : public StoreTest {
 protected:
  const Store store = storeOf(array(
      stored("p", {{"Sync Identifier", "sync p"},
                   {"ChildAccounts", array(stored("c", {{"Type", "CardDAV"}, {"Sync Identifier", "sync c"}}),
                                           stored("twin", {{"Sync Identifier", "sync q"}}))}}),
      stored("q", {{"Type", "Exchange"}, {"Sync Identifier", "sync q"}}), stored("r")));
};

TEST_F(QueriesTest, FindAChildsParentButTheChildItselfByItsSyncIdentifier) {
  const AccountPtr parent = store->allBasicAccounts()->at(0);
  EXPECT_EQ(store->accountWithIdentifier("p"), parent);
  EXPECT_EQ(store->accountWithIdentifier("c"), parent);
  EXPECT_EQ(store->syncableAccountWithSyncIdentifier("sync c")->identifier(), "c");
  EXPECT_EQ(store->displayAccountWithSyncIdentifier("sync c"), parent);
  EXPECT_EQ(store->displayAccountWithSyncIdentifier("sync p"), parent);
  const AccountPtr child = store->childAccountWithIdentifier("c");
  EXPECT_EQ(child, store->syncableAccountWithSyncIdentifier("sync c"));
  EXPECT_EQ(child->parentAccount(), parent);
  for (const char* none : {"p", "", "unknown"})
    EXPECT_EQ(store->childAccountWithIdentifier(none), nullptr) << none;
  EXPECT_EQ(store->accountWithIdentifier(""), nullptr);
  EXPECT_EQ(store->displayAccountWithSyncIdentifier(""), nullptr);
  store->insertAccount(record("s", {{"Sync Identifier", ""}}));
  EXPECT_EQ(store->syncableAccountWithSyncIdentifier("")->identifier(), "s");
  EXPECT_EQ(store->syncableAccountWithSyncIdentifier(String()), nullptr) << "nil is not the empty text";
}

TEST_F(QueriesTest, ListByTypeWithoutChildrenAndShowLaterChangesThroughTheListOfAll) {
  EXPECT_EQ(identifiers(store->basicAccountsWithTypes({"CalDAV", "CardDAV"})), "p r");
  EXPECT_EQ(store->countOfBasicAccountsWithTypes({"CalDAV", "CardDAV"}), 2U);
  const auto all = store->allBasicAccounts();
  store->insertAccount(record("s"));
  store->replaceAccountsWithTypesWithAccounts({"Exchange"}, {record("t")});
  store->replaceAccountWithAccount(store->accountWithIdentifier("r"), record("u"));
  EXPECT_EQ(identifiers(*all), "p u s t");
}

TEST_F(QueriesTest, ListTheChildrenOfTheVeryParentOnly) {
  const AccountPtr parent = store->accountWithIdentifier("p");
  EXPECT_EQ(identifiers(store->childrenOfAccount(parent)), "c twin");
  for (const AccountPtr& none : {AccountPtr(), store->childAccountWithIdentifier("c"), record("p")}) {
    EXPECT_EQ(store->childrenOfAccount(none).size(), 0U) << (none ? none->identifier().str() : "nil");
  }
}

TEST_F(QueriesTest, HaveAGroupTitleForSubscribedCalendarsAlone) {
  const auto title = &AccountsManager::displayNameForGroupOfAccountTypeForBeginningOfSentence;
  EXPECT_NE(title("Subscribed Calendar", false), title("Subscribed Calendar", true));
  EXPECT_TRUE(title("CalDAV", true).isNil());
}

}  // namespace
}  // namespace roster::testing
