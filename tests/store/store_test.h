#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>

#include "roster/platform/property_list_file.h"
#include "roster/store/accounts_manager.h"
#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {

using Store = std::shared_ptr<AccountsManager>;

/// The stored properties of an account of a known type, and whatever is added to them or put in their place.
inline Dictionary stored(std::string_view identifier, const Dictionary& more = {}) {
  auto properties =
      MutableDictionary::copyOf(Dictionary{{"Type", "CalDAV"}, {"Class", "X"}, {"Identifier", identifier}});
  for (const DictionaryEntry& entry : more) properties.set(entry.key, entry.value);
  return *Value(properties).deepCopy().dictionary();
}
inline AccountPtr record(std::string_view identifier, const Dictionary& more = {}) {
  return BasicAccount::accountWithProperties(stored(identifier, more));
}

inline Store storeOf(const Value& accounts) {
  return AccountsManager::initWithAccounsInfoArray(accounts.array().value_or(Array()));
}

template <class Accounts>
std::string identifiers(const Accounts& accounts) {
  std::string text;
  for (const AccountPtr& account : accounts) text += (text.empty() ? "" : " ") + account->identifier().str();
  return text;
}

/// A fixer that does what a test says, and notes what it is told.
class ScriptedFixer : public RSRuntimeFixProtocol {
 public:
  using Fix = std::function<FixResult(const AccountPtr&)>;
  using Note = std::function<void(const std::string&)>;
  explicit ScriptedFixer(
      Fix fix, Note note = [](const std::string&) {})
      : fix_(std::move(fix)), note_(std::move(note)) {}
  const std::set<std::string, std::less<>>& supportedAccountTypes() const override {
    static const std::set<std::string, std::less<>> none;
    return none;
  }
  FixResult fixBasicAccountIfNeededLoggingMessage(const AccountPtr& account,
                                                  std::string_view message) override {
    note_(std::string(message) + " " + account->identifier().str());
    return fix_(account);
  }
  void accountsHaveBeenSaved(bool areSaved) override { note_(areSaved ? "saved" : "not saved"); }

 private:
  Fix fix_;
  Note note_;
};

/// A store of a class of its own, with fixers of its own, that may save elsewhere.
class CustomStore : public AccountsManager {
 public:
  using AccountsManager::AccountsManager;
  static inline std::vector<ScriptedFixer> fixers{};
  static inline std::string path{};
  static std::shared_ptr<CustomStore> load(std::vector<ScriptedFixer> newFixers, std::string newPath = {}) {
    fixers = std::move(newFixers);
    path = std::move(newPath);
    return makeInsideOfMigration<CustomStore>();
  }

 protected:
  std::vector<std::shared_ptr<RSRuntimeFixProtocol>> _createRuntimeFixers() const override {
    std::vector<std::shared_ptr<RSRuntimeFixProtocol>> made;
    for (const ScriptedFixer& fixer : fixers) made.push_back(std::make_shared<ScriptedFixer>(fixer));
    return made;
  }
  std::string settingsPath() const override { return path.empty() ? AccountsManager::settingsPath() : path; }
};

class StoreTest : public ::testing::Test {
 protected:
  static constexpr std::string_view folder = "var/lib/roster/Preferences";
  static constexpr std::string_view fileName = "com.nimbal.roster.plist";

  template <class... Accounts>
  void writeRegistry(const Accounts&... accounts) const {
    device.writePropertyList(device.registryPath(),
                             Dictionary{{"Accounts", array(accounts...)}, {"Version", 12}});
  }
  /// The root of the file as it is now.
  Dictionary root() const {
    const Result<Dictionary> file = readDictionaryFile(device.registryPath());
    EXPECT_TRUE(file) << file.error().message;
    return file ? *file : Dictionary();
  }
  Dictionary storedAccount(std::size_t index) const {
    return root().find("Accounts").array().value_or(Array()).at(index).dictionary().value_or(Dictionary());
  }
  std::string registry() const { return device.readFile(device.registryPath()); }
  std::vector<std::string> files() const { return device.fileNames(folder); }
  /// The names of the damaged files that were kept.
  std::vector<std::string> kept() const {
    std::vector<std::string> names = files();
    std::erase(names, fileName);
    return names;
  }

  TemporaryDevice device;
  CapturedLog log;
};

/// The elements of a list, none of any other value.
inline Array elementsOf(const Value& list) { return list.array().value_or(Array()); }

/// Whether tests that play many rounds are to play as many as before a merge.
inline bool areTestsLong() { return std::getenv("ROSTER_LONG_TESTS") != nullptr; }

using Lines = std::vector<std::string>;

inline std::size_t linesWith(const Lines& lines, std::string_view text) {
  return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.find(text) != std::string::npos;
  }));
}

/// Starts a process that does the work and ends with whether that went well; an exception ends it badly.
inline pid_t startProcess(const std::function<bool()>& work) {
  const pid_t process = fork();
  if (process == 0) [&]() noexcept { _exit(work() ? 0 : 1); }();
  return process;
}
inline bool endsWell(pid_t process) {
  int status = 0;
  return waitpid(process, &status, 0) == process && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Lines up processes: each end is inherited by those that are started later.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    for (const int end : ends_) close(end);
  }
  bool tell(char what) const { return write(ends_[1], &what, 1) == 1; }
  /// What was told, or nul when all who might tell something are gone.
  char hear() const {
    char what = '\0';
    return read(ends_[0], &what, 1) == 1 ? what : '\0';
  }
  void onlyHear() { close(std::exchange(ends_[1], -1)); }

 private:
  std::array<int, 2> ends_{-1, -1};
};

}  // namespace roster::testing
