#pragma once

#include <unistd.h>

#include <utility>

namespace roster::tool {

/// An open descriptor, closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (number_ != -1) close(number_);
  }

  int number() const { return number_; }

 private:
  int number_;
};

}  // namespace roster::tool
