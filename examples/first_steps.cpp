#include <roster/roster.h>

#include <iostream>

int main() {
  const auto store = roster::AccountsManager::init();
  const auto account = roster::BasicAccount::accountWithTypeClass(roster::kMailAccountType, "IMAPAccount");
  account->setAccountPropertyForKey("Work", roster::kAccountDisplayName);
  account->setEnabledForDataclass(true, roster::kAccountDataclassMail);
  store->insertAccount(account);
  store->saveAllAccounts();
  for (const auto& each : *store->allBasicAccounts()) std::cout << each->displayName().str() << '\n';
  return store->lastSaveError().empty() ? 0 : 1;
}
