#include "roster/store/account_indexes.h"

#include <algorithm>
#include <unordered_set>

#include "roster/base/foreign_code.h"
#include "roster/platform/system_log.h"

namespace roster {

AccountPtr AccountIndexes::ownerOf(std::string_view identifier) const {
  if (const AccountPtr* account = topLevelAccountsByID_.find(identifier)) return *account;
  const AccountPtr* child = childAccountsByID_.find(identifier);
  const String parentID = child == nullptr ? String() : parentIDOfChild(held(*child)->identifier());
  const AccountPtr* parent = parentID ? topLevelAccountsByID_.find(parentID) : nullptr;
  return parent == nullptr ? nullptr : *parent;
}

String AccountIndexes::parentIDOfChild(std::string_view childID) const {
  const String* parentID = childAccountIDToParentAccountID_.find(childID);
  return parentID == nullptr ? String() : *parentID;
}

std::vector<AccountPtr> AccountIndexes::childrenOf(const AccountPtr& parent) const {
  const String parentID = parent ? parent->identifier() : String();
  const Children* children = parentID ? childrenByParentID_.find(parentID) : nullptr;
  std::vector<AccountPtr> records;
  if (children == nullptr) return records;
  // Of what was entered several times the last entry made the record.
  std::unordered_set<const BasicAccount*> listed;
  for (std::size_t index = children->ids.size(); index-- > 0;) {
    const AccountPtr* child = childAccountsByID_.find(children->ids[index]);
    if (child == nullptr || (*child)->parentAccount() != parent || !listed.insert(child->get()).second)
      continue;
    records.push_back(*child);
  }
  std::reverse(records.begin(), records.end());
  return records;
}

void AccountIndexes::reserve(std::size_t count) {
  topLevelAccounts_->reserve(count);
  topLevelAccountsByID_.reserve(count);
}

void AccountIndexes::replaceTopLevel(std::vector<AccountPtr> ordered, ByID byID) {
  topLevelAccountsByID_ = std::move(byID);
  topLevelAccounts_->replaceAll(std::move(ordered));
}

String AccountIndexes::addChild(const Value& element, const AccountPtr& parent, const String& parentID) {
  const std::optional<Dictionary> properties = element.dictionary();
  const AccountPtr child = properties ? BasicAccount::initWithProperties(*properties) : nullptr;
  if (child) child->setParentAccount(parent);
  String childID = child ? child->identifier() : String();
  if (childID.isNil()) {
    systemLog("Ignoring unknown child account with properties %@", element);
    return {};
  }
  enterChild(child, childID, parentID);
  return childID;
}

void AccountIndexes::enterChild(const AccountPtr& child, const String& childID, const String& parentID) {
  childAccountsByID_.set(childID, child);
  if (String* known = childAccountIDToParentAccountID_.find(childID)) {
    Children* former = *known == parentID ? nullptr : childrenByParentID_.find(*known);
    if (former != nullptr) former->areSomeLost = true;
    *known = parentID;
  } else {
    childAccountIDToParentAccountID_.append(childID, parentID);
  }
  if (Children* siblings = childrenByParentID_.find(parentID)) {
    siblings->ids.push_back(childID);
  } else {
    childrenByParentID_.append(parentID, {{childID}});
  }
}

void AccountIndexes::addChildren(const Value& list, const AccountPtr& parent, const String& parentID) {
  const std::optional<Array> children = list.array();
  if (!children) return;
  for (const Value& element : *children) addChild(element, parent, parentID);
}

void AccountIndexes::reloadChildrenOf(const AccountPtr& parent) {
  const String parentID = parent->identifier();
  removeChildrenOf(parentID);
  addChildren(parent->accountPropertyForKey(kAccountChildAccounts), parent, parentID);
}

void AccountIndexes::removeChild(std::string_view childID) {
  childAccountIDToParentAccountID_.erase(childID);
  childAccountsByID_.erase(childID);
}

void AccountIndexes::removeChildrenOf(const String& parentID) {
  if (parentID.isNil()) return;
  Children* found = childrenByParentID_.find(parentID);
  if (found == nullptr) return;
  // A child's full account may use the store when it is destroyed.
  const std::vector<String> ids = std::move(found->ids);
  childrenByParentID_.erase(parentID);
  for (const String& childID : ids) {
    if (parentIDOfChild(childID) == parentID) removeChild(childID);
  }
}

bool AccountIndexes::hasLostChildren(const String& parentID) const {
  const Children* children = childrenByParentID_.find(parentID);
  return children != nullptr && children->areSomeLost;
}

}  // namespace roster
