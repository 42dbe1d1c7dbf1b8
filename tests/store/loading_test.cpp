#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

class LoadingTest : public StoreTest {};

constexpr std::string_view failedLine =
    "[-[AccountsManager _initWithAccountsInfo:]] ERROR: Failed to create a BasicAccount from ";

std::string description(const Value& value) { return LogArgument(value).text(); }

TEST_F(LoadingTest, FindsAnEmptyStoreWithoutAFileAndSaysNothing) {
  const Store store = AccountsManager::init();
  EXPECT_EQ(store->count(), 0U);
  EXPECT_EQ(store->dataVersion(), 0);
  EXPECT_EQ(AccountsManager::fullPathToRosterPlist(), device.registryPath());
  EXPECT_EQ(AccountsManager::currentVersion(), 12U);
  EXPECT_EQ(log.lines(), Lines());
  EXPECT_EQ(files(), Lines()) << "a load writes nothing";
}

TEST_F(LoadingTest, KeepsTheOrderOfTheFileAndTakesItsVersion) {
  for (const Value& version : {Value(11), Value(), Value("12")}) {
    device.writePropertyList(device.registryPath(),
                             Dictionary{{"Accounts", array(stored("c"), stored("a"), stored("b"))},
                                        {"Version", version},
                                        {"Other", array(1)}});
    const Store store = AccountsManager::init();
    EXPECT_EQ(identifiers(*store->allBasicAccounts()), "c a b");
    EXPECT_EQ(store->dataVersion(), version.integer().value_or(0));
  }
  EXPECT_EQ(log.lines(), Lines());
}

TEST_F(LoadingTest, OfTwoEntriesWithOneIdentifierKeepsBothAndFindsTheLater) {
  writeRegistry(stored("a", {{"Note", 1}}), stored("b"), stored("a", {{"Note", 2}}));
  const Store store = AccountsManager::init();
  EXPECT_EQ(identifiers(*store->allBasicAccounts()), "a b a");
  EXPECT_EQ(store->accountWithIdentifier("a"), store->allBasicAccounts()->at(2));
}

TEST_F(LoadingTest, SkipsEntriesItCannotMakeARecordOf) {
  const std::string typeLine = "[-[BasicAccount initWithProperties:]] Invalid account type: ";
  const std::string classLine = "[-[BasicAccount initWithProperties:]] Missing account class.";
  const struct {
    Value entry;
    Lines before;
  } rows[] = {
      {stored("x", {{"Type", "Pigeon"}}), {typeLine + "Pigeon"}},
      {stored("x", {{"Type", 5}}), {typeLine + "5"}},
      {stored("x", {{"Class", ""}}), {classLine}},
      {stored("x", {{"Class", 5}}), {classLine}},
      {Dictionary(), {typeLine + "(null)", classLine}},
  };
  for (const auto& row : rows) {
    writeRegistry(stored("a"), row.entry, stored("b"));
    log.clear();
    EXPECT_EQ(identifiers(*AccountsManager::init()->allBasicAccounts()), "a b");
    Lines expected = row.before;
    expected.push_back(std::string(failedLine) + description(row.entry));
    EXPECT_EQ(log.lines(), expected);
  }
}

TEST_F(LoadingTest, IndexesChildrenOneLevelDeep) {
  const Dictionary grandchild = stored("grandchild");
  writeRegistry(stored("p", {{"ChildAccounts",
                              array(stored("c1", {{"ChildAccounts", array(grandchild)}}), stored("c2"))}}),
                stored("q", {{"ChildAccounts", array(stored("c3"))}}));
  const Store store = AccountsManager::init();
  EXPECT_EQ(store->count(), 2U);
  EXPECT_EQ(identifiers(store->allBasicSyncableAccounts()), "p q c1 c2 c3");
  EXPECT_EQ(store->allBasicSyncableAccounts()[2]->parentAccount(), store->allBasicAccounts()->at(0));
  EXPECT_EQ(store->accountWithIdentifier("grandchild"), nullptr);
}

TEST_F(LoadingTest, GivesAChildWithoutIdentifierAnotherOneOnEveryLoad) {
  writeRegistry(stored("p", {{"ChildAccounts", array(Dictionary{{"Type", "CalDAV"}, {"Class", "X"}})}}));
  const Store first = AccountsManager::init();
  const Store second = AccountsManager::init();
  const Account child = first->allBasicSyncableAccounts().at(1);
  EXPECT_EQ(first->accountWithIdentifier(child->identifier()), first->accountWithIdentifier("p"));
  EXPECT_EQ(second->accountWithIdentifier(child->identifier()), nullptr);
}

TEST_F(LoadingTest, LeavesARejectedChildInItsParentsData) {
  const Value children = array(stored("c", {{"Class", ""}}), "no dictionary", stored("d"));
  writeRegistry(stored("p", {{"ChildAccounts", children}}));
  const Store store = AccountsManager::init();
  const Lines expected = {
      "[-[BasicAccount initWithProperties:]] Missing account class.",
      "Ignoring unknown child account with properties " + description(stored("c", {{"Class", ""}})),
      "Ignoring unknown child account with properties no dictionary"};
  EXPECT_EQ(log.lines(), expected);
  EXPECT_EQ(identifiers(store->allBasicSyncableAccounts()), "p d");
  store->saveAllAccounts();
  EXPECT_EQ(storedAccount(0).find("ChildAccounts"), children);
}

TEST_F(LoadingTest, AsksEveryFixerAndDropsWhatCannotBeRepaired) {
  writeRegistry(stored("a"), stored("b", {{"ChildAccounts", array(stored("c"))}}), stored("d"));
  Lines calls;
  const Store store = CustomStore::load({ScriptedFixer(
      [](const Account& account) {
        if (account->identifier() == "b") return FixResult::unrepairable;
        if (account->identifier() != "d") return FixResult::nothingDone;
        account->setAccountPropertyForKey("new", "DisplayName");
        return FixResult::repaired;
      },
      &calls)});
  EXPECT_EQ(calls, (Lines{"loading accounts a", "loading accounts b", "loading accounts d", "not saved"}));
  EXPECT_EQ(identifiers(store->allBasicSyncableAccounts()), "a d");
  const Account repaired = store->accountWithIdentifier("d");
  EXPECT_EQ(repaired->displayName(), "new");
  EXPECT_EQ(repaired->originalProperties(), stored("d"))
      << "the repair is a change that the next save writes";
  EXPECT_EQ(log.lines(), Lines());
}

TEST_F(LoadingTest, EntersARecordOnceForEachFixerThatLetsItPass) {
  writeRegistry(stored("a"), stored("b"));
  const auto answer = [](FixResult result) { return ScriptedFixer([=](const Account&) { return result; }); };
  const auto pass = answer(FixResult::nothingDone);
  const auto drop = answer(FixResult::unrepairable);
  EXPECT_EQ(identifiers(*CustomStore::load({})->allBasicAccounts()), "");
  EXPECT_EQ(identifiers(*CustomStore::load({pass, drop, pass})->allBasicAccounts()), "a a b b");
  Lines calls;
  CustomStore::load({ScriptedFixer([](const Account&) { return FixResult::nothingDone; }, &calls)});
  EXPECT_EQ(calls, (Lines{"loading accounts a", "loading accounts b"})) << "nothing was fixed";
}

}  // namespace
}  // namespace roster::testing
