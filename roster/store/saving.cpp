#include "roster/account/saved_properties.h"
#include "roster/diag/debug_log.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/merge.h"
#include "roster/store/settings_file.h"
#include "roster/store/store_state.h"

namespace roster {

namespace {

std::vector<Value> mergedAccounts(const AccountsManager& store, const AccountsManager& onDisk) {
  std::vector<Value> merged;
  merged.reserve(store.count());
  const std::shared_ptr<const AccountArray> accounts = store.allBasicAccounts();
  for (const AccountPtr& account : *accounts) {
    const String identifier = account->identifier();
    const AccountPtr found = identifier ? onDisk.accountWithIdentifier(identifier) : nullptr;
    const Dictionary properties = store.mergeInMemoryPropertiesOriginalPropertiesOnDiskProperties(
        SavedProperties::of(*account), account->originalProperties(),
        found ? SavedProperties::of(*found) : Dictionary());
    merged.emplace_back(properties);
    RSLog("%@:%@", account->type(), properties);
  }
  return merged;
}

/// A registry that could not be read may hold accounts that the store does not know of: it is never
/// overwritten.
Result<> writeRegistry(const SettingsFile& file, std::vector<Value> accounts,
                       const std::optional<Error>& damage) {
  const Result<std::string> bytes = registryBytes(std::move(accounts));
  if (!bytes) {
    systemLog("Failed to serialize account settings data: %@", bytes.error().message);
    return Error(bytes.error().code,
                 "could not serialize the accounts for " + file.path() + ": " + bytes.error().message);
  }
  Result<> replaced = file.replace(*bytes, damage);
  if (!replaced) systemLog("%@", replaced.error().message);
  return replaced;
}

}  // namespace

void AccountsManager::saveAllAccounts() {
  RSLog("Saving all accounts");
  const bool isAnythingFixed = _state->fixBeforeSaving();

  std::shared_ptr<AccountsManager> onDisk = initInsideOfMigration();
  std::vector<Value> accounts = mergedAccounts(*this, *onDisk);
  const SettingsFile file(settingsPath());
  const std::optional<Error> damage =
      file.path() == fullPathToRosterPlist() ? onDisk->_state->damage : file.read().damage;
  onDisk.reset();

  const Result<> saved = writeRegistry(file, std::move(accounts), damage);
  _state->lastSaveError.reset();
  if (saved) {
    for (const AccountPtr& account : *_state->indexes.topLevelAccounts()) {
      account->setOriginalProperties(SavedProperties::of(*account));
    }
  } else {
    _state->lastSaveError = saved.error();
    systemLog("Failed to save accounts to filesystem.");
  }
  if (isAnythingFixed) _state->tellFixers(true);
  if (!saved || areNotificationsSkipped()) return;
  _sendNotificationsForChangedAccounts();
  _state->takeSnapshot();
}

const std::optional<Error>& AccountsManager::lastSaveError() const { return _state->lastSaveError; }

bool StoreState::fixBeforeSaving() {
  const AccountArray& ordered = *indexes.topLevelAccounts();
  bool isAnythingFixed = false;
  for (std::size_t index = ordered.size(); index-- > 0;) {
    const AccountPtr account = ordered.at(index);
    for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : fixers) {
      const FixResult result = fixer->fixBasicAccountIfNeededLoggingMessage(account, "saving accounts");
      if (result == FixResult::nothingDone) continue;
      isAnythingFixed = true;
      if (result != FixResult::unrepairable) continue;
      const String identifier = account->identifier();
      indexes.removeChildrenOf(identifier);
      indexes.removeTopLevel(identifier);
    }
  }
  return isAnythingFixed;
}

Dictionary AccountsManager::mergeInMemoryPropertiesOriginalPropertiesOnDiskProperties(
    const Dictionary& inMemory, const Dictionary& original, const Dictionary& onDisk) const {
  RSLog("Merging inmem %@ orig %@ onDisk %@", inMemory, original, onDisk);
  Dictionary merged = mergeProperties(inMemory, original, onDisk);
  RSLog("merged to %@", merged);
  return merged;
}

}  // namespace roster
