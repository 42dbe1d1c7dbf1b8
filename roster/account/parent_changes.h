#pragma once

#include <atomic>
#include <cstdint>

namespace roster {

/// How often a record of this process that had a parent has been given another one or none. Who keeps records
/// sorted by their parents sees by it that they must be sorted again.
inline std::atomic<std::uint64_t>& countOfParentChanges() {
  static std::atomic<std::uint64_t> count = 0;
  return count;
}

}  // namespace roster
