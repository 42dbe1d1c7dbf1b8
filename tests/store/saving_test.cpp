#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <limits>

#include "platform/linux/file_calls.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

constexpr std::string_view failure = "Failed to save accounts to filesystem.";

template <class Result, class... Arguments>
void breakCall(Result (*&call)(Arguments...)) {
  call = [](Arguments...) -> Result {
    errno = ENOSPC;
    return -1;
  };
}

/// The system's calls, of which the named one fails.
FileCalls failingCalls(std::string_view name) {
  static const FileCalls real = fileCalls();
  FileCalls calls = real;
  if (name == "write") breakCall(calls.write);
  if (name == "chmod") breakCall(calls.fchmod);
  if (name == "sync") breakCall(calls.fsync);
  if (name == "link") breakCall(calls.linkat);
  if (name == "rename") breakCall(calls.renameat);
  if (name == "create") {
    calls.openat = [](int folder, const char* path, int flags, mode_t mode) {
      if ((flags & O_CREAT) == 0) return real.openat(folder, path, flags, mode);
      errno = ENOSPC;
      return -1;
    };
  }
  return calls;
}

class SavingTest : public StoreTest {
 protected:
  static void set(const Store& store, const Value& value, std::string_view key) {
    store->accountWithIdentifier("a")->setAccountPropertyForKey(value, key);
  }
  static Value original(const Store& store) {
    return store->accountWithIdentifier("a")->originalProperties().find("DisplayName");
  }
  const Lines onlyTheRegistry = {std::string(fileName)};
};

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
  const Dictionary both =
      stored("a", {{"DisplayName", "first"}, {"Username", "second"}, {"Hostname", "first"}});
  for (int save = 1; save <= 2; ++save) {
    second->saveAllAccounts();
    EXPECT_EQ(storedAccount(0), both) << "save " << save;
  }
  EXPECT_EQ(second->accountWithIdentifier("a")->displayName(), "old") << "what others wrote stays unseen";
  set(first, "later", "DisplayName");
  set(second, "latest", "DisplayName");
  first->saveAllAccounts();
  second->saveAllAccounts();
  EXPECT_EQ(storedAccount(0).find("DisplayName"), Value("latest"));
}

TEST_F(SavingTest, WritesExactlyTheVersionAndTheAccountsOfTheStoreInOrder) {
  device.writePropertyList(
      device.registryPath(),
      Dictionary{{"Accounts", array(stored("b"), stored("a"))}, {"Version", 11}, {"Other", 1}});
  const Store first = AccountsManager::init();
  const Store second = AccountsManager::init();
  second->deleteAccountWithIdentifier("a");
  second->insertAccount(record("c"));
  second->saveAllAccounts();
  first->insertAccount(record("d"));
  first->setDataVersion(3);
  first->saveAllAccounts();
  EXPECT_EQ(root(),
            (Dictionary{{"Version", 12}, {"Accounts", array(stored("b"), stored("a"), stored("d"))}}));
  EXPECT_EQ(files(), onlyTheRegistry);
  EXPECT_EQ(log.lines(), Lines());
}

TEST_F(SavingTest, KeepsValuesThatNobodyKnowsWithTheirTypes) {
  const Value data = Value::data(std::as_bytes(std::span("\0bytes", 6)));
  const Value odd = array(true, false, 0, -1, std::numeric_limits<std::uint64_t>::max(), 2.0, -0.5,
                          Date{0.25}, data, "", "Grüße \U0001F600", Array(), Dictionary());
  MutableDictionary nested(Dictionary{{"", odd}, {"real", 1.0}, {"integer", 1}});
  for (int level = 0; level < 100; ++level) nested = MutableDictionary(Dictionary{{"level", array(nested)}});
  const Dictionary account = stored("a", {{"Odd", odd}, {"Deep", nested}, {"Date", Date{-1}}});
  writeRegistry(account, stored("p", {{"ChildAccounts", array(account)}}));
  const Store store = AccountsManager::init();
  for (const Account& each : *store->allBasicAccounts()) each->setDisplayName("changed");
  store->saveAllAccounts();
  MutableDictionary expected(account);
  expected.set("DisplayName", "changed");
  EXPECT_EQ(storedAccount(0), expected);
  EXPECT_EQ(storedAccount(1).find("ChildAccounts"), array(account));
  EXPECT_EQ(LogArgument(storedAccount(0).find("Odd")).text(), LogArgument(odd).text())
      << "equal numbers of different types have different descriptions";
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
}

TEST_F(SavingTest, TellsTheMailApplicationOnceAfterASaveThatRepairedEvenIfItFailed) {
  // Nobody serves the bus here: each broadcast is one line.
  const std::string broadcast = "Could not tell com.nimbal.inkwell";
  const Dictionary broken{{"Type", "Mail"}, {"Class", "Odd"}, {"AccountPath", "Mail/IMAP-x"}};
  writeRegistry(stored("a", broken), stored("b", broken));
  const Store store = AccountsManager::init();
  store->saveAllAccounts();
  EXPECT_EQ(linesWith(log.lines(), broadcast), 0U) << "the load repaired, and a load tells nobody";
  EXPECT_EQ(storedAccount(1).find("Class"), Value("IMAPAccount"));

  const FileCallsOverride calls(failingCalls("rename"));
  for (const Account& account : *store->allBasicAccounts()) account->setAccountClass("Odd");
  store->saveAllAccounts();
  EXPECT_EQ(linesWith(log.lines(), broadcast), 1U);
}

TEST_F(SavingTest, AfterAFailureLeavesEverythingAsItWasAndMergesTheSameChangesAgain) {
  for (const char* call : {"create", "write", "chmod", "sync", "rename"}) {
    SCOPED_TRACE(call);
    writeRegistry(stored("a", {{"DisplayName", "old"}, {"Note", 1}}));
    const Store store = AccountsManager::init();
    set(store, "new", "DisplayName");
    const std::string before = registry();
    {
      const FileCallsOverride calls(failingCalls(call));
      store->saveAllAccounts();
    }
    EXPECT_EQ(registry(), before);
    EXPECT_EQ(files(), onlyTheRegistry);
    EXPECT_EQ(original(store), Value("old"));
    EXPECT_EQ(log.lines().back(), failure);
    EXPECT_THAT(store->lastSaveError(), ::testing::HasSubstr(device.root()));
    EXPECT_THAT(store->lastSaveError(), ::testing::HasSubstr("No space left on device"));

    const Store other = AccountsManager::init();
    set(other, 2, "Note");
    other->saveAllAccounts();
    store->saveAllAccounts();
    EXPECT_EQ(store->lastSaveError(), "");
    EXPECT_EQ(storedAccount(0), stored("a", {{"DisplayName", "new"}, {"Note", 2}}));
    EXPECT_EQ(original(store), Value("new"));
  }
}

TEST_F(SavingTest, FailsOnAValueThatCannotBeWritten) {
  writeRegistry(stored("a"));
  const Store store = AccountsManager::init();
  const std::string before = registry();
  set(store, "\xFF", "DisplayName");
  store->saveAllAccounts();
  EXPECT_THAT(
      log.lines(),
      ::testing::ElementsAre(::testing::StartsWith("Failed to serialize account settings data: "), failure));
  EXPECT_EQ(registry(), before);
  EXPECT_TRUE(original(store).isNil());
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
  EXPECT_EQ(files(), onlyTheRegistry);
  chmod(device.path(folder).c_str(), 0755);
  store->saveAllAccounts();
  EXPECT_EQ(storedAccount(0).find("DisplayName"), Value("new"));
}

TEST_F(SavingTest, KeepsADamagedFileBesideTheNewOneUnlessTheSaveFails) {
  device.writeFile(device.registryPath(), "damaged");
  const Store store = AccountsManager::init();
  EXPECT_EQ(log.lines(), Lines()) << "a load says nothing of it";
  store->insertAccount(record("a"));
  for (const char* call : {"link", "write", "rename"}) {
    const FileCallsOverride calls(failingCalls(call));
    store->saveAllAccounts();
    EXPECT_NE(store->lastSaveError(), "");
    EXPECT_EQ(log.lines().back(), failure);
    EXPECT_EQ(linesWith(log.lines(), "Kept"), 0U);
    EXPECT_EQ(files(), onlyTheRegistry);
    EXPECT_EQ(registry(), "damaged");
  }
  log.clear();
  store->saveAllAccounts();
  ASSERT_EQ(kept().size(), 1U);
  const std::string copy = device.registryPath() + kept()[0].substr(fileName.size());
  EXPECT_THAT(kept()[0], ::testing::MatchesRegex("com.nimbal.roster.plist.damaged-[0-9]{8}T[0-9]{6}Z"));
  EXPECT_EQ(device.readFile(copy), "damaged");
  EXPECT_THAT(log.lines(), ::testing::ElementsAre(::testing::StartsWith(
                               "Kept the damaged registry " + device.registryPath() + " as " + copy + ": ")));
  store->saveAllAccounts();
  EXPECT_EQ(kept().size(), 1U) << "the new file is sound";
  device.writeFile(device.registryPath(), "again");
  store->saveAllAccounts();
  EXPECT_EQ(kept().size(), 2U) << "also within one second";
}

TEST_F(SavingTest, OfAStoreOfAnotherClassReadsTheRegistryAndWritesWhereTheClassSays) {
  const std::string elsewhere = device.writeFile("elsewhere/own.plist", "damaged");
  const auto store =
      CustomStore::load({ScriptedFixer([](const Account&) { return FixResult::nothingDone; })}, elsewhere);
  writeRegistry(stored("a", {{"Note", 1}}));
  const std::string before = registry();
  store->insertAccount(record("a"));
  store->saveAllAccounts();
  const Dictionary written = readPropertyListFile(elsewhere).value.dictionary().value_or(Dictionary());
  EXPECT_EQ(written.find("Accounts"), array(stored("a", {{"Note", 1}}))) << "merged with the registry";
  EXPECT_EQ(registry(), before);
  EXPECT_EQ(device.fileNames("elsewhere").size(), 2U) << "its own damaged file is kept";
}

}  // namespace
}  // namespace roster::testing
