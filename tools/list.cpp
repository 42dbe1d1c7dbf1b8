#include <iostream>
#include <unordered_map>

#include "roster/store/account_collections.h"
#include "tools/commands.h"
#include "tools/json.h"
#include "tools/printing.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

using nlohmann::ordered_json;

/// The top-level accounts in order, each followed by its children.
std::vector<AccountPtr> familyByFamily(const AccountsManager& store) {
  std::unordered_map<const BasicAccount*, std::vector<AccountPtr>> childrenByParent;
  const std::vector<AccountPtr> all = store.allBasicSyncableAccounts();
  for (const AccountPtr& account : all) {
    if (account->parentAccount()) childrenByParent[account->parentAccount().get()].push_back(account);
  }
  std::vector<AccountPtr> ordered;
  ordered.reserve(all.size());
  for (const AccountPtr& account : all) {
    if (account->parentAccount()) continue;
    ordered.push_back(account);
    const std::vector<AccountPtr>& children = childrenByParent[account.get()];
    ordered.insert(ordered.end(), children.begin(), children.end());
  }
  return ordered;
}

ordered_json jsonFromAccount(const BasicAccount& account) {
  const std::optional<StringList> enabled = account.enabledDataclasses();
  return {{"identifier", account.identifier().str()},
          {"type", account.type().str()},
          {"class", account.accountClass().str()},
          {"displayName", textOrNull(account.displayName())},
          {"parent", textOrNull(account.parentAccountIdentifier())},
          {"enabled", enabled ? ordered_json(*enabled) : ordered_json()}};
}

Table::Row rowFromAccount(const BasicAccount& account) {
  const std::optional<StringList> enabled = account.enabledDataclasses();
  const std::string indent = account.parentAccount() ? "  " : "";
  return {indent + account.identifier().str(), account.type().str(), account.accountClass().str(),
          account.displayName() ? account.displayName().str() : "-",
          enabled ? joined(shortNames(*enabled), "none") : "-"};
}

}  // namespace

int list(const Options& options) {
  Session session(Session::Purpose::reading, options);
  const TypeSet types(options.types);
  ordered_json array = ordered_json::array();
  Table table({"IDENTIFIER", "TYPE", "CLASS", "NAME", "ENABLED"});
  bool isEmpty = true;
  for (const AccountPtr& account : familyByFamily(session.store())) {
    if (!options.types.empty() && !types.contains(account->type())) continue;
    isEmpty = false;
    if (options.isJson) {
      array.push_back(jsonFromAccount(*account));
    } else {
      table.addRow(rowFromAccount(*account));
    }
  }
  if (options.isJson) {
    printJson(array);
  } else if (isEmpty) {
    std::cout << "no accounts\n";
  } else {
    table.print();
  }
  return 0;
}

int show(const Options& options) {
  const Session session(Session::Purpose::reading, options);
  const Dictionary properties = session.find(options.identifier).account->propertiesToSave();
  if (options.isJson) {
    printJsonEntries(properties);
  } else {
    printTree(properties);
  }
  return 0;
}

}  // namespace roster::tool
