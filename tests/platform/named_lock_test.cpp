#include "roster/platform/named_lock.h"

#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>

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
  const std::string path = device.path("tmp/Turn");
};

TEST_F(NamedLockTest, IsHeldByOneThreadAtATime) {
  std::atomic<int> inside = 0;
  const auto takeTurns = [&] {
    for (int turn = 0; turn < 1000; ++turn) {
      const Result<std::shared_ptr<NamedLock>> lock = takeNamedLock("Turn");
      EXPECT_TRUE(lock);
      EXPECT_EQ(++inside, 1);
      std::this_thread::yield();
      --inside;
      if (turn % 2 == 0) (*lock)->release();
    }
  };
  const std::jthread one(takeTurns);
  const std::jthread other(takeTurns);
}

TEST_F(NamedLockTest, IsOpenToEveryUserWhoeverMadeIt) {
  const mode_t previous = umask(077);
  EXPECT_TRUE(takeAndFree());
  umask(previous);
  EXPECT_EQ(fs::status(device.path("tmp")).permissions(), fs::perms(01777));
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0666));
  if (geteuid() != 0) GTEST_SKIP() << "cannot become another user";
  fs::permissions(device.root(), fs::perms(0755));
  EXPECT_TRUE(endsWell(startProcess([] { return setuid(65534) == 0 && takeAndFree(); })));
}

TEST_F(NamedLockTest, IsMadeAlsoWhereAnEarlierProcessOfTheSameIdentifierDiedMakingIt) {
  device.writeFile(path + "." + std::to_string(getpid()) + ".0.new", "");
  EXPECT_TRUE(takeAndFree());
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
