#include <filesystem>
#include <iostream>

#include "roster/migration/migration.h"
#include "roster/platform/device.h"
#include "roster/store/accounts_manager.h"
#include "tools/command_error.h"
#include "tools/commands.h"
#include "tools/migration_need.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

using nlohmann::ordered_json;
using Outcome = MigrationReport::Outcome;

void say(const std::string& sentence) { std::cout << singleLine(sentence) << '\n'; }

void sayReasons(const MigrationNeed& need) {
  for (const std::string& reason : reasonsToMigrate(need)) say(reason);
}

bool isThere(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

// ---- What would be done

/// --root leads to another device, but the user's home is where HOME says: old files of this user would be
/// made into accounts of that device.
void warnOfForeignHome(const MigrationNeed& need) {
  const std::string root = deviceRoot();
  if (root.empty() || !need.isFromOldFiles() || homeDirectory().starts_with(root + "/")) return;
  warn("the old files are those of the home directory " + homeDirectory(),
       "it does not lie on the device " + root + "; HOME names another one");
}

/// The steps that a migration would take now, a sentence each.
std::vector<std::string> plannedSteps(const MigrationNeed& need) {
  std::vector<std::string> steps;
  if (need.isFromOldFiles() && isThere(rosterAccountsPath())) {
    steps.push_back("The registry would be removed, to be made anew: " + rosterAccountsPath());
  }
  if (!std::filesystem::is_directory(accountMigratorPath())) {
    steps.push_back("Nothing would be migrated, because there is no migrator: " + accountMigratorPath());
    return steps;
  }
  if (const std::int32_t daemon = _PIDForProcessNamed(syncDaemonName); daemon >= 0) {
    steps.push_back("The sync-accounts daemon would be made to quit: process " + std::to_string(daemon));
  }
  steps.push_back("The migrator would be run: " + accountMigratorPath());
  return steps;
}

int explain(const Options& options) {
  const MigrationNeed need = askedMigrationNeed(options);
  warnOfForeignHome(need);
  const std::vector<std::string> steps = need.isAny() ? plannedSteps(need) : std::vector<std::string>();
  if (options.isJson) {
    ordered_json document = jsonFromNeed(need);
    document["steps"] = steps;
    printJson(document);
    return done;
  }
  sayReasons(need);
  for (const std::string& step : steps) say(step);
  if (!need.isAny()) say("There is nothing to migrate.");
  return done;
}

// ---- What was done

std::string wordFor(Outcome outcome) {
  switch (outcome) {
    case Outcome::notNeeded:
      return "not needed";
    case Outcome::doneByAnother:
      return "done by another";
    case Outcome::notLocked:
      return "not locked";
    case Outcome::noMigrator:
      return "no migrator";
    case Outcome::failed:
      return "failed";
    case Outcome::succeeded:
      return "succeeded";
  }
  return "";
}

void sayOutcome(const MigrationReport& report) {
  sayReasons(report.need);
  switch (report.outcome) {
    case Outcome::notNeeded:
      return say("There is nothing to migrate.");
    case Outcome::doneByAnother:
      return say("Another process has migrated the accounts meanwhile.");
    case Outcome::succeeded:
      return say("The accounts have been migrated: " + std::to_string(AccountsManager::init()->count()) +
                 " in " + rosterAccountsPath());
    default:
      return;
  }
}

/// A migrator that leaves its sources where they were makes the next migration remove what it has made.
void warnOfLeftovers(const Options& options) {
  for (const std::string& reason : reasonsToMigrate(askedMigrationNeed(options))) {
    warn("after the migration there is still something to migrate", reason);
  }
}

/// A device that is put together wrongly is an assertion failure, which ends a migration where it stands.
MigrationReport attempt(const MigrationNeed& need) {
  try {
    return migrateIfNeeded();
  } catch (const std::exception& exception) {
    return {Outcome::failed, need, Error(std::errc::state_not_recoverable, exception.what())};
  }
}

}  // namespace

int migrate(const Options& options) {
  if (options.isDryRun) return explain(options);
  const MigrationNeed need = askedMigrationNeed(options);
  warnOfForeignHome(need);
  const bool hadRegistry = isThere(rosterAccountsPath());
  const MigrationReport report = attempt(need);
  const bool isFailure = report.error.has_value();
  const bool isRegistryGone = isFailure && hadRegistry && !isThere(rosterAccountsPath());
  if (options.isJson) {
    ordered_json document = jsonFromNeed(report.need);
    document["outcome"] = wordFor(report.outcome);
    document["why"] = isFailure ? ordered_json(report.error->message) : ordered_json();
    document["registryRemoved"] = isRegistryGone;
    printJson(document);
  } else {
    sayOutcome(report);
    if (isRegistryGone) say("The registry has been removed, to be made anew: " + rosterAccountsPath());
  }
  if (isFailure) throw CommandError("could not migrate the accounts", report.error->message);
  if (report.outcome == Outcome::succeeded) warnOfLeftovers(options);
  return done;
}

int waitForMigration(const Options& /*options*/) {
  const std::shared_ptr<NamedLock> lock = AccountsManager::createAndLockMigrationLock();
  if (!lock) {
    throw CommandError("could not wait for a migration", "the lock cannot be had; --verbose tells why");
  }
  AccountsManager::releaseMigrationLock(lock);
  return done;
}

}  // namespace roster::tool
