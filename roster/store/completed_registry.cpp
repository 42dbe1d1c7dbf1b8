#include <optional>
#include <utility>

#include "roster/account/vocabulary.h"
#include "roster/store/registry_merge.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/ordered_map.h"

namespace roster {

namespace {

/// The accounts and the children of one version. Of those with one identifier the last counts.
struct ByID {
  OrderedMap<Dictionary> accounts{};
  OrderedMap<Dictionary> children{};

  explicit ByID(const AccountList& list) {
    for (const Dictionary& account : list) {
      if (const String identifier = storedIdentifier(account)) accounts.set(identifier, account);
    }
    for (const auto& entry : accounts) {
      for (const Value& element : storedChildren(entry.value)) {
        if (const String identifier = storedChildIdentifier(element))
          children.set(identifier, *element.dictionary());
      }
    }
  }
  bool hasBoth(const String& identifier) const {
    return accounts.contains(identifier) && children.contains(identifier);
  }
};

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

enum class Kind { account, child };

class Completion {
 public:
  Completion(const AccountList& base, const AccountList& theirs) : base_(base), theirs_(theirs) {}

  Dictionary completed(const Dictionary& theirs) const {
    const Dictionary* known = find(base_, storedIdentifier(theirs), Kind::account);
    const Dictionary base = known ? *known : Dictionary();
    MutableDictionary account = completedProperties(base, theirs);
    std::vector<Value> children;
    for (const Value& element : storedChildren(theirs)) children.push_back(completedChild(element));
    for (const Value& element : storedChildren(base)) {
      const String childID = storedChildIdentifier(element);
      if (childID && !isInTheirs(childID, Kind::child)) children.push_back(element);
    }
    if (!children.empty()) account.set(kAccountChildAccounts, Array(std::move(children)));
    return account.deepCopy();
  }

  /// An account that theirs lacks, without the children that have gone elsewhere in theirs.
  Dictionary remaining(const Dictionary& base) const {
    std::vector<Value> children;
    bool isAnyGone = false;
    for (const Value& element : storedChildren(base)) {
      const bool isGone = isInTheirs(storedChildIdentifier(element), Kind::child);
      isAnyGone |= isGone;
      if (!isGone) children.push_back(element);
    }
    if (!isAnyGone) return base;
    auto account = MutableDictionary::copyOf(base);
    account.set(kAccountChildAccounts, Array(std::move(children)));
    return account.deepCopy();
  }

  bool isInTheirs(const String& identifier, Kind kind) const {
    return find(theirs_, identifier, kind) != nullptr;
  }

 private:
  /// The account or the child with the identifier, wherever it stands; where a version has both, they are
  /// two.
  const Dictionary* find(const ByID& version, const String& identifier, Kind kind) const {
    if (identifier.isNil()) return nullptr;
    const bool isAccount = kind == Kind::account;
    const Dictionary* found = (isAccount ? version.accounts : version.children).find(identifier);
    if (found != nullptr || base_.hasBoth(identifier) || theirs_.hasBoth(identifier)) return found;
    return (isAccount ? version.children : version.accounts).find(identifier);
  }

  Value completedChild(const Value& element) const {
    const Dictionary* base = find(base_, storedChildIdentifier(element), Kind::child);
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
    if (identifier && !completion.isInTheirs(identifier, Kind::account))
      accounts.push_back(completion.remaining(account));
  }
  return accounts;
}

}  // namespace roster
