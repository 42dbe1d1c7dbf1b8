#pragma once

#include <string>

#include "platform/export.h"

namespace roster {

// The files that a migration is about. Each path is made afresh at every call.

/// The mail application's own account list of older system versions.
ROSTER_EXPORT std::string mailAccountsPath();
/// The preferences of the sync-accounts service of older system versions.
ROSTER_EXPORT std::string tsAccountPath();
/// The registry.
ROSTER_EXPORT std::string rosterAccountsPath();
/// The bundle that holds the migrator plug-in.
ROSTER_EXPORT std::string accountMigratorPath();

}  // namespace roster
