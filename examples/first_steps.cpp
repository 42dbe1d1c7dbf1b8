#include <roster/roster.h>

#include <iostream>

int main() {
  const auto store = roster::AccountsManager::init();
  const auto account = roster::BasicAccount::accountWithTypeClass(roster::kMailAccountType, "IMAPAccount");
  account->setAccountPropertyForKey("Work", roster::kAccountDisplayName);
  account->setEnabledForDataclass(true, roster::kAccountDataclassMail);
  store->insertAccount(account);
  store->saveAllAccounts();
  const auto accounts = store->allBasicAccounts();
  for (const auto& each : *accounts) std::cout << each->displayName().str() << '\n';
  return store->lastSaveError() ? 1 : 0;
}
