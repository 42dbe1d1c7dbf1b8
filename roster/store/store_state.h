#pragma once

#include <cstdint>
#include <memory>
#include <optional>
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
  /// The accounts as this store and the file last agreed on them: when it was loaded, refreshed or saved. What
  /// memory has otherwise was changed here, what the file has otherwise was changed there. Empty for a store
  /// that was not loaded from a file.
  AccountList base;
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

  /// Makes a record of every account that the fixers let pass, and takes the first snapshot.
  void load(const Array& accounts, RuntimeFixers newFixers);
  /// Shows every record to the fixers before a save. One that cannot be repaired is found no more, but is
  /// still written: only the next load, which meets it again, drops it. Returns whether a fixer did anything.
  bool fixBeforeSaving();
  /// Follows a load or save in which a fixer did something.
  void tellFixers(bool areSaved) const;
  /// What the notifiers are told next is what changed since now.
  void takeSnapshot() { snapshot = Snapshot(indexes.topLevelAccounts()->span()); }
  /// What memory has is what the file has, as far as this store knows.
  void takeBase();
};

/// Whether saves of this thread tell no notifier: the process has switched them off, or the thread.
bool areNotificationsSkipped();

/// The fixers of a store that no subclass gives others.
RuntimeFixers standardFixers();

}  // namespace roster
