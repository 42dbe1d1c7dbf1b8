#pragma once

#include <optional>
#include <string>
#include <vector>

#include "roster/notify/change_detection.h"

namespace roster::tool {

/// The registry's accounts as they were when they could last be read.
class RegistryState {
 public:
  explicit RegistryState(std::string path) : path_(std::move(path)) {}

  /// Reads the registry again and tells what has changed since, in the order of `changesBetween`; the first
  /// time that is nothing. A registry that cannot be read is a warning, the same one once in a row, and
  /// counts as unchanged; a note follows when it can be read again. One that is missing has no accounts.
  std::vector<AccountChange> update();

 private:
  void tellDamage(const std::string& damage);

  std::string path_;
  /// Nothing as long as it could never be read.
  std::optional<Snapshot> known_;
  /// Why it could not be read the last time; nothing when it could.
  std::optional<std::string> damage_;
};

}  // namespace roster::tool
