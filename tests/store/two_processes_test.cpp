#include <array>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

/// A gate that one process opens for another.
class Gate {
 public:
  Gate() { EXPECT_EQ(pipe(ends_.data()), 0); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  ~Gate() {
    close(ends_[0]);
    close(ends_[1]);
  }
  void open() const { EXPECT_EQ(write(ends_[1], "x", 1), 1); }
  void pass() const {
    char byte = 0;
    EXPECT_EQ(read(ends_[0], &byte, 1), 1);
  }

 private:
  std::array<int, 2> ends_{};
};

class TwoProcessesTest : public StoreTest {};

TEST_F(TwoProcessesTest, ThatChangeDifferentKeysOfOneAccountLoseNeither) {
  writeRegistry(stored("a", {{"DisplayName", "old"}, {"Username", "old"}}));
  const Gate firstHasLoaded;
  const Gate secondHasSaved;
  const auto change = [](const Store& store, std::string_view key) {
    store->accountWithIdentifier("a")->setAccountPropertyForKey("new", key);
    store->saveAllAccounts();
    return store->lastSaveError().empty();
  };
  const pid_t first = startProcess([&] {
    const Store store = AccountsManager::init();
    firstHasLoaded.open();
    secondHasSaved.pass();
    return change(store, "DisplayName");
  });
  const pid_t second = startProcess([&] {
    firstHasLoaded.pass();
    const bool isSaved = change(AccountsManager::init(), "Username");
    secondHasSaved.open();
    return isSaved;
  });
  EXPECT_TRUE(endsWell(second));
  EXPECT_TRUE(endsWell(first));
  EXPECT_EQ(storedAccount(0), stored("a", {{"DisplayName", "new"}, {"Username", "new"}}));
}

TEST_F(TwoProcessesTest, NeverMeetAHalfWrittenFile) {
  constexpr int rounds = 100;
  std::vector<Value> accounts;
  for (int i = 0; i < 200; ++i) accounts.emplace_back(stored("a" + std::to_string(i)));
  device.writePropertyList(device.registryPath(), Dictionary{{"Accounts", Array(accounts)}});
  const auto write = [&](std::string_view key) {
    const Store store = AccountsManager::init();
    for (int round = 0; round < rounds; ++round) {
      store->accountWithIdentifier("a7")->setAccountPropertyForKey(round, key);
      store->saveAllAccounts();
      if (!store->lastSaveError().empty()) return false;
    }
    return true;
  };
  const pid_t first = startProcess([&] { return write("First"); });
  const pid_t second = startProcess([&] { return write("Second"); });
  for (int round = 0; round < rounds; ++round) EXPECT_EQ(AccountsManager::init()->count(), accounts.size());
  EXPECT_TRUE(endsWell(first));
  EXPECT_TRUE(endsWell(second));
  EXPECT_EQ(files(), Lines{std::string(fileName)});
  EXPECT_EQ(log.lines(), Lines());
}

}  // namespace
}  // namespace roster::testing
