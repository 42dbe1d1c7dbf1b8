#include "roster/store/settings_file.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <span>
#include <system_error>

#include "roster/account/vocabulary.h"
#include "roster/platform/file_system.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

std::string damageOfAccount(const Value& account) {
  if (account.isNil()) return " cannot be read";
  if (!account.isDictionary()) return " is not a dictionary";
  return " has a value that " + std::string(describe(account.fault()));
}

/// What about "Accounts" cannot be read as accounts; empty when there is nothing.
std::string damageOf(const Array& accounts) {
  std::size_t index = 0;
  for (const Value& element : accounts) {
    if (!element.isDictionary() || element.fault() != Fault::none) {
      return "its account " + std::to_string(index) + damageOfAccount(element);
    }
    ++index;
  }
  return {};
}

/// What about the file cannot be read as a registry; empty when there is nothing.
std::string damageOf(const Value& file, const Dictionary& root, const std::optional<Array>& accounts) {
  std::string damage;
  if (accounts) {
    damage = damageOf(*accounts);
  } else if (root.contains(kPlistAccountsKey)) {
    damage = "its \"Accounts\" are not an array";
  }
  if (!damage.empty()) return damage;
  if (file.fault() != Fault::none) return "it has a value that " + std::string(describe(file.fault()));
  // A version alone may be meant. Without it the accounts may be there, but not under their key.
  const bool isEmptyRegistry = root.size() == 1 && root.contains(kPlistVersionKey);
  return accounts || isEmptyRegistry ? "" : "it has no \"Accounts\"";
}

Registry damaged(std::string why) {
  Registry registry;
  registry.damage = std::move(why);
  return registry;
}

/// The present moment as file names can carry it: 20261121T080905Z.
std::string utcTime() {
  using namespace std::chrono;
  const auto now = floor<seconds>(system_clock::now());
  const auto today = floor<days>(now);
  const year_month_day date(today);
  const hh_mm_ss time(now - today);
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%04d%02u%02uT%02d%02d%02dZ",
                                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                                  static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                                  static_cast<int>(time.minutes().count()),
                                  static_cast<int>(time.seconds().count())));
  return text.data();
}

}  // namespace

Registry SettingsFile::read() const {
  const Result<Value> file = readPropertyListFile(path_, Soundness::inspected);
  if (!file) return isMissingFile(file.error()) ? Registry() : damaged(file.error().message);
  const std::optional<Dictionary> root = file->dictionary();
  if (!root) return damaged(path_ + " is not a dictionary");

  Registry registry;
  registry.version = root->find(kPlistVersionKey).integer().value_or(0);
  registry.accounts = root->find(kPlistAccountsKey).array();
  registry.damage = damageOf(*file, *root, registry.accounts);
  return registry;
}

Result<> SettingsFile::replace(const std::string& bytes, const std::string& damage) const {
  const bool isToBeKept = !damage.empty() && fileExists(path_);
  const std::string copy = isToBeKept ? nameForDamaged() : std::string();
  if (isToBeKept) {
    if (const Result<> kept = keepFileAs(path_, copy); !kept) return kept;
  }
  const Result<> replaced = replaceFile(path_, std::as_bytes(std::span(bytes)));
  // While the damaged file is still in its place, a second name for it would only be litter.
  std::error_code ignored;
  const bool isLitter = !replaced && isToBeKept && std::filesystem::equivalent(path_, copy, ignored);
  if (isLitter) std::filesystem::remove(copy, ignored);
  if (isToBeKept && !isLitter) systemLog("Kept the damaged registry %@ as %@: %@", path_, copy, damage);
  return replaced;
}

std::string SettingsFile::nameForDamaged() const {
  const std::string base = path_ + ".damaged-" + utcTime();
  std::string name = base;
  for (int attempt = 2; fileExists(name); ++attempt) name = base + "-" + std::to_string(attempt);
  return name;
}

Result<std::string> registryBytes(std::vector<Value> accounts) {
  const Dictionary root{{kPlistAccountsKey, Array(std::move(accounts))},
                        {kPlistVersionKey, currentRegistryVersion}};
  return binaryPropertyList(root);
}

}  // namespace roster
