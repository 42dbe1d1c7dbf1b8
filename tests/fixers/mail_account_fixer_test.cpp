#include "fixers/mail_account_fixer.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

using Lines = std::vector<std::string>;

class MailAccountFixer : public ::testing::Test {
 protected:
  static std::shared_ptr<BasicAccount> account(const char* type, const char* accountClass,
                                               const Value& path = {}) {
    const auto made = BasicAccount::accountWithProperties(
        {{"Type", type}, {"Class", accountClass}, {"Identifier", "1"}, {"AccountPath", path}});
    if (made && std::string_view(accountClass) == "missing") made->removeAccountPropertyForKey("Class");
    return made;
  }

  TemporaryDevice device;
  CapturedLog log;
  RSRuntimeFixMailAccount fixer;
};

TEST_F(MailAccountFixer, TakesTheClassFromTheFirstMarkerOfItsTableThatThePathHolds) {
  struct Case {
    const char* type;
    const char* accountClass;
    Value path;
    FixResult result;
    const char* classAfter;
  };
  constexpr FixResult kept = FixResult::nothingDone;
  constexpr FixResult fixed = FixResult::repaired;
  constexpr FixResult lost = FixResult::unrepairable;
  const Case cases[] = {{"Exchange", "Old", "Mail/IMAP-x", kept, "Old"},
                        {"Mail", "IMAPAccount", "Mail/POP-x", kept, "IMAPAccount"},
                        {"Mail", "Old", "Mail/Dotlet-a/Mail/Nuvola-b", fixed, "WicketAccount"},
                        {"Mail", "Old", "Mail/AOL-a/Mail/Nuvola-b", fixed, "NuvolaAccount"},
                        {"Nuvola", "Old", "/Mail/IMAP-a/Mail/AOL-b", fixed, "AOLAccount"},
                        {"Mail", "Old", "/home/Mail/Mailboxes", fixed, "LocalAccount"},
                        {"Mail", "Old", "Mail/IMAP-x.gmail.com@imap.gmail.com", fixed, "GmailAccount"},
                        {"Mail", "Old", "Mail/IMAP-x@imap.mail.yahoo.com", fixed, "YahooAccount"},
                        {"Mail", "Old", "Mail/IMAP-x@imap.gmail.com", fixed, "IMAPAccount"},
                        {"Mail", "Old", "Mail/IMAP-a/Mail/POP-b", fixed, "POPAccount"},
                        {"Mail", "missing", "Mail/IMAP-", fixed, "IMAPAccount"},
                        {"Mail", "imapaccount", "mail/imap-x", lost, "imapaccount"},
                        {"Mail", "Old", "", lost, "Old"},
                        {"Mail", "Old", array("Mail/IMAP-x"), lost, "Old"},
                        {"Nuvola", "missing", {}, lost, ""}};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const Case& row = cases[i];
    log.clear();
    const auto made = account(row.type, row.accountClass, row.path);
    EXPECT_EQ(fixer.fixBasicAccountIfNeededLoggingMessage(made, "loading accounts"), row.result) << i;
    EXPECT_EQ(made->accountClass().view(), row.classAfter) << i;
    const Lines line = {formatLogLine("Could not fix the class of the mail account: %@",
                                      std::array{LogArgument(made->properties())})};
    EXPECT_EQ(log.lines(), row.result == lost ? line : Lines()) << i;
  }
}

TEST_F(MailAccountFixer, TellsTheMailApplicationOnceAndOnlyAfterASaveThatRepaired) {
  const auto meet = [&](const char* accountClass, const char* path) {
    fixer.fixBasicAccountIfNeededLoggingMessage(account("Mail", accountClass, path), "saving accounts");
  };
  // Nobody serves this device's bus, so every broadcast is one line.
  const auto broadcastsAfter = [&](bool areSaved) {
    log.clear();
    fixer.accountsHaveBeenSaved(areSaved);
    for (const std::string& line : log.lines()) {
      EXPECT_TRUE(
          line.starts_with("Could not tell com.nimbal.inkwell that its preference MailAccounts changed"));
    }
    return log.lines().size();
  };
  EXPECT_EQ(broadcastsAfter(true), 0U);
  meet("IMAPAccount", "");
  EXPECT_EQ(broadcastsAfter(true), 0U) << "nothing was wrong";
  meet("Old", "Mail/IMAP-");
  EXPECT_EQ(broadcastsAfter(false), 0U) << "nothing was written";
  EXPECT_EQ(broadcastsAfter(true), 0U) << "forgotten with the load";
  meet("Old", "Mail/IMAP-");
  meet("Old", "Mail/POP-");
  EXPECT_EQ(broadcastsAfter(true), 1U);
  EXPECT_EQ(broadcastsAfter(true), 0U);
  meet("Old", "nowhere");
  EXPECT_EQ(broadcastsAfter(true), 1U) << "a dropped account is a change as well";
}

}  // namespace
}  // namespace roster::testing
