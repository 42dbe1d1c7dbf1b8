#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "roster/platform/named_lock.h"

namespace roster {

/// When a wait ends at the latest; nothing: it has no limit.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// Where the file of a lock lies: beside the folder of the device's registry.
std::string lockFilePath(std::string_view name);

/// `takeNamedLock` for the lock with the file at the path. After the deadline it fails with
/// `std::errc::timed_out`; when that has passed already, one attempt is made. Who waits without a limit
/// sleeps in the kernel; who does not tries again and again, after pauses of a millisecond, later of some.
Result<std::shared_ptr<NamedLock>> takeLockFile(const std::string& path, const std::string& modelPath,
                                                const Deadline& deadline);

/// The process that holds the lock with the file at the path, as far as the system tells: nothing when nobody
/// holds it, when the holder cannot be seen from here (another container's process), and on file systems
/// whose files have other numbers in the system's table of locks.
std::optional<std::int32_t> lockHolder(const std::string& path);

}  // namespace roster
