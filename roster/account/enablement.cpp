#include <algorithm>
#include <array>
#include <iterator>

#include "roster/account/basic_account.h"
#include "roster/base/foreign_code.h"
#include "roster/platform/device.h"

namespace roster {

namespace {

/// What device management can forbid, and what that forbids with it.
struct Rule {
  std::string_view dataclass;
  Feature feature;
};

const std::array<Rule, 6>& rules() {
  static const std::array all = {
      Rule{kAccountDataclassUbiquity, Feature::cloudDocumentSync},
      Rule{kAccountDataclassKeyValue, Feature::cloudDocumentSync},
      Rule{kAccountDataclassMediaStream, Feature::photoStream},
      Rule{kAccountDataclassSharedStreams, Feature::sharedPhotoStreams},
      Rule{kAccountDataclassBackup, Feature::cloudBackup},
      Rule{kAccountDataclassSatchel, Feature::cardsWhileLocked},
  };
  return all;
}

bool isInForce(const Rule& rule) { return restriction(rule.feature) == featureNotAllowed; }

/// The restrictions are looked up, which takes a system call, only for what they can forbid: most accounts
/// have nothing of it.
bool isRestricted(std::string_view dataclass) {
  return std::any_of(rules().begin(), rules().end(), [dataclass](const Rule& rule) {
    return rule.dataclass == dataclass && isInForce(rule);
  });
}

/// The known ones of a list, each once, come first, in canonical order; the others stay in their order.
void orderCanonically(StringList& list) {
  auto rest = list.begin();
  for (const std::string& dataclass : BasicAccount::allSupportedDataclasses()) {
    const auto found = std::find(rest, list.end(), dataclass);
    if (found == list.end()) continue;
    std::rotate(rest, found, std::next(found));
    ++rest;
    list.erase(std::remove(rest, list.end(), dataclass), list.end());
  }
}

/// Adds a text that is allowed, unless it is there. The allowed ones are few, however many are stored.
void addIfAllowed(StringList& members, std::string_view text, const StringList& allowed) {
  if (contains(allowed, text) && !contains(members, text)) members.emplace_back(text);
}

StringList allowedMembers(const Array& stored, const StringList& allowed) {
  StringList members;
  for (const Value& element : stored) {
    if (const String text = element.string()) addIfAllowed(members, text, allowed);
  }
  return members;
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

std::optional<Array> BasicAccount::listForKey(std::string_view key) const {
  const Value value = accountPropertyForKey(key);
  // As with texts, a value of another type hides nothing, and no value is an answer.
  const bool isHidden = !value.isNil() && !value.isArray();
  return isHidden && _parentAccount ? held(_parentAccount)->listForKey(key) : value.array();
}

StringList BasicAccount::_orderedDataclasses(const StringList& dataclasses) const {
  StringList ordered = dataclasses;
  orderCanonically(ordered);
  return ordered;
}

StringList BasicAccount::supportedDataclasses() const {
  StringList supported = supportedDataclassesForAccountType(type()).value_or(StringList());
  orderCanonically(supported);
  return supported;
}

StringList BasicAccount::provisionedDataclasses() const {
  const StringList supported = supportedDataclasses();
  StringList provisioned;
  if (const std::optional<Array> stored = listForKey(kAccountProvisionedDataclasses)) {
    provisioned = allowedMembers(*stored, supported);
  } else {
    for (const std::string& dataclass : supported) addIfAllowed(provisioned, dataclass, supported);
  }
  std::erase_if(provisioned, isRestricted);
  orderCanonically(provisioned);
  return provisioned;
}

std::optional<StringList> BasicAccount::enabledDataclasses() const {
  if (const AccountPtr parent = held(parentAccount())) {
    std::optional<StringList> inherited = parent->enabledDataclasses();
    if (inherited && !inherited->empty()) return inherited;
  }
  const std::optional<Array> stored = listForKey(kAccountEnabledDataclasses);
  if (!stored) return std::nullopt;
  StringList enabled = allowedMembers(*stored, provisionedDataclasses());
  orderCanonically(enabled);
  return enabled;
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
  std::set<std::string, std::less<>> restricted;
  for (const Rule& rule : rules()) {
    if (isInForce(rule)) restricted.emplace(rule.dataclass);
  }
  return restricted;
}

}  // namespace roster
