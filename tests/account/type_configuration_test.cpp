#include <gtest/gtest.h>

#include "account/basic_account.h"
#include "platform/assertion.h"
#include "platform/resources.h"
#include "tests/support/own_process.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

class TypeConfiguration : public OwnProcessTest {
 protected:
  TypeConfiguration() { useOwnResources(); }

  void writeTypes() const {
    const auto type = [](const char* supported) {
      return Dictionary{{"Supported Dataclasses", dataclassArray(supported)}};
    };
    MutableDictionary mixed(type("Satchel Notes x.y Mail Calendars Mail com.nimbal.dataclass.mail"));
    mixed.set("Enable Actions", array("Keep Local Data", "None", "Keep Local Data", 4, "Merge Local Data"));
    mixed.set("Disable Actions", array("None"));
    mixed.set("Delete Account Actions", array("Merge Data", 3, "Delete Data"));
    mixed.set("Show Reminders Separately", true);
    const Dictionary wrong = {
        {"Supported Dataclasses", "Mail"}, {"Enable Actions", 1}, {"Show Reminders Separately", array()}};
    const Dictionary types = {{"Mixed", mixed},
                              {"Only Notes", type("Notes")},
                              {"Notes and alien", type("Notes x.y")},
                              {"Bare", Dictionary()},
                              {"Wrong", wrong},
                              {"No entry", "Mail"},
                              {"", Dictionary()}};
    writeResource("AccountTypesProperties", types);
  }
  static std::string supported(std::string_view type) {
    return shortNames(BasicAccount::supportedDataclassesForAccountType(type));
  }
};

using ArchitectureAndMixed = std::pair<std::string, std::string>;
class TypeConfigurationOn : public TypeConfiguration,
                            public ::testing::WithParamInterface<ArchitectureAndMixed> {};

TEST_P(TypeConfigurationOn, KeepsKnownDataclassesInTheirOrderUnlessNoneIsLeft) {
  device.writePropertyList("etc/roster/device.plist", Dictionary{{"CPUArchitecture", GetParam().first}});
  writeTypes();
  EXPECT_EQ(supported("Mixed"), GetParam().second);
  EXPECT_EQ(supported("Only Notes"), "Notes");
  EXPECT_EQ(supported("Notes and alien"), BasicAccount::isMultitaskingEnabled() ? "Notes" : "Notes x.y");
  for (const char* type : {"Bare", "Wrong"}) {
    EXPECT_EQ(supported(type), "nil");
    EXPECT_TRUE(BasicAccount::_isValidAccountType(type));
  }
  writeResource("AccountTypesProperties", Dictionary{{"Fax", Dictionary()}});
  for (const char* type : {"", "mixed", "No entry", "Fax"}) {
    EXPECT_EQ(supported(type), "nil");
    EXPECT_FALSE(BasicAccount::_isValidAccountType(type)) << type << ": the table is read once";
  }
}

INSTANTIATE_TEST_SUITE_P(Devices, TypeConfigurationOn,
                         ::testing::Values(ArchitectureAndMixed{"armv6", "Satchel Mail Calendars Mail"},
                                           ArchitectureAndMixed{"armv7", "Satchel Notes Mail Calendars Mail"},
                                           ArchitectureAndMixed{"", "Satchel Notes Mail Calendars Mail"}));

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
  EXPECT_EQ(enable("many", "Mixed"),
            (StringList{"Keep Local Data", "None", "Keep Local Data", "Merge Local Data"}));
  EXPECT_EQ(switches("many"), "100");
  const std::pair<const char*, const char*> singles[] = {
      {"shown", "010"}, {"asked", "001"}, {"odd", "000"}, {"text", "000"}, {"unheard of", "000"}};
  for (const auto& [name, answers] : singles) {
    EXPECT_EQ(switches(name), answers) << name;
    EXPECT_EQ(enable(name, "Mixed"), (StringList{"Keep Local Data", "None", "Merge Local Data"})) << name;
    EXPECT_EQ(disable(name, "Mixed"), StringList{"None"}) << name;
  }
  EXPECT_EQ(BasicAccount::deleteAccountActionsForAccountType("Mixed"),
            (StringList{"Merge Data", "Delete Data"}));
  EXPECT_TRUE(BasicAccount::showRemindersSeparatelyForAccountType("Mixed"));
  for (const char* type : {"Bare", "Wrong", "Fax"}) {
    EXPECT_EQ(enable("odd", type), std::nullopt);
    EXPECT_EQ(disable("many", type), std::nullopt);
    EXPECT_EQ(BasicAccount::deleteAccountActionsForAccountType(type), std::nullopt);
    EXPECT_FALSE(BasicAccount::showRemindersSeparatelyForAccountType(type));
  }
}

/// The file's contents, if there is one; the assertion; what the system log says besides the file's path.
using BrokenTable = std::tuple<std::optional<std::string>, std::string, std::string>;
class BrokenTypeConfiguration : public TypeConfiguration,
                                public ::testing::WithParamInterface<BrokenTable> {};

TEST_P(BrokenTypeConfiguration, IsAssertedAndReadAgainOnceItIsRepaired) {
  const auto& [contents, expectedMessage, cause] = GetParam();
  const std::string message = expectedMessage;
  const std::string path = device.path("resources/AccountTypesProperties.plist");
  if (contents) {
    device.writeFile(path, *contents);
  } else if (!resourcePath("AccountTypesProperties", "plist").empty()) {
    GTEST_SKIP() << "the library is installed, with its resources";
  }
  int reports = 0;
  const auto previous = setAssertionHandler([&](const AssertionReport& report) {
    ++reports;
    EXPECT_EQ(report.operation, "+[BasicAccount initialize]");
    EXPECT_EQ(report.sourceFile, "BasicAccount");
    EXPECT_EQ(report.message, message);
    EXPECT_FALSE(BasicAccount::_isValidAccountType("Mixed")) << "a handler may ask, and hangs nobody";
  });
  EXPECT_EQ(supported("Mixed"), "nil") << "a handler that returns leaves a library without types";
  EXPECT_EQ(reports, 1);
  setAssertionHandler(previous);
  ASSERT_EQ(log.lines().size(), cause.empty() ? 0U : 1U);
  for (const std::string& line : log.lines()) {
    EXPECT_TRUE(line.find(path) != std::string::npos && line.find(cause) != std::string::npos) << line;
  }
  EXPECT_THROW(BasicAccount::accountWithProperties({}), AssertionFailure);
  writeTypes();
  EXPECT_TRUE(BasicAccount::_isValidAccountType("Mixed")) << "the lock did not outlive the exception";
}

constexpr const char* couldNotLoad = "Could not load the dataclasses configuration file";
INSTANTIATE_TEST_SUITE_P(
    Faults, BrokenTypeConfiguration,
    ::testing::Values(BrokenTable{std::nullopt, "Could not find AccountTypesProperties.plist", ""},
                      BrokenTable{"", couldNotLoad, "it is empty"},
                      BrokenTable{"<plist>", couldNotLoad, "line 1"},
                      BrokenTable{"<plist><array/></plist>", couldNotLoad, "not a dictionary"}));

TEST(ShippedConfiguration, KnowsEveryTypeAndDataclass) {
  const TemporaryDevice device;
  for (const std::string_view type :
       {"Subscribed Calendar", "CalDAV", "CardDAV", "BookmarkDAV", "SMTP", "Exchange", "LDAP", "Mail",
        "Nuvola", "Gmail", "Yahoo", "OnMyDevice", "IMAPNotes", "NimbalAccount", "FjordIMAP"}) {
    EXPECT_TRUE(BasicAccount::_isValidAccountType(type)) << type;
  }
  const Dictionary table = BasicAccount::_dataclassesProperties().value_or(Dictionary());
  for (const std::string& name : BasicAccount::allSupportedDataclasses())
    EXPECT_TRUE(table.contains(name)) << name;
  EXPECT_EQ(table.size(), 14U);
  EXPECT_NE(BasicAccount::_creatorsInfo(), std::nullopt);
}

}  // namespace
}  // namespace roster::testing
