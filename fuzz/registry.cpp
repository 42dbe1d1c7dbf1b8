#include <filesystem>

#include "fuzz/property_list_use.h"
#include "roster/store/accounts_manager.h"
#include "tests/support/temporary_device.h"

using namespace roster;

/// What a save leaves in the registry file after a load of what was there.
static std::string savedAgain(const testing::TemporaryDevice& device) {
  const std::shared_ptr<AccountsManager> store = AccountsManager::init();
  for (const AccountPtr& account : store->allBasicSyncableAccounts()) {
    fuzzing::require(!account->identifier() || store->accountWithIdentifier(account->identifier()) != nullptr,
                     "an account is found by its identifier");
  }
  store->saveAllAccounts();
  const std::optional<Error>& error = store->lastSaveError();
  fuzzing::require(!error, error ? error->message : "the registry can be saved");
  return device.readFile(device.registryPath());
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const testing::TemporaryDevice device;
  static testing::CapturedLog log;
  log.clear();
  std::filesystem::remove_all(std::filesystem::path(device.registryPath()).parent_path());
  device.writeFile(device.registryPath(), {reinterpret_cast<const char*>(data), size});
  const std::string first = savedAgain(device);
  const Result<Value> saved = parsePropertyList(Bytes(first), Soundness::inspected);
  fuzzing::require(bool(saved) && saved->isDictionary(), "what was saved is a registry");
  fuzzing::require(savedAgain(device) == first, "a second save changes nothing");
  return 0;
}
