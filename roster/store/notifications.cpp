#include <atomic>

#include "roster/notify/snapshot.h"
#include "roster/store/account_indexes.h"
#include "roster/store/accounts_manager.h"

namespace roster {

namespace {

std::atomic<bool>& _shouldSkipNotifications() {
  static std::atomic<bool> shouldSkip = false;
  return shouldSkip;
}

}  // namespace

void AccountsManager::_setShouldSkipNotifications(bool shouldSkip) {
  _shouldSkipNotifications() = shouldSkip;
}

/// Tells those concerned what a save changed. While nobody is told, the snapshot stays: the next save that
/// tells them reports the changes of this one too.
void AccountsManager::announceSave() {
  if (_shouldSkipNotifications()) return;
  _sendNotificationsForChangedAccounts();
  _setOriginalAccountDictionaries();
}

void AccountsManager::_sendNotificationsForChangedAccounts() {
  announceChanges(detectChanges(*_originalAccountsByID, _indexes->topLevelAccountsByID));
}

void AccountsManager::_addNotificationToDictionaryForChangeTypeOriginalPropertiesCurrentProperties(
    ChangeCollection& collection, std::int32_t changeType, const std::optional<Dictionary>& original,
    const std::optional<Dictionary>& current) const {
  addNotification(collection, {static_cast<RSAccountChangeType>(changeType), original.value_or(Dictionary()),
                               current.value_or(Dictionary())});
}

StringList AccountsManager::_notifierClassNamesForAccountTypeDataclass(std::string_view type,
                                                                       std::string_view dataclass) {
  return notifierClassNames(type, dataclass);
}

void AccountsManager::accountWillChangeForDataclass(const AccountPtr& account, std::string_view dataclass) {
  announceDataclassChange(*account, dataclass, &AccountNotifierProtocol::accountWillChangeForDataclass,
                          "+[AccountsManager accountWillChange:forDataclass:]");
}

void AccountsManager::accountDidChangeForDataclass(const AccountPtr& account, std::string_view dataclass) {
  announceDataclassChange(*account, dataclass, &AccountNotifierProtocol::accountDidChangeForDataclass,
                          "+[AccountsManager accountDidChange:forDataclass:]");
}

}  // namespace roster
