#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/base/export.h"

namespace roster {

class SnapshotProperties;

/// The properties of all top-level accounts as they were at one moment, to be compared with those of a later
/// one. A snapshot does not change, but is used by one thread at a time.
class ROSTER_EXPORT Snapshot {
 public:
  /// Without any account.
  Snapshot();
  /// Deep copies of what each account would save, under its identifier; a later account with the same
  /// identifier wins. An account without an identifier is left out, with one line in the system log.
  explicit Snapshot(std::span<const AccountPtr> accounts);
  /// Takes over the other's content. The other may then only be assigned to or destroyed.
  Snapshot(Snapshot&& other) noexcept;
  /// Takes over the other's content. The other may then only be assigned to or destroyed.
  Snapshot& operator=(Snapshot&& other) noexcept;
  /// Not copyable: it is made of the accounts of one moment.
  Snapshot(const Snapshot&) = delete;
  /// Not copyable: it is made of the accounts of one moment.
  Snapshot& operator=(const Snapshot&) = delete;
  /// The accounts themselves are not affected.
  ~Snapshot();

 private:
  friend class SnapshotProperties;
  std::unique_ptr<SnapshotProperties> properties_;
};

/// What happened to an account between two moments.
enum RSAccountChangeType : std::int32_t {
  RSAccountChangeTypeAdded = 0,     ///< It is there now, but was not before.
  RSAccountChangeTypeModified = 1,  ///< It was and is there, with other properties.
  RSAccountChangeTypeRemoved = 2,   ///< It was there before, but is gone.
};

/// An account that is not as it was at an earlier moment.
struct ROSTER_EXPORT AccountChange {
  /// What happened to it.
  RSAccountChangeType type = RSAccountChangeTypeModified;
  /// As it was then; empty for an added account.
  Dictionary original{};
  /// What it would save now; empty for a removed one.
  Dictionary current{};

  /// The identifier in the current properties, or else in the original ones; nil when neither has it.
  String identifier() const;
  /// The type in the current properties, or else in the original ones; nil when neither has it.
  String accountType() const;
};

/// The accounts that differ between two snapshots: all that were removed first, then those that were added,
/// then those that were modified, in each group in the order of the snapshot that has them; modified ones in
/// that of the earlier. Time is linear in the number of accounts, and properties that the snapshots share are
/// passed over without a look at them.
ROSTER_EXPORT std::vector<AccountChange> changesBetween(const Snapshot& before, const Snapshot& after);

/// What happened to the account's children, told as changes of accounts, in the order of `changesBetween`: to
/// every one that the account had or has under "ChildAccounts" with an identifier of its own.
ROSTER_EXPORT std::vector<AccountChange> childChanges(const AccountChange& change);

/// The dataclasses that a change concerns, each once, in no particular order. For an added or removed account
/// they are those it has or had enabled. For a modified one they are those that were switched on or off, and,
/// when anything changed besides its children and its activity, all that are enabled now.
ROSTER_EXPORT StringList concernedDataclasses(const AccountChange& change);

/// The change as notifiers are told it: see `AccountNotifierProtocol::noteAccountChanges`.
ROSTER_EXPORT Dictionary changeRecord(const AccountChange& change);

}  // namespace roster
