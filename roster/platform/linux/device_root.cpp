#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

std::string homeFromUserDatabase() {
  constexpr std::size_t firstSize = 1024;
  constexpr std::size_t largestSize = std::size_t{1} << 20;
  for (std::size_t size = firstSize; size <= largestSize; size *= 2) {
    std::vector<char> buffer(size);
    passwd storage{};
    passwd* entry = nullptr;
    const int error = getpwuid_r(getuid(), &storage, buffer.data(), buffer.size(), &entry);
    if (error == ERANGE) continue;
    if (error != 0 || entry == nullptr || entry->pw_dir == nullptr) return {};
    return entry->pw_dir;
  }
  return {};
}

}  // namespace

std::string deviceRoot() {
  std::string root = trustedEnvironment("ROSTER_ROOT");
  if (root.empty()) return root;
  if (root.front() != '/') {
    // Should the working folder be unknown, a relative root is still better than the real device.
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(root, error);
    if (!error) root = absolute.string();
  }
  root.erase(root.find_last_not_of('/') + 1);
  return root;
}

std::string sharedPreferencesPath(std::string_view fileName) {
  return joinPath(deviceRoot() + "/var/lib/roster/Preferences", fileName);
}

std::string homeDirectory() {
  // A relative home would be another folder after every change of the working folder.
  std::string home = trustedEnvironment("HOME");
  return home.starts_with('/') ? home : homeFromUserDatabase();
}

}  // namespace roster
