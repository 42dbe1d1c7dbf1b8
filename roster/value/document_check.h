#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "roster/base/text_table.h"
#include "roster/value/document_layout.h"

namespace roster {

/// The entries of one dictionary by key, where looking through its references would take too long or would
/// find the same key twice.
struct KeyIndex {
  /// Longer dictionaries have an index.
  static constexpr std::uint32_t longestWithout = 64;

  struct Entry {
    std::uint32_t key = 0;
    std::uint32_t index = 0;
  };
  /// Sorted by key, one entry a key.
  std::vector<Entry> byKey;
  /// The indexes of the entries that count, in the file's order: of a repeated key the last.
  std::vector<std::uint32_t> indexes;

  std::optional<std::uint32_t> indexOf(std::uint32_t key) const;
};

/// The texts of a file that are not stored as ASCII, as UTF-8: one behind the other, since most are short.
class WideTexts {
 public:
  /// Objects come in ascending order. False, with nothing added, when the bytes are not UTF-16.
  bool add(std::uint32_t object, std::span<const std::byte> bytes);
  /// Empty for an object that was not added. Views stay valid once all have been added, also when these texts
  /// are moved.
  std::string_view of(std::uint32_t object) const;

 private:
  struct Entry {
    std::uint32_t object;
    std::size_t begin;
    std::size_t size;
  };
  /// Not a text, whose contents move with it when they are short.
  std::vector<char> bytes_;
  std::vector<Entry> entries_;
  std::string decoded_;
};

/// What one pass over all objects of a binary property list has found out about them.
struct CheckedObjects {
  /// Every object's header. The fault of a container is that of what it holds.
  std::vector<ObjectHeader> objects;
  WideTexts wideTexts;
  /// The texts that serve as dictionary keys; a key's number is its index here.
  std::vector<std::string_view> keys;
  TextTable keysByText;
  /// By key object, the number of the key whose text it holds.
  std::unordered_map<std::uint32_t, std::uint32_t> keyNumbers;
  /// For each shape, and in it for each of the first `shapedKeys` keys, the index at which its dictionaries
  /// have the key, plus one; 0 where they do not have it. They have no other keys.
  std::vector<std::uint8_t> shapeIndexes;
  std::uint32_t shapedKeys = 0;
  /// By dictionary.
  std::unordered_map<std::uint32_t, KeyIndex> indexes;
};

/// Looks at every object once: that it lies within the file and reaches into no other one, that its text
/// decodes, that containers refer to objects that exist, have strings as keys, do not contain themselves, and
/// are neither too deep nor, with their shared parts unfolded, too large. Takes time and memory linear in the
/// file, whatever the file holds (but for sorting what is out of order). Fails only when objects overlap many
/// times over, which would let a small file stand for endless text; a single wrong length or offset is a
/// fault of what it is wrong for.
Result<CheckedObjects> checkObjects(const BinaryLayout& layout);

}  // namespace roster
