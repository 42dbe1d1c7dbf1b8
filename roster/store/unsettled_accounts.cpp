#include "roster/store/unsettled_accounts.h"

#include "roster/value/document_comparison.h"

namespace roster {

namespace {

constexpr std::size_t nowhere = UnsettledAccounts::nowhere;

/// Finds the accounts of one version. Versions mostly have the same accounts in the same order, so that the
/// next one is usually the one that is wanted; only when it is not are they looked up.
class Finder {
 public:
  explicit Finder(const AccountList& accounts) : accounts_(accounts) {}

  /// The position behind that of the account that was found last.
  std::size_t next() const { return next_; }
  void skip() { ++next_; }

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
    addUnsettled(versions_.theirs, found_.theirs);
    addUnsettled(versions_.mine, found_.mine);
    addUnsettled(versions_.base, found_.base);
    unsettleNamesakes();
    addWhoSharesChildren();
    return std::move(found_);
  }

 private:
  void compare();
  bool isSettled(std::size_t inMine, std::size_t inBase, const Dictionary& theirs);
  void addUnsettled(const AccountList& accounts, const UnsettledAccounts::Settled& areSettled);
  void unsettleNamesakes();
  bool addOtherPlaces(const String& identifier);
  void addWhoSharesChildren();
  bool addPlacesOf(const AccountList& accounts);
  bool add(const String& identifier) { return identifier && found_.identifiers.set(identifier, true); }

  const RegistryVersions& versions_;
  const AccountIndexes& indexes_;
  DocumentComparison comparison_;
  UnsettledAccounts found_;
};

bool Comparison::isSettled(std::size_t inMine, std::size_t inBase, const Dictionary& theirs) {
  return inMine < versions_.mine.size() && inBase < versions_.base.size() &&
         versions_.mine[inMine].sharesContentsWith(versions_.base[inBase]) &&
         comparison_.equal(versions_.base[inBase], theirs);
}

void Comparison::compare() {
  const AccountList& theirs = versions_.theirs;
  Finder mine(versions_.mine);
  Finder base(versions_.base);
  found_.mine.resize(versions_.mine.size());
  found_.base.resize(versions_.base.size());
  found_.theirs.resize(theirs.size());
  found_.inMine.assign(theirs.size(), nowhere);
  found_.inBase.assign(theirs.size(), nowhere);
  for (std::size_t position = 0; position < theirs.size(); ++position) {
    std::size_t inMine = mine.next();
    std::size_t inBase = base.next();
    // What is equal has the same identifier: nearly all of a registry is settled without a look at it.
    if (isSettled(inMine, inBase, theirs[position])) {
      mine.skip();
      base.skip();
    } else {
      const String identifier = storedIdentifier(theirs[position]);
      inMine = identifier ? mine.find(identifier) : nowhere;
      inBase = identifier ? base.find(identifier) : nowhere;
      if (!isSettled(inMine, inBase, theirs[position])) continue;
    }
    found_.mine[inMine] = found_.base[inBase] = found_.theirs[position] = true;
    found_.inMine[position] = inMine;
    found_.inBase[position] = inBase;
  }
}

void Comparison::addUnsettled(const AccountList& accounts, const UnsettledAccounts::Settled& areSettled) {
  for (std::size_t position = 0; position < accounts.size(); ++position) {
    if (!areSettled[position]) add(storedIdentifier(accounts[position]));
  }
}

/// What has the identifier of an account to be merged is to be merged with it.
void Comparison::unsettleNamesakes() {
  if (found_.identifiers.empty()) return;
  for (std::size_t position = 0; position < versions_.theirs.size(); ++position) {
    if (!found_.theirs[position] ||
        !found_.identifiers.contains(storedIdentifier(versions_.theirs[position])))
      continue;
    found_.theirs[position] = false;
    found_.mine[found_.inMine[position]] = false;
    found_.base[found_.inBase[position]] = false;
  }
}

/// Settled accounts are equal in all versions, so that memory knows where their children are.
bool Comparison::addOtherPlaces(const String& identifier) {
  const String parentID = indexes_.parentIDOfChild(identifier);
  const bool isTopLevel = indexes_.topLevelAccountsByID().contains(identifier);
  const bool isParentAdded = add(parentID);
  return (isTopLevel && add(identifier)) || isParentAdded;
}

bool Comparison::addPlacesOf(const AccountList& accounts) {
  bool isAnyAdded = false;
  for (const Dictionary& account : accounts) {
    if (addOtherPlaces(storedIdentifier(account))) isAnyAdded = true;
    for (const Value& element : storedChildren(account)) {
      const String childID = storedChildIdentifier(element);
      if (childID && addOtherPlaces(childID)) isAnyAdded = true;
    }
  }
  return isAnyAdded;
}

void Comparison::addWhoSharesChildren() {
  constexpr int maximumRounds = 4;
  for (int round = 0; !found_.identifiers.empty(); ++round) {
    const bool isMineAdded = addPlacesOf(found_.of(versions_.mine, found_.mine));
    const bool isBaseAdded = addPlacesOf(found_.of(versions_.base, found_.base));
    const bool isTheirsAdded = addPlacesOf(found_.of(versions_.theirs, found_.theirs));
    if (!isMineAdded && !isBaseAdded && !isTheirsAdded) return;
    // Whoever chains accounts by their children must not make this grow faster than the registry.
    if (round == maximumRounds) {
      for (const Dictionary& account : versions_.theirs) add(storedIdentifier(account));
    }
    unsettleNamesakes();
    if (round == maximumRounds) return;
  }
}

}  // namespace

AccountList UnsettledAccounts::of(const AccountList& accounts, const Settled& areSettled) const {
  AccountList chosen;
  if (identifiers.empty()) return chosen;
  for (std::size_t position = 0; position < accounts.size(); ++position) {
    if (!areSettled[position] && storedIdentifier(accounts[position])) chosen.push_back(accounts[position]);
  }
  return chosen;
}

UnsettledAccounts unsettledAccounts(const RegistryVersions& versions, const AccountIndexes& indexes) {
  return Comparison(versions, indexes).result();
}

}  // namespace roster
