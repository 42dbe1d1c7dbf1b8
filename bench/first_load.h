#pragma once

#include <cstddef>
#include <vector>

namespace roster::bench {

/// What the first load of a process takes, and what it takes in a process that is the same but for having
/// loaded before. Both are forks, so both pay for the pages that a fork touches first. Medians, in seconds.
struct FirstLoad {
  std::size_t accounts;
  double cold;
  double warm;
  /// Of what a first load took more than the later one of the same turn: a machine that slows down slows
  /// both.
  double beyond;
};

/// Measures registries of ten and a hundred accounts. To be called before this process has used the library.
std::vector<FirstLoad> measureFirstLoads();

}  // namespace roster::bench
