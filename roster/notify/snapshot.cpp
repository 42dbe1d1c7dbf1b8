#include "roster/notify/snapshot.h"

#include "roster/platform/system_log.h"

namespace roster {

Snapshot::Snapshot(std::span<const AccountPtr> accounts) {
  entries_.reserve(accounts.size());
  for (const AccountPtr& account : accounts) {
    const String identifier = account->identifier();
    if (identifier.isNil()) {
      systemLog("%@ returned a nil identifier. Account properties may not get saved", account->description());
      continue;
    }
    entries_.push_back({identifier, account->propertiesToSave().deepCopy()});
  }
}

const OrderedMap<Dictionary>& Snapshot::propertiesByID() const {
  if (!entries_.empty()) {
    propertiesByID_.reserve(entries_.size());
    for (Entry& entry : entries_) propertiesByID_.set(entry.identifier, std::move(entry.properties));
    entries_.clear();
    entries_.shrink_to_fit();
  }
  return propertiesByID_;
}

}  // namespace roster
