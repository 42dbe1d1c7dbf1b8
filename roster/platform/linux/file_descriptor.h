#pragma once

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "roster/base/result.h"
#include "roster/platform/linux/file_calls.h"

namespace roster {

/// "could not ACTION PATH: REASON", with the system's text for the error number.
inline Error systemError(std::string_view action, std::string_view path, int number) {
  const std::error_code code(number, std::generic_category());
  return {code, "could not " + std::string(action) + " " + std::string(path) + ": " + code.message()};
}

/// Makes a system call again as long as a signal interrupts it.
template <class Call>
auto retrying(Call&& call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

/// An open file, closed with its owner.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    FileDescriptor former(std::move(other));
    std::swap(number_, former.number_);
    return *this;
  }
  ~FileDescriptor() { close(); }

  explicit operator bool() const { return number_ != -1; }
  int number() const { return number_; }

  /// False when the system reports an error; the file is closed all the same.
  bool close() { return number_ == -1 || fileCalls().close(std::exchange(number_, -1)) == 0; }

 private:
  int number_ = -1;
};

}  // namespace roster
