#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "roster/base/text_hash.h"

namespace roster {

/// Finds the object that holds a text, among numbered objects that somebody else keeps. A reader finds
/// dictionary keys with it, so that a look-up compares numbers instead of texts; a writer finds the texts
/// that it has stored already.
class TextTable {
 public:
  static constexpr std::uint32_t none = 0xFFFFFFFFU;

  /// The number under which the text was added first, or `none`. `textOf` tells the text of a number.
  template <class TextOf>
  std::uint32_t find(std::string_view text, TextOf&& textOf) const {
    if (slots_.empty()) return none;
    const auto hash = static_cast<std::uint32_t>(hashText(text, seed_));
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = hash & mask; slots_[at].object != none; at = (at + 1) & mask) {
      if (slots_[at].hash == hash && areEqualTexts(textOf(slots_[at].object), text)) return slots_[at].object;
    }
    return none;
  }

  /// Adds the object; false, with nothing added, when its text is there under another number.
  template <class TextOf>
  bool add(std::uint32_t object, TextOf&& textOf) {
    const std::string_view text = textOf(object);
    if (find(text, textOf) != none) return false;
    if (2 * (count_ + 1) > slots_.size()) grow();
    place({object, static_cast<std::uint32_t>(hashText(text, seed_))});
    ++count_;
    return true;
  }

 private:
  struct Slot {
    std::uint32_t object = none;
    std::uint32_t hash = 0;
  };

  void place(Slot slot) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = slot.hash & mask;
    while (slots_[at].object != none) at = (at + 1) & mask;
    slots_[at] = slot;
  }

  void grow() {
    std::vector<Slot> old(slots_.empty() ? 64 : 2 * slots_.size());
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.object != none) place(slot);
    }
  }

  std::vector<Slot> slots_;
  std::size_t count_ = 0;
  std::uint64_t seed_ = textHashSeed();
};

}  // namespace roster
