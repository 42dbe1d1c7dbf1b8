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
/// identifier, of which the index then knows one. Child records are in the child indexes only.
class AccountIndexes {
 public:
  /// One list for the life of the store, shared with those who were given it.
  const std::shared_ptr<AccountArray> orderedTopLevelAccounts = std::make_shared<AccountArray>();
  OrderedMap<AccountPtr> topLevelAccountsByID;

  // A record without an identifier is in the ordered list only.

  /// Returns whether the identifier is new.
  bool setTopLevel(const String& identifier, const AccountPtr& account) {
    return identifier && topLevelAccountsByID.set(identifier, account);
  }
  void removeTopLevel(const String& identifier) {
    if (identifier) topLevelAccountsByID.erase(identifier);
  }

  const OrderedMap<AccountPtr>& childAccountsByID() const { return childAccountsByID_; }
  /// The identifier of the parent of an indexed child; nil for any other identifier.
  String parentIDOfChild(std::string_view childID) const;

  /// Makes a record of an element of the parent's "ChildAccounts" and enters it, in place of an older record
  /// with its identifier, whoever's child that was. Returns its identifier; nil, with one line in the system
  /// log, when the element is rejected.
  String addChild(const Value& element, const AccountPtr& parent, const String& parentID);
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

  OrderedMap<AccountPtr> childAccountsByID_;
  OrderedMap<String> childAccountIDToParentAccountID_;
  OrderedMap<Children> childrenByParentID_;
};

}  // namespace roster
