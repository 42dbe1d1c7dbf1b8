#pragma once

#include <memory>
#include <span>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/base/export.h"
#include "roster/value/ordered_map.h"

namespace roster {

/// The properties of all top-level accounts as they were at one moment. Change detection compares them with
/// the accounts of a later one.
class ROSTER_EXPORT Snapshot {
 public:
  Snapshot() = default;
  /// Deep copies of what each account would save, under its identifier; a later account with the same
  /// identifier wins. An account without an identifier is left out, with one line in the system log.
  explicit Snapshot(std::span<const AccountPtr> accounts);

  /// By identifier. Put in order at the first request: a store that is loaded, or made for the length of a
  /// save, is often never asked.
  const OrderedMap<Dictionary>& propertiesByID() const;

 private:
  struct Entry {
    String identifier;
    Dictionary properties;
  };
  mutable std::vector<Entry> entries_;
  mutable OrderedMap<Dictionary> propertiesByID_;
};

}  // namespace roster
