#include "migration/migration.h"

#include "migration/account_migrator.h"
#include "migration/migration_paths.h"
#include "platform/bundle.h"
#include "platform/file_system.h"
#include "platform/foreign_code.h"
#include "platform/single_line.h"
#include "platform/system_log.h"
#include "store/accounts_manager.h"

namespace roster {

namespace {

using Outcome = MigrationReport::Outcome;
using Migrator = std::shared_ptr<AccountMigrationProtocol>;

constexpr std::string_view lockName = "AccountMigrationInProgress";
constexpr std::string_view migratorClass = "AccountsDataMigrator";

/// Gives the migration lock up, whatever ends the migration.
class MigrationLock {
 public:
  MigrationLock() : lock_(AccountsManager::createAndLockMigrationLock()) {}
  MigrationLock(const MigrationLock&) = delete;
  MigrationLock& operator=(const MigrationLock&) = delete;
  ~MigrationLock() {
    if (lock_) AccountsManager::releaseMigrationLock(lock_);
  }
  explicit operator bool() const { return lock_ != nullptr; }

 private:
  std::shared_ptr<NamedLock> lock_;
};

/// Runs a piece of the plug-in; `why` becomes what it throws.
template <class Piece>
auto guarded(std::string& why, const Piece& piece) -> decltype(piece()) {
  decltype(piece()) result{};
  if (const auto failure = failureOf([&] { result = piece(); })) why = "the migrator failed: " + *failure;
  return result;
}

/// Nil, with the cause, when there is no such class or it makes no instance of it.
Migrator makeMigrator(const std::string& path, std::string& why) {
  const std::optional<Error> error = loadBundle(path);
  const ClassObject* found = findClass(migratorClass);
  if (found == nullptr) {
    why = error ? error->message : path + " has no class " + std::string(migratorClass);
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
  const MigrationLock lock;
  if (!lock) return reportOf(Outcome::notLocked, before, "the migration lock cannot be had");
  const MigrationNeed need = migrationNeed();
  if (!need.isAny()) return {Outcome::doneByAnother, before, {}};
  if (need.isFromOldFiles()) AccountsManager::removeNewRosterToMigrateOldAccountInformation();
  return runMigrator(need);
}

void AccountsManager::_migrateAccountsIfNeeded() { migrateIfNeeded(); }

std::shared_ptr<NamedLock> AccountsManager::createAndLockMigrationLock() {
  Result<std::shared_ptr<NamedLock>> lock = openNamedLock(lockName);
  std::optional<Error> error;
  if (!lock) {
    error = Error{lock.error()};
  } else {
    error = (*lock)->lock();
  }
  if (!error) return *std::move(lock);
  systemLog("Could not take the lock %@: %@", lockName, error->message);
  return nullptr;
}

void AccountsManager::releaseMigrationLock(const std::shared_ptr<NamedLock>& lock) {
  if (lock) lock->unlock();
}

void AccountsManager::waitForMigrationToFinish() { releaseMigrationLock(createAndLockMigrationLock()); }

void AccountsManager::removeNewRosterToMigrateOldAccountInformation() {
  const std::string path = fullPathToRosterPlist();
  if (!fileExists(path)) return;
  if (const std::optional<Error> error = removeFile(path)) {
    systemLog("[%s] Could not remove %@. Error %@",
              "+[AccountsManager(MigrationSupport) removeNewRosterToMigrateOldAccountInformation]", path,
              error->message);
  }
}

}  // namespace roster
