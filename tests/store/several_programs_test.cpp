#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "roster/platform/linux/file_calls.h"
#include "roster/store/registry_lock.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

constexpr int programs = 8;
constexpr int sharedAccounts = 50;

/// How many syncs each program makes.
int syncs() { return areTestsLong() ? 500 : 60; }

std::string sharedName(int index) { return "shared-" + std::to_string(index); }

/// A program that changes accounts that all share and some of its own, and knows what must be there in the
/// end.
class Program {
 public:
  explicit Program(int number) : mark_("p" + std::to_string(number)) {}

  /// Whether every sync went well. The expectation is written to the file.
  bool run(const std::string& expectationPath) {
    for (int round = 0; round < syncs(); ++round) {
      changeShared(store_->accountWithIdentifier(sharedName(static_cast<int>(draw() % sharedAccounts))),
                   round);
      changeOwn(round);
      const SyncResult result = store_->sync(std::chrono::seconds(60));
      EXPECT_FALSE(result.error) << result.error->message;
      if (result.error) return false;
    }
    MutableDictionary expected;
    for (const auto& [name, value] : expected_) expected.set(name, value);
    const Result<std::string> bytes = binaryPropertyList(expected);
    return bytes && device_->writeFile(expectationPath, *bytes) == expectationPath;
  }
  void useDevice(const TemporaryDevice& device) { device_ = &device; }

 private:
  unsigned draw() { return state_ = state_ * 1664525U + 1013904223U, state_ >> 8U; }

  void changeShared(const AccountPtr& account, int round) {
    const std::string name = account->identifier().str();
    account->setAccountPropertyForKey(round, "key " + mark_);
    expected_[name + "|key"] = round;
    StringList enabled =
        stringList(account->accountPropertyForKey("Enabled Dataclasses")).value_or(StringList());
    const bool isOn = std::erase(enabled, mark_) == 0;
    if (isOn) enabled.push_back(mark_);
    account->setAccountPropertyForKey(arrayValue(enabled), "Enabled Dataclasses");
    expected_[name + "|on"] = isOn;
    const std::string child = name + " " + mark_;
    const bool isBorn = store_->childAccountWithIdentifier(child) == nullptr;
    if (isBorn) store_->addChildToAccount(record(child), account);
    if (!isBorn) store_->removeChildWithIdentifierFromAccount(child, account);
    expected_[name + "|child"] = isBorn;
  }

  void changeOwn(int round) {
    const std::string added = mark_ + "-" + std::to_string(round);
    store_->insertAccount(record(added));
    expected_[added + "|own"] = true;
    const std::string former = mark_ + "-" + std::to_string(round - 3);
    store_->deleteAccountWithIdentifier(former);
    if (round >= 3) expected_[former + "|own"] = false;
  }

  std::string mark_;
  unsigned state_ = static_cast<unsigned>(std::hash<std::string>()(mark_));
  Store store_ = AccountsManager::init();
  const TemporaryDevice* device_ = nullptr;
  std::map<std::string, Value> expected_;
};

class SeveralProgramsTest : public StoreTest {
 protected:
  void SetUp() override {
    std::vector<Value> accounts;
    for (int index = 0; index < sharedAccounts; ++index) accounts.emplace_back(stored(sharedName(index)));
    device.writePropertyList(device.registryPath(),
                             Dictionary{{"Accounts", Array(accounts)}, {"Version", 12}});
  }

  std::string expectationPath(int number) const { return device.path("expected-" + std::to_string(number)); }

  /// Runs the programs, and beside them what else goes on until they have ended. Returns whether all ended
  /// well.
  bool run(const std::vector<std::function<bool()>>& beside) const {
    std::vector<pid_t> running;
    for (int number = 0; number < programs; ++number) {
      running.push_back(startProcess([&, number] {
        Program program(number);
        program.useDevice(device);
        return program.run(expectationPath(number));
      }));
    }
    std::vector<pid_t> others;
    for (const auto& work : beside) {
      others.push_back(startProcess([&] {
        while (!std::filesystem::exists(device.path("stop"))) {
          if (!work()) return false;
          usleep(1000);
        }
        return true;
      }));
    }
    bool isWell = true;
    for (const pid_t process : running) isWell = endsWell(process) && isWell;
    device.writeFile("stop", "");
    for (const pid_t process : others) isWell = endsWell(process) && isWell;
    return isWell;
  }

  /// What a program expects and the registry does not have, by what it is.
  std::map<std::string, int> losses() const {
    const Store store = AccountsManager::init();
    std::map<std::string, int> lost;
    for (int number = 0; number < programs; ++number) {
      const std::string mark = "p" + std::to_string(number);
      const Result<Dictionary> expected = readDictionaryFile(expectationPath(number));
      for (const DictionaryEntry& entry : *expected) {
        const std::string key = entry.key.str();
        const std::string name = key.substr(0, key.find('|'));
        const std::string what = key.substr(key.find('|') + 1);
        const AccountPtr account = store->accountWithIdentifier(name);
        Value found = account != nullptr;
        if (what == "key" && account) found = account->accountPropertyForKey("key " + mark);
        if (what == "on" && account)
          found = contains(
              stringList(account->accountPropertyForKey("Enabled Dataclasses")).value_or(StringList()), mark);
        if (what == "child") found = store->childAccountWithIdentifier(name + " " + mark) != nullptr;
        if (!(found == entry.value)) ++lost[what];
      }
    }
    return lost;
  }
};

bool readsWell() {
  const Store store = AccountsManager::init();
  return !store->loadError() && store->count() >= sharedAccounts;
}

TEST_F(SeveralProgramsTest, NothingIsLostBetweenProgramsThatSync) {
  EXPECT_TRUE(run({readsWell, readsWell}));
  EXPECT_EQ(losses(), (std::map<std::string, int>()));
  EXPECT_EQ(kept(), std::vector<std::string>()) << "no temporary file, no damaged one";
}

TEST_F(SeveralProgramsTest, AnOldSaverAmongThemTakesNoMoreThanItAlwaysDid) {
  const auto savesAsEver = [store = AccountsManager::init(), round = 0]() mutable {
    store->accountWithIdentifier(sharedName(0))->setAccountPropertyForKey(++round, "key of the saver");
    store->saveAllAccounts();
    usleep(5000);
    return !store->lastSaveError();
  };
  EXPECT_TRUE(run({savesAsEver, readsWell}));
  std::map<std::string, int> lost = losses();
  for (const auto& [what, count] : lost) RecordProperty("lost " + what, count);
  // Accounts that others add disappear, and children are one property to it. Properties are lost only when it
  // was kept from writing so often that it wrote over what it had not read.
  EXPECT_LE(lost["key"] + lost["on"], programs * syncs() / 10);
}

/// Makes the process die at one of its file operations.
class Death {
 public:
  explicit Death(int step) : override_(deadly(step)) {}

 private:
  static inline int left = 0;
  static FileCalls real() { return fileCalls(); }
  static inline FileCalls calls{};

  static bool isAlive() {
    if (left-- == 0) static_cast<void>(raise(SIGKILL));
    return true;
  }
  static FileCalls deadly(int step) {
    left = step;
    calls = real();
    FileCalls dying = calls;
    dying.openat = [](int folder, const char* path, int flags, mode_t mode) {
      return isAlive() ? calls.openat(folder, path, flags, mode) : -1;
    };
    dying.write = [](int fd, const void* bytes, std::size_t size) {
      return isAlive() ? calls.write(fd, bytes, size) : -1;
    };
    dying.fsync = [](int fd) { return isAlive() ? calls.fsync(fd) : -1; };
    dying.renameat = [](int from, const char* name, int to, const char* other) {
      return isAlive() ? calls.renameat(from, name, to, other) : -1;
    };
    dying.fstatat = [](int folder, const char* path, struct stat* status, int flags) {
      return isAlive() ? calls.fstatat(folder, path, status, flags) : -1;
    };
    return dying;
  }

  FileCallsOverride override_;
};

TEST_F(SeveralProgramsTest, TheNextWriterGoesOnAfterOneThatWasKilled) {
  const auto addOne = [](const std::string& name) {
    const Store store = AccountsManager::init();
    store->insertAccount(record(name));
    return !store->sync(std::chrono::seconds(2)).error;
  };
  bool hasEnded = false;
  int step = 0;
  for (; !hasEnded && step < 200; ++step) {
    hasEnded = endsWell(startProcess([&] {
      const Store store = AccountsManager::init();
      store->insertAccount(record("killed-" + std::to_string(step)));
      const Death death(step);
      return !store->sync(std::chrono::seconds(2)).error;
    }));
    ASSERT_TRUE(addOne("next-" + std::to_string(step))) << step;
    ASSERT_EQ(kept(), std::vector<std::string>()) << "leftovers of step " << step;
    ASSERT_FALSE(RegistryLock::holder());
  }
  EXPECT_TRUE(hasEnded);
  EXPECT_GT(step, 8) << "it was killed at every step";
  const Store store = AccountsManager::init();
  for (int each = 0; each < step; ++each)
    EXPECT_NE(store->accountWithIdentifier("next-" + std::to_string(each)), nullptr) << each;
}

}  // namespace
}  // namespace roster::testing
