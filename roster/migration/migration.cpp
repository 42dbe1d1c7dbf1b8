#include "roster/migration/migration.h"

#include <filesystem>

#include "roster/base/foreign_code.h"
#include "roster/base/single_line.h"
#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/plugin.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/settings_file.h"

namespace roster {

namespace {

using Outcome = MigrationReport::Outcome;
using Migrator = std::shared_ptr<AccountMigrationProtocol>;

constexpr std::string_view migratorClass = "AccountsDataMigrator";

/// A bundle is a folder.
bool bundleExists(const std::string& path) { return fileType(path) == FileType::folder; }

/// Loads the code of a bundle as a plug-in. It is the shared library in the bundle's folder that has the
/// folder's name, with ".so" in place of the folder's extension: AccountMigrator.migrator holds
/// AccountMigrator.so.
Result<> loadBundle(const std::string& path) {
  const std::filesystem::path folder(path);
  return loadPlugin(folder / folder.filename().replace_extension(".so"));
}

Error migratorError(std::string why) { return {std::errc::executable_format_error, std::move(why)}; }

/// Runs a piece of the plug-in; fails with what it throws.
template <class Piece>
auto guarded(const Piece& piece) -> Result<decltype(piece())> {
  auto answer = runForeignCode(piece);
  if (answer) return answer;
  return migratorError("the migrator failed: " + answer.error().message);
}

/// A new instance of the plug-in's class.
Result<Migrator> makeMigrator(const std::string& path) {
  const Result<> loaded = loadBundle(path);
  const std::string name(migratorClass);
  const ClassObject* found = findClass(name);
  if (found == nullptr) return loaded ? migratorError(path + " has no class " + name) : loaded.error();
  Result<Migrator> migrator =
      guarded([&] { return requiredOperation(*found, &AccountMigratorProtocol::init, "init")(); });
  if (migrator && !*migrator) return migratorError("the class " + name + " makes no instance");
  return migrator;
}

MigrationReport failureReport(Outcome outcome, const MigrationNeed& need, const Error& error) {
  std::string message;
  appendSingleLine(message, error.message);
  return {outcome, need, Error(error.code, std::move(message))};
}

/// Runs the migrator plug-in. The lock must be held.
MigrationReport runMigrator(const MigrationNeed& need) {
  const std::string path = accountMigratorPath();
  if (!bundleExists(path)) {
    return failureReport(Outcome::noMigrator, need,
                         Error(std::errc::no_such_file_or_directory, "there is no migrator at " + path));
  }
  const Result<Migrator> migrator = makeMigrator(path);
  AccountsManager::killTesseraIfNecessary();
  const Result<bool> isDone =
      migrator ? guarded([&] { return (*migrator)->executeMigrationSteps(); }) : migrator.error();
  if (isDone && *isDone) return {Outcome::succeeded, need, std::nullopt};
  if (!isDone) systemLog("Could not migrate accounts with %@: %@", path, isDone.error().message);
  systemLog("[%s] Accounts migration failed", "+[AccountsManager _migrateAccountsIfNeeded]");
  return failureReport(Outcome::failed, need,
                       isDone ? Error(std::errc::operation_canceled,
                                      "the migrator says that it could not migrate the accounts")
                              : isDone.error());
}

std::string markerPath() { return deviceRoot() + kAccountMigrationLockFilename; }

/// Shows other programs that a migration runs, as well as that can be: whether it does is what the lock says.
class MigrationMarker {
 public:
  MigrationMarker() : isMade_(bool(makeMarker(markerPath()))) {}
  MigrationMarker(const MigrationMarker&) = delete;
  MigrationMarker& operator=(const MigrationMarker&) = delete;
  ~MigrationMarker() {
    if (isMade_) static_cast<void>(removeFile(markerPath()));
  }

 private:
  bool isMade_;
};

}  // namespace

Result<std::shared_ptr<NamedLock>> takeMigrationLock() {
  Result<std::shared_ptr<NamedLock>> lock = takeNamedLock(migrationLockName, rosterAccountsPath());
  if (!lock) {
    systemLog("Could not take the lock %@: %@", migrationLockName, lock.error().message);
  } else if (fileExists(markerPath())) {
    // Nobody migrates now, so it is that of a process that was killed.
    static_cast<void>(removeFile(markerPath()));
  }
  return lock;
}

MigrationReport migrateIfNeeded() {
  const MigrationNeed before = migrationNeed();
  if (!before.isAny()) return {};
  // Released when it goes out of scope, whatever ends the migration.
  const Result<std::shared_ptr<NamedLock>> lock = takeMigrationLock();
  if (!lock) {
    return failureReport(
        Outcome::notLocked, before,
        Error(lock.error().code, "the migration lock cannot be had: " + lock.error().message));
  }
  const MigrationNeed need = migrationNeed();
  if (!need.isAny()) return {Outcome::doneByAnother, before, std::nullopt};
  const MigrationMarker marker;
  if (need.isFromOldFiles()) AccountsManager::removeNewRosterToMigrateOldAccountInformation();
  return runMigrator(need);
}

void AccountsManager::_migrateAccountsIfNeeded() { static_cast<void>(migrateIfNeeded()); }

std::shared_ptr<NamedLock> AccountsManager::createAndLockMigrationLock() {
  Result<std::shared_ptr<NamedLock>> lock = takeMigrationLock();
  return lock ? *std::move(lock) : nullptr;
}

void AccountsManager::releaseMigrationLock(const std::shared_ptr<NamedLock>& lock) {
  if (lock) lock->release();
}

void AccountsManager::waitForMigrationToFinish() { releaseMigrationLock(createAndLockMigrationLock()); }

void AccountsManager::removeNewRosterToMigrateOldAccountInformation() {
  const std::string path = fullPathToRosterPlist();
  if (!fileExists(path)) return;
  if (const Result<> removed = removeFile(path); !removed) {
    systemLog("[%s] Could not remove %@. Error %@",
              "+[AccountsManager(MigrationSupport) removeNewRosterToMigrateOldAccountInformation]", path,
              removed.error().message);
  }
}

}  // namespace roster
