#pragma once

#include <string>
#include <vector>

#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

/// Something in a registry's file that the library does not simply take as it stands.
struct RegistryFinding {
  /// What becomes of it.
  enum class Kind {
    drops,    ///< An account that is gone from the file after the next save.
    repairs,  ///< Something that the library puts in order in memory.
    ignores,  ///< Something without effect.
    damage,   ///< Something that cannot be read. The next save keeps the file as it is beside the new one.
    unread,   ///< The whole file, which this process could not read, sound or not.
  };
  /// What becomes of it.
  Kind kind = Kind::ignores;
  /// What it is about: the file's path, or a position in it as in "Accounts[2].ChildAccounts[0]
  /// (IDENTIFIER)".
  std::string where;
  /// What the library makes of it, on a single line.
  std::string what;
  /// Why it does so, on a single line.
  std::string why;
};

/// Reads the registry at a path as a store would load it, and tells what of it would be dropped, repaired or
/// ignored: the file as a whole, then its parts in their order, then the identifiers that several accounts
/// have. Nothing is written, neither to the file nor, by this thread, to the system log. A file that is
/// missing has no findings. Work and results are bounded: a last finding says so when not everything was
/// looked at or listed. May be called from any thread, in several at once.
ROSTER_EXPORT std::vector<RegistryFinding> checkRegistry(const std::string& path);

/// The elements of "Accounts" in the registry at a path, as they stand: no record is made, and none is left
/// out. A file that is missing has none. Fails, with a message that names the path, when the file cannot be
/// read as a registry or an account in it cannot be read in full.
ROSTER_EXPORT Result<Array> readRegistryAccounts(const std::string& path);

}  // namespace roster
