#include "roster/fixers/mail_account_fixer.h"

#include <array>

#include "roster/account/basic_account.h"
#include "roster/base/process_wide.h"
#include "roster/platform/bus_signals.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

struct PathMarker {
  std::string_view marker;
  std::string_view accountClass;
};

/// Which class a marker in the stored path implies, the most specific marker first: a provider's account lies
/// in a folder of its protocol, so the general markers come last.
constexpr std::array _pathToClassMap = {
    PathMarker{"Mail/Dotlet-", "WicketAccount"},
    PathMarker{"Mail/Nuvola-", "NuvolaAccount"},
    PathMarker{"Mail/AOL-", "AOLAccount"},
    PathMarker{"Mail/Mailboxes", "LocalAccount"},
    PathMarker{"gmail.com@imap.gmail.com", "GmailAccount"},
    PathMarker{"@imap.mail.yahoo.com", "YahooAccount"},
    PathMarker{"Mail/POP-", "POPAccount"},
    PathMarker{"Mail/IMAP-", "IMAPAccount"},
};

constexpr std::string_view accountPathKey = "AccountPath";
constexpr std::string_view mailApplication = "com.nimbal.inkwell";
constexpr std::string_view mailAccountsKey = "MailAccounts";

}  // namespace

void reportMailAccountClassFound(const Dictionary&, std::string_view) {}

struct RSRuntimeFixMailAccount::State {
  std::set<std::string, std::less<>> _supportedMailClasses = {
      "WicketAccount", "NuvolaAccount", "POPAccount",   "IMAPAccount",
      "AOLAccount",    "LocalAccount",  "GmailAccount", "YahooAccount"};
  bool _shouldNotifyInkwell = false;
};

RSRuntimeFixMailAccount::RSRuntimeFixMailAccount() : _state(std::make_unique<State>()) {}

RSRuntimeFixMailAccount::~RSRuntimeFixMailAccount() = default;

const std::set<std::string, std::less<>>& RSRuntimeFixMailAccount::supportedAccountTypes() const {
  static const auto& _supportedAccounts = immortal(
      std::set<std::string, std::less<>>{std::string(kNuvolaAccountType), std::string(kMailAccountType)});
  return _supportedAccounts;
}

FixResult RSRuntimeFixMailAccount::fixBasicAccountIfNeededLoggingMessage(const AccountPtr& account,
                                                                         std::string_view message) {
  if (!supportedAccountTypes().contains(account->type().view())) return FixResult::nothingDone;
  if (_state->_supportedMailClasses.contains(account->accountClass().view())) return FixResult::nothingDone;
  _state->_shouldNotifyInkwell = true;
  if (!message.empty()) reportMailAccountClassFound(account->properties(), message);
  return _cleanupAccountClass(account) ? FixResult::repaired : FixResult::unrepairable;
}

bool RSRuntimeFixMailAccount::_cleanupAccountClass(const AccountPtr& account) {
  const String path = account->accountPropertyForKey(accountPathKey).string();
  for (const auto& [marker, accountClass] : _pathToClassMap) {
    if (path.view().rfind(marker) == std::string_view::npos) continue;
    account->setAccountClass(accountClass);
    return true;
  }
  systemLog("Could not fix the class of the mail account: %@", account->properties());
  return false;
}

void RSRuntimeFixMailAccount::accountsHaveBeenSaved(bool areSaved) {
  if (_state->_shouldNotifyInkwell && areSaved) broadcastPreferencesChanged(mailApplication, mailAccountsKey);
  _state->_shouldNotifyInkwell = false;
}

}  // namespace roster
