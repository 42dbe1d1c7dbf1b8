#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "roster/migration/migration.h"
#include "roster/platform/device.h"
#include "roster/platform/plugin.h"
#include "roster/platform/property_list_file.h"
#include "roster/store/accounts_manager.h"

using namespace roster;

namespace {

/// What the test wants to happen: the text of the device's file "migrator-order", empty without one.
std::string order() {
  std::string text;
  std::getline(std::ifstream(deviceRoot() + "/migrator-order"), text);
  return text;
}

/// Brings an old mail list, { MailAccounts: [ { UniqueID, Title } ] }, into the registry. Each run leaves a
/// byte in the device's file "migrations".
class OldMailMigrator : public AccountMigrationProtocol {
 public:
  bool executeMigrationSteps() override {
    std::ofstream(deviceRoot() + "/migrations", std::ofstream::app) << 'x';
    const std::string wanted = order();
    if (wanted == "refuse") return false;
    if (wanted == "throw") throw std::runtime_error("the list\nis odd");
    if (wanted == "stop") static_cast<void>(raise(SIGSTOP));
    const std::shared_ptr<AccountsManager> store = AccountsManager::initInsideOfMigration();
    const Result<Dictionary> read = readDictionaryFile(mailAccountsPath());
    const Dictionary list = read ? *read : Dictionary();
    for (const Value& element : list.find("MailAccounts").array().value_or(Array())) {
      const Dictionary old = *element.dictionary();
      store->insertAccount(BasicAccount::accountWithProperties({{"Type", "Mail"},
                                                                {"Class", "IMAPAccount"},
                                                                {"Identifier", old.find("UniqueID")},
                                                                {"DisplayName", old.find("Title")}}));
    }
    store->setDataVersion(AccountsManager::currentVersion());
    store->saveAllAccounts();
    return !store->lastSaveError() && (list.empty() || std::filesystem::remove(mailAccountsPath()));
  }
};

void registerClasses(PluginClasses& classes) {
  const auto init = [] { return order() == "none" ? nullptr : std::make_shared<OldMailMigrator>(); };
  classes.add(ClassObject("AccountsDataMigrator").answering(AccountMigratorProtocol{init}));
}

}  // namespace

ROSTER_PLUGIN(registerClasses)
