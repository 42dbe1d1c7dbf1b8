#include "roster/store/account_check.h"

#include <algorithm>

#include "roster/account/property_types.h"
#include "roster/account/string_list.h"
#include "roster/account/vocabulary.h"
#include "roster/base/single_line.h"
#include "roster/store/salvage.h"
#include "roster/value/kind_name.h"

namespace roster {

namespace {

/// More than anybody reads; a file could be made to have millions.
constexpr std::size_t maximumFindings = 1000;
/// List elements and properties looked at. Accounts may share one long list, so the file's size is no bound.
constexpr std::uint64_t maximumWork = std::uint64_t{1} << 26U;

/// Of comparing two accounts, which share perhaps much with others.
constexpr std::uint64_t workOfComparison = std::uint64_t{1} << 18U;

std::string quoted(std::string_view text) {
  constexpr std::size_t maximumShown = 80;
  std::string line = "\"";
  appendSingleLine(line, frontOf(text, maximumShown));
  if (text.size() > maximumShown) line += "…";
  return line + "\"";
}

/// Where an element stands in the file, and its identifier if it has one.
std::string position(const std::string& list, std::size_t index, const Value& element) {
  constexpr std::size_t maximumShown = 64;
  std::string text = list + "[" + std::to_string(index) + "]";
  const std::optional<Dictionary> properties = element.dictionary();
  const String identifier = properties ? properties->find(kAccountIdentifier).string() : String();
  if (identifier.isEmpty()) return text;
  text += " (";
  appendSingleLine(text, frontOf(identifier, maximumShown));
  return text + ")";
}

std::string positionWithin(const std::string& list, std::string_view where) {
  return std::string(where.substr(0, where.find(' '))) + "." + list;
}

/// Why no record can be made of these properties.
std::string reasonForRejection(const Dictionary& properties) {
  const Value type = properties.find(kAccountType);
  const Value accountClass = properties.find(kAccountClass);
  std::string reason;
  if (type.isNil()) {
    reason = "it has no \"Type\"";
  } else if (!type.isString()) {
    reason = "its \"Type\" is " + std::string(kindName(type.kind())) + ", not a text";
  } else if (!BasicAccount::_isValidAccountType(type.string())) {
    reason = "its type " + quoted(type.string()) + " is not known";
  }
  if (!accountClass.string().isEmpty()) return reason;
  if (!reason.empty()) reason += ", and ";
  if (accountClass.isNil()) return reason + "it has no \"Class\"";
  if (accountClass.isString()) return reason + "its \"Class\" is empty";
  return reason + "its \"Class\" is " + std::string(kindName(accountClass.kind())) + ", not a text";
}

}  // namespace

void AccountCheck::add(Kind kind, std::string where, std::string what, std::string why) {
  findings_.push_back({kind, std::move(where), std::move(what), std::move(why)});
}

bool AccountCheck::mayGoOn() const { return findings_.size() < maximumFindings && work_ < maximumWork; }

void AccountCheck::checkAccounts(const Array& accounts) {
  Salvage salvage(accounts);
  std::size_t index = 0;
  for (const Value& element : accounts) {
    if (!mayGoOn()) return;
    checkTopLevel(element, salvage.usable(element).dictionary(),
                  position(std::string(kPlistAccountsKey), index++, element));
  }
  checkSharedIdentifiers();
}

void AccountCheck::checkTopLevel(const Value& element, const std::optional<Dictionary>& usable,
                                 const std::string& where) {
  const std::string dropped = "the account is left out";
  if (element.isNil()) return add(Kind::damage, where, dropped, "it cannot be read");
  if (!element.isDictionary()) return add(Kind::damage, where, dropped, isNot(element, "a dictionary"));
  checkLostParts(element, *usable, where);
  const AccountPtr account = BasicAccount::initWithProperties(*usable);
  if (!account) return add(Kind::drops, where, dropped, reasonForRejection(*usable));
  if (!checkFixers(account, where)) return;
  checkIdentifier(*usable, where, false);
  checkRecord(account, *usable, where);
  checkChildren(account, where);
}

void AccountCheck::checkLostParts(const Value& element, const Dictionary& usable, const std::string& where) {
  if (element.fault() == Fault::none) return;
  const std::string what = "what can be read is kept, the rest is left out";
  const std::size_t before = findings_.size();
  for (const DictionaryEntry& entry : element.dictionary().value_or(Dictionary())) {
    ++work_;
    if (!mayGoOn()) return;
    if (entry.key.isNil()) {
      add(Kind::damage, where, what, "a key cannot be read");
    } else if (entry.value.isNil()) {
      add(Kind::damage, where, what, quoted(entry.key) + " cannot be read");
    } else if (entry.value.fault() != Fault::none) {
      add(Kind::damage, where, what,
          quoted(entry.key) + " has a value that " + std::string(describe(entry.value.fault())));
    } else if (!usable.contains(entry.key)) {
      add(Kind::damage, where, what, "the file refers to the parts of " + quoted(entry.key) + " too often");
    }
  }
  if (findings_.size() == before)
    add(Kind::damage, where, what, "it " + std::string(describe(element.fault())));
}

/// Shows the record to the fixers as a load does; returns false when one finds it beyond repair.
bool AccountCheck::checkFixers(const AccountPtr& account, const std::string& where) {
  for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : fixers_) {
    const String before = account->accountClass();
    const FixResult result = fixer->fixBasicAccountIfNeededLoggingMessage(account, "loading accounts");
    if (result == FixResult::unrepairable) {
      add(Kind::drops, where, "the account is left out",
          "its class " + quoted(before) + " is not known, and its \"AccountPath\" tells no other");
      return false;
    }
    if (result == FixResult::nothingDone) continue;
    add(Kind::repairs, where, "the class becomes " + quoted(account->accountClass()),
        "its class " + quoted(before) + " is not known, but its \"AccountPath\" tells");
  }
  return true;
}

void AccountCheck::checkChildren(const AccountPtr& parent, const std::string& where) {
  const Value stored = parent->properties().find(kAccountChildAccounts);
  if (stored.isNil()) return;
  const std::string list = positionWithin(std::string(kAccountChildAccounts), where);
  const std::optional<Array> children = stored.array();
  if (!children) return add(Kind::ignores, list, "the account has no children", isNot(stored, "an array"));
  std::size_t index = 0;
  for (const Value& element : *children) {
    ++work_;
    if (!mayGoOn()) return;
    checkChild(element, parent, position(list, index++, element));
  }
}

void AccountCheck::checkChild(const Value& element, const AccountPtr& parent, const std::string& where) {
  const std::string ignored = "it stays in the file but is no account";
  const std::optional<Dictionary> stored = element.dictionary();
  if (!stored) return add(Kind::ignores, where, ignored, isNot(element, "a dictionary"));
  const AccountPtr child = BasicAccount::initWithProperties(*stored);
  if (!child) return add(Kind::ignores, where, ignored, reasonForRejection(*stored));
  child->setParentAccount(parent);
  checkIdentifier(*stored, where, true);
  checkRecord(child, *stored, where);
  if (stored->contains(kAccountChildAccounts)) {
    add(Kind::ignores, positionWithin(std::string(kAccountChildAccounts), where),
        "it stays in the file but holds no accounts", "a child has no children of its own");
  }
}

void AccountCheck::checkIdentifier(const Dictionary& stored, const std::string& where, bool isChild) {
  const Value value = stored.find(kAccountIdentifier);
  const String identifier = value.string();
  if (identifier.isNil()) {
    add(Kind::repairs, where,
        isChild ? "it gets another identifier at each load" : "it gets a new identifier",
        value.isNil() ? "it has no \"Identifier\""
                      : "its \"Identifier\" is " + std::string(kindName(value.kind())) + ", not a text");
    return;
  }
  OrderedMap<std::vector<Position>>& positions = isChild ? children_ : topLevelAccounts_;
  std::vector<Position>* known = positions.find(identifier);
  if (known == nullptr) {
    positions.append(identifier, {{where, stored}});
  } else {
    known->push_back({where, stored});
  }
}

/// Of several accounts with one identifier the last is found. Only now it is known which that is.
void AccountCheck::checkSharedIdentifiers() {
  for (const auto& entry : topLevelAccounts_) {
    const Position& last = entry.value.back();
    for (const Position& position : entry.value) {
      if (!mayGoOn()) return;
      if (&position != &last) checkReplaced(position, last);
    }
  }
  const std::string what = "look-ups by identifier do not find it";
  for (const auto& entry : children_) {
    const std::vector<Position>* owners = topLevelAccounts_.find(entry.key);
    const Position& last = entry.value.back();
    for (const Position& position : entry.value) {
      if (!mayGoOn()) return;
      if (owners != nullptr) {
        add(Kind::ignores, position.where, what,
            "a top-level account has the same identifier: " + owners->back().where);
      } else if (&position != &last) {
        add(Kind::ignores, position.where, what, "a later child has the same identifier: " + last.where);
      }
    }
  }
}

/// A save finds the later account in the file for both, and merges the earlier one with it.
void AccountCheck::checkReplaced(const Position& earlier, const Position& later) {
  const std::string why = "a later account has the same identifier: " + later.where;
  work_ += workOfComparison;
  if (earlier.properties == later.properties) {
    return add(Kind::ignores, earlier.where, "the later account, which is its equal, is found in its place",
               why);
  }
  const std::optional<Array> children = earlier.properties.find(kAccountChildAccounts).array();
  const bool hasChildren = children && !children->empty();
  add(Kind::drops, earlier.where,
      std::string("the next save puts a copy of the later account in its place") +
          (hasChildren ? "; its children are not found, and go with it" : ""),
      why);
}

/// What applies to top-level accounts and children alike.
void AccountCheck::checkRecord(const AccountPtr& account, const Dictionary& stored,
                               const std::string& where) {
  work_ += stored.size();
  checkTexts(stored, where);
  checkList(account, stored, kAccountProvisionedDataclasses, where);
  checkList(account, stored, kAccountEnabledDataclasses, where);
}

void AccountCheck::checkTexts(const Dictionary& stored, const std::string& where) {
  for (const std::string_view key :
       {kAccountSyncIdentifier, kAccountDisplayName, kAccountTypeString, kAccountShortTypeString}) {
    const std::optional<std::string> why =
        stored.contains(key) ? mismatchWithKey(stored.find(key), key) : std::nullopt;
    if (why) add(Kind::ignores, where, quoted(key) + " counts as absent", *why);
  }
}

void AccountCheck::checkList(const AccountPtr& account, const Dictionary& stored, std::string_view key,
                             const std::string& where) {
  const Value value = stored.find(key);
  if (value.isNil()) return;
  const std::optional<Array> list = value.array();
  if (!list) return add(Kind::ignores, where, quoted(key) + " counts as absent", isNot(value, "an array"));
  work_ += list->size();
  const std::string what = "an element of " + quoted(key) + " has no effect";
  const StringList supported = account->supportedDataclasses();
  const StringList provisioned =
      key == kAccountEnabledDataclasses ? account->provisionedDataclasses() : supported;
  const auto restricted = account->_profileRestrictedDataclasses();
  for (const Value& element : *list) {
    if (!mayGoOn()) return;
    const String dataclass = element.string();
    if (dataclass.isNil()) {
      add(Kind::ignores, where, what, isNot(element, "a text"));
    } else if (!contains(supported, dataclass)) {
      add(Kind::ignores, where, what,
          "accounts of the type " + quoted(account->type()) + " do not support " + quoted(dataclass));
    } else if (!contains(provisioned, dataclass)) {
      add(Kind::ignores, where, what,
          quoted(dataclass) + (restricted.contains(dataclass.view())
                                   ? " is restricted on this device"
                                   : " is not among the account's provisioned dataclasses"));
    }
  }
}

}  // namespace roster
