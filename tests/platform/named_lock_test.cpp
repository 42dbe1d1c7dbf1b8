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

// A lock is held by an object, and not by whoever remembers to unlock it.
template <class Lock>
concept Lockable = requires(Lock lock) {
  lock.lock();
};
static_assert(!Lockable<NamedLock>);

class NamedLockTest : public ::testing::Test {
 protected:
  static bool takeAndFree() { return bool(takeNamedLock("Turn")); }
  TemporaryDevice device;
  const std::string path = device.path("var/lib/roster/Turn");
};

TEST_F(NamedLockTest, HasTheAccessOfItsModelAlsoWhenThatChanges) {
  const std::string model = device.path("var/lib/roster/folder/model");
  fs::create_directories(device.path("var/lib/roster"));
  const mode_t previous = umask(077);
  EXPECT_TRUE(takeNamedLock("Turn", model));
  umask(previous);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600)) << "before there is a model";
  device.writeFile(model, "");
  for (const unsigned mode : {0640U, 0664U, 0600U}) {
    fs::permissions(model, fs::perms(mode));
    fs::remove(path);
    EXPECT_TRUE(takeNamedLock("Turn", model));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(mode)) << "made new";
    fs::permissions(path, fs::perms(0444));
    EXPECT_TRUE(takeNamedLock("Turn", model));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(mode)) << "there before";
  }
  if (geteuid() != 0) GTEST_SKIP() << "cannot become another user";
  fs::permissions(device.root(), fs::perms(0755));
  EXPECT_FALSE(endsWell(startProcess([] { return setuid(65534) == 0 && takeAndFree(); })));
  ASSERT_EQ(chown(model.c_str(), 65534, 65534), 0);
  EXPECT_TRUE(takeNamedLock("Turn", model));
  EXPECT_TRUE(endsWell(startProcess([] { return setuid(65534) == 0 && takeAndFree(); })));
  EXPECT_EQ(device.fileNames("var/lib/roster"), (std::vector<std::string>{"Turn", "folder"}));
}

TEST_F(NamedLockTest, IsThatOfTheFileAtItsPathThoughThatIsReplacedWhileItIsTaken) {
  EXPECT_TRUE(takeAndFree());
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
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_NE(fd, -1);
  EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), -1) << "another would hold it too";
  (*lock)->release();
  EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  close(fd);
}

TEST_F(NamedLockTest, IsNeverAnythingButARegularFile) {
  const auto failure = [] { return errorOf(takeNamedLock("Turn")); };
  fs::create_directories(path);
  EXPECT_EQ(failure(), "could not use " + path + ": it is not a regular file") << "but a folder";
  fs::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(failure(), "could not use " + path + ": it is not a regular file") << "but a pipe";
  fs::remove(path);
  fs::create_symlink(device.writeFile("target", ""), path);
  EXPECT_EQ(failure(), "could not open " + path + ": Too many levels of symbolic links");
}

}  // namespace
}  // namespace roster::testing
