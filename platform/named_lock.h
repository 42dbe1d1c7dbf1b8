#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "platform/export.h"
#include "platform/result.h"

namespace roster {

/// An exclusive lock that all processes of the device know by its name. Each object is a holder of its own:
/// two threads of one process exclude each other as two processes do. The system frees the lock of a process
/// that dies. Destroying the object gives the lock up.
class ROSTER_EXPORT NamedLock {
 public:
  NamedLock(const NamedLock&) = delete;
  NamedLock& operator=(const NamedLock&) = delete;
  virtual ~NamedLock() = default;

  /// Waits, for as long as it takes, until nobody else holds the lock, and takes it. On failure it is not
  /// held.
  virtual std::optional<Error> lock() = 0;
  /// Gives the lock up; without effect when it is not held.
  virtual void unlock() = 0;

 protected:
  NamedLock() = default;
};

/// An object for the lock, which is not taken yet. The lock is the file <root>/tmp/NAME, which stays when
/// nobody holds the lock any more; every user may lock it. Fails with path and cause when there is no such
/// file and it cannot be made, and when what stands in its place, a symbolic link for one, is not a regular
/// file.
ROSTER_EXPORT Result<std::shared_ptr<NamedLock>> openNamedLock(std::string_view name);

}  // namespace roster
