#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/export.h"

namespace roster {

/// The process's own seed, drawn once. A registry comes from other programs: with a fixed hash function its author
/// could choose identifiers that all fall into one slot.
ROSTER_EXPORT std::uint64_t textHashSeed();

namespace detail {

inline std::uint64_t multiplyAndFold(std::uint64_t a, std::uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
}

inline std::uint64_t loadUpToEight(const char* from, std::size_t count) {
  std::uint64_t word = 0;
  std::memcpy(&word, from, count);
  return word;
}

}  // namespace detail

/// A fast seeded hash for short texts: keys and identifiers.
inline std::uint64_t hashText(std::string_view text, std::uint64_t seed) {
  constexpr std::uint64_t first = 0x9E3779B97F4A7C15U;
  constexpr std::uint64_t second = 0xD1B54A32D192ED03U;
  std::uint64_t state = seed ^ (text.size() * second);
  const char* position = text.data();
  std::size_t left = text.size();
  for (; left > 8; left -= 8, position += 8) {
    state = detail::multiplyAndFold(state ^ detail::loadUpToEight(position, 8), first);
  }
  if (left > 0) state ^= detail::loadUpToEight(position, left);
  return detail::multiplyAndFold(state ^ first, second);
}

}  // namespace roster
