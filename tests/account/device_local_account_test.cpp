#include "account/device_local_account.h"

#include <gtest/gtest.h>

#include <cctype>

#include "platform/property_list.h"
#include "platform/resources.h"
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
  void setTethered(const Dictionary& entries) const {
    device.writePropertyList("home/user/Library/Preferences/com.nimbal.mobile.tethered_sync.plist", entries);
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
  setDeviceClass("tablet");
  MutableDictionary odd(DeviceLocalAccount::basicAccountProperties());
  for (const auto* key : {"Identifier", "Sync Identifier", "DisplayName"}) odd.set(key, "odd");
  const auto record = BasicAccount::accountWithProperties(odd);
  const std::shared_ptr<DeviceLocalAccount> kiosk = KioskAccount::accountWithBasicAccount(record);
  for (const auto& account : {DeviceLocalAccount::accountWithBasicAccount(record), kiosk}) {
    EXPECT_EQ(account->identifier(), "DeviceLocalAccount");
    EXPECT_EQ(account->syncStoreIdentifier(), "DeviceLocalAccount");
    EXPECT_EQ(account->displayName(), account == kiosk ? "In This Kiosk" : "On My Tablet");
    EXPECT_EQ(account->properties(), record->properties());
  }
  EXPECT_EQ(DeviceLocalAccount::basicAccountProperties(), (Dictionary{{"Type", "OnMyDevice"},
                                                                      {"Class", "DeviceLocalAccount"},
                                                                      {"Type String", "On My Tablet"},
                                                                      {"Short Type String", "On My Tablet"},
                                                                      {"Identifier", "DeviceLocalAccount"}}));
  EXPECT_EQ(KioskAccount::basicAccountProperties().find("Class"), Value("KioskAccount"));
  EXPECT_EQ(KioskAccount::basicAccountProperties().find("Type String"), Value("In This Kiosk"));
}

TEST_F(DeviceLocalAccountTest, HasWordsForEveryDeviceInEveryLanguage) {
  EXPECT_EQ(DeviceLocalAccount::typeString(), "On My Vireo Simulator")
      << "a device that does not say what it is";
  const auto texts = [](const std::string& language) {
    const std::string path = resourcePath("strings/" + language + "/DeviceLocalAccount", "plist");
    return readPropertyListFile(path).value.dictionary().value_or(Dictionary());
  };
  const Dictionary english = texts("en");
  for (const std::string language : {"en", "de", "es", "fr", "ja"}) {
    SCOPED_TRACE(language);
    device.setEnvironment("LC_ALL", language + ".UTF-8");
    const Dictionary table = texts(language);
    EXPECT_EQ(table.size(), english.size());
    for (const DictionaryEntry& entry : english) EXPECT_FALSE(table.find(entry.key).string().isEmpty());
    for (std::string name : {"Vireo", "Vireo Simulator", "handset", "tablet", "laptop", "convertible",
                             "desktop", "server", "watch", "embedded", "vm", "container"}) {
      setDeviceClass(name);
      for (char& character : name)
        character = character == ' ' ? '_' : static_cast<char>(std::toupper(character));
      for (const std::string key :
           {"ON_MY_DEVICE_TYPE", "ON_MY_DEVICE_TYPE_MID_SENTENCE", "ON_YOUR_DEVICE_TYPE_MID_SENTENCE"}) {
        const String text = _deviceSpecificLocalizedString(key);
        EXPECT_FALSE(text.isEmpty()) << name;
        EXPECT_EQ(text.value(), table.find(key + "_" + name)) << name;
      }
    }
  }
}

TEST_F(DeviceLocalAccountTest, TellsWhichComputerSyncsADataclass) {
  setDeviceClass("handset");
  const std::string own = "Vireo: On My Phone, on my phone, on your phone";
  const std::string pc = "Windows+: From My PC, from my PC, synced with your PC";
  for (const char* name : {"Mail", "Contacts", "Calendars", "Reminders", "Bookmarks", "Notes", "KeyValue"}) {
    EXPECT_EQ(source(name), own) << name;
  }
  const auto by = [](const Value& system) { return Dictionary{{"SyncingOS", system}}; };
  setTethered({{"Mail Accounts", by("Vesper")},
               {"Contacts", by("windows")},
               {"Calendars", by("Windows")},
               {"Reminders", by("Vesper")},
               {"Bookmarks", array(by("Windows"))},
               {"Notes", by("Windows")},
               {"KeyValue", by("Vesper")}});
  EXPECT_EQ(source("Mail"), "Vesper+: From My Dotlet, from my Dotlet, synced with your Dotlet");
  EXPECT_EQ(source("Contacts"), "windows: On My Phone, on my phone, on your phone");
  for (const char* name : {"Calendars", "Reminders", "Notes"}) EXPECT_EQ(source(name), pc) << name;
  for (const char* name : {"Bookmarks", "KeyValue"}) EXPECT_EQ(source(name), own) << name;
  for (const Value& odd : {Value("Windows"), Value(by(7)), Value(Dictionary{{"OS", "Windows"}})}) {
    setTethered({{"Bookmarks", odd}});
    EXPECT_EQ(source("Bookmarks"), own);
  }
}

}  // namespace
}  // namespace roster::testing
