#pragma once

#include <string>

#include "roster/platform/linux/file_calls.h"

namespace roster {

/// A name for a temporary file: fresh, so that no other process can have made a file of this name beforehand,
/// and hidden from listings.
std::string temporaryName();

/// Tells others that this process is writing the temporary file, by a lock that lasts as long as the file is
/// open anywhere. False when somebody has taken the file for a dead writer's between its making and now: it
/// is to be given up. On a file system without locks it is true, and nothing is told.
[[nodiscard]] bool claimTemporary(const FileDescriptor& file);

/// Removes the temporary files that dead writers have left in the folder, which is open and has the path: the
/// regular files with such a name that nobody claims. What cannot be opened or removed is left for a process
/// that may.
void removeStaleTemporaries(const FileDescriptor& folder, const std::string& path);

}  // namespace roster
