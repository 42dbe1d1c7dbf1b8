#include "roster/store/unsettled_accounts.h"

#include <algorithm>
#include <iterator>

#include "roster/value/document_comparison.h"

namespace roster {

namespace {

constexpr std::size_t nowhere = UnsettledAccounts::nowhere;

/// Finds the accounts of one version. Versions mostly have the same accounts in the same order, so that the
/// next one is usually the one that is wanted; only when it is not are they looked up.
class Finder {
 public:
  explicit Finder(const AccountList& accounts) : accounts_(accounts) {}

  std::size_t find(const String& identifier) {
    if (next_ < accounts_.size() && storedIdentifier(accounts_[next_]) == identifier) return next_++;
    if (positions_.empty()) index();
    const std::size_t* position = positions_.find(identifier);
    if (position == nullptr) return nowhere;
    next_ = *position + 1;
    return *position;
  }

 private:
  void index() {
    positions_.reserve(accounts_.size());
    for (std::size_t position = 0; position < accounts_.size(); ++position) {
      if (const String identifier = storedIdentifier(accounts_[position]))
        positions_.set(identifier, position);
    }
  }

  const AccountList& accounts_;
  OrderedMap<std::size_t> positions_;
  std::size_t next_ = 0;
};

class Comparison {
 public:
  Comparison(const RegistryVersions& versions, const AccountIndexes& indexes)
      : versions_(versions), indexes_(indexes) {}

  UnsettledAccounts result() {
    compare();
    addWhoSharesChildren();
    return std::move(found_);
  }

 private:
  void compare();
  bool addOtherPlaces(const String& identifier);
  void addWhoSharesChildren();
  bool add(const String& identifier) { return identifier && found_.identifiers.set(identifier, true); }

  const RegistryVersions& versions_;
  const AccountIndexes& indexes_;
  UnsettledAccounts found_;
};

void Comparison::compare() {
  const AccountList& theirs = versions_.theirs;
  DocumentComparison comparison;
  Finder mine(versions_.mine);
  Finder base(versions_.base);
  std::vector<bool> isMineFound(versions_.mine.size());
  std::vector<bool> isBaseFound(versions_.base.size());
  found_.inMine.assign(theirs.size(), nowhere);
  found_.inBase.assign(theirs.size(), nowhere);
  for (std::size_t position = 0; position < theirs.size(); ++position) {
    const String identifier = storedIdentifier(theirs[position]);
    const std::size_t inMine = identifier ? mine.find(identifier) : nowhere;
    const std::size_t inBase = identifier ? base.find(identifier) : nowhere;
    const bool isSettled = inMine != nowhere && inBase != nowhere &&
                           versions_.mine[inMine].sharesContentsWith(versions_.base[inBase]) &&
                           comparison.equal(versions_.base[inBase], theirs[position]);
    if (isSettled) {
      isMineFound[inMine] = isBaseFound[inBase] = true;
      found_.inMine[position] = inMine;
      found_.inBase[position] = inBase;
    } else {
      add(identifier);
    }
  }
  for (std::size_t position = 0; position < versions_.mine.size(); ++position) {
    if (!isMineFound[position]) add(storedIdentifier(versions_.mine[position]));
  }
  for (std::size_t position = 0; position < versions_.base.size(); ++position) {
    if (!isBaseFound[position]) add(storedIdentifier(versions_.base[position]));
  }
}

/// Settled accounts are equal in all versions, so that memory knows where their children are.
bool Comparison::addOtherPlaces(const String& identifier) {
  const String parentID = indexes_.parentIDOfChild(identifier);
  const bool isTopLevel = indexes_.topLevelAccountsByID().contains(identifier);
  const bool isParentAdded = add(parentID);
  return (isTopLevel && add(identifier)) || isParentAdded;
}

void Comparison::addWhoSharesChildren() {
  constexpr int maximumRounds = 4;
  for (int round = 0; !found_.identifiers.empty(); ++round) {
    bool isAnyAdded = false;
    for (const AccountList* accounts : {&versions_.mine, &versions_.base, &versions_.theirs}) {
      for (const Dictionary& account : found_.of(*accounts)) {
        if (addOtherPlaces(storedIdentifier(account))) isAnyAdded = true;
        for (const Value& element : storedChildren(account)) {
          const String childID = storedChildIdentifier(element);
          if (childID && addOtherPlaces(childID)) isAnyAdded = true;
        }
      }
    }
    if (!isAnyAdded) return;
    // Whoever chains accounts by their children must not make this grow faster than the registry.
    if (round < maximumRounds) continue;
    for (const AccountList* accounts : {&versions_.mine, &versions_.base, &versions_.theirs}) {
      for (const Dictionary& account : *accounts) add(storedIdentifier(account));
    }
    return;
  }
}

}  // namespace

AccountList UnsettledAccounts::of(const AccountList& accounts) const {
  AccountList chosen;
  if (identifiers.empty()) return chosen;
  std::copy_if(accounts.begin(), accounts.end(), std::back_inserter(chosen),
               [this](const Dictionary& account) { return contains(account); });
  return chosen;
}

UnsettledAccounts unsettledAccounts(const RegistryVersions& versions, const AccountIndexes& indexes) {
  return Comparison(versions, indexes).result();
}

}  // namespace roster
