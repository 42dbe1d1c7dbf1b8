#pragma once

#include <dlfcn.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "roster/base/result.h"
#include "roster/platform/file_stamp.h"
#include "roster/platform/linux/file_calls.h"

namespace roster {

/// "could not ACTION OBJECT: REASON", with the system's text for the error number.
Error systemError(std::string_view action, std::string_view object, int errorNumber);

/// The state of a file that the system has described.
FileStamp stampOf(const struct stat& status);

/// Makes a system call again as long as a signal interrupts it.
template <class Call>
auto retrying(Call&& call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

/// A variable that decides which files are used; empty when it is not set, and in set-uid programs, whose
/// caller must not redirect them. As with all of the environment, no thread may change it meanwhile.
std::string trustedEnvironment(const char* name);

/// A variable that decides how something looks; empty when it is not set. Its value may come from anybody.
std::string environment(const char* name);

/// The loader's own text about what has just failed in this thread.
inline std::string loaderError() {
  const char* text = dlerror();  // NOLINT(concurrency-mt-unsafe): each thread has its own
  return text == nullptr ? "the loader does not say why" : text;
}

/// Fills the bytes with fresh ones of the kernel's. False when it gives none; the bytes are then as they
/// were, or partly filled.
[[nodiscard]] bool drawRandomBytes(std::span<std::byte> bytes);

/// A descriptor that stands for the process with the identifier and becomes readable when that ends. Fails
/// with `std::errc::no_such_process` when there is none.
Result<FileDescriptor> openProcess(std::int32_t identifier);

}  // namespace roster
