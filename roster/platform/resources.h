#pragma once

#include <string>
#include <string_view>

#include "roster/base/export.h"

namespace roster {

/// The path of a resource of the library: `name` with the file-name extension `type`. Empty when there is no
/// such file. Looked for in the folder that ROSTER_RESOURCES names (not in set-uid programs), then beside the
/// library, then where the library's resources are installed.
ROSTER_EXPORT std::string resourcePath(std::string_view name, std::string_view type);

/// The text under a key of one of the library's string tables, in the user's language (LC_ALL, LC_MESSAGES,
/// LANG) or else in English. A table or key that is missing there too gives `missing`. Tables are read once
/// per process and language.
ROSTER_EXPORT std::string localizedString(std::string_view key, std::string_view table,
                                          std::string_view missing = "");

}  // namespace roster
