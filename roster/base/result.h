#pragma once

#include <string>
#include <system_error>
#include <utility>
#include <variant>

namespace roster {

/// Why an operation failed: a code for programs, and a message for people that names the operation, the file
/// or object it was about, and the cause in the system's own words.
struct Error {
  /// The code must not be zero.
  Error(std::error_code why, std::string text) : code(why), message(std::move(text)) {}
  /// As above, for a code of the system.
  Error(std::errc why, std::string text) : Error(std::make_error_code(why), std::move(text)) {}

  /// The system's code where the system refused something, else the one that says it best; never zero.
  std::error_code code;
  /// One sentence without a full stop, in English.
  std::string message;
};

/// Whether the error says that there is no such file, or no folder for it.
inline bool isMissingFile(const Error& error) {
  return error.code == std::errc::no_such_file_or_directory || error.code == std::errc::not_a_directory;
}

/// Whether the error says that a file was to be replaced in a state that it is no longer in: somebody else
/// has changed it meanwhile, and nothing was done. No system call on files fails with this code.
inline bool isChangedMeanwhile(const Error& error) { return error.code == std::errc::operation_canceled; }

/// The value of an operation that may fail, or the error it failed with; always exactly one of the two.
template <class T = void>
class [[nodiscard]] Result {
 public:
  /// A success.
  Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
  /// A failure.
  Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

  /// Whether the operation succeeded.
  explicit operator bool() const { return content_.index() == 0; }

  /// The value. After a failure this throws std::bad_variant_access, as does each operator below.
  T& operator*() & { return std::get<0>(content_); }
  /// The value.
  const T& operator*() const& { return std::get<0>(content_); }
  /// The value, to be moved from.
  T&& operator*() && { return std::get<0>(std::move(content_)); }
  /// A member of the value.
  T* operator->() { return &std::get<0>(content_); }
  /// A member of the value.
  const T* operator->() const { return &std::get<0>(content_); }

  /// The error. After a success this throws std::bad_variant_access.
  const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<T, Error> content_;
};

/// The outcome of an operation that has no value to return: `return {};` is a success.
template <>
class [[nodiscard]] Result<void> {
 public:
  /// A success.
  Result() = default;
  /// A failure.
  Result(Error error) : content_(std::move(error)) {}

  /// Whether the operation succeeded.
  explicit operator bool() const { return content_.index() == 0; }

  /// The error. After a success this throws std::bad_variant_access.
  const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<std::monostate, Error> content_;
};

}  // namespace roster
