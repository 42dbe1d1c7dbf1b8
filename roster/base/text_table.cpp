#include "roster/base/text_table.h"

#include <random>

namespace roster {

/// Exported for as long as a public header holds an OrderedMap.
std::uint64_t textHashSeed() {
  static const std::uint64_t seed = [] {
    std::random_device source;
    return (static_cast<std::uint64_t>(source()) << 32U) | source();
  }();
  return seed;
}

}  // namespace roster
