#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/binary_layout.h"
#include "platform/text_table.h"

namespace roster {

/// What one pass over all objects of a binary property list has found out about them.
struct CheckedObjects {
  /// Per object, why it cannot be followed to its leaves; empty when all can be.
  std::vector<Fault> faults;
  /// The texts that are not stored as ASCII, as UTF-8, by object.
  std::unordered_map<std::uint32_t, std::string> wideTexts;
  /// The objects that serve as dictionary keys.
  TextTable keys;
  /// Two key objects hold the same text, so that a key cannot be found by its object's number alone.
  bool hasRepeatedKeys = false;
};

/// Looks at every object once: that it lies within the file, that its text decodes, that containers refer to objects
/// that exist, have strings as keys, do not contain themselves, and are neither too deep nor, with their shared
/// parts unfolded, too large. Takes time and memory linear in the file, whatever the file holds. Fails only when
/// objects overlap, which no honest writer makes and which would let a small file stand for endless text.
Result<CheckedObjects> checkObjects(const BinaryLayout& layout);

}  // namespace roster
