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
  const std::int64_t saved = *version;
  // Without a sign, so that a negative version is a new one and is left alone.
  if (static_cast<std::uint64_t>(saved) >= currentVersion()) return false;
  systemLog("Roster Version out of date: savedVersion=%ld, currentVersion=%ld", saved, currentVersion());
  return true;
}

void AccountsManager::shouldMigrateOldMailAccountsOldTSAccountsNewRoster(bool* migrateOldMailAccounts,
                                                                         bool* migrateOldTSAccounts,
                                                                         bool* migrateNewAccounts) {
  if (!requirePointer(migrateOldMailAccounts, "migrateOldMailAccounts cannot be nil")) return;
  if (!requirePointer(migrateOldTSAccounts, "migrateOldTSAccounts cannot be nil")) return;
  if (!requirePointer(migrateNewAccounts, "migrateNewAccounts cannot be nil")) return;
  const bool hasOldMailAccounts = _oldMailAccountsInformationFound();
  const bool hasOldTSAccounts = _oldTSAccountsInformationFound();
  const bool isRosterOutOfDate = !hasOldMailAccounts && !hasOldTSAccounts && rosterNeedsToBeMigrated();
  *migrateOldMailAccounts = hasOldMailAccounts;
  *migrateOldTSAccounts = hasOldTSAccounts;
  *migrateNewAccounts = isRosterOutOfDate;
  if (hasOldMailAccounts || hasOldTSAccounts || isRosterOutOfDate) {
    systemLog(
        "Accounts settings needs migration! oldMailAccountsPresent=%d, oldTSAccountsPresent=%d, "
        "migrateNewAccountsInfo=%d",
        hasOldMailAccounts, hasOldTSAccounts, isRosterOutOfDate);
  }
}

}  // namespace roster
