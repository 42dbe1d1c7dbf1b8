#include "roster/store/registry_lock.h"

#include <algorithm>
#include <string>

#include "roster/account/vocabulary.h"
#include "roster/platform/device.h"
#include "roster/platform/lock_file.h"

namespace roster {

namespace {

std::string pathOfLock() { return lockFilePath("RegistryChange"); }

/// At most one process waits at the lock itself; the others wait here. Whoever comes back has to pass here
/// too and so comes after the one that waits, which a lock that is tried from time to time would not ensure.
std::string pathOfNext() { return pathOfLock() + ".next"; }

/// What a thread took last, alive as long as somebody has a share in it.
struct Taken {
  std::string path;
  std::weak_ptr<NamedLock> lock;
};

Taken& takenByThisThread() {
  // Of the thread, not of the process. NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
  thread_local Taken taken;
  return taken;
}

Deadline deadlineAfter(std::chrono::milliseconds patience) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point now = Clock::now();
  const auto longest = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
  if (patience >= longest) return std::nullopt;
  return now + std::max(patience, std::chrono::milliseconds::zero());
}

Error heldByAnother(const std::string& path) {
  std::optional<std::int32_t> holder = lockHolder(path);
  if (!holder) holder = lockHolder(pathOfNext());
  const std::string who = holder ? "process " + std::to_string(*holder) : "another program";
  return {std::errc::timed_out, "could not lock " + path + ": held by " + who};
}

}  // namespace

Result<RegistryLock> RegistryLock::take(std::chrono::milliseconds patience) {
  const std::string path = pathOfLock();
  Taken& taken = takenByThisThread();
  std::shared_ptr<NamedLock> held = taken.path == path ? taken.lock.lock() : nullptr;
  if (held && held->isHeld()) return RegistryLock(std::move(held));

  const std::string registry = sharedPreferencesPath(kAccountsFilename);
  const Deadline deadline = deadlineAfter(patience);
  const Result<std::shared_ptr<NamedLock>> next = takeLockFile(pathOfNext(), registry, deadline);
  const Result<std::shared_ptr<NamedLock>> lock = next ? takeLockFile(path, registry, deadline) : next;
  if (!lock) {
    return lock.error().code == std::errc::timed_out ? heldByAnother(path) : lock.error();
  }
  taken = {path, *lock};
  return RegistryLock(*lock);
}

std::optional<std::int32_t> RegistryLock::holder() { return lockHolder(pathOfLock()); }

bool RegistryLock::isHeld() const { return lock_ && lock_->isHeld(); }

}  // namespace roster
