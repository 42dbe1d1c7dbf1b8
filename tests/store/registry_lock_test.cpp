#include "roster/store/registry_lock.h"

#include <spawn.h>

#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

class RegistryLockTest : public ::testing::Test {
 protected:
  static bool isFree() { return bool(RegistryLock::take(0ms)); }
  static bool isFreeForAnotherThread() {
    bool isFreeThere = false;
    std::jthread([&] { isFreeThere = isFree(); }).join();
    return isFreeThere;
  }

  TemporaryDevice device;
  const std::string folder = device.path("var/lib/roster");
  const std::string path = folder + "/RegistryChange";
};

TEST_F(RegistryLockTest, IsHeldOncePerThreadUntilTheLastShareGoes) {
  Result<RegistryLock> outer = RegistryLock::take(0ms);
  ASSERT_TRUE(outer);
  {
    const Result<RegistryLock> inner = RegistryLock::take(0ms);
    ASSERT_TRUE(inner);
    const RegistryLock moved = *std::move(outer);
    EXPECT_TRUE(moved.isHeld() && inner->isHeld());
    EXPECT_FALSE(outer->isHeld());
    EXPECT_FALSE(isFreeForAnotherThread());
    outer = RegistryLock::take(0ms);
  }
  EXPECT_FALSE(isFreeForAnotherThread());
  std::jthread([last = *std::move(outer)] { EXPECT_TRUE(last.isHeld()); }).join();
  EXPECT_TRUE(isFreeForAnotherThread()) << "given up by another thread than took it";
  EXPECT_TRUE(isFree());
}

TEST_F(RegistryLockTest, EndsAWaitWithItsPatienceAndNamesTheHolder) {
  EXPECT_EQ(RegistryLock::holder(), std::nullopt);
  Pipe ready;
  Pipe end;
  const pid_t holder = startProcess([&] {
    end.onlyHear();
    const Result<RegistryLock> lock = RegistryLock::take(0ms);
    return lock && ready.tell('r') && end.hear() == '\0';
  });
  ASSERT_EQ(ready.hear(), 'r');
  EXPECT_EQ(RegistryLock::holder(), holder);
  for (const std::chrono::milliseconds patience : {-1ms, 0ms, 50ms}) {
    const auto start = std::chrono::steady_clock::now();
    const Result<RegistryLock> lock = RegistryLock::take(patience);
    ASSERT_FALSE(lock);
    EXPECT_GE(std::chrono::steady_clock::now() - start, patience);
    EXPECT_EQ(lock.error().code, std::errc::timed_out);
    EXPECT_EQ(errorOf(lock), formatted("could not lock %s: held by process %d", path, int{holder}));
  }
  std::jthread waiting([] { EXPECT_TRUE(RegistryLock::take(std::chrono::milliseconds::max())); });
  std::jthread alsoWaiting([] { EXPECT_TRUE(RegistryLock::take(1h)); });
  kill(holder, SIGKILL);
  EXPECT_FALSE(endsWell(holder));
}

TEST_F(RegistryLockTest, IsNotHeldByChildrenWhichItsHolderLeavesBehind) {
  for (const bool isForked : {true, false}) {
    const Pipe report;
    const pid_t holder = startProcess([&] {
      const Result<RegistryLock> lock = RegistryLock::take(0ms);
      const auto checkChild = [&] {
        const bool isRight = lock && !lock->isHeld() && !isFree() && RegistryLock::holder() == getppid();
        return report.tell(isRight ? 'r' : 'x') && pause() == 0;
      };
      std::array<char, 6> program{"sleep"};
      std::array<char, 5> time{"1000"};
      const std::array<char*, 3> arguments{program.data(), time.data(), nullptr};
      pid_t child = 0;
      if (setpgid(0, 0) != 0) return false;
      if (isForked) {
        startProcess(checkChild);
      } else {
        const int error = posix_spawnp(&child, "sleep", nullptr, nullptr, arguments.data(), environ);
        report.tell(lock && error == 0 ? 'r' : 'x');
      }
      return pause() == 0;
    });
    EXPECT_EQ(report.hear(), 'r');
    EXPECT_FALSE(isFree());
    kill(holder, SIGKILL);
    EXPECT_FALSE(endsWell(holder));
    // A program that is being executed may not have come to closing its files.
    EXPECT_TRUE(RegistryLock::take(10s)) << "kept by a child: " << isForked;
    EXPECT_EQ(kill(-holder, SIGKILL), 0) << "there was no child";
  }
}

TEST_F(RegistryLockTest, IsHeldByOneAtATimeAndLetsEachHaveItsTurn) {
  constexpr int takers = 8;
  constexpr int turnsOfEach = 30;
  std::atomic<int> turns = 0;
  std::atomic<int> running = 0;
  std::atomic<int> holders = 0;
  const auto takeTurns = [&] {
    ++running;
    while (running < takers) std::this_thread::yield();
    int others = 0;
    for (int turn = 0; turn < turnsOfEach; ++turn) {
      const int before = turns;
      const Result<RegistryLock> lock = RegistryLock::take(1min);
      others = std::max(others, turns - before);
      EXPECT_EQ(++holders, 1);
      const auto end = std::chrono::steady_clock::now() + 2ms;  // as long as a save
      while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
      --holders;
      ++turns;
    }
    EXPECT_LT(others, takers * turnsOfEach / 2) << "it starved";
  };
  std::vector<std::jthread> threads;
  for (int taker = 0; taker < takers; ++taker) threads.emplace_back(takeTurns);
}

TEST_F(RegistryLockTest, IsARegularFileWithTheAccessOfTheRegistryAndNothingElse) {
  fs::permissions(device.writeFile(device.registryPath(), ""), fs::perms(0640));
  EXPECT_TRUE(isFree());
  for (const std::string& file : {path, path + ".next"}) {
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0640));
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_EQ(errorOf(RegistryLock::take(1h)), "could not use " + file + ": it is not a regular file");
    fs::remove(file);
  }
}

}  // namespace
}  // namespace roster::testing
