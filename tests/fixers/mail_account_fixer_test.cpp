#include "roster/fixers/mail_account_fixer.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

using Lines = std::vector<std::string>;

class MailAccountFixer : public ::testing::Test {
 protected:
  static AccountPtr account(const char* type, const char* accountClass, const Value& path) {
    return BasicAccount::accountWithProperties(
        {{"Type", type}, {"Class", accountClass}, {"Identifier", "1"}, {"AccountPath", path}});
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
                        {"Mail", "Old", "Mail/IMAP-a/Mail/POP-b", fixed, "POPAccount"},
                        {"Mail", "Old", "Mail/IMAP-", fixed, "IMAPAccount"},
                        {"Mail", "imapaccount", "mail/imap-x", lost, "imapaccount"},
                        {"Mail", "Old", array("Mail/IMAP-x"), lost, "Old"},
                        {"Nuvola", "Old", {}, lost, "Old"}};
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
  log.clear();
  for (const bool areSaved : {false, true}) fixer.accountsHaveBeenSaved(areSaved);
  EXPECT_EQ(log.lines(), Lines()) << "what a load repaired is forgotten, and no later save tells of it";
}

}  // namespace
}  // namespace roster::testing
