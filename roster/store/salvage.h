#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>

#include "roster/value/value.h"

namespace roster {

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
  Value usablePart(const Value& value, int levels, bool isRepeated);
  Value usableArray(const Array& array, int levels, bool isRepeated);
  Value usableDictionary(const Dictionary& dictionary, int levels, bool isRepeated);
  bool fits(const Value& value, bool isRepeated);
  bool isAffordable(const Value& value, bool& isRepeated);

  bool isDamaged_;
  std::unordered_set<ValueIdentity> met_;
  std::uint64_t repetitions_ = 0;
};

}  // namespace roster
