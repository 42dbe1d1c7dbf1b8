#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "roster/account/account_protocols.h"
#include "roster/base/export.h"

namespace roster {

/// What a fixer did about a record. Everything but `nothingDone` counts as a repair of the registry.
enum class FixResult : std::int32_t {
  nothingDone = 0,   ///< The record is fine, or not of the fixer's types.
  repaired = 1,      ///< The record was changed in place and is kept.
  unrepairable = 2,  ///< The record cannot be used and is dropped.
};

/// Repairs records that the system cannot use as they are stored. A store owns its fixers and shows them
/// every top-level record when it loads and when it saves, on its own thread.
class ROSTER_EXPORT RSRuntimeFixProtocol {
 public:
  /// A fixer is destroyed with its store.
  virtual ~RSRuntimeFixProtocol() = default;
  /// The account types that the fixer looks at. Valid as long as the fixer.
  virtual const std::set<std::string, std::less<>>& supportedAccountTypes() const = 0;
  /// Looks at one record, which is not nil; the message names the occasion: "loading accounts" or "saving
  /// accounts". A record that it does not repair is left as it was.
  [[nodiscard]] virtual FixResult fixBasicAccountIfNeededLoggingMessage(const AccountPtr& account,
                                                                        std::string_view message) = 0;
  /// Follows a load or save in which any fixer did something: true after a save, whether or not the write
  /// succeeded, false after a load, when the repairs exist only in memory.
  virtual void accountsHaveBeenSaved(bool areSaved) = 0;
};

}  // namespace roster
