#include <gmock/gmock.h>

#include <filesystem>

#include "roster/store/merge.h"
#include "roster/store/settings_file.h"
#include "tests/store/store_test.h"
#include "tests/store/watched_calls.h"

namespace roster::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr std::string_view failure = "Failed to save accounts to filesystem.";

/// Lets one call fail: always, or when it is about the file at a path.
WatchedCalls::Watcher failing(const std::string& call, int errorNumber, const std::string& path = {}) {
  return [=](std::string_view called, const std::string& about) {
    return called == call && (path.empty() || about == path) ? errorNumber : 0;
  };
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

TEST_F(SavingTest, TellsTheMailApplicationOnceAfterASaveThatRepairedEvenIfItFailed) {
  // Nobody serves the bus here: each broadcast is one line.
  const Dictionary broken{{"Type", "Mail"}, {"Class", "Odd"}, {"AccountPath", "Mail/IMAP-x"}};
  writeRegistry(stored("a", broken), stored("b", broken));
  const Store store = AccountsManager::init();
  store->saveAllAccounts();
  EXPECT_EQ(log.lines(), Lines()) << "the load repaired, and a load tells nobody";
  const WatchedCalls calls(failing("renameat", ENOSPC));
  for (const AccountPtr& account : *store->allBasicAccounts()) account->setAccountClass("Odd");
  for (int save = 1; save <= 2; ++save) store->saveAllAccounts();
  EXPECT_EQ(linesWith(log.lines(), "Could not tell com.nimbal.inkwell"), 1U);
}

TEST_F(SavingTest, AfterAFailureLeavesEverythingAsItWasAndMergesTheSameChangesAgain) {
  const std::string full = "No space left on device";
  const std::string unwritable = "could not serialize the accounts for ";
  for (const auto& [fault, why] : {std::pair("write", full), {"renameat", full}, {"", unwritable}}) {
    SCOPED_TRACE(why + fault);
    log.clear();
    writeRegistry(stored("a", {{"DisplayName", "old"}, {"Note", 1}}));
    const Store store = AccountsManager::init();
    set(store, why == unwritable ? "\xFF" : "new", "DisplayName");
    const std::string before = registry();
    std::optional<WatchedCalls> calls(failing(fault, ENOSPC));
    store->saveAllAccounts();
    calls.reset();
    EXPECT_EQ(registry(), before);
    EXPECT_EQ(files(), onlyTheRegistry);
    EXPECT_EQ(original(store), Value("old"));
    EXPECT_EQ(log.lines().back(), failure);
    EXPECT_EQ(linesWith(log.lines(), "Failed to serialize account settings data: "), why == unwritable);
    ASSERT_TRUE(store->lastSaveError());
    EXPECT_TRUE(store->lastSaveError()->code);
    EXPECT_THAT(store->lastSaveError()->message, AllOf(HasSubstr(device.root()), HasSubstr(why)));

    set(store, "new", "DisplayName");
    const Store other = AccountsManager::init();
    set(other, 2, "Note");
    other->saveAllAccounts();
    store->saveAllAccounts();
    EXPECT_FALSE(store->lastSaveError());
    EXPECT_EQ(storedAccount(0), stored("a", {{"DisplayName", "new"}, {"Note", 2}}));
    EXPECT_EQ(original(store), Value("new"));
  }
  // What a merge has no former version of is written as it is.
  for (const Dictionary& none : {Dictionary(), stored("a")}) {
    EXPECT_EQ(mergeProperties(stored("m"), none, none.empty() ? stored("b") : Dictionary()), stored("m"));
  }
}

TEST_F(SavingTest, WritesInTheEndThoughAnotherProgramComesBetweenEveryTime) {
  writeRegistry(stored("a"));
  const Store store = AccountsManager::init();
  set(store, "new", "DisplayName");
  int others = 0;
  const WatchedCalls calls([&](std::string_view call, const std::string& path) {
    if (call == "fsync" && path.ends_with(".tmp")) writeRegistry(stored("a", {{"Note", ++others}}));
    return 0;
  });
  store->saveAllAccounts();
  EXPECT_EQ(others, 6);
  EXPECT_EQ(storedAccount(0), stored("a", {{"DisplayName", "new"}, {"Note", 5}})) << "but for the last time";
}

TEST_F(SavingTest, KeepsADamagedFileBesideTheNewOneUnlessTheSaveFails) {
  device.writeFile(device.registryPath(), "damaged");
  const Store store = AccountsManager::init();
  EXPECT_EQ(log.lines(), Lines()) << "a load says nothing of it";
  for (const char* call : {"linkat", "write", "renameat"}) {
    const WatchedCalls calls(failing(call, ENOSPC));
    store->saveAllAccounts();
    ASSERT_TRUE(store->lastSaveError()) << call;
    EXPECT_EQ(log.lines(), (Lines{store->lastSaveError()->message, std::string(failure)}));
    EXPECT_EQ(files(), onlyTheRegistry) << call;
    EXPECT_EQ(registry(), "damaged");
    log.clear();
  }
  store->saveAllAccounts();
  ASSERT_EQ(kept().size(), 1U);
  EXPECT_THAT(kept()[0], ::testing::MatchesRegex("com.nimbal.roster.plist.damaged-[0-9]{8}T[0-9]{6}Z"));
  const std::string copy = device.path(std::string(folder) + "/" + kept()[0]);
  EXPECT_EQ(
      linesWith(log.lines(), "Kept the damaged registry " + device.registryPath() + " as " + copy + ": "),
      1U);
  store->saveAllAccounts();
  EXPECT_EQ(kept().size(), 1U) << "the new file is sound";
  device.writeFile(device.registryPath(), "again");
  store->saveAllAccounts();
  EXPECT_EQ(kept().size(), 2U) << "also within one second";
}

TEST_F(SavingTest, NeverReplacesAccountsThatItsStoreHasNotSeenWithoutKeepingThem) {
  const std::pair<int, bool> rows[] = {{EMFILE, false}, {ENFILE, false}, {ENOMEM, false},
                                       {EIO, false},    {EACCES, true},  {EPERM, true}};
  for (std::size_t i = 0; i < 3 * std::size(rows); ++i) {
    const std::string call = std::array{"openat", "fstat", "read"}[i % 3];
    const auto& [errorNumber, isFileAtFault] = rows[i / 3];
    SCOPED_TRACE(call + ": " + std::to_string(errorNumber));
    const WatchedCalls::Watcher unreadable = failing(call, errorNumber, device.registryPath());
    const auto write = [&] {
      std::filesystem::remove_all(device.path(folder));
      writeRegistry(stored("a"), stored("b"));
      return registry();
    };
    const std::string sound = write();
    const auto expectError = [&, &number = errorNumber](const std::optional<Error>& error) {
      ASSERT_TRUE(error);
      EXPECT_EQ(error->code.value(), number);
      EXPECT_THAT(error->message, HasSubstr(device.registryPath()));
    };
    const auto expectSaved = [&, &isKept = isFileAtFault](const Store& store, const std::string& left) {
      if (!isKept) {
        expectError(store->lastSaveError());
        EXPECT_EQ(log.lines().back(), failure);
        EXPECT_EQ(registry(), sound);
        EXPECT_EQ(files(), onlyTheRegistry);
        return;
      }
      EXPECT_FALSE(store->lastSaveError());
      ASSERT_EQ(kept().size(), 1U);
      EXPECT_EQ(device.readFile(std::string(folder) + "/" + kept()[0]), sound);
      EXPECT_EQ(identifiers(*AccountsManager::init()->allBasicAccounts()), left);
    };

    std::optional<WatchedCalls> calls(unreadable);
    const Store blind = AccountsManager::init();
    calls.reset();
    EXPECT_EQ(blind->count(), 0U);
    expectError(blind->loadError());
    blind->insertAccount(record("c"));
    for (int save = 1; save <= 2; ++save) {
      blind->saveAllAccounts();
      expectSaved(blind, "c");
    }

    write();
    const Store seeing = AccountsManager::init();
    EXPECT_FALSE(seeing->loadError());
    seeing->insertAccount(record("c"));
    calls.emplace(unreadable);
    seeing->saveAllAccounts();
    calls.reset();
    expectSaved(seeing, "a b c");
    seeing->saveAllAccounts();
    EXPECT_FALSE(seeing->lastSaveError()) << "the file can be read again";
    EXPECT_EQ(identifiers(*AccountsManager::init()->allBasicAccounts()), "a b c");
  }
}

TEST_F(SavingTest, OfAStoreOfAnotherClassReadsTheRegistryAndWritesWhereTheClassSays) {
  const std::string elsewhere = device.writeFile("elsewhere/own.plist", "damaged");
  const auto store =
      CustomStore::load({ScriptedFixer([](const AccountPtr&) { return FixResult::nothingDone; })}, elsewhere);
  writeRegistry(stored("a", {{"Note", 1}}));
  const std::string before = registry();
  store->insertAccount(record("a"));
  store->saveAllAccounts();
  const Dictionary written = *readDictionaryFile(elsewhere);
  EXPECT_EQ(written.find("Accounts"), array(stored("a", {{"Note", 1}}))) << "merged with the registry";
  EXPECT_EQ(registry(), before);
  EXPECT_EQ(device.fileNames("elsewhere").size(), 2U) << "its own damaged file is kept";
}

TEST_F(SavingTest, WritesNothingAndSaysWhyWhenTheRegistryOrItsFolderCannotBeLookedAt) {
  const std::string link = device.path("loop");
  std::filesystem::create_symlink(link, link);
  const std::string locked = device.path("locked");
  std::filesystem::create_directory(locked);
  std::filesystem::permissions(locked, std::filesystem::perms(0700));
  std::filesystem::permissions(device.root(), std::filesystem::perms(0755));
  const std::pair<std::string, const char*> rows[] = {
      {link + "/registry", "Too many levels of symbolic links"},
      {device.path(std::string(300, 'x')), "File name too long"},
      {locked + "/registry", "Permission denied"}};
  for (const auto& [path, cause] : rows) {
    if (path.starts_with(locked) && geteuid() != 0) continue;
    EXPECT_TRUE(endsWell(startProcess([&, &at = path, &why = cause] {
      alarm(20);  // a save that never ends is a failure of its own
      EXPECT_TRUE(!at.starts_with(locked) || setuid(65534) == 0);
      const SettingsFile file(at);
      const std::string error = errorOf(file.replace(textSource("new"), file.read().damage));
      EXPECT_TRUE(error.starts_with("could not keep " + at + " as ") && error.ends_with(why)) << error;
      return !HasFailure();
    }))) << path;
  }
}

}  // namespace
}  // namespace roster::testing
