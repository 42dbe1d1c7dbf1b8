#pragma once

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/file.h>

#include <filesystem>

#include "roster/migration/migration.h"
#include "tests/store/store_test.h"
#include "tests/support/own_process.h"

namespace roster::testing {

using Outcome = MigrationReport::Outcome;
namespace fs = std::filesystem;

inline constexpr const char* outOfDate = "Roster Version out of date: savedVersion=11, currentVersion=12";
inline std::string needsMigration(int mail, int syncAccounts, int registry) {
  return formatted(
      "Accounts settings needs migration! oldMailAccountsPresent=%d, oldTSAccountsPresent=%d, "
      "migrateNewAccountsInfo=%d",
      mail, syncAccounts, registry);
}

/// What one process sends to others, as often as they wait for it. Its fd is closed when the process ends.
struct Signal {
  void send() const { EXPECT_EQ(eventfd_write(fd, 1), 0); }
  void await() const {
    eventfd_t one = 0;
    EXPECT_EQ(eventfd_read(fd, &one), 0);
  }
  int fd = eventfd(0, EFD_SEMAPHORE | EFD_CLOEXEC);
};

/// The base of tests that migrate a device with the tests' migrator, whose class stays with the process.
class MigrationTest : public OwnProcessTest {
 protected:
  MigrationTest() {
    fs::create_directories(device.path("tmp"));
    installMigrator("old_mail_migrator");
  }
  static std::string code() { return accountMigratorPath() + "/AccountMigrator.so"; }
  static void installMigrator(const std::string& plugin) {
    fs::create_directories(accountMigratorPath());
    fs::create_symlink(ROSTER_TEST_PLUGINS "/" + plugin + ".so", code());
  }
  std::size_t runsOfMigrator() const { return device.readFile("migrations").size(); }
  void writeRegistry(int version) const {
    device.writePropertyList(device.registryPath(), Dictionary{{"Version", version}});
  }
  void writeOldMailList() const {
    const Array accounts = *array(Dictionary{{"UniqueID", "w"}, {"Title", "Work"}}).array();
    device.writePropertyList(mailAccountsPath(), Dictionary{{"MailAccounts", accounts}});
  }
  std::string lockPath() const { return device.path("var/lib/roster/AccountMigrationInProgress"); }
  std::string markerPath() const { return device.root() + kAccountMigrationLockFilename; }
  bool isLockFree() const {
    const int fd = open(lockPath().c_str(), O_RDONLY | O_CLOEXEC);
    const bool isFree = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return isFree;
  }
};

}  // namespace roster::testing
