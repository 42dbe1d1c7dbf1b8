#include "roster/platform/resources.h"

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

class Resources : public StoreTest {
 protected:
  Resources() { device.setEnvironment("ROSTER_RESOURCES", device.path("resources")); }

  void writeTable(const std::string& language, const Value& table) const {
    device.writePropertyList("resources/strings/" + language + "/Words.plist", table);
  }
};

TEST_F(Resources, SpeakTheUsersLanguageAndElseEnglish) {
  writeTable("en", Dictionary{{"yes", "yes"}, {"no", "no"}, {"perhaps", "perhaps"}});
  writeTable("de", Dictionary{{"yes", "ja"}, {"no", "nein"}, {"perhaps", 3}});
  writeTable("de_AT", Dictionary{{"yes", "jo"}});
  // LC_ALL, LC_MESSAGES and LANG.
  const std::pair<std::array<const char*, 3>, const char*> cases[] = {
      {{"", "", ""}, "yes no perhaps "},
      {{"", "", "de_AT.UTF-8"}, "jo nein perhaps "},
      {{"", "de_CH@euro", "en_US.UTF-8"}, "ja nein perhaps "},
      {{"POSIX", "", "de"}, "yes no perhaps "},
      {{"en_GB.UTF-8", "de", "de"}, "yes no perhaps "},
      {{"../de", "", ""}, "yes no perhaps "},
  };
  for (const auto& [variables, texts] : cases) {
    device.setEnvironment("LC_ALL", variables[0]);
    device.setEnvironment("LC_MESSAGES", variables[1]);
    device.setEnvironment("LANG", variables[2]);
    std::string found;
    for (const char* key : {"yes", "no", "perhaps"}) found += localizedString(key, "Words") + " ";
    EXPECT_EQ(found, texts) << variables[0] << "|" << variables[1] << "|" << variables[2];
  }
  device.writeFile("resources/strings/fr/Words.plist", "<plist version=\"1.0\"><dict>");
  device.setEnvironment("LC_ALL", "fr");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(localizedString("yes", "Words"), "yes");
  EXPECT_EQ(log.lines().size(), 1U) << "about the damaged table, once";
}

TEST_F(Resources, AreFoundByNameAndTextsInsteadOfWhatNobodyTranslatedAreTheCallers) {
  EXPECT_EQ(resourcePath("Things", "plist"), "");
  const std::string path = device.writeFile("resources/Things.plist", "");
  EXPECT_EQ(resourcePath("Things", "plist"), path);
  device.writeFile("resources/Folder.plist/x", "");
  EXPECT_EQ(resourcePath("Folder", "plist"), "");
  writeTable("en", Dictionary{{"empty", ""}});
  EXPECT_EQ(localizedString("empty", "Words", "instead"), "");
  for (const auto& [key, table] : {std::pair("unknown", "Words"), std::pair("empty", "../en/Words")})
    EXPECT_EQ(localizedString(key, table, "instead"), "instead") << table;
}

}  // namespace
}  // namespace roster::testing
