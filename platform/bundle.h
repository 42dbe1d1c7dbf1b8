#pragma once

#include <optional>
#include <string>

#include "platform/result.h"

namespace roster {

/// Whether there is a bundle at the path: a folder.
bool bundleExists(const std::string& path);

/// Loads the code of a bundle as a plug-in (`loadPlugin`). It is the shared library in the bundle's folder
/// that has the folder's name, with ".so" in place of the folder's extension: AccountMigrator.migrator holds
/// AccountMigrator.so.
std::optional<Error> loadBundle(const std::string& path);

}  // namespace roster
