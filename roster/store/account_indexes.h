#pragma once

#include <memory>
#include <vector>

#include "roster/store/account_collections.h"
#include "roster/value/ordered_map.h"

namespace roster {

/// Where a store finds its records: the top-level ones in order and by identifier, the child records by
/// identifier, and who is whose child.
///
/// The identifiers in the top-level index are unique; the ordered list may hold several records with one
/// identifier, of which the index then knows one. Child records are in the child indexes only. A record
/// without an identifier is in the ordered list only.
class AccountIndexes {
 public:
  /// One of the indexes by identifier. Walking it gives key and value; it is asked for one with `find`.
  using ByID = OrderedMap<AccountPtr>;

  // ---- Walks and look-ups. The references live as long as the indexes.

  /// The top-level records in order: one list for the life of the store, shared with those who were given it.
  const std::shared_ptr<AccountArray>& topLevelAccounts() const { return topLevelAccounts_; }
  const ByID& topLevelAccountsByID() const { return topLevelAccountsByID_; }
  const ByID& childAccountsByID() const { return childAccountsByID_; }
  /// The top-level record with the identifier, or the parent of the child with it; nil when there is neither.
  AccountPtr ownerOf(std::string_view identifier) const;
  /// The identifier of the parent of an indexed child; nil for any other identifier.
  String parentIDOfChild(std::string_view childID) const;
  /// The indexed children of the very record, in the order of its "ChildAccounts".
  std::vector<AccountPtr> childrenOf(const AccountPtr& parent) const;

  // ---- Top-level accounts

  void reserve(std::size_t count);
  /// Finds the record under the identifier from now on, if there is one. Returns whether it is new.
  bool setTopLevel(const String& identifier, const AccountPtr& account) {
    return identifier && topLevelAccountsByID_.set(identifier, account);
  }
  /// Finds nothing under the identifier from now on.
  void removeTopLevel(const String& identifier) {
    if (identifier) topLevelAccountsByID_.erase(identifier);
  }
  void replaceTopLevel(std::vector<AccountPtr> ordered, ByID byID);

  // ---- Children

  /// Makes a record of an element of the parent's "ChildAccounts" and enters it, in place of an older record
  /// with its identifier, whoever's child that was. Returns its identifier; nil, with one line in the system
  /// log, when the element is rejected.
  String addChild(const Value& element, const AccountPtr& parent, const String& parentID);
  /// Enters a record that is the parent's child under the identifier, as `addChild` enters the one it makes.
  void enterChild(const AccountPtr& child, const String& childID, const String& parentID);
  /// Finds this record for a child that is entered already.
  void replaceChild(const String& childID, const AccountPtr& child) {
    childAccountsByID_.set(childID, child);
  }
  /// Adds every element of a list, the parent's "ChildAccounts"; nothing when it is no array.
  void addChildren(const Value& list, const AccountPtr& parent, const String& parentID);
  /// Adds those that the parent has now in place of what was known of its children.
  void reloadChildrenOf(const AccountPtr& parent);
  void removeChild(std::string_view childID);
  /// Forgets all children of a parent, in time linear in their number.
  void removeChildrenOf(const String& parentID);
  /// Whether a child that was entered for the parent has gone to another parent since.
  bool hasLostChildren(const String& parentID) const;

 private:
  struct Children {
    /// Every identifier that was entered; those that went elsewhere since may still be here.
    std::vector<String> ids{};
    bool areSomeLost = false;
  };

  std::shared_ptr<AccountArray> topLevelAccounts_ = std::make_shared<AccountArray>();
  ByID topLevelAccountsByID_;
  ByID childAccountsByID_;
  OrderedMap<String> childAccountIDToParentAccountID_;
  OrderedMap<Children> childrenByParentID_;
};

}  // namespace roster
