#pragma once

#include <optional>
#include <vector>

#include "roster/store/store_refresh.h"

namespace roster {

/// The account settings file, read to be brought into a store.
struct ReadRegistry {
  FileVersion version{};
  /// Its state when it was read; nothing when it could not be looked at.
  std::optional<FileStamp> stamp{};
  /// Why not all of it could be used.
  std::optional<Error> damage{};
  bool isMissing = false;

  /// Whether what it lacks was deleted. A missing registry deletes nothing: somebody has removed a file, not
  /// accounts.
  bool isWhole() const { return !damage && !isMissing; }
};

/// Reads the file for a store. What is not usable at all is an error, unless such a file counts as an empty
/// one that was not read in full.
enum class Unusable { isError, isDamage };
Result<ReadRegistry> readForRefresh(const SettingsFile& file, StoreState& store, const RuntimeFixers& fixers,
                                    Unusable unusable);

}  // namespace roster
