#include "roster/platform/assertion.h"
#include "tests/migration/migration_test.h"

namespace roster::testing {
namespace {

class DetectionTest : public StoreTest {};

TEST_F(DetectionTest, AsksForAMigrationOfARegistryWhoseVersionIsBelowTheCurrentOne) {
  EXPECT_FALSE(migrationNeed().isAny()) << "nothing there";
  device.writeFile(device.registryPath(), "Version 11");
  EXPECT_FALSE(migrationNeed().isAny()) << "no property list";
  device.writePropertyList(device.registryPath(), array(Dictionary{{"Version", 11}}));
  EXPECT_FALSE(migrationNeed().isAny()) << "an array";
  EXPECT_EQ(log.lines(), Lines());

  const Lines missing{"Roster plist is missing a version number, returning NO for migration"};
  const Lines yes{outOfDate, needsMigration(0, 0, 1)};
  const std::pair<Value, Lines> cases[] = {{11, yes},       {12, {}},    {13, {}},
                                           {-1, {}},        {~0ULL, {}}, {{}, missing},
                                           {"11", missing}, {11.0, yes}, {11.5, missing}};
  for (const auto& [version, lines] : cases) {
    device.writePropertyList(device.registryPath(), Dictionary{{"Version", version}});
    log.clear();
    SCOPED_TRACE(formatted("version %@", version));
    EXPECT_EQ(migrationNeed().isRosterOutOfDate, lines == yes);
    EXPECT_EQ(log.lines(), lines);
  }
}

TEST_F(DetectionTest, LooksAtTheRegistryOnlyWhenThereIsNothingOlder) {
  const std::string mail = device.home() + "/Library/Mail/Accounts.plist";
  const std::string syncAccounts = device.home() + "/Library/Preferences/com.nimbal.Tessera.plist";
  EXPECT_EQ(mailAccountsPath(), mail);
  EXPECT_EQ(tsAccountPath(), syncAccounts);
  EXPECT_EQ(rosterAccountsPath(), device.registryPath());
  device.writePropertyList(device.registryPath(), Dictionary{{"Version", 3}});
  fs::create_directories(mail);  // a folder is as good as a file
  migrationNeed();
  device.writeFile(syncAccounts, "");
  const MigrationNeed both = migrationNeed();
  EXPECT_TRUE(both.hasOldMailAccounts && both.hasOldTSAccounts && !both.isRosterOutOfDate);
  fs::remove(mail);
  fs::create_symlink("nowhere", mail);
  migrationNeed();
  EXPECT_EQ(log.lines(), (Lines{needsMigration(1, 0, 0), needsMigration(1, 1, 0), needsMigration(0, 1, 0)}));
}

TEST_F(DetectionTest, RequiresAllThreePointersAndNamesTheFirstThatIsMissing) {
  const auto ask = &AccountsManager::shouldMigrateOldMailAccountsOldTSAccountsNewRoster;
  bool flag = false;
  EXPECT_THROW(ask(nullptr, nullptr, nullptr), AssertionFailure);
  EXPECT_THROW(ask(&flag, nullptr, nullptr), AssertionFailure);
  EXPECT_THROW(ask(&flag, &flag, nullptr), AssertionFailure);
  for (const std::string name : {"migrateOldMailAccounts", "migrateOldTSAccounts", "migrateNewAccounts"})
    EXPECT_EQ(linesWith(log.lines(), ": " + name + " cannot be nil"), 1U) << name;
  EXPECT_EQ(linesWith(log.lines(), ", AccountsManager.cpp:"), 3U);
}

}  // namespace
}  // namespace roster::testing
