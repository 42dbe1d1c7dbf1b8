#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

Store storeOf(const Value& accounts) {
  return AccountsManager::initWithAccounsInfoArray(accounts.array().value_or(Array()));
}

class QueriesTest : public StoreTest {
 protected:
  Store store = storeOf(array(
      stored("p", {{"Sync Identifier", "sync p"},
                   {"ChildAccounts", array(stored("c", {{"Type", "CardDAV"}, {"Sync Identifier", "sync c"}}),
                                           stored("twin", {{"Sync Identifier", "sync q"}}))}}),
      stored("q", {{"Type", "Exchange"}, {"Sync Identifier", "sync q"}}), stored("r")));
};

TEST_F(QueriesTest, FindATopLevelRecordAndAChildsParentByIdentifier) {
  const Account parent = store->allBasicAccounts()->at(0);
  EXPECT_EQ(store->accountWithIdentifier("p"), parent);
  EXPECT_EQ(store->accountWithIdentifier("c"), parent);
  EXPECT_EQ(store->accountWithIdentifier("nobody"), nullptr);
  EXPECT_EQ(store->accountWithIdentifier(""), nullptr);
}

TEST_F(QueriesTest, FindAChildByItsSyncIdentifierAndItsParentForDisplay) {
  const Account child = store->syncableAccountWithSyncIdentifier("sync c");
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->identifier(), "c");
  EXPECT_EQ(store->displayAccountWithSyncIdentifier("sync c"), store->accountWithIdentifier("p"));
  EXPECT_EQ(store->displayAccountWithSyncIdentifier("sync p"), store->accountWithIdentifier("p"));
  for (const char* unknown : {"nobody", ""}) {
    EXPECT_EQ(store->syncableAccountWithSyncIdentifier(unknown), nullptr);
    EXPECT_EQ(store->displayAccountWithSyncIdentifier(unknown), nullptr);
  }
}

TEST_F(QueriesTest, ListAndCountByTypeWithoutChildren) {
  EXPECT_EQ(identifiers(store->basicAccountsWithTypes({"CalDAV", "CardDAV"})), "p r");
  EXPECT_EQ(identifiers(store->basicAccountsWithTypes(TypeSet(std::vector<std::string>{"Exchange"}))), "q");
  EXPECT_EQ(store->countOfBasicAccountsWithTypes({"CalDAV"}), 2U);
  EXPECT_EQ(store->countOfBasicAccountsWithTypes({"CardDAV"}), 0U);
  EXPECT_EQ(store->countOfBasicAccountsWithTypes({}), 0U);
  EXPECT_EQ(store->count(), 3U);
  EXPECT_EQ(identifiers(store->allBasicSyncableAccounts()), "p q r c twin");
}

TEST_F(QueriesTest, ShowLaterChangesThroughTheListOfAllAccounts) {
  const auto all = store->allBasicAccounts();
  store->insertAccount(record("s"));
  store->replaceAccountsWithTypesWithAccounts({"Exchange"}, {record("t")});
  store->replaceAccountWithAccount(store->accountWithIdentifier("r"), record("u"));
  EXPECT_EQ(identifiers(*all), "p u s t");
  EXPECT_EQ(all, store->allBasicAccounts());
}

TEST_F(QueriesTest, HaveAGroupTitleForSubscribedCalendarsAlone) {
  const auto title = &AccountsManager::displayNameForGroupOfAccountTypeForBeginningOfSentence;
  EXPECT_FALSE(title("Subscribed Calendar", true).isEmpty());
  EXPECT_FALSE(title("Subscribed Calendar", false).isEmpty());
  EXPECT_NE(title("Subscribed Calendar", false), title("Subscribed Calendar", true));
  EXPECT_TRUE(title("Subscribed Calendars", true).isNil());
  EXPECT_TRUE(title("CalDAV", true).isNil());
}

}  // namespace
}  // namespace roster::testing
