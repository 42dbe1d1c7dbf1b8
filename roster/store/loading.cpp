#include "roster/account/record_arena.h"
#include "roster/account/saved_properties.h"
#include "roster/fixers/mail_account_fixer.h"
#include "roster/platform/device.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/salvage.h"
#include "roster/store/settings_file.h"
#include "roster/store/store_state.h"

namespace roster {

namespace {

/// Enters the record once for each fixer that lets it pass. Returns whether a fixer did anything.
bool fixAndEnter(const AccountPtr& account, const RuntimeFixers& fixers, AccountIndexes& indexes,
                 ChildrenAllowance& allowance) {
  bool isFixed = false;
  for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : fixers) {
    const FixResult result = fixer->fixBasicAccountIfNeededLoggingMessage(account, "loading accounts");
    if (result != FixResult::nothingDone) isFixed = true;
    if (result == FixResult::unrepairable) continue;
    const String identifier = account->identifier();
    // An identifier that was not there before has no children to drop.
    const bool isNew = indexes.setTopLevel(identifier, account);
    if (!isNew) indexes.removeChildrenOf(identifier);
    indexes.topLevelAccounts()->append(account);
    const Value children = account->accountPropertyForKey(kAccountChildAccounts);
    if (allowance.covers(children)) {
      indexes.addChildren(children, account, identifier);
    } else {
      systemLog("Ignoring the children of account %@: too many accounts share long lists of them",
                identifier);
    }
  }
  return isFixed;
}

}  // namespace

AccountsManager::AccountsManager(Allocation) : _state(std::make_unique<StoreState>()) {}

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

std::int64_t AccountsManager::dataVersion() const { return _state->dataVersion; }

void AccountsManager::setDataVersion(std::int64_t version) { _state->dataVersion = version; }

std::string AccountsManager::settingsPath() const { return fullPathToRosterPlist(); }

RuntimeFixers AccountsManager::_createRuntimeFixers() const { return standardFixers(); }

void AccountsManager::loadSettingsFile() {
  const SettingsFile file(settingsPath());
  Registry registry = readForLoad(file);
  _state->stamp = registry.stamp;
  _state->unseen = registry.damage;
  if (registry.damage) _state->loadError = naming(file.path(), *std::move(registry.damage));
  _initWithAccountsInfo(registry.accounts.value_or(Array()));
  _state->takeBase(_state->topLevelRecords());
  _state->dataVersion = registry.version;
}

const std::optional<Error>& AccountsManager::loadError() const { return _state->loadError; }

void AccountsManager::_initWithAccountsInfo(const Array& accounts) {
  _state->load(accounts, _createRuntimeFixers());
}

RuntimeFixers standardFixers() { return {std::make_shared<RSRuntimeFixMailAccount>()}; }

void StoreState::load(const Array& accounts, RuntimeFixers newFixers) {
  fixers = std::move(newFixers);
  indexes.reserve(accounts.size());
  bool isAnythingFixed = false;
  Salvage salvage(accounts);
  ChildrenAllowance allowance;
  const RecordArena arena(accounts.size());
  for (const Value& element : accounts) {
    const std::optional<Dictionary> properties = salvage.usable(element).dictionary();
    const AccountPtr account = properties ? arena.accountWithProperties(*properties) : nullptr;
    if (!account) {
      logRejected(element);
      continue;
    }
    if (isNameless(*account, *properties)) nameless.push_back({account->identifier(), *properties});
    if (fixAndEnter(account, fixers, indexes, allowance)) isAnythingFixed = true;
  }
  if (isAnythingFixed) tellFixers(false);
  takeSnapshot();
}

void StoreState::takeBase(std::span<const AccountPtr> records) {
  isBaseNamed = true;
  isBaseNamed = isEveryAccountNamed();
  base.clear();
  base.reserve(records.size());
  for (const AccountPtr& account : records) base.push_back(SavedProperties::of(*account).deepCopy());
}

void StoreState::renewOriginals(std::span<const AccountPtr> records) {
  for (const AccountPtr& account : records) account->setOriginalProperties(SavedProperties::of(*account));
}

void StoreState::tellFixers(bool areSaved) const {
  for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : fixers) fixer->accountsHaveBeenSaved(areSaved);
}

}  // namespace roster
