#include "tools/migration_need.h"

#include "roster/migration/migration.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"

namespace roster::tool {

MigrationNeed askedMigrationNeed(const Options& options) {
  if (options.isVerbose) return migrationNeed();
  const SystemLogSink former = setSystemLogSink([](std::string_view) {});
  const MigrationNeed need = migrationNeed();
  setSystemLogSink(former);
  return need;
}

std::vector<std::string> reasonsToMigrate(const MigrationNeed& need) {
  std::vector<std::string> reasons;
  if (need.hasOldMailAccounts)
    reasons.push_back("There is an old list of mail accounts: " + mailAccountsPath());
  if (need.hasOldTSAccounts) {
    reasons.push_back("There are old preferences of the sync-accounts service: " + tsAccountPath());
  }
  if (need.isRosterOutOfDate) {
    reasons.push_back("The registry has a version below " +
                      std::to_string(AccountsManager::currentVersion()) + ": " + rosterAccountsPath());
  }
  return reasons;
}

nlohmann::ordered_json jsonFromNeed(const MigrationNeed& need) {
  return {{"oldMailAccounts", need.hasOldMailAccounts},
          {"oldSyncAccounts", need.hasOldTSAccounts},
          {"outOfDateRegistry", need.isRosterOutOfDate}};
}

}  // namespace roster::tool
