#pragma once

#include <unistd.h>

#include <utility>

namespace roster::tool {

/// An open descriptor, closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (fd_ != -1) close(fd_);
  }

  int fd() const { return fd_; }

 private:
  int fd_;
};

/// Lets one rosterctl at a time load, change and save the registry, so that no two saves at the same moment
/// undo each other; programs that do not take the lock are merged with as always. The lock is on the
/// registry's folder and is released with its holder. When the folder is missing or must not be opened there
/// is no lock: either there is nothing to change, or the save reports what is wrong.
class EditLock {
 public:
  enum class Folder { asItIs, madeIfMissing };
  /// Waits until nobody else holds the lock.
  explicit EditLock(Folder folder);

 private:
  Descriptor folder_;
};

/// Turns the requests to end, SIGINT and SIGTERM, into something that can be waited for together with other
/// things. Once it is made, neither signal ends the process by itself.
class StopSignals {
 public:
  /// Throws CommandError when the system refuses.
  StopSignals();

  /// Becomes readable, and stays so, when one of them has come.
  int fd() const { return queue_.fd(); }

 private:
  Descriptor queue_;
};

}  // namespace roster::tool
