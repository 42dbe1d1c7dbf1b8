#include <string>

#include "roster/store/accounts_manager.h"
#include "roster/store/registry_lock.h"

/// The baseline of `rosterctl set`: a program that loads the registry, changes the account that its argument
/// names, and saves. It does so as the tool does and every program should that shares the registry with
/// others: by a sync, under the lock that it holds from the load on. Without an argument it only starts.
int main(int count, char** arguments) {
  using namespace roster;
  if (count < 2) return 0;
  const Result<RegistryLock> lock = RegistryLock::take(std::chrono::seconds(0));
  if (!lock) return 1;
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  const AccountPtr account = store->accountWithIdentifier(arguments[1]);
  if (!account) return 1;
  const std::string name = account->displayName().str();
  account->setAccountPropertyForKey(name.size() % 2 == 0 ? name + "." : name.substr(1), kAccountDisplayName);
  return store->sync(std::chrono::seconds(0)).isWritten ? 0 : 1;
}
