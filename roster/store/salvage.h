#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <unordered_set>
#include <utility>

#include "roster/value/value.h"

namespace roster {

class Node;

/// Takes what can be used out of the accounts of a damaged registry: every account without the parts of it
/// that cannot be followed. Accounts without damage are given back as they are.
///
/// What it gives back in all is about as much as the file really stores: parts that the file shares, so that
/// they would unfold without end, are left out once they have been met too often.
class Salvage {
 public:
  explicit Salvage(const Array& accounts);

  /// What is left of an element of the accounts; nil when that is nothing.
  Value usable(const Value& element);

 private:
  using Identity = std::pair<const Node*, std::uint32_t>;
  struct IdentityHash {
    std::size_t operator()(const Identity& identity) const {
      return std::hash<const Node*>()(identity.first) ^ (std::size_t{identity.second} * 0x9E3779B97F4A7C15U);
    }
  };

  Value usablePart(const Value& value, int levels, bool isRepeated);
  Value usableArray(const Array& array, int levels, bool isRepeated);
  Value usableDictionary(const Dictionary& dictionary, int levels, bool isRepeated);
  bool fits(const Value& value, bool isRepeated);
  bool isAffordable(const Value& value, bool& isRepeated);

  bool isDamaged_;
  std::unordered_set<Identity, IdentityHash> met_;
  std::uint64_t repetitions_ = 0;
};

}  // namespace roster
