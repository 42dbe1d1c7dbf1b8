#include <array>

#include "roster/account/basic_account.h"
#include "roster/account/creator_entries.h"
#include "roster/notify/account_notifier.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/resources.h"
#include "tools/commands.h"
#include "tools/json.h"
#include "tools/printing.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

using nlohmann::ordered_json;

/// A kind of entry, and what its class must answer.
struct Kind {
  std::string_view name;
  const char* operation;
  bool (*isAnswered)(const ClassObject& object);
};

bool makesFullAccounts(const ClassObject& object) {
  const auto* protocol = object.as<AccountCreationProtocol>();
  return protocol != nullptr && (protocol->classForAccountType || protocol->accountWithBasicAccount);
}

bool makesSyncAccounts(const ClassObject& object) {
  const auto* protocol = object.as<SyncAccountCreationProtocol>();
  return protocol != nullptr && protocol->accountToRefreshForBasicAccount;
}

bool hearsOfChanges(const ClassObject& object) {
  const auto* protocol = object.as<AccountNotifierProtocol>();
  return protocol != nullptr && protocol->noteAccountChanges;
}

constexpr std::array<Kind, 3> kinds{{
    {fullAccountCreatorType, "classForAccountType: or accountWithBasicAccount:", &makesFullAccounts},
    {syncAccountCreatorType, "accountToRefreshForBasicAccount:", &makesSyncAccounts},
    {notifierCreatorType, "noteAccountChanges:", &hearsOfChanges},
}};

/// One entry of the table, tried out step by step. A step that was not reached has no answer.
struct Trial {
  String kind{};
  String className{};
  String library{};
  std::optional<StringList> dataclasses{};
  std::optional<bool> isLoaded{};
  std::optional<bool> isFound{};
  std::optional<bool> isAnswered{};
  /// Why the entry does not work; empty when it does.
  std::string problem{};
};

/// Why the library ignores an entry without a log line; empty when it does not.
std::string whyPassedOver(const Value& element, const CreatorEntry& entry, const Kind* kind) {
  const std::string passedOver = "it is passed over: ";
  if (!element.isDictionary()) return passedOver + "it is not a dictionary";
  if (entry.creatorType.isNil()) return passedOver + "it has no \"Type\"";
  if (kind == nullptr) return passedOver + "there is no such \"Type\"";
  if (kind->name != notifierCreatorType) return {};
  if (!entry.description) return passedOver + "it has no \"Description\"";
  const std::optional<Array> dataclasses = entry.supportedDataclasses();
  if (!dataclasses || dataclasses->empty()) return passedOver + "it has no \"Supported Dataclasses\"";
  return {};
}

/// Takes the steps that the library takes, up to the first that fails; returns why it failed.
std::string tryOut(const CreatorEntry& entry, const Kind& kind, std::string_view type, Trial& trial) {
  if (!entry.description) return creator_faults::noDescription(kind.name, type);
  if (trial.library.isNil()) return creator_faults::noFramework(kind.name, type);
  const Result<> loaded = loadCreatorFramework(trial.library);
  trial.isLoaded = bool(loaded);
  if (!loaded) return creator_faults::notLoaded(trial.library, loaded.error().message);
  if (trial.className.isEmpty()) return creator_faults::noClassName(kind.name, type);
  const ClassObject* object = findClass(trial.className);
  trial.isFound = object != nullptr;
  if (object == nullptr) return creator_faults::unknownClass(kind.name, trial.className);
  trial.isAnswered = kind.isAnswered(*object);
  return *trial.isAnswered ? "" : MissingOperation(*object, kind.operation).what();
}

Trial trialOf(const Value& element, std::string_view type) {
  const CreatorEntry entry(element);
  Trial trial{entry.creatorType, entry.className(), entry.framework()};
  const Kind* kind = nullptr;
  for (const Kind& each : kinds) {
    if (entry.creatorType == each.name) kind = &each;
  }
  if (kind != nullptr && kind->name == notifierCreatorType) {
    const std::optional<Array> stored = entry.supportedDataclasses();
    trial.dataclasses = stored ? stringList(*stored) : StringList();
  }
  trial.problem = whyPassedOver(element, entry, kind);
  if (kind != nullptr && trial.problem.empty()) trial.problem = tryOut(entry, *kind, type, trial);
  return trial;
}

/// All entries of one type.
struct TypeTrial {
  std::string type;
  std::vector<Trial> entries{};
  /// What is wrong with the table's entry of the type as a whole.
  std::string problem{};

  explicit TypeTrial(std::string name) : type(std::move(name)) {
    const std::optional<Array> elements = creatorEntriesForAccountType(type);
    if (!elements) {
      problem = creator_faults::noInformation(type);
      return;
    }
    for (const Value& element : *elements) entries.push_back(trialOf(element, type));
  }

  bool works() const {
    if (!problem.empty()) return false;
    for (const Trial& entry : entries) {
      if (!entry.problem.empty()) return false;
    }
    return true;
  }
};

ordered_json jsonFromProblem(const std::string& problem) {
  return textOrNull(problem.empty() ? String() : String(problem));
}

ordered_json boolOrNull(std::optional<bool> answer) {
  return answer ? ordered_json(*answer) : ordered_json();
}

ordered_json jsonFromType(const TypeTrial& trial) {
  ordered_json entries = ordered_json::array();
  for (const Trial& entry : trial.entries) {
    entries.push_back({{"kind", textOrNull(entry.kind)},
                       {"class", textOrNull(entry.className)},
                       {"library", textOrNull(entry.library)},
                       {"dataclasses", entry.dataclasses ? ordered_json(*entry.dataclasses) : ordered_json()},
                       {"libraryLoads", boolOrNull(entry.isLoaded)},
                       {"classIsFound", boolOrNull(entry.isFound)},
                       {"classAnswers", boolOrNull(entry.isAnswered)},
                       {"problem", jsonFromProblem(entry.problem)}});
  }
  return {{"type", trial.type}, {"entries", entries}, {"problem", jsonFromProblem(trial.problem)}};
}

void addRows(const TypeTrial& trial, Table& table) {
  const auto orDash = [](const String& text) { return text.isEmpty() ? "-" : text.str(); };
  const auto verdict = [](const std::string& problem) { return problem.empty() ? "yes" : "no: " + problem; };
  if (!trial.problem.empty()) {
    table.addRow({trial.type, "-", "-", "-", "-", verdict(trial.problem)});
  } else if (trial.entries.empty()) {
    table.addRow({trial.type, "none", "", "", "", ""});
  }
  std::string type = trial.type;
  for (const Trial& entry : trial.entries) {
    const StringList dataclasses = shortNames(entry.dataclasses.value_or(StringList()));
    table.addRow({type, orDash(entry.kind), orDash(entry.className), orDash(entry.library),
                  joined(dataclasses, "-"), verdict(entry.problem)});
    type.clear();
  }
}

const Dictionary& creatorsTable() {
  if (const Dictionary* table = BasicAccount::_accountCreationMap()) return *table;
  const std::string path = resourcePath("AccountCreators", "plist");
  if (path.empty()) throw CommandError("AccountCreators.plist", "the library's resources are missing");
  const Result<Dictionary> table = readDictionaryFile(path);
  throw CommandError("could not read the account creators",
                     table ? path + " could not be read before" : table.error().message);
}

}  // namespace

int creators(const Options& options) {
  const Dictionary& table = creatorsTable();
  std::vector<TypeTrial> trials;
  if (options.type.empty()) {
    for (const DictionaryEntry& entry : table) trials.emplace_back(entry.key.str());
  } else {
    if (!table.contains(options.type)) throw CommandError(creator_faults::noInformation(options.type));
    trials.emplace_back(options.type);
  }
  ordered_json array = ordered_json::array();
  Table rows({"TYPE", "KIND", "CLASS", "LIBRARY", "DATACLASSES", "WORKS"});
  bool isEverythingFine = true;
  for (const TypeTrial& trial : trials) {
    array.push_back(jsonFromType(trial));
    addRows(trial, rows);
    if (!trial.works()) isEverythingFine = false;
  }
  if (options.isJson) {
    printJson(array);
  } else {
    rows.print();
  }
  return isEverythingFine ? done : failed;
}

}  // namespace roster::tool
