#pragma once

#include <string>
#include <string_view>

#include "platform/export.h"
#include "platform/value.h"

/// What is said of faults of the account-creators table and of the plug-ins it names, by those who report
/// them and by those who look for them. `creatorType` is an entry's kind; notifiers have words of their own.
namespace roster::creator_faults {

/// The table has nothing for the account type.
ROSTER_EXPORT std::string noInformation(std::string_view accountType);
ROSTER_EXPORT std::string noDescription(std::string_view creatorType, std::string_view accountType);
ROSTER_EXPORT std::string noFramework(std::string_view creatorType, std::string_view accountType);
ROSTER_EXPORT std::string noClassName(std::string_view creatorType, std::string_view accountType);
/// The library does not load.
ROSTER_EXPORT std::string notLoaded(std::string_view path, std::string_view error);
/// The library does not define the class; `className` may be a nil text.
ROSTER_EXPORT std::string unknownClass(std::string_view creatorType, const String& className);

}  // namespace roster::creator_faults
