#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "roster/base/foreign_code.h"
#include "roster/diag/debug_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/child_moves.h"
#include "roster/store/store_state.h"

namespace roster {

namespace {

/// The identifier that a replacement goes by: the stored one, which a subclass may answer differently.
String storedIdentifier(const AccountPtr& account) {
  return account->accountPropertyForKey(kAccountIdentifier).string();
}

/// The record, held: it may be an element of a list that the operation changes. Throws before anything has
/// changed when it is nil; a parent may be missing, a record may not.
AccountPtr required(const AccountPtr& account) {
  if (!account) throw std::invalid_argument("a record that a store is to change or hold must not be nil");
  return account;
}
std::vector<AccountPtr> required(const std::vector<AccountPtr>& accounts) {
  std::vector<AccountPtr> records;
  std::transform(accounts.begin(), accounts.end(), std::back_inserter(records),
                 [](const AccountPtr& account) { return required(account); });
  return records;
}

/// Whether two identifiers are the same; a record without one is the same as no other.
bool areSame(const String& identifier, const String& other) { return identifier && identifier == other; }

/// Replaces a store's top-level accounts, step by step. Children are indexed on the way; the list of
/// top-level accounts changes only at the end.
class AccountReplacement {
 public:
  explicit AccountReplacement(AccountIndexes& indexes) : indexes_(indexes) {
    const auto current = indexes.topLevelAccounts()->span();
    ordered_.assign(current.begin(), current.end());
    topLevelByID_.reserve(ordered_.size());
  }

  /// Puts the given records into the positions of those with their identifiers, and takes out the others of
  /// the types.
  void putInPlace(const TypeSet& types, const std::vector<AccountPtr>& accounts);
  /// Appends the given records that found no position, children to their parents.
  void appendOthers(const std::vector<AccountPtr>& accounts);
  void finish() { indexes_.replaceTopLevel(std::move(ordered_), std::move(topLevelByID_)); }

 private:
  void moveChild(const AccountPtr& child, const AccountPtr& parent, ChildMoves& moves);

  AccountIndexes& indexes_;
  std::vector<AccountPtr> ordered_;
  AccountIndexes::ByID topLevelByID_;
  /// The given records that found a position.
  std::unordered_set<const BasicAccount*> placed_;
};

void AccountReplacement::putInPlace(const TypeSet& types, const std::vector<AccountPtr>& accounts) {
  AccountIndexes::ByID givenByID;
  for (const AccountPtr& given : accounts) {
    if (const String identifier = storedIdentifier(given)) givenByID.set(identifier, given);
  }
  std::unordered_map<const BasicAccount*, std::size_t> positionsLeft;
  for (const AccountPtr& record : ordered_) {
    const String identifier = storedIdentifier(record);
    const AccountPtr* given = identifier ? givenByID.find(identifier) : nullptr;
    if (given != nullptr) ++positionsLeft[given->get()];
  }

  for (std::size_t index = ordered_.size(); index-- > 0;) {
    AccountPtr& record = ordered_[index];
    const String identifier = storedIdentifier(record);
    if (const AccountPtr* given = identifier ? givenByID.find(identifier) : nullptr) {
      record = *given;
      topLevelByID_.set(identifier, *given);
      placed_.insert(given->get());
      // Of all the times that its children would be indexed only the last one leaves a trace.
      if (--positionsLeft[given->get()] == 0) indexes_.reloadChildrenOf(*given);
    } else if (types.contains(record->type())) {
      indexes_.removeChildrenOf(identifier);
      record.reset();
    } else if (identifier) {
      topLevelByID_.set(identifier, record);
    }
  }
  std::erase(ordered_, nullptr);
}

void AccountReplacement::appendOthers(const std::vector<AccountPtr>& accounts) {
  ChildMoves moves(indexes_);
  for (const AccountPtr& given : accounts) {
    if (placed_.contains(given.get())) continue;
    if (const String parentID = given->parentAccountIdentifier()) {
      const AccountPtr* parent = topLevelByID_.find(parentID);
      moveChild(given, parent == nullptr ? nullptr : *parent, moves);
      continue;
    }
    ordered_.push_back(given);
    if (const String identifier = storedIdentifier(given)) topLevelByID_.set(identifier, given);
    moves.reload(given);
  }
  moves.finish();
}

/// Takes the child out of whoever has it now and adds it to its parent, which may be nobody.
void AccountReplacement::moveChild(const AccountPtr& child, const AccountPtr& parent, ChildMoves& moves) {
  const String childID = child->identifier();
  const String formerID = childID ? indexes_.parentIDOfChild(childID) : String();
  const bool isAtHome = formerID && parent && formerID == parent->identifier();
  const AccountPtr former = isAtHome ? parent : formerID ? indexes_.ownerOf(formerID) : nullptr;
  moves.remove(childID, former);
  moves.add(child, parent);
}

}  // namespace

void AccountsManager::updateAccount(const AccountPtr& newAccount) {
  const auto kept = shared_from_this();
  const AccountPtr account = required(newAccount);
  RSLog("Updating account:%@", account->properties());
  const String identifier = account->identifier();
  AccountIndexes& indexes = _state->indexes;
  AccountArray& ordered = *indexes.topLevelAccounts();
  bool isFound = false;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    if (!areSame(ordered[index]->identifier(), identifier)) continue;
    ordered.replaceAt(index, account);
    isFound = true;
  }
  if (!isFound) return;
  indexes.setTopLevel(identifier, account);
  indexes.reloadChildrenOf(account);
}

void AccountsManager::insertAccount(const AccountPtr& newAccount) {
  const auto kept = shared_from_this();
  const AccountPtr account = required(newAccount);
  RSLog("Inserting account:", account->properties());
  const String identifier = account->identifier();
  AccountIndexes& indexes = _state->indexes;
  if (identifier && indexes.topLevelAccountsByID().contains(identifier)) return;
  indexes.setTopLevel(identifier, account);
  indexes.topLevelAccounts()->append(account);
  indexes.reloadChildrenOf(account);
}

void AccountsManager::deleteAccount(const AccountPtr& oldAccount) {
  const auto kept = shared_from_this();
  const AccountPtr account = required(oldAccount);
  RSLog("Deleting account:", account->properties());
  const String identifier = account->identifier();
  AccountIndexes& indexes = _state->indexes;
  indexes.removeChildrenOf(identifier);
  indexes.removeTopLevel(identifier);
  AccountArray& ordered = *indexes.topLevelAccounts();
  for (std::size_t index = ordered.size(); index-- > 0;) {
    const AccountPtr each = ordered[index];
    if (!areSame(each->identifier(), identifier)) continue;
    ordered.removeIdentical(each.get());
    return;
  }
}

void AccountsManager::deleteAccountWithIdentifier(std::string_view identifier) {
  const AccountPtr* found = _state->indexes.topLevelAccountsByID().find(identifier);
  if (found == nullptr) return;
  deleteAccount(*found);
}

void AccountsManager::replaceAccountWithAccount(const AccountPtr& oldAccount, const AccountPtr& newAccount) {
  const auto kept = shared_from_this();
  const AccountPtr former = required(oldAccount);
  const AccountPtr successor = required(newAccount);
  AccountIndexes& indexes = _state->indexes;
  const String oldIdentifier = former->identifier();
  indexes.removeChildrenOf(oldIdentifier);
  indexes.removeTopLevel(oldIdentifier);
  const auto ordered = indexes.topLevelAccounts()->span();
  const auto found = std::find(ordered.begin(), ordered.end(), former);
  if (found == ordered.end()) throw std::out_of_range("the account to replace is not in the store");
  const auto index = static_cast<std::size_t>(found - ordered.begin());
  indexes.reloadChildrenOf(successor);
  indexes.topLevelAccounts()->replaceAt(index, successor);
}

void AccountsManager::replaceAccountsWithTypesWithAccounts(const TypeSet& types,
                                                           const std::vector<AccountPtr>& accounts) {
  const auto kept = shared_from_this();
  const std::vector<AccountPtr> given = required(accounts);
  RSLog("Replacing accounts");
  AccountReplacement replacement(_state->indexes);
  replacement.putInPlace(types, given);
  replacement.appendOthers(given);
  replacement.finish();
}

void AccountsManager::updateChildAccount(const AccountPtr& changedChild) {
  const auto kept = shared_from_this();
  const AccountPtr child = required(changedChild);
  const String identifier = child->identifier();
  AccountIndexes& indexes = _state->indexes;
  const String parentID = identifier ? indexes.parentIDOfChild(identifier) : String();
  const AccountPtr* found = parentID ? indexes.topLevelAccountsByID().find(parentID) : nullptr;
  if (found == nullptr) return;
  const AccountPtr parent = *found;
  const Array known = parent->accountPropertyForKey(kAccountChildAccounts).array().value_or(Array());
  std::vector<Value> children(known.begin(), known.end());
  // Of several children with one identifier the last is the one that is found.
  const auto element = std::find_if(children.rbegin(), children.rend(), [&](const Value& each) {
    const std::optional<Dictionary> properties = each.dictionary();
    return properties && areSame(properties->find(kAccountIdentifier).string(), identifier);
  });
  if (element == children.rend()) return;
  *element = child->propertiesToSave().deepCopy();
  parent->setAccountPropertyForKey(Array(std::move(children)), kAccountChildAccounts);
  child->setParentAccount(parent);
  indexes.replaceChild(identifier, child);
}

void AccountsManager::addChildToAccount(const AccountPtr& newChild, const AccountPtr& newParent) {
  const auto kept = shared_from_this();
  const AccountPtr child = required(newChild);
  const AccountPtr parent = held(newParent);
  if (!parent) return;
  const Array known = parent->accountPropertyForKey(kAccountChildAccounts).array().value_or(Array());
  std::vector<Value> children(known.begin(), known.end());
  children.emplace_back(child->properties());
  parent->setAccountPropertyForKey(Array(std::move(children)), kAccountChildAccounts);
  _state->indexes.reloadChildrenOf(parent);
}

void AccountsManager::removeChildWithIdentifierFromAccount(const String& identifier,
                                                           const AccountPtr& formerParent) {
  const auto kept = shared_from_this();
  const AccountPtr parent = held(formerParent);
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
  _state->indexes.reloadChildrenOf(parent);
}

}  // namespace roster
