#pragma once

#include <string>
#include <vector>

#include "roster/base/result.h"

namespace roster {

/// The copies of a registry that could not be read in full, beside it: under its own name with ".damaged-"
/// and the time in UTC, and a number where that was taken. The same content is kept once, and of all copies
/// the newest eight: a writer that damages the registry again and again does not fill the disk.
class DamagedCopies {
 public:
  struct Copy {
    std::string path;
    /// Whether it was made just now, and did not hold the same already.
    bool isNew = false;
  };

  explicit DamagedCopies(std::string registry) : registry_(std::move(registry)) {}

  /// Makes sure that there is a copy of the registry as it is now. Fails when none can be made.
  Result<Copy> keep() const;

  /// To be called when the registry was to be replaced after that: tells the system log what was kept and
  /// why, and removes what are too many copies by now, never this one. When the damaged registry is still in
  /// its place, a new copy of it goes again.
  void settle(const Copy& copy, bool isReplaced, const std::string& damage) const;

 private:
  /// The paths of the copies that are there, oldest first.
  std::vector<std::string> list() const;

  std::string registry_;
};

}  // namespace roster
