#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/base/export.h"
#include "roster/notify/snapshot.h"
#include "roster/value/ordered_map.h"

namespace roster {

/// What happened to an account between a snapshot and now.
enum RSAccountChangeType : std::int32_t {
  RSAccountChangeTypeAdded = 0,
  RSAccountChangeTypeModified = 1,
  RSAccountChangeTypeRemoved = 2,
};

/// An account that is not as the snapshot has it.
struct ROSTER_EXPORT AccountChange {
  RSAccountChangeType type = RSAccountChangeTypeModified;
  /// As the snapshot has it; empty for an added account.
  Dictionary original{};
  /// What the account would save now; empty for a removed one.
  Dictionary current{};

  /// From the current properties, or else the original ones; nil when neither has it.
  String identifier() const;
  String accountType() const;
};

/// The accounts that differ from the snapshot: all that were removed first, then those that were added, then
/// those that were modified, in each group in the order of the snapshot or the index. An account whose
/// properties merely share what the snapshot holds is passed over without a look at them.
ROSTER_EXPORT std::vector<AccountChange> detectChanges(const Snapshot& snapshot,
                                                       const OrderedMap<AccountPtr>& accountsByID);

/// The dataclasses that a change concerns, each once, in no particular order. For an added or removed account
/// they are those it has or had enabled. For a modified one they are those that were switched on or off, and,
/// when anything changed besides its children and its activity, all that are enabled now.
ROSTER_EXPORT StringList concernedDataclasses(const AccountChange& change);

/// The change as notifiers are told it.
ROSTER_EXPORT Dictionary changeRecord(const AccountChange& change);

}  // namespace roster
