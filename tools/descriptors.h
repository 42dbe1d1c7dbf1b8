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
