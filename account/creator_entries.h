#pragma once

#include <optional>
#include <string_view>

#include "account/vocabulary.h"
#include "platform/export.h"
#include "platform/result.h"
#include "platform/value.h"

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
ROSTER_EXPORT std::optional<Error> loadCreatorFramework(std::string_view path);

/// The entries of an account type, in order; nothing when the table has none for it, or cannot be read.
ROSTER_EXPORT std::optional<Array> creatorEntriesForAccountType(std::string_view type);

}  // namespace roster
