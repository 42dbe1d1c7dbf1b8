#include <optional>
#include <utility>

#include "roster/account/vocabulary.h"
#include "roster/store/registry_merge.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/ordered_map.h"

namespace roster {

namespace {

/// The account with this identifier, wherever it stands in a version.
using ByID = OrderedMap<Dictionary>;

void addWithChildren(const Dictionary& account, ByID& byID) {
  if (const String identifier = storedIdentifier(account)) byID.set(identifier, account);
  for (const Value& element : storedChildren(account)) {
    if (const String identifier = storedChildIdentifier(element)) byID.set(identifier, *element.dictionary());
  }
}

ByID byIdentifier(const AccountList& accounts) {
  ByID byID;
  for (const Dictionary& account : accounts) addWithChildren(account, byID);
  return byID;
}

/// Both lists as one: of a list that is damaged too, nobody knows what it has lost.
Value joined(const Array& theirs, const Array& base) {
  std::vector<Value> elements(theirs.begin(), theirs.end());
  OrderedMap<bool> known;
  for (const Value& element : theirs) {
    if (const String text = element.string()) known.set(text, true);
  }
  for (const Value& element : base) {
    const String text = element.string();
    if (text && known.set(text, true)) elements.push_back(element);
  }
  return Array(std::move(elements));
}

/// With what only the base has of the account's own properties.
MutableDictionary completedProperties(const Dictionary& base, const Dictionary& theirs) {
  auto account = MutableDictionary::copyOf(theirs);
  for (const DictionaryEntry& entry : base) {
    if (entry.key == kAccountChildAccounts) continue;
    const Value found = theirs.find(entry.key);
    if (found.isNil()) account.set(entry.key, entry.value);
    const bool isList =
        entry.key == kAccountEnabledDataclasses || entry.key == kAccountProvisionedDataclasses;
    if (isList && found.isArray() && entry.value.isArray())
      account.set(entry.key, joined(*found.array(), *entry.value.array()));
  }
  return account;
}

class Completion {
 public:
  Completion(const AccountList& base, const AccountList& theirs)
      : base_(byIdentifier(base)), theirs_(byIdentifier(theirs)) {}

  Dictionary completed(const Dictionary& theirs) const {
    const String identifier = storedIdentifier(theirs);
    const Dictionary* base = identifier ? base_.find(identifier) : nullptr;
    MutableDictionary account = completedProperties(base ? *base : Dictionary(), theirs);
    std::vector<Value> children;
    for (const Value& element : storedChildren(theirs)) children.push_back(completedChild(element));
    for (const Value& element : storedChildren(base ? *base : Dictionary())) {
      const String childID = storedChildIdentifier(element);
      if (childID && !theirs_.contains(childID)) children.push_back(element);
    }
    if (!children.empty()) account.set(kAccountChildAccounts, Array(std::move(children)));
    return account.deepCopy();
  }

  /// An account that theirs lacks, without the children that have gone elsewhere in theirs.
  Dictionary remaining(const Dictionary& base) const {
    std::vector<Value> children;
    bool isAnyGone = false;
    for (const Value& element : storedChildren(base)) {
      const String childID = storedChildIdentifier(element);
      const bool isGone = childID && theirs_.contains(childID);
      isAnyGone |= isGone;
      if (!isGone) children.push_back(element);
    }
    if (!isAnyGone) return base;
    auto account = MutableDictionary::copyOf(base);
    account.set(kAccountChildAccounts, Array(std::move(children)));
    return account.deepCopy();
  }

  bool isInTheirs(const String& identifier) const { return theirs_.contains(identifier); }

 private:
  Value completedChild(const Value& element) const {
    const String identifier = storedChildIdentifier(element);
    const Dictionary* base = identifier ? base_.find(identifier) : nullptr;
    if (base == nullptr) return element;
    return Value(completedProperties(*base, *element.dictionary())).deepCopy();
  }

  ByID base_;
  ByID theirs_;
};

}  // namespace

AccountList completed(const AccountList& base, const AccountList& theirs) {
  const Completion completion(base, theirs);
  AccountList accounts;
  for (const Dictionary& account : theirs) accounts.push_back(completion.completed(account));
  for (const Dictionary& account : base) {
    const String identifier = storedIdentifier(account);
    if (identifier && !completion.isInTheirs(identifier)) accounts.push_back(completion.remaining(account));
  }
  return accounts;
}

}  // namespace roster
