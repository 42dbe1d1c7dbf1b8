#include "tools/registry_state.h"

#include "roster/store/accounts_manager.h"
#include "roster/store/settings_file.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

Error unreadable(const std::string& path, const std::string& damage) {
  // What is said of the whole file names it already.
  return {std::errc::bad_message, damage.find(path) == std::string::npos ? path + ": " + damage : damage};
}

/// The accounts that stand under an identifier. One without would get another at each load, and seem to come
/// and go.
Result<Array> readAccounts(const std::string& path) {
  const Registry registry = SettingsFile(path).read();
  if (!registry.accounts && !registry.damage.empty()) return unreadable(path, registry.damage);
  std::vector<Value> identified;
  const Array accounts = registry.accounts.value_or(Array());
  for (const Value& element : accounts) {
    if (element.isNil() || element.fault() != Fault::none) return unreadable(path, registry.damage);
    const std::optional<Dictionary> properties = element.dictionary();
    if (properties && properties->find(kAccountIdentifier).isString()) identified.push_back(element);
  }
  return Array(std::move(identified));
}

}  // namespace

std::vector<AccountChange> RegistryState::update() {
  const Result<Array> accounts = readAccounts(path_);
  tellDamage(accounts ? std::string() : accounts.error().message);
  if (!accounts) return {};
  // What was judged above is what is compared: a store that reads the file itself could meet another one.
  const std::shared_ptr<AccountsManager> store = AccountsManager::initWithAccounsInfoArray(*accounts);
  OrderedMap<AccountPtr> accountsByID;
  std::vector<AccountPtr> ordered;
  for (const AccountPtr& account : *store->allBasicAccounts()) {
    accountsByID.set(account->identifier(), account);
    ordered.push_back(account);
  }
  std::vector<AccountChange> changes;
  if (known_) changes = detectChanges(*known_, accountsByID);
  known_.emplace(ordered);
  return changes;
}

void RegistryState::tellDamage(const std::string& damage) {
  if (damage.empty() && !damage_.empty()) note(path_ + " can be read again");
  if (!damage.empty() && damage != damage_) {
    warn(damage, known_ ? "nothing counts as changed until it can be read again"
                        : "no changes are shown before it has been read once");
  }
  damage_ = damage;
}

}  // namespace roster::tool
