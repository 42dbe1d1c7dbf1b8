#include <roster/roster.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

/// A settings screen switches off the contacts of an Exchange account, and exactly the notifiers for contacts
/// are told. The plug-ins beside this program make the account's other objects and print what they
/// are told.
///
/// Adds an account to the registry at each run, so let ROSTER_ROOT name a device to play with.

namespace {

using roster::AccountsManager;
using Lines = std::vector<std::string>;

void expect(bool isSo, const std::string& what) {
  if (!isSo) throw std::runtime_error("not so: " + what);
}

/// Redirects std::cout for as long as it lives.
class Redirection {
 public:
  explicit Redirection(std::ostream& target) : former_(std::cout.rdbuf(target.rdbuf())) {}
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;
  ~Redirection() { std::cout.rdbuf(former_); }

 private:
  std::streambuf* former_;
};

/// What notifiers print during the call: plug-ins write to the std::cout of the program that they are loaded
/// into. Sorted, because the order in which notifiers are told is not defined.
Lines heardDuring(const std::function<void()>& call) {
  std::stringstream printed;
  {
    const Redirection redirection(printed);
    call();
  }
  Lines lines;
  for (std::string line; std::getline(printed, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  for (const std::string& line : lines) std::cout << "  " << line << '\n';
  return lines;
}

void save(AccountsManager& store) {
  store.saveAllAccounts();
  const auto& error = store.lastSaveError();
  expect(!error, "the registry is saved" + (error ? "; " + error->message : std::string()));
}

/// Sets the account up, as has happened before the story begins. Returns its identifier.
std::string setUpAccount() {
  std::cout << "An Exchange account is set up with mail, contacts and calendars.\n";
  const roster::StringList dataclasses{std::string(roster::kAccountDataclassMail),
                                       std::string(roster::kAccountDataclassContacts),
                                       std::string(roster::kAccountDataclassCalendars)};
  const auto account =
      roster::BasicAccount::accountWithTypeClass(roster::kExchangeAccountType, "GroupwareAccount");
  account->setAccountPropertyForKey("Work", roster::kAccountDisplayName);
  account->setAccountPropertyForKey("alexandra@example.org", roster::kAccountUsername);
  account->setAccountPropertyForKey(roster::arrayValue(dataclasses), roster::kAccountProvisionedDataclasses);
  account->setEnabledForDataclasses(dataclasses);
  const auto store = AccountsManager::init();
  store->insertAccount(account);
  const Lines heard = heardDuring([&] { save(*store); });
  expect(heard.size() == 2, "each notifier is told once of a new account, whatever it is enabled for");
  return account->identifier().str();
}

void showFullAccount(roster::BasicAccount& account) {
  // A plug-in decides what else its full accounts are; those of this one are records.
  const auto full = std::dynamic_pointer_cast<roster::BasicAccount>(account.fullAccountUsingLoader(nullptr));
  expect(full && full.get() != &account, "the plug-in makes the full account");
  std::cout << "The settings screen shows it as \"" << full->displayName().str() << "\".\n";
  expect(full->displayName() == "Work (alexandra@example.org)", "the full account names its user");
  full->renewAccountCredentialsWithHandler([](std::int32_t result) {
    std::cout << "Its credentials are renewed, with the result " << result << ".\n";
    expect(result == 0, "the full account renews its credentials in its own way");
  });
}

void refresh(roster::BasicAccount& account) {
  const bool areContactsRefreshed = account.refreshContainersForDataclass(roster::kAccountDataclassContacts);
  const bool isMailRefreshed = account.refreshContainersForDataclass(roster::kAccountDataclassMail);
  std::cout << "A refresh of its mail is " << (isMailRefreshed ? "begun" : "refused")
            << ", one of its contacts " << (areContactsRefreshed ? "begun" : "refused") << ".\n";
  expect(isMailRefreshed && !areContactsRefreshed, "the sync account refreshes what is switched on");
}

void tellStory() {
  const std::string identifier = setUpAccount();

  const auto store = AccountsManager::init();
  const auto account = store->accountWithIdentifier(identifier);
  expect(account != nullptr, "the registry has the account");
  showFullAccount(*account);

  std::cout << "Contacts are switched off, and the registry is saved.\n";
  account->setEnabledForDataclass(false, roster::kAccountDataclassContacts);
  const Lines heard = heardDuring([&] { save(*store); });
  expect(heard == Lines{"ContactsPrinter: type 1 (modified), account " + identifier +
                        " of type Exchange, enabled before: com.nimbal.Dataclass.Calendars"
                        " com.nimbal.Dataclass.Contacts com.nimbal.Dataclass.Mail"},
         "only the notifier for contacts is told, with what was enabled before");
  refresh(*account);
}

}  // namespace

int main() {
  try {
    tellStory();
  } catch (const std::exception& exception) {
    std::cerr << "settings_screen: " << exception.what() << '\n';
    return 1;
  }
  return 0;
}
