#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "roster/base/result.h"
#include "roster/platform/file_stamp.h"
#include "roster/plist/binary_property_list.h"
#include "roster/value/value.h"

namespace roster {

/// The version of the file's layout that this library writes.
inline constexpr unsigned currentRegistryVersion = 12;

/// The name of the lock that a migration holds.
inline constexpr std::string_view migrationLockName = "AccountMigrationInProgress";

/// The content of the account settings file, as far as it can be used.
struct Registry {
  /// The whole file; nothing when there is none or it holds no dictionary.
  std::optional<Dictionary> root;
  /// The value under "Accounts"; nothing when there is none or it is no array.
  std::optional<Array> accounts;
  /// The value under "Version", 0 when there is none.
  std::int64_t version = 0;
  /// Why the file, though it exists, cannot be read as a registry in full; nothing when it can, or there is
  /// no file. What cannot be read is not lost as long as the file itself is kept.
  std::optional<Error> damage;
  /// The state of the file that all this was read from, "missing" for one; nothing when it could not be
  /// looked at.
  std::optional<FileStamp> stamp;
};

/// Whether this process could not read a file that is perhaps sound: it is out of descriptors or memory, or
/// the disk did not answer. Another attempt may well succeed.
bool isFailureOfReading(const Error& error);

/// The one file that holds the registry, at a path.
class SettingsFile {
 public:
  explicit SettingsFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  /// Reads the file. A missing one gives an empty registry.
  Registry read() const;

  /// Replaces the file atomically. When something of it has not been read, because of the damage, it is kept
  /// beside its successor, as `DamagedCopies` has it, and one line in the system log says so. After a
  /// failure, also one to keep that file, the old file is whole. A registry that a migration has removed
  /// comes back with its former owner, group and mode, which the file of the migration lock has kept.
  ///
  /// A file that is expected in a state and is in another one is not replaced: `isChangedMeanwhile` holds for
  /// the error. `written` is set once the new file is in place, even if syncing its folder fails then, to the
  /// stamp with which it is read again unless somebody changes it. `copy` is set to where a damaged file is
  /// kept, once it has been replaced.
  Result<> replace(const ByteSource& content, const std::optional<Error>& damage,
                   const std::optional<FileStamp>& expected = {}, std::optional<FileStamp>* written = nullptr,
                   std::string* copy = nullptr) const;

 private:
  Registry contentOf(const Result<Value>& file) const;

  std::string path_;
};

/// The error with a message that names the path, unless it does so already.
Error naming(const std::string& path, Error error);

/// The version that a registry's root tells: an integer, or a real that is whole, as other writers of
/// property lists store it. Nothing when there is no such number.
std::optional<std::int64_t> registryVersion(const Dictionary& root);

/// Reads the file, and says in the system log when not all of it can be used.
Registry readForLoad(const SettingsFile& file);

/// A registry with these accounts as they are at this moment, in their order, in the current layout. The
/// error names the file that it is for.
Result<BinaryPropertyList> registryOf(std::vector<Value> accounts, const SettingsFile& file);

}  // namespace roster
