#include "tools/registry_state.h"

#include <utility>

#include "roster/store/accounts_manager.h"
#include "roster/store/registry_check.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

/// The accounts that stand under an identifier. One without would get another at each load, and seem to come
/// and go.
Array identified(const Array& accounts) {
  std::vector<Value> elements;
  for (const Value& element : accounts) {
    const std::optional<Dictionary> properties = element.dictionary();
    if (properties && properties->find(kAccountIdentifier).isString()) elements.push_back(element);
  }
  return Array(std::move(elements));
}

}  // namespace

std::vector<AccountChange> RegistryState::update() {
  const Result<Array> accounts = readRegistryAccounts(path_);
  if (!accounts) {
    tellDamage(accounts.error().message);
    return {};
  }
  if (std::exchange(damage_, std::nullopt)) note(path_ + " can be read again");
  // The file that was checked above is compared: a store that read it itself could find a newer one.
  const auto store = AccountsManager::initWithAccounsInfoArray(identified(*accounts));
  Snapshot now(store->allBasicAccounts()->span());
  std::vector<AccountChange> changes;
  if (known_) changes = changesBetween(*known_, now);
  known_ = std::move(now);
  return changes;
}

void RegistryState::tellDamage(const std::string& damage) {
  if (damage_ == damage) return;
  warn(damage, known_ ? "nothing counts as changed until it can be read again"
                      : "no changes are shown before it has been read once");
  damage_ = damage;
}

}  // namespace roster::tool
