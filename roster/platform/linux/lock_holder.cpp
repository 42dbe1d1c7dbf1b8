#include <fcntl.h>
#include <sys/sysmacros.h>

#include <array>
#include <cstdio>
#include <sstream>

#include "roster/platform/file_system.h"
#include "roster/platform/linux/file_calls.h"
#include "roster/platform/lock_file.h"

namespace roster {

namespace {

/// How the system's table names a file: device numbers and inode.
std::string nameInTable(const struct stat& file) {
  std::array<char, 64> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%02x:%02x:%llu", major(file.st_dev),
                                  minor(file.st_dev), static_cast<unsigned long long>(file.st_ino)));
  return text.data();
}

}  // namespace

std::optional<std::int32_t> lockHolder(const std::string& path) {
  struct stat status {};
  if (fileCalls().fstatat(AT_FDCWD, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) == -1) return std::nullopt;
  const Result<Bytes> table = readFile("/proc/locks");
  if (!table) return std::nullopt;
  const std::string name = nameInTable(status);
  std::istringstream lines{std::string(table->text())};
  for (std::string line; std::getline(lines, line);) {
    // "1: FLOCK  ADVISORY  WRITE 4711 08:01:1234 0 EOF"; who waits has an arrow before "FLOCK".
    std::istringstream words(line);
    std::string number;
    std::string kind;
    std::string manner;
    std::string access;
    std::int32_t process = 0;
    std::string file;
    words >> number >> kind >> manner >> access >> process >> file;
    // A process of elsewhere, which has no identifier here, is told as 0.
    if (kind == "FLOCK" && file == name && process > 0) return process;
  }
  return std::nullopt;
}

}  // namespace roster
