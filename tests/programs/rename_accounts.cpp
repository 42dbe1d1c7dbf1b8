// Gives every account of the device the same display name and saves once: rename_accounts NAME.
#include <cstdio>

#include "roster/store/accounts_manager.h"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const auto store = roster::AccountsManager::init();
  for (const auto& account : *store->allBasicAccounts()) account->setDisplayName(arguments[1]);
  store->saveAllAccounts();
  std::fputs(store->lastSaveError().c_str(), stderr);
  return store->lastSaveError().empty() ? 0 : 1;
}
