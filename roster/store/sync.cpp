#include <iterator>

#include "roster/account/saved_properties.h"
#include "roster/diag/debug_log.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/refresh.h"
#include "roster/store/registry_lock.h"
#include "roster/value/ordered_map.h"

namespace roster {

namespace {

/// How often at least a sync tries again when somebody who takes no lock has replaced the file between its
/// reading and its writing; as long as its patience lasts it goes on.
constexpr int leastAttempts = 8;

/// One list of changes, where an account has one change, from what it was first to what it is last.
std::vector<AccountChange> joined(const std::vector<AccountChange>& earlier,
                                  std::vector<AccountChange> later) {
  if (earlier.empty()) return later;
  OrderedMap<AccountChange> net;
  for (const AccountChange& change : earlier) net.set(change.identifier(), change);
  for (AccountChange& change : later) {
    // What was added and is gone again has no text left that could tell it.
    const String identifier = change.identifier();
    const AccountChange* known = net.find(identifier);
    if (known != nullptr) change.original = known->original;
    net.set(identifier, change);
  }
  std::vector<AccountChange> removed;
  std::vector<AccountChange> added;
  std::vector<AccountChange> modified;
  for (const auto& entry : net) {
    const AccountChange& change = entry.value;
    if (change.original == change.current) continue;
    if (change.current.empty()) {
      removed.push_back({RSAccountChangeTypeRemoved, change.original, {}});
    } else if (change.original.empty()) {
      added.push_back({RSAccountChangeTypeAdded, {}, change.current});
    } else {
      modified.push_back({RSAccountChangeTypeModified, change.original, change.current});
    }
  }
  std::move(added.begin(), added.end(), std::back_inserter(removed));
  std::move(modified.begin(), modified.end(), std::back_inserter(removed));
  return removed;
}

/// Whether the store has never had all that the damaged file may still hold.
std::optional<Error> refusal(const StoreState& store, const ReadRegistry& read, const SyncOptions& options) {
  if (!store.unseen || !read.damage || options.replacesDamagedRegistry) return std::nullopt;
  return Error(
      read.damage->code,
      "the registry is damaged and was never read in full, so it is not replaced: " + read.damage->message);
}

/// One refresh, and the write that may have to follow it. An error that `isChangedMeanwhile` asks for another
/// round.
Result<> refreshAndWrite(const SettingsFile& file, StoreState& store, const RuntimeFixers& fixers,
                         const SyncOptions& options, SyncResult& result) {
  const Result<ReadRegistry> read = readForRefresh(file, store, fixers, Unusable::isDamage);
  if (!read) return read.error();
  StoreRefresh refresh(store, read->version, read->isWhole());
  AccountList accounts = refresh.accounts();
  const bool isToBeWritten =
      refresh.isFileDifferent() || read->damage || (read->isMissing && !accounts.empty());
  std::optional<Result<BinaryPropertyList>> registry;
  if (isToBeWritten) registry = registryOf(refresh.accountsToWrite(read->version), file);
  result.changes = joined(result.changes, refresh.commit());
  if (const std::optional<Error> refused = refusal(store, *read, options)) return *refused;
  if (read->isWhole()) store.unseen.reset();
  if (!registry) return {};
  if (!*registry) return registry->error();
  std::optional<FileStamp> written;
  Result<> replaced =
      file.replace((*registry)->source(), read->damage, read->stamp, &written, &result.damagedCopy);
  // From the moment at which the file is in its place, others have what this program has changed.
  if (replaced || written) {
    result.isWritten = true;
    store.unseen.reset();
    StoreState::renewOriginals(store.topLevelRecords());
    store.base = std::move(accounts);
    store.nameless.clear();
  }
  return replaced;
}

}  // namespace

SyncResult AccountsManager::sync(std::chrono::milliseconds patience, const SyncOptions& options) {
  const std::shared_ptr<const AccountsManager> kept = shared_from_this();
  SyncResult result;
  if (!_state->mayBegin("-[AccountsManager sync]")) {
    result.error = _state->lastSaveError;
    return result;
  }
  RSLog("Syncing accounts");
  BusyStore busy(*_state);
  const Result<RegistryLock> lock = RegistryLock::take(patience);
  Result<> done = lock ? Result<>() : lock.error();
  bool isAnythingFixed = false;
  if (done) {
    isAnythingFixed = _state->fixBeforeSaving();
    const SettingsFile file(settingsPath());
    done = refreshAndWrite(file, *_state, _createRuntimeFixers(), options, result);
    const auto start = std::chrono::steady_clock::now();
    const auto isPatient = [&](int attempt) {
      const auto elapsed = std::chrono::steady_clock::now() - start;
      return attempt < leastAttempts ||
             std::chrono::duration_cast<std::chrono::milliseconds>(elapsed) < patience;
    };
    for (int attempt = 1; !done && isChangedMeanwhile(done.error()) && isPatient(attempt); ++attempt) {
      done = refreshAndWrite(file, *_state, _createRuntimeFixers(), options, result);
    }
  }
  busy.setOutcome(done);
  if (!done) {
    result.error = done.error();
    systemLog("Failed to sync accounts: %@", done.error().message);
  }
  if (isAnythingFixed) _state->tellFixers(true);
  if (done || result.isWritten) result.error = announceAfterSync(result.error);
  return result;
}

/// What a wrong configuration of notifiers makes the assertion handler throw must not take away the answer.
std::optional<Error> AccountsManager::announceAfterSync(std::optional<Error> error) {
  if (areNotificationsSkipped()) return error;
  try {
    _state->announceAndTakeSnapshot();
  } catch (const std::exception& exception) {
    error = Error(std::errc::invalid_argument,
                  std::string("not every notifier could be told: ") + exception.what());
  }
  return error;
}

}  // namespace roster
