#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "roster/base/number_table.h"

namespace roster {

/// The process's own seed, drawn once. A registry comes from other programs: with a fixed hash function its
/// author could choose identifiers that all fall into one slot.
std::uint64_t textHashSeed();

/// A number that others cannot foresee. Where the system gives no random numbers, one that they can hardly
/// guess. Only the system has any, so platform/linux/hash_seed.cpp implements it.
std::uint64_t drawSeed();

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
  const auto byteAt = [from](std::size_t index) {
    return std::uint64_t{static_cast<unsigned char>(from[index])};
  };
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

/// A hasher for numbers out of a registry: the standard one is the number itself, so that chosen numbers
/// would all fall into one slot. Two steps, since numbers that differ in a few bits only, as dates do, may
/// leave the first one alike.
struct SeededNumberHash {
  std::uint64_t seed = textHashSeed();
  std::size_t operator()(std::uint64_t number) const noexcept {
    constexpr std::uint64_t first = 0x9E3779B97F4A7C15U;
    constexpr std::uint64_t second = 0xD1B54A32D192ED03U;
    return detail::multiplyAndFold(detail::multiplyAndFold(number ^ seed, first) ^ seed, second);
  }
};

/// A hasher for standard containers whose keys are texts out of a registry, which are also looked up by
/// views.
struct SeededTextHash {
  using is_transparent = void;
  std::uint64_t seed = textHashSeed();
  std::size_t operator()(std::string_view text) const noexcept { return hashText(text, seed); }
};

/// Equality of short texts, without the call that a comparison of any length takes.
inline bool areEqualTexts(std::string_view left, std::string_view right) {
  if (left.size() != right.size() || left.empty()) return left.size() == right.size();
  const char* a = left.data();
  const char* b = right.data();
  const std::size_t size = left.size();
  if (size < 8) return detail::loadUpToEight(a, size) == detail::loadUpToEight(b, size);
  using Word = std::uint64_t;
  for (std::size_t offset = 0; offset < size - 8; offset += 8) {
    if (detail::loadWord<Word>(a + offset) != detail::loadWord<Word>(b + offset)) return false;
  }
  return detail::loadWord<Word>(a + size - 8) == detail::loadWord<Word>(b + size - 8);
}

/// Finds the object that holds a text, among numbered objects that somebody else keeps. A reader finds
/// dictionary keys with it, so that a look-up compares numbers instead of texts; a writer finds the texts
/// that it has stored already.
class TextTable {
 public:
  static constexpr std::uint32_t none = NumberTable::none;

  /// The number under which the text was added first, or `none`. `textOf` tells the text of a number.
  template <class TextOf>
  std::uint32_t find(std::string_view text, TextOf&& textOf) const {
    return numbers_.find(hashText(text, seed_),
                         [&](std::uint32_t number) { return areEqualTexts(textOf(number), text); });
  }

  /// Adds the object; false, with nothing added, when its text is there under another number.
  template <class TextOf>
  bool add(std::uint32_t object, TextOf&& textOf) {
    const std::string_view text = textOf(object);
    const auto isSame = [&](std::uint32_t number) { return areEqualTexts(textOf(number), text); };
    return numbers_.findOrAdd(hashText(text, seed_), isSame, [object] { return object; }) == object;
  }

 private:
  NumberTable numbers_;
  std::uint64_t seed_ = textHashSeed();
};

}  // namespace roster
