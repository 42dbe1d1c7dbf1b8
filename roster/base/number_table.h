#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace roster {

/// Finds numbered things, which somebody else keeps, by their hashes. The hashes must be seeded where the
/// things come from a file.
class NumberTable {
 public:
  static constexpr std::uint32_t none = 0xFFFFFFFFU;

  /// Makes room for so many numbers.
  void reserve(std::size_t count) {
    if (slots_.size() < 2 * count) resize(std::bit_ceil(2 * count));
  }

  /// The number that was added with this hash and that `isSame` says yes to, or `none`.
  template <class IsSame>
  std::uint32_t find(std::uint64_t hash, const IsSame& isSame) const {
    if (slots_.empty()) return none;
    const std::size_t mask = slots_.size() - 1;
    const auto tag = static_cast<std::uint32_t>(hash);
    for (std::size_t index = tag & mask; slots_[index].number != none; index = (index + 1) & mask) {
      const Slot slot = slots_[index];
      if (slot.tag == tag && isSame(slot.number)) return slot.number;
    }
    return none;
  }

  /// The number that `find` finds; else adds the one that `make` makes, unless that is `none`, and returns
  /// it. `make` must not use the table.
  template <class IsSame, class Make>
  std::uint32_t findOrAdd(std::uint64_t hash, const IsSame& isSame, const Make& make) {
    if (2 * (count_ + 1) > slots_.size()) grow();
    const std::size_t mask = slots_.size() - 1;
    const auto tag = static_cast<std::uint32_t>(hash);
    std::size_t index = tag & mask;
    for (; slots_[index].number != none; index = (index + 1) & mask) {
      if (slots_[index].tag == tag && isSame(slots_[index].number)) return slots_[index].number;
    }
    const std::uint32_t number = make();
    if (number == none) return none;
    slots_[index] = {number, tag};
    ++count_;
    return number;
  }

 private:
  struct Slot {
    std::uint32_t number = none;
    std::uint32_t tag = 0;
  };

  void insert(Slot slot) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t index = slot.tag & mask;
    while (slots_[index].number != none) index = (index + 1) & mask;
    slots_[index] = slot;
  }

  void grow() { resize(slots_.empty() ? 64 : 2 * slots_.size()); }

  void resize(std::size_t slots) {
    std::vector<Slot> old(slots);
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.number != none) insert(slot);
    }
  }

  std::vector<Slot> slots_;
  std::size_t count_ = 0;
};

}  // namespace roster
