#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "roster/base/export.h"
#include "roster/base/result.h"

namespace roster {

class NamedLock;

/// The exclusive right to change the device's registry, held as long as one of the objects lives that a
/// thread has taken. An addition: a plain save takes no lock and is not held up by one; programs that take it
/// follow one another.
///
/// A thread that holds the lock and takes it again gets another object for the same lock, without waiting.
/// Another thread of the process waits as another process does. An object may be handed to another thread and
/// be destroyed there; until then, what the first thread takes is the same lock.
///
/// The lock is the file ROOT/var/lib/roster/RegistryChange, ROOT being `deviceRoot()`, with the owner, group
/// and mode of the registry: whoever may read the registry can hold it, nobody else can. Who waits is first
/// at the file "RegistryChange.next" beside it, so that a program which takes the lock again as soon as it
/// has released it lets others have their turn. Both files stay.
///
/// The system frees the lock when its holder dies, however that happens. A child that fork() makes does not
/// hold it: the objects that it inherits have been released, and it takes a lock of its own, for which it
/// waits. Neither does a program that is executed.
class ROSTER_EXPORT RegistryLock {
 public:
  /// Takes the lock, and waits for it as long as the patience allows: zero, or less, is one attempt, and
  /// `std::chrono::milliseconds::max()` waits without a limit. The calling thread sleeps meanwhile.
  ///
  /// After a wait in vain the error's code is `std::errc::timed_out` and its message names the lock's file
  /// and, where the system tells it, the holder ("held by process 4711"). Fails also, with path and cause,
  /// where `takeNamedLock` does: the file cannot be made or opened, or something else stands in its place.
  /// May be called from any thread.
  static Result<RegistryLock> take(std::chrono::milliseconds patience);

  /// The process that holds the lock now; nothing when none does or the system does not tell. It may be the
  /// calling one. By the time of the answer the lock may be another's. May be called from any thread.
  static std::optional<std::int32_t> holder();

  /// Takes over the other's share, which then holds nothing.
  RegistryLock(RegistryLock&& other) noexcept = default;
  /// Gives up the former share and takes over the other's, which then holds nothing.
  RegistryLock& operator=(RegistryLock&& other) noexcept = default;
  /// Not copyable: take it again.
  RegistryLock(const RegistryLock&) = delete;
  /// Not copyable: take it again.
  RegistryLock& operator=(const RegistryLock&) = delete;
  /// Gives up this share; with the thread's last one the lock is free.
  ~RegistryLock() = default;

  /// Whether this process still holds the lock through this object: not after a move from it, and not in a
  /// child of the process that took it.
  bool isHeld() const;

 private:
  explicit RegistryLock(std::shared_ptr<NamedLock> lock) : lock_(std::move(lock)) {}

  std::shared_ptr<NamedLock> lock_;
};

}  // namespace roster
