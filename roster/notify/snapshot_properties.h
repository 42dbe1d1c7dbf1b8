#pragma once

#include <utility>
#include <vector>

#include "roster/notify/change_detection.h"
#include "roster/value/ordered_map.h"

namespace roster {

/// What a snapshot holds. Put in order by identifier at the first request only: a store that is loaded, or
/// made for the length of a save, is often never asked.
class SnapshotProperties {
 public:
  static SnapshotProperties& of(const Snapshot& snapshot) { return *snapshot.properties_; }

  void reserve(std::size_t count) { entries_.reserve(count); }
  void add(const String& identifier, Dictionary properties) {
    entries_.emplace_back(identifier, std::move(properties));
  }
  OrderedMap<Dictionary>& byID();

 private:
  std::vector<std::pair<String, Dictionary>> entries_;
  OrderedMap<Dictionary> byID_;
};

/// The accounts of a store's index that differ from the snapshot, in the order of `changesBetween`. An
/// account whose properties merely share what the snapshot holds is passed over without a look at them.
std::vector<AccountChange> detectChanges(const Snapshot& snapshot,
                                         const OrderedMap<AccountPtr>& accountsByID);

}  // namespace roster
