#include <stdexcept>

#include "diag/debug_log.h"
#include "tests/store/store_test.h"
#include "tests/support/own_process.h"

namespace roster::testing {
namespace {

class ChangesTest : public StoreTest {
 protected:
  static Store storeOf(const Value& accounts) {
    return AccountsManager::initWithAccounsInfoArray(accounts.array().value_or(Array()));
  }
  static std::string children(const Account& parent) {
    std::string text;
    for (const Value& child : parent->accountPropertyForKey("ChildAccounts").array().value_or(Array())) {
      text += (text.empty() ? "" : " ") + child.dictionary()->find("Identifier").string().str();
    }
    return text;
  }
  std::vector<Account> records() const {
    const auto span = store->allBasicAccounts()->span();
    return {span.begin(), span.end()};
  }
  std::string all() const { return identifiers(*store->allBasicAccounts()); }
  std::string indexedChildren() const {
    const std::vector<Account> records = store->allBasicSyncableAccounts();
    return identifiers(std::span(records).subspan(store->count()));
  }

  Store store = storeOf(array(stored("a", {{"ChildAccounts", array(stored("a1"), stored("a2"))}}),
                              stored("b", {{"ChildAccounts", array(stored("b1"))}}), stored("c")));
};

TEST_F(ChangesTest, UpdatePutsTheRecordInPlaceOfEveryOneWithItsIdentifier) {
  store = storeOf(array(stored("a"), stored("b"), stored("a")));
  const Account fresh = record("a", {{"ChildAccounts", array(stored("n"))}});
  store->updateAccount(fresh);
  EXPECT_EQ(records(), (std::vector<Account>{fresh, store->accountWithIdentifier("b"), fresh}));
  EXPECT_EQ(store->accountWithIdentifier("n"), fresh);
  store->deleteAccount(record("a"));
  EXPECT_EQ(all(), "b") << "every occurrence of the very record goes";
}

TEST_F(ChangesTest, UpdateNeverInsertsAndNeverTouchesAChild) {
  store->updateAccount(record("new"));
  store->updateAccount(record("a1", {{"DisplayName", "changed"}}));
  EXPECT_EQ(all(), "a b c");
  EXPECT_TRUE(store->allBasicSyncableAccounts()[3]->displayName().isNil());
}

TEST_F(ChangesTest, InsertAppendsUnlessTheIdentifierIsTaken) {
  const Account first = record("n", {{"ChildAccounts", array(stored("n1"))}});
  store->insertAccount(first);
  store->insertAccount(record("n", {{"DisplayName", "second"}}));
  EXPECT_EQ(all(), "a b c n");
  EXPECT_EQ(store->accountWithIdentifier("n1"), first);
  store->insertAccount(record("a1"));
  EXPECT_EQ(all(), "a b c n a1") << "only top-level identifiers are taken";
}

TEST_F(ChangesTest, DeleteRemovesTheHighestOfThoseWithTheIdentifierAndTheChildren) {
  store = storeOf(array(stored("a"), stored("b"), stored("a", {{"ChildAccounts", array(stored("a1"))}})));
  const Account lower = store->allBasicAccounts()->at(0);
  store->deleteAccount(record("a"));
  EXPECT_EQ(records(), (std::vector<Account>{lower, store->accountWithIdentifier("b")}));
  EXPECT_EQ(store->accountWithIdentifier("a"), nullptr);
  EXPECT_EQ(store->accountWithIdentifier("a1"), nullptr);
  store->deleteAccount(record("nobody"));
  store->deleteAccountWithIdentifier("a");
  store->deleteAccountWithIdentifier("nobody");
  EXPECT_EQ(all(), "a b");
  store->deleteAccountWithIdentifier("b");
  EXPECT_EQ(all(), "a");
}

TEST_F(ChangesTest, ReplaceKeepsThePositionAndLeavesTheNewRecordOutOfTheIndex) {
  const Account old = store->accountWithIdentifier("a");
  const Account fresh = record("n", {{"ChildAccounts", array(stored("n1"))}});
  store->replaceAccountWithAccount(old, fresh);
  EXPECT_EQ(all(), "n b c");
  EXPECT_EQ(store->accountWithIdentifier("n"), nullptr);
  EXPECT_EQ(store->accountWithIdentifier("a"), nullptr);
  EXPECT_EQ(indexedChildren(), "b1 n1");
}

TEST_F(ChangesTest, ReplaceOfARecordThatIsNotInTheStoreIsOutOfRange) {
  EXPECT_THROW(store->replaceAccountWithAccount(record("a"), record("n")), std::out_of_range);
  EXPECT_EQ(all(), "a b c");
  EXPECT_EQ(store->accountWithIdentifier("a"), nullptr) << "the index was changed before";
  EXPECT_EQ(indexedChildren(), "b1");
}

TEST_F(ChangesTest, AnAddedChildSharesItsPropertiesWithItsParentAndIsNotCheckedForDuplicates) {
  const Account parent = store->accountWithIdentifier("c");
  const Account child = record("n");
  store->addChildToAccount(child, parent);
  store->addChildToAccount(child, parent);
  EXPECT_EQ(children(parent), "n n");
  EXPECT_EQ(indexedChildren(), "a1 a2 b1 n");
  EXPECT_NE(store->allBasicSyncableAccounts().back(), child) << "the indexed record is a copy";
  child->setAccountPropertyForKey("later", "DisplayName");
  const Value first = parent->accountPropertyForKey("ChildAccounts").array()->at(0);
  EXPECT_EQ(first.dictionary()->find("DisplayName"), Value("later"));
  store->addChildToAccount(child, nullptr);
}

TEST_F(ChangesTest, RemoveTakesOutEveryChildWithTheIdentifierThatCanBeRead) {
  const Value rejected = stored("x", {{"Type", "Pigeon"}});
  store = storeOf(array(stored("p", {{"ChildAccounts", array(stored("x", {{"Note", 1}}), stored("y"),
                                                             rejected, "text", stored("x", {{"Note", 2}}))}}),
                        stored("q")));
  const Account parent = store->accountWithIdentifier("p");
  store->removeChildWithIdentifierFromAccount("x", parent);
  EXPECT_EQ(parent->accountPropertyForKey("ChildAccounts"), array(stored("y"), rejected, "text"));
  EXPECT_EQ(indexedChildren(), "y");
  store->removeChildWithIdentifierFromAccount("y", store->accountWithIdentifier("q"));
  store->removeChildWithIdentifierFromAccount("y", nullptr);
  EXPECT_TRUE(store->accountWithIdentifier("q")->accountPropertyForKey("ChildAccounts").isNil());
  EXPECT_EQ(store->accountWithIdentifier("y"), parent);
}

TEST_F(ChangesTest, ChildrenAreAttachedToAParentThatComesBeforeThemOnly) {
  const Account parent = record("p");
  const Account child = record("a1");
  child->setParentAccount(parent);
  const Account former = store->accountWithIdentifier("a");
  store->replaceAccountsWithTypesWithAccounts({}, {child, parent});
  EXPECT_EQ(all(), "a b c p");
  EXPECT_EQ(children(former), "a2") << "it has left its former parent";
  EXPECT_EQ(children(parent), "");
  store->replaceAccountsWithTypesWithAccounts({}, {parent, child});
  EXPECT_EQ(children(parent), "a1");
  EXPECT_EQ(store->accountWithIdentifier("a1"), parent);
}

TEST_F(ChangesTest, AChangeDuringAWalkOverTheAccountsEndsTheWalk) {
  const std::function<void()> changes[] = {
      [&] { store->updateAccount(record("b")); },
      [&] { store->insertAccount(record("n")); },
      [&] { store->deleteAccountWithIdentifier("b"); },
      [&] { store->replaceAccountWithAccount(store->allBasicAccounts()->at(0), record("m")); },
      [&] { store->replaceAccountsWithTypesWithAccounts({"Mail"}, {}); },
  };
  for (const auto& change : changes) {
    const auto walk = [&] {
      for (const Account& account : *store->allBasicAccounts()) {
        if (account) change();
      }
    };
    EXPECT_THROW(walk(), EnumerationMutation);
  }
  EXPECT_EQ(all(), "m c n") << "each change itself was made";
}

TEST_F(ChangesTest, RecordsThatLostTheirIdentifierDisturbNobody) {
  store->insertAccount(record(""));
  const Account nameless = record("n");
  nameless->removeAccountPropertyForKey("Identifier");
  store->insertAccount(nameless);
  store->updateAccount(nameless);
  store->deleteAccount(nameless);
  store->replaceAccountsWithTypesWithAccounts({}, {nameless});
  EXPECT_EQ(store->count(), 6U);
  EXPECT_EQ(store->accountWithIdentifier(""), store->allBasicAccounts()->at(3));
}

TEST_F(ChangesTest, MovingManyChildrenGoesThroughAParentsChildrenOnce) {
  // A child that is rejected leaves a line whenever its parent's children are gone through.
  const Value rejected = stored("rejected", {{"Type", "Pigeon"}});
  std::vector<std::size_t> lines;
  for (const int count : {10, 100}) {
    std::vector<Value> old = {rejected};
    std::vector<Account> given = {record("p", {{"ChildAccounts", array(rejected)}})};
    for (int i = 0; i < count; ++i) {
      old.push_back(stored("child" + std::to_string(i)));
      given.push_back(record("child" + std::to_string(i)));
      given.back()->setParentAccount(given.front());
    }
    store = storeOf(array(stored("q", {{"ChildAccounts", Array(std::move(old))}})));
    log.clear();
    store->replaceAccountsWithTypesWithAccounts({}, given);
    lines.push_back(linesWith(log.lines(), "Ignoring unknown child account"));
    EXPECT_EQ(store->allBasicSyncableAccounts().size(), 2U + static_cast<std::size_t>(count));
    EXPECT_EQ(store->accountWithIdentifier("child0"), given.front());
    EXPECT_EQ(store->accountWithIdentifier("q")->accountPropertyForKey("ChildAccounts"), array(rejected));
  }
  EXPECT_EQ(lines[0], lines[1]);
}

class TracedChangesTest : public OwnProcessTest {};

TEST_F(TracedChangesTest, AreTracedWithTheirProperties) {
  OwnProcessTest::device.writePropertyList("home/user/Library/Preferences/GlobalPreferences.plist",
                                           Dictionary{{"RSLoggingEnabled", true}});
  const Store store = AccountsManager::init();
  const Account account = record("a");
  store->insertAccount(account);
  store->insertAccount(account);
  store->updateAccount(account);
  store->replaceAccountWithAccount(account, account);
  store->replaceAccountsWithTypesWithAccounts({}, {});
  store->saveAllAccounts();
  store->deleteAccount(account);
  const std::string properties = LogArgument(account->properties()).text();
  EXPECT_EQ(log.lines(), (Lines{"Inserting account:", "Inserting account:", "Updating account:" + properties,
                                "Replacing accounts", "Saving all accounts",
                                "Merging inmem " + properties + " orig " + properties + " onDisk {}",
                                "merged to " + properties, "CalDAV:" + properties, "Deleting account:"}));
}

}  // namespace
}  // namespace roster::testing
