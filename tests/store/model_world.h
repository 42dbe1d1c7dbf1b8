#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "roster/account/saved_properties.h"
#include "roster/platform/linux/file_calls.h"
#include "tests/store/registry_model.h"
#include "tests/store/store_test.h"

namespace roster::testing::model {

struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};
inline void require(bool isSo, const std::string& what) {
  if (!isSo) throw Failure(what);
}

// ---- Values and the model's texts

/// Identifiers that the library draws go by a name of the model, "?1", as long as a sequence lasts.
class Names {
 public:
  std::string draw() { return "?" + std::to_string(++count_); }
  void bind(const std::string& name, const std::string& drawn) {
    if (!name.starts_with("?") || drawn.starts_with("?") || drawnByName_.contains(name)) return;
    drawnByName_[name] = drawn;
    nameByDrawn_[drawn] = name;
  }
  std::string named(const std::string& id) const {
    const auto found = nameByDrawn_.find(id);
    return found == nameByDrawn_.end() ? id : found->second;
  }
  std::string drawn(const std::string& name) const {
    const auto found = drawnByName_.find(name);
    return found == drawnByName_.end() ? name : found->second;
  }

 private:
  unsigned count_ = 0;
  std::map<std::string, std::string> drawnByName_;
  std::map<std::string, std::string> nameByDrawn_;
};

constexpr std::string_view notADictionary = "text";

inline Account accountOf(const Value& value, const Names& names) {
  Account account;
  const std::optional<Dictionary> dictionary = value.dictionary();
  if (!dictionary) return {"", {{std::string(notADictionary), value.string().str()}}, {}};
  for (const DictionaryEntry& entry : *dictionary) {
    const std::string key = entry.key.str();
    if (key == kAccountIdentifier) {
      account.id = names.named(entry.value.string().str());
    } else if (key == kAccountChildAccounts) {
      account.children.emplace();
      for (const Value& child : elementsOf(entry.value)) account.children->push_back(accountOf(child, names));
    } else if (key == kAccountEnabledDataclasses || key == kAccountProvisionedDataclasses) {
      account.properties[key == kAccountEnabledDataclasses ? "enabled" : "provisioned"] =
          shortNames(stringList(entry.value));
    } else if (key != kAccountClass && key != kAccountSyncIdentifier &&
               !(key == kAccountType && entry.value == Value("T"))) {
      account.properties[key] = entry.value.string().str();
    }
  }
  return account;
}

inline Value valueOf(const Account& account, const Names& names) {
  if (const auto text = account.find(std::string(notADictionary))) return *text;
  auto dictionary = MutableDictionary::copyOf(Dictionary{{"Type", "T"}, {"Class", "X"}});
  if (!account.id.empty()) dictionary.set("Identifier", names.drawn(account.id));
  if (account.id.starts_with("?")) dictionary.set("Sync Identifier", names.drawn(account.id));
  for (const auto& [key, value] : account.properties) {
    const bool isList = key == "enabled" || key == "provisioned";
    dictionary.set(key == "enabled"       ? kAccountEnabledDataclasses
                   : key == "provisioned" ? kAccountProvisionedDataclasses
                                          : std::string_view(key),
                   isList ? dataclassArray(value) : Value(value));
  }
  std::vector<Value> children;
  for (const Account& child : account.childList()) children.push_back(valueOf(child, names));
  if (account.children) dictionary.set("ChildAccounts", Array(std::move(children)));
  return Value(dictionary).deepCopy();
}

// ---- What the model knows of the file and of a store

struct File {
  bool isMissing = true;
  bool isGarbage = false;
  Registry accounts{};

  bool isDamaged() const {
    return isGarbage || std::any_of(accounts.begin(), accounts.end(), isNoDictionary);
  }
  bool isWhole() const { return !isMissing && !isDamaged(); }
  static bool isNoDictionary(const Account& account) {
    return account.properties.contains(std::string(notADictionary));
  }
  /// Neither a type that is not known nor what the fixer rejects becomes a record.
  static bool isUsable(const Account& account) {
    return !isNoDictionary(account) && !account.find("Type") && account.find("state") != "lost";
  }
};

struct Nameless {
  std::string name;
  Account stored;
};

struct Program {
  std::shared_ptr<AccountsManager> store{};
  Places base{};
  Registry told{};
  std::map<std::string, Account> originals{};
  std::vector<Nameless> nameless{};
  bool isUnseen = false;
};

/// What a program has in memory: its accounts, and what its records were last loaded or saved as.
struct Memory {
  Registry accounts{};
  std::map<std::string, Account> originals{};
  std::set<std::string> records{};
};

/// What a refresh makes of memory and, if it is to be written, of the file.
struct Refreshed {
  Memory memory{};
  Registry written{};
  bool isToBeWritten = false;
};

inline const Account* find(const Registry& registry, const std::string& id) {
  const auto found = std::find_if(registry.rbegin(), registry.rend(),
                                  [&](const Account& account) { return account.id == id; });
  return found == registry.rend() ? nullptr : &*found;
}

using Texts = std::vector<std::string>;

/// The top-level accounts that differ, in the order of `changesBetween`.
inline Texts changes(const Registry& before, const Registry& after) {
  Texts removed;
  Texts modified;
  for (const Account& account : before) {
    const Account* now = find(after, account.id);
    if (now == nullptr) removed.push_back("2 " + account.id);
    if (now != nullptr && !(*now == account)) modified.push_back("1 " + account.id);
  }
  for (const Account& account : after) {
    if (find(before, account.id) == nullptr) removed.push_back("0 " + account.id);
  }
  removed.insert(removed.end(), modified.begin(), modified.end());
  return removed;
}

/// What the notifier of the three known dataclasses hears; children and unknown dataclasses are not its
/// concern.
inline Texts heardOf(const Registry& told, const Registry& now) {
  Texts heard;
  for (const std::string& change : changes(told, now)) {
    const Account* before = find(told, change.substr(2));
    const Account* after = find(now, change.substr(2));
    if ((after != nullptr ? after : before)->find("Type")) continue;  // nobody hears of that type
    const auto enabled = [](const Account* account) {
      const Words words = wordsOf(account ? account->find("enabled").value_or("") : "");
      return std::set<std::string>(words.begin(), words.end());
    };
    const auto others = [](const Account* account) {
      auto properties = account->properties;
      properties.erase("enabled");
      return properties;
    };
    std::set<std::string> concerned;
    const std::set<std::string> was = enabled(before);
    const std::set<std::string> is = enabled(after);
    std::set_symmetric_difference(was.begin(), was.end(), is.begin(), is.end(),
                                  std::inserter(concerned, concerned.end()));
    if (before != nullptr && after != nullptr && others(before) != others(after))
      concerned.insert(is.begin(), is.end());
    if (concerned.contains("Mail") || concerned.contains("Notes") || concerned.contains("Contacts"))
      heard.push_back(change);
  }
  return heard;
}

inline std::string joined(const Texts& texts) {
  std::string text;
  for (const std::string& each : texts) text += (text.empty() ? "" : ", ") + each;
  return text;
}

// ---- What may happen while a store writes

enum class Trouble { none, beforeRename, afterRename, meddler };
inline std::function<void()>& meddler() {
  static std::function<void()> function;
  return function;
}

inline FileCalls callsWith(Trouble trouble) {
  FileCalls calls = fileCalls();
  calls.fsync = [](int) { return 0; };
  if (trouble == Trouble::beforeRename) {
    calls.renameat = [](int, const char*, int, const char*) {
      errno = ENOSPC;
      return -1;
    };
  } else if (trouble == Trouble::afterRename) {
    calls.fsync = [](int fd) {
      struct stat status {};
      errno = EIO;
      return fstat(fd, &status) == 0 && S_ISDIR(status.st_mode) ? -1 : 0;
    };
  } else if (trouble == Trouble::meddler) {
    calls.write = [](int fd, const void* bytes, std::size_t size) {
      if (const auto meddle = std::exchange(meddler(), nullptr)) meddle();
      return ::write(fd, bytes, size);
    };
  }
  return calls;
}

/// What may happen. First what others do to the file by themselves, then what a program does.
enum class Op {
  outsideAdd,
  outsideAddNameless,
  outsideAddUnusable,
  outsideRemove,
  outsideSet,
  outsideChild,
  damage,
  garbage,
  remove,
  empty,
  load,
  insert,
  erase,
  set,
  unset,
  lists,
  addChild,
  removeChild,
  changeChild,
  move,
  refresh,
  sync,
  save,
  rest
};
/// Which account, child or value is meant follows from the numbers; a step that means nothing does nothing.
struct Step {
  Op op;
  unsigned program;
  unsigned a;
  unsigned b;
  unsigned n;
};

/// Three programs on one device, each step done by the library and by the model.
class World {
 public:
  World(const TemporaryDevice& device, Texts& heard)
      : device_(device), heard_(heard), calls_(callsWith(Trouble::none)) {
    std::filesystem::remove_all(std::filesystem::path(device.registryPath()).parent_path());
  }

  void run(const std::vector<Step>& steps) {
    for (const Step& step : steps) perform(step);
  }
  const std::string& story() const { return story_; }

 private:
  // ---- Steps of others, who write the file by themselves
  void perform(const Step& step);
  void performOutside(const Step& step);
  void addChildOutside(Account& account, const Step& step);
  void damage(const Step& step);
  void performInside(Program& program, const Step& step);
  std::string changeAccount(Program& program, const AccountPtr& account, const Step& step);
  std::string changeChildren(Program& program, const AccountPtr& account, const Step& step);
  std::string move(Program& program, const AccountPtr& account, const AccountPtr& child, const Step& step);
  void eraseAll(Program& program, const String& id) const;
  AccountPtr made(const std::string& id);
  void note(const std::string& what, const std::string& by, const std::string& value);
  void writeFile() const {
    if (file_.isMissing) {
      std::filesystem::remove(device_.registryPath());
    } else if (file_.isGarbage) {
      device_.writeFile(device_.registryPath(), "garbage");
    } else {
      std::vector<Value> accounts;
      for (const Account& account : file_.accounts) accounts.push_back(valueOf(account, names_));
      device_.writePropertyList(device_.registryPath(),
                                Dictionary{{"Accounts", Array(std::move(accounts))}, {"Version", 12}});
    }
  }
  void checkFile() {
    const Result<Dictionary> root = readDictionaryFile(device_.registryPath());
    require(bool(root) == !(file_.isMissing || file_.isGarbage), "the file is not as it should be");
    if (!root) return;
    Registry accounts;
    for (const Value& account : elementsOf(root->find("Accounts")))
      accounts.push_back(accountOf(account, names_));
    compare(file_.accounts, accounts, "the file");
    if (hasDuplicates(accounts)) file_.accounts = accounts;
  }

  void compare(const Registry& expected, const Registry& found, const std::string& what) {
    const Registry wanted = withoutDuplicates(expected);
    Registry is = withoutDuplicates(found);
    for (std::size_t i = 0; i < std::min(wanted.size(), is.size()); ++i) {
      if (is[i].id.size() != 36) continue;
      names_.bind(wanted[i].id, is[i].id);
      is[i].id = names_.named(is[i].id);
    }
    require(textOf(wanted) == textOf(is), what + " has\n" + textOf(is) + "  and not\n" + textOf(wanted));
  }

  // ---- The model's programs
  Memory memoryOf(const Program& program) const;
  Registry read(Program& program, Memory& memory, Registry& elements);
  Refreshed bringIn(Program& program, Memory& memory);
  static Memory keepOriginals(const Memory& memory, const Refreshed& result, const Registry& theirs,
                              const Places& formerBase, const Places& base);
  Registry saved(const Memory& memory) const;

  void load(Program& program);
  void refresh(Program& program);
  bool sync(Program& program, Trouble trouble, bool isForced, Program* other);
  void save(Program& program, Trouble trouble);
  void check(const Program& program, const Memory& memory);
  void checkIdentity(const Program& program, const std::map<std::string, AccountPtr>& before) const;
  std::map<std::string, AccountPtr> records(const Program& program) const;
  void expectHeard(const Texts& expected);
  void comeToRest();
  void checkNothingIsLost() const;
  void tell(const std::string& line) { story_ += line + "\n"; }
  std::string nameOf(const Program& program) const {
    return "program " + std::to_string(&program - programs_.data() + 1);
  }

  const TemporaryDevice& device_;
  Texts& heard_;
  const FileCallsOverride calls_;
  std::array<Program, 3> programs_;
  File file_;
  Names names_;
  std::string story_;
  unsigned values_ = 0;
  /// What each program has set last, by account and key, as long as nobody has done anything but add and set.
  std::map<std::string, std::map<std::string, std::string>> set_;
  bool isAnythingTakenAway_ = false;
};

}  // namespace roster::testing::model
