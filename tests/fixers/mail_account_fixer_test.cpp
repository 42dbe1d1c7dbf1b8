#include "roster/fixers/mail_account_fixer.h"

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

class MailAccountFixer : public StoreTest {
 protected:
  RSRuntimeFixMailAccount fixer;
};

TEST_F(MailAccountFixer, TakesTheClassFromTheFirstMarkerOfItsTableThatThePathHolds) {
  struct Case {
    const char* name;
    const char* type;
    const char* accountClass;
    Value path;
    FixResult result;
    const char* classAfter;
  };
  using enum FixResult;
  const Case cases[] = {
      {"another type", "Exchange", "Old", "Mail/IMAP-x", nothingDone, "Old"},
      {"a known class", "Mail", "IMAPAccount", "Mail/POP-x", nothingDone, "IMAPAccount"},
      {"Dotlet before Nuvola", "Mail", "Old", "Mail/Dotlet-a/Mail/Nuvola-b", repaired, "WicketAccount"},
      {"Nuvola before AOL", "Mail", "Old", "Mail/AOL-a/Mail/Nuvola-b", repaired, "NuvolaAccount"},
      {"AOL before IMAP", "Nuvola", "Old", "/Mail/IMAP-a/Mail/AOL-b", repaired, "AOLAccount"},
      {"local mailboxes", "Mail", "Old", "/home/Mail/Mailboxes", repaired, "LocalAccount"},
      {"Gmail before IMAP", "Mail", "Old", "Mail/IMAP-x.gmail.com@imap.gmail.com", repaired, "GmailAccount"},
      {"Yahoo before IMAP", "Mail", "Old", "Mail/IMAP-x@imap.mail.yahoo.com", repaired, "YahooAccount"},
      {"POP before IMAP", "Mail", "Old", "Mail/IMAP-a/Mail/POP-b", repaired, "POPAccount"},
      {"IMAP", "Mail", "Old", "Mail/IMAP-", repaired, "IMAPAccount"},
      {"case counts", "Mail", "imapaccount", "mail/imap-x", unrepairable, "imapaccount"},
      {"no text", "Mail", "Old", array("Mail/IMAP-x"), unrepairable, "Old"},
      {"no path", "Nuvola", "Old", {}, unrepairable, "Old"}};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    log.clear();
    const auto made =
        record("1", {{"Type", row.type}, {"Class", row.accountClass}, {"AccountPath", row.path}});
    EXPECT_EQ(fixer.fixBasicAccountIfNeededLoggingMessage(made, "loading accounts"), row.result);
    EXPECT_EQ(made->accountClass().view(), row.classAfter);
    const std::string line = formatted("Could not fix the class of the mail account: %@", made->properties());
    EXPECT_EQ(log.lines(), row.result == unrepairable ? Lines{line} : Lines());
  }
  log.clear();
  for (const bool areSaved : {false, true}) fixer.accountsHaveBeenSaved(areSaved);
  EXPECT_EQ(log.lines(), Lines()) << "what a load repaired is forgotten, and no later save tells of it";
}

}  // namespace
}  // namespace roster::testing
