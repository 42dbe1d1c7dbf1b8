#pragma once

#include <cstddef>
#include <vector>

namespace roster::bench {

/// How far the memory of a process grows at most while it loads a registry, and while it loads one, changes
/// an account and saves: as multiples of the file's size; 0 where that could not be measured.
struct PeakMemory {
  std::size_t accounts;
  double load;
  double loadAndSave;
};

/// Measures registries of 1,000 to 100,000 accounts, each in a process that does nothing else.
std::vector<PeakMemory> measurePeakMemory();

}  // namespace roster::bench
