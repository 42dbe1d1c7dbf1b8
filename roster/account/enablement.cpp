#include <algorithm>
#include <array>
#include <span>

#include "roster/account/basic_account.h"
#include "roster/base/foreign_code.h"
#include "roster/base/process_wide.h"
#include "roster/platform/device.h"

namespace roster {

namespace {

/// The list as a set, in its own order.
StringList withoutRepetitions(const StringList& list) {
  std::set<std::string_view> seen;
  StringList members;
  std::copy_if(list.begin(), list.end(), std::back_inserter(members),
               [&](const std::string& text) { return seen.insert(text).second; });
  return members;
}

/// The members of `list` that are in `allowed` as well.
StringList intersection(const StringList& list, const StringList& allowed) {
  const std::set<std::string_view> members(allowed.begin(), allowed.end());
  StringList common = withoutRepetitions(list);
  std::erase_if(common, [&](const std::string& text) { return !members.contains(text); });
  return common;
}

/// A set written as an array: each text once. Elements that are not texts are kept as they are.
std::vector<Value> setMembers(const Value& stored) {
  std::vector<Value> members;
  std::set<std::string, std::less<>> seen;
  for (const Value& element : stored.array().value_or(Array())) {
    if (element.isNil()) continue;  // damaged in its file
    const String text = element.string();
    if (text.isNil() || seen.insert(text.str()).second) members.push_back(element);
  }
  return members;
}

}  // namespace

std::optional<StringList> BasicAccount::listForKey(std::string_view key) const {
  const Value value = accountPropertyForKey(key);
  std::optional<StringList> list = stringList(value);
  // As with texts, a value of another type hides nothing, and no value is an answer.
  if (!list && !value.isNil() && _parentAccount) return held(_parentAccount)->listForKey(key);
  return list;
}

StringList BasicAccount::_orderedDataclasses(const StringList& dataclasses) const {
  const StringList& canonical = allSupportedDataclasses();
  StringList ordered;
  for (const std::string& dataclass : canonical) {
    if (contains(dataclasses, dataclass)) ordered.push_back(dataclass);
  }
  std::copy_if(dataclasses.begin(), dataclasses.end(), std::back_inserter(ordered),
               [&](const std::string& dataclass) { return !contains(canonical, dataclass); });
  return ordered;
}

StringList BasicAccount::supportedDataclasses() const {
  return _orderedDataclasses(supportedDataclassesForAccountType(type()).value_or(StringList()));
}

StringList BasicAccount::provisionedDataclasses() const {
  const StringList supported = supportedDataclasses();
  const std::optional<StringList> stored = listForKey(kAccountProvisionedDataclasses);
  StringList provisioned = intersection(stored.value_or(supported), supported);
  std::erase_if(provisioned, [restricted = _profileRestrictedDataclasses()](const std::string& dataclass) {
    return restricted.contains(dataclass);
  });
  return _orderedDataclasses(provisioned);
}

std::optional<StringList> BasicAccount::enabledDataclasses() const {
  if (const AccountPtr parent = held(parentAccount())) {
    std::optional<StringList> inherited = parent->enabledDataclasses();
    if (inherited && !inherited->empty()) return inherited;
  }
  const std::optional<StringList> stored = listForKey(kAccountEnabledDataclasses);
  if (!stored) return std::nullopt;
  return _orderedDataclasses(intersection(*stored, provisionedDataclasses()));
}

bool BasicAccount::isEnabledForDataclass(std::string_view dataclass) const {
  return contains(enabledDataclasses().value_or(StringList()), dataclass);
}

void BasicAccount::setEnabledForDataclass(bool isEnabled, std::string_view dataclass) {
  if (contains(supportedDataclasses(), dataclass)) _forcedSetEnabledForDataclass(isEnabled, dataclass);
}

void BasicAccount::_forcedSetEnabledForDataclass(bool isEnabled, std::string_view dataclass) {
  std::vector<Value> members = setMembers(properties().find(kAccountEnabledDataclasses));
  const auto found = std::find_if(members.begin(), members.end(),
                                  [&](const Value& member) { return member.string() == dataclass; });
  if (isEnabled && found == members.end()) members.emplace_back(dataclass);
  if (!isEnabled && found != members.end()) members.erase(found);
  setAccountPropertyForKey(Array(std::move(members)), kAccountEnabledDataclasses);
}

void BasicAccount::setEnabledForDataclasses(const StringList& dataclasses) {
  removeAccountPropertyForKey(kAccountEnabledDataclasses);
  for (const std::string& dataclass : dataclasses) setEnabledForDataclass(true, dataclass);
}

std::set<std::string, std::less<>> BasicAccount::_profileRestrictedDataclasses() const {
  struct Rule {
    Feature feature;
    StringList dataclasses;
  };
  static const auto& rules = immortal(std::array{
      Rule{Feature::cloudDocumentSync,
           {std::string(kAccountDataclassUbiquity), std::string(kAccountDataclassKeyValue)}},
      Rule{Feature::photoStream, {std::string(kAccountDataclassMediaStream)}},
      Rule{Feature::sharedPhotoStreams, {std::string(kAccountDataclassSharedStreams)}},
      Rule{Feature::cloudBackup, {std::string(kAccountDataclassBackup)}},
      Rule{Feature::cardsWhileLocked, {std::string(kAccountDataclassSatchel)}},
  });
  std::set<std::string, std::less<>> restricted;
  for (const Rule& rule : rules) {
    if (restriction(rule.feature) != featureNotAllowed) continue;
    restricted.insert(rule.dataclasses.begin(), rule.dataclasses.end());
  }
  return restricted;
}

}  // namespace roster
