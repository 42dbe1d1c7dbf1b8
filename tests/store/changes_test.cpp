#include <stdexcept>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

Dictionary parentOf(std::string_view identifier, const Value& children) {
  return stored(identifier, {{"ChildAccounts", children}});
}
class ChangesTest : public StoreTest {
 protected:
  static Store usualStore() {
    return storeOf(
        array(parentOf("a", array(stored("a1"))), parentOf("b", array(stored("b1"))), stored("c")));
  }
  std::string all() const { return identifiers(*store->allBasicAccounts()); }
  std::string indexedChildren() const {
    const std::vector<AccountPtr> records = store->allBasicSyncableAccounts();
    return identifiers(std::span(records).subspan(store->count()));
  }
  /// The accounts, the indexed children, and the accounts found by identifier.
  std::string state() const {
    std::vector<AccountPtr> found;
    for (const char* identifier : {"a", "b", "c", "n", "a1", "b1", "n1"}) {
      if (const AccountPtr account = store->accountWithIdentifier(identifier)) found.push_back(account);
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
    EXPECT_EQ(state(), rows[i].second) << "row " << i;
  }
}

TEST_F(ChangesTest, ToANilRecordAreRefusedBeforeAnythingChanges) {
  const AccountPtr own = store->accountWithIdentifier("a");
  const std::string before = state();
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"insert", [&] { store->insertAccount(nullptr); }},
      {"update", [&] { store->updateAccount(nullptr); }},
      {"delete", [&] { store->deleteAccount(nullptr); }},
      {"replace nil", [&] { store->replaceAccountWithAccount(nullptr, record("n")); }},
      {"replace by nil", [&] { store->replaceAccountWithAccount(own, nullptr); }},
      {"replace many",
       [&] {
         store->replaceAccountsWithTypesWithAccounts({"CalDAV"}, {record("n"), nullptr});
       }},
      {"add a child", [&] { store->addChildToAccount(nullptr, own); }},
      {"will change", [] { AccountsManager::accountWillChangeForDataclass(nullptr, "Mail"); }},
      {"did change", [] { AccountsManager::accountDidChangeForDataclass(nullptr, "Mail"); }},
  };
  for (const auto& [name, change] : rows) {
    EXPECT_THROW(change(), std::invalid_argument) << name;
    EXPECT_EQ(state(), before) << name;
  }
}

TEST_F(ChangesTest, OfOneOfTwinsUpdateBothButDeleteTheHigherOne) {
  store = storeOf(array(stored("a"), stored("b"), parentOf("a", array(stored("a1")))));
  const AccountPtr lower = store->allBasicAccounts()->at(0);
  store->deleteAccount(record("a"));
  EXPECT_EQ(store->allBasicAccounts()->at(0), lower);
  EXPECT_EQ(state(), "a b |  | b");

  store = storeOf(array(stored("a"), stored("b"), stored("a")));
  store->updateAccount(record("a"));
  EXPECT_EQ(store->allBasicAccounts()->at(0), store->allBasicAccounts()->at(2));
  store->deleteAccount(record("a"));
  EXPECT_EQ(all(), "b") << "every occurrence of the very record goes";
}

TEST_F(ChangesTest, AddAChildUncheckedAndRemoveEveryOneWithTheIdentifierThatCanBeRead) {
  const Value rejected = stored("n", {{"Type", "Pigeon"}});
  store = storeOf(array(parentOf("p", array(stored("n"), stored("y"), rejected, "text")), stored("q")));
  const AccountPtr parent = store->accountWithIdentifier("p");
  const AccountPtr child = record("n");
  store->addChildToAccount(child, parent);
  store->addChildToAccount(child, nullptr);
  child->setAccountPropertyForKey("later", "DisplayName");
  const Value children = parent->accountPropertyForKey("ChildAccounts");
  EXPECT_EQ(children, array(stored("n"), stored("y"), rejected, "text", child->properties()))
      << "it shares its properties with its parent";
  EXPECT_EQ(indexedChildren(), "n y");
  store->removeChildWithIdentifierFromAccount("n", parent);
  store->removeChildWithIdentifierFromAccount("y", store->accountWithIdentifier("q"));
  store->removeChildWithIdentifierFromAccount("y", nullptr);
  EXPECT_EQ(parent->accountPropertyForKey("ChildAccounts"), array(stored("y"), rejected, "text"));
  EXPECT_TRUE(store->accountWithIdentifier("q")->accountPropertyForKey("ChildAccounts").isNil());
  EXPECT_EQ(store->accountWithIdentifier("y"), parent);
}

TEST_F(ChangesTest, AChangeDuringAWalkOverTheAccountsEndsTheWalk) {
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"update", [&] { store->updateAccount(record("b")); }},
      {"insert", [&] { store->insertAccount(record("n")); }},
      {"delete", [&] { store->deleteAccountWithIdentifier("b"); }},
      {"replace one",
       [&] { store->replaceAccountWithAccount(store->allBasicAccounts()->at(0), record("m")); }},
      {"replace many", [&] { store->replaceAccountsWithTypesWithAccounts({"Mail"}, {}); }},
  };
  for (const auto& [name, change] : changes) {
    const auto walk = [this, &make = change] {
      for (const AccountPtr& account : *store->allBasicAccounts()) {
        if (account) make();
      }
    };
    EXPECT_THROW(walk(), EnumerationMutation) << name;
  }
  EXPECT_EQ(all(), "m c n") << "each change itself was made";
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
  store = storeOf(array(parentOf("q", Array(std::move(old)))));
  log.clear();
  store->replaceAccountsWithTypesWithAccounts({}, given);
  EXPECT_LE(linesWith(log.lines(), "Ignoring unknown child account"), 5U);
  EXPECT_EQ(store->allBasicSyncableAccounts().size(), 102U);
}

}  // namespace
}  // namespace roster::testing
