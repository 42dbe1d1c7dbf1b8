#include "roster/store/registry_watch.h"

#include <poll.h>

#include <cstdio>
#include <filesystem>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

namespace fs = std::filesystem;

class RegistryWatchTest : public StoreTest {
 protected:
  /// What is told until nothing more comes.
  static std::string told(RegistryWatch& watch) {
    std::string text;
    pollfd ready{watch.descriptor(), POLLIN, 0};
    while (poll(&ready, 1, 100) == 1) {
      const Result<bool> done = watch.dispatch([&](const AccountChange& change) {
        text += "+*-"[static_cast<std::size_t>(change.type)] + change.identifier().str() + " ";
      });
      if (!done) text += "error ";
    }
    return text;
  }
  template <class... Accounts>
  void replaceRegistry(const Accounts&... accounts) const {
    const std::string beside = device.path("beside");
    device.writePropertyList(beside, Dictionary{{"Accounts", array(accounts...)}, {"Version", 12}});
    fs::rename(beside, device.registryPath());
  }
};

TEST_F(RegistryWatchTest, TellsEachNetChangeOnceWhateverHappensToThePath) {
  const std::unique_ptr<RegistryWatch> watch = *RegistryWatch::watch();
  EXPECT_EQ(told(*watch), "");
  writeRegistry(stored("A"), stored("B"));
  EXPECT_EQ(told(*watch), "+A +B ") << "the folders were made too";
  replaceRegistry(stored("A", {{"x", 1}}), stored("C"));
  EXPECT_EQ(told(*watch), "-B +C *A ");
  device.writeFile(device.registryPath(), "garbage");
  EXPECT_EQ(told(*watch), "error ");
  replaceRegistry(stored("C"));
  EXPECT_EQ(told(*watch), "-A ");
  const std::string place = fs::path(device.registryPath()).parent_path();
  fs::rename(place, place + ".old");
  EXPECT_EQ(told(*watch), "-C ");
  fs::create_directory_symlink(place + ".old", place);
  EXPECT_EQ(told(*watch), "+C ") << "led elsewhere by a link";
  replaceRegistry(stored("C"));
  EXPECT_EQ(told(*watch), "") << "another file, the same accounts";
}

TEST_F(RegistryWatchTest, RefreshesAStoreAndTellsNothingThatTheStoreDid) {
  writeRegistry(stored("A"));
  const Store store = AccountsManager::init();
  replaceRegistry(stored("A"), stored("B"));
  std::unique_ptr<RegistryWatch> watch = *RegistryWatch::watchFor(store);
  EXPECT_EQ(told(*watch), "+B ") << "what happened before the watch";
  store->insertAccount(record("C"));
  EXPECT_FALSE(store->sync(std::chrono::seconds(1)).error);
  store->saveAllAccounts();
  EXPECT_EQ(told(*watch), "");
  replaceRegistry(stored("A", {{"x", 1}}), stored("C"));
  EXPECT_TRUE(watch->dispatch([&](const AccountChange&) { watch.reset(); }))
      << "the handler may end the watch";
  EXPECT_EQ(identifiers(*store->allBasicAccounts()), "A C");
}

}  // namespace
}  // namespace roster::testing
