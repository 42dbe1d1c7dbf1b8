#include "tests/migration/migration_test.h"

#include <sys/stat.h>

#include <csignal>

#include "roster/platform/assertion.h"

namespace roster::testing {
namespace {

constexpr const char* failed = "[+[AccountsManager _migrateAccountsIfNeeded]] Accounts migration failed";

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

/// A device with a registry that is out of date, and several processes that want to migrate it.
class MigrationByManyTest : public MigrationTest {
 protected:
  MigrationByManyTest() { writeRegistry(11); }

  /// A process that holds the lock, and whose migrator has stopped in the middle of its work.
  pid_t startHolder() const {
    device.writeFile("migrator-order", "stop");
    const pid_t process = startProcess([] { return migrateIfNeeded().outcome == Outcome::succeeded; });
    EXPECT_EQ(waitpid(process, nullptr, WUNTRACED), process);
    fs::remove(device.path("migrator-order"));
    EXPECT_FALSE(isLockFree());
    return process;
  }
  /// A process that has found something to migrate and now waits for the lock.
  static pid_t startNext(Outcome expected) {
    const Signal hasDecided;
    const pid_t process = startProcess([&] {
      setSystemLogSink([&](std::string_view line) {
        if (line == needsMigration(0, 0, 1)) hasDecided.send();
      });
      return migrateIfNeeded().outcome == expected;
    });
    hasDecided.await();
    return process;
  }
};

TEST_F(MigrationByManyTest, LetsThemWaitAndFindNothingLeftToDo) {
  const pid_t holder = startHolder();
  const pid_t next = startNext(Outcome::doneByAnother);
  const Signal isAboutToWait;
  const pid_t client = startProcess([&] {
    isAboutToWait.send();
    AccountsManager::waitForMigrationToFinish();
    return !AccountsManager::rosterNeedsToBeMigrated();
  });
  isAboutToWait.await();
  kill(holder, SIGCONT);
  EXPECT_TRUE(endsWell(holder));
  EXPECT_TRUE(endsWell(next));
  EXPECT_TRUE(endsWell(client));
  EXPECT_EQ(runsOfMigrator(), 1U);
}

TEST_F(MigrationByManyTest, IsDoneByTheNextWhenItsProcessIsKilledInTheMiddleAndLeavesNothingBehind) {
  const pid_t holder = startHolder();
  EXPECT_TRUE(fs::is_regular_file(markerPath()));
  const pid_t next = startNext(Outcome::succeeded);
  kill(holder, SIGKILL);
  EXPECT_TRUE(endsWell(next));
  EXPECT_EQ(runsOfMigrator(), 2U);
  EXPECT_EQ(device.fileNames("tmp"), Lines());
  EXPECT_EQ(device.fileNames("var/lib/roster"), (Lines{"AccountMigrationInProgress", "Preferences"}));
}

TEST_F(MigrationByManyTest, MindsNeitherALinkNorAFolderWhereItsMarkerBelongs) {
  const std::string victim = device.writeFile("victim", "whole");
  fs::create_symlink(victim, markerPath());
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::succeeded);
  fs::remove(markerPath());
  fs::create_directory(markerPath());
  writeRegistry(11);
  EXPECT_EQ(migrateIfNeeded().outcome, Outcome::succeeded);
  EXPECT_EQ(device.readFile("victim"), "whole");
  EXPECT_TRUE(fs::is_directory(markerPath()));
}

TEST_F(MigrationByManyTest, IsDoneOnceWhenAllStartTogetherAndTheLockHasYetToBeMade) {
  const auto migrate = [] { return !migrateIfNeeded().error; };
  for (std::size_t round = 1; round <= 200; ++round) {
    SCOPED_TRACE(round);
    writeRegistry(11);
    fs::remove(lockPath());
    const pid_t other = startProcess(migrate);
    EXPECT_TRUE(migrate());
    EXPECT_TRUE(endsWell(other));
    ASSERT_EQ(runsOfMigrator(), round);
  }
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
    EXPECT_EQ(formatted("%u:%u %u", status.st_uid, status.st_gid, status.st_mode & 07777),
              formatted("65534:65533 %u", 0660U))
        << path;
  }
}

TEST_F(MigrationTest, GivesTheLockUpHoweverItFailsAndLeavesTheRegistryRemoved) {
  struct Case {
    const char* name;
    const char* plugin;
    const char* order;
    Outcome outcome;
    std::string cause;
  };
  const std::string noCode = code() + ": cannot open shared object file: No such file or directory";
  const std::string noClass = accountMigratorPath() + " has no class AccountsDataMigrator";
  const char* const own = "old_mail_migrator";
  const Case cases[] = {
      {"no bundle", nullptr, "", Outcome::noMigrator, ""},
      {"a bundle without its code", "missing", "", Outcome::failed, noCode},
      {"another plug-in's code", "good", "", Outcome::failed, noClass},
      {"no instance", own, "none", Outcome::failed, "the class AccountsDataMigrator makes no instance"},
      {"an instance that refuses", own, "refuse", Outcome::failed, ""},
      {"an instance that throws", own, "throw", Outcome::failed, "the migrator failed: the list\\nis odd"}};
  writeOldMailList();
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    fs::remove_all(accountMigratorPath());
    if (each.plugin != nullptr) installMigrator(each.plugin);
    device.writeFile("migrator-order", each.order);
    writeRegistry(12);
    Lines lines{needsMigration(1, 0, 0), needsMigration(1, 0, 0)};
    if (!each.cause.empty()) {
      lines.push_back("Could not migrate accounts with " + accountMigratorPath() + ": " + each.cause);
    }
    if (each.outcome == Outcome::failed) lines.emplace_back(failed);
    const auto migrate = [&] {
      const MigrationReport report = migrateIfNeeded();
      EXPECT_EQ(report.outcome, each.outcome);
      EXPECT_TRUE(report.error && report.error->message.find('\n') == std::string::npos);
      EXPECT_EQ(log.lines(), lines);
      return !HasFailure();
    };
    // In a process of its own, because a class cannot be unregistered.
    EXPECT_TRUE(endsWell(startProcess(migrate)));
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
  const std::string notRemoved =
      "[+[AccountsManager(MigrationSupport) removeNewRosterToMigrateOldAccountInformation]] Could not "
      "remove " +
      path + ". Error could not remove " + path + ": Is a directory";
  EXPECT_EQ(log.lines(), (Lines{needsMigration(1, 0, 0), needsMigration(1, 0, 0), notRemoved, failed}));
  EXPECT_EQ(runsOfMigrator(), 1U);
}

TEST_F(MigrationTest, DoesNotBeginWithoutTheLock) {
  writeOldMailList();
  writeRegistry(12);
  fs::create_symlink(device.writeFile("elsewhere", ""), lockPath());
  const MigrationReport report = migrateIfNeeded();
  EXPECT_EQ(report.outcome, Outcome::notLocked);
  const std::string cause = "could not open " + lockPath() + ": Too many levels of symbolic links";
  EXPECT_EQ(report.error->message, "the migration lock cannot be had: " + cause);
  EXPECT_EQ(log.lines(),
            (Lines{needsMigration(1, 0, 0), "Could not take the lock AccountMigrationInProgress: " + cause}));
  EXPECT_TRUE(fs::exists(device.registryPath()));
}

}  // namespace
}  // namespace roster::testing
