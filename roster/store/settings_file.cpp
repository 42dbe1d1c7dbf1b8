#include "roster/store/settings_file.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <new>
#include <span>
#include <system_error>

#include "roster/account/vocabulary.h"
#include "roster/platform/device.h"
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

Error damage(std::string why) { return {std::errc::bad_message, std::move(why)}; }

/// What about "Accounts" cannot be read as accounts.
std::optional<Error> damageOf(const Array& accounts) {
  std::size_t index = 0;
  for (const Value& element : accounts) {
    if (!element.isDictionary() || element.fault() != Fault::none) {
      return damage("its account " + std::to_string(index) + damageOfAccount(element));
    }
    ++index;
  }
  return std::nullopt;
}

/// A fault of the file beside its accounts, which are sound, but share so much that the whole would be too
/// large. That alone is no damage: each account is read by itself.
Fault faultBesideAccounts(const Dictionary& root) {
  for (const DictionaryEntry& entry : root) {
    if (entry.key.isNil() || entry.value.isNil()) return Fault::unknownObject;
    if (entry.key != kPlistAccountsKey && entry.value.fault() != Fault::none) return entry.value.fault();
  }
  return Fault::none;
}

/// What about the file cannot be read as a registry.
std::optional<Error> damageOf(const Value& file, const Dictionary& root,
                              const std::optional<Array>& accounts) {
  if (!accounts && root.contains(kPlistAccountsKey)) return damage("its \"Accounts\" are not an array");
  if (accounts) {
    if (std::optional<Error> found = damageOf(*accounts)) return found;
  }
  const bool isOnlyLarge = accounts && file.fault() == Fault::tooLarge;
  const Fault fault = isOnlyLarge ? faultBesideAccounts(root) : file.fault();
  if (fault != Fault::none) return damage("it has a value that " + std::string(describe(fault)));
  // A file with only a version may be intended. Without it the accounts may be there, but not under their
  // key.
  const bool isEmptyRegistry = root.size() == 1 && root.contains(kPlistVersionKey);
  if (!accounts && !isEmptyRegistry) return damage("it has no \"Accounts\"");
  return std::nullopt;
}

Registry damaged(Error why) {
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

constexpr const char* copySuffix = ".damaged-";

/// The name of a copy that was kept by giving the very same file a second one; nothing when there is none.
/// Only a file that is known to have several names is worth a search of its folder.
std::optional<std::string> earlierCopy(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (fs::hard_link_count(path, error) < 2 || error) return std::nullopt;
  const std::string ownName = fs::path(path).filename().string();
  for (fs::directory_iterator entry(folderOf(path), error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    std::error_code unknown;
    // A link that leads to the file would lead to its successor.
    const bool isFile = entry->symlink_status(unknown).type() == fs::file_type::regular;
    if (isFile && name.starts_with(ownName + copySuffix) && fs::equivalent(path, entry->path(), unknown)) {
      return path + name.substr(ownName.size());
    }
  }
  return std::nullopt;
}

}  // namespace

bool isFailureOfReading(const Error& error) {
  constexpr std::errc codes[] = {std::errc::too_many_files_open,
                                 std::errc::too_many_files_open_in_system,
                                 std::errc::not_enough_memory,
                                 std::errc::io_error,
                                 std::errc::resource_unavailable_try_again,
                                 std::errc::device_or_resource_busy,
                                 std::errc::interrupted,
                                 std::errc::timed_out};
  return std::any_of(std::begin(codes), std::end(codes), [&](std::errc code) { return error.code == code; });
}

Registry SettingsFile::read() const try {
  const Result<Value> file = readPropertyListFile(path_, Soundness::inspected);
  if (!file) return isMissingFile(file.error()) ? Registry() : damaged(file.error());
  const std::optional<Dictionary> root = file->dictionary();
  if (!root) return damaged(damage(path_ + " is not a dictionary"));

  Registry registry;
  registry.root = root;
  registry.version = registryVersion(*root).value_or(0);
  registry.accounts = root->find(kPlistAccountsKey).array();
  registry.damage = damageOf(*file, *root, registry.accounts);
  return registry;
} catch (const std::bad_alloc&) {
  return damaged({std::errc::not_enough_memory, "could not read " + path_ + ": there is not enough memory"});
}

Result<> SettingsFile::replace(const std::string& bytes, const std::optional<Error>& damage) const {
  const bool isToBeKept = damage && fileExists(path_);
  const Result<std::string> copy = isToBeKept ? keepCopy() : Result<std::string>(std::string());
  if (!copy) return copy.error();
  // Elsewhere anybody might put a file that looks like the lock's.
  const bool isRegistry = path_ == sharedPreferencesPath(kAccountsFilename);
  const std::string model =
      isRegistry ? joinPath(folderOf(folderOf(path_)), migrationLockName) : std::string();
  Result<> replaced = replaceFile(path_, std::as_bytes(std::span(bytes)), model);
  // While the damaged file is still in its place, a second name for it is of no use.
  std::error_code ignored;
  const bool isLitter = !replaced && isToBeKept && std::filesystem::equivalent(path_, *copy, ignored);
  if (isLitter) std::filesystem::remove(*copy, ignored);
  if (isToBeKept && !isLitter)
    systemLog("Kept the damaged registry %@ as %@: %@", path_, *copy, damage->message);
  return replaced;
}

Result<std::string> SettingsFile::keepCopy() const {
  constexpr int maximumAttempts = 1000;
  if (std::optional<std::string> known = earlierCopy(path_)) return *std::move(known);
  const std::string base = path_ + copySuffix + utcTime();
  std::string name = base;
  for (int attempt = 2;; ++attempt) {
    const Result<> kept = keepFileAs(path_, name);
    if (kept) return name;
    // Only a name that is taken is a reason to try another one.
    if (kept.error().code != std::errc::file_exists || attempt > maximumAttempts) return kept.error();
    name = base + "-" + std::to_string(attempt);
  }
}

Error naming(const std::string& path, Error error) {
  if (error.message.find(path) == std::string::npos) error.message = path + ": " + error.message;
  return error;
}

std::optional<std::int64_t> registryVersion(const Dictionary& root) {
  const Value version = root.find(kPlistVersionKey);
  if (version.kind() != Value::Kind::real) return version.integer();
  constexpr double beyond = 0x1p63;
  const double number = *version.real();
  const bool isWhole = number >= -beyond && number < beyond && std::trunc(number) == number;
  return isWhole ? std::optional(static_cast<std::int64_t>(number)) : std::nullopt;
}

Result<std::string> registryBytes(std::vector<Value> accounts) {
  const Dictionary root{{kPlistAccountsKey, Array(std::move(accounts))},
                        {kPlistVersionKey, currentRegistryVersion}};
  return binaryPropertyList(root);
}

}  // namespace roster
