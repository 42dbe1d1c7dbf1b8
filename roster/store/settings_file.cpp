#include "roster/store/settings_file.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <new>
#include <span>

#include "roster/account/vocabulary.h"
#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/stamped_property_list.h"
#include "roster/platform/system_log.h"
#include "roster/store/damaged_copies.h"

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
  std::optional<FileStamp> stamp;
  const Result<Value> file = readPropertyListFile(path_, Soundness::inspected, &stamp);
  Registry registry = contentOf(file);
  registry.stamp = stamp;
  return registry;
} catch (const std::bad_alloc&) {
  return damaged({std::errc::not_enough_memory, "could not read " + path_ + ": there is not enough memory"});
}

Registry SettingsFile::contentOf(const Result<Value>& file) const {
  if (!file) return isMissingFile(file.error()) ? Registry() : damaged(file.error());
  const std::optional<Dictionary> root = file->dictionary();
  if (!root) return damaged(damage(path_ + " is not a dictionary"));

  Registry registry;
  registry.root = root;
  registry.version = registryVersion(*root).value_or(0);
  registry.accounts = root->find(kPlistAccountsKey).array();
  registry.damage = damageOf(*file, *root, registry.accounts);
  return registry;
}

Result<> SettingsFile::replace(const ByteSource& content, const std::optional<Error>& damage,
                               const std::optional<FileStamp>& expected, std::optional<FileStamp>* written,
                               std::string* copyPath) const {
  const DamagedCopies copies(path_);
  std::optional<DamagedCopies::Copy> copy;
  if (damage && fileExists(path_)) {
    Result<DamagedCopies::Copy> kept = copies.keep();
    if (!kept) return kept.error();
    copy = *std::move(kept);
  }
  // Elsewhere anybody might put a file that looks like the lock's.
  const bool isRegistry = path_ == sharedPreferencesPath(kAccountsFilename);
  ReplacementTerms terms;
  if (isRegistry) terms.modelPath = joinPath(folderOf(folderOf(path_)), migrationLockName);
  terms.expected = expected;
  if (expected && copy) {
    // The second name has changed the file's stamp, but nothing of what was read.
    const Result<FileStamp> named = fileStamp(path_);
    if (named && named->hasContentOf(*expected)) terms.expected = *named;
  }
  Result<> replaced = replaceFile(path_, content, terms, written);
  if (copy) copies.settle(*copy, bool(replaced), damage->message);
  if (copy && replaced && copyPath != nullptr) *copyPath = copy->path;
  return replaced;
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

Registry readForLoad(const SettingsFile& file) {
  Registry registry = file.read();
  if (registry.accounts && registry.damage) {
    systemLog("Not all of the registry %@ can be used: %@", file.path(), registry.damage->message);
  }
  return registry;
}

Result<BinaryPropertyList> registryOf(std::vector<Value> accounts, const SettingsFile& file) {
  // A guess; and a file may name one account many times.
  constexpr std::size_t objectsOfAccount = 12;
  constexpr std::size_t mostExpected = std::size_t{1} << 20U;
  const std::size_t expectedObjects = std::min(accounts.size() * objectsOfAccount, mostExpected);
  const Dictionary root{{kPlistAccountsKey, Array(std::move(accounts))},
                        {kPlistVersionKey, currentRegistryVersion}};
  Result<BinaryPropertyList> registry = BinaryPropertyList::of(root, expectedObjects);
  if (registry) return registry;
  const Error& error = registry.error();
  return Error(error.code, "could not serialize the accounts for " + file.path() + ": " + error.message);
}

}  // namespace roster
