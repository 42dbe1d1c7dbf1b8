#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "roster/diag/debug_log.h"
#include "roster/store/account_indexes.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/child_moves.h"

namespace roster {

namespace {

/// The identifier that a replacement goes by: the stored one, which a subclass may answer differently.
String storedIdentifier(const AccountPtr& account) {
  return account->accountPropertyForKey(kAccountIdentifier).string();
}

/// Equality of identifiers: what has none is the same as nothing.
bool areSame(const String& identifier, const String& other) { return identifier && identifier == other; }

}  // namespace

void AccountsManager::updateAccount(const AccountPtr& account) {
  RSLog("Updating account:%@", account->properties());
  const String identifier = account->identifier();
  AccountArray& ordered = *_indexes->orderedTopLevelAccounts;
  bool isFound = false;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    if (!areSame(ordered[index]->identifier(), identifier)) continue;
    ordered.replaceAt(index, account);
    isFound = true;
  }
  if (!isFound) return;
  _indexes->setTopLevel(identifier, account);
  _loadChildrenFromAccount(account);
}

void AccountsManager::insertAccount(const AccountPtr& account) {
  RSLog("Inserting account:", account->properties());
  const String identifier = account->identifier();
  if (identifier && _indexes->topLevelAccountsByID.contains(identifier)) return;
  _indexes->setTopLevel(identifier, account);
  _indexes->orderedTopLevelAccounts->append(account);
  _loadChildrenFromAccount(account);
}

void AccountsManager::deleteAccount(const AccountPtr& account) {
  RSLog("Deleting account:", account->properties());
  const String identifier = account->identifier();
  _removeChildrenForAccountWithIdentifier(identifier);
  _indexes->removeTopLevel(identifier);
  AccountArray& ordered = *_indexes->orderedTopLevelAccounts;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    if (!areSame(ordered[index]->identifier(), identifier)) continue;
    ordered.removeIdentical(ordered[index].get());
    return;
  }
}

void AccountsManager::deleteAccountWithIdentifier(std::string_view identifier) {
  const AccountPtr* found = _indexes->topLevelAccountsByID.find(identifier);
  if (found == nullptr) return;
  deleteAccount(AccountPtr(*found));
}

void AccountsManager::replaceAccountWithAccount(const AccountPtr& oldAccount, const AccountPtr& newAccount) {
  const auto current = _indexes->orderedTopLevelAccounts->span();
  std::vector<AccountPtr> ordered(current.begin(), current.end());
  const String oldIdentifier = oldAccount->identifier();
  _removeChildrenForAccountWithIdentifier(oldIdentifier);
  _indexes->removeTopLevel(oldIdentifier);
  const auto place = std::find(ordered.begin(), ordered.end(), oldAccount);
  if (place == ordered.end()) throw std::out_of_range("the account to replace is not in the store");
  *place = newAccount;
  _loadChildrenFromAccount(newAccount);
  _indexes->orderedTopLevelAccounts->replaceAll(std::move(ordered));
}

void AccountsManager::replaceAccountsWithTypesWithAccounts(const TypeSet& types,
                                                           const std::vector<AccountPtr>& accounts) {
  RSLog("Replacing accounts");
  const auto current = _indexes->orderedTopLevelAccounts->span();
  std::vector<AccountPtr> ordered(current.begin(), current.end());
  OrderedMap<AccountPtr> topLevelByID;
  topLevelByID.reserve(ordered.size());
  const std::unordered_set<const BasicAccount*> placed =
      replaceInPlace(types, accounts, ordered, topLevelByID);
  {
    ChildMoves moves(*_indexes);
    for (const AccountPtr& given : accounts) {
      if (placed.contains(given.get())) continue;
      if (const String parentID = given->parentAccountIdentifier()) {
        const AccountPtr* parent = topLevelByID.find(parentID);
        moveChild(given, parent == nullptr ? nullptr : *parent, moves);
        continue;
      }
      ordered.push_back(given);
      if (const String identifier = storedIdentifier(given)) topLevelByID.set(identifier, given);
      moves.release(given->identifier());
      _loadChildrenFromAccount(given);
    }
  }
  _indexes->topLevelAccountsByID = std::move(topLevelByID);
  _indexes->orderedTopLevelAccounts->replaceAll(std::move(ordered));
}

/// Puts the given records into the positions of those with their identifiers, and takes out the others of the
/// types. Returns the given records that found a position.
std::unordered_set<const BasicAccount*> AccountsManager::replaceInPlace(
    const TypeSet& types, const std::vector<AccountPtr>& accounts, std::vector<AccountPtr>& ordered,
    OrderedMap<AccountPtr>& topLevelByID) {
  OrderedMap<AccountPtr> givenByID;
  for (const AccountPtr& given : accounts) {
    if (const String identifier = storedIdentifier(given)) givenByID.set(identifier, given);
  }
  std::unordered_map<const BasicAccount*, std::size_t> positionsLeft;
  for (const AccountPtr& record : ordered) {
    const String identifier = storedIdentifier(record);
    const AccountPtr* given = identifier ? givenByID.find(identifier) : nullptr;
    if (given != nullptr) ++positionsLeft[given->get()];
  }

  std::unordered_set<const BasicAccount*> placed;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    AccountPtr& record = ordered[index];
    const String identifier = storedIdentifier(record);
    if (const AccountPtr* given = identifier ? givenByID.find(identifier) : nullptr) {
      record = *given;
      topLevelByID.set(identifier, *given);
      placed.insert(given->get());
      // Of all the times that its children would be indexed only the last one leaves a trace.
      if (--positionsLeft[given->get()] == 0) _loadChildrenFromAccount(*given);
    } else if (types.contains(record->type())) {
      _removeChildrenForAccountWithIdentifier(identifier);
      record.reset();
    } else if (identifier) {
      topLevelByID.set(identifier, record);
    }
  }
  std::erase(ordered, nullptr);
  return placed;
}

/// Takes the child out of whoever has it now and adds it to its parent, which may be nobody.
void AccountsManager::moveChild(const AccountPtr& child, const AccountPtr& parent, ChildMoves& moves) {
  const String childID = child->identifier();
  const String formerID = childID ? _indexes->parentIDOfChild(childID) : String();
  const bool isAtHome = formerID && parent && formerID == parent->identifier();
  const AccountPtr former = isAtHome ? parent : formerID ? accountWithIdentifier(formerID) : nullptr;
  moves.remove(childID, former);
  moves.add(child, parent);
}

void AccountsManager::addChildToAccount(const AccountPtr& child, const AccountPtr& parent) {
  if (!parent) return;
  const Array known = parent->accountPropertyForKey(kAccountChildAccounts).array().value_or(Array());
  std::vector<Value> children(known.begin(), known.end());
  children.emplace_back(child->properties());
  parent->setAccountPropertyForKey(Array(std::move(children)), kAccountChildAccounts);
  _loadChildrenFromAccount(parent);
}

void AccountsManager::removeChildWithIdentifierFromAccount(const String& identifier,
                                                           const AccountPtr& parent) {
  if (!parent) return;
  const std::optional<Array> known = parent->accountPropertyForKey(kAccountChildAccounts).array();
  if (known) {
    std::vector<Value> children;
    for (const Value& element : *known) {
      const std::optional<Dictionary> properties = element.dictionary();
      const AccountPtr child = properties ? BasicAccount::initWithProperties(*properties) : nullptr;
      if (!child || !areSame(child->identifier(), identifier)) children.push_back(element);
    }
    parent->setAccountPropertyForKey(Array(std::move(children)), kAccountChildAccounts);
  }
  _loadChildrenFromAccount(parent);
}

}  // namespace roster
