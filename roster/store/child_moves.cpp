#include "roster/store/child_moves.h"

namespace roster {

void ChildMoves::remove(const String& childID, const AccountPtr& parent) {
  if (!parent) return;
  Parent& opened = open(parent);
  const auto found = opened.indexesByID.find(childID.str());
  if (childID && found != opened.indexesByID.end()) {
    for (const std::size_t index : found->second) opened.children[index] = Value();
    opened.indexesByID.erase(found);
    indexes_.removeChild(childID);
  }
  if (opened.hasChildren) changed(opened);
}

void ChildMoves::add(const AccountPtr& child, const AccountPtr& parent) {
  if (!parent) return;
  Parent& opened = open(parent);
  const Value element = child->properties();
  note(element, Role::asChild);
  append(opened, parent->identifier(), element);
  opened.hasChildren = true;
  changed(opened);
}

void ChildMoves::release(const String& parentID) {
  const auto found = parentsByID_.find(parentID.str());
  if (found == parentsByID_.end()) return;
  write(found->second);
  parentsByID_.erase(found);
}

/// The parent with all its children indexed as its own.
ChildMoves::Parent& ChildMoves::open(const AccountPtr& account) {
  const String parentID = account->identifier();
  auto found = parentsByID_.find(parentID.str());
  if (found != parentsByID_.end() && found->second.account == account) {
    if (isNothingPutOff_ || indexes_.hasLostChildren(parentID)) index(found->second, parentID);
    return found->second;
  }
  release(parentID);
  Parent& opened = parentsByID_.emplace(parentID.str(), take(account)).first->second;
  index(opened, parentID);
  return opened;
}

ChildMoves::Parent ChildMoves::take(const AccountPtr& account) {
  // Properties that it lacks are those of its own parent, which may be open.
  if (account->parentAccount()) writeAll();
  Parent taken{.account = account};
  note(account->properties(), Role::asParent);
  const std::optional<Array> children = account->accountPropertyForKey(kAccountChildAccounts).array();
  taken.hasChildren = children.has_value();
  for (const Value& element : children.value_or(Array())) {
    note(element, Role::asChild);
    taken.children.push_back(element);
  }
  return taken;
}

void ChildMoves::index(Parent& parent, const String& parentID) {
  const std::vector<Value> children = std::exchange(parent.children, {});
  parent.indexesByID.clear();
  indexes_.removeChildrenOf(parentID);
  for (const Value& element : children) {
    if (!element.isNil()) append(parent, parentID, element);
  }
}

void ChildMoves::append(Parent& parent, const String& parentID, const Value& element) {
  const String childID = indexes_.addChild(element, parent.account, parentID);
  if (childID) parent.indexesByID[childID.str()].push_back(parent.children.size());
  parent.children.push_back(element);
}

void ChildMoves::note(const Value& properties, Role role) {
  if (!properties.isLiveDictionary()) return;
  unsigned& roles = roles_[properties.identity()];
  roles |= role;
  if (isNothingPutOff_ || roles != (Role::asParent | Role::asChild)) return;
  writeAll();
  isNothingPutOff_ = true;
}

void ChildMoves::changed(Parent& parent) {
  parent.isChanged = true;
  if (isNothingPutOff_) writeAll();
}

void ChildMoves::write(Parent& parent) {
  if (!std::exchange(parent.isChanged, false)) return;
  std::vector<Value> children = parent.children;
  std::erase_if(children, [](const Value& element) { return element.isNil(); });
  parent.account->setAccountPropertyForKey(Array(std::move(children)), kAccountChildAccounts);
}

void ChildMoves::writeAll() {
  for (auto& entry : parentsByID_) write(entry.second);
}

}  // namespace roster
