#include "roster/store/child_moves.h"

namespace roster {

namespace {

/// Whether the element makes a child with the identifier.
bool hasIdentifier(const Value& element, const String& identifier) {
  const std::optional<Dictionary> properties = element.dictionary();
  return identifier && properties && properties->find(kAccountIdentifier).string() == identifier &&
         BasicAccount::initWithProperties(*properties);
}

}  // namespace

void ChildMoves::remove(const String& childID, const AccountPtr& parent) {
  if (!parent) return;
  Parent& opened = open(parent, childID);
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
  noteChild(element);
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

void ChildMoves::reload(const AccountPtr& parent) {
  release(parent->identifier());
  const std::optional<Array> children = parent->accountPropertyForKey(kAccountChildAccounts).array();
  for (const Value& element : children.value_or(Array())) noteChild(element);
  indexes_.reloadChildrenOf(parent);
}

/// The parent with all its children indexed as its own, less the one that leaves it.
ChildMoves::Parent& ChildMoves::open(const AccountPtr& account, const String& leavingID) {
  const String parentID = account->identifier();
  auto found = parentsByID_.find(parentID.str());
  if (found != parentsByID_.end() && found->second.account == account) {
    if (isNothingPutOff_ || indexes_.hasLostChildren(parentID)) index(found->second, parentID, leavingID);
    return found->second;
  }
  release(parentID);
  Parent& opened = parentsByID_.emplace(parentID.str(), take(account)).first->second;
  index(opened, parentID, leavingID);
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
    noteChild(element);
    taken.children.push_back(element);
  }
  return taken;
}

/// A child that is about to leave is not indexed first: that would take it from a parent that has it by now.
void ChildMoves::index(Parent& parent, const String& parentID, const String& leavingID) {
  const std::vector<Value> children = std::exchange(parent.children, {});
  parent.indexesByID.clear();
  indexes_.removeChildrenOf(parentID);
  for (const Value& element : children) {
    if (!element.isNil() && !hasIdentifier(element, leavingID)) append(parent, parentID, element);
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
  if (roles == (Role::asParent | Role::asChild)) putNothingOff();
}

/// Also when a parent may be further down, where nobody looks for it: the child is copied with all it holds.
void ChildMoves::noteChild(const Value& element) {
  note(element, Role::asChild);
  const std::optional<Dictionary> child = element.dictionary();
  const std::optional<Array> nested = child ? child->find(kAccountChildAccounts).array() : std::nullopt;
  for (const Value& each : nested.value_or(Array())) {
    const std::optional<Dictionary> properties = each.dictionary();
    if (properties && (each.isLiveDictionary() || properties->contains(kAccountChildAccounts)))
      putNothingOff();
  }
}

void ChildMoves::putNothingOff() {
  if (std::exchange(isNothingPutOff_, true)) return;
  writeAll();
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
