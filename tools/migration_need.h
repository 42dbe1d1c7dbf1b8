#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "roster/migration/migration.h"
#include "tools/commands.h"

namespace roster::tool {

/// What there is to be migrated, for a command that only tells it: the system log is for migrations. What it
/// would have been told is printed when that is asked for.
MigrationNeed askedMigrationNeed(const Options& options);

/// Why accounts have to be migrated, a sentence each; empty when they have not.
std::vector<std::string> reasonsToMigrate(const MigrationNeed& need);

nlohmann::ordered_json jsonFromNeed(const MigrationNeed& need);

}  // namespace roster::tool
