#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "roster/base/result.h"

namespace roster {

/// A process that runs.
struct Process {
  std::int32_t identifier = 0;
  /// Its command name, at most `processNameSize` bytes of it.
  std::string name;
};

inline constexpr std::size_t processNameSize = 16;

/// All processes of the device, in the order of their identifiers. With a `deviceRoot`, those are the calling
/// process and those that were started with the same ROSTER_ROOT; without one, all whose ROSTER_ROOT is empty
/// or cannot be read. One that has ended and is only waiting to be reaped is not among them. Fails when the
/// system cannot list them.
Result<std::vector<Process>> processTable();

std::int32_t ownProcessIdentifier();

/// Ends the process at once (SIGKILL), provided that it is one of the device and still has the command name:
/// an identifier may have gone to another process, which must not be hit. Fails, with the cause, when it has
/// another name or is gone, and when this process may not signal it.
Result<> killProcess(std::int32_t identifier, std::string_view name);

}  // namespace roster
