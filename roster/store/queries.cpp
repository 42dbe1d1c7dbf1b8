#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "roster/account/parent_changes.h"
#include "roster/base/foreign_code.h"
#include "roster/base/text_table.h"
#include "roster/platform/resources.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/store_state.h"

namespace roster {

namespace {

/// The first record of an index that has the sync identifier.
AccountPtr withSyncIdentifier(const AccountIndexes::ByID& accounts, const String& syncIdentifier) {
  for (const auto& entry : accounts) {
    AccountPtr account = held(entry.value);
    if (account->syncStoreIdentifier() == syncIdentifier) return account;
  }
  return nullptr;
}

/// The children of a store by the very record that is their parent, as a creator of full accounts may change
/// both at any time.
class ChildrenByParent {
 public:
  explicit ChildrenByParent(const AccountIndexes::ByID& children) : children_(children) { sort(); }

  /// Calls with every child that was in the store when this began and is the parent's when its turn comes.
  template <class Call>
  void forEachOf(const AccountPtr& parent, const Call& call) {
    if (!isUpToDate()) sort();
    std::vector<String> visited;
    for (const String& childID : idsOf(parent)) {
      visited.push_back(childID);
      callIfChildOf(parent, childID, call);
    }
    if (!isUpToDate()) callWithOthers(parent, visited, call);
  }

 private:
  bool isUpToDate() const {
    return children_.changes() == changes_ && countOfParentChanges() == parentChanges_ &&
           (!isAnyOrphan_ || countOfAdoptions() == adoptions_);
  }

  void sort() {
    byParent_.clear();
    changes_ = children_.changes();
    parentChanges_ = countOfParentChanges();
    adoptions_ = countOfAdoptions();
    for (const auto& entry : children_) byParent_[entry.value->parentAccount().get()].push_back(entry.key);
    // Only then do adoptions count: there are as many as children in every store that is loaded meanwhile.
    isAnyOrphan_ = byParent_.contains(nullptr);
  }

  std::vector<String> idsOf(const AccountPtr& parent) const {
    const auto found = byParent_.find(parent.get());
    return found == byParent_.end() ? std::vector<String>() : found->second;
  }

  template <class Call>
  void callIfChildOf(const AccountPtr& parent, const String& childID, const Call& call) const {
    const AccountPtr* found = children_.find(childID);
    if (found == nullptr || (*found)->parentAccount() != parent) return;
    call(held(*found));
  }

  /// The children that were another parent's when the parent's turn began, and may be its own by now.
  template <class Call>
  void callWithOthers(const AccountPtr& parent, const std::vector<String>& visited, const Call& call) const {
    const std::unordered_set<std::string_view, SeededTextHash> done(visited.begin(), visited.end());
    for (const auto& family : byParent_) {
      for (const String& childID : family.second) {
        if (!done.contains(childID)) callIfChildOf(parent, childID, call);
      }
    }
  }

  const AccountIndexes::ByID& children_;
  std::unordered_map<const BasicAccount*, std::vector<String>> byParent_;
  std::uint64_t changes_ = 0;
  std::uint64_t parentChanges_ = 0;
  std::uint64_t adoptions_ = 0;
  bool isAnyOrphan_ = false;
};

}  // namespace

AccountPtr AccountsManager::accountWithIdentifier(std::string_view identifier) const {
  if (const AccountPtr* account = _state->indexes.topLevelAccountsByID().find(identifier)) return *account;
  const auto kept = shared_from_this();
  return _state->indexes.ownerOf(identifier);
}

AccountPtr AccountsManager::childAccountWithIdentifier(std::string_view identifier) const {
  const AccountPtr* child = _state->indexes.childAccountsByID().find(identifier);
  return child == nullptr ? nullptr : *child;
}

std::vector<AccountPtr> AccountsManager::childrenOfAccount(const AccountPtr& parent) const {
  const auto kept = shared_from_this();
  return _state->indexes.childrenOf(parent);
}

AccountPtr AccountsManager::syncableAccountWithSyncIdentifier(const String& syncIdentifier) const {
  const auto kept = shared_from_this();
  if (syncIdentifier.isNil()) return nullptr;
  if (AccountPtr account = withSyncIdentifier(_state->indexes.topLevelAccountsByID(), syncIdentifier))
    return account;
  return withSyncIdentifier(_state->indexes.childAccountsByID(), syncIdentifier);
}

AccountPtr AccountsManager::displayAccountWithSyncIdentifier(const String& syncIdentifier) const {
  const auto kept = shared_from_this();
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
  const std::shared_ptr<const AccountArray> accounts = allBasicAccounts();
  for (const AccountPtr& account : *accounts) {
    if (types.contains(account->type())) matching.push_back(account);
  }
  return matching;
}

std::size_t AccountsManager::countOfBasicAccountsWithTypes(const TypeSet& types) const {
  return basicAccountsWithTypes(types).size();
}

std::size_t AccountsManager::count() const { return _state->indexes.topLevelAccounts()->size(); }

AccountsManager::FullAccount AccountsManager::fullAccountWithIdentifierLoader(
    std::string_view identifier, AccountLoaderProtocol* loader) const {
  if (identifier.empty()) return nullptr;
  const AccountPtr* account = _state->indexes.topLevelAccountsByID().find(identifier);
  if (account == nullptr) account = _state->indexes.childAccountsByID().find(identifier);
  if (account == nullptr) return nullptr;
  return held(*account)->fullAccountUsingLoader(loader);
}

std::vector<AccountsManager::FullAccount> AccountsManager::accountsWithTypesWithLoader(
    const TypeSet& types, AccountLoaderProtocol* loader) const {
  const auto kept = shared_from_this();
  std::vector<FullAccount> accounts;
  ChildrenByParent children(_state->indexes.childAccountsByID());
  for (const AccountPtr& parent : *_state->indexes.topLevelAccounts()) {
    if (types.contains(parent->type())) {
      FullAccount account = fullAccountWithIdentifierLoader(parent->identifier(), loader);
      if (!account) {
        throw std::invalid_argument("there is no full account of " + parent->description() +
                                    " to add to the list");
      }
      accounts.push_back(std::move(account));
    }
    children.forEachOf(parent, [&](const AccountPtr& child) {
      if (!types.contains(child->type())) return;
      if (FullAccount account = fullAccountWithIdentifierLoader(child->identifier(), loader)) {
        accounts.push_back(std::move(account));
      }
    });
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
  const auto kept = shared_from_this();
  for (const AccountPtr& account : *_state->indexes.topLevelAccounts()) {
    if (account->type() == kOnMyDeviceAccountType) return account->fullAccountUsingLoader(nullptr);
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
