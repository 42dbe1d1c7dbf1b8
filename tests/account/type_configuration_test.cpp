#include <gtest/gtest.h>

#include "roster/account/basic_account.h"
#include "roster/account/vocabulary.h"
#include "roster/platform/assertion.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/resources.h"
#include "tests/support/own_process.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

class TypeConfiguration : public OwnProcessTest {
 protected:
  TypeConfiguration() { useOwnResources(); }

  void writeTypes() const {
    const Value names = dataclassArray("Satchel Notes x.y Mail Calendars Mail com.nimbal.dataclass.mail");
    const Dictionary mixed = {
        {"Supported Dataclasses", names},
        {"Enable Actions", array("Keep Local Data", "None", "Keep Local Data", 4, "Merge Local Data")},
        {"Disable Actions", array("None")},
        {"Delete Account Actions", array("Merge Data", 3, "Delete Data")},
        {"Show Reminders Separately", true}};
    const Dictionary alien = {{"Supported Dataclasses", dataclassArray("Notes x.y")}};
    const Dictionary wrong = {
        {"Supported Dataclasses", "Mail"}, {"Enable Actions", 1}, {"Show Reminders Separately", array()}};
    const Dictionary types = {{"Mixed", mixed}, {"Notes and alien", alien}, {"Bare", Dictionary()},
                              {"Wrong", wrong}, {"No entry", "Mail"},       {"", Dictionary()},
                              {"Yahoo", wrong}, {"CalDAV", wrong}};
    writeResource("AccountTypesProperties", types);
  }
  static std::string supported(std::string_view type) {
    return shortNames(BasicAccount::supportedDataclassesForAccountType(type));
  }
};

TEST_F(TypeConfiguration, KeepsKnownDataclassesInTheirOrderUnlessNoneIsLeft) {
  for (const char* architecture : {"armv6", "armv7", ""}) {
    device.writePropertyList("etc/roster/device.plist", Dictionary{{"CPUArchitecture", architecture}});
    EXPECT_EQ(BasicAccount::isMultitaskingEnabled(), std::string_view(architecture) != "armv6")
        << architecture;
  }
  writeTypes();
  EXPECT_EQ(supported("Mixed"), "Satchel Notes Mail Calendars Mail");
  EXPECT_EQ(supported("Notes and alien"), "Notes");
  for (const char* type : {"Bare", "Wrong"}) {
    EXPECT_EQ(supported(type), "nil") << type;
    EXPECT_TRUE(BasicAccount::_isValidAccountType(type)) << type;
  }
  EXPECT_EQ(BasicAccount::allAccountTypes(),
            (StringList{"CalDAV", "Yahoo", "Mixed", "Notes and alien", "Bare", "Wrong"}));
  writeResource("AccountTypesProperties", Dictionary{{"Fax", Dictionary()}});
  for (const char* type : {"", "mixed", "No entry", "Fax"}) {
    EXPECT_EQ(supported(type), "nil") << type;
    EXPECT_FALSE(BasicAccount::_isValidAccountType(type)) << type << ": the table is read once";
  }
}

class SingleTaskingAccount : public AccountSubclass<SingleTaskingAccount> {
 public:
  using AccountSubclass::AccountSubclass;
  /// Asks a question of its own, although the table that answers it is only being made.
  static bool isMultitaskingEnabled() { return _isValidAccountType("Mixed"); }
};

TEST_F(TypeConfiguration, AsksTheClassThatIsUsedFirstWhetherTheDeviceMultitasks) {
  writeTypes();
  ASSERT_NE(SingleTaskingAccount::accountWithTypeClass("Mixed", "X"), nullptr);
  EXPECT_EQ(supported("Mixed"), "Satchel Mail Calendars Mail");
  EXPECT_EQ(supported("Notes and alien"), "Notes x.y");
}

std::string switches(std::string_view name) {
  return std::to_string(BasicAccount::multipleStoresSupportedByDataclass(name)) +
         std::to_string(BasicAccount::displayToggleForDataclass(name)) +
         std::to_string(BasicAccount::userConfirmationIsRequiredByDataclass(name));
}

TEST_F(TypeConfiguration, WithdrawsOneKeepLocalDataWhereADataclassHasOneStore) {
  writeTypes();
  writeResource("DataclassesProperties",
                Dictionary{{"many", Dictionary{{"Supports Multiple Stores", true}}},
                           {"shown", Dictionary{{"Display Dataclass Switch", true}}},
                           {"asked", Dictionary{{"Requires User Confirmation", true}}},
                           {"odd", Dictionary{{"Supports Multiple Stores", array(true)}}},
                           {"text", "yes"}});
  const auto enable = BasicAccount::userActionsToEnableDataclassForAccountType;
  const auto disable = BasicAccount::userActionsToDisableDataclassForAccountType;
  const StringList kept = {"Keep Local Data", "None", "Keep Local Data", "Merge Local Data"};
  const StringList withdrawn = {"Keep Local Data", "None", "Merge Local Data"};
  const std::pair<const char*, const char*> cases[] = {{"many", "100"},  {"shown", "010"},
                                                       {"asked", "001"}, {"odd", "000"},
                                                       {"text", "000"},  {"unheard of", "000"}};
  for (const auto& [name, answers] : cases) {
    EXPECT_EQ(switches(name), answers) << name;
    EXPECT_EQ(enable(name, "Mixed"), answers[0] == '1' ? kept : withdrawn) << name;
    EXPECT_EQ(disable(name, "Mixed"), StringList{"None"}) << name;
  }
  EXPECT_EQ(BasicAccount::deleteAccountActionsForAccountType("Mixed"),
            (StringList{"Merge Data", "Delete Data"}));
  EXPECT_TRUE(BasicAccount::showRemindersSeparatelyForAccountType("Mixed"));
  EXPECT_EQ(enable("odd", "Wrong"), std::nullopt);
  EXPECT_EQ(BasicAccount::deleteAccountActionsForAccountType("Bare"), std::nullopt);
  for (const char* type : {"Wrong", "Bare", "Fax"})
    EXPECT_FALSE(BasicAccount::showRemindersSeparatelyForAccountType(type)) << type;
  writeResource("DataclassesProperties", Dictionary());
  EXPECT_EQ(switches("many"), "100") << "the table is read once";
}

TEST_F(TypeConfiguration, ThatIsBrokenIsAssertedAndReadAgainOnceItIsRepaired) {
  const std::string path = device.path("resources/AccountTypesProperties.plist");
  const std::pair<const char*, const char*> rows[] = {{nullptr, ""},
                                                      {"", "it is empty"},
                                                      {"<plist>", "line 1"},
                                                      {"<plist><array/></plist>", "not hold a dict"}};
  for (const auto& [contents, cause] : rows) {
    const bool isMissing = contents == nullptr;
    SCOPED_TRACE(isMissing ? "missing" : contents);
    if (!isMissing) device.writeFile(path, contents);
    // Where the library is installed, its resources stand in for a missing file.
    if (isMissing && !resourcePath("AccountTypesProperties", "plist").empty()) continue;
    std::vector<std::string> reports;
    setAssertionHandler([&](const AssertionReport& report) {
      reports.push_back(report.operation + " " + report.sourceFile + ": " + report.message);
      EXPECT_FALSE(BasicAccount::_isValidAccountType("Mixed")) << "a handler may ask without a deadlock";
      EXPECT_EQ(BasicAccount::allAccountTypes(), StringList());
    });
    EXPECT_EQ(supported("Mixed"), "nil") << "a handler that returns leaves a library without types";
    setAssertionHandler({});
    const std::string missing = "find AccountTypesProperties.plist";
    EXPECT_EQ(reports, std::vector{"+[BasicAccount initialize] BasicAccount: Could not " +
                                   (isMissing ? missing : "load the dataclasses configuration file")});
    ASSERT_EQ(log.lines().size(), isMissing ? 0U : 1U);
    for (const std::string& line : log.lines())
      EXPECT_TRUE(line.find(path) != std::string::npos && line.find(cause) != std::string::npos) << line;
    EXPECT_THROW(static_cast<void>(BasicAccount::accountWithProperties({})), AssertionFailure);
    log.clear();
  }
  writeTypes();
  EXPECT_TRUE(BasicAccount::_isValidAccountType("Mixed")) << "the lock did not outlive the exception";
}

TEST(ShippedConfiguration, KnowsEveryTypeAndDataclassAndNamesThemInEveryLanguage) {
  TemporaryDevice device;
  const StringList& types = BasicAccount::allAccountTypes();
  const StringList& dataclasses = BasicAccount::allSupportedDataclasses();
  EXPECT_EQ(shortNames(types),
            "Subscribed Calendar CalDAV CardDAV BookmarkDAV SMTP Exchange LDAP Mail Nuvola Gmail Yahoo "
            "OnMyDevice IMAPNotes NimbalAccount FjordIMAP");
  const Dictionary properties = BasicAccount::_dataclassesProperties().value_or(Dictionary());
  for (const std::string& name : dataclasses) EXPECT_TRUE(properties.contains(name)) << name;

  for (const std::string language : {"en", "de", "es", "fr", "ja"}) {
    SCOPED_TRACE(language);
    device.setEnvironment("LC_ALL", language + ".UTF-8");
    const auto table = [&](const std::string& name) {
      return *readDictionaryFile(resourcePath("strings/" + language + "/" + name, "plist"));
    };
    for (const std::string key :
         {"ON_MY_DEVICE_TYPE_", "ON_MY_DEVICE_TYPE_MID_SENTENCE_", "ON_YOUR_DEVICE_TYPE_MID_SENTENCE_"}) {
      for (const char* name : {"VIREO", "VIREO_SIMULATOR", "HANDSET", "TABLET", "LAPTOP", "CONVERTIBLE",
                               "DESKTOP", "SERVER", "WATCH", "EMBEDDED", "VM", "CONTAINER"})
        EXPECT_FALSE(table("DeviceLocalAccount").find(key + name).string().isEmpty()) << key << name;
    }
    // In a text that this file lacks, the library falls back on English.
    const Dictionary texts = table("BasicAccount");
    EXPECT_EQ(texts.size(), types.size() + dataclasses.size());
    const auto expectName = [&](const std::string& key, const String& name) {
      EXPECT_FALSE(name.isEmpty() || name.str() == key) << key;
      EXPECT_EQ(texts.find(key), name.value()) << key;
    };
    for (const std::string& type : types)
      expectName("ACCOUNT_TYPE_" + type, BasicAccount::localizedNameForAccountType(type));
    for (const std::string& name : dataclasses)
      expectName("DATACLASS_" + name.substr(dataclassPrefix.size()),
                 BasicAccount::localizedNameForDataclass(name));
  }
  for (const char* unknown : {"", "Fax", "mail", "com.nimbal.Dataclass.", "com.nimbal.Dataclass.Fax"}) {
    EXPECT_TRUE(BasicAccount::localizedNameForAccountType(unknown).isNil()) << unknown;
    EXPECT_TRUE(BasicAccount::localizedNameForDataclass(unknown).isNil()) << unknown;
  }
}

TEST(Vocabulary, HasTheTextsThatNoShippedTableAndNoFileShows) {
  const std::pair<std::string_view, std::string_view> constants[] = {
      {kAccountUsername, "Username"},
      {kAccountPreventRecentsSyncing, "Prevent Recents Syncing"},
      {kCalendarsAccountSubscribedCalendars, "Subscribed Calendars"},
      {kAccountCalendarsWereMigrated, "CalendarsWereMigrated"},
      {kDataclassToggleActionNone, "None"},
      {kDataclassToggleActionKeepLocalData, "Keep Local Data"},
      {kDataclassToggleActionMergeLocalData, "Merge Local Data"},
      {kDataclassToggleActionDeleteLocalData, "Delete Local Data"},
      {kDataclassToggleActionMergeSyncData, "Merge Sync Data"},
      {kDataclassToggleActionDeleteSyncData, "Delete Sync Data"},
      {kAccountDeleteActionMergeData, "Merge Data"},
      {kAccountDeleteActionDeleteData, "Delete Data"},
      {kAccountMigrationLockFilename, "/tmp/AccountMigrationInProgress"}};
  for (const auto& [constant, text] : constants) EXPECT_EQ(constant, text);
}

}  // namespace
}  // namespace roster::testing
