#include "roster/store/store_refresh.h"

#include <algorithm>
#include <iterator>
#include <typeinfo>
#include <utility>

#include "roster/account/saved_properties.h"
#include "roster/notify/snapshot_properties.h"
#include "roster/value/mutable_dictionary.h"

namespace roster {

namespace {

constexpr std::size_t nowhere = UnsettledAccounts::nowhere;

OrderedMap<Dictionary> byIdentifier(const AccountList& accounts) {
  OrderedMap<Dictionary> byID;
  for (const Dictionary& account : accounts) {
    if (const String identifier = storedIdentifier(account)) byID.set(identifier, account);
  }
  return byID;
}

bool isPlain(const BasicAccount& record) { return typeid(record) == typeid(BasicAccount); }

/// What a record would save. What a subclass holds but does not save counts as unchanged: it is as the base
/// has it, and becomes as the file has it.
Dictionary savedProperties(const AccountPtr& record, const OrderedMap<Dictionary>& base) {
  Dictionary saved = SavedProperties::of(*record).deepCopy();
  if (isPlain(*record)) return saved;
  const String identifier = record->identifier();
  const Dictionary* known = identifier ? base.find(identifier) : nullptr;
  if (known == nullptr) return saved;
  auto completed = MutableDictionary::copyOf(saved);
  const Dictionary held = record->properties();
  for (const DictionaryEntry& entry : *known) {
    if (!saved.contains(entry.key) && held.contains(entry.key)) completed.set(entry.key, entry.value);
  }
  return completed.size() == saved.size() ? saved : completed.deepCopy();
}

/// The current properties with what was brought in: what a program has set in a record alone stays.
Dictionary patched(const Dictionary& current, const Dictionary& former, const Dictionary& now) {
  if (current.sharesContentsWith(former) || current == former) return now;
  auto changed = MutableDictionary::copyOf(current);
  for (const DictionaryEntry& entry : now) {
    if (!(former.find(entry.key) == entry.value)) changed.set(entry.key, entry.value);
  }
  for (const DictionaryEntry& entry : former) {
    if (!now.contains(entry.key)) changed.remove(entry.key);
  }
  return changed.deepCopy();
}

}  // namespace

StoreRefresh::StoreRefresh(StoreState& store, const FileVersion& file, bool isFileWhole)
    : store_(store), records_(store.topLevelRecords()), nameless_(file.nameless) {
  takeVersions(file, isFileWhole);
  unsettled_ = unsettledAccounts(versions_, store.indexes);
  merge();
  compareWithFile();
  makeBase();
  if (unsettled_.identifiers.empty()) return;
  makeRecords();
  findChanges();
}

void StoreRefresh::takeVersions(const FileVersion& file, bool isFileWhole) {
  const bool arePlain = std::all_of(records_.begin(), records_.end(),
                                    [](const AccountPtr& record) { return isPlain(*record); });
  const OrderedMap<Dictionary> baseByID = arePlain ? OrderedMap<Dictionary>() : byIdentifier(store_.base);
  versions_.mine.reserve(records_.size());
  for (const AccountPtr& record : records_) {
    versions_.mine.push_back(savedProperties(record, baseByID));
  }
  versions_.base = store_.base;
  versions_.theirs = isFileWhole ? file.accounts : completed(store_.base, file.accounts);
}

void StoreRefresh::merge() {
  const RegistryVersions unsettled{unsettled_.of(versions_.mine, unsettled_.mine),
                                   unsettled_.of(versions_.base, unsettled_.base),
                                   unsettled_.of(versions_.theirs, unsettled_.theirs)};
  MergedRegistry merged = mergeRegistries(unsettled);
  nextBase_ = byIdentifier(merged.base);
  for (Dictionary& account : merged.accounts) {
    // What was not changed here shares its contents with the base, so that it is settled from now on.
    const Dictionary* base = nextBase_.find(storedIdentifier(account));
    if (base != nullptr && *base == account) account = *base;
    merged_.set(storedIdentifier(account), account);
    for (const Value& element : storedChildren(account)) {
      if (const String identifier = storedChildIdentifier(element)) mergedChildren_.set(identifier, true);
    }
  }
  for (const Dictionary& account : unsettled.mine) {
    formerAccounts_.set(storedIdentifier(account), account);
    for (const Value& element : storedChildren(account)) {
      if (const String identifier = storedChildIdentifier(element))
        formerChildren_.set(identifier, *element.dictionary());
    }
  }
  arrange(merged.accounts);
  makeTold(unsettled.base, unsettled.theirs);
}

/// Theirs in their order, then what only memory has. Of several with one identifier the last counts, and so
/// does its position: each list is gone through from behind.
void StoreRefresh::arrange(const AccountList& merged) {
  OrderedMap<bool> placed;
  const auto place = [&](const String& identifier, std::size_t position) {
    const Dictionary* account = identifier ? merged_.find(identifier) : nullptr;
    if (account == nullptr || !placed.set(identifier, true)) return;
    outcomes_.push_back({nullptr, *account, position, false});
  };
  outcomes_.reserve(versions_.theirs.size());
  for (std::size_t position = versions_.theirs.size(); position-- > 0;) {
    const std::size_t inMine = unsettled_.inMine[position];
    if (!unsettled_.theirs[position]) {
      place(storedIdentifier(versions_.theirs[position]), position);
    } else {
      outcomes_.push_back({records_[inMine], versions_.mine[inMine], position, true});
    }
  }
  std::reverse(outcomes_.begin(), outcomes_.end());
  const auto countOfTheirs = static_cast<std::ptrdiff_t>(outcomes_.size());
  for (std::size_t index = versions_.mine.size(); index-- > 0;) {
    if (unsettled_.mine[index]) continue;
    const String identifier = storedIdentifier(versions_.mine[index]);
    if (identifier.isNil()) outcomes_.push_back({records_[index], versions_.mine[index], nowhere, true});
    place(identifier, nowhere);
    if (identifier && !formerRecords_.contains(identifier))
      formerRecords_.append(identifier, records_[index]);
  }
  std::reverse(outcomes_.begin() + countOfTheirs, outcomes_.end());
  for (const Dictionary& account : merged) place(storedIdentifier(account), nowhere);
}

void StoreRefresh::compareWithFile() {
  isFileDifferent_ = outcomes_.size() != versions_.theirs.size();
  isOrderChanged_ = outcomes_.size() != records_.size();
  for (std::size_t index = 0; index < outcomes_.size(); ++index) {
    const Outcome& outcome = outcomes_[index];
    if (outcome.position != index ||
        (!outcome.isSettled && !(outcome.properties == versions_.theirs[outcome.position])))
      isFileDifferent_ = true;
    if (!isOrderChanged_ && outcome.isSettled && outcome.record != records_[index]) isOrderChanged_ = true;
    if (!isOrderChanged_ && !outcome.isSettled &&
        !(storedIdentifier(outcome.properties) == storedIdentifier(versions_.mine[index])))
      isOrderChanged_ = true;
  }
}

/// In the order of `arrange`: a base that stands for a file which cannot be read is an order too. What is
/// kept although theirs lacks it comes first: children that it still has may be elsewhere in theirs, and of
/// two places the last counts.
void StoreRefresh::makeBase() {
  OrderedMap<bool> placed;
  base_.reserve(versions_.theirs.size());
  for (std::size_t position = versions_.theirs.size(); position-- > 0;) {
    if (unsettled_.theirs[position]) {
      base_.push_back(versions_.base[unsettled_.inBase[position]]);
      continue;
    }
    const String identifier = storedIdentifier(versions_.theirs[position]);
    const Dictionary* account = identifier ? nextBase_.find(identifier) : nullptr;
    if (account != nullptr && placed.set(identifier, true)) base_.push_back(*account);
  }
  std::reverse(base_.begin(), base_.end());
  AccountList kept;
  for (const auto& entry : nextBase_) {
    if (!placed.contains(entry.key)) kept.push_back(entry.value);
  }
  base_.insert(base_.begin(), kept.begin(), kept.end());
}

void StoreRefresh::makeRecords() {
  indexes_ = store_.indexes;
  removeFormer();
  for (Outcome& outcome : outcomes_) {
    if (outcome.isSettled) continue;
    const String identifier = storedIdentifier(outcome.properties);
    const bool wasTopLevel = formerRecords_.contains(identifier);
    const Dictionary* base = outcome.position == nowhere ? nullptr : nextBase_.find(identifier);
    outcome.record = takeRecord(identifier, false);
    if (outcome.record) {
      const Dictionary* former =
          wasTopLevel ? formerAccounts_.find(identifier) : formerChildren_.find(identifier);
      hold(outcome.record, *former, outcome.properties,
           base == nullptr ? outcome.record->originalProperties() : *base);
      parents_.emplace_back(outcome.record, nullptr);
    } else {
      outcome.record = BasicAccount::initWithProperties(outcome.properties);
      // Among its children may be one that was changed here.
      if (outcome.record && base != nullptr) outcome.record->setOriginalProperties(*base);
    }
    if (outcome.record && !wasTopLevel) indexes_.setTopLevel(identifier, outcome.record);
  }
  // Of those that were read as records, one that went from child to account may not be one of its own.
  std::erase_if(outcomes_, [](const Outcome& outcome) { return !outcome.record; });
  for (const Outcome& outcome : outcomes_) {
    if (!outcome.isSettled && areChildrenChanged(outcome)) makeChildren(outcome);
  }
}

bool StoreRefresh::areChildrenChanged(const Outcome& outcome) const {
  const Dictionary* former = formerAccounts_.find(storedIdentifier(outcome.properties));
  const Value children = outcome.properties.find(kAccountChildAccounts);
  return former == nullptr ? !children.isNil() : !(former->find(kAccountChildAccounts) == children);
}

/// Takes what is gone or moves out of the indexes before anything is entered: a child must not be taken from
/// the parent that it has just come to.
void StoreRefresh::removeFormer() {
  for (const auto& entry : formerRecords_) {
    if (merged_.contains(entry.key)) continue;
    indexes_.removeChildrenOf(entry.key);
    indexes_.removeTopLevel(entry.key);
  }
  for (const Outcome& outcome : outcomes_) {
    if (!outcome.isSettled && areChildrenChanged(outcome))
      indexes_.removeChildrenOf(storedIdentifier(outcome.properties));
  }
}

/// The record that the account has in memory, wherever it stands there; nil when it has none. An account and
/// a child that are there at once, before or after, are two, though they share an identifier.
AccountPtr StoreRefresh::takeRecord(const String& identifier, bool isChild) {
  const AccountPtr* account = formerRecords_.find(identifier);
  const AccountPtr* child =
      formerChildren_.contains(identifier) ? store_.indexes.childAccountsByID().find(identifier) : nullptr;
  const bool areTwo = (merged_.contains(identifier) && mergedChildren_.contains(identifier)) ||
                      (formerAccounts_.contains(identifier) && formerChildren_.contains(identifier));
  const AccountPtr* record = isChild ? child : account;
  if (record == nullptr && !areTwo) record = isChild ? account : child;
  return record != nullptr && used_.insert(record->get()).second ? *record : nullptr;
}

void StoreRefresh::hold(const AccountPtr& record, const Dictionary& former, const Dictionary& now,
                        const Dictionary& original) {
  const Dictionary current =
      isPlain(*record) ? SavedProperties::of(*record).deepCopy() : record->properties().deepCopy();
  contents_.emplace_back(record, patched(current, former, now), original);
}

void StoreRefresh::makeChildren(const Outcome& parent) {
  const String parentID = storedIdentifier(parent.properties);
  for (const Value& element : storedChildren(parent.properties)) {
    const String identifier = storedChildIdentifier(element);
    const AccountPtr record = identifier ? takeRecord(identifier, true) : nullptr;
    // A record that became of a type that is not known here would be none after the next load.
    if (!record || !BasicAccount::initWithProperties(*element.dictionary())) {
      indexes_.addChild(element, parent.record, parentID);
      continue;
    }
    const Dictionary properties = *element.dictionary();
    const Dictionary* former = formerChildren_.find(identifier);
    hold(record, former != nullptr ? *former : *formerAccounts_.find(identifier), properties, properties);
    parents_.emplace_back(record, parent.record);
    indexes_.enterChild(record, identifier, parentID);
  }
}

/// What others did, their own programs tell: to the notifiers it is to have been there before.
void StoreRefresh::makeTold(const AccountList& base, const AccountList& theirs) {
  const OrderedMap<Dictionary>& told = SnapshotProperties::of(store_.snapshot).byID();
  RegistryVersions versions{{}, base, theirs};
  for (const auto& entry : unsettled_.identifiers) {
    if (const Dictionary* account = told.find(entry.key)) versions.mine.push_back(*account);
  }
  for (const Dictionary& account : mergeRegistries(versions).accounts) {
    const String identifier = storedIdentifier(account);
    const Dictionary* next = nextBase_.find(identifier);
    told_.set(identifier, next != nullptr && *next == account ? *next : account);
  }
}

void StoreRefresh::findChanges() {
  std::vector<AccountChange> modified;
  for (const auto& entry : formerAccounts_) {
    const Dictionary* now = merged_.find(entry.key);
    if (now == nullptr) {
      changes_.push_back({RSAccountChangeTypeRemoved, entry.value, {}});
    } else if (!(entry.value == *now)) {
      modified.push_back({RSAccountChangeTypeModified, entry.value, *now});
    }
  }
  for (const Outcome& outcome : outcomes_) {
    if (!outcome.isSettled && !formerAccounts_.contains(storedIdentifier(outcome.properties)))
      changes_.push_back({RSAccountChangeTypeAdded, {}, outcome.properties});
  }
  std::move(modified.begin(), modified.end(), std::back_inserter(changes_));
}

std::vector<AccountChange> StoreRefresh::commit() {
  std::vector<AccountPtr> records;
  records.reserve(outcomes_.size());
  for (const Outcome& outcome : outcomes_) records.push_back(outcome.record);
  OrderedMap<Dictionary>& told = SnapshotProperties::of(store_.snapshot).byID();
  told.reserve(told.size() + told_.size());

  for (const auto& [record, parent] : parents_) record->setParentAccount(nullptr);
  for (const auto& [record, parent] : parents_) record->setParentAccount(parent);
  for (RecordContents& contents : contents_) contents.putInPlace();
  if (!unsettled_.identifiers.empty()) store_.indexes = std::move(indexes_);
  if (isOrderChanged_ || !changes_.empty()) store_.indexes.topLevelAccounts()->replaceAll(std::move(records));
  for (const auto& entry : unsettled_.identifiers) {
    const Dictionary* account = told_.find(entry.key);
    account != nullptr ? static_cast<void>(told.set(entry.key, *account))
                       : static_cast<void>(told.erase(entry.key));
  }
  store_.base = std::move(base_);
  store_.nameless = std::move(nameless_);
  return std::move(changes_);
}

AccountList StoreRefresh::accounts() const {
  AccountList accounts;
  accounts.reserve(outcomes_.size());
  for (const Outcome& outcome : outcomes_) accounts.push_back(outcome.properties);
  return accounts;
}

std::vector<Value> StoreRefresh::accountsToWrite(const FileVersion& file) const {
  std::vector<Value> accounts;
  accounts.reserve(outcomes_.size() + file.carried.size());
  auto carried = file.carried.begin();
  for (const Outcome& outcome : outcomes_) {
    // What was added here has no position in the file, and stands behind everything that has.
    while (carried != file.carried.end() && carried->position <= outcome.position) {
      accounts.push_back(carried->element);
      ++carried;
    }
    accounts.emplace_back(outcome.properties);
  }
  for (; carried != file.carried.end(); ++carried) accounts.push_back(carried->element);
  return accounts;
}

}  // namespace roster
