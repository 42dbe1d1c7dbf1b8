#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// A class that hears of account changes. A plug-in registers a class object that answers this; notifier
/// entries of the account-creators table say of which account types and dataclasses it hears. No instance of
/// it is made. All functions are called on the thread that saves or announces, which waits for them.
struct ROSTER_EXPORT AccountNotifierProtocol {
  /// Told once after a save, with a change record for each account that changed in a dataclass the notifier
  /// is registered for, at least one. The registry is written by then. Required. One that throws is one line
  /// in the system log; the other notifiers are told all the same. It may use and change the store, but not
  /// save it: see `AccountsManager::saveAllAccounts`.
  ///
  /// A change record is a dictionary: `kRSChangeAccountChangeTypeKey` (an RSAccountChangeType),
  /// `kRSChangeAccountIdentifierKey`, `kRSChangeAccountTypeKey`, and
  /// `kRSChangeAccountOriginallyEnabledDataclassesKey`, an array of what was enabled before the change.
  std::function<void(const Array& changes)> noteAccountChanges{};

  /// Told just before a client changes an account in a dataclass, if the client announces it. Optional. One
  /// that throws is one line in the system log.
  std::function<void(std::string_view accountIdentifier, std::string_view dataclass)>
      accountWillChangeForDataclass{};
  /// Told just after a client has changed an account in a dataclass, if the client announces it. Optional.
  /// One that throws is one line in the system log.
  std::function<void(std::string_view accountIdentifier, std::string_view dataclass)>
      accountDidChangeForDataclass{};
};

/// The change records of one save, by the name of the notifier class they are for.
using ChangeCollection = std::map<std::string, std::vector<Value>, std::less<>>;

/// While one lives, saves of its thread tell no notifier; those of other threads do. The next save after it
/// reports all changes since the store last told somebody. An addition.
///
/// It ends with its scope, also when something throws, and must be destroyed by the thread that made it.
/// Scopes may be nested.
class ROSTER_EXPORT NotificationPause {
 public:
  /// Begins the pause.
  [[nodiscard]] NotificationPause();
  /// Not copyable: a pause is its scope.
  NotificationPause(const NotificationPause&) = delete;
  /// Not copyable: a pause is its scope.
  NotificationPause& operator=(const NotificationPause&) = delete;
  /// Ends the pause, unless an outer one goes on.
  ~NotificationPause();
};

}  // namespace roster
