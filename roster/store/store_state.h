#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "roster/base/result.h"
#include "roster/fixers/runtime_fix.h"
#include "roster/notify/change_detection.h"
#include "roster/store/account_indexes.h"
#include "roster/store/file_version.h"

namespace roster {

/// All that a store has in memory, and what happens to it as a whole.
struct StoreState {
  AccountIndexes indexes;
  /// The accounts as they were when the store was loaded or last told the notifiers.
  Snapshot snapshot;
  /// The accounts as this store and the file last agreed on them: when it was loaded, refreshed or saved.
  /// What memory has otherwise was changed here, what the file has otherwise was changed there. Empty for a
  /// store that was not loaded from a file.
  AccountList base;
  bool isBaseNamed = true;
  /// Those of the base that the file has without an identifier.
  std::vector<NamelessAccount> nameless;
  /// Asked in this order.
  RuntimeFixers fixers;
  std::int64_t dataVersion = 0;
  /// Why the store's own file could not be read in full when the store was loaded. The message names it.
  std::optional<Error> loadError;
  /// The same, until a save has kept that file, of which this store has never seen all, and replaced it.
  std::optional<Error> unseen;
  std::optional<Error> lastSaveError;
  /// The state of the file that the store was loaded from; nothing when it could not be looked at.
  std::optional<FileStamp> stamp;
  /// Whether a save or an announcement of changes is under way.
  bool isBusy = false;

  /// Makes a record of every account that the fixers let pass, and takes the first snapshot.
  void load(const Array& accounts, RuntimeFixers newFixers);
  /// Shows every record to the fixers before a save. One that cannot be repaired is found no more, but is
  /// still written: only the next load, which meets it again, drops it. Returns whether a fixer did anything.
  bool fixBeforeSaving();
  /// Follows a load or save in which a fixer did something.
  void tellFixers(bool areSaved) const;
  /// Whether the operation may begin a save or an announcement. What a save calls may not, because it would
  /// be called again, without an end: an assertion failure, and an error of the save.
  bool mayBegin(std::string_view operation);
  /// Tells the notifiers what is not as in the snapshot.
  void announceChangesSinceSnapshot() const;
  /// The same, and takes the next snapshot, also when an exception ends it: those who could be told have
  /// been, and must not hear the same again.
  void announceAndTakeSnapshot();
  /// What the notifiers are told next is what changed since now.
  void takeSnapshot() { snapshot = Snapshot(topLevelRecords()); }
  /// What the records have is what the file has, as far as this store knows.
  void takeBase(std::span<const AccountPtr> records);
  /// What the records have has been saved.
  static void renewOriginals(std::span<const AccountPtr> records);
  /// Whether all accounts, of memory and of the base, are known to have identifiers of their own; told
  /// without a look at them.
  bool isEveryAccountNamed() const {
    return isBaseNamed && indexes.topLevelAccounts()->size() == indexes.topLevelAccountsByID().size();
  }
  /// The top-level records of this moment, for a walk during which overrides may change the store.
  std::vector<AccountPtr> topLevelRecords() const {
    const auto records = indexes.topLevelAccounts()->span();
    return {records.begin(), records.end()};
  }
};

/// A save or an announcement of changes, as long as it lives. In the end its outcome is the store's last one,
/// whoever has tried to save meanwhile.
class BusyStore {
 public:
  explicit BusyStore(StoreState& state) : state_(state), outcome_(state.lastSaveError) {
    state.isBusy = true;
  }
  BusyStore(const BusyStore&) = delete;
  BusyStore& operator=(const BusyStore&) = delete;
  ~BusyStore() {
    state_.isBusy = false;
    state_.lastSaveError = std::move(outcome_);
  }

  void setOutcome(const Result<>& saved) {
    outcome_ = saved ? std::nullopt : std::optional(saved.error());
    state_.lastSaveError = outcome_;
  }

 private:
  StoreState& state_;
  std::optional<Error> outcome_;
};

/// Whether saves of this thread tell no notifier: the process has switched them off, or the thread.
bool areNotificationsSkipped();

/// The fixers of a store that no subclass gives others.
RuntimeFixers standardFixers();

}  // namespace roster
