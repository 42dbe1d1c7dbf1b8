#include "roster/platform/plugin.h"

#include <filesystem>
#include <regex>

#include "tests/support/creators_table.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

/// The error without the path that it begins with, and an asterisk for each fingerprint of layouts.
std::string failureOf(const std::string& path) {
  const std::string text = errorOf(loadPlugin(path));
  return std::regex_replace(text.starts_with(path + ": ") ? text.substr(path.size() + 2) : text,
                            std::regex("\\b[0-9a-f]{10,16}\\b"), "*");
}

class PluginTest : public OwnProcessTest {};

TEST_F(PluginTest, IsRefusedWithItsPathAndTheReason) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "the path is empty"},
      {plugin("good") + std::string(1, '\0'), "the path holds a zero byte"},
      {device.writeFile("text.so", "not a library"), "file too short"},
      {plugin("unresolved"), "undefined symbol: rosterTestNobodyDefinesThis"},
      {plugin("no_entry"), "it has no entry rosterPluginEntry"},
      {plugin("debug_containers"),
       "it was built with other layouts of the classes that it shares with this "
       "library (*, not *), as with other compiler flags like -D_GLIBCXX_DEBUG"},
  };
  for (const auto& [path, reason] : cases) EXPECT_EQ(failureOf(path), reason) << path;
}

TEST_F(PluginTest, LeavesNoClassBehindWhenItFailsAndIsLoadedOnceItIsRepaired) {
  const std::pair<const char*, std::string> faults[] = {
      {"version", formatted("it was built for version %u of the plug-in entry, not for version %u",
                            pluginEntryVersion + 1, pluginEntryVersion)},
      {"entry", "its entry failed: out of order"},
      {"class", "its entry failed: no wire"},
      {"", "none"}};
  for (const auto& [fault, reason] : faults) {
    EXPECT_EQ(findClass("Repaired"), nullptr) << "before " << fault;
    device.setEnvironment("ROSTER_TEST_FAULT", fault);
    EXPECT_EQ(failureOf(plugin("faulty")), reason) << fault;
  }
  EXPECT_NE(findClass("Repaired"), nullptr);
}

TEST_F(PluginTest, FailsWhenItsEntryAsksForAnAccountThatItIsToProvide) {
  useOwnResources();
  writeResource("AccountTypesProperties", Dictionary{{"T", Dictionary()}});
  writeResource("AccountCreators", Dictionary{{"T", array(full("Asking", plugin("asking")))}});
  const Dictionary account{{"Type", "T"}, {"Class", "X"}, {"Identifier", "id"}};
  device.writePropertyList(device.registryPath(), Dictionary{{"Accounts", array(account)}, {"Version", 12}});
  const std::string failure = "its entry failed: Could not load the account creator framework " +
                              plugin("asking") + ". Error " + plugin("asking") +
                              ": it is being loaded: its entry asks for what it provides";
  EXPECT_EQ(failureOf(plugin("asking")), failure);
  EXPECT_EQ(failureOf(plugin("asking")), failure) << "once more";
  EXPECT_EQ(findClass("Asking"), nullptr);
}

TEST_F(PluginTest, RegistersItsClassesOnceByWhateverPathItIsReachedUnlessTheirNamesAreTaken) {
  ASSERT_TRUE(registerClass(ClassObject("PluginCreator")));
  const std::string link = device.path("link.so");
  std::filesystem::create_symlink(plugin("good"), link);
  for (const std::string& path : {link, plugin("good"), link, std::string(thisLibrary)})
    EXPECT_EQ(failureOf(path), "none") << path;
  EXPECT_NE(findClass("PluginAccount"), nullptr);
  EXPECT_EQ(findClass("PluginCreator")->as<AccountCreationProtocol>(), nullptr) << "the first one stays";
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{
                "The class PluginCreator is defined twice; the definition that came first is used"});
}

}  // namespace
}  // namespace roster::testing
