#include <roster/roster.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>

/// Two programs that hold the same account at the same time: a settings screen renames it while a sync daemon
/// notes a new user name. Neither knows of the other, and the file has both changes in the end.
///
/// The account's identifier is the argument; without one, an account is made.

namespace {

using roster::AccountsManager;

void change(AccountsManager& store, std::string_view identifier, std::string_view key,
            std::string_view text) {
  const auto account = store.accountWithIdentifier(identifier);
  if (!account) return;
  account->setAccountPropertyForKey(text, key);
  store.saveAllAccounts();
  std::cout << "process " << getpid() << " saved " << key << " = " << text << std::endl;
}

/// Sends one byte through a pipe: the other process waits for it.
void tell(int pipe) { static_cast<void>(!write(pipe, "!", 1)); }

void await(int pipe) {
  char sign = 0;
  static_cast<void>(!read(pipe, &sign, 1));
}

std::string newAccount() {
  const auto store = AccountsManager::init();
  const auto account =
      roster::BasicAccount::accountWithTypeClass(roster::kExchangeAccountType, "ExchangeAccount");
  store->insertAccount(account);
  store->saveAllAccounts();
  return account->identifier().str();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const std::string identifier = argumentCount > 1 ? arguments[1] : newAccount();
  int loaded[2];
  int saved[2];
  if (pipe(loaded) != 0 || pipe(saved) != 0) return 1;

  const pid_t daemon = fork();
  if (daemon == 0) {
    const auto store = AccountsManager::init();
    tell(loaded[1]);
    await(saved[0]);  // the settings screen saves while this store still holds what it loaded
    change(*store, identifier, roster::kAccountUsername, "alexandra@example.org");
    return 0;
  }
  const auto store = AccountsManager::init();
  await(loaded[0]);
  change(*store, identifier, roster::kAccountDisplayName, "Renamed on the settings screen");
  tell(saved[1]);
  int status = 0;
  waitpid(daemon, &status, 0);

  const auto merged = AccountsManager::init()->accountWithIdentifier(identifier);
  if (!merged) return 1;
  const std::string name = merged->displayName().str();
  const std::string user = merged->accountPropertyForKey(roster::kAccountUsername).string().str();
  std::cout << "the file holds both: \"" << name << "\" and \"" << user << "\"\n";
  return name.empty() || user.empty() ? 1 : 0;
}
