#include "roster/base/text_hash.h"

#include <random>

namespace roster {

std::uint64_t textHashSeed() {
  static const std::uint64_t seed = [] {
    std::random_device source;
    return (static_cast<std::uint64_t>(source()) << 32U) | source();
  }();
  return seed;
}

}  // namespace roster
