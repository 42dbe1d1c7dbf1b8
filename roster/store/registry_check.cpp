#include "roster/store/registry_check.h"

#include <algorithm>

#include "roster/account/vocabulary.h"
#include "roster/base/single_line.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/system_log.h"
#include "roster/store/account_check.h"
#include "roster/store/settings_file.h"
#include "roster/store/store_state.h"

namespace roster {

namespace {

using Kind = RegistryFinding::Kind;

void checkVersion(const Dictionary& root, AccountCheck& check) {
  const std::string current = std::to_string(currentRegistryVersion);
  const std::string what = "the next save writes " + current;
  const std::string key(kPlistVersionKey);
  const Value stored = root.find(kPlistVersionKey);
  const std::optional<std::int64_t> version = registryVersion(root);
  if (stored.isNil()) {
    check.add(Kind::repairs, key, what, "it is missing, which counts as a file that needs no migration");
  } else if (!version) {
    check.add(Kind::repairs, key, what, "it is " + std::string(kindName(stored)) + ", not a whole number");
  } else if (*version < std::int64_t{currentRegistryVersion}) {
    check.add(Kind::repairs, key, what, "it is " + std::to_string(*version) + ": the file needs a migration");
  } else if (*version > std::int64_t{currentRegistryVersion}) {
    check.add(Kind::repairs, key, what,
              "it is " + std::to_string(*version) + ": a newer library wrote the file");
  }
}

void checkRootKeys(const Dictionary& root, AccountCheck& check) {
  for (const DictionaryEntry& entry : root) {
    if (!check.mayGoOn()) return;
    if (entry.key.isNil()) {
      check.add(Kind::damage, "a key of the file", "it is left out", "it cannot be read");
    } else if (!(entry.key == kPlistAccountsKey) && !(entry.key == kPlistVersionKey)) {
      constexpr std::size_t maximumShown = 80;
      std::string name;
      appendSingleLine(name, frontOf(entry.key, maximumShown));
      check.add(Kind::ignores, name, "gone from the file at the next save",
                R"(a registry has no such key beside "Accounts" and "Version")");
    }
  }
}

void checkAccounts(const Dictionary& root, AccountCheck& check) {
  const std::string key(kPlistAccountsKey);
  const Value stored = root.find(kPlistAccountsKey);
  const std::optional<Array> accounts = stored.array();
  if (stored.isNil()) {
    check.add(Kind::ignores, key, "the registry counts as empty", "there is no such key");
  } else if (!accounts) {
    check.add(Kind::damage, key, "the registry counts as empty",
              "it is " + std::string(kindName(stored)) + ", not an array");
  } else {
    check.checkAccounts(*accounts);
  }
}

}  // namespace

std::vector<RegistryFinding> checkRegistry(const std::string& path) {
  const SystemLogSilence silence;
  const Result<Value> file = readPropertyListFile(path, Soundness::inspected);
  if (!file && isMissingFile(file.error())) return {};
  AccountCheck check(standardFixers());
  const std::optional<Dictionary> root = file ? file->dictionary() : std::nullopt;
  if (!file) {
    check.add(Kind::damage, path, "the registry counts as empty", file.error().message);
  } else if (!root) {
    check.add(Kind::damage, path, "the registry counts as empty",
              path + " is " + std::string(kindName(*file)) + ", not a dictionary");
  } else {
    checkVersion(*root, check);
    checkRootKeys(*root, check);
    checkAccounts(*root, check);
  }
  if (!check.mayGoOn()) {
    check.add(Kind::ignores, path, "the check ends here", "there is too much to look at or to report");
  }
  return std::move(check).takeFindings();
}

Result<Array> readRegistryAccounts(const std::string& path) {
  Registry registry = SettingsFile(path).read();
  const Array accounts = registry.accounts.value_or(Array());
  const bool isReadable =
      registry.accounts && std::all_of(accounts.begin(), accounts.end(), [](const Value& element) {
        return !element.isNil() && element.fault() == Fault::none;
      });
  if (isReadable || !registry.damage) return accounts;
  return naming(path, *std::move(registry.damage));
}

}  // namespace roster
