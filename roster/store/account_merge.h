#pragma once

#include <string>

#include "roster/value/value.h"

namespace roster {

/// One account as three versions of the registry have it: as a program has it in memory, as the file had it
/// when that program and the file last agreed, and as the file has it now. An empty dictionary is a version
/// that does not have it.
struct AccountVersions {
  Dictionary mine{};
  Dictionary base{};
  Dictionary theirs{};
};

/// What becomes of the account's own properties when both sides may have changed them: a property that `mine`
/// changed, added or removed since the base stays so; every other one becomes as `theirs` has it. Values are
/// taken whole, except that lists of dataclasses are merged as the sets they are. "ChildAccounts" is left as
/// `mine` has it; `mergeRegistries` sees to the children.
///
/// The result shares all that is equal with `mine`, and what it takes from `theirs` is copied out of the file
/// that it came from: a program that runs for long must not keep a whole file for every change it hears of.
Dictionary mergeAccount(const AccountVersions& versions);

/// The version of one property that remains, where values are taken whole.
Value mergeWhole(const Value& mine, const Value& base, const Value& theirs);

/// A copy that refers to no file. A value that programs made is its own copy.
Value detachedCopy(const Value& value);

/// A text that two dictionaries share when their contents are equal, in whatever order; empty for contents
/// that cannot be written.
std::string contentsKey(const Dictionary& contents);

}  // namespace roster
