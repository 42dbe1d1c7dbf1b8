#include <algorithm>
#include <stdexcept>
#include <unordered_map>

#include "roster/platform/resources.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/store_state.h"

namespace roster {

namespace {

/// The first record of an index that has the sync identifier.
AccountPtr withSyncIdentifier(const AccountIndexes::ByID& accounts, std::string_view syncIdentifier) {
  for (const auto& entry : accounts) {
    if (entry.value->syncStoreIdentifier() == syncIdentifier) return entry.value;
  }
  return nullptr;
}

/// The children by the very record that is their parent.
class ChildrenByParent {
 public:
  using Children = std::vector<AccountPtr>;
  explicit ChildrenByParent(const AccountIndexes::ByID& children) : children_(children) { sort(); }

  /// The current children; sorted again when the store's children have changed.
  Children of(const AccountPtr& parent) {
    if (children_.changes() != changes_) sort();
    const auto found = byParent_.find(parent.get());
    return found == byParent_.end() ? Children() : found->second;
  }

 private:
  void sort() {
    byParent_.clear();
    changes_ = children_.changes();
    for (const auto& entry : children_) byParent_[entry.value->parentAccount().get()].push_back(entry.value);
  }

  const AccountIndexes::ByID& children_;
  std::unordered_map<const BasicAccount*, Children> byParent_;
  std::uint64_t changes_ = 0;
};

}  // namespace

AccountPtr AccountsManager::accountWithIdentifier(std::string_view identifier) const {
  return _state->indexes.ownerOf(identifier);
}

AccountPtr AccountsManager::childAccountWithIdentifier(std::string_view identifier) const {
  const AccountPtr* child = _state->indexes.childAccountsByID().find(identifier);
  return child == nullptr ? nullptr : *child;
}

std::vector<AccountPtr> AccountsManager::childrenOfAccount(const AccountPtr& parent) const {
  return _state->indexes.childrenOf(parent);
}

AccountPtr AccountsManager::syncableAccountWithSyncIdentifier(std::string_view syncIdentifier) const {
  if (AccountPtr account = withSyncIdentifier(_state->indexes.topLevelAccountsByID(), syncIdentifier))
    return account;
  return withSyncIdentifier(_state->indexes.childAccountsByID(), syncIdentifier);
}

AccountPtr AccountsManager::displayAccountWithSyncIdentifier(std::string_view syncIdentifier) const {
  const AccountPtr account = syncableAccountWithSyncIdentifier(syncIdentifier);
  return account ? accountWithIdentifier(account->identifier()) : nullptr;
}

std::shared_ptr<const AccountArray> AccountsManager::allBasicAccounts() const {
  return _state->indexes.topLevelAccounts();
}

std::vector<AccountPtr> AccountsManager::allBasicSyncableAccounts() const {
  const auto topLevel = _state->indexes.topLevelAccounts()->span();
  std::vector<AccountPtr> all(topLevel.begin(), topLevel.end());
  for (const auto& entry : _state->indexes.childAccountsByID()) all.push_back(entry.value);
  return all;
}

std::vector<AccountPtr> AccountsManager::basicAccountsWithTypes(const TypeSet& types) const {
  std::vector<AccountPtr> matching;
  for (const AccountPtr& account : *_state->indexes.topLevelAccounts()) {
    if (types.contains(account->type())) matching.push_back(account);
  }
  return matching;
}

std::size_t AccountsManager::countOfBasicAccountsWithTypes(const TypeSet& types) const {
  const auto accounts = _state->indexes.topLevelAccounts()->span();
  return static_cast<std::size_t>(
      std::count_if(accounts.begin(), accounts.end(),
                    [&types](const AccountPtr& account) { return types.contains(account->type()); }));
}

std::size_t AccountsManager::count() const { return _state->indexes.topLevelAccounts()->size(); }

AccountsManager::FullAccount AccountsManager::fullAccountWithIdentifierLoader(
    std::string_view identifier, AccountLoaderProtocol* loader) const {
  if (identifier.empty()) return nullptr;
  const AccountPtr* account = _state->indexes.topLevelAccountsByID().find(identifier);
  if (account == nullptr) account = _state->indexes.childAccountsByID().find(identifier);
  if (account == nullptr) return nullptr;
  const AccountPtr kept = *account;  // the creator may change the store
  return kept->fullAccountUsingLoader(loader);
}

std::vector<AccountsManager::FullAccount> AccountsManager::accountsWithTypesWithLoader(
    const TypeSet& types, AccountLoaderProtocol* loader) const {
  std::vector<FullAccount> accounts;
  ChildrenByParent children(_state->indexes.childAccountsByID());
  for (const AccountPtr& element : *_state->indexes.topLevelAccounts()) {
    // A creator may change the store, and the element with it.
    const AccountPtr parent = element;  // NOLINT(performance-unnecessary-copy-initialization)
    if (types.contains(parent->type())) {
      FullAccount account = fullAccountWithIdentifierLoader(parent->identifier(), loader);
      if (!account) {
        throw std::invalid_argument("there is no full account of " + parent->description() +
                                    " to add to the list");
      }
      accounts.push_back(std::move(account));
    }
    for (const AccountPtr& child : children.of(parent)) {
      if (!types.contains(child->type())) continue;
      if (FullAccount account = fullAccountWithIdentifierLoader(child->identifier(), loader)) {
        accounts.push_back(std::move(account));
      }
    }
  }
  return accounts;
}

std::vector<AccountsManager::FullAccount> AccountsManager::accountsWithTypes(const TypeSet& types) const {
  return accountsWithTypesWithLoader(types, nullptr);
}

std::vector<AccountsManager::FullAccount> AccountsManager::allMailAccounts() const {
  return accountsWithTypes({kMailAccountType, kNuvolaAccountType, kGmailAccountType, kYahooAccountType});
}

AccountsManager::FullAccount AccountsManager::fullDeviceLocalAccount() {
  for (const AccountPtr& account : *_state->indexes.topLevelAccounts()) {
    if (!(account->type() == kOnMyDeviceAccountType)) continue;
    // The creator may change the store, and the element with it.
    const AccountPtr kept = account;  // NOLINT(performance-unnecessary-copy-initialization)
    return kept->fullAccountUsingLoader(nullptr);
  }
  systemLog("DeviceLocalAccount missing. Creating...");
  const AccountPtr account = BasicAccount::initWithProperties(DeviceLocalAccount::basicAccountProperties());
  if (!account) return nullptr;  // the log says why: the type is not configured
  replaceAccountsWithTypesWithAccounts({kOnMyDeviceAccountType}, {account});
  return account->fullAccountUsingLoader(nullptr);
}

String AccountsManager::displayNameForGroupOfAccountTypeForBeginningOfSentence(std::string_view type,
                                                                               bool isBeginningOfSentence) {
  if (type != kSubscribedCalendarAccountType) return {};
  return localizedString(isBeginningOfSentence ? "SUBSCRIBED_CALENDAR_GROUP_TITLE"
                                               : "SUBSCRIBED_CALENDAR_GROUP_MID_SENTENCE_TITLE",
                         "AccountsManager");
}

}  // namespace roster
