#include "roster/notify/notifier_dispatch.h"

#include <exception>
#include <set>
#include <utility>

#include "roster/account/creator_entries.h"
#include "roster/base/foreign_code.h"
#include "roster/platform/assertion.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

constexpr std::string_view sourceFile = "AccountsManager";
constexpr std::string_view classNamesOperation =
    "+[AccountsManager _notifierClassNamesForAccountType:dataclass:]";
constexpr std::string_view dispatchOperation = "-[AccountsManager _sendNotificationsForChangedAccounts]";

StringList misconfigured(std::string message, unsigned line = __builtin_LINE()) {
  assertionFailed(classNamesOperation, sourceFile, std::move(message), line);
  return {};
}

void reportMissingClass(std::string_view className, std::string_view operation,
                        unsigned line = __builtin_LINE()) {
  assertionFailed(operation, sourceFile, creator_faults::unknownClass(notifierCreatorType, className), line);
}

/// Keeps the first exception of steps that are each to be tried, whatever becomes of the others.
class FirstFailure {
 public:
  /// Whether the step ended without one.
  template <class Step>
  bool attempt(const Step& step) {
    try {
      step();
      return true;
    } catch (...) {
      if (!first_) first_ = std::current_exception();
      return false;
    }
  }
  void rethrow() const {
    if (first_) std::rethrow_exception(first_);
  }

 private:
  std::exception_ptr first_;
};

/// Tells a notifier something. What it throws is its own fault: whoever changes accounts goes on, and the
/// other notifiers must hear of it too.
template <class Call>
void tell(const ClassObject& notifier, const Call& call) {
  const Result<> told = runForeignCode(call);
  if (!told) systemLog("ERROR: The notifier %@ failed: %@", notifier.name(), told.error().message);
}

unsigned& pausesOfThread() {
  thread_local unsigned pauses = 0;
  return pauses;
}

void dispatch(std::string_view className, const std::vector<Value>& changes) {
  const ClassObject* notifier = findClass(className);
  if (notifier == nullptr) return reportMissingClass(className, dispatchOperation);
  tell(*notifier, [&] {
    requiredOperation(*notifier, &AccountNotifierProtocol::noteAccountChanges,
                      "noteAccountChanges:")(Array(changes));
  });
}

/// Finds whom changes concern. Where the table or a library is wrong for a type and a dataclass, that is one
/// failure, however many accounts have them, and does not keep others from being found.
class NotifierLookup {
 public:
  /// Adds a record of the change for every notifier class that it concerns.
  void add(const AccountChange& change, ChangeCollection& collection) {
    std::set<std::string> names;
    const String accountType = change.accountType();
    for (const std::string& dataclass : concernedDataclasses(change)) {
      std::pair pair(accountType.str(), dataclass);
      if (failed_.contains(pair)) continue;
      const bool isFound = failure_.attempt([&] {
        const StringList concerned = notifierClassNames(accountType, dataclass);
        names.insert(concerned.begin(), concerned.end());
      });
      if (!isFound) failed_.insert(std::move(pair));
    }
    for (const std::string& name : names) collection[name].emplace_back(changeRecord(change));
  }
  void rethrow() const { failure_.rethrow(); }

 private:
  FirstFailure failure_;
  std::set<std::pair<std::string, std::string>> failed_;
};

}  // namespace

NotificationPause::NotificationPause() { ++pausesOfThread(); }
NotificationPause::~NotificationPause() { --pausesOfThread(); }

bool areNotificationsPaused() { return pausesOfThread() != 0; }

StringList notifierClassNames(const String& accountType, std::string_view dataclass) {
  const std::string_view shownType = accountType ? accountType.view() : "(null)";
  const std::optional<Array> entries =
      accountType ? creatorEntriesForAccountType(accountType) : std::optional<Array>();
  if (!entries) return misconfigured(creator_faults::noInformation(shownType));
  StringList names;
  for (const Value& element : *entries) {
    const CreatorEntry entry(element);
    if (!(entry.creatorType == notifierCreatorType)) continue;
    const std::optional<Array> supported = entry.supportedDataclasses();
    if (!supported || !supported->containsString(dataclass)) continue;
    const String path = entry.framework();
    if (path.isNil()) return misconfigured(creator_faults::noFramework(notifierCreatorType, shownType));
    const Result<> loaded = loadCreatorFramework(path);
    if (!loaded) return misconfigured(creator_faults::notLoaded(path, loaded.error().message));
    const String name = entry.className();
    if (name.isEmpty()) return misconfigured(creator_faults::noClassName(notifierCreatorType, shownType));
    names.push_back(name.str());
  }
  return names;
}

void addNotification(ChangeCollection& collection, const AccountChange& change) {
  NotifierLookup lookup;
  lookup.add(change, collection);
  lookup.rethrow();
}

void announceChanges(const std::vector<AccountChange>& changes) {
  ChangeCollection collection;
  NotifierLookup lookup;
  for (const AccountChange& change : changes) lookup.add(change, collection);
  FirstFailure failure;
  for (const auto& entry : collection) {
    failure.attempt([&] { dispatch(entry.first, entry.second); });
  }
  lookup.rethrow();
  failure.rethrow();
}

void announceDataclassChange(
    const BasicAccount& account, std::string_view dataclass,
    decltype(AccountNotifierProtocol::accountWillChangeForDataclass) AccountNotifierProtocol::*answer,
    std::string_view operation) {
  FirstFailure failure;
  for (const std::string& name : notifierClassNames(account.type(), dataclass)) {
    const ClassObject* notifier = findClass(name);
    if (notifier == nullptr) {
      failure.attempt([&] { reportMissingClass(name, operation); });
      continue;
    }
    const auto* protocol = notifier->as<AccountNotifierProtocol>();
    if (protocol == nullptr || !(protocol->*answer)) continue;
    tell(*notifier, [&] { (protocol->*answer)(account.identifier(), dataclass); });
  }
  failure.rethrow();
}

}  // namespace roster
