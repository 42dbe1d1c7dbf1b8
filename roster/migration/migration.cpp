#include "roster/migration/migration.h"

#include <filesystem>

#include "roster/base/foreign_code.h"
#include "roster/base/single_line.h"
#include "roster/platform/file_system.h"
#include "roster/platform/plugin.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"

namespace roster {

namespace {

using Outcome = MigrationReport::Outcome;
using Migrator = std::shared_ptr<AccountMigrationProtocol>;

constexpr std::string_view lockName = "AccountMigrationInProgress";
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

/// Runs a piece of the plug-in; `why` becomes what it throws.
template <class Piece>
auto guarded(std::string& why, const Piece& piece) -> decltype(piece()) {
  decltype(piece()) result{};
  if (const auto failure = failureOf([&] { result = piece(); })) why = "the migrator failed: " + *failure;
  return result;
}

/// Nil, with the cause, when there is no such class or it makes no instance of it.
Migrator makeMigrator(const std::string& path, std::string& why) {
  const Result<> loaded = loadBundle(path);
  const ClassObject* found = findClass(migratorClass);
  if (found == nullptr) {
    why = !loaded ? loaded.error().message : path + " has no class " + std::string(migratorClass);
    return nullptr;
  }
  Migrator migrator =
      guarded(why, [&] { return requiredOperation(*found, &AccountMigratorProtocol::init, "init")(); });
  if (!migrator && why.empty()) why = "the class " + std::string(migratorClass) + " makes no instance";
  return migrator;
}

MigrationReport reportOf(Outcome outcome, const MigrationNeed& need, std::string_view why) {
  MigrationReport report{outcome, need, {}};
  appendSingleLine(report.why, why);
  return report;
}

/// Runs the migrator plug-in. The lock must be held.
MigrationReport runMigrator(const MigrationNeed& need) {
  const std::string path = accountMigratorPath();
  if (!bundleExists(path)) return reportOf(Outcome::noMigrator, need, "there is no migrator at " + path);
  std::string why;
  const Migrator migrator = makeMigrator(path, why);
  AccountsManager::killTesseraIfNecessary();
  if (migrator && guarded(why, [&] { return migrator->executeMigrationSteps(); })) {
    return reportOf(Outcome::succeeded, need, {});
  }
  if (why.empty()) {
    why = "the migrator says that it could not migrate the accounts";
  } else {
    systemLog("Could not migrate accounts with %@: %@", path, why);
  }
  systemLog("[%s] Accounts migration failed", "+[AccountsManager _migrateAccountsIfNeeded]");
  return reportOf(Outcome::failed, need, why);
}

}  // namespace

MigrationNeed migrationNeed() {
  MigrationNeed need;
  AccountsManager::shouldMigrateOldMailAccountsOldTSAccountsNewRoster(
      &need.hasOldMailAccounts, &need.hasOldTSAccounts, &need.isRosterOutOfDate);
  return need;
}

MigrationReport migrateIfNeeded() {
  const MigrationNeed before = migrationNeed();
  if (!before.isAny()) return {};
  // Released when it goes out of scope, whatever ends the migration.
  const std::shared_ptr<NamedLock> lock = AccountsManager::createAndLockMigrationLock();
  if (!lock) return reportOf(Outcome::notLocked, before, "the migration lock cannot be had");
  const MigrationNeed need = migrationNeed();
  if (!need.isAny()) return {Outcome::doneByAnother, before, {}};
  if (need.isFromOldFiles()) AccountsManager::removeNewRosterToMigrateOldAccountInformation();
  return runMigrator(need);
}

void AccountsManager::_migrateAccountsIfNeeded() { migrateIfNeeded(); }

std::shared_ptr<NamedLock> AccountsManager::createAndLockMigrationLock() {
  Result<std::shared_ptr<NamedLock>> lock = takeNamedLock(lockName);
  if (lock) return *std::move(lock);
  systemLog("Could not take the lock %@: %@", lockName, lock.error().message);
  return nullptr;
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
