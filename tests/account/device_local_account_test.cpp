#include "roster/account/device_local_account.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

class KioskAccount : public DeviceLocalClass<KioskAccount, DeviceLocalAccount> {
 public:
  using DeviceLocalClass::DeviceLocalClass;
  static constexpr std::string_view className = "KioskAccount";
  static String typeString() { return "In This Kiosk"; }
};

class DeviceLocalAccountTest : public ::testing::Test {
 protected:
  void setDeviceClass(const std::string& deviceClass) const {
    device.writePropertyList("etc/roster/device.plist", Dictionary{{"DeviceClass", deviceClass}});
  }
  /// The source, whether it is a computer, and all the words for it.
  static std::string source(const char* name) {
    using Local = DeviceLocalAccount;
    const std::string of = dataclass(name);
    return formatted("%@%s: %@, %@, %@", Local::tetheredSourceForDataClass(of),
                     Local::isTetheredSyncingDataclass(of) ? "+" : "",
                     Local::localizedSyncSourceStringForDataClassForBeginningOfSentence(of, true),
                     Local::localizedSyncSourceStringForDataClassForBeginningOfSentence(of, false),
                     Local::localizedReferenceToSyncSourceStringForDataClass(of));
  }

  TemporaryDevice device;
};

TEST_F(DeviceLocalAccountTest, HasAnIdentityThatNoPropertyChanges) {
  EXPECT_EQ(DeviceLocalAccount::typeString(), "On My Vireo Simulator")
      << "a device that does not say what it is";
  setDeviceClass("tablet");
  auto odd = MutableDictionary::copyOf(DeviceLocalAccount::basicAccountProperties());
  for (const auto* key : {"Identifier", "Sync Identifier", "DisplayName"}) odd.set(key, "odd");
  const auto record = BasicAccount::accountWithProperties(odd);
  const auto own = DeviceLocalAccount::accountWithBasicAccount(record);
  const auto kiosk = KioskAccount::accountWithBasicAccount(record);
  EXPECT_EQ(own->displayName().str() + ", " + kiosk->displayName().str(), "On My Tablet, In This Kiosk");
  EXPECT_EQ(kiosk->identifier(), "DeviceLocalAccount");
  EXPECT_EQ(kiosk->syncStoreIdentifier(), "DeviceLocalAccount");
  EXPECT_EQ(kiosk->properties(), record->properties());
  EXPECT_EQ(KioskAccount::basicAccountProperties(), (Dictionary{{"Type", "OnMyDevice"},
                                                                {"Class", "KioskAccount"},
                                                                {"Type String", "In This Kiosk"},
                                                                {"Short Type String", "In This Kiosk"},
                                                                {"Identifier", "DeviceLocalAccount"}}));
}

TEST_F(DeviceLocalAccountTest, TellsWhichComputerSyncsADataclass) {
  setDeviceClass("handset");
  const auto by = [](const Value& system) { return Dictionary{{"SyncingOS", system}}; };
  const Dictionary vesper = by("Vesper"), windows = by("Windows");
  device.writePropertyList("home/user/Library/Preferences/com.nimbal.mobile.tethered_sync.plist",
                           Dictionary{{"Mail Accounts", vesper},
                                      {"Contacts", by("windows")},
                                      {"Calendars", windows},
                                      {"Reminders", vesper},
                                      {"Bookmarks", array(windows)},
                                      {"Notes", by(7)},
                                      {"KeyValue", vesper}});
  const std::string own = ": On My Phone, on my phone, on your phone";
  const std::string pc = "Windows+: From My PC, from my PC, synced with your PC";
  const std::pair<const char*, std::string> cases[] = {
      {"Mail", "Vesper+: From My Dotlet, from my Dotlet, synced with your Dotlet"},
      {"Contacts", "windows" + own},
      {"Calendars", pc},
      {"Reminders", pc},
      {"Bookmarks", "Vireo" + own},
      {"Notes", "Vireo" + own},
      {"KeyValue", "Vireo" + own}};
  for (const auto& [name, expected] : cases) EXPECT_EQ(source(name), expected) << name;
}

}  // namespace
}  // namespace roster::testing
