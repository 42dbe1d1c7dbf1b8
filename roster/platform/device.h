#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// The folder below which the whole device lies: the value of ROSTER_ROOT, empty by default and in set-uid
/// programs. It never ends with a slash.
ROSTER_EXPORT std::string deviceRoot();

/// The absolute path of a file in the shared preferences directory of the whole device. Nothing is created or
/// looked at.
ROSTER_EXPORT std::string sharedPreferencesPath(std::string_view fileName);

/// The user's home directory: HOME, else the user database. Empty when neither knows one.
ROSTER_EXPORT std::string homeDirectory();

/// What the device says about itself, by key: "CPUArchitecture" ("armv6", "x86_64"), "DeviceClass"
/// ("handset"), and whatever the device's own description file adds. Nil when it is not known. Asked anew
/// at every call.
ROSTER_EXPORT String deviceInformation(std::string_view key);

/// Features that device management may forbid.
enum class Feature {
  cloudDocumentSync,   ///< Documents are kept in the cloud.
  photoStream,         ///< Photos are passed on to the user's other devices.
  sharedPhotoStreams,  ///< Photos are shared with other people.
  cloudBackup,         ///< The device is backed up to the cloud.
  cardsWhileLocked,    ///< Cards are shown while the device is locked.
};

/// The answer in which a feature is explicitly not allowed; every other answer leaves it alone.
inline constexpr int featureNotAllowed = 2;

/// What device management says of a feature: 0 nothing, 1 allowed, 2 explicitly not allowed. A change of the
/// restrictions is seen at the next call. May be called from any thread.
///
/// Device management says it in the property list ROOT/etc/roster/restrictions.plist, ROOT being
/// `deviceRoot()`: a dictionary with the keys "CloudDocumentSync", "PhotoStream", "SharedPhotoStreams",
/// "CloudBackup" and "CardsWhileLocked", each optional. The value is a boolean (true: allowed, false:
/// explicitly not allowed) or an integer, which is the answer itself. A file that cannot be used restricts
/// nothing, and is one line in the system log each time it changes; it is best replaced by renaming, so that
/// nobody reads half of it.
ROSTER_EXPORT int restriction(Feature feature);

/// The value of a key for the running program: from its own preferences domain, which is named after its
/// file, else from the user's global domain. Nil when neither holds it.
ROSTER_EXPORT Value preference(std::string_view key);

/// The value of a key in another program's preferences domain of the same user; nil when there is none.
ROSTER_EXPORT Value preferenceOfDomain(std::string_view key, std::string_view domain);

/// A freshly drawn random UUID in canonical text form, upper case; nothing when the system gives no random
/// bytes.
ROSTER_EXPORT std::optional<std::string> createUuidText();

}  // namespace roster
