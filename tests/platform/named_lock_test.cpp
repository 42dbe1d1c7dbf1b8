#include "roster/platform/named_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>

#include "roster/platform/linux/file_calls.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

namespace fs = std::filesystem;

TEST(NamedLockTest, HasTheAccessOfItsModelAlsoWhenThatChanges) {
  const TemporaryDevice device;
  const std::string model = device.writeFile("var/lib/roster/folder/model", "");
  for (const unsigned mode : {0640U, 0664U, 0600U}) {
    fs::permissions(model, fs::perms(mode));
    EXPECT_TRUE(takeNamedLock("Turn", model));
    EXPECT_EQ(fs::status(device.path("var/lib/roster/Turn")).permissions(), fs::perms(mode));
  }
  if (geteuid() != 0) GTEST_SKIP() << "cannot give a file away";
  ASSERT_EQ(chown(model.c_str(), 65534, 65534), 0);
  EXPECT_TRUE(takeNamedLock("Turn", model));
  struct stat status {};
  EXPECT_EQ(stat(device.path("var/lib/roster/Turn").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534U);
}

TEST(NamedLockTest, IsThatOfTheFileAtItsPathThoughThatIsReplacedWhileItIsTaken) {
  const TemporaryDevice device;
  EXPECT_TRUE(takeNamedLock("Turn"));
  static int replacements;
  replacements = 2;
  FileCalls calls = fileCalls();
  calls.openat = [](int folder, const char* name, int flags, mode_t mode) {
    const int fd = ::openat(folder, name, flags, mode);
    if (std::string_view(name).ends_with("/Turn") && fd != -1 && replacements-- > 0) {
      EXPECT_EQ(unlink(name), 0);
      if (replacements > 0) close(::openat(folder, name, O_CREAT | O_CLOEXEC | O_WRONLY, 0600));
    }
    return fd;
  };
  // When it is made anew, somebody else has made it first.
  calls.linkat = [](int, const char*, int folder, const char* name, int) {
    close(::openat(folder, name, O_CREAT | O_CLOEXEC | O_WRONLY, 0600));
    errno = EEXIST;
    return -1;
  };
  const FileCallsOverride override(calls);
  const Result<std::shared_ptr<NamedLock>> lock = takeNamedLock("Turn");
  ASSERT_TRUE(lock);
  const int fd = open(device.path("var/lib/roster/Turn").c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), -1) << "another would hold it too";
  (*lock)->release();
  EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  close(fd);
}

}  // namespace
}  // namespace roster::testing
