#pragma once

#include <memory>
#include <span>

#include "account/basic_account.h"
#include "platform/ordered_map.h"

namespace roster {

/// The properties of all top-level accounts as they were at one moment. Change detection compares them with
/// the accounts of a later one.
class Snapshot {
 public:
  Snapshot() = default;
  /// Deep copies of what each account would save, under its identifier; a later account with the same
  /// identifier wins. An account without an identifier is left out, with one line in the system log.
  explicit Snapshot(std::span<const std::shared_ptr<BasicAccount>> accounts);

  const OrderedMap<Dictionary>& propertiesByID() const { return propertiesByID_; }

 private:
  OrderedMap<Dictionary> propertiesByID_;
};

}  // namespace roster
