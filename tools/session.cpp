#include "tools/session.h"

#include "roster/fixers/mail_account_fixer.h"
#include "roster/store/registry_check.h"
#include "roster/store/registry_copy.h"
#include "tools/commands.h"
#include "tools/migrate.h"
#include "tools/printing.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

constexpr std::string_view dataclassPrefix = "com.nimbal.Dataclass.";

/// An ordinary save gives the registry the current version, which ends a migration that was due; and a
/// migration from older files begins with the removal of the registry.
void requireNoMigration(const Options& options) {
  const MigrationNeed need = askedMigrationNeed(options);
  if (!need.isAny()) return;
  const std::string outcome = need.isFromOldFiles() ? "makes a change that the migration removes again"
                                                    : "makes the change, and the migration never takes place";
  throw CommandError("a migration is due", joined(reasonsToMigrate(need), "") +
                                               ". Run 'rosterctl migrate' first; --force " + outcome);
}

/// What the library cannot use of the file is lost for good when the registry is saved. Keeps the file, and
/// says why.
void keepWhatIsLost() {
  using Kind = RegistryFinding::Kind;
  const std::string path = AccountsManager::fullPathToRosterPlist();
  std::vector<RegistryFinding> findings = checkRegistry(path);
  std::erase_if(findings, [](const RegistryFinding& finding) {
    return finding.kind == Kind::repairs || finding.kind == Kind::ignores;
  });
  for (const RegistryFinding& finding : findings) {
    // What is said of the whole file names it already.
    warn(finding.where == path ? finding.what : finding.where + ": " + finding.what, finding.why);
    // Whether a file that could not even be read is replaced is the library's decision, and so is its copy.
    if (finding.kind == Kind::unread) return;
  }
  if (findings.empty()) return;
  const Result<std::string> copy = keepRegistryCopy(path);
  if (!copy) throw CommandError("could not keep a copy of the registry", copy.error().message);
  warn("not everything in the registry could be used", "a copy of the file is kept: " + *copy);
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

Value replacedChild(const BasicAccount& parent, const BasicAccount& child) {
  const Array stored = parent.properties().find(kAccountChildAccounts).array().value_or(Array());
  std::vector<Value> children(stored.begin(), stored.end());
  const String identifier = child.identifier();
  // Of several children with one identifier the last is the one that is found.
  for (std::size_t index = children.size(); index-- > 0;) {
    const std::optional<Dictionary> properties = children[index].dictionary();
    if (!properties || !(properties->find(kAccountIdentifier).string() == identifier)) continue;
    children[index] = child.propertiesToSave().deepCopy();
    return Array(std::move(children));
  }
  throw CommandError("account " + identifier.str(), "its parent does not hold it under its identifier");
}

}  // namespace

Session::Session(Purpose purpose, const Options& options) {
  if (purpose == Purpose::changing) lock_.emplace(EditLock::Folder::asItIs);
  if (purpose == Purpose::adding) lock_.emplace(EditLock::Folder::madeIfMissing);
  if (purpose != Purpose::reading && !options.isForced) requireNoMigration(options);
  store_ = AccountsManager::init();
  // A registry that cannot be read loads as an empty one. The file is not asked again: it may answer
  // otherwise.
  if (store_->count() == 0) unread_ = store_->loadError();
  if (unread_ && purpose != Purpose::adding) throw CommandError(unread_->message);
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
  if (found.parent) {
    found.parent->setAccountPropertyForKey(replacedChild(*found.parent, *found.account),
                                           kAccountChildAccounts);
  }
  store_->updateAccount(found.parent ? found.parent : found.account);
}

void Session::save(const AccountPtr& changed) {
  if (changed) requireLoadable(*changed);
  keepWhatIsLost();
  // In two steps, so that what goes wrong in the second one is not taken for a failure of the first.
  {
    const NotificationPause pause;
    store_->saveAllAccounts();
  }
  if (const std::optional<Error>& error = store_->lastSaveError()) {
    throw CommandError("could not save the registry", error->message);
  }
  try {
    store_->_sendNotificationsForChangedAccounts();
  } catch (const std::exception& exception) {
    warn("the change is saved, but not every notifier could be told", exception.what());
  }
}

std::string shortName(std::string_view dataclass) {
  if (dataclass.starts_with(dataclassPrefix)) dataclass.remove_prefix(dataclassPrefix.size());
  return std::string(dataclass);
}

std::vector<std::string> shortNames(const std::vector<std::string>& dataclasses) {
  std::vector<std::string> names;
  names.reserve(dataclasses.size());
  for (const std::string& dataclass : dataclasses) names.push_back(shortName(dataclass));
  return names;
}

}  // namespace roster::tool
