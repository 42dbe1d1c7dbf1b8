// Gives every account of the device the same display name and saves once: rename_accounts NAME.
#include <cstdio>

#include "roster/store/accounts_manager.h"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const auto store = roster::AccountsManager::init();
  const auto accounts = store->allBasicAccounts();
  for (const auto& account : *accounts) account->setDisplayName(arguments[1]);
  store->saveAllAccounts();
  if (!store->lastSaveError()) return 0;
  std::fputs(store->lastSaveError()->message.c_str(), stderr);
  return 1;
}
