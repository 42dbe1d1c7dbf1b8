#pragma once

#include <string>
#include <vector>

#include "roster/base/export.h"

namespace roster {

/// Something in a registry's file that the library does not simply take as it stands.
struct RegistryFinding {
  enum class Kind {
    /// An account that does not become a record, and is gone from the file after the next save.
    drops,
    /// Something that the library puts in order in memory.
    repairs,
    /// Something without effect.
    ignores,
    /// Something that cannot be read. The next save keeps the file as it is beside the new one.
    damage,
  };
  Kind kind = Kind::ignores;
  /// What it is about: the file's path, or a place in it as in "Accounts[2].ChildAccounts[0] (IDENTIFIER)".
  std::string where;
  /// What the library makes of it, and why. Both are single lines.
  std::string what;
  std::string why;
};

/// Reads the registry at a path as a store would load it, and tells what of it would be dropped, repaired or
/// ignored, in the order of the file. Nothing is written, neither to the file nor to the system log. A file
/// that is missing has no findings. Work and results are bounded: a last finding says so when not everything
/// was looked at or listed.
ROSTER_EXPORT std::vector<RegistryFinding> checkRegistry(const std::string& path);

}  // namespace roster
