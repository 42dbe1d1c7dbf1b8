#include "tools/migrate.h"

#include <filesystem>
#include <iostream>
#include <optional>

#include "roster/migration/migration.h"
#include "roster/platform/device.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "tools/commands.h"
#include "tools/printing.h"
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

/// --root selects another device, but HOME still names the user's home: the old files of this user would
/// become accounts of that device.
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

/// If the migrator leaves its sources in place, the next migration removes the accounts that this one made.
void warnOfLeftovers(const Options& options) {
  for (const std::string& reason : reasonsToMigrate(askedMigrationNeed(options))) {
    warn("after the migration there is still something to migrate", reason);
  }
}

/// On a misconfigured device a migration fails an assertion, which ends it at that step.
MigrationReport attempt(const MigrationNeed& need) {
  try {
    return migrateIfNeeded();
  } catch (const std::exception& exception) {
    return {Outcome::failed, need, Error(std::errc::state_not_recoverable, exception.what())};
  }
}

}  // namespace

MigrationNeed askedMigrationNeed(const Options& options) {
  std::optional<SystemLogSilence> silence;
  if (!options.isVerbose) silence.emplace();
  return migrationNeed();
}

MigrationNeed askedMigrationNeed(const Options& options, const AccountsManager& loaded) {
  std::optional<SystemLogSilence> silence;
  if (!options.isVerbose) silence.emplace();
  return migrationNeedOfLoaded(loaded);
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

int waitForMigration(const Options& options) {
  {
    const Result<std::shared_ptr<NamedLock>> lock = takeMigrationLock();
    if (!lock) throw CommandError("could not wait for a migration", lock.error().message);
  }
  // Whoever held the lock may have failed, or may have been killed.
  for (const std::string& reason : reasonsToMigrate(askedMigrationNeed(options))) {
    warn("no migration is running, but one is still due", reason);
  }
  return done;
}

}  // namespace roster::tool
