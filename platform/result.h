#pragma once

#include <optional>
#include <string>
#include <utility>

namespace roster {

/// Why an operation failed, in words that name the file or object and the cause.
struct Error {
  std::string message;
};

/// The value of an operation that may fail, or the error it failed with; always exactly one of the two.
template <class T>
class Result {
 public:
  Result(T value) : value_(std::move(value)) {}
  Result(Error error) : error_(std::move(error.message)) {}

  explicit operator bool() const { return value_.has_value(); }
  T& operator*() & { return *value_; }
  const T& operator*() const& { return *value_; }
  T&& operator*() && { return *std::move(value_); }
  T* operator->() { return &*value_; }
  const T* operator->() const { return &*value_; }

  /// The error's text; empty on success.
  const std::string& error() const { return error_; }

 private:
  std::optional<T> value_;
  std::string error_;
};

}  // namespace roster
