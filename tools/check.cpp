#include <filesystem>
#include <iostream>

#include "roster/migration/migration.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/registry_check.h"
#include "tools/commands.h"
#include "tools/migrate.h"
#include "tools/printing.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

using nlohmann::ordered_json;

std::string kindWord(RegistryFinding::Kind kind) {
  switch (kind) {
    case RegistryFinding::Kind::drops:
      return "drops";
    case RegistryFinding::Kind::repairs:
      return "repairs";
    case RegistryFinding::Kind::ignores:
      return "ignores";
    case RegistryFinding::Kind::damage:
      return "damage";
    case RegistryFinding::Kind::unread:
      return "unread";
  }
  return "";
}

void printFindings(const std::string& path, bool isThere, const std::vector<RegistryFinding>& findings) {
  std::cout << singleLine(path) << ": ";
  if (!isThere) {
    std::cout << "there is no such file yet, nothing to report\n";
  } else if (findings.empty()) {
    std::cout << "nothing to report\n";
  } else {
    std::cout << findings.size() << (findings.size() == 1 ? " finding\n" : " findings\n");
    Table table({"KIND", "WHERE", "WHAT AND WHY"});
    for (const RegistryFinding& finding : findings) {
      const std::string where = finding.where == path ? "the file" : finding.where;
      table.addRow({kindWord(finding.kind), where, finding.what + ": " + finding.why});
    }
    table.print();
  }
}

ordered_json jsonFromFindings(const std::string& path, bool isThere,
                              const std::vector<RegistryFinding>& findings) {
  ordered_json array = ordered_json::array();
  for (const RegistryFinding& finding : findings) {
    array.push_back({{"kind", kindWord(finding.kind)},
                     {"where", finding.where},
                     {"what", finding.what},
                     {"why", finding.why}});
  }
  return {{"file", path}, {"exists", isThere}, {"findings", array}};
}

}  // namespace

int check(const Options& options) {
  const bool isGiven = !options.file.empty();
  const std::string path = isGiven ? options.file : AccountsManager::fullPathToRosterPlist();
  std::error_code error;
  const bool isThere = std::filesystem::status(path, error).type() != std::filesystem::file_type::not_found;
  if (isGiven && !isThere)
    throw CommandError("could not open " + path, error ? error.message() : "No such file or directory");
  const std::vector<RegistryFinding> findings = checkRegistry(path);
  // Old files that wait for a migration concern the device's own registry only.
  const MigrationNeed need = isGiven ? MigrationNeed() : askedMigrationNeed(options);
  if (options.isJson) {
    ordered_json document = jsonFromFindings(path, isThere, findings);
    if (!isGiven) document["migration"] = jsonFromNeed(need);
    printJson(document);
  } else {
    printFindings(path, isThere, findings);
    for (const std::string& reason : reasonsToMigrate(need)) {
      std::cout << "a migration is due: " << singleLine(reason) << '\n';
    }
  }
  return findings.empty() && !need.isAny() ? done : failed;
}

}  // namespace roster::tool
