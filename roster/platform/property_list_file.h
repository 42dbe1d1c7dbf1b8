#pragma once

#include <string>

#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/plist/property_list.h"
#include "roster/value/value.h"

namespace roster {

/// Reads the property list at a path. The error tells the path, what was done, and the cause. `isMissingFile`
/// holds for it when there is no such file, and its code is `std::errc::bad_message` when the bytes were read
/// and are no property list.
ROSTER_EXPORT Result<Value> readPropertyListFile(const std::string& path,
                                                 Soundness soundness = Soundness::required);

/// The same for a file that holds a dictionary: another top value is an error like bytes that are no property
/// list.
ROSTER_EXPORT Result<Dictionary> readDictionaryFile(const std::string& path);

}  // namespace roster
