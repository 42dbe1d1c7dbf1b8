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
  EXPECT_EQ(store->accountWithIdentifier(""), nullptr);
  EXPECT_EQ(store->displayAccountWithSyncIdentifier(""), nullptr);
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

TEST_F(QueriesTest, HaveAGroupTitleForSubscribedCalendarsAlone) {
  const auto title = &AccountsManager::displayNameForGroupOfAccountTypeForBeginningOfSentence;
  EXPECT_NE(title("Subscribed Calendar", false), title("Subscribed Calendar", true));
  EXPECT_TRUE(title("CalDAV", true).isNil());
}

}  // namespace
}  // namespace roster::testing
