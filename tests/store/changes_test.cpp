#include <stdexcept>

#include "diag/debug_log.h"
#include "tests/store/store_test.h"
#include "tests/support/own_process.h"

namespace roster::testing {
namespace {

Dictionary parentOf(std::string_view identifier, const Value& children) {
  return stored(identifier, {{"ChildAccounts", children}});
}
std::string children(const Account& parent) {
  std::string text;
  for (const Value& child : parent->accountPropertyForKey("ChildAccounts").array().value_or(Array())) {
    text += (text.empty() ? "" : " ") + child.dictionary()->find("Identifier").string().str();
  }
  return text;
}

class ChangesTest : public StoreTest {
 protected:
  static Store usualStore() {
    return storeOf(
        array(parentOf("a", array(stored("a1"))), parentOf("b", array(stored("b1"))), stored("c")));
  }
  std::string all() const { return identifiers(*store->allBasicAccounts()); }
  std::string indexedChildren() const {
    const std::vector<Account> records = store->allBasicSyncableAccounts();
    return identifiers(std::span(records).subspan(store->count()));
  }
  /// The accounts, the indexed children, and the accounts found by identifier.
  std::string state() const {
    std::vector<Account> found;
    for (const char* identifier : {"a", "b", "c", "n", "a1", "b1", "n1"}) {
      if (const Account account = store->accountWithIdentifier(identifier)) found.push_back(account);
    }
    return all() + " | " + indexedChildren() + " | " + identifiers(found);
  }

  Store store = usualStore();
};

TEST_F(ChangesTest, ReachTheAccountsTheirChildrenAndTheIndexes) {
  const auto fresh = [](std::string_view id) {
    return BasicAccount::accountWithProperties(parentOf(id, array(stored("n1"))));
  };
  const std::pair<std::function<void()>, std::string> rows[] = {
      {[&] { store->updateAccount(record("n")); }, "a b c | a1 b1 | a b c a b"},
      {[&] { store->updateAccount(record("a1")); }, "a b c | a1 b1 | a b c a b"},
      {[&] { store->updateAccount(fresh("a")); }, "a b c | b1 n1 | a b c b a"},
      {[&] { store->insertAccount(fresh("n")); }, "a b c n | a1 b1 n1 | a b c n a b n"},
      {[&] { store->insertAccount(fresh("a")); }, "a b c | a1 b1 | a b c a b"},
      {[&] { store->insertAccount(record("a1")); }, "a b c a1 | a1 b1 | a b c a1 b"},
      {[&] { store->deleteAccount(record("a")); }, "b c | b1 | b c b"},
      {[&] { store->deleteAccountWithIdentifier("b"); }, "a c | a1 | a c a"},
      {[&] { store->deleteAccountWithIdentifier("a1"); }, "a b c | a1 b1 | a b c a b"},
      {[&] { store->replaceAccountWithAccount(store->accountWithIdentifier("a"), fresh("n")); },
       "n b c | b1 n1 | b c b"},
      {[&] { EXPECT_THROW(store->replaceAccountWithAccount(record("a"), fresh("n")), std::out_of_range); },
       "a b c | b1 | b c b"},
  };
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    store = usualStore();
    rows[i].first();
    EXPECT_EQ(state(), rows[i].second) << i;
  }
}

TEST_F(ChangesTest, OfOneOfTwinsUpdateBothButDeleteTheHigherOne) {
  store = storeOf(array(stored("a"), stored("b"), parentOf("a", array(stored("a1")))));
  const Account lower = store->allBasicAccounts()->at(0);
  store->deleteAccount(record("a"));
  EXPECT_EQ(store->allBasicAccounts()->at(0), lower);
  EXPECT_EQ(state(), "a b |  | b");
  store->deleteAccountWithIdentifier("a");
  EXPECT_EQ(all(), "a b") << "it is not found, and so not deleted";

  store = storeOf(array(stored("a"), stored("b"), stored("a")));
  const Account fresh = record("a");
  store->updateAccount(fresh);
  EXPECT_EQ(store->allBasicAccounts()->at(0), fresh);
  EXPECT_EQ(store->allBasicAccounts()->at(2), fresh);
  store->deleteAccount(record("a"));
  EXPECT_EQ(all(), "b") << "every occurrence of the very record goes";
}

TEST_F(ChangesTest, AnAddedChildSharesItsPropertiesWithItsParentAndIsNotCheckedForDuplicates) {
  const Account parent = store->accountWithIdentifier("c");
  const Account child = record("n");
  store->addChildToAccount(child, parent);
  store->addChildToAccount(child, parent);
  store->addChildToAccount(child, nullptr);
  EXPECT_EQ(children(parent), "n n");
  EXPECT_EQ(indexedChildren(), "a1 b1 n");
  EXPECT_NE(store->allBasicSyncableAccounts().back(), child) << "the indexed record is a copy";
  child->setAccountPropertyForKey("later", "DisplayName");
  const Value first = parent->accountPropertyForKey("ChildAccounts").array()->at(0);
  EXPECT_EQ(first.dictionary()->find("DisplayName"), Value("later"));
}

TEST_F(ChangesTest, RemoveTakesOutEveryChildWithTheIdentifierThatCanBeRead) {
  const Value rejected = stored("x", {{"Type", "Pigeon"}});
  store = storeOf(
      array(parentOf("p", array(stored("x"), stored("y"), rejected, "text", stored("x"))), stored("q")));
  const Account parent = store->accountWithIdentifier("p");
  store->removeChildWithIdentifierFromAccount("x", parent);
  store->removeChildWithIdentifierFromAccount("y", store->accountWithIdentifier("q"));
  store->removeChildWithIdentifierFromAccount("y", nullptr);
  EXPECT_EQ(parent->accountPropertyForKey("ChildAccounts"), array(stored("y"), rejected, "text"));
  EXPECT_TRUE(store->accountWithIdentifier("q")->accountPropertyForKey("ChildAccounts").isNil());
  EXPECT_EQ(store->accountWithIdentifier("y"), parent);
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
  const Account nameless = record("n");
  nameless->removeAccountPropertyForKey("Identifier");
  store->insertAccount(record(""));
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
  for (const std::size_t count : {10U, 100U}) {
    std::vector<Value> old = {rejected};
    std::vector<Account> given = {record("p", {{"ChildAccounts", array(rejected)}})};
    for (std::size_t i = 0; i < count; ++i) {
      old.push_back(stored("child" + std::to_string(i)));
      given.push_back(record("child" + std::to_string(i)));
      given.back()->setParentAccount(given.front());
    }
    store = storeOf(array(parentOf("q", Array(std::move(old)))));
    log.clear();
    store->replaceAccountsWithTypesWithAccounts({}, given);
    lines.push_back(linesWith(log.lines(), "Ignoring unknown child account"));
    EXPECT_EQ(store->allBasicSyncableAccounts().size(), 2U + count);
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
