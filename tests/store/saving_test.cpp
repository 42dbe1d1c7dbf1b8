#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <limits>

#include "platform/linux/file_calls.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

constexpr std::string_view failure = "Failed to save accounts to filesystem.";

/// Which of the system's calls fails, and how often it was not its turn yet.
struct Failing {
  std::string call{};
  int number = 0;
};
Failing failing;

template <class Call>
auto unlessFailing(std::string_view name, Call call) -> decltype(call()) {
  if (failing.call != name) return call();
  errno = failing.number;
  return -1;
}

FileCalls failingCalls() {
  static const FileCalls real = fileCalls();
  FileCalls calls = real;
  calls.openat = [](int folder, const char* path, int flags, mode_t mode) {
    const std::string_view name = (flags & O_CREAT) != 0 ? "create" : "open";
    return unlessFailing(name, [&] { return real.openat(folder, path, flags, mode); });
  };
  calls.write = [](int file, const void* buffer, std::size_t size) {
    return unlessFailing("write", [&] { return real.write(file, buffer, size); });
  };
  calls.fchmod = [](int file, mode_t mode) {
    return unlessFailing("chmod", [&] { return real.fchmod(file, mode); });
  };
  calls.fsync = [](int file) { return unlessFailing("sync", [&] { return real.fsync(file); }); };
  calls.linkat = [](int from, const char* path, int to, const char* copy, int flags) {
    return unlessFailing("link", [&] { return real.linkat(from, path, to, copy, flags); });
  };
  calls.renameat = [](int from, const char* path, int to, const char* target) {
    return unlessFailing("rename", [&] { return real.renameat(from, path, to, target); });
  };
  return calls;
}

class SavingTest : public StoreTest {
 protected:
  SavingTest() { failing = {}; }

  static void set(const Store& store, const Value& value, std::string_view key,
                  std::string_view identifier = "a") {
    store->accountWithIdentifier(identifier)->setAccountPropertyForKey(value, key);
  }
  std::string registry() const { return device.readFile(device.registryPath()); }
  /// The names of the damaged files that were kept.
  Lines kept() const {
    Lines names = files();
    std::erase(names, fileName);
    return names;
  }
};

TEST_F(SavingTest, MakesTheFileWithTheVersionAndTheAccountsInOrder) {
  const Store store = AccountsManager::init();
  store->insertAccount(record("b", {{"DisplayName", "two"}}));
  store->insertAccount(record("a"));
  store->setDataVersion(3);
  store->saveAllAccounts();
  EXPECT_EQ(root(), (Dictionary{{"Version", 12},
                                {"Accounts", array(stored("b", {{"DisplayName", "two"}}), stored("a"))}}));
  EXPECT_EQ(store->lastSaveError(), "");
  EXPECT_EQ(files(), Lines{std::string(fileName)});
  EXPECT_EQ(log.lines(), Lines());
}

TEST_F(SavingTest, MergesWithWhatAnotherStoreWrote) {
  writeRegistry(stored("a", {{"DisplayName", "old"}, {"Username", "old"}, {"Note", 1}, {"Gone", 1}}));
  const Store first = AccountsManager::init();
  const Store second = AccountsManager::init();
  set(first, "first", "DisplayName");
  set(first, "first", "Hostname");
  set(first, {}, "Gone");
  set(first, 2, "Note");
  first->saveAllAccounts();
  set(second, "second", "Username");
  set(second, {}, "Note");
  second->saveAllAccounts();
  const Dictionary both =
      stored("a", {{"DisplayName", "first"}, {"Username", "second"}, {"Hostname", "first"}});
  EXPECT_EQ(storedAccount(0), both);
  EXPECT_EQ(second->accountWithIdentifier("a")->displayName(), "old") << "what others wrote stays unseen";
  second->saveAllAccounts();
  EXPECT_EQ(storedAccount(0), both) << "and is kept by later saves";
  set(first, "later", "DisplayName");
  set(second, "latest", "DisplayName");
  first->saveAllAccounts();
  second->saveAllAccounts();
  EXPECT_EQ(storedAccount(0).find("DisplayName"), Value("latest"));
}

TEST_F(SavingTest, WritesExactlyTheAccountsOfTheStoreAndNothingElse) {
  device.writePropertyList(
      device.registryPath(),
      Dictionary{{"Accounts", array(stored("a"), stored("b"))}, {"Version", 11}, {"Other", 1}});
  const Store first = AccountsManager::init();
  const Store second = AccountsManager::init();
  second->deleteAccountWithIdentifier("a");
  second->insertAccount(record("c"));
  second->saveAllAccounts();
  first->insertAccount(record("d"));
  first->saveAllAccounts();
  EXPECT_EQ(root(),
            (Dictionary{{"Version", 12}, {"Accounts", array(stored("a"), stored("b"), stored("d"))}}));
  EXPECT_EQ(files(), Lines{std::string(fileName)}) << "a sound file is not kept";
}

TEST_F(SavingTest, KeepsValuesThatNobodyKnowsWithTheirTypes) {
  const Value data = Value::data(std::as_bytes(std::span("\0bytes", 6)));
  const Value odd = array(true, false, 0, -1, std::numeric_limits<std::uint64_t>::max(), 2.0, -0.5,
                          Date{0.25}, data, "", "Grüße \U0001F600", Array(), Dictionary());
  MutableDictionary nested(Dictionary{{"", odd}, {"real", 1.0}, {"integer", 1}});
  for (int level = 0; level < 100; ++level) nested = MutableDictionary(Dictionary{{"level", array(nested)}});
  const Dictionary account = stored("a", {{"Odd", odd}, {"Deep", nested}, {"Real", 3.0}, {"Date", Date{-1}}});
  writeRegistry(account, stored("p", {{"ChildAccounts", array(account)}}));
  const Store store = AccountsManager::init();
  set(store, "changed", "DisplayName");
  set(store, "changed", "DisplayName", "p");
  store->saveAllAccounts();
  MutableDictionary expected(account);
  expected.set("DisplayName", "changed");
  EXPECT_EQ(storedAccount(0), expected);
  EXPECT_EQ(storedAccount(1).find("ChildAccounts"), array(account));
  // Equal numbers may be of different types; their descriptions are not.
  for (const char* key : {"Odd", "Real", "Date"}) {
    EXPECT_EQ(LogArgument(storedAccount(0).find(key)).text(), LogArgument(account.find(key)).text());
  }
}

TEST_F(SavingTest, StillWritesWhatAFixerRejectsButFindsItNoMore) {
  writeRegistry(stored("a"), stored("b", {{"ChildAccounts", array(stored("b1"))}}), stored("c"));
  bool isLoading = true;
  Lines calls;
  const auto fix = [&](const Account& account) {
    return !isLoading && account->identifier() == "b" ? FixResult::unrepairable : FixResult::nothingDone;
  };
  const auto store = CustomStore::load({ScriptedFixer(fix, &calls)});
  isLoading = false;
  calls.clear();
  store->saveAllAccounts();
  EXPECT_EQ(calls, (Lines{"saving accounts c", "saving accounts b", "saving accounts a", "saved"}));
  EXPECT_EQ(store->accountWithIdentifier("b"), nullptr);
  EXPECT_EQ(store->accountWithIdentifier("b1"), nullptr);
  EXPECT_EQ(store->count(), 3U);
  EXPECT_EQ(storedAccount(1).find("Identifier"), Value("b"));

  CustomStore::load({ScriptedFixer(fix)})->saveAllAccounts();
  EXPECT_EQ(root().find("Accounts"), array(stored("a"), stored("c")));
}

TEST_F(SavingTest, TellsTheMailApplicationOnceAfterASaveThatRepairedEvenIfItFailed) {
  // Nobody serves the bus here: each broadcast is one line.
  const std::string broadcast = "Could not tell com.nimbal.inkwell";
  const Dictionary broken{{"Type", "Mail"}, {"Class", "Odd"}, {"AccountPath", "Mail/IMAP-x"}};
  writeRegistry(stored("a", broken), stored("b", broken));
  const Store store = AccountsManager::init();
  EXPECT_EQ(linesWith(log.lines(), broadcast), 0U) << "a load tells nobody";
  store->saveAllAccounts();
  EXPECT_EQ(linesWith(log.lines(), broadcast), 0U) << "nothing was repaired by the save";
  EXPECT_EQ(storedAccount(1).find("Class"), Value("IMAPAccount"));

  for (const bool isFailing : {false, true}) {
    const FileCallsOverride calls(failingCalls());
    failing = {isFailing ? "rename" : "", EIO};
    for (const char* identifier : {"a", "b"})
      store->accountWithIdentifier(identifier)->setAccountClass("Odd");
    log.clear();
    store->saveAllAccounts();
    EXPECT_EQ(linesWith(log.lines(), broadcast), 1U);
    EXPECT_EQ(store->lastSaveError().empty(), !isFailing);
  }
}

TEST_F(SavingTest, AfterAFailureLeavesEverythingAsItWasAndMergesTheSameChangesAgain) {
  for (const char* call : {"create", "write", "chmod", "sync", "rename"}) {
    SCOPED_TRACE(call);
    writeRegistry(stored("a", {{"DisplayName", "old"}, {"Note", 1}}));
    const Store store = AccountsManager::init();
    set(store, "new", "DisplayName");
    const std::string before = registry();
    log.clear();
    {
      const FileCallsOverride calls(failingCalls());
      failing = {call, ENOSPC};
      store->saveAllAccounts();
    }
    EXPECT_EQ(registry(), before);
    EXPECT_EQ(files(), Lines{std::string(fileName)});
    EXPECT_EQ(store->accountWithIdentifier("a")->originalProperties().find("DisplayName"), Value("old"));
    EXPECT_EQ(log.lines().back(), failure);
    EXPECT_NE(store->lastSaveError().find(device.root()), std::string::npos);
    EXPECT_NE(store->lastSaveError().find("No space left on device"), std::string::npos)
        << store->lastSaveError();

    const Store other = AccountsManager::init();
    set(other, 2, "Note");
    other->saveAllAccounts();
    store->saveAllAccounts();
    EXPECT_EQ(store->lastSaveError(), "");
    EXPECT_EQ(storedAccount(0), stored("a", {{"DisplayName", "new"}, {"Note", 2}}));
    EXPECT_EQ(store->accountWithIdentifier("a")->originalProperties().find("DisplayName"), Value("new"));
  }
}

TEST_F(SavingTest, FailsOnAValueThatCannotBeWritten) {
  writeRegistry(stored("a"));
  const Store store = AccountsManager::init();
  const std::string before = registry();
  set(store, "\xFF", "DisplayName");
  store->saveAllAccounts();
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_TRUE(log.lines()[0].starts_with("Failed to serialize account settings data: ")) << log.lines()[0];
  EXPECT_EQ(log.lines()[1], failure);
  EXPECT_EQ(registry(), before);
  EXPECT_TRUE(store->accountWithIdentifier("a")->originalProperties().find("DisplayName").isNil());
  set(store, "good", "DisplayName");
  store->saveAllAccounts();
  EXPECT_EQ(storedAccount(0).find("DisplayName"), Value("good"));
}

TEST_F(SavingTest, FailsAndRecoversWhereTheSystemItselfSetsTheLimits) {
  writeRegistry(stored("a"));
  const Store store = AccountsManager::init();
  set(store, "new", "DisplayName");
  const std::string before = registry();
  EXPECT_TRUE(endsWell(startProcess([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{64, 64};
    setrlimit(RLIMIT_FSIZE, &limit);
    store->saveAllAccounts();
    return store->lastSaveError().find("File too large") != std::string::npos;
  })));
  chmod(device.path(folder).c_str(), 0555);
  chmod(device.root().c_str(), 0755);
  chmod(device.registryPath().c_str(), 0644);
  EXPECT_TRUE(endsWell(startProcess([&] {
    constexpr uid_t nobody = 65534;
    if (getuid() == 0 && setuid(nobody) != 0) return false;
    store->saveAllAccounts();
    return store->lastSaveError().find("Permission denied") != std::string::npos;
  })));
  EXPECT_EQ(registry(), before);
  EXPECT_EQ(files(), Lines{std::string(fileName)});
  chmod(device.path(folder).c_str(), 0755);
  store->saveAllAccounts();
  EXPECT_EQ(storedAccount(0).find("DisplayName"), Value("new"));
}

TEST_F(SavingTest, KeepsADamagedFileBesideTheNewOne) {
  device.writeFile(device.registryPath(), "damaged");
  const Store store = AccountsManager::init();
  EXPECT_EQ(log.lines(), Lines()) << "a load says nothing of it";
  store->insertAccount(record("a"));
  store->saveAllAccounts();
  ASSERT_EQ(kept().size(), 1U);
  const std::string copy = device.registryPath() + kept()[0].substr(fileName.size());
  EXPECT_THAT(kept()[0], ::testing::MatchesRegex("com.nimbal.roster.plist.damaged-[0-9]{8}T[0-9]{6}Z"));
  EXPECT_EQ(device.readFile(copy), "damaged");
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_TRUE(log.lines()[0].starts_with("Kept the damaged registry " + device.registryPath() + " as " +
                                         copy + ": "));
  store->saveAllAccounts();
  EXPECT_EQ(kept().size(), 1U) << "the new file is sound";
  device.writeFile(device.registryPath(), "again");
  store->saveAllAccounts();
  EXPECT_EQ(kept().size(), 2U) << "also within one second";
}

TEST_F(SavingTest, FailsWhereADamagedFileCannotBeKeptAndKeepsNothingWhereTheSaveFails) {
  device.writeFile(device.registryPath(), "damaged");
  const Store store = AccountsManager::init();
  store->insertAccount(record("a"));
  const FileCallsOverride calls(failingCalls());
  for (const char* call : {"link", "write", "rename"}) {
    log.clear();
    failing = {call, EIO};
    store->saveAllAccounts();
    EXPECT_NE(store->lastSaveError(), "");
    EXPECT_EQ(log.lines().back(), failure);
    EXPECT_EQ(linesWith(log.lines(), "Kept"), 0U);
    EXPECT_EQ(files(), Lines{std::string(fileName)});
    EXPECT_EQ(registry(), "damaged");
  }
  failing = {};
  store->saveAllAccounts();
  EXPECT_EQ(kept().size(), 1U);
}

TEST_F(SavingTest, OfAStoreOfAnotherClassReadsTheRegistryAndWritesWhereTheClassSays) {
  const std::string elsewhere = device.writeFile("elsewhere/own.plist", "damaged");
  const auto store =
      CustomStore::load({ScriptedFixer([](const Account&) { return FixResult::nothingDone; })}, elsewhere);
  writeRegistry(stored("a", {{"Note", 1}}));
  const std::string before = registry();
  store->insertAccount(record("a"));
  store->saveAllAccounts();
  const PropertyListFile file = readPropertyListFile(elsewhere);
  ASSERT_TRUE(file.value.isDictionary()) << file.error;
  EXPECT_EQ(file.value.dictionary()->find("Accounts"), array(stored("a", {{"Note", 1}})))
      << "merged with the registry";
  EXPECT_EQ(registry(), before);
  EXPECT_EQ(device.fileNames("elsewhere").size(), 2U) << "its own damaged file is kept";
}

}  // namespace
}  // namespace roster::testing
