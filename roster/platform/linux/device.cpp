#include "roster/platform/device.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "roster/platform/file_system.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

std::string homeFromUserDatabase() {
  constexpr std::size_t firstSize = 1024;
  constexpr std::size_t maximumSize = std::size_t{1} << 20;
  for (std::size_t size = firstSize; size <= maximumSize; size *= 2) {
    std::vector<char> buffer(size);
    passwd storage{};
    passwd* entry = nullptr;
    const int errorNumber = getpwuid_r(getuid(), &storage, buffer.data(), buffer.size(), &entry);
    if (errorNumber == ERANGE) continue;
    if (errorNumber != 0 || entry == nullptr || entry->pw_dir == nullptr) return {};
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

std::optional<std::string> createUuidText() {
  std::array<std::uint8_t, 16> bytes{};
  if (!drawRandomBytes(std::as_writable_bytes(std::span(bytes)))) return std::nullopt;

  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);  // version 4, random
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);  // the variant that has versions

  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += digits[bytes[i] >> 4U];
    text += digits[bytes[i] & 0x0FU];
  }
  return text;
}

}  // namespace roster
