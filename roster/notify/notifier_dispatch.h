#pragma once

#include <string_view>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/notify/account_notifier.h"
#include "roster/notify/change_detection.h"

namespace roster {

/// Whether a NotificationPause of this thread lives.
bool areNotificationsPaused();

// The operations below report what is wrong with the account-creators table and with plug-ins as assertion
// failures of the operation of AccountsManager that calls them.

/// The classes that want to hear of changes to accounts of the type in the dataclass, in the order of the
/// table, with their libraries loaded. Empty when the handler of an assertion failure returns.
StringList notifierClassNames(const String& accountType, std::string_view dataclass);

/// Adds a record of the change for every notifier class that it concerns. A dataclass for which the table or
/// a library is wrong does not keep those of the others out; what is thrown about it is thrown at the end.
void addNotification(ChangeCollection& collection, const AccountChange& change);

/// Tells each notifier that the changes concern, once. Whatever one of them does, the others are told; so
/// they are when the table or a library is wrong for some. What the handler of assertion failures throws
/// about that is thrown at the end.
void announceChanges(const std::vector<AccountChange>& changes);

/// Calls one of the optional operations of every notifier of the account's type and the dataclass, once for
/// each entry of the table. `operation` is the name that assertion failures report.
void announceDataclassChange(
    const BasicAccount& account, std::string_view dataclass,
    decltype(AccountNotifierProtocol::accountWillChangeForDataclass) AccountNotifierProtocol::*answer,
    std::string_view operation);

}  // namespace roster
