#include "tests/migration/migration_test.h"

#include <sys/stat.h>

#include <csignal>

#include "roster/platform/assertion.h"
#include "roster/value/value_description.h"

namespace roster::testing {
namespace {

constexpr const char* failed = "[+[AccountsManager _migrateAccountsIfNeeded]] Accounts migration failed";

class DetectionTest : public StoreTest {};

TEST_F(DetectionTest, AsksForAMigrationOfARegistryWhoseVersionIsBelowTheCurrentOne) {
  EXPECT_FALSE(migrationNeed().isAny()) << "nothing there";
  device.writePropertyList(device.registryPath(), array(Dictionary{{"Version", 11}}));
  EXPECT_FALSE(migrationNeed().isAny()) << "an array";
  EXPECT_EQ(log.lines(), Lines());
  const Lines missing{"Roster plist is missing a version number, returning NO for migration"};
  const Lines yes{outOfDate, needsMigration(0, 0, 1)};
  const Lines zero{"Roster Version out of date: savedVersion=0, currentVersion=12", needsMigration(0, 0, 1)};
  const std::pair<Value, Lines> cases[] = {{11, yes},       {12, {}},      {13, {}},        {-1, {}},
                                           {~0ULL, {}},     {{}, missing}, {"11", missing}, {11.0, yes},
                                           {11.5, missing}, {0, zero}};
  for (const auto& [version, lines] : cases) {
    device.writePropertyList(device.registryPath(), Dictionary{{"Version", version}});
    log.clear();
    EXPECT_EQ(migrationNeed().isRosterOutOfDate, lines.size() == 2);
    EXPECT_EQ(log.lines(), lines) << describe(version);
    const Store store = AccountsManager::init();
    log.clear();
    EXPECT_EQ(migrationNeedOfLoaded(*store).isRosterOutOfDate, lines.size() == 2);
    EXPECT_EQ(log.lines(), lines) << describe(version) << " of a loaded registry";
  }
}

TEST_F(DetectionTest, LooksAtTheRegistryOnlyWhenThereIsNothingOlder) {
  const std::string mail = device.home() + "/Library/Mail/Accounts.plist";
  const std::string syncAccounts = device.home() + "/Library/Preferences/com.nimbal.Tessera.plist";
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

TEST_F(DetectionTest, RequiresAllThreePointers) {
  bool flag = false;
  const auto ask = &AccountsManager::shouldMigrateOldMailAccountsOldTSAccountsNewRoster;
  EXPECT_THROW(ask(&flag, nullptr, nullptr), AssertionFailure);
  EXPECT_EQ(linesWith(log.lines(), ", AccountsManager.cpp:"), 1U);
  EXPECT_EQ(linesWith(log.lines(), ": migrateOldTSAccounts cannot be nil"), 1U);
}

TEST_F(MigrationTest, IsWaitedForAndDoneByTheNextWhenItsProcessIsKilledInTheMiddle) {
  for (const int end : {SIGCONT, SIGKILL}) {
    SCOPED_TRACE(end == SIGKILL ? "killed" : "continued");
    writeRegistry(11);
    device.writeFile("migrator-order", "stop");
    const pid_t holder = startProcess([] { return migrateIfNeeded().outcome == Outcome::succeeded; });
    EXPECT_EQ(waitpid(holder, nullptr, WUNTRACED), holder);
    fs::remove(device.path("migrator-order"));
    EXPECT_FALSE(isLockFree());
    EXPECT_TRUE(fs::is_regular_file(markerPath()));
    const Signal isAboutToWait;
    const pid_t next = startProcess([&] {
      setSystemLogSink([&](std::string_view line) {
        if (line == needsMigration(0, 0, 1)) isAboutToWait.send();
      });
      return migrateIfNeeded().outcome == (end == SIGKILL ? Outcome::succeeded : Outcome::doneByAnother);
    });
    isAboutToWait.await();
    const pid_t client = startProcess([&] {
      isAboutToWait.send();
      AccountsManager::waitForMigrationToFinish();
      return end == SIGKILL || !AccountsManager::rosterNeedsToBeMigrated();
    });
    isAboutToWait.await();
    kill(holder, end);
    EXPECT_EQ(endsWell(holder), end == SIGCONT);
    EXPECT_TRUE(endsWell(next));
    EXPECT_TRUE(endsWell(client));
    EXPECT_EQ(runsOfMigrator(), end == SIGKILL ? 3U : 1U);
  }
  EXPECT_EQ(device.fileNames("tmp"), Lines());
  EXPECT_EQ(device.fileNames("var/lib/roster"), (Lines{"AccountMigrationInProgress", "Preferences"}));
}

TEST_F(MigrationTest, MindsNeitherALinkNorAFolderWhereItsMarkerBelongs) {
  const std::string victim = device.writeFile("victim", "whole");
  fs::create_symlink(victim, markerPath());
  writeRegistry(11);
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::succeeded);
  fs::remove(markerPath());
  fs::create_directory(markerPath());
  writeRegistry(11);
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::succeeded);
  EXPECT_EQ(device.readFile("victim"), "whole");
  EXPECT_TRUE(fs::is_directory(markerPath()));
}

TEST_F(MigrationTest, MakesTheRegistryAnewFromAnOldMailListOnce) {
  writeOldMailList();
  device.writePropertyList(device.registryPath(), Dictionary{{"Accounts", array(stored("lost"))}});
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::succeeded);
  EXPECT_EQ(log.lines(), (Lines{needsMigration(1, 0, 0), needsMigration(1, 0, 0)}));
  const Store store = AccountsManager::init();
  EXPECT_EQ(store->dataVersion(), 12);
  EXPECT_EQ(identifiers(*store->allBasicAccounts()), "w");
  fs::remove(lockPath());
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::notNeeded);
  EXPECT_FALSE(fs::exists(lockPath())) << "nothing is locked";
}

TEST_F(MigrationTest, GivesARegistryThatIsMadeAnewTheAccessOfTheRemovedOne) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a file of somebody else";
  writeRegistry(12);
  fs::permissions(device.registryPath(), fs::perms(0660));
  ASSERT_EQ(chown(device.registryPath().c_str(), 65534, 65533), 0);
  writeOldMailList();
  device.writeFile("migrator-order", "refuse");
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::failed);
  ASSERT_FALSE(fs::exists(device.registryPath()));
  device.writeFile("migrator-order", "");
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::succeeded) << "another run, with the old registry gone";
  for (const std::string& path : {device.registryPath(), lockPath()}) {
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0) << path;
    EXPECT_TRUE(status.st_uid == 65534 && status.st_gid == 65533) << path;
    EXPECT_EQ(status.st_mode & 07777, 0660U) << path;
  }
}

TEST_F(MigrationTest, GivesTheLockUpHoweverItFailsAndLeavesTheRegistryRemoved) {
  const std::string noCode = code() + ": cannot open shared object file: No such file or directory";
  const std::string noClass = accountMigratorPath() + " has no class AccountsDataMigrator";
  const char* const own = "old_mail_migrator";
  // The plug-in, what it is told to do, and the cause that is logged.
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"", "", ""},          {"missing", "", noCode},
      {"good", "", noClass}, {own, "none", "the class AccountsDataMigrator makes no instance"},
      {own, "refuse", ""},   {own, "throw", "the migrator failed: the list\\nis odd"}};
  writeOldMailList();
  for (const auto& [name, order, cause] : cases) {
    SCOPED_TRACE(formatted("%s told to %s", name, order));
    const bool hasBundle = *name != '\0';
    fs::remove_all(accountMigratorPath());
    if (hasBundle) installMigrator(name);
    device.writeFile("migrator-order", order);
    writeRegistry(12);
    Lines lines{needsMigration(1, 0, 0), needsMigration(1, 0, 0)};
    if (!cause.empty())
      lines.push_back("Could not migrate accounts with " + accountMigratorPath() + ": " + cause);
    if (hasBundle) lines.emplace_back(failed);
    // In a process of its own, because a class cannot be unregistered.
    EXPECT_TRUE(endsWell(startProcess([&] {
      const MigrationReport report = migrateIfNeeded();
      EXPECT_EQ(report.outcome, hasBundle ? Outcome::failed : Outcome::noMigrator);
      EXPECT_TRUE(report.error && report.error->message.find('\n') == std::string::npos);
      EXPECT_EQ(log.lines(), lines);
      return !HasFailure();
    })));
    EXPECT_FALSE(fs::exists(device.registryPath()));
    EXPECT_TRUE(isLockFree());
  }
}

TEST_F(MigrationTest, GoesOnWhenTheRegistryCannotBeRemoved) {
  const std::string path = device.registryPath();
  device.writeFile(path + "/full", "");
  writeOldMailList();
  device.writeFile("migrator-order", "refuse");
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::failed);
  EXPECT_EQ(linesWith(log.lines(), "Error could not remove " + path + ": Is a directory"), 1U);
  EXPECT_EQ(runsOfMigrator(), 1U);
}

TEST_F(MigrationTest, DoesNotBeginWithoutTheLock) {
  writeOldMailList();
  writeRegistry(12);
  fs::create_symlink(device.writeFile("elsewhere", ""), lockPath());
  const MigrationReport report = migrateIfNeeded();
  EXPECT_EQ(report.outcome, Outcome::notLocked);
  EXPECT_EQ(report.error->message, "the migration lock cannot be had: could not open " + lockPath() +
                                       ": Too many levels of symbolic links");
  EXPECT_TRUE(fs::exists(device.registryPath()));
}

}  // namespace
}  // namespace roster::testing
