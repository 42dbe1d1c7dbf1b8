#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "roster/migration/migration.h"
#include "roster/store/accounts_manager.h"
#include "tools/commands.h"

namespace roster::tool {

/// What there is to migrate, for a command that only reports it: nothing goes to the system log, which is for
/// migrations that take place, unless the options ask for log lines.
MigrationNeed askedMigrationNeed(const Options& options);
/// The same for a command that has loaded the registry.
MigrationNeed askedMigrationNeed(const Options& options, const AccountsManager& loaded);

/// Why accounts have to be migrated, a sentence for each reason; empty when there is nothing to migrate.
std::vector<std::string> reasonsToMigrate(const MigrationNeed& need);

nlohmann::ordered_json jsonFromNeed(const MigrationNeed& need);

}  // namespace roster::tool
