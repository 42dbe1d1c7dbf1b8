#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "roster/base/export.h"

namespace roster {

/// The process's own seed, drawn once. A registry comes from other programs: with a fixed hash function its
/// author could choose identifiers that all fall into one slot.
ROSTER_EXPORT std::uint64_t textHashSeed();

namespace detail {

inline std::uint64_t multiplyAndFold(std::uint64_t a, std::uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
}

template <class Word>
std::uint64_t loadWord(const char* from) {
  Word word = 0;
  std::memcpy(&word, from, sizeof word);
  return word;
}

/// One to eight bytes as a number: by two loads that may overlap, never by a loop.
inline std::uint64_t loadUpToEight(const char* from, std::size_t count) {
  if (count >= 4) {
    return (loadWord<std::uint32_t>(from) << 32U) | loadWord<std::uint32_t>(from + count - 4);
  }
  const auto byteAt = [from](std::size_t at) { return std::uint64_t{static_cast<unsigned char>(from[at])}; };
  return (byteAt(0) << 16U) | (byteAt(count / 2) << 8U) | byteAt(count - 1);
}

}  // namespace detail

/// A fast seeded hash for short texts: keys and identifiers. Sixteen bytes a step; the steps do not wait for
/// each other.
inline std::uint64_t hashText(std::string_view text, std::uint64_t seed) {
  constexpr std::uint64_t first = 0x9E3779B97F4A7C15U;
  constexpr std::uint64_t second = 0xD1B54A32D192ED03U;
  const std::uint64_t start = seed ^ (text.size() * second);
  std::uint64_t state = start;
  std::uint64_t salt = first;
  const char* position = text.data();
  std::size_t left = text.size();
  for (; left > 16; left -= 16, position += 16, salt += second) {
    state ^= detail::multiplyAndFold(detail::loadWord<std::uint64_t>(position) ^ start,
                                     detail::loadWord<std::uint64_t>(position + 8) ^ salt);
  }
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  if (left >= 8) {
    low = detail::loadWord<std::uint64_t>(position);
    high = detail::loadWord<std::uint64_t>(position + left - 8);
  } else if (left > 0) {
    low = detail::loadUpToEight(position, left);
  }
  return detail::multiplyAndFold(state ^ low ^ first, high ^ salt ^ start);
}

/// Equality of short texts, without the call that a comparison of any length takes.
inline bool areEqualTexts(std::string_view left, std::string_view right) {
  if (left.size() != right.size() || left.empty()) return left.size() == right.size();
  const char* a = left.data();
  const char* b = right.data();
  const std::size_t size = left.size();
  if (size < 8) return detail::loadUpToEight(a, size) == detail::loadUpToEight(b, size);
  using Word = std::uint64_t;
  for (std::size_t at = 0; at < size - 8; at += 8) {
    if (detail::loadWord<Word>(a + at) != detail::loadWord<Word>(b + at)) return false;
  }
  return detail::loadWord<Word>(a + size - 8) == detail::loadWord<Word>(b + size - 8);
}

}  // namespace roster
