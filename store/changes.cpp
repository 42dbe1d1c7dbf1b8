#include <algorithm>
#include <stdexcept>
#include <unordered_set>

#include "diag/debug_log.h"
#include "store/account_indexes.h"
#include "store/accounts_manager.h"

namespace roster {

namespace {

using Account = std::shared_ptr<BasicAccount>;

/// The identifier that a replacement goes by: the stored one, which a subclass may answer differently.
String storedIdentifier(const Account& account) {
  return account->accountPropertyForKey(kAccountIdentifier).string();
}

}  // namespace

void AccountsManager::updateAccount(const Account& account) {
  RSLog("Updating account:%@", account->properties());
  const String identifier = account->identifier();
  AccountArray& ordered = *_indexes->orderedTopLevelAccounts;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    if (!(ordered[index]->identifier() == identifier)) continue;
    ordered.replaceAt(index, account);
    _indexes->topLevelAccountsByID.set(identifier, account);
    _loadChildrenFromAccount(account);
  }
}

void AccountsManager::insertAccount(const Account& account) {
  RSLog("Inserting account:", account->properties());
  const String identifier = account->identifier();
  if (_indexes->topLevelAccountsByID.contains(identifier)) return;
  _indexes->topLevelAccountsByID.set(identifier, account);
  _indexes->orderedTopLevelAccounts->append(account);
  _loadChildrenFromAccount(account);
}

void AccountsManager::deleteAccount(const Account& account) {
  RSLog("Deleting account:", account->properties());
  const String identifier = account->identifier();
  _removeChildrenForAccountWithIdentifier(identifier);
  _indexes->topLevelAccountsByID.erase(identifier);
  AccountArray& ordered = *_indexes->orderedTopLevelAccounts;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    if (!(ordered[index]->identifier() == identifier)) continue;
    ordered.removeIdentical(ordered[index].get());
    return;
  }
}

void AccountsManager::deleteAccountWithIdentifier(std::string_view identifier) {
  const Account* found = _indexes->topLevelAccountsByID.find(identifier);
  if (found == nullptr) return;
  deleteAccount(Account(*found));
}

void AccountsManager::replaceAccountWithAccount(const Account& oldAccount, const Account& newAccount) {
  const auto current = _indexes->orderedTopLevelAccounts->span();
  std::vector<Account> ordered(current.begin(), current.end());
  const String oldIdentifier = oldAccount->identifier();
  _removeChildrenForAccountWithIdentifier(oldIdentifier);
  _indexes->topLevelAccountsByID.erase(oldIdentifier);
  const auto place = std::find(ordered.begin(), ordered.end(), oldAccount);
  if (place == ordered.end()) throw std::out_of_range("the account to replace is not in the store");
  *place = newAccount;
  _loadChildrenFromAccount(newAccount);
  _indexes->orderedTopLevelAccounts = std::make_shared<AccountArray>(std::move(ordered));
}

void AccountsManager::replaceAccountsWithTypesWithAccounts(const TypeSet& types,
                                                           const std::vector<Account>& accounts) {
  RSLog("Replacing accounts");
  const auto current = _indexes->orderedTopLevelAccounts->span();
  std::vector<Account> ordered(current.begin(), current.end());
  OrderedMap<Account> topLevelByID;
  topLevelByID.reserve(ordered.size());
  OrderedMap<Account> givenByID;
  for (const Account& given : accounts) givenByID.set(storedIdentifier(given), given);

  std::unordered_set<const BasicAccount*> placed;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    Account& record = ordered[index];
    const String identifier = storedIdentifier(record);
    if (const Account* given = givenByID.find(identifier)) {
      record = *given;
      topLevelByID.set(identifier, *given);
      placed.insert(given->get());
      _loadChildrenFromAccount(*given);
    } else if (types.contains(record->type())) {
      _removeChildrenForAccountWithIdentifier(identifier);
      record.reset();
    } else {
      topLevelByID.set(identifier, record);
    }
  }
  std::erase(ordered, nullptr);

  for (const Account& given : accounts) {
    if (placed.contains(given.get())) continue;
    if (given->parentAccountIdentifier()) {
      const Account* parent = topLevelByID.find(given->parentAccountIdentifier());
      moveChild(given, parent == nullptr ? nullptr : *parent);
    } else {
      ordered.push_back(given);
      topLevelByID.set(storedIdentifier(given), given);
      _loadChildrenFromAccount(given);
    }
  }
  _indexes->topLevelAccountsByID = std::move(topLevelByID);
  _indexes->orderedTopLevelAccounts = std::make_shared<AccountArray>(std::move(ordered));
}

/// Takes the child out of whoever has it now and adds it to its parent, which may be nobody.
void AccountsManager::moveChild(const Account& child, const Account& parent) {
  const String childID = child->identifier();
  const String formerID = _indexes->parentIDOfChild(childID);
  const bool isAtHome = formerID && parent && formerID == parent->identifier();
  const Account former = isAtHome ? parent : formerID ? accountWithIdentifier(formerID) : nullptr;
  removeChildWithIdentifierFromAccount(childID, former);
  addChildToAccount(child, parent);
}

void AccountsManager::addChildToAccount(const Account& child, const Account& parent) {
  if (!parent) return;
  const Array known = parent->accountPropertyForKey(kAccountChildAccounts).array().value_or(Array());
  std::vector<Value> children(known.begin(), known.end());
  children.emplace_back(child->properties());
  parent->setAccountPropertyForKey(Array(std::move(children)), kAccountChildAccounts);
  _loadChildrenFromAccount(parent);
}

void AccountsManager::removeChildWithIdentifierFromAccount(const String& identifier, const Account& parent) {
  if (!parent) return;
  const std::optional<Array> known = parent->accountPropertyForKey(kAccountChildAccounts).array();
  if (known) {
    std::vector<Value> children(known->begin(), known->end());
    for (const Value& element : *known) {
      const std::optional<Dictionary> properties = element.dictionary();
      const Account child = properties ? BasicAccount::initWithProperties(*properties) : nullptr;
      if (child && child->identifier() == identifier) std::erase(children, element);
    }
    parent->setAccountPropertyForKey(Array(std::move(children)), kAccountChildAccounts);
  }
  _loadChildrenFromAccount(parent);
}

}  // namespace roster
