#include "roster/notify/change_detection.h"

#include <algorithm>
#include <array>
#include <unordered_set>

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
  std::unordered_set<std::string> known_;
  StringList texts_;
};

/// Adds what the one list has and the other lacks.
void addMissing(const StringList& list, const StringList& other, DistinctTexts& found) {
  const std::unordered_set<std::string_view> known(other.begin(), other.end());
  for (const std::string& dataclass : list) {
    if (!known.contains(dataclass)) found.add(dataclass);
  }
}

/// Which dataclasses are enabled is compared by itself, children have accounts of their own, and the activity
/// comes and goes without anybody's doing: none of them concerns the other enabled dataclasses.
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

}  // namespace

String AccountChange::identifier() const { return textOf(*this, kAccountIdentifier); }

String AccountChange::accountType() const { return textOf(*this, kAccountType); }

std::vector<AccountChange> detectChanges(const Snapshot& snapshot,
                                         const OrderedMap<AccountPtr>& accountsByID) {
  const OrderedMap<Dictionary>& originals = snapshot.propertiesByID();
  std::vector<AccountChange> changes;
  std::vector<AccountChange> modified;
  std::size_t kept = 0;
  for (const auto& [identifier, original] : originals) {
    const AccountPtr* account = accountsByID.find(identifier);
    if (account == nullptr) {
      changes.push_back({RSAccountChangeTypeRemoved, original, {}});
      continue;
    }
    ++kept;
    Dictionary current = (*account)->propertiesToSave();
    if (current.sharesContentsWith(original) || current == original) continue;
    modified.push_back({RSAccountChangeTypeModified, original, std::move(current)});
  }
  if (kept < accountsByID.size()) {
    for (const auto& entry : accountsByID) {
      if (originals.contains(entry.key)) continue;
      changes.push_back({RSAccountChangeTypeAdded, {}, entry.value->propertiesToSave()});
    }
  }
  changes.insert(changes.end(), std::make_move_iterator(modified.begin()),
                 std::make_move_iterator(modified.end()));
  return changes;
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
