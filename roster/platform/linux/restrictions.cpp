#include <limits>

#include "roster/platform/device.h"
#include "roster/platform/property_list_file.h"

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

}  // namespace roster
