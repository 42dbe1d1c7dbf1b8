#include "roster/account/saved_properties.h"
#include "roster/diag/debug_log.h"
#include "roster/platform/assertion.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/merge.h"
#include "roster/store/settings_file.h"
#include "roster/store/store_state.h"

namespace roster {

namespace {

/// The accounts of the file by identifier, as a store would have them: of several with one identifier the
/// last.
class AccountsOnDisk {
 public:
  explicit AccountsOnDisk(const FileVersion& version) {
    byID_.reserve(version.accounts.size());
    for (const Dictionary& account : version.accounts) {
      if (const String identifier = storedIdentifier(account)) byID_.set(identifier, account);
    }
  }

  /// Empty when there is none.
  Dictionary find(const String& identifier) const {
    const Dictionary* found = identifier ? byID_.find(identifier) : nullptr;
    return found == nullptr ? Dictionary() : *found;
  }

 private:
  OrderedMap<Dictionary> byID_;
};

std::vector<Value> mergedAccounts(const AccountsManager& store, const std::vector<AccountPtr>& accounts,
                                  const AccountsOnDisk& onDisk) {
  std::vector<Value> merged;
  merged.reserve(accounts.size());
  for (const AccountPtr& account : accounts) {
    const Dictionary properties = store.mergeInMemoryPropertiesOriginalPropertiesOnDiskProperties(
        SavedProperties::of(*account), account->originalProperties(), onDisk.find(account->identifier()));
    merged.emplace_back(properties);
    RSLog("%@:%@", account->type(), properties);
  }
  return merged;
}

/// Nobody finds children, or asks what has changed, in the second store of a save: it is only what the fixers
/// make of the file's accounts.
AccountsOnDisk accountsOnDisk(const Registry& registry) {
  return AccountsOnDisk(fileVersion(registry.accounts.value_or(Array()), standardFixers(), {}));
}

/// Fails when the file could not be read through no fault of its own. It may be sound, and other programs go
/// on working with it: it must not be replaced by what this store happens to know.
Result<> requireRead(const std::optional<Error>& damage, const std::string& meaning) {
  if (!damage || !isFailureOfReading(*damage)) return {};
  systemLog("%@: %@", meaning, damage->message);
  return Error(damage->code, meaning + ": " + damage->message);
}

/// A registry that could not be read may hold accounts that the store does not know of: it is never
/// overwritten.
Result<> writeRegistry(const SettingsFile& file, std::vector<Value> accounts,
                       const std::optional<Error>& damage, const std::optional<FileStamp>& expected,
                       std::optional<FileStamp>& written) {
  const Result<BinaryPropertyList> registry = registryOf(std::move(accounts), file);
  if (!registry) {
    systemLog("Failed to serialize account settings data: %@", registry.error().message);
    return registry.error();
  }
  Result<> replaced = file.replace(registry->source(), damage, expected, &written);
  if (!replaced && !isChangedMeanwhile(replaced.error())) systemLog("%@", replaced.error().message);
  return replaced;
}

}  // namespace

void AccountsManager::saveAllAccounts() {
  const std::shared_ptr<const AccountsManager> kept = shared_from_this();
  if (!_state->mayBegin("-[AccountsManager saveAllAccounts]")) return;
  BusyStore busy(*_state);
  RSLog("Saving all accounts");
  const bool isAnythingFixed = _state->fixBeforeSaving();
  const std::vector<AccountPtr> accounts = _state->topLevelRecords();

  const Result<> saved = mergeAndWrite(accounts);
  busy.setOutcome(saved);
  if (saved) {
    _state->unseen.reset();
    StoreState::renewOriginals(accounts);
  } else {
    systemLog("Failed to save accounts to filesystem.");
  }
  if (isAnythingFixed) _state->tellFixers(true);
  if (saved && !areNotificationsSkipped()) _state->announceAndTakeSnapshot();
}

/// Whoever replaces the file between the reading and the writing is merged with too. The last attempt writes
/// in any case: a save that others keep from writing for ever would be worse.
Result<> AccountsManager::mergeAndWrite(const std::vector<AccountPtr>& accounts) const {
  constexpr int attempts = 5;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    Result<> done = mergeAndWriteOnce(accounts, false);
    if (done || !isChangedMeanwhile(done.error())) return done;
  }
  return mergeAndWriteOnce(accounts, true);
}

Result<> AccountsManager::mergeAndWriteOnce(const std::vector<AccountPtr>& accounts,
                                            bool isLastAttempt) const {
  const std::optional<Error>& unseen = _state->unseen;
  if (Result<> done = requireRead(unseen, "the registry was not read when this store was loaded"); !done)
    return done;
  const Registry registry = readForLoad(SettingsFile(fullPathToRosterPlist()));
  const std::string unread = "the registry could not be read to be merged with";
  if (Result<> done = requireRead(registry.damage, unread); !done) return done;
  const SettingsFile file(settingsPath());
  std::optional<Error> damage = registry.damage;
  std::optional<FileStamp> stamp = registry.stamp;
  if (file.path() != fullPathToRosterPlist()) {
    const Registry replaced = file.read();
    damage = replaced.damage;
    stamp = replaced.stamp;
    if (Result<> done = requireRead(damage, unread); !done) return done;
  }
  // Whatever the file has become since: what is in it, this store has never seen.
  if (!damage && unseen) damage = Error(unseen->code, "when it was loaded, " + unseen->message);

  std::vector<Value> merged = mergedAccounts(*this, accounts, accountsOnDisk(registry));
  std::optional<FileStamp> written;
  const std::optional<FileStamp> expected = isLastAttempt ? std::nullopt : stamp;
  Result<> replaced = writeRegistry(file, std::move(merged), damage, expected, written);
  // From the moment at which the file is in its place, others go on from what it has, whatever fails then.
  if (replaced || written) {
    _state->takeBase(accounts);
    _state->nameless.clear();
  }
  return replaced;
}

const std::optional<Error>& AccountsManager::lastSaveError() const { return _state->lastSaveError; }

bool StoreState::mayBegin(std::string_view operation) {
  if (!isBusy) return true;
  const std::string why = formatted("%@ was called by what a save of the same store calls", operation);
  lastSaveError = Error(std::errc::operation_in_progress, why);
  assertionFailed(operation, "AccountsManager", why);
  return false;
}

bool StoreState::fixBeforeSaving() {
  const std::vector<AccountPtr> accounts = topLevelRecords();
  bool isAnythingFixed = false;
  for (std::size_t index = accounts.size(); index-- > 0;) {
    const AccountPtr& account = accounts[index];
    for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : fixers) {
      const FixResult result = fixer->fixBasicAccountIfNeededLoggingMessage(account, "saving accounts");
      if (result == FixResult::nothingDone) continue;
      isAnythingFixed = true;
      if (result != FixResult::unrepairable) continue;
      const String identifier = account->identifier();
      indexes.removeChildrenOf(identifier);
      indexes.removeTopLevel(identifier);
    }
  }
  return isAnythingFixed;
}

Dictionary AccountsManager::mergeInMemoryPropertiesOriginalPropertiesOnDiskProperties(
    const Dictionary& inMemory, const Dictionary& original, const Dictionary& onDisk) const {
  RSLog("Merging inmem %@ orig %@ onDisk %@", inMemory, original, onDisk);
  Dictionary merged = mergeProperties(inMemory, original, onDisk);
  RSLog("merged to %@", merged);
  return merged;
}

}  // namespace roster
