#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "roster/base/export.h"
#include "roster/base/result.h"

namespace roster {

/// A lock that all processes of the device know by its name, held as long as this object lives. Each object
/// is a holder of its own: two threads of one process exclude each other as two processes do. The system
/// frees the lock of a process that dies. A child that fork() makes holds nothing: its copy of the object is
/// one that has been released. May be released and destroyed by any thread.
class ROSTER_EXPORT NamedLock {
 public:
  /// Not copyable: holders share the pointer.
  NamedLock(const NamedLock&) = delete;
  /// Not copyable: holders share the pointer.
  NamedLock& operator=(const NamedLock&) = delete;
  /// Releases the lock.
  virtual ~NamedLock() = default;

  /// Whether it has not been released; false in a child of the process that took it.
  virtual bool isHeld() const = 0;

  /// Releases the lock before the object goes, for all who share it; without effect when that was done
  /// before.
  virtual void release() = 0;

 protected:
  /// For implementations; clients call `takeNamedLock`.
  NamedLock() = default;
};

/// Waits, for as long as it takes, until nobody else holds the lock, and takes it. May be called from any
/// thread.
///
/// The lock is the file ROOT/var/lib/roster/NAME, ROOT being `deviceRoot()`, which stays when nobody holds
/// the lock any more. It has the owner, group and mode of the file at `modelPath`, as far as the process may
/// set them, so whoever may use that file may lock; before there is that file it has those of its folder, and
/// without a path it belongs to the user who made it. A lock file that is replaced meanwhile is waited for
/// anew. Fails with path and cause when there is no such file and it cannot be made, when it may not be
/// opened, and when what stands in its place, a symbolic link for one, is not a regular file; the lock is not
/// held then.
ROSTER_EXPORT Result<std::shared_ptr<NamedLock>> takeNamedLock(std::string_view name,
                                                               const std::string& modelPath = {});

}  // namespace roster
