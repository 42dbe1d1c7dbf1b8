#include "store/account_indexes.h"

namespace roster {

String AccountIndexes::parentIDOfChild(std::string_view childID) const {
  const String* parentID = childAccountIDToParentAccountID_.find(childID);
  return parentID == nullptr ? String() : *parentID;
}

void AccountIndexes::addChild(const Account& child, const String& childID, const String& parentID) {
  childAccountsByID_.set(childID, child);
  childAccountIDToParentAccountID_.set(childID, parentID);
  std::vector<String>* siblings = childIDsByParentID_.find(parentID);
  if (siblings == nullptr) {
    childIDsByParentID_.append(parentID, {childID});
  } else {
    siblings->push_back(childID);
  }
}

void AccountIndexes::removeChildrenOf(const String& parentID) {
  if (parentID.isNil()) return;
  const std::vector<String>* children = childIDsByParentID_.find(parentID);
  if (children == nullptr) return;
  for (const String& childID : *children) {
    if (!(parentIDOfChild(childID) == parentID)) continue;
    childAccountIDToParentAccountID_.erase(childID);
    childAccountsByID_.erase(childID);
  }
  childIDsByParentID_.erase(parentID);
}

}  // namespace roster
