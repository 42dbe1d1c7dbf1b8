#include "account/creator_entries.h"

#include "account/basic_account.h"

namespace roster {

std::optional<Array> creatorEntriesForAccountType(std::string_view type) {
  const Dictionary* table = BasicAccount::_accountCreationMap();
  return table == nullptr ? std::nullopt : table->find(type).array();
}

}  // namespace roster
