#include "roster/platform/linux/system_calls.h"

#include <sys/random.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <system_error>

#include "roster/platform/system_log.h"

namespace roster {

Error systemError(std::string_view action, std::string_view object, int errorNumber) {
  const std::error_code code(errorNumber, std::generic_category());
  return {code, "could not " + std::string(action) + " " + std::string(object) + ": " + code.message()};
}

FileStamp stampOf(const struct stat& status) {
  constexpr std::int64_t second = 1'000'000'000;
  const auto nanoseconds = [](const struct timespec& time) { return time.tv_sec * second + time.tv_nsec; };
  return {.exists = true,
          .device = status.st_dev,
          .inode = status.st_ino,
          .size = status.st_size,
          .modificationTime = nanoseconds(status.st_mtim),
          .changeTime = nanoseconds(status.st_ctim)};
}

std::string trustedEnvironment(const char* name) {
  const char* value = secure_getenv(name);
  return value != nullptr ? value : "";
}

std::string environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing in this library changes it
  return value != nullptr ? value : "";
}

bool drawRandomBytes(std::span<std::byte> bytes) {
  const ssize_t drawn = retrying([&] { return getrandom(bytes.data(), bytes.size(), 0); });
  return drawn == static_cast<ssize_t>(bytes.size());
}

Result<FileDescriptor> openProcess(std::int32_t identifier) {
  FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, identifier, 0)));
  if (!process) return systemError("open the process", std::to_string(identifier), errno);
  return process;
}

void writeToSyslog(std::string_view line) {
  constexpr std::size_t maximumLength = std::numeric_limits<int>::max();
  syslog(LOG_USER | LOG_NOTICE, "%.*s", static_cast<int>(std::min(line.size(), maximumLength)), line.data());
}

}  // namespace roster
