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

/// How often a record of this process that had no parent has been given one, as happens to every child of a
/// store that is loaded.
inline std::atomic<std::uint64_t>& countOfAdoptions() {
  static std::atomic<std::uint64_t> count = 0;
  return count;
}

}  // namespace roster
