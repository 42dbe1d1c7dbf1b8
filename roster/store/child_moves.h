#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "roster/base/text_table.h"
#include "roster/store/account_indexes.h"

namespace roster {

/// Takes many children out of parents and adds them to others. At the end the parents' "ChildAccounts" and
/// the child indexes are as if each had been moved by itself, but a parent's children are gone through once,
/// not once for each child. Only where parents dispute a child, or a record is both parent and child, are
/// they gone through again.
///
/// Parents get their new "ChildAccounts" at the latest with `finish`; until then only this object may change
/// them.
class ChildMoves {
 public:
  explicit ChildMoves(AccountIndexes& indexes) : indexes_(indexes) {}
  ChildMoves(const ChildMoves&) = delete;
  ChildMoves& operator=(const ChildMoves&) = delete;

  /// Takes every child with the identifier out of the parent's children. Does nothing without a parent.
  void remove(const String& childID, const AccountPtr& parent);
  /// Appends the child's live properties to the parent's children. Does nothing without a parent.
  void add(const AccountPtr& child, const AccountPtr& parent);
  /// Indexes the parent's children anew, as its "ChildAccounts" has them.
  void reload(const AccountPtr& parent);
  /// Ends the moves.
  void finish() { writeAll(); }

 private:
  /// The identifiers are chosen by whoever wrote the registry.
  template <class T>
  using ByID = std::unordered_map<std::string, T, SeededTextHash, std::equal_to<>>;
  struct Parent {
    AccountPtr account;
    /// The elements of "ChildAccounts"; nil where one was taken out.
    std::vector<Value> children{};
    /// Where the elements with an identifier stand.
    ByID<std::vector<std::size_t>> indexesByID{};
    bool hasChildren = false;
    bool isChanged = false;
  };
  enum Role : unsigned { asParent = 1, asChild = 2 };

  Parent& open(const AccountPtr& account, const String& leavingID = {});
  void release(const String& parentID);
  Parent take(const AccountPtr& account);
  void index(Parent& parent, const String& parentID, const String& leavingID);
  void append(Parent& parent, const String& parentID, const Value& element);
  void note(const Value& properties, Role role);
  void noteChild(const Value& element);
  void putNothingOff();
  static void write(Parent& parent);
  void writeAll();
  void changed(Parent& parent);

  AccountIndexes& indexes_;
  ByID<Parent> parentsByID_;
  /// The live properties met so far, and as what.
  std::unordered_map<ValueIdentity, unsigned> roles_;
  /// A record that is a parent is a child as well: the copy of it that is indexed as a child shows which of
  /// the changes came before it and which after, so that none may be put off.
  bool isNothingPutOff_ = false;
};

}  // namespace roster
