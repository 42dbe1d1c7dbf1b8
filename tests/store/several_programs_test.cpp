#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "roster/store/registry_lock.h"
#include "tests/store/store_test.h"
#include "tests/store/watched_calls.h"

namespace roster::testing {
namespace {

constexpr int programs = 8;
constexpr int sharedAccounts = 50;

/// How many syncs each program makes.
int syncs() { return areTestsLong() ? 500 : 60; }

std::string sharedName(int index) { return "shared-" + std::to_string(index); }

StringList enabledOf(const AccountPtr& account) {
  return stringList(account->accountPropertyForKey("Enabled Dataclasses")).value_or(StringList());
}

/// A program that changes accounts that all share and some of its own. What it does follows from its number
/// and the round alone, so that the test, which replays it without a store, knows what must be there in the
/// end.
class Program {
 public:
  explicit Program(int number)
      : mark_("p" + std::to_string(number)), state_(static_cast<unsigned>(std::hash<std::string>()(mark_))) {}

  void change(int round, const Store& store) {
    state_ = state_ * 1664525U + 1013904223U;
    const std::string name = sharedName(static_cast<int>((state_ >> 8U) % sharedAccounts));
    Shared& shared = shared_[name];
    shared = {round, !shared.isOn};
    if (!store) return;
    const AccountPtr account = store->accountWithIdentifier(name);
    account->setAccountPropertyForKey(round, "key " + mark_);
    StringList enabled = enabledOf(account);
    std::erase(enabled, mark_);
    if (shared.isOn) enabled.push_back(mark_);
    account->setAccountPropertyForKey(arrayValue(enabled), "Enabled Dataclasses");
    const std::string child = name + " " + mark_;
    const bool isBorn = shared.isOn && store->childAccountWithIdentifier(child) == nullptr;
    if (isBorn) store->addChildToAccount(record(child), account);
    if (!shared.isOn) store->removeChildWithIdentifierFromAccount(child, account);
    store->insertAccount(record(ownName(round)));
    store->deleteAccountWithIdentifier(ownName(round - 3));
  }

  struct Losses {
    int properties = 0;
    int accounts = 0;
  };
  /// Counts what the store does not have as it should after all rounds.
  void count(Losses& lost, const AccountsManager& store) const {
    for (const auto& [name, shared] : shared_) {
      const AccountPtr account = store.accountWithIdentifier(name);
      const bool isChild = store.childAccountWithIdentifier(name + " " + mark_) != nullptr;
      if (!account || account->accountPropertyForKey("key " + mark_) != Value(shared.round))
        ++lost.properties;
      if (!account || contains(enabledOf(account), mark_) != shared.isOn) ++lost.properties;
      if (isChild != shared.isOn) ++lost.accounts;
    }
    for (int round = 0; round < syncs(); ++round) {
      const bool isThere = store.accountWithIdentifier(ownName(round)) != nullptr;
      if (isThere != (round + 3 >= syncs())) ++lost.accounts;
    }
  }

 private:
  std::string ownName(int round) const { return mark_ + "-" + std::to_string(round); }

  struct Shared {
    int round = 0;
    /// A dataclass of the program's and a child, both.
    bool isOn = false;
  };
  std::string mark_;
  unsigned state_;
  std::map<std::string, Shared> shared_{};
};

class SeveralProgramsTest : public StoreTest {
 protected:
  void SetUp() override {
    std::vector<Value> accounts;
    for (int index = 0; index < sharedAccounts; ++index) accounts.emplace_back(stored(sharedName(index)));
    device.writePropertyList(device.registryPath(),
                             Dictionary{{"Accounts", Array(accounts)}, {"Version", 12}});
  }

  static bool runProgram(int number) {
    const Store store = AccountsManager::init();
    Program program(number);
    for (int round = 0; round < syncs(); ++round) {
      program.change(round, store);
      const SyncResult result = store->sync(std::chrono::seconds(60));
      EXPECT_FALSE(result.error) << result.error->message;
      if (result.error) return false;
    }
    return true;
  }
  /// Runs the programs, and beside them what else goes on until they have ended. Returns what is lost then.
  Program::Losses lossesBeside(const std::vector<std::function<bool()>>& beside) const {
    std::vector<pid_t> running;
    for (int number = 0; number < programs; ++number)
      running.push_back(startProcess([number] { return runProgram(number); }));
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
    for (const pid_t process : running) EXPECT_TRUE(endsWell(process));
    device.writeFile("stop", "");
    for (const pid_t process : others) EXPECT_TRUE(endsWell(process));
    Program::Losses lost;
    for (int number = 0; number < programs; ++number) {
      Program program(number);
      for (int round = 0; round < syncs(); ++round) program.change(round, nullptr);
      program.count(lost, *AccountsManager::init());
    }
    return lost;
  }
};

bool readsWell() {
  const Store store = AccountsManager::init();
  return !store->loadError() && store->count() >= sharedAccounts;
}

TEST_F(SeveralProgramsTest, NothingIsLostBetweenProgramsThatSync) {
  const Program::Losses lost = lossesBeside({readsWell, readsWell});
  EXPECT_EQ(lost.properties + lost.accounts, 0);
  EXPECT_EQ(kept(), std::vector<std::string>()) << "no temporary file, no damaged one";
}

TEST_F(SeveralProgramsTest, AnOldSaverAmongThemTakesNoMoreThanItAlwaysDid) {
  const auto savesAsEver = [store = AccountsManager::init(), round = 0]() mutable {
    store->accountWithIdentifier(sharedName(0))->setAccountPropertyForKey(++round, "key of the saver");
    store->saveAllAccounts();
    usleep(5000);
    return !store->lastSaveError();
  };
  // Accounts that others add disappear, and children are one property to it. Properties are lost only when it
  // was kept from writing so often that it wrote over what it had not read, which depends on the machine: of
  // two for each sync, half must be there even on a busy one.
  const Program::Losses lost = lossesBeside({savesAsEver, readsWell});
  RecordProperty("lost properties", lost.properties);
  RecordProperty("lost accounts", lost.accounts);
  EXPECT_LE(lost.properties, programs * syncs());
}

TEST_F(SeveralProgramsTest, TheNextWriterGoesOnAfterOneThatWasKilled) {
  const auto add = [](const std::string& name) {
    const Store store = AccountsManager::init();
    store->insertAccount(record(name));
    return !store->sync(std::chrono::seconds(2)).error;
  };
  bool hasEnded = false;
  int step = 0;
  for (; !hasEnded && step < 200; ++step) {
    hasEnded = endsWell(startProcess([&] {
      const WatchedCalls deadly(
          [left = step](auto, auto&) mutable { return left-- == 0 ? raise(SIGKILL) : 0; });
      return add("killed-" + std::to_string(step));
    }));
    ASSERT_TRUE(add("next-" + std::to_string(step))) << step;
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
