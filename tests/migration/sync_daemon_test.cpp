#include <dlfcn.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>

#include "roster/migration/migration.h"
#include "roster/platform/assertion.h"
#include "roster/platform/device.h"
#include "roster/platform/event_loop.h"
#include "roster/platform/resources.h"
#include "tests/migration/migration_test.h"
#include "tests/support/private_bus.h"

namespace roster::testing {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char* asked = "Performing account migration. Asking tesserad to exit";
constexpr const char* noBus =
    "Could not post the notification com.nimbal.Harbor.BackupAgent.WillStart: could not open the system bus: "
    "No such file or directory";
constexpr const char* killed = "tesserad does not seem to want to quit. Sending it a SIGKILL";

bool listenToNobody(const Signal& isReady) {
  isReady.send();
  while (true) pause();
}
/// Ends with the first signal; true when that is the request.
bool listenToTheBus(const Signal& isReady) {
  SignalListener listener("com.nimbal.Harbor.BackupAgent");
  isReady.send();
  return listener.next() == Lines{"/com/nimbal/Harbor/BackupAgent", "WillStart"};
}
/// Puts one variable in place of what the system shows as this process's environment.
bool replaceFirstEnvironment(const std::string& variable) {
  std::ifstream stat("/proc/self/stat");
  std::string field;
  for (int number = 1; number < 50; ++number) stat >> field;  // no blank is in the test program's name
  std::uintptr_t begin = 0, end = 0;
  stat >> begin >> end;
  if (!stat || end - begin <= variable.size()) return false;
  auto* const memory = reinterpret_cast<char*>(begin);  // NOLINT(performance-no-int-to-ptr)
  std::memset(memory, 0, end - begin);
  std::memcpy(memory, variable.data(), variable.size());
  return true;
}
/// Starts a process with the daemon's name, on this device or another. It ends when the test's process does,
/// or before.
pid_t startDaemon(bool (*life)(const Signal& isReady) = &listenToNobody, uid_t user = geteuid(),
                  const std::string& root = deviceRoot()) {
  const Signal isReady;
  const pid_t process = startProcess([&] {
    EXPECT_TRUE(user == geteuid() || setuid(user) == 0);
    // A process shows the root that it was started with, a forked one that of the test program.
    EXPECT_TRUE(replaceFirstEnvironment("ROSTER_ROOT=" + root));
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NAME, "tesserad");
    return life(isReady);
  });
  isReady.await();
  return process;
}
/// Gives up the right to signal processes of other users.
bool giveUpKilling() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, 2> rights{};
  if (syscall(SYS_capget, &header, rights.data()) != 0) return false;
  rights[0].effective &= ~(1U << CAP_KILL);
  return syscall(SYS_capset, &header, rights.data()) == 0;
}
bool runs(pid_t process) { return waitpid(process, nullptr, WNOHANG) == 0; }

class MigrationDaemonTest : public MigrationTest {
 protected:
  void SetUp() override {
    MigrationTest::SetUp();
    if (resourcePath("WebEngine", "so").empty()) GTEST_SKIP() << "needs ROSTER_RESOURCES, as ctest sets it";
    ASSERT_GE(sd_event_default(&loop), 0);
  }
  void TearDown() override { sd_event_unref(loop); }

  /// Has the thread's event loop call a function in its next turn.
  void later(std::function<void()> something) {
    work = std::move(something);
    const auto handler = [](sd_event_source*, void* test) {
      static_cast<MigrationDaemonTest*>(test)->work();
      return 0;
    };
    ASSERT_GE(sd_event_add_defer(loop, nullptr, handler, this), 0);
  }
  sd_event* loop = nullptr;
  std::function<void()> work;
};

TEST_F(MigrationDaemonTest, QuitsWhenAskedAlsoFromWithinAnEventHandler) {
  const PrivateBus bus(device);
  const pid_t first = startDaemon(&listenToTheBus);
  AccountsManager::killTesseraIfNecessary();
  EXPECT_TRUE(endsWell(first));
  const pid_t second = startDaemon(&listenToTheBus);
  later(&AccountsManager::killTesseraIfNecessary);
  sd_event_run(loop, 0);
  EXPECT_TRUE(endsWell(second));
  EXPECT_EQ(log.lines(), (Lines{asked, asked}));
}

TEST_F(MigrationDaemonTest, IsKilledAfterFiveSecondsWhenItDoesNotListen) {
  const pid_t daemon = startDaemon();
  const Clock::time_point start = Clock::now();
  AccountsManager::killTesseraIfNecessary();
  EXPECT_GT(Clock::now() - start, 5s);
  EXPECT_FALSE(endsWell(daemon));
  EXPECT_EQ(log.lines(), (Lines{asked, noBus, killed}));
}

TEST_F(MigrationDaemonTest, CountsAsGoneWhenAnotherProcessHasItsName) {
  const pid_t one = startDaemon();
  const pid_t other = startDaemon();
  later([] {
    const auto named = static_cast<id_t>(_PIDForProcessNamed("tesserad"));
    kill(static_cast<pid_t>(named), SIGKILL);
    siginfo_t death{};
    waitid(P_PID, named, &death, WEXITED | WNOWAIT);  // for `runs`, to which a dying process still runs
  });
  AccountsManager::killTesseraIfNecessary();
  EXPECT_NE(runs(one), runs(other));
  EXPECT_EQ(log.lines(), (Lines{asked, noBus}));
}

TEST_F(MigrationDaemonTest, IsOnlyThatOfTheSameDeviceAndNeverTheProcessItself) {
  EXPECT_TRUE(endsWell(startProcess([&] {
    prctl(PR_SET_NAME, "tesserad");
    AccountsManager::killTesseraIfNecessary();
    return log.lines().empty();
  })));
  const pid_t ofTheRealDevice = startDaemon(&listenToNobody, geteuid(), "");
  const pid_t ofAnotherDevice = startDaemon(&listenToNobody, geteuid(), device.root() + "-2");
  AccountsManager::killTesseraIfNecessary();
  EXPECT_TRUE(runs(ofTheRealDevice) && runs(ofAnotherDevice));
  EXPECT_EQ(log.lines(), Lines());
  const pid_t own = startDaemon(&listenToNobody, geteuid(), device.root() + "/");
  EXPECT_EQ(_PIDForProcessNamed("tesserad"), own);
  device.setEnvironment("ROSTER_ROOT", {});
  const int found = _PIDForProcessNamed("tesserad");
  EXPECT_TRUE(found != own && found != -1);
}

TEST_F(MigrationDaemonTest, HasToBeLivedWithWhenItCannotBeKilled) {
  if (geteuid() != 0) GTEST_SKIP() << "cannot give up rights";
  const pid_t daemon = startDaemon(&listenToNobody, 65534);
  if (_PIDForProcessNamed("tesserad") != daemon) GTEST_SKIP() << "cannot look at processes of other users";
  EXPECT_TRUE(endsWell(startProcess([&] {
    const Clock::time_point start = Clock::now();
    EXPECT_TRUE(giveUpKilling());
    AccountsManager::killTesseraIfNecessary();
    EXPECT_GT(Clock::now() - start, 10s);
    EXPECT_EQ(linesWith(log.lines(), "could not kill the process"), 1U);
    EXPECT_TRUE(log.lines().back().starts_with("tesserad decided it didn't want to play well with others"));
    return !HasFailure();
  })));
  EXPECT_TRUE(runs(daemon));
}

TEST_F(MigrationDaemonTest, LeavesTheWebEnginesLockAsItWasThoughTheEventLoopLetsItGo) {
  void* engine = dlopen(resourcePath("WebEngine", "so").c_str(), RTLD_NOW);
  ASSERT_NE(engine, nullptr);
  const auto release = reinterpret_cast<void (*)()>(dlsym(engine, "webEngineReleaseThreadLock"));
  for (const bool wasHeld : {false, true}) {
    const pid_t daemon = startDaemon();
    ASSERT_TRUE(!wasHeld || takeWebEngineThreadLock());
    later([&] {
      release();
      EXPECT_FALSE(*isWebEngineThreadLockHeld());
      kill(daemon, SIGKILL);
    });
    AccountsManager::killTesseraIfNecessary();
    EXPECT_EQ(*isWebEngineThreadLockHeld(), wasHeld);
    EXPECT_FALSE(endsWell(daemon));
  }
}

TEST_F(MigrationDaemonTest, FailsAnAssertionAndFreesTheLockWhenTheWebEngineIsNone) {
  useOwnResources();
  const std::string engine = device.writeFile("resources/WebEngine.so", "not a library");
  writeRegistry(11);
  const pid_t daemon = startDaemon();
  EXPECT_THROW(static_cast<void>(migrateIfNeeded()), AssertionFailure);
  EXPECT_EQ(linesWith(log.lines(), "AccountsManager.cpp"), 1U);
  EXPECT_EQ(linesWith(log.lines(), "the web engine's thread lock: " + engine + ": file too short"), 1U);
  EXPECT_TRUE(isLockFree());
  EXPECT_TRUE(runs(daemon));
}

}  // namespace
}  // namespace roster::testing
