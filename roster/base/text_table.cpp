#include "roster/base/text_table.h"

namespace roster {

std::uint64_t textHashSeed() {
  static const std::uint64_t seed = drawSeed();
  return seed;
}

}  // namespace roster
