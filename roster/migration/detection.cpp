#include "roster/migration/migration.h"
#include "roster/platform/assertion.h"
#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/settings_file.h"

namespace roster {

namespace {

/// A file that cannot be examined does not count, because the registry is removed in favour of it. Nor does a
/// relative path, as a user without a home directory has.
bool isThere(const std::string& path) {
  if (!path.starts_with('/')) return false;
  const FileType type = fileType(path);
  return type != FileType::missing && type != FileType::unknown;
}

bool requirePointer(const bool* pointer, const char* message) {
  if (pointer != nullptr) return true;
  assertionFailed(
      "+[AccountsManager(MigrationSupport) shouldMigrateOldMailAccounts:oldTSAccounts:newRoster:]",
      "AccountsManager", message);
  return false;
}

bool isOutOfDate(std::int64_t savedVersion) {
  const unsigned current = AccountsManager::currentVersion();
  // Without a sign, so that a negative version is a new one and is left alone.
  if (static_cast<std::uint64_t>(savedVersion) >= current) return false;
  systemLog("Roster Version out of date: savedVersion=%ld, currentVersion=%ld", savedVersion, current);
  return true;
}

/// The registry is asked about only when there is nothing older.
template <class IsRosterOutOfDate>
MigrationNeed needWith(const IsRosterOutOfDate& isRosterOutOfDate) {
  MigrationNeed need;
  need.hasOldMailAccounts = AccountsManager::_oldMailAccountsInformationFound();
  need.hasOldTSAccounts = AccountsManager::_oldTSAccountsInformationFound();
  need.isRosterOutOfDate = !need.isFromOldFiles() && isRosterOutOfDate();
  if (need.isAny()) {
    systemLog(
        "Accounts settings needs migration! oldMailAccountsPresent=%d, oldTSAccountsPresent=%d, "
        "migrateNewAccountsInfo=%d",
        need.hasOldMailAccounts, need.hasOldTSAccounts, need.isRosterOutOfDate);
  }
  return need;
}

}  // namespace

std::string mailAccountsPath() {
  return joinPath(joinPath(joinPath(homeDirectory(), "Library"), "Mail"), "Accounts.plist");
}

std::string tsAccountPath() {
  return joinPath(joinPath(joinPath(homeDirectory(), "Library"), "Preferences"), "com.nimbal.Tessera.plist");
}

std::string rosterAccountsPath() { return AccountsManager::fullPathToRosterPlist(); }

std::string accountMigratorPath() {
  return deviceRoot() + "/System/Library/DataClassMigrators/AccountMigrator.migrator";
}

bool AccountsManager::_oldMailAccountsInformationFound() { return isThere(mailAccountsPath()); }

bool AccountsManager::_oldTSAccountsInformationFound() { return isThere(tsAccountPath()); }

bool AccountsManager::rosterNeedsToBeMigrated() {
  // Accounts that cannot be read do not make the version unreadable.
  const Result<Value> file = readPropertyListFile(fullPathToRosterPlist(), Soundness::inspected);
  const std::optional<Dictionary> root = file ? file->dictionary() : std::nullopt;
  if (!root) return false;
  const std::optional<std::int64_t> version = registryVersion(*root);
  // Larger than any signed number: a newer library wrote it.
  if (!version && root->find(kPlistVersionKey).unsignedInteger()) return false;
  if (!version) {
    systemLog("Roster plist is missing a version number, returning NO for migration");
    return false;
  }
  return isOutOfDate(*version);
}

void AccountsManager::shouldMigrateOldMailAccountsOldTSAccountsNewRoster(bool* migrateOldMailAccounts,
                                                                         bool* migrateOldTSAccounts,
                                                                         bool* migrateNewAccounts) {
  if (!requirePointer(migrateOldMailAccounts, "migrateOldMailAccounts cannot be nil")) return;
  if (!requirePointer(migrateOldTSAccounts, "migrateOldTSAccounts cannot be nil")) return;
  if (!requirePointer(migrateNewAccounts, "migrateNewAccounts cannot be nil")) return;
  const MigrationNeed need = needWith(&AccountsManager::rosterNeedsToBeMigrated);
  *migrateOldMailAccounts = need.hasOldMailAccounts;
  *migrateOldTSAccounts = need.hasOldTSAccounts;
  *migrateNewAccounts = need.isRosterOutOfDate;
}

MigrationNeed migrationNeed() { return needWith(&AccountsManager::rosterNeedsToBeMigrated); }

MigrationNeed migrationNeedOfLoaded(const AccountsManager& store) {
  return needWith([&store] {
    // The store tells 0 also of a registry without a version, which is not out of date.
    const std::int64_t version = store.dataVersion();
    return version == 0 ? AccountsManager::rosterNeedsToBeMigrated() : isOutOfDate(version);
  });
}

}  // namespace roster
