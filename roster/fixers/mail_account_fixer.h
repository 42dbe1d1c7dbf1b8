#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "roster/account/account_protocols.h"
#include "roster/base/export.h"
#include "roster/fixers/runtime_fix.h"
#include "roster/value/value.h"

namespace roster {

/// Is called for each mail account whose class is unknown, before it is repaired. Does nothing: a device
/// maker's build may report such accounts here.
ROSTER_EXPORT void reportMailAccountClassFound(const Dictionary& properties, std::string_view message);

/// Repairs mail accounts that name an unknown class, by the path under which their mail is stored. Once such
/// a repair has been saved, the mail application is told that its accounts changed.
class ROSTER_EXPORT RSRuntimeFixMailAccount : public RSRuntimeFixProtocol {
 public:
  /// A fixer that has seen no account yet.
  RSRuntimeFixMailAccount();
  /// Not copyable: a store owns its fixer.
  RSRuntimeFixMailAccount(const RSRuntimeFixMailAccount&) = delete;
  /// Not assignable: a store owns its fixer.
  RSRuntimeFixMailAccount& operator=(const RSRuntimeFixMailAccount&) = delete;
  /// Forgets what was not told.
  ~RSRuntimeFixMailAccount() override;

  /// "Nuvola" and "Mail".
  const std::set<std::string, std::less<>>& supportedAccountTypes() const override;
  /// Gives a mail account of an unknown class the class that its path implies; `unrepairable`, with one line
  /// in the system log, when it implies none.
  [[nodiscard]] FixResult fixBasicAccountIfNeededLoggingMessage(const AccountPtr& account,
                                                                std::string_view message) override;
  /// After a save, tells the mail application if an account of an unknown class was seen since the last call.
  void accountsHaveBeenSaved(bool areSaved) override;

  // ---- Internal

  /// Sets the class that the account's path implies; false, with one line in the system log and the account
  /// as it was, when it implies none.
  [[nodiscard]] bool _cleanupAccountClass(const AccountPtr& account);

 private:
  struct State;
  std::unique_ptr<State> _state;
};

}  // namespace roster
