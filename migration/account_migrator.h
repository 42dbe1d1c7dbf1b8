#pragma once

#include <functional>
#include <memory>

#include "platform/export.h"

namespace roster {

/// A migration, carried out once by one instance, while the migration lock is held.
class ROSTER_EXPORT AccountMigrationProtocol {
 public:
  virtual ~AccountMigrationProtocol() = default;
  /// Turns what the old files hold into a registry of the current version; true when that is done. It must
  /// not wait for the migration lock. Stores are made with `AccountsManager::initInsideOfMigration`. Throwing
  /// is the same as returning false.
  virtual bool executeMigrationSteps() = 0;
};

/// What the class of the migrator plug-in answers.
struct ROSTER_EXPORT AccountMigratorProtocol {
  /// A new instance. Required.
  std::function<std::shared_ptr<AccountMigrationProtocol>()> init{};
};

}  // namespace roster
