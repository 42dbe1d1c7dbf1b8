#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/platform/named_lock.h"

namespace roster {

class AccountsManager;

// ---- Whether there is something to migrate, and migrating it

/// What there is to be migrated.
struct MigrationNeed {
  bool hasOldMailAccounts = false;  ///< Whether there is an account list at `mailAccountsPath`.
  bool hasOldTSAccounts = false;    ///< Whether there are sync-accounts preferences at `tsAccountPath`.
  /// Whether the registry has a version below `AccountsManager::currentVersion`. Older files come first:
  /// where there are any, the registry is not looked at.
  bool isRosterOutOfDate = false;

  /// Whether there is anything to be migrated.
  bool isAny() const { return hasOldMailAccounts || hasOldTSAccounts || isRosterOutOfDate; }
  /// Whether the registry is made anew from older files, for which it is removed first.
  bool isFromOldFiles() const { return hasOldMailAccounts || hasOldTSAccounts; }
};

/// What became of a request to migrate.
struct MigrationReport {
  /// The ways in which a request can end.
  enum class Outcome {
    notNeeded,      ///< There was nothing to migrate.
    doneByAnother,  ///< Another process migrated while this one waited for the lock.
    notLocked,      ///< The migration lock could not be taken. Nothing was changed.
    noMigrator,     ///< There is no migrator plug-in. A registry to be made anew is removed all the same.
    failed,         ///< The migrator could not be run, or did not do its work.
    succeeded,      ///< The migrator says that it is done.
  };
  /// How the request ended.
  Outcome outcome = Outcome::notNeeded;
  /// What there was to be migrated, as it was found under the lock if that was taken.
  MigrationNeed need{};
  /// Why nothing was migrated although something had to be: there for `notLocked`, `noMigrator` and `failed`,
  /// and for no other outcome. The message is a single line.
  std::optional<Error> error{};
};

/// What there is to be migrated now. Looks at the files and changes nothing; the system log gets a line when
/// something has to be migrated. What cannot be looked at does not count. May be called from any thread.
ROSTER_EXPORT MigrationNeed migrationNeed();
/// The same for a program that has just loaded the registry: the answer is about the version that the store
/// found then, its `dataVersion`, and the file is not read for it again, except when the store found none.
/// For a store of the registry; of one that was loaded from elsewhere the answer says nothing. May be called
/// from the thread that uses the store. An addition.
ROSTER_EXPORT MigrationNeed migrationNeedOfLoaded(const AccountsManager& store);

/// Waits for the lock that is held while a migration runs, and takes it; while it is held, no migration runs.
/// The error, which the system log tells too, says why the lock cannot be had; `takeNamedLock` tells what the
/// lock is. May be called from any thread. An addition.
[[nodiscard]] ROSTER_EXPORT Result<std::shared_ptr<NamedLock>> takeMigrationLock();

/// Migrates if something has to be: waits for the migration lock, looks again, removes a registry that is
/// made anew from older files, makes the sync-accounts daemon quit, and runs the migrator plug-in. What the
/// plug-in does wrong is a failure in the report and in the system log. When the daemon has to be made to
/// quit and the web engine's library cannot be used, that is an assertion failure, which comes through. The
/// lock is free again afterwards, also after an exception.
///
/// Waits for other migrations without a limit, and little more than ten seconds for the daemon; the calling
/// thread's event loop runs meanwhile. May be called from any thread.
[[nodiscard]] ROSTER_EXPORT MigrationReport migrateIfNeeded();

// ---- The files that a migration is about. Each path is put together at every call, from the environment as
// it is then.

/// The mail application's own account list of older system versions, below the user's home.
ROSTER_EXPORT std::string mailAccountsPath();
/// The preferences of the sync-accounts service of older system versions, below the user's home.
ROSTER_EXPORT std::string tsAccountPath();
/// The registry.
ROSTER_EXPORT std::string rosterAccountsPath();
/// The bundle that holds the migrator plug-in: a folder of the device.
ROSTER_EXPORT std::string accountMigratorPath();

// ---- What a migrator plug-in provides: a class "AccountsDataMigrator" that answers AccountMigratorProtocol

/// A migration, carried out once by one instance, while the migration lock is held.
class ROSTER_EXPORT AccountMigrationProtocol {
 public:
  /// The library drops its instance as soon as the steps have been executed.
  virtual ~AccountMigrationProtocol() = default;
  /// Turns what the old files hold into a registry of the current version; true when that is done. It must
  /// not wait for the migration lock. Stores are made with `AccountsManager::initInsideOfMigration`. Throwing
  /// is the same as returning false, and is reported with the exception's text. Called in the thread that
  /// asks for the migration.
  virtual bool executeMigrationSteps() = 0;
};

/// What the class of the migrator plug-in answers.
struct ROSTER_EXPORT AccountMigratorProtocol {
  /// Makes a new instance; nil, or an exception, is a failed migration. Required.
  std::function<std::shared_ptr<AccountMigrationProtocol>()> init{};
};

// ---- The sync-accounts daemon, which must not write while a migration runs

/// The command name of the sync-accounts daemon.
inline constexpr const char* syncDaemonName = "tesserad";

/// The identifier of the first process of the device, in the order of identifiers, whose command name equals
/// the given one in its first 16 characters; -1 when there is none or the processes cannot be listed. Where a
/// `deviceRoot` is set, only processes that were started with the same ROSTER_ROOT, and the calling one, are
/// of the device. May be called from any thread.
ROSTER_EXPORT std::int32_t _PIDForProcessNamed(const char* name);

}  // namespace roster
