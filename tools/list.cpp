#include <iostream>
#include <unordered_map>

#include "roster/store/account_collections.h"
#include "tools/commands.h"
#include "tools/json_writer.h"
#include "tools/printing.h"
#include "tools/session.h"

namespace roster::tool {

namespace {

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
    const auto children = childrenByParent.find(account.get());
    if (children == childrenByParent.end()) continue;
    ordered.insert(ordered.end(), children->second.begin(), children->second.end());
  }
  return ordered;
}

/// Those of the types; all when there are none.
std::vector<AccountPtr> listedAccounts(const AccountsManager& store, const Options& options) {
  std::vector<AccountPtr> accounts = familyByFamily(store);
  if (options.types.empty()) return accounts;
  const TypeSet types(options.types);
  std::erase_if(accounts, [&](const AccountPtr& account) { return !types.contains(account->type()); });
  return accounts;
}

void writeJson(JsonWriter& writer, const BasicAccount& account) {
  writer.beginObject();
  writer.beginEntry("identifier");
  writer.writeText(account.identifier());
  writer.beginEntry("type");
  writer.writeText(account.type());
  writer.beginEntry("class");
  writer.writeText(account.accountClass());
  writer.beginEntry("displayName");
  writer.writeTextOrNull(account.displayName());
  writer.beginEntry("parent");
  writer.writeTextOrNull(account.parentAccountIdentifier());
  writer.beginEntry("enabled");
  if (const std::optional<StringList> enabled = account.enabledDataclasses()) {
    writer.beginArray();
    for (const std::string& dataclass : *enabled) {
      writer.beginElement();
      writer.writeText(dataclass);
    }
    writer.endArray();
  } else {
    writer.writeNull();
  }
  writer.endObject();
}

void printAsJson(const std::vector<AccountPtr>& accounts) {
  JsonWriter writer(std::cout);
  writer.beginArray();
  for (const AccountPtr& account : accounts) {
    writer.beginElement();
    writeJson(writer, *account);
  }
  writer.endArray();
  writer.endDocument();
}

std::string enabledText(const BasicAccount& account) {
  const std::optional<StringList> enabled = account.enabledDataclasses();
  return enabled ? joined(shortNames(*enabled), "none") : "-";
}

void printAsTable(const std::vector<AccountPtr>& accounts) {
  Table table({"IDENTIFIER", "TYPE", "CLASS", "NAME", "ENABLED"});
  for (const AccountPtr& account : accounts) {
    std::string identifier = account->parentAccount() ? "  " : "";
    identifier += account->identifier();
    const String name = account->displayName();
    table.addRow({identifier, account->type(), account->accountClass(), name ? name : String("-"),
                  enabledText(*account)});
  }
  table.print();
}

}  // namespace

int list(const Options& options) {
  const Session session(Session::Purpose::reading, options);
  const std::vector<AccountPtr> accounts = listedAccounts(session.store(), options);
  if (options.isJson) {
    printAsJson(accounts);
  } else if (accounts.empty()) {
    std::cout << "no accounts\n";
  } else {
    printAsTable(accounts);
  }
  return done;
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
