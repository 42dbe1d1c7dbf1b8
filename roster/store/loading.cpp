#include "roster/account/record_arena.h"
#include "roster/fixers/mail_account_fixer.h"
#include "roster/notify/snapshot.h"
#include "roster/platform/device.h"
#include "roster/platform/system_log.h"
#include "roster/store/account_indexes.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/salvage.h"
#include "roster/store/settings_file.h"

namespace roster {

AccountsManager::AccountsManager(Allocation)
    : _indexes(std::make_unique<AccountIndexes>()), _originalAccountsByID(std::make_unique<Snapshot>()) {}

AccountsManager::~AccountsManager() = default;

std::shared_ptr<AccountsManager> AccountsManager::init() { return initInsideOfMigration(); }

std::shared_ptr<AccountsManager> AccountsManager::initInsideOfMigration() {
  return makeInsideOfMigration<AccountsManager>();
}

std::shared_ptr<AccountsManager> AccountsManager::initWithAccounsInfoArray(const Array& accounts) {
  return makeWithAccountsInfo<AccountsManager>(accounts);
}

std::string AccountsManager::fullPathToRosterPlist() { return sharedPreferencesPath(kAccountsFilename); }

unsigned AccountsManager::currentVersion() { return currentRegistryVersion; }

std::vector<std::shared_ptr<RSRuntimeFixProtocol>> AccountsManager::_createRuntimeFixers() const {
  return {std::make_shared<RSRuntimeFixMailAccount>()};
}

void AccountsManager::loadSettingsFile() {
  const SettingsFile file(settingsPath());
  Registry registry = file.read();
  _damage = std::move(registry.damage);
  if (registry.accounts && !_damage.empty()) {
    systemLog("Not all of the registry %@ can be used: %@", file.path(), _damage);
  }
  _initWithAccountsInfo(registry.accounts.value_or(Array()));
  _dataVersion = registry.version;
}

void AccountsManager::_initWithAccountsInfo(const Array& accounts) {
  _runtimeFixers = _createRuntimeFixers();
  _indexes->orderedTopLevelAccounts->reserve(accounts.size());
  _indexes->topLevelAccountsByID.reserve(accounts.size());
  bool isAnythingFixed = false;
  Salvage salvage(accounts);
  const RecordArena arena(accounts.size());
  for (const Value& element : accounts) {
    const std::optional<Dictionary> properties = salvage.usable(element).dictionary();
    const AccountPtr account = properties ? arena.accountWithProperties(*properties) : nullptr;
    if (!account) {
      systemLog("[%s] ERROR: Failed to create a BasicAccount from %@",
                "-[AccountsManager _initWithAccountsInfo:]", element);
      continue;
    }
    if (fixAndIndex(account)) isAnythingFixed = true;
  }
  if (isAnythingFixed) tellFixersAccountsHaveBeenSaved(false);
  _setOriginalAccountDictionaries();
}

/// Enters the record once for each fixer that lets it pass. Returns whether a fixer did anything.
bool AccountsManager::fixAndIndex(const AccountPtr& account) {
  bool isFixed = false;
  for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : _runtimeFixers) {
    const FixResult result = fixer->fixBasicAccountIfNeededLoggingMessage(account, "loading accounts");
    if (result != FixResult::nothingDone) isFixed = true;
    if (result == FixResult::unrepairable) continue;
    const String identifier = account->identifier();
    // An identifier that was not there before has no children to drop.
    const bool isNew = _indexes->setTopLevel(identifier, account);
    if (!isNew) _removeChildrenForAccountWithIdentifier(identifier);
    _indexes->orderedTopLevelAccounts->append(account);
    indexChildren(account, identifier);
  }
  return isFixed;
}

void AccountsManager::_loadChildrenFromAccount(const AccountPtr& parent) {
  const String parentID = parent->identifier();
  _removeChildrenForAccountWithIdentifier(parentID);
  indexChildren(parent, parentID);
}

void AccountsManager::indexChildren(const AccountPtr& parent, const String& parentID) {
  const std::optional<Array> children = parent->accountPropertyForKey(kAccountChildAccounts).array();
  if (!children) return;
  for (const Value& element : *children) _indexes->addChild(element, parent, parentID);
}

void AccountsManager::_removeChildrenForAccountWithIdentifier(const String& identifier) {
  _indexes->removeChildrenOf(identifier);
}

void AccountsManager::tellFixersAccountsHaveBeenSaved(bool areSaved) {
  for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : _runtimeFixers) {
    fixer->accountsHaveBeenSaved(areSaved);
  }
}

void AccountsManager::_setOriginalAccountDictionaries() {
  *_originalAccountsByID = Snapshot(_indexes->orderedTopLevelAccounts->span());
}

}  // namespace roster
