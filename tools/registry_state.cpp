#include "tools/registry_state.h"

#include "platform/property_list.h"
#include "store/accounts_manager.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

/// The accounts that stand under an identifier. One without would get another at each load, and seem to come
/// and go.
Result<Array> identifiedAccounts(const Array& accounts, const std::string& path) {
  std::vector<Value> identified;
  identified.reserve(accounts.size());
  std::size_t index = 0;
  for (const Value& element : accounts) {
    if (element.isNil() || element.fault() != Fault::none) {
      std::string message = path + ": its account " + std::to_string(index) + " cannot be read";
      if (!element.isNil()) message.append(": it has a value that ").append(describe(element.fault()));
      return Error{std::move(message)};
    }
    ++index;
    const std::optional<Dictionary> properties = element.dictionary();
    if (properties && properties->find(kAccountIdentifier).isString()) identified.push_back(element);
  }
  return Array(std::move(identified));
}

Result<Array> readAccounts(const std::string& path) {
  using Status = PropertyListFile::Status;
  const PropertyListFile file = readPropertyListFile(path, Soundness::inspected);
  if (file.status == Status::missing) return Array();
  if (file.status != Status::read) return Error{file.error};
  const std::optional<Dictionary> root = file.value.dictionary();
  if (!root) return Error{path + " is not a dictionary"};
  const Value stored = root->find(kPlistAccountsKey);
  const bool isEmptyRegistry = root->size() == 1 && root->contains(kPlistVersionKey);
  if (stored.isNil() && isEmptyRegistry) return Array();
  const std::optional<Array> accounts = stored.array();
  if (!accounts)
    return Error{path + ": its \"Accounts\" are " + (stored.isNil() ? "missing" : "not an array")};
  return identifiedAccounts(*accounts, path);
}

}  // namespace

std::vector<AccountChange> RegistryState::update() {
  const Result<Array> accounts = readAccounts(path_);
  tellDamage(accounts.error());
  if (!accounts) return {};
  // What was judged above is what is compared: a store that reads the file itself could meet another one.
  const std::shared_ptr<AccountsManager> store = AccountsManager::initWithAccounsInfoArray(*accounts);
  OrderedMap<std::shared_ptr<BasicAccount>> accountsByID;
  std::vector<std::shared_ptr<BasicAccount>> ordered;
  for (const std::shared_ptr<BasicAccount>& account : *store->allBasicAccounts()) {
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
