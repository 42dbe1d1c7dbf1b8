#include "plugins/web_engine/web_engine.h"

#include <condition_variable>
#include <mutex>
#include <thread>

#include "roster/base/export.h"
#include "roster/base/process_wide.h"

namespace {

/// A lock that belongs to the thread that took it; taking it again has no effect.
class ThreadLock {
 public:
  bool isHeld() {
    const std::lock_guard guard(mutex_);
    return owner_ == std::this_thread::get_id();
  }
  void take() {
    std::unique_lock guard(mutex_);
    if (owner_ == std::this_thread::get_id()) return;
    released_.wait(guard, [this] { return owner_ == std::thread::id(); });
    owner_ = std::this_thread::get_id();
  }
  void release() {
    const std::lock_guard guard(mutex_);
    if (owner_ != std::this_thread::get_id()) return;
    owner_ = std::thread::id();
    released_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  std::thread::id owner_;
};

ThreadLock& threadLock() { return roster::immortalInstance<ThreadLock>(); }

}  // namespace

ROSTER_EXPORT bool webEngineThreadLockIsHeld() { return threadLock().isHeld(); }
ROSTER_EXPORT void webEngineTakeThreadLock() { threadLock().take(); }
ROSTER_EXPORT void webEngineReleaseThreadLock() { threadLock().release(); }
