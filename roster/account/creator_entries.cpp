#include "roster/account/creator_entries.h"

#include <algorithm>

#include "roster/account/basic_account.h"
#include "roster/account/vocabulary.h"
#include "roster/platform/plugin.h"
#include "roster/platform/system_log.h"

namespace roster {

CreatorEntry::CreatorEntry(const Value& element) {
  const std::optional<Dictionary> entry = element.dictionary();
  if (!entry) return;
  creatorType = entry->find("Type").string();
  description = entry->find("Description").dictionary();
}

Value CreatorEntry::described(std::string_view key) const {
  return description ? description->find(key) : Value();
}

String CreatorEntry::framework() const { return described("Framework").string(); }

String CreatorEntry::className() const { return described("Class").string(); }

std::optional<Array> CreatorEntry::supportedDataclasses() const {
  return described(kAccountSupportedDataclasses).array();
}

Result<> loadCreatorFramework(std::string_view path) {
  const auto isAscii = [](unsigned char character) { return character < 0x80; };
  if (!std::all_of(path.begin(), path.end(), isAscii))
    return Error(std::errc::invalid_argument, "the path is not a text in ASCII");
  return loadPlugin(std::string(path));
}

std::optional<Array> creatorEntriesForAccountType(std::string_view type) {
  const Dictionary* table = BasicAccount::_accountCreationMap();
  return table == nullptr ? std::nullopt : table->find(type).array();
}

namespace creator_faults {

namespace {

std::string malformed(const std::string& fault) { return "Malformed AccountCreators information. " + fault; }

}  // namespace

std::string noInformation(std::string_view accountType) {
  return malformed(formatted("Could not find the information for the type %@", accountType));
}

std::string noDescription(std::string_view creatorType, std::string_view accountType) {
  return malformed(
      formatted("Could not find the description for the %@ with type %@", creatorType, accountType));
}

std::string noFramework(std::string_view creatorType, std::string_view accountType) {
  const std::string_view what = creatorType == notifierCreatorType ? "notifier" : creatorType;
  return malformed(
      formatted("Could not find the path to the framework for the %@ with type %@", what, accountType));
}

std::string noClassName(std::string_view creatorType, std::string_view accountType) {
  if (creatorType == notifierCreatorType) {
    return malformed(
        formatted("Could not find the name of the class for notificatinos with the type %@", accountType));
  }
  return malformed(formatted("Could not find the name of the class that creates %@ with the type %@",
                             creatorType, accountType));
}

std::string notLoaded(std::string_view path, std::string_view error) {
  return formatted("Could not load the account creator framework %@. Error %s", path, error);
}

std::string unknownClass(std::string_view creatorType, const String& className) {
  if (creatorType == notifierCreatorType) {
    return formatted("Could not find a class for class name %@", className);
  }
  return formatted("The framework/bundle where %@ is defined has not been loaded", className);
}

}  // namespace creator_faults
}  // namespace roster
