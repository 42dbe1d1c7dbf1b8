#include <cerrno>
#include <filesystem>
#include <limits>

#include "roster/platform/device.h"
#include "roster/platform/linux/dictionary_file.h"

namespace roster {

namespace {

constexpr int featureUnmentioned = 0;
constexpr int featureAllowed = 1;

std::string_view restrictionName(Feature feature) {
  switch (feature) {
    case Feature::cloudDocumentSync:
      return "CloudDocumentSync";
    case Feature::photoStream:
      return "PhotoStream";
    case Feature::sharedPhotoStreams:
      return "SharedPhotoStreams";
    case Feature::cloudBackup:
      return "CloudBackup";
    case Feature::cardsWhileLocked:
      return "CardsWhileLocked";
  }
  return {};
}

constexpr std::string_view globalDomain = "GlobalPreferences";

/// The name of the running program's file, whatever name it was started under.
std::string programName() {
  std::error_code error;
  std::string name = std::filesystem::read_symlink("/proc/self/exe", error).filename().string();
  if (error || name.empty()) return program_invocation_short_name;
  // The kernel appends this once an upgrade has replaced the file of a running program.
  constexpr std::string_view replaced = " (deleted)";
  if (name.ends_with(replaced)) name.resize(name.size() - replaced.size());
  return name;
}

}  // namespace

int restriction(Feature feature) {
  const Dictionary restrictions = currentDictionary(deviceRoot() + "/etc/roster/restrictions.plist");
  const Value answer = restrictions.find(restrictionName(feature));
  if (const auto isAllowed = answer.boolean()) return *isAllowed ? featureAllowed : featureNotAllowed;
  const auto number = answer.integer();
  const bool fits =
      number && *number >= std::numeric_limits<int>::min() && *number <= std::numeric_limits<int>::max();
  return fits ? static_cast<int>(*number) : featureUnmentioned;
}

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
