#include "tools/session.h"

#include "roster/fixers/mail_account_fixer.h"
#include "roster/store/registry_check.h"
#include "tools/commands.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

constexpr std::string_view dataclassPrefix = "com.nimbal.Dataclass.";

/// What could not be loaded is lost for good when the registry is saved.
void warnOfLoss() {
  using Kind = RegistryFinding::Kind;
  const std::string path = AccountsManager::fullPathToRosterPlist();
  for (const RegistryFinding& finding : checkRegistry(path)) {
    if (finding.kind != Kind::drops && finding.kind != Kind::damage) continue;
    // What is said of the whole file names it already.
    warn(finding.where == path ? finding.what : finding.where + ": " + finding.what, finding.why);
  }
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

Session::Session(Purpose purpose) {
  if (purpose == Purpose::changing) lock_.emplace(EditLock::Folder::asItIs);
  if (purpose == Purpose::adding) lock_.emplace(EditLock::Folder::madeIfMissing);
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
  if (!unread_) warnOfLoss();
  // In two steps, so that what goes wrong in the second one is not taken for a failure of the first.
  {
    const NotificationPause pause;
    store_->saveAllAccounts();
  }
  if (const std::optional<Error>& error = store_->lastSaveError()) {
    throw CommandError("could not save the registry", error->message);
  }
  if (unread_) warn("the registry counts as empty", unread_->message);
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
