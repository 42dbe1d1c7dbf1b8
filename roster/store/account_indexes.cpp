#include "roster/store/account_indexes.h"

#include "roster/platform/system_log.h"

namespace roster {

String AccountIndexes::parentIDOfChild(std::string_view childID) const {
  const String* parentID = childAccountIDToParentAccountID_.find(childID);
  return parentID == nullptr ? String() : *parentID;
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
  return childID;
}

void AccountIndexes::removeChild(std::string_view childID) {
  childAccountIDToParentAccountID_.erase(childID);
  childAccountsByID_.erase(childID);
}

void AccountIndexes::removeChildrenOf(const String& parentID) {
  if (parentID.isNil()) return;
  const Children* children = childrenByParentID_.find(parentID);
  if (children == nullptr) return;
  for (const String& childID : children->ids) {
    if (parentIDOfChild(childID) == parentID) removeChild(childID);
  }
  childrenByParentID_.erase(parentID);
}

bool AccountIndexes::hasLostChildren(const String& parentID) const {
  const Children* children = childrenByParentID_.find(parentID);
  return children != nullptr && children->areSomeLost;
}

}  // namespace roster
