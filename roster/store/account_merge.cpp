#include "roster/store/account_merge.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/plist/property_list.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/representation.h"

namespace roster {

namespace {

/// Copies a value out of its file. What a file shares stays shared in the copy, so that a copy is never
/// larger than the file.
class Detachment {
 public:
  Value copy(const Value& value) {
    if (!ValueAccess::isInDocument(value)) return value;
    const auto known = copies_.find(value.identity());
    if (known != copies_.end()) return known->second;
    Value made = copyContents(value);
    copies_.emplace(value.identity(), made);
    return made;
  }

 private:
  /// The depth of a file's values is bounded by the check that every file passes.
  Value copyContents(const Value& value) {
    if (const std::optional<Array> array = value.array()) {
      std::vector<Value> elements;
      elements.reserve(array->size());
      for (const Value& element : *array) elements.push_back(copy(element));
      return Array(std::move(elements));
    }
    if (const std::optional<Dictionary> dictionary = value.dictionary()) {
      MutableDictionary entries;
      for (const DictionaryEntry& entry : *dictionary) entries.set(entry.key, copy(entry.value));
      return Value(entries).deepCopy();
    }
    if (value.isString()) return std::string_view(value.string());
    if (const auto bytes = value.bytes()) return Value::data(*bytes);
    return value;
  }

  std::unordered_map<ValueIdentity, Value> copies_;
};

/// Whether a list means everything when it is absent, or nothing.
enum class Absent { everything, nothing };

using TextSet = std::set<std::string_view>;

/// A list of dataclasses that is asked what it has.
class Dataclasses {
 public:
  explicit Dataclasses(const Value& value)
      : list_(stringList(value).value_or(StringList())), set_(list_.begin(), list_.end()) {}
  // The set refers to the list.
  Dataclasses(const Dataclasses&) = delete;
  Dataclasses& operator=(const Dataclasses&) = delete;
  ~Dataclasses() = default;

  const StringList& list() const { return list_; }
  bool has(const std::string& dataclass) const { return set_.contains(dataclass); }
  friend bool operator==(const Dataclasses& left, const Dataclasses& right) {
    return left.set_ == right.set_;
  }

 private:
  StringList list_;
  TextSet set_;
};

/// Known dataclasses in their canonical order, then the others as they come.
StringList inCanonicalOrder(const StringList& dataclasses) {
  const TextSet members(dataclasses.begin(), dataclasses.end());
  TextSet taken;
  StringList ordered;
  const auto take = [&](const std::string& dataclass) {
    if (members.contains(dataclass) && taken.insert(dataclass).second) ordered.push_back(dataclass);
  };
  const StringList& known = BasicAccount::allSupportedDataclasses();
  std::for_each(known.begin(), known.end(), take);
  std::for_each(dataclasses.begin(), dataclasses.end(), take);
  return ordered;
}

/// Where one side left the set as it was, the other side's list stays as it is written.
Value mergeDataclasses(const Value& mine, const Value& base, const Value& theirs, Absent absent) {
  const auto isList = [absent](const Value& value) {
    return value.isArray() || (value.isNil() && absent == Absent::nothing);
  };
  if (!isList(mine) || !isList(base) || !isList(theirs)) return mergeWhole(mine, base, theirs);
  if (theirs == base) return mine;
  const Dataclasses here(mine);
  const Dataclasses before(base);
  const Dataclasses there(theirs);
  if (here == before) return theirs;
  if (there == before || there == here) return mine;
  StringList merged;
  for (const std::string& dataclass : there.list()) {
    if (here.has(dataclass) || !before.has(dataclass)) merged.push_back(dataclass);
  }
  for (const std::string& dataclass : here.list()) {
    if (!before.has(dataclass)) merged.push_back(dataclass);
  }
  // Where an absent list means everything, an empty one has to stay.
  if (merged.empty() && absent == Absent::nothing) return {};
  return arrayValue(inCanonicalOrder(merged));
}

Value mergeProperty(std::string_view key, const AccountVersions& versions) {
  const Value mine = versions.mine.find(key);
  const Value base = versions.base.find(key);
  const Value theirs = versions.theirs.find(key);
  if (key == kAccountEnabledDataclasses) return mergeDataclasses(mine, base, theirs, Absent::nothing);
  if (key == kAccountProvisionedDataclasses) return mergeDataclasses(mine, base, theirs, Absent::everything);
  return mergeWhole(mine, base, theirs);
}

}  // namespace

Value mergeWhole(const Value& mine, const Value& base, const Value& theirs) {
  return mine == base ? theirs : mine;
}

Value detachedCopy(const Value& value) { return Detachment().copy(value); }

Dictionary mergeAccount(const AccountVersions& versions) {
  if (versions.theirs.sharesContentsWith(versions.base)) return versions.mine;
  auto merged = MutableDictionary::copyOf(versions.mine);
  bool isChanged = false;
  Detachment detachment;
  const auto settle = [&](const String& key) {
    if (key.isNil() || key == kAccountChildAccounts) return;
    const Value mine = versions.mine.find(key);
    Value property = mergeProperty(key, versions);
    if (property == mine) return;
    merged.set(key, detachment.copy(property));
    isChanged = true;
  };
  for (const DictionaryEntry& entry : versions.theirs) settle(entry.key);
  for (const DictionaryEntry& entry : versions.mine) {
    if (!versions.theirs.contains(entry.key)) settle(entry.key);
  }
  return isChanged ? merged.deepCopy() : versions.mine;
}

std::string contentsKey(const Dictionary& contents) {
  std::map<std::string, Value> sorted;
  for (const DictionaryEntry& entry : contents) sorted.emplace(entry.key.str(), entry.value);
  MutableDictionary ordered;
  for (const auto& [key, value] : sorted) ordered.set(key, value);
  const Result<std::string> bytes = binaryPropertyList(ordered);
  return bytes ? *bytes : std::string();
}

}  // namespace roster
