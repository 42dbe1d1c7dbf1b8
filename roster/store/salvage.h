#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "roster/value/value.h"

namespace roster {

/// Takes what can be used out of the accounts of a damaged registry: every account without the parts of it
/// that cannot be followed. An account without damage is given back as it is, however much of it others
/// share.
///
/// What is left of a container is made once, and shared by all that share the container. So the work is
/// linear in what the file stores, not in what it unfolds to.
class Salvage {
 public:
  /// Keeps the accounts while it lives.
  explicit Salvage(Array accounts) : accounts_(std::move(accounts)) {}

  /// What is left of an element of the accounts; nil when that is nothing. It is never larger than what can
  /// be saved.
  Value usable(const Value& element);

 private:
  /// How far down a faulty element is taken apart: its properties, their elements, and the properties of
  /// those. A child account is an element of a property.
  static constexpr std::size_t depth = 3;

  struct Part {
    Value value;
    /// How many values it unfolds to.
    std::uint64_t size = 0;
  };

  Part usablePart(const Value& value, std::size_t levels);
  Part usableElements(const Array& array, std::size_t levels);
  Part usableEntries(const Dictionary& dictionary, std::size_t levels);
  std::uint64_t sizeOf(const Value& sound);

  Array accounts_;
  std::unordered_map<ValueIdentity, std::uint64_t> sizes_;
  /// What is left of faulty containers, by the levels to which they were taken apart.
  std::array<std::unordered_map<ValueIdentity, Part>, depth> parts_;
};

/// Bounds what a load makes of children: accounts may share one long list of them, and each account would
/// have records of its own. The lists themselves are kept.
class ChildrenAllowance {
 public:
  /// Whether there may be records for this value of "ChildAccounts": the first time always, later until the
  /// allowance is used up.
  bool covers(const Value& children);

 private:
  std::unordered_set<ValueIdentity> met_;
  std::uint64_t repetitions_ = 0;
};

}  // namespace roster
