#include "roster/platform/linux/temporary_files.h"

#include <fcntl.h>
#include <sys/file.h>

#include <chrono>
#include <string_view>

#include "roster/platform/file_system.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

constexpr std::string_view prefix = ".roster-";
constexpr std::string_view suffix = ".tmp";
constexpr std::string_view symbols = "0123456789abcdef";
constexpr std::size_t digits = 16;

bool isTemporaryName(std::string_view name) {
  if (name.size() != prefix.size() + digits + suffix.size()) return false;
  return name.starts_with(prefix) && name.ends_with(suffix) &&
         name.substr(prefix.size(), digits).find_first_not_of(symbols) == std::string_view::npos;
}

bool isLockable(const FileDescriptor& file) {
  return retrying([&] { return flock(file.fd(), LOCK_EX | LOCK_NB); }) == 0;
}

void removeIfStale(const FileDescriptor& folder, const std::string& name) {
  constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const FileDescriptor file(
      retrying([&] { return fileCalls().openat(folder.fd(), name.c_str(), flags, 0); }));
  struct stat status {};
  if (!file || fileCalls().fstat(file.fd(), &status) == -1 || !S_ISREG(status.st_mode)) return;
  // The lock is held until the file is gone, for a writer that has made it but not yet claimed it. A failure
  // to remove it is for the next save to mend.
  if (isLockable(file)) static_cast<void>(fileCalls().unlinkat(folder.fd(), name.c_str(), 0));
}

}  // namespace

std::string temporaryName() {
  std::uint64_t bits = 0;
  if (!drawRandomBytes(std::as_writable_bytes(std::span(&bits, 1)))) {
    // Without random bytes the name can be guessed. If somebody has taken it, the file is not made.
    bits = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  std::string name(prefix);
  for (std::size_t digit = 0; digit < digits; ++digit, bits >>= 4U) name += symbols[bits & 0xFU];
  return name.append(suffix);
}

bool claimTemporary(const FileDescriptor& file) {
  if (!isLockable(file)) return errno != EWOULDBLOCK;
  struct stat status {};
  return ::fstat(file.fd(), &status) == -1 || status.st_nlink > 0;
}

void removeStaleTemporaries(const FileDescriptor& folder, const std::string& path) {
  const Result<std::vector<std::string>> names = namesIn(path);
  // Whoever may not list the folder leaves this to others.
  if (!names) return;
  for (const std::string& name : *names)
    if (isTemporaryName(name)) removeIfStale(folder, name);
}

}  // namespace roster
