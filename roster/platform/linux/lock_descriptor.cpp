#include "roster/platform/linux/lock_descriptor.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <mutex>
#include <new>
#include <set>

#include "roster/base/process_wide.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

/// All that this process has open. Its mutex is held from before a file is opened until it is known here, and
/// during each fork: no child has a file that is not closed in it.
class OpenLocks {
 public:
  OpenLocks() {
    const auto prepare = [] { ofProcess().mutex_.lock(); };
    const auto goOn = [] { ofProcess().mutex_.unlock(); };
    const auto forget = [] {
      ofProcess().closeInChild();
      ofProcess().mutex_.unlock();
    };
    if (pthread_atfork(prepare, goOn, forget) != 0) throw std::bad_alloc();
  }

  static OpenLocks& ofProcess() { return immortalInstance<OpenLocks>(); }

  bool open(LockDescriptor& lock, const std::string& path) {
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const std::lock_guard guard(mutex_);
    locks_.insert(&lock);
    lock.file_ =
        FileDescriptor(retrying([&] { return fileCalls().openat(AT_FDCWD, path.c_str(), flags, 0); }));
    lock.process_ = getpid();
    return bool(lock.file_);
  }

  bool isOpen(const LockDescriptor& lock) {
    const std::lock_guard guard(mutex_);
    return lock.file_ && lock.process_ == getpid();
  }

  void release(LockDescriptor& lock) {
    const std::lock_guard guard(mutex_);
    // What is merely inherited must not be unlocked: it is still its owner's.
    if (lock.file_ && lock.process_ == getpid()) static_cast<void>(flock(lock.file_.fd(), LOCK_UN));
    lock.file_ = FileDescriptor();
    locks_.erase(&lock);
  }

 private:
  void closeInChild() {
    for (LockDescriptor* lock : locks_) lock->file_ = FileDescriptor();
    locks_.clear();
  }

  std::mutex mutex_;
  std::set<LockDescriptor*> locks_;
};

// Made here if it cannot be made, since `release` must not fail.
LockDescriptor::LockDescriptor() { OpenLocks::ofProcess(); }

bool LockDescriptor::open(const std::string& path) {
  release();
  return OpenLocks::ofProcess().open(*this, path);
}

bool LockDescriptor::isOpen() const { return OpenLocks::ofProcess().isOpen(*this); }

void LockDescriptor::release() { OpenLocks::ofProcess().release(*this); }

}  // namespace roster
