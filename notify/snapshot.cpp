#include "notify/snapshot.h"

#include "platform/system_log.h"

namespace roster {

Snapshot::Snapshot(std::span<const std::shared_ptr<BasicAccount>> accounts) {
  propertiesByID_.reserve(accounts.size());
  for (const std::shared_ptr<BasicAccount>& account : accounts) {
    const String identifier = account->identifier();
    if (identifier.isNil()) {
      systemLog("%@ returned a nil identifier. Account properties may not get saved", account->description());
      continue;
    }
    propertiesByID_.set(identifier, account->propertiesToSave().deepCopy());
  }
}

}  // namespace roster
