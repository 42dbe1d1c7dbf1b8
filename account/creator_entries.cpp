#include "account/creator_entries.h"

#include <algorithm>

#include "account/basic_account.h"
#include "platform/plugin.h"

namespace roster {

std::optional<Error> loadCreatorFramework(std::string_view path) {
  const auto isAscii = [](unsigned char character) { return character < 0x80; };
  if (!std::all_of(path.begin(), path.end(), isAscii)) return Error{"the path is not a text in ASCII"};
  return loadPlugin(std::string(path));
}

std::optional<Array> creatorEntriesForAccountType(std::string_view type) {
  const Dictionary* table = BasicAccount::_accountCreationMap();
  return table == nullptr ? std::nullopt : table->find(type).array();
}

}  // namespace roster
