#include <algorithm>

#include "platform/resources.h"
#include "store/account_indexes.h"
#include "store/accounts_manager.h"

namespace roster {

namespace {

/// The first record of an index that has the sync identifier.
std::shared_ptr<BasicAccount> withSyncIdentifier(const OrderedMap<std::shared_ptr<BasicAccount>>& accounts,
                                                 std::string_view syncIdentifier) {
  for (const auto& entry : accounts) {
    if (entry.value->syncStoreIdentifier() == syncIdentifier) return entry.value;
  }
  return nullptr;
}

}  // namespace

AccountsManager::Account AccountsManager::accountWithIdentifier(std::string_view identifier) const {
  if (const Account* account = _indexes->topLevelAccountsByID.find(identifier)) return *account;
  const Account* child = _indexes->childAccountsByID().find(identifier);
  if (child == nullptr) return nullptr;
  const String parentID = _indexes->parentIDOfChild((*child)->identifier());
  if (parentID.isNil()) return nullptr;
  const Account* parent = _indexes->topLevelAccountsByID.find(parentID);
  return parent == nullptr ? nullptr : *parent;
}

AccountsManager::Account AccountsManager::syncableAccountWithSyncIdentifier(
    std::string_view syncIdentifier) const {
  if (Account account = withSyncIdentifier(_indexes->topLevelAccountsByID, syncIdentifier)) return account;
  return withSyncIdentifier(_indexes->childAccountsByID(), syncIdentifier);
}

AccountsManager::Account AccountsManager::displayAccountWithSyncIdentifier(
    std::string_view syncIdentifier) const {
  const Account account = syncableAccountWithSyncIdentifier(syncIdentifier);
  return account ? accountWithIdentifier(account->identifier()) : nullptr;
}

std::shared_ptr<const AccountArray> AccountsManager::allBasicAccounts() const {
  return _indexes->orderedTopLevelAccounts;
}

std::vector<AccountsManager::Account> AccountsManager::allBasicSyncableAccounts() const {
  const auto topLevel = _indexes->orderedTopLevelAccounts->span();
  std::vector<Account> all(topLevel.begin(), topLevel.end());
  for (const auto& entry : _indexes->childAccountsByID()) all.push_back(entry.value);
  return all;
}

std::vector<AccountsManager::Account> AccountsManager::basicAccountsWithTypes(const TypeSet& types) const {
  std::vector<Account> matching;
  for (const Account& account : *_indexes->orderedTopLevelAccounts) {
    if (types.contains(account->type())) matching.push_back(account);
  }
  return matching;
}

std::size_t AccountsManager::countOfBasicAccountsWithTypes(const TypeSet& types) const {
  return static_cast<std::size_t>(
      std::count_if(_indexes->orderedTopLevelAccounts->begin(), _indexes->orderedTopLevelAccounts->end(),
                    [&types](const Account& account) { return types.contains(account->type()); }));
}

std::size_t AccountsManager::count() const { return _indexes->orderedTopLevelAccounts->size(); }

String AccountsManager::displayNameForGroupOfAccountTypeForBeginningOfSentence(std::string_view type,
                                                                               bool isBeginningOfSentence) {
  if (type != kSubscribedCalendarAccountType) return {};
  return localizedString(isBeginningOfSentence ? "SUBSCRIBED_CALENDAR_GROUP_TITLE"
                                               : "SUBSCRIBED_CALENDAR_GROUP_MID_SENTENCE_TITLE",
                         "AccountsManager");
}

}  // namespace roster
