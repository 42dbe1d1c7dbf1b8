#pragma once

#include <functional>
#include <memory>

#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/notify/change_detection.h"

namespace roster {

class AccountsManager;
class PathWatch;
class WatchedRegistry;

/// Tells a program what others change in the registry while it runs, from within the program's own event
/// loop: the descriptor says when, `dispatch` says what. An addition. For one thread at a time.
///
/// It notices whatever makes the registry another one: a file or a folder that is replaced, removed, made,
/// moved, or led elsewhere by a symbolic link. What changes and changes back before it is asked is not told.
class ROSTER_EXPORT RegistryWatch {
 public:
  /// Is called once for every account that has changed.
  using Handler = std::function<void(const AccountChange& change)>;

  /// Watches the registry for a store, which lives at least as long: a dispatch refreshes it (see
  /// `AccountsManager::refresh`) and tells what that brought in, which never is what the store itself has
  /// saved. The descriptor is readable at once, for what has changed since the store was loaded.
  static Result<std::unique_ptr<RegistryWatch>> watchFor(std::shared_ptr<AccountsManager> store);
  /// Watches the registry as it is from now on. A registry that is missing has no accounts; while it cannot
  /// be read in full, nothing counts as changed.
  static Result<std::unique_ptr<RegistryWatch>> watch();

  /// Not copyable: it holds a descriptor.
  RegistryWatch(const RegistryWatch&) = delete;
  /// Not copyable: it holds a descriptor.
  RegistryWatch& operator=(const RegistryWatch&) = delete;
  /// Closes the descriptor.
  ~RegistryWatch();

  /// Readable, for poll(2) and its like (POLLIN), when there may be something to dispatch. Belongs to the
  /// watch; is to be waited for and nothing else.
  int descriptor() const;
  /// Takes what has happened, without waiting for more, and calls the handler for each change, in the order
  /// of `changesBetween`. Does nothing when nothing has happened. The handler may use the store and destroy
  /// the watch; what it throws ends the dispatch, and the changes that it was not called for are not told
  /// again.
  ///
  /// Fails, with path and cause, when the registry cannot be read or watched. What has changed is told by a
  /// later dispatch, once it can be read; a watch that the system refuses is tried for again.
  Result<bool> dispatch(const Handler& handler);

 private:
  ROSTER_HIDDEN RegistryWatch(std::unique_ptr<PathWatch> events, std::unique_ptr<WatchedRegistry> registry);
  ROSTER_HIDDEN static Result<std::unique_ptr<RegistryWatch>> make(std::unique_ptr<WatchedRegistry> registry);

  std::unique_ptr<PathWatch> _events;
  std::unique_ptr<WatchedRegistry> _registry;
};

}  // namespace roster
