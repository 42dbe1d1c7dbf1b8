#include "tools/session.h"

#include "roster/fixers/mail_account_fixer.h"
#include "tools/commands.h"
#include "tools/migrate.h"
#include "tools/printing.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

constexpr std::string_view dataclassPrefix = "com.nimbal.Dataclass.";

/// An ordinary save gives the registry the current version, which ends a migration that was due; and a
/// migration from older files begins with the removal of the registry.
void requireNoMigration(const Options& options, const AccountsManager& loaded) {
  const MigrationNeed need = askedMigrationNeed(options, loaded);
  if (!need.isAny()) return;
  const std::string outcome = need.isFromOldFiles() ? "makes a change that the migration removes again"
                                                    : "makes the change, and the migration never takes place";
  throw CommandError("a migration is due", joined(reasonsToMigrate(need), "") +
                                               ". Run 'rosterctl migrate' first; --force " + outcome);
}

/// Waits for whoever is changing the registry, and says so when that takes long.
RegistryLock takeRegistryLock() {
  using std::chrono::seconds;
  Result<RegistryLock> lock = RegistryLock::take(seconds(1));
  if (!lock && lock.error().code == std::errc::timed_out) {
    const std::optional<std::int32_t> holder = RegistryLock::holder();
    note("waiting for " + (holder ? "process " + std::to_string(*holder) : "another program") +
         ", which is changing the registry …");
    lock = RegistryLock::take(seconds(60));
  }
  if (!lock) throw CommandError("could not change the registry", lock.error().message);
  return *std::move(lock);
}

/// A fixer would let the account be written, and reject it at the next load.
void requireLoadable(const BasicAccount& account) {
  const AccountPtr copy = BasicAccount::initWithProperties(account.propertiesToSave().deepCopy());
  const std::string name = "account " + account.identifier().str();
  if (!copy) throw CommandError(name, "the library could not load it again");
  const std::string unknown = "its class \"" + copy->accountClass().str() + "\" is no mail account class, ";
  switch (RSRuntimeFixMailAccount().fixBasicAccountIfNeededLoggingMessage(copy, "saving accounts")) {
    case FixResult::nothingDone:
      return;
    case FixResult::repaired:
      return warn(
          name, unknown + "so it is stored as " + copy->accountClass().str() + ", as its AccountPath tells");
    case FixResult::unrepairable:
      throw CommandError(name, unknown + "and its AccountPath tells no other");
  }
}

}  // namespace

Session::Session(Purpose purpose, const Options& options) {
  if (purpose != Purpose::reading) lock_ = takeRegistryLock();
  store_ = AccountsManager::init();
  if (purpose != Purpose::reading && !options.isForced) requireNoMigration(options, *store_);
  // A registry that cannot be read loads as an empty one. The file is not asked again: it may answer
  // otherwise.
  const std::optional<Error>& unread = store_->loadError();
  if (unread && store_->count() == 0 && purpose != Purpose::adding) throw CommandError(unread->message);
}

FoundAccount Session::find(const std::string& name) const {
  const String identifier(name);
  const AccountPtr shown = store_->accountWithIdentifier(identifier);
  if (shown && shown->identifier() == identifier) return {shown, nullptr};
  const AccountPtr child = store_->childAccountWithIdentifier(identifier);
  if (shown && child && child->parentAccount() == shown) return {child, shown};
  throw CommandError("account " + name,
                     "there is none with this identifier in " + AccountsManager::fullPathToRosterPlist());
}

void Session::putBack(const FoundAccount& found) {
  found.parent ? store_->updateChildAccount(found.account) : store_->updateAccount(found.account);
}

void Session::save(const AccountPtr& changed) {
  if (changed) requireLoadable(*changed);
  // The user has asked for the change. A registry that is damaged is kept, and the library says where.
  const SyncResult result = store_->sync(std::chrono::seconds(0), {.replacesDamagedRegistry = true});
  if (result.error && !result.isWritten)
    throw CommandError("could not save the registry", result.error->message);
  if (!result.damagedCopy.empty()) {
    warn("not everything in the registry could be used, and what could not is gone from it; it is kept as " +
             result.damagedCopy,
         store_->loadError() ? store_->loadError()->message : "it was damaged meanwhile");
  }
  if (result.error) warn("the change is saved, but " + result.error->message);
}

std::string_view shortName(std::string_view dataclass) {
  if (dataclass.starts_with(dataclassPrefix)) dataclass.remove_prefix(dataclassPrefix.size());
  return dataclass;
}

std::vector<std::string> shortNames(const std::vector<std::string>& dataclasses) {
  std::vector<std::string> names;
  names.reserve(dataclasses.size());
  for (const std::string& dataclass : dataclasses) names.emplace_back(shortName(dataclass));
  return names;
}

}  // namespace roster::tool
