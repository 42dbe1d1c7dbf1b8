#pragma once

#include <functional>
#include <string_view>

#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// A class that hears of account changes. A plug-in registers a class object that answers this; notifier
/// entries of the account-creators table say of which account types and dataclasses it hears. No instance of
/// it is made. All functions are called on the thread that saves or announces, which waits for them.
struct ROSTER_EXPORT AccountNotifierProtocol {
  /// Told once after a save, with a change record for each account that changed in a dataclass the notifier
  /// is registered for, at least one. The registry is written by then. Required. One that throws is one line
  /// in the system log; the other notifiers are told all the same.
  ///
  /// A change record is a dictionary: `kRSChangeAccountChangeTypeKey` (an RSAccountChangeType),
  /// `kRSChangeAccountIdentifierKey`, `kRSChangeAccountTypeKey`, and
  /// `kRSChangeAccountOriginallyEnabledDataclassesKey`, an array of what was enabled before the change.
  std::function<void(const Array& changes)> noteAccountChanges{};

  // Told just before and just after a client changes an account in a dataclass, if the client announces it.
  // Optional.

  std::function<void(std::string_view accountIdentifier, std::string_view dataclass)>
      accountWillChangeForDataclass{};
  std::function<void(std::string_view accountIdentifier, std::string_view dataclass)>
      accountDidChangeForDataclass{};
};

}  // namespace roster
