#include <atomic>
#include <stdexcept>

#include "roster/base/foreign_code.h"
#include "roster/notify/notifier_dispatch.h"
#include "roster/notify/snapshot_properties.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/store_state.h"

namespace roster {

namespace {

std::atomic<bool>& _shouldSkipNotifications() {
  static std::atomic<bool> shouldSkip = false;
  return shouldSkip;
}

using Announcement =
    decltype(AccountNotifierProtocol::accountWillChangeForDataclass) AccountNotifierProtocol::*;

/// The notifiers may drop the record, and with it the text that the dataclass is a view of.
void announce(const AccountPtr& account, std::string_view dataclass, Announcement answer,
              std::string_view operation) {
  if (!account) throw std::invalid_argument("the record whose change is announced must not be nil");
  announceDataclassChange(*held(account), std::string(dataclass), answer, operation);
}

}  // namespace

void AccountsManager::_setShouldSkipNotifications(bool shouldSkip) {
  _shouldSkipNotifications() = shouldSkip;
}

/// While nobody is told, the snapshot stays: the next save that tells somebody reports the changes of this
/// one too.
bool areNotificationsSkipped() { return _shouldSkipNotifications() || areNotificationsPaused(); }

void AccountsManager::_sendNotificationsForChangedAccounts() {
  const std::shared_ptr<const AccountsManager> kept = shared_from_this();
  if (!_state->mayBegin("-[AccountsManager _sendNotificationsForChangedAccounts]")) return;
  const BusyStore busy(*_state);
  _state->announceChangesSinceSnapshot();
}

void StoreState::announceChangesSinceSnapshot() const {
  announceChanges(detectChanges(snapshot, indexes.topLevelAccountsByID()));
}

void StoreState::announceAndTakeSnapshot() {
  try {
    announceChangesSinceSnapshot();
  } catch (...) {
    takeSnapshot();
    throw;
  }
  takeSnapshot();
}

void AccountsManager::_addNotificationToDictionaryForChangeTypeOriginalPropertiesCurrentProperties(
    ChangeCollection& collection, std::int32_t changeType, const std::optional<Dictionary>& original,
    const std::optional<Dictionary>& current) const {
  addNotification(collection, {static_cast<RSAccountChangeType>(changeType), original.value_or(Dictionary()),
                               current.value_or(Dictionary())});
}

StringList AccountsManager::_notifierClassNamesForAccountTypeDataclass(const String& type,
                                                                       std::string_view dataclass) {
  return notifierClassNames(type, dataclass);
}

void AccountsManager::accountWillChangeForDataclass(const AccountPtr& account, std::string_view dataclass) {
  announce(account, dataclass, &AccountNotifierProtocol::accountWillChangeForDataclass,
           "+[AccountsManager accountWillChange:forDataclass:]");
}

void AccountsManager::accountDidChangeForDataclass(const AccountPtr& account, std::string_view dataclass) {
  announce(account, dataclass, &AccountNotifierProtocol::accountDidChangeForDataclass,
           "+[AccountsManager accountDidChange:forDataclass:]");
}

}  // namespace roster
