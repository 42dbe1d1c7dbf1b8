#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

/// The kind of an entry whose class makes full accounts.
inline constexpr std::string_view fullAccountCreatorType = "FullAccount";
/// The kind of an entry whose class makes sync accounts.
inline constexpr std::string_view syncAccountCreatorType = "SyncAccount";
/// The kind of an entry whose class is told of changes.
inline constexpr std::string_view notifierCreatorType = "NotifierAccount";

/// One entry of the account-creators table: which class of which library makes something for an account type.
/// A value of the wrong type counts as absent.
struct ROSTER_EXPORT CreatorEntry {
  /// Reads an element of the table; all is absent when it is not a dictionary.
  explicit CreatorEntry(const Value& element);

  /// The path of the library that defines the class; nil when it is absent.
  String framework() const;
  /// The name of the class; nil when it is absent.
  String className() const;
  /// The dataclasses that a notifier is to be told of; nothing when they are absent.
  std::optional<Array> supportedDataclasses() const;

  /// The kind of the entry: one of the three above, or a text that the library passes over; nil when it is
  /// absent.
  String creatorType;
  /// The part of the entry that holds all the rest; nothing when it is absent.
  std::optional<Dictionary> description;

 private:
  ROSTER_HIDDEN Value described(std::string_view key) const;
};

/// Loads the plug-in library of an entry, once per process. The path must be ASCII; any other path, and a
/// library that does not load, is an error that says why.
ROSTER_EXPORT Result<> loadCreatorFramework(std::string_view path);

/// The entries of an account type, in order; nothing when the table has none for it, or cannot be read. May
/// be called from any thread.
ROSTER_EXPORT std::optional<Array> creatorEntriesForAccountType(std::string_view type);

}  // namespace roster

/// The texts that describe faults of the account-creators table and of the plug-ins it names, for those who
/// report such faults and for those who look for them. `creatorType` is an entry's kind; some texts are
/// worded differently for notifiers.
namespace roster::creator_faults {

/// The table has nothing for the account type.
ROSTER_EXPORT std::string noInformation(std::string_view accountType);
/// An entry has no description.
ROSTER_EXPORT std::string noDescription(std::string_view creatorType, std::string_view accountType);
/// An entry names no library.
ROSTER_EXPORT std::string noFramework(std::string_view creatorType, std::string_view accountType);
/// An entry names no class.
ROSTER_EXPORT std::string noClassName(std::string_view creatorType, std::string_view accountType);
/// The library at the path does not load; `error` says why.
ROSTER_EXPORT std::string notLoaded(std::string_view path, std::string_view error);
/// The library does not define the class; `className` may be nil.
ROSTER_EXPORT std::string unknownClass(std::string_view creatorType, const String& className);

}  // namespace roster::creator_faults
