#pragma once

#include "roster/fixers/runtime_fix.h"

namespace roster {

/// Hears of each mail account whose class had to be looked for. Does nothing; a place for a device maker's
/// reporting.
ROSTER_EXPORT void reportMailAccountClassFound(const Dictionary& properties, std::string_view message);

/// Repairs mail accounts that name a class no longer known, by the path under which their mail is stored, and
/// lets the mail application know once the repair was written.
class ROSTER_EXPORT RSRuntimeFixMailAccount : public RSRuntimeFixProtocol {
 public:
  RSRuntimeFixMailAccount();

  const std::set<std::string, std::less<>>& supportedAccountTypes() const override;
  FixResult fixBasicAccountIfNeededLoggingMessage(const AccountPtr& account,
                                                  std::string_view message) override;
  void accountsHaveBeenSaved(bool areSaved) override;

  // ---- Internal

  /// Sets the class that the account's path tells; false, with one line in the system log and the account as
  /// it was, when it tells none.
  bool _cleanupAccountClass(const AccountPtr& account);

 private:
  std::set<std::string, std::less<>> _supportedMailClasses;
  bool _shouldNotifyInkwell = false;
};

}  // namespace roster
