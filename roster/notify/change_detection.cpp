#include "roster/notify/change_detection.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "roster/account/saved_properties.h"
#include "roster/account/vocabulary.h"
#include "roster/base/foreign_code.h"
#include "roster/base/text_table.h"
#include "roster/notify/snapshot_properties.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

Array enabledDataclasses(const Dictionary& properties) {
  return properties.find(kAccountEnabledDataclasses).array().value_or(Array());
}

/// Gathers texts in order, each once.
class DistinctTexts {
 public:
  void add(const std::string& text) {
    if (known_.insert(text).second) texts_.push_back(text);
  }
  StringList take() { return std::move(texts_); }

 private:
  std::unordered_set<std::string, SeededTextHash> known_;
  StringList texts_;
};

/// Adds what the one list has and the other lacks.
void addMissing(const StringList& list, const StringList& other, DistinctTexts& found) {
  const std::unordered_set<std::string_view, SeededTextHash> known(other.begin(), other.end());
  for (const std::string& dataclass : list) {
    if (!known.contains(dataclass)) found.add(dataclass);
  }
}

/// The list of enabled dataclasses is compared separately, children have records of their own, and the
/// activity changes by itself: none of them concerns the other enabled dataclasses.
bool isComparedByContent(const String& key) {
  return !(key == kAccountEnabledDataclasses || key == kAccountChildAccounts || key == "IsActive");
}

/// Whether every entry that counts is equal in the other dictionary; `count` becomes how many do.
bool areCountedEntriesIn(const Dictionary& properties, const Dictionary& other, std::size_t& count) {
  for (const DictionaryEntry& entry : properties) {
    if (!isComparedByContent(entry.key)) continue;
    if (!(other.find(entry.key) == entry.value)) return false;
    ++count;
  }
  return true;
}

bool differInContent(const Dictionary& original, const Dictionary& current) {
  std::size_t common = 0;
  if (!areCountedEntriesIn(current, original, common)) return true;
  std::size_t counted = 0;
  for (const DictionaryEntry& entry : original) {
    if (isComparedByContent(entry.key)) ++counted;
  }
  return counted != common;
}

String textOf(const AccountChange& change, std::string_view key) {
  const String current = change.current.find(key).string();
  return current.isNil() ? change.original.find(key).string() : current;
}

/// Compares the originals with what an index has now under the same identifiers; `propertiesOf` gives the
/// properties of one of its values.
template <class T, class PropertiesOf>
std::vector<AccountChange> differences(const OrderedMap<Dictionary>& originals, const OrderedMap<T>& index,
                                       const PropertiesOf& propertiesOf) {
  std::vector<AccountChange> changes;
  std::vector<AccountChange> modified;
  std::size_t kept = 0;
  for (const auto& entry : originals) {
    const Dictionary& original = entry.value;
    const T* found = index.find(entry.key);
    if (found == nullptr) {
      changes.push_back({RSAccountChangeTypeRemoved, original, {}});
      continue;
    }
    ++kept;
    Dictionary current = propertiesOf(*found);
    if (current.sharesContentsWith(original) || current == original) continue;
    modified.push_back({RSAccountChangeTypeModified, original, std::move(current)});
  }
  if (kept < index.size()) {
    for (const auto& entry : index) {
      if (originals.contains(entry.key)) continue;
      changes.push_back({RSAccountChangeTypeAdded, {}, propertiesOf(entry.value)});
    }
  }
  changes.insert(changes.end(), std::make_move_iterator(modified.begin()),
                 std::make_move_iterator(modified.end()));
  return changes;
}

OrderedMap<Dictionary> childrenByID(const Dictionary& account) {
  OrderedMap<Dictionary> children;
  const Array elements = account.find(kAccountChildAccounts).array().value_or(Array());
  for (const Value& element : elements) {
    const std::optional<Dictionary> child = element.dictionary();
    const String identifier = child ? child->find(kAccountIdentifier).string() : String();
    if (identifier) children.set(identifier, *child);
  }
  return children;
}

}  // namespace

Snapshot::Snapshot() : properties_(std::make_unique<SnapshotProperties>()) {}

Snapshot::Snapshot(std::span<const AccountPtr> accounts) : Snapshot() {
  properties_->reserve(accounts.size());
  for (const AccountPtr& each : accounts) {
    const AccountPtr account = held(each);
    const String identifier = account->identifier();
    if (identifier.isNil()) {
      systemLog("%@ returned a nil identifier. Account properties may not get saved", account->description());
      continue;
    }
    properties_->add(identifier, SavedProperties::of(*account).deepCopy());
  }
}

Snapshot::Snapshot(Snapshot&&) noexcept = default;
Snapshot& Snapshot::operator=(Snapshot&&) noexcept = default;
Snapshot::~Snapshot() = default;

OrderedMap<Dictionary>& SnapshotProperties::byID() {
  if (!entries_.empty()) {
    byID_.reserve(entries_.size());
    for (auto& [identifier, properties] : entries_) byID_.set(identifier, std::move(properties));
    entries_.clear();
    entries_.shrink_to_fit();
  }
  return byID_;
}

String AccountChange::identifier() const { return textOf(*this, kAccountIdentifier); }

String AccountChange::accountType() const { return textOf(*this, kAccountType); }

std::vector<AccountChange> changesBetween(const Snapshot& before, const Snapshot& after) {
  return differences(SnapshotProperties::of(before).byID(), SnapshotProperties::of(after).byID(),
                     [](const Dictionary& properties) { return properties; });
}

std::vector<AccountChange> childChanges(const AccountChange& change) {
  return differences(childrenByID(change.original), childrenByID(change.current),
                     [](const Dictionary& properties) { return properties; });
}

std::vector<AccountChange> detectChanges(const Snapshot& snapshot,
                                         const OrderedMap<AccountPtr>& accountsByID) {
  return differences(SnapshotProperties::of(snapshot).byID(), accountsByID,
                     [](const AccountPtr& account) { return SavedProperties::of(*held(account)); });
}

StringList concernedDataclasses(const AccountChange& change) {
  const StringList original =
      stringList(change.original.find(kAccountEnabledDataclasses)).value_or(StringList());
  const StringList current =
      stringList(change.current.find(kAccountEnabledDataclasses)).value_or(StringList());
  DistinctTexts concerned;
  if (change.type == RSAccountChangeTypeAdded || change.type == RSAccountChangeTypeRemoved) {
    for (const std::string& dataclass : change.type == RSAccountChangeTypeAdded ? current : original) {
      concerned.add(dataclass);
    }
    return concerned.take();
  }
  addMissing(original, current, concerned);
  addMissing(current, original, concerned);
  if (!current.empty() && differInContent(change.original, change.current)) {
    for (const std::string& dataclass : current) concerned.add(dataclass);
  }
  return concerned.take();
}

Dictionary changeRecord(const AccountChange& change) {
  return {{kRSChangeAccountChangeTypeKey, static_cast<int>(change.type)},
          {kRSChangeAccountIdentifierKey, change.identifier()},
          {kRSChangeAccountTypeKey, change.accountType()},
          {kRSChangeAccountOriginallyEnabledDataclassesKey, enabledDataclasses(change.original)}};
}

}  // namespace roster
