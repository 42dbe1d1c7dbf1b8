#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "roster/fixers/runtime_fix.h"
#include "roster/store/registry_merge.h"
#include "roster/store/settings_file.h"

namespace roster {

using RuntimeFixers = std::vector<std::shared_ptr<RSRuntimeFixProtocol>>;

/// An account that is stored without an identifier. Every load gives it a fresh one, so that it is known
/// again by its contents only.
struct NamelessAccount {
  String identifier{};
  /// As it is stored.
  Dictionary stored{};
};

/// A part of the registry that becomes no record here: an account of a type that this program does not know.
struct CarriedEntry {
  /// How many accounts stand before it.
  std::size_t position = 0;
  Value element{};
};

/// The registry as the file has it at one moment, as far as it can be used.
struct FileVersion {
  /// As the fixers leave them: a repair is nobody's change.
  AccountList accounts{};
  std::vector<NamelessAccount> nameless{};
  std::vector<CarriedEntry> carried{};
};

/// Whether a record that was just made of what is stored was given its identifier then.
bool isNameless(const BasicAccount& account, const Dictionary& stored);

/// One line in the system log about an element of the accounts that becomes no record.
void logRejected(const Value& element);

/// Makes of a file's accounts what a load would make of them, with fixers of its own: what they remember
/// until a save is not to be what they have seen here. Those that are stored without an identifier keep the
/// one that they are known by.
FileVersion fileVersion(const Array& accounts, const RuntimeFixers& fixers,
                        const std::vector<NamelessAccount>& known);

}  // namespace roster
