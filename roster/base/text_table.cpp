#include "roster/base/text_table.h"

#include <random>

#include "roster/base/export.h"

namespace roster {

/// Exported for as long as a public header holds an OrderedMap.
ROSTER_EXPORT std::uint64_t textHashSeed() {
  static const std::uint64_t seed = [] {
    std::random_device source;
    return (static_cast<std::uint64_t>(source()) << 32U) | source();
  }();
  return seed;
}

}  // namespace roster
