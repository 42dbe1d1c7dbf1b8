#include "roster/store/registry_watch.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "roster/platform/path_watch.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/registry_check.h"

namespace roster {

using Changes = std::vector<AccountChange>;

/// The registry as it was known last.
class WatchedRegistry {
 public:
  WatchedRegistry() = default;
  WatchedRegistry(const WatchedRegistry&) = delete;
  WatchedRegistry& operator=(const WatchedRegistry&) = delete;
  virtual ~WatchedRegistry() = default;

  /// Looks at it again, and tells what has changed.
  virtual Result<Changes> update() = 0;
};

namespace {

class WatchedStore : public WatchedRegistry {
 public:
  explicit WatchedStore(std::shared_ptr<AccountsManager> store) : store_(std::move(store)) {}

  Result<Changes> update() override { return store_->refresh(); }

 private:
  std::shared_ptr<AccountsManager> store_;
};

/// The accounts that stand under an identifier. One without would get another at each load, and seem to come
/// and go.
Array identified(const Array& accounts) {
  std::vector<Value> elements;
  for (const Value& element : accounts) {
    const std::optional<Dictionary> properties = element.dictionary();
    if (properties && properties->find(kAccountIdentifier).isString()) elements.push_back(element);
  }
  return Array(std::move(elements));
}

class WatchedFile : public WatchedRegistry {
 public:
  Result<Changes> update() override {
    const Result<Array> accounts = readRegistryAccounts(AccountsManager::fullPathToRosterPlist());
    if (!accounts) return accounts.error();
    // The file that has just been checked is compared: a store that read it itself could find a newer one.
    const auto store = AccountsManager::initWithAccounsInfoArray(identified(*accounts));
    Snapshot now(store->allBasicAccounts()->span());
    Changes changes;
    if (known_) changes = changesBetween(*known_, now);
    known_ = std::move(now);
    return changes;
  }

 private:
  /// Nothing as long as it could never be read.
  std::optional<Snapshot> known_;
};

}  // namespace

RegistryWatch::RegistryWatch(std::unique_ptr<PathWatch> events, std::unique_ptr<WatchedRegistry> registry)
    : _events(std::move(events)), _registry(std::move(registry)) {}

RegistryWatch::~RegistryWatch() = default;

Result<std::unique_ptr<RegistryWatch>> RegistryWatch::make(std::unique_ptr<WatchedRegistry> registry) {
  Result<std::unique_ptr<PathWatch>> events = watchPath(AccountsManager::fullPathToRosterPlist());
  if (!events) return events.error();
  return std::unique_ptr<RegistryWatch>(new RegistryWatch(*std::move(events), std::move(registry)));
}

Result<std::unique_ptr<RegistryWatch>> RegistryWatch::watchFor(std::shared_ptr<AccountsManager> store) {
  Result<std::unique_ptr<RegistryWatch>> watch = make(std::make_unique<WatchedStore>(std::move(store)));
  if (watch) (*watch)->_events->wake();
  return watch;
}

/// The path is watched before the file is read, so that nothing falls between the two. A registry that cannot
/// be read is not known yet: its first reading then tells nothing.
Result<std::unique_ptr<RegistryWatch>> RegistryWatch::watch() {
  Result<std::unique_ptr<RegistryWatch>> watch = make(std::make_unique<WatchedFile>());
  if (watch && !(*watch)->_registry->update()) (*watch)->_events->wake();
  return watch;
}

int RegistryWatch::descriptor() const { return _events->descriptor(); }

Result<bool> RegistryWatch::dispatch(const Handler& handler) {
  Result<bool> isConcerned = _events->takeEvents();
  if (!isConcerned || !*isConcerned) return isConcerned;
  const Result<Changes> changes = _registry->update();
  if (!changes) return changes.error();
  for (const AccountChange& change : *changes) handler(change);
  return true;
}

}  // namespace roster
