#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

std::string words(const std::vector<AccountChange>& changes) {
  constexpr std::string_view names[] = {"added", "modified", "removed"};
  std::string text;
  for (const AccountChange& change : changes) {
    text += (text.empty() ? "" : ", ") + std::string(names[change.type]) + " " + change.identifier().str();
  }
  return text;
}

Dictionary child(std::string_view identifier, const Dictionary& more = {}) {
  return stored(identifier, more);
}

class RefreshTest : public StoreTest {
 protected:
  static std::string refreshed(const Store& store) {
    const Result<std::vector<AccountChange>> changes = store->refresh();
    return changes ? words(*changes) : "error";
  }
  static std::string synced(const Store& store) {
    const SyncResult result = store->sync(std::chrono::seconds(5));
    return result.error ? "error: " + result.error->message : words(result.changes);
  }
  static void set(const Store& store, std::string_view identifier, std::string_view key, const Value& value) {
    store->accountWithIdentifier(identifier)->setAccountPropertyForKey(value, key);
  }
};

TEST_F(RefreshTest, BringsInWhatOthersDidAndKeepsWhatThisProgramDid) {
  writeRegistry(stored("A", {{"x", 1}, {"y", 1}}), stored("B"), stored("C"), stored("D"));
  const Store here = AccountsManager::init();
  const Store there = AccountsManager::init();
  const AccountPtr a = here->accountWithIdentifier("A");
  const MutableDictionary live = a->properties();
  set(there, "A", "x", 2);
  there->deleteAccountWithIdentifier("B");
  there->deleteAccountWithIdentifier("C");
  there->insertAccount(record("New"));
  EXPECT_EQ(synced(there), "");
  set(here, "A", "y", 3);
  set(here, "C", "x", 1);
  here->deleteAccountWithIdentifier("D");

  EXPECT_EQ(refreshed(here), "removed B, added New, modified A");
  EXPECT_EQ(identifiers(*here->allBasicAccounts()), "A New C")
      << "the file's order, then what was added here";
  EXPECT_EQ(here->accountWithIdentifier("A"), a);
  EXPECT_EQ(live.find("x"), Value(2)) << "live properties stay live";
  EXPECT_EQ(live.find("y"), Value(3));
  EXPECT_EQ(refreshed(here), "");

  EXPECT_EQ(synced(here), "");
  EXPECT_EQ(synced(there), "removed D, added C, modified A");
  EXPECT_EQ(identifiers(*there->allBasicAccounts()), "A New C");
  const std::string before = registry();
  EXPECT_FALSE(here->sync(std::chrono::seconds(1)).isWritten);
  EXPECT_EQ(registry(), before);
}

TEST_F(RefreshTest, ChildrenAreMergedOneByOneAndKeepTheirRecords) {
  const auto parent = [](std::string_view identifier, const Value& children) {
    return stored(identifier, {{"ChildAccounts", children}});
  };
  writeRegistry(parent("P", array(child("1", {{"x", 1}}), child("2"), "odd")),
                parent("Q", array(child("3"))));
  const Store here = AccountsManager::init();
  const Store there = AccountsManager::init();
  there->removeChildWithIdentifierFromAccount("2", there->accountWithIdentifier("P"));
  there->removeChildWithIdentifierFromAccount("3", there->accountWithIdentifier("Q"));
  there->addChildToAccount(record("3", {{"moved", true}}), there->accountWithIdentifier("P"));
  EXPECT_EQ(synced(there), "");
  here->addChildToAccount(record("4"), here->accountWithIdentifier("P"));
  const AccountPtr one = here->childAccountWithIdentifier("1");
  const AccountPtr three = here->childAccountWithIdentifier("3");

  EXPECT_EQ(refreshed(here), "modified P, modified Q");
  EXPECT_EQ(identifiers(here->childrenOfAccount(here->accountWithIdentifier("P"))), "1 3 4");
  EXPECT_EQ(here->childAccountWithIdentifier("1"), one);
  EXPECT_EQ(here->childAccountWithIdentifier("3"), three);
  EXPECT_EQ(three->parentAccount(), here->accountWithIdentifier("P"));
  EXPECT_EQ(three->accountPropertyForKey("moved"), Value(true));
  EXPECT_EQ(synced(here), "");
  EXPECT_EQ(storedAccount(0).find("ChildAccounts").array()->at(1), Value("odd"));
}

TEST_F(RefreshTest, ListsOfDataclassesAreSets) {
  const auto enabled = [](const StringList& list) {
    return Dictionary{{"Enabled Dataclasses", arrayValue(list)}};
  };
  const std::string mail = "com.nimbal.Dataclass.Mail";
  const std::string notes = "com.nimbal.Dataclass.Notes";
  const std::string contacts = "com.nimbal.Dataclass.Contacts";
  writeRegistry(stored("A", enabled({"z", mail, notes})));
  const Store here = AccountsManager::init();
  const Store there = AccountsManager::init();
  set(there, "A", "Enabled Dataclasses", arrayValue({mail, notes, contacts, "z"}));
  set(here, "A", "Enabled Dataclasses", arrayValue({"z", "y", mail}));
  EXPECT_EQ(synced(there), "");
  EXPECT_EQ(synced(here), "modified A");
  EXPECT_EQ(here->accountWithIdentifier("A")->accountPropertyForKey("Enabled Dataclasses"),
            arrayValue({mail, contacts, "z", "y"}));
}

TEST_F(RefreshTest, AFileThatIsMissingOrDamagedDeletesNothing) {
  writeRegistry(stored("A", {{"x", 1}}), stored("B"));
  const Store here = AccountsManager::init();
  ASSERT_EQ(std::remove(device.registryPath().c_str()), 0);
  EXPECT_EQ(refreshed(here), "");
  device.writeFile(device.registryPath(), "garbage");
  EXPECT_EQ(refreshed(here), "error");
  EXPECT_EQ(here->count(), 2U);
  EXPECT_EQ(synced(AccountsManager::init()).substr(0, 6), "error:") << "it never had what may be in the file";
  EXPECT_EQ(registry(), "garbage");
  EXPECT_EQ(synced(here), "");
  EXPECT_EQ(kept().size(), 1U);
  EXPECT_EQ(identifiers(*AccountsManager::init()->allBasicAccounts()), "A B");
}

TEST_F(RefreshTest, CarriesWhatItMakesNoRecordOf) {
  const Dictionary unknown = stored("U", {{"Type", "Unknown"}});
  writeRegistry(stored("A"), unknown, stored("B"));
  const Store store = AccountsManager::init();
  store->insertAccount(record("C"));
  EXPECT_EQ(synced(store), "");
  EXPECT_EQ(storedAccount(1), unknown);
  EXPECT_EQ(storedAccount(3).find("Identifier"), Value("C"));
}

TEST_F(RefreshTest, AccountsWithoutIdentifiersArePairedByTheirContents) {
  const Dictionary nameless{{"Type", "CalDAV"}, {"Class", "X"}, {"x", 1}};
  writeRegistry(nameless, stored("B"));
  const Store here = AccountsManager::init();
  const Store there = AccountsManager::init();
  EXPECT_EQ(refreshed(here), "");
  set(there, "B", "x", 1);
  EXPECT_EQ(synced(there), "");
  const AccountPtr first = here->allBasicAccounts()->at(0);
  EXPECT_EQ(refreshed(here), "modified B");
  EXPECT_EQ(here->allBasicAccounts()->at(0), first);
  EXPECT_EQ(first->identifier(), there->allBasicAccounts()->at(0)->identifier());
}

}  // namespace
}  // namespace roster::testing
