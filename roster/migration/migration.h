#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "roster/base/export.h"

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

// The files that a migration is about. Each path is made afresh at every call.

/// The mail application's own account list of older system versions.
ROSTER_EXPORT std::string mailAccountsPath();
/// The preferences of the sync-accounts service of older system versions.
ROSTER_EXPORT std::string tsAccountPath();
/// The registry.
ROSTER_EXPORT std::string rosterAccountsPath();
/// The bundle that holds the migrator plug-in.
ROSTER_EXPORT std::string accountMigratorPath();

/// A migration, carried out once by one instance, while the migration lock is held.
class ROSTER_EXPORT AccountMigrationProtocol {
 public:
  virtual ~AccountMigrationProtocol() = default;
  /// Turns what the old files hold into a registry of the current version; true when that is done. It must
  /// not wait for the migration lock. Stores are made with `AccountsManager::initInsideOfMigration`. Throwing
  /// is the same as returning false.
  virtual bool executeMigrationSteps() = 0;
};

/// What the class of the migrator plug-in answers.
struct ROSTER_EXPORT AccountMigratorProtocol {
  /// A new instance. Required.
  std::function<std::shared_ptr<AccountMigrationProtocol>()> init{};
};

/// The command name of the sync-accounts daemon.
inline constexpr const char* syncDaemonName = "tesserad";

/// The identifier of the first process, in the order of identifiers, whose command name equals the given one
/// in its first 16 characters; -1 when there is none or the processes cannot be listed.
ROSTER_EXPORT std::int32_t _PIDForProcessNamed(const char* name);

}  // namespace roster
