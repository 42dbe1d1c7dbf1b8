#include "roster/platform/device.h"

#include <filesystem>
#include <thread>

#include "roster/value/value_description.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

constexpr const char* restrictionsFile = "etc/roster/restrictions.plist";

class Device : public StoreTest {};

TEST_F(Device, RootIsAbsoluteWithoutSlashesAtTheEndAsIsTheHome) {
  const std::string here = std::filesystem::current_path();
  const std::pair<std::optional<std::string>, std::string> cases[] = {
      {std::nullopt, ""}, {"", ""}, {"/", ""}, {"///", ""}, {"/a/b//", "/a/b"}, {"c/d/", here + "/c/d"},
  };
  for (const auto& [variable, root] : cases) {
    device.setEnvironment("ROSTER_ROOT", variable);
    EXPECT_EQ(sharedPreferencesPath("x.plist"), root + "/var/lib/roster/Preferences/x.plist");
  }
  EXPECT_EQ(homeDirectory(), device.home());
  device.setEnvironment("HOME", "relative");
  EXPECT_TRUE(homeDirectory().starts_with('/')) << "from the user database";
}

TEST_F(Device, InformationPrefersTheDevicesDescriptionToTheKernelAndTheChassisWhichAShellCouldRead) {
  const std::pair<std::string, String> cases[] = {
      {"CHASSIS=\"big tablet\"  # by hand\r\n", "big tablet"},
      {"  CHASSIS = 'a \"b\" # c' \n", "a \"b\" # c"},
      {"CHASSIS=\"a\\\"b\\$\\c\"\n", "a\"b$\\c"},
      {"#CHASSIS=tablet\nXCHASSIS=tablet\nCHASSIS\n", {}},
      {"CHASSIS=a\\ b#c'd'   # e\n", "a b#cd"},
      {"CHASSIS=whole\nCHASSIS=\"open\n", "whole"},
  };
  for (const auto& [text, chassis] : cases) {
    device.writeFile("etc/machine-info", text);
    EXPECT_EQ(deviceInformation("DeviceClass"), chassis) << text;
  }
  device.writePropertyList("etc/roster/device.plist",
                           Dictionary{{"CPUArchitecture", 6}, {"DeviceClass", "Vireo"}});
  EXPECT_FALSE(deviceInformation("CPUArchitecture").isEmpty()) << "a number is not an answer";
  EXPECT_EQ(deviceInformation("DeviceClass"), "Vireo");
  EXPECT_TRUE(deviceInformation("Weight").isNil());
}

TEST_F(Device, RestrictionFollowsTheFileThroughEveryChange) {
  // Of one size and within one tick of the file system's clock, so that only the contents tell them apart.
  const std::pair<Value, int> answers[] = {{2, 2}, {1, 1},     {7, 7},   {true, 1},
                                           {0, 0}, {false, 2}, {"2", 0}, {std::int64_t{1} << 40, 0}};
  for (const auto& [value, answer] : answers) {
    device.writePropertyList(restrictionsFile, Dictionary{{"CloudBackup", value}, {"PhotoStream", 3}});
    EXPECT_EQ(restriction(Feature::cloudBackup), answer) << describe(value);
    EXPECT_EQ(restriction(Feature::photoStream), 3);
  }
  std::filesystem::remove(device.path(restrictionsFile));
  EXPECT_EQ(restriction(Feature::photoStream), 0);
  for (const char* damaged : {"bplist00 and then nothing", "<string>no dictionary</string>"}) {
    const std::string path = device.writeFile(restrictionsFile, damaged);
    log.clear();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(restriction(Feature::photoStream), 0) << damaged;
    EXPECT_EQ(linesWith(log.lines(), path), 1U) << damaged;
    EXPECT_EQ(log.lines().size(), 1U) << damaged;
  }
}

TEST_F(Device, RestrictionNeverGoesBackWhileTheFileIsReplaced) {
  const std::string path = device.writePropertyList(restrictionsFile, Dictionary{{"PhotoStream", 1}});
  const auto ask = [](const std::stop_token& stop) {
    for (int last = 1, answer = 1; !stop.stop_requested(); last = answer) {
      answer = restriction(Feature::photoStream);
      EXPECT_TRUE(answer >= last && answer <= 50) << answer << " after " << last;
    }
  };
  const std::jthread askers[] = {std::jthread(ask), std::jthread(ask), std::jthread(ask)};
  for (int i = 2; i <= 50; ++i)
    std::filesystem::rename(device.writePropertyList("new.plist", Dictionary{{"PhotoStream", i}}), path);
}

TEST_F(Device, PreferenceOfTheRunningProgramGoesBeforeTheGlobalOne) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").filename();
  const std::string preferences = "home/user/Library/Preferences/";
  EXPECT_TRUE(preference("Key").isNil());
  device.writePropertyList(preferences + "GlobalPreferences.plist",
                           Dictionary{{"Key", "global"}, {"Other", true}});
  EXPECT_EQ(preference("Key"), "global");
  device.writePropertyList(preferences + program + ".plist", Dictionary{{"Key", 5}});
  EXPECT_EQ(preference("Key"), 5);
  EXPECT_EQ(preference("Other"), true);
  EXPECT_EQ(preferenceOfDomain("Key", "GlobalPreferences"), "global");
  for (const std::string domain : {"", "nobody", "../Preferences/GlobalPreferences"})
    EXPECT_TRUE(preferenceOfDomain("Key", domain).isNil()) << domain;
}

}  // namespace
}  // namespace roster::testing
