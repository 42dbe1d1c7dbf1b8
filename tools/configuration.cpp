#include "roster/account/basic_account.h"
#include "roster/platform/assertion.h"
#include "tools/commands.h"
#include "tools/printing.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

using nlohmann::ordered_json;

const StringList& knownTypes() {
  try {
    return BasicAccount::allAccountTypes();
  } catch (const AssertionFailure& failure) {
    throw CommandError("could not read the account types", failure.report().message);
  }
}

StringList actionsToEnable(const std::string& dataclass, const std::string& type) {
  return BasicAccount::userActionsToEnableDataclassForAccountType(dataclass, type).value_or(StringList());
}

StringList actionsToDisable(const std::string& dataclass, const std::string& type) {
  return BasicAccount::userActionsToDisableDataclassForAccountType(dataclass, type).value_or(StringList());
}

StringList supportedDataclasses(const std::string& type) {
  return BasicAccount::supportedDataclassesForAccountType(type).value_or(StringList());
}

StringList deleteActions(const std::string& type) {
  return BasicAccount::deleteAccountActionsForAccountType(type).value_or(StringList());
}

ordered_json jsonFromType(const std::string& type) {
  ordered_json dataclasses = ordered_json::array();
  for (const std::string& dataclass : supportedDataclasses(type)) {
    dataclasses.push_back({{"dataclass", dataclass},
                           {"enableActions", actionsToEnable(dataclass, type)},
                           {"disableActions", actionsToDisable(dataclass, type)}});
  }
  return {{"type", type},
          {"dataclasses", dataclasses},
          {"deleteActions", deleteActions(type)},
          {"showRemindersSeparately", BasicAccount::showRemindersSeparatelyForAccountType(type)}};
}

void addRows(const std::string& type, Table& table) {
  Table::Row first = {type,
                      "",
                      "",
                      "",
                      joined(deleteActions(type), "-"),
                      BasicAccount::showRemindersSeparatelyForAccountType(type) ? "apart" : "-"};
  const StringList dataclasses = supportedDataclasses(type);
  if (dataclasses.empty()) table.addRow(first);
  for (const std::string& dataclass : dataclasses) {
    first[1] = shortName(dataclass);
    first[2] = joined(actionsToEnable(dataclass, type), "-");
    first[3] = joined(actionsToDisable(dataclass, type), "-");
    table.addRow(first);
    first = {"", "", "", "", "", ""};
  }
}

}  // namespace

int types(const Options& options) {
  ordered_json array = ordered_json::array();
  Table table({"TYPE", "DATACLASS", "WHEN SWITCHED ON", "WHEN SWITCHED OFF", "WHEN DELETED", "REMINDERS"});
  for (const std::string& type : knownTypes()) {
    if (options.isJson) {
      array.push_back(jsonFromType(type));
    } else {
      addRows(type, table);
    }
  }
  if (options.isJson) {
    printJson(array);
  } else {
    table.print();
  }
  return done;
}

int dataclasses(const Options& options) {
  ordered_json array = ordered_json::array();
  Table table({"NAME", "DATACLASS", "SEVERAL STORES", "SHOWS A SWITCH", "ASKS FIRST"});
  const auto yesOrNo = [](bool answer) { return std::string(answer ? "yes" : "no"); };
  for (const std::string& dataclass : BasicAccount::allSupportedDataclasses()) {
    const bool hasStores = BasicAccount::multipleStoresSupportedByDataclass(dataclass);
    const bool hasSwitch = BasicAccount::displayToggleForDataclass(dataclass);
    const bool asksFirst = BasicAccount::userConfirmationIsRequiredByDataclass(dataclass);
    array.push_back({{"dataclass", dataclass},
                     {"name", shortName(dataclass)},
                     {"supportsMultipleStores", hasStores},
                     {"displaySwitch", hasSwitch},
                     {"requiresUserConfirmation", asksFirst}});
    table.addRow(
        {shortName(dataclass), dataclass, yesOrNo(hasStores), yesOrNo(hasSwitch), yesOrNo(asksFirst)});
  }
  if (options.isJson) {
    printJson(array);
  } else {
    table.print();
  }
  return done;
}

}  // namespace roster::tool
