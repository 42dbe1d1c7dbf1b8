#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "roster/store/accounts_manager.h"
#include "roster/store/registry_lock.h"
#include "tools/commands.h"

namespace roster::tool {

/// An account that was asked for by its identifier.
struct FoundAccount {
  AccountPtr account;
  /// Nil for a top-level account.
  AccountPtr parent;
};

/// One command's view of the registry, from loading it to saving it. Failures are thrown as CommandError.
class Session {
 public:
  enum class Purpose { reading, changing, adding };
  /// Loads the registry. One that cannot be read at all is a failure, unless an account is added: the save
  /// then keeps the unreadable file and says so. While a migration is due the registry is not changed unless
  /// the options force it.
  Session(Purpose purpose, const Options& options);

  AccountsManager& store() { return *store_; }
  const AccountsManager& store() const { return *store_; }
  /// The top-level account or child with the identifier; fails when there is none.
  FoundAccount find(const std::string& name) const;
  /// Gives a changed account back to the store; a child keeps its position among its parent's children.
  void putBack(const FoundAccount& found);
  /// Saves. What the registry holds that the library cannot use stays in it as it is. Fails, before anything
  /// is written, when the changed top-level account would not survive the next load. Notifiers that cannot be
  /// told what was saved are a warning.
  void save(const AccountPtr& changed = nullptr);

 private:
  /// Held from the load to the save: what the command has decided on is what it changes.
  std::optional<RegistryLock> lock_;
  std::shared_ptr<AccountsManager> store_;
};

/// A dataclass without the prefix that all known ones share, "Mail"; a part of the text that is given.
std::string_view shortName(std::string_view dataclass);
std::vector<std::string> shortNames(const std::vector<std::string>& dataclasses);

}  // namespace roster::tool
