#include "bench/peak_memory.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "bench/baselines.h"
#include "bench/generated_registry.h"
#include "roster/store/accounts_manager.h"

namespace roster::bench {

namespace {

/// Bytes, of the load alone and of load and save.
using Growth = std::array<std::size_t, 2>;

/// Whether the registry could be loaded and saved.
bool loadAndSave(const GeneratedRegistry& registry, Growth& growth) {
  // Memory that was freed before would be used again, and its peak would hide that of the load.
  malloc_trim(0);
  forgetPeakMemory();
  const std::size_t before = currentMemory();
  const auto store = AccountsManager::init();
  growth[0] = peakMemory() - before;
  const AccountPtr account =
      store->accountWithIdentifier(registry.identifiers[registry.identifiers.size() / 2]);
  account->setAccountPropertyForKey("measured", kAccountDisplayName);
  store->saveAllAccounts();
  growth[1] = peakMemory() - before;
  return store->count() == registry.identifiers.size() && !store->lastSaveError();
}

PeakMemory peakMemoryOf(std::size_t accounts) {
  const GeneratedRegistry& registry = registryOf(accounts);
  const BenchDevice device(registry.bytes);
  int ends[2];
  if (pipe(ends) != 0) return {accounts, 0, 0};
  const pid_t child = fork();
  if (child == 0) {
    Growth growth{};
    // The first round touches the pages of the program itself, which a fork does not have yet.
    const bool isDone = loadAndSave(registry, growth) && loadAndSave(registry, growth);
    const bool isTold = write(ends[1], &growth, sizeof growth) == static_cast<ssize_t>(sizeof growth);
    _exit(isDone && isTold ? 0 : 1);
  }
  Growth growth{};
  const bool isHeard = read(ends[0], &growth, sizeof growth) == static_cast<ssize_t>(sizeof growth);
  int status = 1;
  waitpid(child, &status, 0);
  close(ends[0]);
  close(ends[1]);
  if (!isHeard || status != 0) return {accounts, 0, 0};
  const auto size = static_cast<double>(registry.bytes.size());
  return {accounts, static_cast<double>(growth[0]) / size, static_cast<double>(growth[1]) / size};
}

}  // namespace

std::vector<PeakMemory> measurePeakMemory() {
  std::vector<PeakMemory> peaks;
  for (const std::size_t accounts : {1'000UL, 10'000UL, 100'000UL}) peaks.push_back(peakMemoryOf(accounts));
  return peaks;
}

}  // namespace roster::bench
