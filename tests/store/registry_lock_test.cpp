#include "roster/store/registry_lock.h"

#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>

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

/// What all processes of a test count together, without locking it.
struct Counters {
  std::atomic<std::uint64_t> turns = 0;
  std::atomic<unsigned> running = 0;
};

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
  const std::function<bool(const Pipe&)> waysToLeaveAChild[] = {
      [](const Pipe& report) {
        const Result<RegistryLock> lock = RegistryLock::take(0ms);
        const pid_t child = startProcess([&] {
          const bool isRight = lock && !lock->isHeld() && !isFree() && RegistryLock::holder() == getppid();
          report.tell(isRight ? 'f' : 'x');
          return pause() == 0;
        });
        return child != -1 && pause() == 0;
      },
      [](const Pipe& report) {
        const Result<RegistryLock> lock = RegistryLock::take(0ms);
        std::array<char, 6> program{"sleep"};
        std::array<char, 5> time{"1000"};
        std::array<char*, 3> arguments{program.data(), time.data(), nullptr};
        pid_t child = 0;
        const int error = posix_spawnp(&child, "sleep", nullptr, nullptr, arguments.data(), environ);
        report.tell(lock && error == 0 ? 's' : 'x');
        return pause() == 0;
      }};
  for (const auto& leaveAChild : waysToLeaveAChild) {
    const Pipe report;
    const pid_t holder = startProcess([&] { return setpgid(0, 0) == 0 && leaveAChild(report); });
    const char kind = report.hear();
    EXPECT_NE(kind, 'x');
    EXPECT_FALSE(isFree());
    kill(holder, SIGKILL);
    EXPECT_FALSE(endsWell(holder));
    // A program that is being executed may not have come to closing its files.
    EXPECT_TRUE(RegistryLock::take(10s)) << "kept by a child: " << kind;
    EXPECT_EQ(kill(-holder, SIGKILL), 0) << "there was no child";
  }
}

TEST_F(RegistryLockTest, LetsEachOfManyProcessesHaveItsTurn) {
  constexpr unsigned processes = 8;
  constexpr unsigned turnsOfEach = 30;
  void* memory = mmap(nullptr, sizeof(Counters), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* shared = new (memory) Counters;
  const auto takeTurns = [&] {
    ++shared->running;
    while (shared->running < processes) std::this_thread::yield();
    std::uint64_t others = 0;
    for (unsigned turn = 0; turn < turnsOfEach; ++turn) {
      const std::uint64_t before = shared->turns;
      const Result<RegistryLock> lock = RegistryLock::take(1min);
      if (!lock) return false;
      others = std::max<std::uint64_t>(others, shared->turns - before);
      const std::uint64_t mine = shared->turns;
      const auto end = std::chrono::steady_clock::now() + 2ms;  // as long as a save
      while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
      shared->turns = mine + 1;
    }
    return others < std::uint64_t{turnsOfEach} * processes / 2;
  };
  std::vector<pid_t> started;
  for (unsigned process = 0; process < processes; ++process) started.push_back(startProcess(takeTurns));
  for (const pid_t process : started) EXPECT_TRUE(endsWell(process)) << "it starved";
  EXPECT_EQ(shared->turns, std::uint64_t{turnsOfEach} * processes) << "two held it at once";
  munmap(memory, sizeof(Counters));
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
    fs::create_symlink(device.writeFile("target", ""), file);
    EXPECT_EQ(errorOf(RegistryLock::take(1h)),
              "could not open " + file + ": Too many levels of symbolic links");
    fs::remove(file);
  }
  EXPECT_TRUE(isFree());
}

}  // namespace
}  // namespace roster::testing
