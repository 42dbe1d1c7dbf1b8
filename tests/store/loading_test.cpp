#include "roster/fixers/mail_account_fixer.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

TEST_F(StoreTest, LoadingLeavesWhatItCannotMakeARecordOfAndIndexesChildrenOneLevelDeep) {
  const std::string type = "[-[BasicAccount initWithProperties:]] Invalid account type: ";
  const std::string noClass = "[-[BasicAccount initWithProperties:]] Missing account class.";
  const std::string failed =
      "[-[AccountsManager _initWithAccountsInfo:]] ERROR: Failed to create a BasicAccount from %@";
  const std::string ignoring = "Ignoring unknown child account with properties %@";
  const Value odd = stored("x", {{"Type", "Fax\nX"}, {"Class", ""}});
  const Value listed = stored("x", {{"Class", array("X")}});
  const Value nested = stored("c1", {{"ChildAccounts", array(stored("grandchild"))}});
  const Value nameless = Dictionary{{"Type", "CalDAV"}, {"Class", "X"}};
  const Value children = array(listed, "text", nested);
  writeRegistry(odd, stored("p", {{"ChildAccounts", children}}), listed, Dictionary(),
                stored("q", {{"ChildAccounts", array(nameless)}}), "text");
  const Store store = AccountsManager::init();
  EXPECT_EQ(log.lines(),
            (Lines{"Not all of the registry " + device.registryPath() +
                       " can be used: its account 5 is not a dictionary",
                   type + "Fax\\nX", noClass, formatted(failed, odd), noClass, formatted(ignoring, listed),
                   formatted(ignoring, "text"), noClass, formatted(failed, listed), type + "(null)", noClass,
                   formatted(failed, Dictionary()), formatted(failed, "text")}));
  const std::vector<AccountPtr> all = store->allBasicSyncableAccounts();
  ASSERT_EQ(all.size(), 4U);
  EXPECT_EQ(all[2]->identifier(), "c1");
  EXPECT_EQ(store->accountWithIdentifier(all[3]->identifier()), all[1]);
  EXPECT_EQ(store->accountWithIdentifier("grandchild"), nullptr);
  EXPECT_EQ(AccountsManager::init()->accountWithIdentifier(all[3]->identifier()), nullptr)
      << "another identifier on every load";
  store->saveAllAccounts();
  EXPECT_EQ(storedAccount(0).find("ChildAccounts"), children);
}

TEST_F(StoreTest, LoadingAndSavingAskEveryFixerAndDropWhatCannotBeRepaired) {
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

TEST_F(StoreTest, TheMailFixerTakesTheClassFromTheFirstMarkerOfItsTableThatThePathHolds) {
  using enum FixResult;
  // Dotlet comes before Nuvola, that before AOL, and IMAP last.
  const std::tuple<const char*, std::string, Value, FixResult, std::string> rows[] = {
      {"Exchange", "Old", "Mail/IMAP-x", nothingDone, "Old"},
      {"Mail", "IMAPAccount", "Mail/POP-x", nothingDone, "IMAPAccount"},
      {"Mail", "Old", "Mail/Dotlet-a/Mail/Nuvola-b", repaired, "WicketAccount"},
      {"Mail", "Old", "Mail/AOL-a/Mail/Nuvola-b", repaired, "NuvolaAccount"},
      {"Nuvola", "Old", "/Mail/IMAP-a/Mail/AOL-b", repaired, "AOLAccount"},
      {"Mail", "Old", "/home/Mail/Mailboxes", repaired, "LocalAccount"},
      {"Mail", "Old", "Mail/IMAP-x.gmail.com@imap.gmail.com", repaired, "GmailAccount"},
      {"Mail", "Old", "Mail/IMAP-x@imap.mail.yahoo.com", repaired, "YahooAccount"},
      {"Mail", "Old", "Mail/IMAP-a/Mail/POP-b", repaired, "POPAccount"},
      {"Mail", "Old", "Mail/IMAP-", repaired, "IMAPAccount"},
      {"Mail", "imapaccount", "mail/imap-x", unrepairable, "imapaccount"},
      {"Mail", "Old", array("Mail/IMAP-x"), unrepairable, "Old"},
      {"Nuvola", "Old", {}, unrepairable, "Old"}};
  RSRuntimeFixMailAccount fixer;
  for (const auto& [type, accountClass, path, result, classAfter] : rows) {
    SCOPED_TRACE(formatted("%s: %@", type, path));
    log.clear();
    const auto made = record("1", {{"Type", type}, {"Class", accountClass}, {"AccountPath", path}});
    EXPECT_EQ(fixer.fixBasicAccountIfNeededLoggingMessage(made, "loading accounts"), result);
    EXPECT_EQ(made->accountClass().view(), classAfter);
    const std::string line = formatted("Could not fix the class of the mail account: %@", made->properties());
    EXPECT_EQ(log.lines(), result == unrepairable ? Lines{line} : Lines());
  }
  log.clear();
  for (const bool areSaved : {false, true}) fixer.accountsHaveBeenSaved(areSaved);
  EXPECT_EQ(log.lines(), Lines()) << "what a load repaired is forgotten, and no later save tells of it";
}

}  // namespace
}  // namespace roster::testing
