#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <unordered_map>

#include "bench/baselines.h"
#include "bench/bench_plugins.h"
#include "bench/first_load.h"
#include "bench/generated_registry.h"
#include "bench/iteration_timer.h"
#include "bench/peak_memory.h"
#include "bench/report.h"
#include "bench/tool_benchmarks.h"
#include "roster/platform/linux/file_calls.h"
#include "roster/store/accounts_manager.h"

namespace roster::bench {

namespace {

/// Runs an operation once per iteration, timing it alone; what it returns is destroyed outside of the timing.
template <class Operation>
void measure(benchmark::State& state, Operation&& operation) {
  for (auto _ : state) {
    std::optional<decltype(operation())> kept;
    {
      const IterationTimer timer(state);
      kept.emplace(operation());
    }
    benchmark::DoNotOptimize(kept);
  }
}

void readFresh(benchmark::State& state) {
  const BenchDevice device(registryOf(static_cast<std::size_t>(state.range(0))).bytes);
  for (auto _ : state) {
    {
      const IterationTimer timer(state);
      readIntoFreshMemory(device.registryPath());
    }
    releaseFreshMemory();
  }
}

void load(benchmark::State& state) {
  const BenchDevice device(registryOf(static_cast<std::size_t>(state.range(0))).bytes);
  measure(state, [] { return AccountsManager::init(); });
}

void durableWrite(benchmark::State& state) {
  const std::string& bytes = registryOf(static_cast<std::size_t>(state.range(0))).bytes;
  const BenchDevice device(bytes);
  measure(state, [&] {
    writeDurably(device.registryPath(), bytes);
    return 0;
  });
}

/// Each save writes one changed account, as a settings screen's would, and tells the notifiers or does not.
void saveTelling(std::size_t notifiers, benchmark::State& state) {
  const GeneratedRegistry& registry = registryOf(static_cast<std::size_t>(state.range(0)));
  const BenchDevice device(registry.bytes);
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  const auto account = store->accountWithIdentifier(registry.identifiers[registry.identifiers.size() / 2]);
  AccountsManager::_setShouldSkipNotifications(notifiers == 0);
  const std::size_t toldBefore = BenchPlugins::toldChanges();
  std::size_t saves = 0;
  for (auto _ : state) {
    account->setAccountPropertyForKey("name " + std::to_string(1000 + saves++ % 1000), kAccountDisplayName);
    {
      const IterationTimer timer(state);
      store->saveAllAccounts();
    }
    if (store->lastSaveError()) state.SkipWithError(store->lastSaveError()->message.c_str());
  }
  AccountsManager::_setShouldSkipNotifications(false);
  if (BenchPlugins::toldChanges() != toldBefore + notifiers * saves) {
    state.SkipWithError("the notifiers were not told as they should");
  }
}

void save(benchmark::State& state) { saveTelling(0, state); }
void tellingSave(benchmark::State& state) { saveTelling(BenchPlugins::notifiers, state); }

/// Between two refreshes another program changes one account.
void refresh(benchmark::State& state) {
  const GeneratedRegistry& registry = registryOf(static_cast<std::size_t>(state.range(0)));
  const BenchDevice device(registry.bytes);
  AccountsManager::_setShouldSkipNotifications(true);
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  const std::shared_ptr<AccountsManager> other = AccountsManager::init();
  std::size_t index = 0;
  for (auto _ : state) {
    index = (index + 1) % registry.identifiers.size();
    const AccountPtr account = other->accountWithIdentifier(registry.identifiers[index]);
    account->setAccountPropertyForKey("name " + std::to_string(index), "Refreshed");
    other->saveAllAccounts();
    std::optional<Result<std::vector<AccountChange>>> changes;
    {
      const IterationTimer timer(state);
      changes = store->refresh();
    }
    if (!*changes || (*changes)->size() != 1) state.SkipWithError("the change was not brought in");
  }
  AccountsManager::_setShouldSkipNotifications(false);
}

/// Each sync writes one changed account.
void sync(benchmark::State& state) {
  const GeneratedRegistry& registry = registryOf(static_cast<std::size_t>(state.range(0)));
  const BenchDevice device(registry.bytes);
  AccountsManager::_setShouldSkipNotifications(true);
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  const auto account = store->accountWithIdentifier(registry.identifiers[registry.identifiers.size() / 2]);
  std::size_t count = 0;
  for (auto _ : state) {
    account->setAccountPropertyForKey("name " + std::to_string(count++), kAccountDisplayName);
    const IterationTimer timer(state);
    if (!store->sync(std::chrono::seconds(1)).isWritten) state.SkipWithError("nothing was written");
  }
  AccountsManager::_setShouldSkipNotifications(false);
}

/// Look-ups in an order that no prefetcher predicts.
std::size_t nextIndex(std::size_t index, std::size_t size) { return (index + 7919) % size; }

void hashLookUp(benchmark::State& state) {
  const GeneratedRegistry& registry = registryOf(static_cast<std::size_t>(state.range(0)));
  std::unordered_map<std::string, AccountPtr> map;
  const BenchDevice device(registry.bytes);
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  for (const auto& account : *store->allBasicAccounts()) map.emplace(account->identifier().str(), account);
  std::size_t index = 0;
  for (auto _ : state) {
    index = nextIndex(index, registry.identifiers.size());
    AccountPtr account = map.find(registry.identifiers[index])->second;
    benchmark::DoNotOptimize(account);
  }
}

void accountWithIdentifier(benchmark::State& state) {
  const GeneratedRegistry& registry = registryOf(static_cast<std::size_t>(state.range(0)));
  const BenchDevice device(registry.bytes);
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  std::size_t index = 0;
  for (auto _ : state) {
    index = nextIndex(index, registry.identifiers.size());
    AccountPtr account = store->accountWithIdentifier(registry.identifiers[index]);
    benchmark::DoNotOptimize(account);
  }
}

int syncs = 0;

/// How often one save asks the disk to sync.
int syncsOfSave() {
  const BenchDevice device(registryOf(100).bytes);
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  FileCalls calls = fileCalls();
  calls.fsync = [](int fd) {
    ++syncs;
    return fsync(fd);
  };
  const FileCallsOverride counting(calls);
  syncs = 0;
  store->saveAllAccounts();
  return syncs;
}

void registerAll() {
  constexpr auto microseconds = benchmark::kMicrosecond;
  const auto manual = [](const char* name, void (*run)(benchmark::State&), std::int64_t accounts) {
    return benchmark::RegisterBenchmark(name, run)->Arg(accounts)->UseManualTime()->Unit(microseconds);
  };
  for (const std::int64_t accounts : {10, 100, 1'000, 10'000, 100'000}) {
    manual("read fresh", readFresh, accounts);
    manual("load", load, accounts);
    // A sync takes milliseconds whatever is written, so few iterations say as much as many.
    const benchmark::IterationCount saves = accounts <= 1'000 ? 40 : accounts <= 10'000 ? 10 : 2;
    manual("durable write", durableWrite, accounts)->Iterations(saves);
    manual("save", save, accounts)->Iterations(saves);
    manual("refresh", refresh, accounts)->Iterations(saves);
    manual("sync", sync, accounts)->Iterations(saves);
    if (accounts == 1'000) manual("telling save", tellingSave, accounts)->Iterations(saves);
    benchmark::RegisterBenchmark("hash look-up", hashLookUp)->Arg(accounts);
    benchmark::RegisterBenchmark("accountWithIdentifier", accountWithIdentifier)->Arg(accounts);
  }
}

int run(int argc, char** argv) {
  // Repetitions of different benchmarks take turns, so that a machine that slows down slows all of them
  // alike.
  std::vector<char*> arguments(argv, argv + argc);
  std::string repetitions = "--benchmark_repetitions=7";
  std::string interleaving = "--benchmark_enable_random_interleaving=true";
  std::string time = "--benchmark_min_time=0.05";
  arguments.insert(arguments.begin() + 1, {repetitions.data(), interleaving.data(), time.data()});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  const std::vector<FirstLoad> firstLoads = measureFirstLoads();
  // Before the benchmarks leave large pages in the heap, which a small registry would be charged with.
  const std::vector<PeakMemory> peaks = measurePeakMemory();
  const BenchPlugins plugins;
  registerAll();
  registerPluginBenchmarks();
  registerToolBenchmarks();
  MedianReporter medians;
  benchmark::RunSpecifiedBenchmarks(&medians);
  return printTable(medians, firstLoads, peaks, syncsOfSave()) ? 0 : 1;
}

}  // namespace

}  // namespace roster::bench

int main(int argc, char** argv) {
  try {
    return roster::bench::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "roster_bench: %s\n", error.what());
    return 2;
  }
}
