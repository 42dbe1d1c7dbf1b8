#pragma once

#include <optional>
#include <string>

#include "roster/platform/file_stamp.h"
#include "roster/platform/property_list_file.h"

namespace roster {

/// `readPropertyListFile`, which also tells the state of the very file that was read, as `readFile` does:
/// when the file has that stamp later, it would give the same value or the same error.
Result<Value> readPropertyListFile(const std::string& path, Soundness soundness,
                                   std::optional<FileStamp>* stamp);

}  // namespace roster
