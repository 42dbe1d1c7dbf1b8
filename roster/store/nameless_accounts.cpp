#include "roster/store/nameless_accounts.h"

#include <map>
#include <set>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/account/saved_properties.h"
#include "roster/notify/snapshot_properties.h"
#include "roster/store/account_merge.h"
#include "roster/value/mutable_dictionary.h"

namespace roster {

namespace {

using Positions = std::map<std::string, std::vector<std::size_t>>;

Dictionary renamed(const Dictionary& account, const Dictionary& names) {
  auto changed = MutableDictionary::copyOf(account);
  for (const std::string_view key : {kAccountIdentifier, kAccountSyncIdentifier}) {
    changed.set(key, names.find(key));
  }
  return changed.deepCopy();
}

/// As the account may have been stored before somebody named it.
Dictionary withoutNames(const Dictionary& account) {
  auto nameless = MutableDictionary::copyOf(account);
  nameless.remove(kAccountIdentifier);
  if (account.find(kAccountSyncIdentifier) == account.find(kAccountIdentifier))
    nameless.remove(kAccountSyncIdentifier);
  return nameless.deepCopy();
}

/// Gives the account of the base an identifier; the file will have it without one.
void nameInBase(Dictionary& account, const String& identifier, StoreState& store) {
  store.nameless.push_back({identifier, account});
  const String sync = account.find(kAccountSyncIdentifier).string();
  account = renamed(account,
                    {{kAccountIdentifier, identifier}, {kAccountSyncIdentifier, sync ? sync : identifier}});
}

void nameRecord(const AccountPtr& record, const String& identifier, StoreState& store) {
  MutableDictionary properties = record->properties();
  properties.set(kAccountIdentifier, identifier);
  if (!properties.find(kAccountSyncIdentifier).isString()) properties.set(kAccountSyncIdentifier, identifier);
  store.indexes.setTopLevel(identifier, record);
  store.indexes.reloadChildrenOf(record);
}

/// A record goes over to other names, as do its children's entries.
void rename(const AccountPtr& record, const Dictionary& names, StoreState& store) {
  const String former = record->identifier();
  const String identifier = names.find(kAccountIdentifier).string();
  const std::vector<AccountPtr> children = store.indexes.childrenOf(record);
  store.indexes.removeChildrenOf(former);
  store.indexes.removeTopLevel(former);
  MutableDictionary properties = record->properties();
  for (const std::string_view key : {kAccountIdentifier, kAccountSyncIdentifier}) {
    properties.set(key, names.find(key));
  }
  store.indexes.setTopLevel(identifier, record);
  for (const AccountPtr& child : children) store.indexes.enterChild(child, child->identifier(), identifier);
}

/// So does what the notifiers know of the account, which may be no record any more.
void renameTold(const String& former, const Dictionary& names, StoreState& store) {
  OrderedMap<Dictionary>& told = SnapshotProperties::of(store.snapshot).byID();
  const Dictionary* known = told.find(former);
  if (known == nullptr) return;
  const Dictionary account = renamed(*known, names);
  told.erase(former);
  told.set(storedIdentifier(account), account);
}

/// The accounts of the file that neither this store knows nor the file leaves without a name, by what they
/// would be without one; equal ones from behind.
std::map<std::string, std::vector<Dictionary>> newlyNamed(const StoreState& store, const FileVersion& file) {
  std::set<std::string, std::less<>> known;
  for (const NamelessAccount& account : file.nameless) known.insert(account.identifier.str());
  for (const Dictionary& account : store.base) known.insert(storedIdentifier(account).str());
  std::map<std::string, std::vector<Dictionary>> accounts;
  for (std::size_t index = file.accounts.size(); index-- > 0;) {
    const Dictionary& account = file.accounts[index];
    if (!known.contains(storedIdentifier(account).view()))
      accounts[contentsKey(withoutNames(account))].push_back(account);
  }
  return accounts;
}

}  // namespace

void nameAccounts(StoreState& store) {
  if (store.isEveryAccountNamed()) return;
  Positions inBase;
  // From behind: equal accounts are taken from the back, and so in their order.
  for (std::size_t index = store.base.size(); index-- > 0;) {
    const Dictionary& account = store.base[index];
    if (storedIdentifier(account).isNil()) inBase[contentsKey(account)].push_back(index);
  }
  const auto records = store.indexes.topLevelAccounts()->span();
  for (const AccountPtr& record : std::vector<AccountPtr>(records.begin(), records.end())) {
    const Dictionary saved = SavedProperties::of(*record).deepCopy();
    if (storedIdentifier(saved)) continue;
    const String identifier = BasicAccount::createNewAccountUID();
    nameRecord(record, identifier, store);
    const auto known = inBase.find(contentsKey(saved));
    if (known == inBase.end() || known->second.empty()) continue;
    nameInBase(store.base[known->second.back()], identifier, store);
    known->second.pop_back();
  }
  for (const auto& [contents, positions] : inBase) {
    for (const std::size_t index : positions) {
      nameInBase(store.base[index], BasicAccount::createNewAccountUID(), store);
    }
  }
}

void adoptNames(StoreState& store, const FileVersion& file) {
  if (store.nameless.empty()) return;
  std::map<std::string, std::vector<Dictionary>> named = newlyNamed(store, file);
  std::set<std::string, std::less<>> stillNameless;
  for (const NamelessAccount& account : file.nameless) stillNameless.insert(account.identifier.str());
  OrderedMap<Dictionary> names;
  for (const NamelessAccount& account : store.nameless) {
    if (stillNameless.contains(account.identifier.view())) continue;
    const auto found = named.find(contentsKey(account.stored));
    if (found == named.end() || found->second.empty()) continue;
    names.set(account.identifier, found->second.back());
    found->second.pop_back();
  }
  for (const auto& entry : names) {
    const AccountPtr* record = store.indexes.topLevelAccountsByID().find(entry.key);
    if (record != nullptr) rename(AccountPtr(*record), entry.value, store);
    renameTold(entry.key, entry.value, store);
  }
  for (Dictionary& account : store.base) {
    if (const Dictionary* name = names.find(storedIdentifier(account))) account = renamed(account, *name);
  }
}

}  // namespace roster
