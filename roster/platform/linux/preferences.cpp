#include <cerrno>
#include <filesystem>

#include "roster/platform/device.h"
#include "roster/platform/property_list_file.h"

namespace roster {

namespace {

constexpr std::string_view globalDomain = "GlobalPreferences";

/// The name of the running program's file, whatever it was started as.
std::string programName() {
  std::error_code error;
  std::string name = std::filesystem::read_symlink("/proc/self/exe", error).filename().string();
  if (error || name.empty()) return program_invocation_short_name;
  // What the kernel appends once an upgrade has replaced the file of a program that still runs.
  constexpr std::string_view replaced = " (deleted)";
  if (name.ends_with(replaced)) name.resize(name.size() - replaced.size());
  return name;
}

}  // namespace

Value preference(std::string_view key) {
  Value own = preferenceOfDomain(key, programName());
  return own.isNil() ? preferenceOfDomain(key, globalDomain) : own;
}

Value preferenceOfDomain(std::string_view key, std::string_view domain) {
  // A domain is a file name: it does not lead into other folders.
  if (domain.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) return {};
  const std::string home = homeDirectory();
  if (home.empty()) return {};
  return currentDictionary(home + "/Library/Preferences/" + std::string(domain) + ".plist").find(key);
}

}  // namespace roster
