#include "roster/store/registry_check.h"

#include <algorithm>

#include "roster/account/vocabulary.h"
#include "roster/base/single_line.h"
#include "roster/platform/system_log.h"
#include "roster/store/account_check.h"
#include "roster/store/settings_file.h"
#include "roster/store/store_state.h"
#include "roster/value/kind_name.h"

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
    check.add(Kind::repairs, key, what, isNot(stored, "a whole number"));
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

/// What the load found wrong with the file, when that is nothing about one of its accounts.
RegistryFinding findingAbout(const std::string& path, const Registry& registry, const Error& damage) {
  const std::string empty = "the registry counts as empty";
  if (damage.code == std::errc::bad_message) {
    return {Kind::damage, path, registry.accounts ? "all accounts are used, but not all else" : empty,
            damage.message};
  }
  if (!isFailureOfReading(damage)) return {Kind::unread, path, empty, damage.message};
  return {Kind::unread, path, empty + ", and what loaded it so saves nothing", damage.message};
}

void checkParts(const Registry& registry, AccountCheck& check) {
  checkVersion(*registry.root, check);
  checkRootKeys(*registry.root, check);
  if (registry.accounts) return check.checkAccounts(*registry.accounts);
  check.add(Kind::ignores, std::string(kPlistAccountsKey), "the registry is empty", "there is no such key");
}

}  // namespace

std::vector<RegistryFinding> checkRegistry(const std::string& path) {
  const SystemLogSilence silence;
  const Registry registry = SettingsFile(path).read();
  AccountCheck check(standardFixers());
  // What is no registry has no parts.
  if (registry.root && (registry.accounts || !registry.damage)) checkParts(registry, check);
  if (!check.mayGoOn()) {
    check.add(Kind::ignores, path, "the check ends here", "there is too much to look at or to report");
  }
  std::vector<RegistryFinding> findings = std::move(check).takeFindings();
  const bool isDamageTold = std::any_of(findings.begin(), findings.end(), [](const RegistryFinding& finding) {
    return finding.kind == Kind::damage;
  });
  if (registry.damage && !isDamageTold) {
    findings.insert(findings.begin(), findingAbout(path, registry, *registry.damage));
  }
  return findings;
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
