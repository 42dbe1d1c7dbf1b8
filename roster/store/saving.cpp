#include "roster/diag/debug_log.h"
#include "roster/notify/snapshot.h"
#include "roster/platform/system_log.h"
#include "roster/store/account_indexes.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/merge.h"
#include "roster/store/settings_file.h"

namespace roster {

void AccountsManager::saveAllAccounts() {
  RSLog("Saving all accounts");
  const bool isAnythingFixed = fixBeforeSaving();

  std::shared_ptr<AccountsManager> onDisk = initInsideOfMigration();
  std::vector<Value> accounts = mergedAccounts(*onDisk);
  const std::string damage = damageOfFileToReplace(*onDisk);
  onDisk.reset();

  const bool isSaved = writeRegistry(std::move(accounts), damage);
  if (isSaved) {
    for (const AccountPtr& account : *_indexes->orderedTopLevelAccounts) {
      account->setOriginalProperties(account->propertiesToSave());
    }
  }
  if (isAnythingFixed) tellFixersAccountsHaveBeenSaved(true);
  if (isSaved) announceSave();
}

/// Shows every record to the fixers. One that cannot be repaired is found no more, but is still written: only
/// the next load, which meets it again, drops it.
bool AccountsManager::fixBeforeSaving() {
  const AccountArray& ordered = *_indexes->orderedTopLevelAccounts;
  bool isAnythingFixed = false;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    const AccountPtr account = ordered.at(index);
    for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : _runtimeFixers) {
      const FixResult result = fixer->fixBasicAccountIfNeededLoggingMessage(account, "saving accounts");
      if (result == FixResult::nothingDone) continue;
      isAnythingFixed = true;
      if (result != FixResult::unrepairable) continue;
      const String identifier = account->identifier();
      _removeChildrenForAccountWithIdentifier(identifier);
      _indexes->removeTopLevel(identifier);
    }
  }
  return isAnythingFixed;
}

std::vector<Value> AccountsManager::mergedAccounts(const AccountsManager& onDisk) const {
  std::vector<Value> merged;
  merged.reserve(count());
  for (const AccountPtr& account : *_indexes->orderedTopLevelAccounts) {
    const String identifier = account->identifier();
    const AccountPtr found = identifier ? onDisk.accountWithIdentifier(identifier) : nullptr;
    const Dictionary properties = mergeInMemoryPropertiesOriginalPropertiesOnDiskProperties(
        account->propertiesToSave(), account->originalProperties(),
        found ? found->propertiesToSave() : Dictionary());
    merged.emplace_back(properties);
    RSLog("%@:%@", account->type(), properties);
  }
  return merged;
}

Dictionary AccountsManager::mergeInMemoryPropertiesOriginalPropertiesOnDiskProperties(
    const Dictionary& inMemory, const Dictionary& original, const Dictionary& onDisk) const {
  RSLog("Merging inmem %@ orig %@ onDisk %@", inMemory, original, onDisk);
  Dictionary merged = mergeProperties(inMemory, original, onDisk);
  RSLog("merged to %@", merged);
  return merged;
}

/// Why the file that the save replaces could not be read in full; empty when it could.
std::string AccountsManager::damageOfFileToReplace(const AccountsManager& onDisk) const {
  const std::string path = settingsPath();
  return path == fullPathToRosterPlist() ? onDisk._damage : SettingsFile(path).read().damage;
}

bool AccountsManager::writeRegistry(std::vector<Value> accounts, const std::string& damage) {
  const SettingsFile file(settingsPath());
  _lastSaveError.clear();
  const Result<std::string> bytes = registryBytes(std::move(accounts));
  if (!bytes) {
    _lastSaveError = "could not serialize the accounts for " + file.path() + ": " + bytes.error().message;
    systemLog("Failed to serialize account settings data: %@", bytes.error().message);
  } else {
    // A registry that could not be read may hold accounts that this store does not know of: it is never
    // overwritten.
    if (const Result<> replaced = file.replace(*bytes, damage); !replaced) {
      _lastSaveError = replaced.error().message;
      systemLog("%@", _lastSaveError);
    }
  }
  if (!_lastSaveError.empty()) systemLog("Failed to save accounts to filesystem.");
  return _lastSaveError.empty();
}

}  // namespace roster
