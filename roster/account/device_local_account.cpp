#include "roster/account/device_local_account.h"

#include <array>

#include "roster/platform/device.h"
#include "roster/platform/resources.h"

namespace roster {

namespace {

constexpr std::string_view stringTable = "DeviceLocalAccount";
constexpr std::string_view tetheredSyncDomain = "com.nimbal.mobile.tethered_sync";
constexpr std::string_view unknownDeviceClass = "Vireo Simulator";
constexpr std::string_view noComputer = "Vireo";
constexpr std::string_view dotletSystem = "Vesper";
constexpr std::string_view pcSystem = "Windows";

/// "Vireo Simulator" as the end of a key: VIREO_SIMULATOR.
std::string suffixOf(std::string_view deviceClass) {
  std::string suffix;
  for (const char character : deviceClass) {
    if (character == ' ') {
      suffix += '_';
    } else {
      const bool isLowerCase = character >= 'a' && character <= 'z';
      suffix += isLowerCase ? static_cast<char>(character - 'a' + 'A') : character;
    }
  }
  return suffix;
}

/// The key under which the host-sync service reports on a dataclass; nil for one that it does not report on.
String tetheredSyncKey(std::string_view dataclass) {
  const std::array<std::pair<std::string_view, std::string_view>, 6> keys{{
      {kAccountDataclassMail, "Mail Accounts"},
      {kAccountDataclassContacts, "Contacts"},
      {kAccountDataclassCalendars, "Calendars"},
      {kAccountDataclassReminders, "Calendars"},  // a computer syncs reminders together with its calendars
      {kAccountDataclassBookmarks, "Bookmarks"},
      {kAccountDataclassNotes, "Notes"},
  }};
  for (const auto& [known, key] : keys) {
    if (dataclass == known) return key;
  }
  return {};
}

/// The text for the system that syncs the dataclass.
String textForSource(const String& source, std::string_view dotletKey, std::string_view pcKey,
                     std::string_view deviceKey) {
  if (source == dotletSystem) return localizedString(dotletKey, stringTable);
  if (source == pcSystem) return localizedString(pcKey, stringTable);
  return _deviceSpecificLocalizedString(deviceKey);
}

/// The account-creators table names this class for the on-device type, as it names the classes of plug-ins.
// NOLINTNEXTLINE(cert-err58-cpp): it throws only when memory runs out before the program starts
const bool isRegistered =
    registerClass(ClassObject(std::string(DeviceLocalAccount::className))
                      .answering(AccountCreationProtocol{.accountWithBasicAccount =
                                                             &DeviceLocalAccount::accountWithBasicAccount})
                      .answering(AccountInstantiationProtocol::of<DeviceLocalAccount>()));

}  // namespace

String _deviceSpecificLocalizedString(std::string_view key) {
  const String deviceClass = deviceInformation("DeviceClass");
  const std::string suffix =
      suffixOf(deviceClass.isNil() ? unknownDeviceClass : std::string_view(deviceClass));
  return localizedString(std::string(key) + "_" + suffix, stringTable);
}

String _getTetheredSourceForDataClassFromGatehouse(std::string_view dataclass) {
  const String key = tetheredSyncKey(dataclass);
  if (key.isNil()) return noComputer;
  const std::optional<Dictionary> entry = preferenceOfDomain(key, tetheredSyncDomain).dictionary();
  String system = entry ? entry->find("SyncingOS").string() : String();
  return system.isNil() ? String(noComputer) : system;
}

String DeviceLocalAccount::_identifier() { return className; }

String DeviceLocalAccount::identifier() const { return _identifier(); }

String DeviceLocalAccount::syncStoreIdentifier() const { return identifier(); }

String DeviceLocalAccount::typeString() { return _deviceSpecificLocalizedString("ON_MY_DEVICE_TYPE"); }

String DeviceLocalAccount::tetheredSourceForDataClass(std::string_view dataclass) {
  return _getTetheredSourceForDataClassFromGatehouse(dataclass);
}

bool DeviceLocalAccount::isTetheredSyncingDataclass(std::string_view dataclass) {
  const String source = tetheredSourceForDataClass(dataclass);
  return source == dotletSystem || source == pcSystem;
}

String DeviceLocalAccount::localizedSyncSourceStringForDataClassForBeginningOfSentence(
    std::string_view dataclass, bool isBeginningOfSentence) {
  const String source = tetheredSourceForDataClass(dataclass);
  if (isBeginningOfSentence) {
    return textForSource(source, "FROM_MY_COMPUTER_TYPE_DOTLET", "FROM_MY_COMPUTER_TYPE_PC",
                         "ON_MY_DEVICE_TYPE");
  }
  return textForSource(source, "FROM_MY_COMPUTER_TYPE_DOTLET_MID_SENTENCE",
                       "FROM_MY_COMPUTER_TYPE_PC_MID_SENTENCE", "ON_MY_DEVICE_TYPE_MID_SENTENCE");
}

String DeviceLocalAccount::localizedReferenceToSyncSourceStringForDataClass(std::string_view dataclass) {
  return textForSource(tetheredSourceForDataClass(dataclass),
                       "SYNCED_WITH_YOUR_COMPUTER_TYPE_DOTLET_MID_SENTENCE",
                       "SYNCED_WITH_YOUR_COMPUTER_TYPE_PC_MID_SENTENCE", "ON_YOUR_DEVICE_TYPE_MID_SENTENCE");
}

}  // namespace roster
