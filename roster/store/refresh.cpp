#include "roster/store/refresh.h"

#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/nameless_accounts.h"

namespace roster {

Result<ReadRegistry> readForRefresh(const SettingsFile& file, StoreState& store, const RuntimeFixers& fixers,
                                    Unusable unusable) {
  Registry registry = file.read();
  ReadRegistry read;
  if (registry.damage) {
    const bool isUsable = registry.accounts || unusable == Unusable::isDamage;
    read.damage = naming(file.path(), *std::move(registry.damage));
    if (!isUsable || isFailureOfReading(*read.damage)) return *std::move(read.damage);
    systemLog("Not all of the registry %@ can be used: %@", file.path(), read.damage->message);
  }
  read.stamp = registry.stamp;
  read.isMissing = registry.stamp && !registry.stamp->exists;
  nameAccounts(store);
  read.version = fileVersion(registry.accounts.value_or(Array()), fixers, store.nameless);
  adoptNames(store, read.version);
  return read;
}

Result<std::vector<AccountChange>> AccountsManager::refresh() {
  const std::shared_ptr<const AccountsManager> kept = shared_from_this();
  if (!_state->mayBegin("-[AccountsManager refresh]")) return *_state->lastSaveError;
  const BusyStore busy(*_state);
  const Result<ReadRegistry> read =
      readForRefresh(SettingsFile(settingsPath()), *_state, _createRuntimeFixers(), Unusable::isError);
  if (!read) {
    systemLog("Failed to refresh accounts: %@", read.error().message);
    return read.error();
  }
  StoreRefresh refresh(*_state, read->version, read->isWhole());
  if (read->isWhole()) _state->unseen.reset();
  return refresh.commit();
}

}  // namespace roster
