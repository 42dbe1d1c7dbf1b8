#include <filesystem>

#include "fuzz/property_list_use.h"
#include "roster/store/accounts_manager.h"
#include "tests/support/temporary_device.h"

namespace roster::fuzzing {

namespace {

/// What a save leaves in the registry file after a load of what was there.
std::string savedAgain(const testing::TemporaryDevice& device) {
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  for (const AccountPtr& account : store->allBasicSyncableAccounts()) {
    require(!account->identifier() || store->accountWithIdentifier(account->identifier()) != nullptr,
            "an account is found by its identifier");
  }
  store->saveAllAccounts();
  const std::optional<Error>& error = store->lastSaveError();
  require(!error, error ? error->message : "the registry can be saved");
  return device.readFile(device.registryPath());
}

}  // namespace

}  // namespace roster::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace roster;
  static const testing::TemporaryDevice device;
  static const bool isQuiet = [] {
    setSystemLogSink([](std::string_view) {});
    return true;
  }();
  fuzzing::require(isQuiet, "the log goes nowhere");

  const std::filesystem::path folder = std::filesystem::path(device.registryPath()).parent_path();
  std::filesystem::remove_all(folder);
  device.writeFile(device.registryPath(), {reinterpret_cast<const char*>(data), size});
  const std::string first = fuzzing::savedAgain(device);
  const Result<Value> saved = parsePropertyList(Bytes(first), Soundness::inspected);
  fuzzing::require(bool(saved) && saved->isDictionary(), "what was saved is a registry");
  fuzzing::require(fuzzing::savedAgain(device) == first, "a second save changes nothing");
  return 0;
}
