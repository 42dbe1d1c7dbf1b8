#include "notify/notifier_dispatch.h"

#include <set>

#include "account/creator_entries.h"
#include "platform/assertion.h"
#include "platform/plugin.h"
#include "platform/system_log.h"

namespace roster {

namespace {

constexpr std::string_view sourceFile = "AccountsManager";
constexpr std::string_view classNamesOperation =
    "+[AccountsManager _notifierClassNamesForAccountType:dataclass:]";
constexpr std::string_view dispatchOperation = "-[AccountsManager _sendNotificationsForChangedAccounts]";

StringList misconfigured(std::string message) {
  assertionFailed(classNamesOperation, sourceFile, std::move(message));
  return {};
}

void reportMissingClass(std::string_view className, std::string_view operation) {
  assertionFailed(operation, sourceFile, formatted("Could not find a class for class name %@", className));
}

/// Tells a notifier something. What it throws is its own fault: whoever changes accounts goes on, and the
/// other notifiers must hear of it too.
template <class Call>
void tell(const ClassObject& notifier, const Call& call) {
  try {
    call();
  } catch (const std::exception& exception) {
    systemLog("ERROR: The notifier %@ failed: %@", notifier.name(), exception.what());
  } catch (...) {
    systemLog("ERROR: The notifier %@ failed", notifier.name());
  }
}

}  // namespace

StringList notifierClassNames(std::string_view accountType, std::string_view dataclass) {
  const std::optional<Array> entries = creatorEntriesForAccountType(accountType);
  if (!entries) {
    return misconfigured(
        formatted("Malformed AccountCreators information. Could not find the information for the type %@",
                  accountType));
  }
  StringList names;
  for (const Value& element : *entries) {
    const CreatorEntry entry(element);
    if (!(entry.creatorType == notifierCreatorType)) continue;
    const std::optional<Array> supported = entry.supportedDataclasses();
    if (!supported || !supported->containsString(dataclass)) continue;
    const String path = entry.framework();
    if (path.isNil()) {
      return misconfigured(
          formatted("Malformed AccountCreators information. Could not find the path to the framework for the "
                    "notifier with type %@",
                    accountType));
    }
    if (const std::optional<Error> error = loadPlugin(path.str())) {
      return misconfigured(
          formatted("Could not load the account creator framework %@. Error %s", path, error->message));
    }
    const String name = entry.className();
    if (name.isEmpty()) {
      return misconfigured(
          formatted("Malformed AccountCreators information. Could not find the name of the class for "
                    "notificatinos with the type %@",
                    accountType));
    }
    names.push_back(name.str());
  }
  return names;
}

void addNotification(ChangeCollection& collection, const AccountChange& change) {
  std::set<std::string> names;
  const String accountType = change.accountType();
  for (const std::string& dataclass : concernedDataclasses(change)) {
    const StringList concerned = notifierClassNames(accountType, dataclass);
    names.insert(concerned.begin(), concerned.end());
  }
  for (const std::string& name : names) {
    std::vector<Value>* records = collection.find(name);
    if (records == nullptr) {
      collection.append(name, {});
      records = collection.find(name);
    }
    records->emplace_back(changeRecord(change));
  }
}

void dispatchChanges(const ChangeCollection& collection) {
  std::vector<std::string_view> missing;
  for (const auto& entry : collection) {
    if (const ClassObject* notifier = findClass(entry.key)) {
      tell(*notifier, [&notifier = *notifier, &changes = entry.value] {
        requiredOperation(notifier, &AccountNotifierProtocol::noteAccountChanges,
                          "noteAccountChanges:")(Array(changes));
      });
    } else {
      missing.push_back(entry.key);
    }
  }
  // At the end, because the failure of the first one may be thrown.
  for (const std::string_view className : missing) reportMissingClass(className, dispatchOperation);
}

void announceDataclassChange(
    const BasicAccount& account, std::string_view dataclass,
    decltype(AccountNotifierProtocol::accountWillChangeForDataclass) AccountNotifierProtocol::*answer,
    std::string_view operation) {
  for (const std::string& name : notifierClassNames(account.type(), dataclass)) {
    const ClassObject* notifier = findClass(name);
    if (notifier == nullptr) {
      reportMissingClass(name, operation);
      continue;
    }
    const auto* protocol = notifier->as<AccountNotifierProtocol>();
    if (protocol == nullptr || !(protocol->*answer)) continue;
    tell(*notifier, [&] { (protocol->*answer)(account.identifier(), dataclass); });
  }
}

}  // namespace roster
