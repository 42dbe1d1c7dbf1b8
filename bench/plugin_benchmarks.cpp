#include <benchmark/benchmark.h>

#include "bench/bench_plugins.h"
#include "bench/generated_registry.h"
#include "bench/iteration_timer.h"
#include "roster/notify/snapshot_properties.h"
#include "roster/store/accounts_manager.h"

namespace roster::bench {

namespace {

/// Full accounts are kept by the records they are made for, so only a new store makes new ones.
void accountsWithTypes(benchmark::State& state) {
  const auto parents = static_cast<std::size_t>(state.range(0));
  const BenchDevice device(registryOf(parents).bytes);
  const TypeSet types = {kExchangeAccountType, kMailAccountType, kCalDAVAccountType, kGmailAccountType,
                         kCardDAVAccountType};
  for (auto _ : state) {
    const std::shared_ptr<AccountsManager> store = AccountsManager::init();
    std::vector<std::shared_ptr<AccountFullAccountProtocol>> accounts;
    {
      const IterationTimer timer(state);
      accounts = store->accountsWithTypes(types);
    }
    if (accounts.size() != parents + parents / 5) state.SkipWithError("not all accounts were made");
  }
}

/// What a save compares when nothing has changed.
class Unchanged {
 public:
  explicit Unchanged(std::size_t accounts) : device_(registryOf(accounts).bytes) {
    for (const auto& account : *store_->allBasicAccounts()) byID_.set(account->identifier(), account);
  }

  Snapshot snapshot() const { return Snapshot(store_->allBasicAccounts()->span()); }

  void timeDetection(benchmark::State& state, const Snapshot& snapshot) const {
    std::vector<AccountChange> changes;
    {
      const IterationTimer timer(state);
      changes = detectChanges(snapshot, byID_);
    }
    if (!changes.empty()) state.SkipWithError("something changed");
  }

 private:
  BenchDevice device_;
  std::shared_ptr<AccountsManager> store_ = AccountsManager::init();
  OrderedMap<AccountPtr> byID_;
};

/// As in a save: the snapshot was retaken by the save before and is compared with for the first time, and
/// loading the file has driven both out of the caches.
void detectChangesFirst(benchmark::State& state) {
  const Unchanged unchanged(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    const Snapshot snapshot = unchanged.snapshot();
    AccountsManager::init();
    unchanged.timeDetection(state, snapshot);
  }
}

void detectChangesAgain(benchmark::State& state) {
  const Unchanged unchanged(static_cast<std::size_t>(state.range(0)));
  const Snapshot snapshot = unchanged.snapshot();
  SnapshotProperties::of(snapshot).byID();
  for (auto _ : state) unchanged.timeDetection(state, snapshot);
}

void retakeSnapshot(benchmark::State& state) {
  const Unchanged unchanged(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    Snapshot snapshot;
    const IterationTimer timer(state);
    snapshot = unchanged.snapshot();
  }
}

}  // namespace

void registerPluginBenchmarks() {
  const auto manual = [](const char* name, void (*run)(benchmark::State&), std::int64_t accounts) {
    benchmark::RegisterBenchmark(name, run)->Arg(accounts)->UseManualTime();
  };
  for (const std::int64_t parents : {1'000, 10'000, 100'000}) {
    manual("accountsWithTypes", accountsWithTypes, parents);
  }
  manual("first detection", detectChangesFirst, 10'000);
  manual("detection again", detectChangesAgain, 10'000);
  manual("snapshot", retakeSnapshot, 10'000);
}

}  // namespace roster::bench
