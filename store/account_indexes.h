#pragma once

#include <memory>
#include <vector>

#include "platform/ordered_map.h"
#include "store/account_array.h"

namespace roster {

/// Where a store finds its records: the top-level ones in order and by identifier, the child records by identifier,
/// and who is whose child.
///
/// The identifiers in the top-level index are unique; the ordered list may hold several records with one identifier,
/// of which the index then knows one. Child records are in the child indexes only.
class AccountIndexes {
 public:
  using Account = std::shared_ptr<BasicAccount>;

  /// The list is an object of its own, so that somebody who got it before it was replaced still holds the old one.
  std::shared_ptr<AccountArray> orderedTopLevelAccounts = std::make_shared<AccountArray>();
  OrderedMap<Account> topLevelAccountsByID;

  const OrderedMap<Account>& childAccountsByID() const { return childAccountsByID_; }
  /// The identifier of the parent of an indexed child; nil for any other identifier.
  String parentIDOfChild(std::string_view childID) const;

  /// Enters a child record, in place of an older record with its identifier, whoever's child that was.
  void addChild(const Account& child, const String& childID, const String& parentID);
  /// Forgets all children of a parent, in time linear in their number.
  void removeChildrenOf(const String& parentID);

 private:
  OrderedMap<Account> childAccountsByID_;
  OrderedMap<String> childAccountIDToParentAccountID_;
  /// Every identifier that was entered as a parent's child; those that went to another parent since may still be here.
  OrderedMap<std::vector<String>> childIDsByParentID_;
};

}  // namespace roster
