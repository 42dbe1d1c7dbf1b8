#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "roster/base/text_table.h"
#include "roster/value/fault.h"
#include "roster/value/value.h"

namespace roster {

/// A hash map from texts to values of one type that remembers the order of insertion, as one flat array of
/// entries and one of slots. Small maps have no slots: looking through a handful of keys is faster than
/// hashing one. Walking it while it changes throws EnumerationMutation. A value that is replaced or removed
/// is destroyed when the map has changed: its destructor may use the map.
template <class T>
class OrderedMap {
 public:
  struct Entry {
    String key;
    T value;
  };

  std::size_t size() const { return live_; }
  bool empty() const { return live_ == 0; }
  /// Counts the insertions and removals of keys and the replacements of values by `set`, for those who walk.
  std::uint64_t changes() const { return changes_; }

  void reserve(std::size_t count) {
    entries_.reserve(count);
    if (count > smallSize) rebuildSlots(std::max(count, entries_.size()));
  }

  T* find(std::string_view key) {
    const std::size_t index = indexOf(key, hashOf(key));
    return index == none ? nullptr : &entries_[index].value;
  }
  const T* find(std::string_view key) const {
    const std::size_t index = indexOf(key, hashOf(key));
    return index == none ? nullptr : &entries_[index].value;
  }
  bool contains(std::string_view key) const { return find(key) != nullptr; }

  /// Puts the value under the key, keeping the position of a key that is there already. Returns whether it is
  /// new.
  bool set(const String& key, T value) {
    const std::uint32_t hash = hashOf(key.view());
    const std::size_t index = indexOf(key.view(), hash);
    if (index != none) {
      ++changes_;
      std::swap(entries_[index].value, value);
      return false;
    }
    append(key, std::move(value), hash);
    return true;
  }

  /// Appends an entry whose key is known to be new.
  void append(const String& key, T value) { append(key, std::move(value), hashOf(key.view())); }

  bool erase(std::string_view key) {
    const std::size_t index = indexOf(key, hashOf(key));
    if (index == none) return false;
    ++changes_;
    --live_;
    Stored& entry = entries_[index];
    entry.isErased = true;
    entry.key = String();
    [[maybe_unused]] const T removed = std::exchange(entry.value, T());
    if (entries_.size() > 2 * live_ + smallSize) compact();
    return true;
  }

  // Positions are for walks that keep no pointer into the map. They stay valid while no key is inserted or
  // removed, and mean the same entries in a copy of the map.

  std::size_t firstPosition() const { return liveFrom(0); }
  std::size_t nextPosition(std::size_t position) const { return liveFrom(position + 1); }
  std::size_t endPosition() const { return entries_.size(); }
  const Entry& entryAt(std::size_t position) const { return entries_[position]; }
  T& valueAt(std::size_t position) { return entries_[position].value; }

  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = const Entry*;
    using reference = const Entry&;
    Iterator(const OrderedMap* map, std::size_t position)
        : map_(map), position_(position), changes_(map->changes_) {}
    const Entry& operator*() const {
      check();
      return map_->entries_[position_];
    }
    Iterator& operator++() {
      check();
      position_ = map_->nextPosition(position_);
      return *this;
    }
    friend bool operator==(const Iterator& left, const Iterator& right) {
      left.check();
      return left.position_ == right.position_;
    }

   private:
    void check() const {
      if (changes_ != map_->changes_) throw EnumerationMutation();
    }
    const OrderedMap* map_;
    std::size_t position_;
    std::uint64_t changes_;
  };
  Iterator begin() const { return {this, firstPosition()}; }
  Iterator end() const { return {this, entries_.size()}; }

 private:
  static constexpr std::size_t smallSize = 16;
  static constexpr std::size_t none = static_cast<std::size_t>(-1);
  static constexpr std::uint32_t emptySlot = 0;

  struct Stored : Entry {
    std::uint32_t hash = 0;
    bool isErased = false;
  };

  std::size_t liveFrom(std::size_t position) const {
    while (position < entries_.size() && entries_[position].isErased) ++position;
    return position;
  }

  std::uint32_t hashOf(std::string_view key) const {
    return slots_.empty() ? 0 : static_cast<std::uint32_t>(hashText(key, textHashSeed()));
  }

  std::size_t indexOf(std::string_view key, std::uint32_t hash) const {
    if (slots_.empty()) {
      for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (!entries_[i].isErased && areEqualTexts(entries_[i].key.view(), key)) return i;
      }
      return none;
    }
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask; slots_[slot] != emptySlot; slot = (slot + 1) & mask) {
      if (((slots_[slot] ^ hash) & ~mask) != 0) continue;
      const std::size_t index = (slots_[slot] & mask) - 1;
      const Stored& entry = entries_[index];
      if (!entry.isErased && areEqualTexts(entry.key.view(), key)) return index;
    }
    return none;
  }

  void append(const String& key, T value, std::uint32_t hash) {
    ++changes_;
    if (slots_.empty() ? entries_.size() >= smallSize : 2 * (entries_.size() + 1) > slots_.size()) {
      compact();
      rebuildSlots(2 * (live_ + 1));
      hash = hashOf(key.view());
    }
    entries_.push_back({{key, std::move(value)}, hash, false});
    ++live_;
    if (!slots_.empty()) claimSlot(entries_.size() - 1);
  }

  void claimSlot(std::size_t index) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = entries_[index].hash & mask;
    while (slots_[slot] != emptySlot) slot = (slot + 1) & mask;
    slots_[slot] = static_cast<std::uint32_t>((entries_[index].hash & ~mask) | (index + 1));
  }

  void compact() {
    if (live_ == entries_.size()) return;
    std::erase_if(entries_, [](const Stored& entry) { return entry.isErased; });
    if (!slots_.empty()) rebuildSlots(entries_.size());
  }

  void rebuildSlots(std::size_t count) {
    const bool hadHashes = !slots_.empty();
    slots_.assign(std::bit_ceil(2 * count + 2), emptySlot);
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (!hadHashes) entries_[i].hash = hashOf(entries_[i].key.view());
      if (!entries_[i].isErased) claimSlot(i);
    }
  }

  std::vector<Stored> entries_;
  /// A slot holds the number of an entry, plus one, in the bits that a hash chooses a slot by, and in the
  /// others those of its hash. There are more than twice as many slots as entries, so the number fits.
  std::vector<std::uint32_t> slots_;
  std::size_t live_ = 0;
  std::uint64_t changes_ = 0;
};

}  // namespace roster
