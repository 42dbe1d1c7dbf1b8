#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

class LoadingTest : public StoreTest {};

const std::string typeLine = "[-[BasicAccount initWithProperties:]] Invalid account type: ";
const std::string classLine = "[-[BasicAccount initWithProperties:]] Missing account class.";

TEST_F(LoadingTest, SkipsEntriesItCannotMakeARecordOf) {
  const std::pair<Value, Lines> rows[] = {
      {stored("x", {{"Type", "Fax\nX"}, {"Class", ""}}), {typeLine + "Fax\\nX", classLine}},
      {stored("x", {{"Class", array("X")}}), {classLine}},
      {Dictionary(), {typeLine + "(null)", classLine}},
      {"text",
       {"Not all of the registry " + device.registryPath() +
        " can be used: its account 1 is not a dictionary"}},
  };
  for (const auto& [entry, reasons] : rows) {
    SCOPED_TRACE(formatted("%@", entry));
    writeRegistry(stored("a"), entry, stored("b"));
    log.clear();
    EXPECT_EQ(identifiers(*AccountsManager::init()->allBasicAccounts()), "a b");
    Lines expected = reasons;
    expected.push_back(formatted(
        "[-[AccountsManager _initWithAccountsInfo:]] ERROR: Failed to create a BasicAccount from %@", entry));
    EXPECT_EQ(log.lines(), expected);
  }
}

TEST_F(LoadingTest, IndexesReadableChildrenOneLevelDeepAndLeavesTheOthersInTheirParentsData) {
  const Value rejected = stored("c", {{"Class", ""}});
  const Value nested = stored("c1", {{"ChildAccounts", array(stored("grandchild"))}});
  const Value nameless = Dictionary{{"Type", "CalDAV"}, {"Class", "X"}};
  const Value children = array(rejected, "text", nested);
  writeRegistry(stored("p", {{"ChildAccounts", children}}),
                stored("q", {{"ChildAccounts", array(nameless)}}));
  const Store store = AccountsManager::init();
  const std::string ignoring = "Ignoring unknown child account with properties %@";
  EXPECT_EQ(log.lines(), (Lines{classLine, formatted(ignoring, rejected), formatted(ignoring, "text")}));
  const std::vector<AccountPtr> all = store->allBasicSyncableAccounts();
  ASSERT_EQ(all.size(), 4U);
  EXPECT_EQ(all[2]->identifier(), "c1");
  EXPECT_EQ(all[2]->parentAccount(), all[0]);
  EXPECT_EQ(store->accountWithIdentifier(all[3]->identifier()), all[1]);
  EXPECT_EQ(store->accountWithIdentifier("grandchild"), nullptr);
  EXPECT_EQ(AccountsManager::init()->accountWithIdentifier(all[3]->identifier()), nullptr)
      << "another identifier on every load";
  store->saveAllAccounts();
  EXPECT_EQ(storedAccount(0).find("ChildAccounts"), children);
}

TEST_F(LoadingTest, AndSavingAskEveryFixerAndDropWhatCannotBeRepaired) {
  writeRegistry(stored("a"), stored("b", {{"ChildAccounts", array(stored("b1"))}}), stored("c"), stored("d"));
  String rejected = "c";
  Lines calls;
  const auto fix = [&](const AccountPtr& account) {
    if (account->identifier() == rejected) return FixResult::unrepairable;
    if (account->identifier() != "d" || account->displayName() == "new") return FixResult::nothingDone;
    account->setDisplayName("new");
    return FixResult::repaired;
  };
  const auto note = [&](const auto& call) { calls.push_back(call); };
  const Store store = CustomStore::load({ScriptedFixer(fix, note)});
  EXPECT_EQ(calls, (Lines{"loading accounts a", "loading accounts b", "loading accounts c",
                          "loading accounts d", "not saved"}));
  EXPECT_EQ(identifiers(store->allBasicSyncableAccounts()), "a b d b1");
  const AccountPtr repaired = store->accountWithIdentifier("d");
  EXPECT_EQ(repaired->displayName(), "new");
  EXPECT_EQ(repaired->originalProperties(), stored("d")) << "the next save has to write the repair";

  rejected = "b";
  calls.clear();
  store->saveAllAccounts();
  EXPECT_EQ(calls, (Lines{"saving accounts d", "saving accounts b", "saving accounts a", "saved"}));
  EXPECT_EQ(store->accountWithIdentifier("b"), nullptr);
  EXPECT_EQ(store->accountWithIdentifier("b1"), nullptr);
  EXPECT_EQ(store->count(), 3U);
  EXPECT_EQ(storedAccount(1).find("Identifier"), Value("b")) << "still written, but not found";

  const ScriptedFixer pass([](const auto&) { return FixResult::nothingDone; });
  const ScriptedFixer drop([](const AccountPtr&) { return FixResult::unrepairable; });
  EXPECT_EQ(identifiers(*CustomStore::load({})->allBasicAccounts()), "");
  EXPECT_EQ(identifiers(*CustomStore::load({pass, drop, pass})->allBasicAccounts()), "a a b b d d")
      << "a record is entered once for each fixer that lets it pass";
}

}  // namespace
}  // namespace roster::testing
