#include <gmock/gmock.h>

#include <filesystem>

#include "roster/platform/linux/file_calls.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

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
  FileCalls calls = fileCalls();
  if (name == "write") breakCall(calls.write);
  if (name == "link") breakCall(calls.linkat);
  if (name == "rename") breakCall(calls.renameat);
  return calls;
}

/// The system's calls, of which one fails as soon as it is about the file at a path.
class UnreadableFile {
 public:
  UnreadableFile(std::string path, std::string_view call, int errorNumber) : override_(calls()) {
    path_ = std::move(path);
    call_ = call;
    errorNumber_ = errorNumber;
    fd_ = -1;
  }

 private:
  static FileCalls calls() {
    real_ = fileCalls();
    FileCalls calls = real_;
    calls.openat = [](int folderFd, const char* path, int flags, mode_t mode) {
      if (path != path_) return real_.openat(folderFd, path, flags, mode);
      return fails("openat") ? -1 : fd_ = real_.openat(folderFd, path, flags, mode);
    };
    calls.fstat = [](int fd, struct stat* status) {
      return fd == fd_ && fails("fstat") ? -1 : real_.fstat(fd, status);
    };
    calls.read = [](int fd, void* buffer, std::size_t size) {
      return fd == fd_ && fails("read") ? -1 : real_.read(fd, buffer, size);
    };
    calls.close = [](int fd) {
      if (fd == fd_) fd_ = -1;
      return real_.close(fd);
    };
    return calls;
  }
  static bool fails(std::string_view call) {
    errno = errorNumber_;
    return call == call_;
  }
  static inline FileCalls real_{};
  static inline std::string path_{};
  static inline std::string_view call_{};
  static inline int errorNumber_ = 0;
  static inline int fd_ = -1;
  FileCallsOverride override_;
};

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

TEST_F(SavingTest, MergesWithWhatAnotherProcessWrote) {
  writeRegistry(stored("a", {{"DisplayName", "old"}, {"Username", "old"}, {"Note", 1}, {"Gone", 1}}));
  const Store store = AccountsManager::init();
  EXPECT_TRUE(endsWell(startProcess([] {
    const Store other = AccountsManager::init();
    set(other, "theirs", "DisplayName");
    set(other, "theirs", "Hostname");
    set(other, {}, "Gone");
    set(other, 2, "Note");
    other->saveAllAccounts();
    return !other->lastSaveError();
  })));
  set(store, "ours", "Username");
  set(store, {}, "Note");
  for (int save = 1; save <= 2; ++save) {
    store->saveAllAccounts();
    EXPECT_EQ(storedAccount(0),
              stored("a", {{"DisplayName", "theirs"}, {"Username", "ours"}, {"Hostname", "theirs"}}))
        << "save " << save;
  }
  EXPECT_EQ(store->accountWithIdentifier("a")->displayName(), "old") << "what others wrote stays unseen";
}

TEST_F(SavingTest, InTwoProcessesNeverShowsAHalfWrittenFile) {
  constexpr int rounds = 100;
  std::vector<Value> accounts;
  for (int i = 0; i < 200; ++i) accounts.emplace_back(stored("a" + std::to_string(i)));
  device.writePropertyList(device.registryPath(), Dictionary{{"Accounts", Array(accounts)}});
  const auto write = [&](std::string_view key) {
    const Store store = AccountsManager::init();
    for (int round = 0; round < rounds; ++round) {
      store->accountWithIdentifier("a7")->setAccountPropertyForKey(round, key);
      store->saveAllAccounts();
      if (store->lastSaveError()) return false;
    }
    return true;
  };
  const pid_t first = startProcess([&] { return write("First"); });
  const pid_t second = startProcess([&] { return write("Second"); });
  for (int round = 0; round < rounds; ++round) {
    EXPECT_EQ(AccountsManager::init()->count(), accounts.size()) << "round " << round;
  }
  EXPECT_TRUE(endsWell(first));
  EXPECT_TRUE(endsWell(second));
  EXPECT_EQ(files(), onlyTheRegistry);
  EXPECT_EQ(log.lines(), Lines());
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
}

TEST_F(SavingTest, StillWritesWhatAFixerRejectsButFindsItNoMore) {
  writeRegistry(stored("a"), stored("b", {{"ChildAccounts", array(stored("b1"))}}), stored("c"));
  bool isLoading = true;
  Lines calls;
  const auto fix = [&](const AccountPtr& account) {
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
  const Dictionary broken{{"Type", "Mail"}, {"Class", "Odd"}, {"AccountPath", "Mail/IMAP-x"}};
  writeRegistry(stored("a", broken), stored("b", broken));
  const Store store = AccountsManager::init();
  store->saveAllAccounts();
  EXPECT_EQ(log.lines(), Lines()) << "the load repaired, and a load tells nobody";
  const FileCallsOverride calls(failingCalls("rename"));
  for (const AccountPtr& account : *store->allBasicAccounts()) account->setAccountClass("Odd");
  for (int save = 1; save <= 2; ++save) store->saveAllAccounts();
  EXPECT_EQ(linesWith(log.lines(), "Could not tell com.nimbal.inkwell"), 1U);
}

TEST_F(SavingTest, AfterAFailureLeavesEverythingAsItWasAndMergesTheSameChangesAgain) {
  const std::string full = "No space left on device";
  const std::string unwritable = "could not serialize the accounts for ";
  const std::pair<std::string_view, std::string> rows[] = {
      {"write", full}, {"rename", full}, {"a value that cannot be written", unwritable}};
  for (const auto& [fault, why] : rows) {
    SCOPED_TRACE(fault);
    log.clear();
    writeRegistry(stored("a", {{"DisplayName", "old"}, {"Note", 1}}));
    const Store store = AccountsManager::init();
    set(store, why == unwritable ? "\xFF" : "new", "DisplayName");
    const std::string before = registry();
    {
      const FileCallsOverride calls(failingCalls(fault));
      store->saveAllAccounts();
    }
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
}

TEST_F(SavingTest, KeepsADamagedFileBesideTheNewOneUnlessTheSaveFails) {
  device.writeFile(device.registryPath(), "damaged");
  const Store store = AccountsManager::init();
  EXPECT_EQ(log.lines(), Lines()) << "a load says nothing of it";
  for (const char* call : {"link", "write", "rename"}) {
    SCOPED_TRACE(call);
    const FileCallsOverride calls(failingCalls(call));
    store->saveAllAccounts();
    ASSERT_TRUE(store->lastSaveError());
    EXPECT_EQ(log.lines(), (Lines{store->lastSaveError()->message, std::string(failure)}));
    EXPECT_EQ(files(), onlyTheRegistry);
    EXPECT_EQ(registry(), "damaged");
    log.clear();
  }
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

TEST_F(SavingTest, NeverReplacesAccountsThatItsStoreHasNotSeenWithoutKeepingThem) {
  struct Row {
    const char* name;
    int errorNumber;
    bool isFileAtFault;
  };
  const Row rows[] = {{"no descriptors", EMFILE, false}, {"no descriptors of the system", ENFILE, false},
                      {"no memory", ENOMEM, false},      {"the disk fails", EIO, false},
                      {"no permission", EACCES, true},   {"not permitted", EPERM, true}};
  for (const char* call : {"openat", "fstat", "read"}) {
    for (const auto& [name, errorNumber, isFileAtFault] : rows) {
      SCOPED_TRACE(std::string(call) + ": " + name);
      std::filesystem::remove_all(device.path(folder));
      writeRegistry(stored("a"), stored("b"));
      const std::string sound = registry();
      const auto broken = [&, &why = errorNumber, &faulty = call](const auto& work) {
        const UnreadableFile unreadable(device.registryPath(), faulty, why);
        return work();
      };
      const auto expectOutcome = [&, &isKept = isFileAtFault, &why = errorNumber](const Store& store,
                                                                                  const std::string& left) {
        ASSERT_EQ(store->lastSaveError().has_value(), !isKept);
        if (isKept) {
          ASSERT_EQ(kept().size(), 1U);
          EXPECT_EQ(device.readFile(std::string(folder) + "/" + kept()[0]), sound);
          EXPECT_EQ(identifiers(*AccountsManager::init()->allBasicAccounts()), left);
        } else {
          EXPECT_EQ(store->lastSaveError()->code.value(), why);
          EXPECT_THAT(store->lastSaveError()->message, HasSubstr(device.registryPath()));
          EXPECT_EQ(log.lines().back(), failure);
          EXPECT_EQ(registry(), sound);
          EXPECT_EQ(files(), onlyTheRegistry);
        }
      };

      const Store blind = broken(&AccountsManager::init);
      EXPECT_EQ(blind->count(), 0U);
      ASSERT_TRUE(blind->loadError());
      EXPECT_EQ(blind->loadError()->code.value(), errorNumber);
      EXPECT_THAT(blind->loadError()->message, HasSubstr(device.registryPath()));
      blind->insertAccount(record("c"));
      for (int save = 1; save <= 2; ++save) {
        blind->saveAllAccounts();
        expectOutcome(blind, "c");
      }

      for (const std::string& copy : kept())
        std::filesystem::remove(device.path(std::string(folder) + "/" + copy));
      writeRegistry(stored("a"), stored("b"));
      const Store seeing = AccountsManager::init();
      EXPECT_FALSE(seeing->loadError());
      seeing->insertAccount(record("c"));
      broken([&] { seeing->saveAllAccounts(); });
      expectOutcome(seeing, "a b c");
      seeing->saveAllAccounts();
      EXPECT_FALSE(seeing->lastSaveError()) << "the file can be read again";
      EXPECT_EQ(identifiers(*AccountsManager::init()->allBasicAccounts()), "a b c");
    }
  }
}

TEST_F(SavingTest, TakesAnAccountsFileVersionFromTheAccountAloneNotFromAParentWithAChildOfItsName) {
  const Dictionary parent = stored("p", {{"DisplayName", "parent"}, {"ChildAccounts", array(stored("a"))}});
  const Dictionary account = stored("a", {{"DisplayName", "account"}});
  // The child becomes an account of its own.
  writeRegistry(parent);
  const Store raising = AccountsManager::init();
  raising->removeChildWithIdentifierFromAccount("a", raising->accountWithIdentifier("p"));
  const AccountPtr raised = BasicAccount::accountWithProperties(account);
  raised->setOriginalProperties(account);
  raising->insertAccount(raised);
  raising->saveAllAccounts();
  EXPECT_EQ(root().find("Accounts"),
            array(stored("p", {{"DisplayName", "parent"}, {"ChildAccounts", array()}}), account));

  // Another store has moved the account below a parent.
  writeRegistry(account);
  const Store unaware = AccountsManager::init();
  writeRegistry(parent);
  unaware->saveAllAccounts();
  EXPECT_EQ(root().find("Accounts"), array(account));
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

}  // namespace
}  // namespace roster::testing
