#pragma once

#include <string>

#include "platform/export.h"

namespace roster {

/// What there is to be migrated.
struct MigrationNeed {
  bool hasOldMailAccounts = false;
  bool hasOldTSAccounts = false;
  bool isRosterOutOfDate = false;

  bool isAny() const { return hasOldMailAccounts || hasOldTSAccounts || isRosterOutOfDate; }
  /// Whether the registry is made anew from older files, for which it is removed first.
  bool isFromOldFiles() const { return hasOldMailAccounts || hasOldTSAccounts; }
};

/// What became of a request to migrate.
struct MigrationReport {
  enum class Outcome {
    notNeeded,
    /// Another process migrated while this one waited for the lock.
    doneByAnother,
    /// The migration lock cannot be had.
    notLocked,
    /// There is no migrator plug-in.
    noMigrator,
    failed,
    succeeded,
  };
  Outcome outcome = Outcome::notNeeded;
  MigrationNeed need{};
  /// Why it could not be locked, had no migrator, or failed; a single line.
  std::string why{};
};

/// What there is to be migrated now. The files are looked at, nothing is changed.
ROSTER_EXPORT MigrationNeed migrationNeed();

/// Migrates if something has to be: waits for the migration lock, decides again, removes a registry that is
/// made anew from older files, makes the sync-accounts daemon quit, and runs the migrator plug-in. What the
/// plug-in does wrong is a failure in the report and in the system log. A daemon to be made to quit without a
/// web engine to ask is an assertion failure, which comes through. The lock is free again afterwards, also
/// after an exception.
///
/// Waits for other migrations without a limit, and little more than ten seconds for the daemon; the calling
/// thread's event loop runs meanwhile.
ROSTER_EXPORT MigrationReport migrateIfNeeded();

}  // namespace roster
