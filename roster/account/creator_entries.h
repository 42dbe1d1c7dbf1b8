#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "roster/account/vocabulary.h"
#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

// The kinds of entries of the account-creators table.
inline constexpr std::string_view fullAccountCreatorType = "FullAccount";
inline constexpr std::string_view syncAccountCreatorType = "SyncAccount";
inline constexpr std::string_view notifierCreatorType = "NotifierAccount";

/// One entry of the account-creators table: which class of which library makes something for an account type.
/// Whatever has the wrong type in the table is absent here.
struct CreatorEntry {
  explicit CreatorEntry(const Value& element) {
    const std::optional<Dictionary> entry = element.dictionary();
    if (!entry) return;
    creatorType = entry->find("Type").string();
    description = entry->find("Description").dictionary();
  }

  String framework() const { return described("Framework").string(); }
  String className() const { return described("Class").string(); }
  /// The dataclasses that a notifier wants to hear of.
  std::optional<Array> supportedDataclasses() const {
    return described(kAccountSupportedDataclasses).array();
  }

  String creatorType;
  std::optional<Dictionary> description;

 private:
  Value described(std::string_view key) const { return description ? description->find(key) : Value(); }
};

/// Loads the plug-in library of an entry. Its path is one in ASCII; any other, and a library that does not
/// load, is an error that says why.
ROSTER_EXPORT Result<> loadCreatorFramework(std::string_view path);

/// The entries of an account type, in order; nothing when the table has none for it, or cannot be read.
ROSTER_EXPORT std::optional<Array> creatorEntriesForAccountType(std::string_view type);

}  // namespace roster

/// What is said of faults of the account-creators table and of the plug-ins it names, by those who report
/// them and by those who look for them. `creatorType` is an entry's kind; notifiers have words of their own.
namespace roster::creator_faults {

/// The table has nothing for the account type.
ROSTER_EXPORT std::string noInformation(std::string_view accountType);
ROSTER_EXPORT std::string noDescription(std::string_view creatorType, std::string_view accountType);
ROSTER_EXPORT std::string noFramework(std::string_view creatorType, std::string_view accountType);
ROSTER_EXPORT std::string noClassName(std::string_view creatorType, std::string_view accountType);
/// The library does not load.
ROSTER_EXPORT std::string notLoaded(std::string_view path, std::string_view error);
/// The library does not define the class; `className` may be a nil text.
ROSTER_EXPORT std::string unknownClass(std::string_view creatorType, const String& className);

}  // namespace roster::creator_faults
