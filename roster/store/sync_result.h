#pragma once

#include <optional>
#include <string>
#include <vector>

#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/notify/change_detection.h"

namespace roster {

/// What an `AccountsManager::sync` did. An addition.
struct ROSTER_EXPORT SyncResult {
  /// What other programs had changed, and what is now in memory, also when the rest failed.
  std::vector<AccountChange> changes{};
  /// Why not all of it could be done, with path and system text; nothing when it could. Unless the registry
  /// is written, memory keeps its changes, and the next sync or save writes them.
  std::optional<Error> error{};
  /// Whether the registry was written. It is not when memory and the file were the same already.
  bool isWritten = false;
  /// Where the registry is kept that was replaced although not all of it could be read; empty when there was
  /// no such one.
  std::string damagedCopy{};
};

/// What a sync may do beside the usual. An addition.
struct SyncOptions {
  /// Whether a damaged registry may be replaced by a store that never had it in full, and so never had the
  /// accounts that cannot be read any more. The damaged file is kept beside the new one.
  bool replacesDamagedRegistry = false;
};

}  // namespace roster
