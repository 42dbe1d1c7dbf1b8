#pragma once

#include <vector>

#include "roster/value/value.h"

namespace roster {

/// The top-level accounts of a registry, in order, each with its children under "ChildAccounts".
using AccountList = std::vector<Dictionary>;

/// Three versions of a registry, as `AccountVersions` are three of one account.
struct RegistryVersions {
  AccountList mine{};
  AccountList base{};
  AccountList theirs{};
};

/// What two programs that both changed a registry end with.
struct MergedRegistry {
  /// Theirs in their order, then what only `mine` has.
  AccountList accounts{};
  /// What the next merge has to start from: `theirs`, and the former base of what `mine` has kept although it
  /// was deleted there.
  AccountList base{};
};

/// Merges account by account, child by child and property by property; both sides have an account under its
/// identifier, wherever it stands.
///
/// - Added on one side: it is there. Added on both: merged as if the base had been empty.
/// - Deleted there: it goes, unless it was changed here. Deleted here: it stays deleted.
/// - Moved on one side, to the top, below a parent or to another parent: it is moved, with the changes of
///   both sides. Moved on both sides: it goes where `mine` has it.
/// - A child goes with a parent that was deleted; it is kept with a parent that was kept.
/// - Elements of "ChildAccounts" that are no child (without an identifier, or no dictionary) are as `theirs`
///   has them.
///
/// Where several accounts, or several children, of a version have one identifier, the last counts, as it does
/// for look-ups. An account and a child that share one in any version are two. Accounts without an identifier
/// are left out.
MergedRegistry mergeRegistries(const RegistryVersions& versions);

/// What a registry that could not be read in full stands for: nothing is taken for deleted because it could
/// not be read. Accounts, children and properties that `theirs` lacks are as in the base.
AccountList completed(const AccountList& base, const AccountList& theirs);

/// The identifier that an account's own properties tell; nil when they tell none.
String storedIdentifier(const Dictionary& account);

/// The elements of an account's "ChildAccounts"; none when it is no array.
Array storedChildren(const Dictionary& account);

/// The identifier of such an element; nil for one that is no child.
String storedChildIdentifier(const Value& element);

}  // namespace roster
