#include "roster/store/registry_merge.h"

#include <optional>

#include "roster/account/vocabulary.h"
#include "roster/store/account_merge.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/ordered_map.h"

namespace roster {

namespace {

/// One account of one version, and where it stands.
struct Place {
  Dictionary properties{};
  /// Nil for a top-level account.
  String parentID{};
  /// Among the top-level accounts, or in the parent's "ChildAccounts".
  std::size_t position = 0;
};

/// One version of the registry, by identifier.
class Version {
 public:
  explicit Version(const AccountList& accounts) : accounts_(accounts) {
    for (std::size_t position = 0; position < accounts.size(); ++position) {
      const String identifier = storedIdentifier(accounts[position]);
      if (identifier) top_.set(identifier, {accounts[position], {}, position});
    }
    for (const auto& entry : top_) addChildren(entry.key, entry.value.properties);
  }

  const AccountList& accounts() const { return accounts_; }
  const OrderedMap<Place>& top() const { return top_; }
  const OrderedMap<Place>& children() const { return children_; }
  bool hasBoth(const String& identifier) const {
    return top_.contains(identifier) && children_.contains(identifier);
  }
  /// The place of a top-level account before that of a child.
  const Place* find(const String& identifier) const {
    const Place* place = top_.find(identifier);
    return place != nullptr ? place : children_.find(identifier);
  }

 private:
  void addChildren(const String& parentID, const Dictionary& parent) {
    std::size_t position = 0;
    for (const Value& element : storedChildren(parent)) {
      if (const String identifier = storedChildIdentifier(element))
        children_.set(identifier, {*element.dictionary(), parentID, position});
      ++position;
    }
  }

  const AccountList& accounts_;
  OrderedMap<Place> top_;
  OrderedMap<Place> children_;
};

Dictionary propertiesOf(const Place* place) { return place == nullptr ? Dictionary() : place->properties; }

/// A child has no children of its own: what stands under its "ChildAccounts" is a property like others.
Dictionary topLevelProperties(const Place* place) {
  return place != nullptr && place->parentID.isNil() ? place->properties : Dictionary();
}

Dictionary withChildren(const Dictionary& account, const Value& children) {
  if (account.find(kAccountChildAccounts) == children) return account;
  auto changed = MutableDictionary::copyOf(account);
  changed.set(kAccountChildAccounts, children);
  return changed.deepCopy();
}

Value mergeChildrenWhole(const AccountVersions& versions) {
  return detachedCopy(mergeWhole(versions.mine.find(kAccountChildAccounts),
                                 versions.base.find(kAccountChildAccounts),
                                 versions.theirs.find(kAccountChildAccounts)));
}

/// Theirs, sharing with the former base what is equal there, with the children that are kept.
Dictionary nextBaseOf(const Dictionary& base, const Dictionary& theirs, const std::vector<Value>& kept) {
  const Dictionary properties = mergeAccount({base, base, theirs});
  if (kept.empty()) {
    return withChildren(properties, mergeChildrenWhole({base, base, theirs}));
  }
  std::vector<Value> children;
  for (const Value& element : storedChildren(theirs)) children.push_back(detachedCopy(element));
  children.insert(children.end(), kept.begin(), kept.end());
  return withChildren(properties, Array(std::move(children)));
}

/// One account in all three versions, and what becomes of it.
struct Account {
  const Place* mine = nullptr;
  const Place* base = nullptr;
  const Place* theirs = nullptr;
  bool isThere = false;
  /// Where it stands if it is there; nil for a top-level account.
  String parentID{};

  bool isMovedHere() const {
    return mine != nullptr && base != nullptr && !(mine->parentID == base->parentID);
  }
  bool isChangedHere() const {
    return base == nullptr || isMovedHere() || !(mine->properties == base->properties);
  }
  bool isOnBothSides() const { return mine != nullptr && theirs != nullptr; }
  bool isStaying() const {
    if (mine == nullptr) return theirs != nullptr && base == nullptr;
    return theirs != nullptr || isChangedHere();
  }
  /// Whose place it takes, if there is such a place in the end.
  const Place& place() const {
    return theirs == nullptr || (mine != nullptr && (base == nullptr || isMovedHere())) ? *mine : *theirs;
  }
};

class Merge {
 public:
  explicit Merge(const RegistryVersions& versions)
      : mine_(versions.mine), base_(versions.base), theirs_(versions.theirs) {
    gatherAccounts();
    decidePlaces();
  }

  MergedRegistry result() const {
    MergedRegistry merged;
    merged.base = nextBase();
    append(theirs_, &Account::theirs, merged.accounts);
    append(mine_, &Account::mine, merged.accounts);
    appendStranded(merged.accounts);
    return merged;
  }

 private:
  using Side = const Place* Account::*;

  void gatherAccounts();
  template <class Call>
  void forEachAccount(const Call& call);
  void decidePlaces();
  void sendBack();
  bool isLeftToItsParent(const Account& account) const;
  void append(const Version& version, Side side, AccountList& accounts) const;
  void appendStranded(AccountList& accounts) const;
  bool isTakenFrom(Side side, const Account& account, const String& parentID, std::size_t position) const;
  Dictionary assembled(const String& identifier, const Account& account) const;
  Value assembledChildren(const String& identifier, const Account& account) const;
  void appendChildren(const String& parentID, const Dictionary& parent, Side side, bool areOthersTaken,
                      std::vector<Value>& children) const;
  AccountList nextBase() const;
  Dictionary withLastChildren(const String& identifier, const Dictionary& account) const;

  /// The account that a child with the identifier is: where an account has it too, another one.
  const Account* child(const String& identifier) const {
    const Account* namesake = namesakes_.find(identifier);
    return namesake != nullptr ? namesake : accounts_.find(identifier);
  }
  /// Whether it is to stand below an account that is not there, or is no top-level account.
  bool isLost(const Account& account) const {
    return account.isThere && account.parentID && !isTopLevel(account.parentID);
  }
  bool isTopLevel(const String& identifier) const {
    const Account* account = accounts_.find(identifier);
    return account != nullptr && account->isThere && account->parentID.isNil();
  }

  Version mine_;
  Version base_;
  Version theirs_;
  OrderedMap<Account> accounts_;
  /// Children whose identifier an account has as well, in any version.
  OrderedMap<Account> namesakes_;
};

void Merge::gatherAccounts() {
  const auto add = [this](const String& identifier) {
    if (accounts_.contains(identifier)) return;
    if (mine_.hasBoth(identifier) || base_.hasBoth(identifier) || theirs_.hasBoth(identifier)) {
      accounts_.append(identifier, {mine_.top().find(identifier), base_.top().find(identifier),
                                    theirs_.top().find(identifier)});
      namesakes_.append(identifier, {mine_.children().find(identifier), base_.children().find(identifier),
                                     theirs_.children().find(identifier)});
    } else {
      accounts_.append(identifier,
                       {mine_.find(identifier), base_.find(identifier), theirs_.find(identifier)});
    }
  };
  for (const Version* version : {&theirs_, &mine_, &base_}) {
    for (const auto& entry : version->top()) add(entry.key);
    for (const auto& entry : version->children()) add(entry.key);
  }
}

/// Whether an account that is gone from theirs went with its parent, which `mine` keeps: then it is kept too.
bool Merge::isLeftToItsParent(const Account& account) const {
  if (account.mine == nullptr || account.mine->parentID.isNil()) return false;
  const Account* parent = accounts_.find(account.mine->parentID);
  return parent != nullptr && parent->theirs == nullptr && parent->isStaying();
}

template <class Call>
void Merge::forEachAccount(const Call& call) {
  for (OrderedMap<Account>* accounts : {&accounts_, &namesakes_}) {
    for (std::size_t each = accounts->firstPosition(); each < accounts->endPosition();
         each = accounts->nextPosition(each)) {
      call(accounts->valueAt(each));
    }
  }
}

void Merge::decidePlaces() {
  forEachAccount([this](Account& account) {
    account.isThere = account.isStaying() || isLeftToItsParent(account);
    if (account.isThere) account.parentID = account.place().parentID;
  });
  sendBack();
  forEachAccount([this](Account& account) {
    if (isLost(account)) account.isThere = false;
  });
}

/// Parents may be gone here, or have gone below another account themselves. Whoever both sides have goes back
/// then to where memory has it, or else to where the file has it. First those who go back to the top, which
/// may be the parents of others: so it does not matter in which order they are looked at.
void Merge::sendBack() {
  forEachAccount([this](Account& account) {
    if (isLost(account) && account.isOnBothSides() && account.mine->parentID.isNil()) account.parentID = {};
  });
  forEachAccount([this](Account& account) {
    if (isLost(account) && account.isOnBothSides() && account.theirs->parentID.isNil() &&
        !isTopLevel(account.mine->parentID))
      account.parentID = {};
  });
  for (const bool areNamesakes : {false, true}) {
    OrderedMap<Account>& accounts = areNamesakes ? namesakes_ : accounts_;
    for (std::size_t each = accounts.firstPosition(); each < accounts.endPosition();
         each = accounts.nextPosition(each)) {
      Account& account = accounts.valueAt(each);
      if (!isLost(account) || !account.isOnBothSides()) continue;
      const bool hasPlaceHere = isTopLevel(account.mine->parentID);
      account.parentID = hasPlaceHere ? account.mine->parentID : account.theirs->parentID;
      // At the top there may be the account whose identifier it shares.
      if (!areNamesakes && isLost(account)) account.parentID = {};
    }
  }
}

/// Whether the place of an account in the result is this one of a side; each account has one such place.
bool Merge::isTakenFrom(Side side, const Account& account, const String& parentID,
                        std::size_t position) const {
  const auto isIn = [&](const Place* place) { return place != nullptr && place->parentID == parentID; };
  if (!account.isThere || !(account.parentID == parentID)) return false;
  const bool isTheirs = side == &Account::theirs || !isIn(account.theirs);
  return isTheirs && isIn(account.*side) && (account.*side)->position == position;
}

void Merge::append(const Version& version, Side side, AccountList& accounts) const {
  for (std::size_t position = 0; position < version.accounts().size(); ++position) {
    const String identifier = storedIdentifier(version.accounts()[position]);
    const Account* account = identifier ? accounts_.find(identifier) : nullptr;
    if (account != nullptr && isTakenFrom(side, *account, {}, position))
      accounts.push_back(assembled(identifier, *account));
  }
}

/// Those that neither side has at the top, because each went below what the other moved or deleted.
void Merge::appendStranded(AccountList& accounts) const {
  const auto isAtTop = [](const Place* place) { return place != nullptr && place->parentID.isNil(); };
  for (const OrderedMap<Account>* all : {&accounts_, &namesakes_}) {
    for (const auto& entry : *all) {
      const Account& account = entry.value;
      if (account.isThere && account.parentID.isNil() && !isAtTop(account.mine) && !isAtTop(account.theirs))
        accounts.push_back(assembled(entry.key, account));
    }
  }
}

Dictionary Merge::assembled(const String& identifier, const Account& account) const {
  const AccountVersions versions{propertiesOf(account.mine), propertiesOf(account.base),
                                 propertiesOf(account.theirs)};
  const Dictionary merged = account.theirs == nullptr ? versions.mine : mergeAccount(versions);
  if (account.parentID.isNil()) return withChildren(merged, assembledChildren(identifier, account));
  return account.theirs == nullptr ? merged : withChildren(merged, mergeChildrenWhole(versions));
}

Value Merge::assembledChildren(const String& identifier, const Account& account) const {
  const AccountVersions versions{topLevelProperties(account.mine), topLevelProperties(account.base),
                                 topLevelProperties(account.theirs)};
  std::vector<Value> children;
  const bool isInTheirs = !versions.theirs.empty();
  if (isInTheirs) appendChildren(identifier, versions.theirs, &Account::theirs, true, children);
  appendChildren(identifier, versions.mine, &Account::mine, !isInTheirs, children);
  if (!children.empty()) return Array(std::move(children));
  // Where there is none, an absent list and an empty one are still two things.
  Value whole =
      account.theirs == nullptr ? versions.mine.find(kAccountChildAccounts) : mergeChildrenWhole(versions);
  const std::optional<Array> list = whole.array();
  return list && !list->empty() ? Value(Array(std::vector<Value>())) : whole;
}

/// Appends what the result takes from one side's list of an account's children.
void Merge::appendChildren(const String& parentID, const Dictionary& parent, Side side, bool areOthersTaken,
                           std::vector<Value>& children) const {
  std::size_t position = 0;
  for (const Value& element : storedChildren(parent)) {
    const String identifier = storedChildIdentifier(element);
    if (identifier.isNil()) {
      if (areOthersTaken) children.push_back(detachedCopy(element));
    } else if (const Account* account = child(identifier); isTakenFrom(side, *account, parentID, position)) {
      children.emplace_back(assembled(identifier, *account));
    }
    ++position;
  }
}

/// Theirs, and what the base has of accounts that are kept although theirs lacks them. What is equal in the
/// former base is shared with it.
AccountList Merge::nextBase() const {
  OrderedMap<std::vector<Value>> keptChildren;
  AccountList keptAccounts;
  for (const OrderedMap<Account>* all : {&accounts_, &namesakes_}) {
    for (const auto& entry : *all) {
      const Account& account = entry.value;
      if (!account.isThere || account.theirs != nullptr || account.base == nullptr) continue;
      const Place& base = *account.base;
      if (base.parentID.isNil()) {
        keptAccounts.push_back(base.properties);
      } else if (std::vector<Value>* siblings = keptChildren.find(base.parentID)) {
        siblings->emplace_back(base.properties);
      } else {
        keptChildren.append(base.parentID, {base.properties});
      }
    }
  }
  AccountList accounts;
  for (const auto& entry : theirs_.top()) {
    const std::vector<Value>* kept = keptChildren.find(entry.key);
    const Dictionary base = topLevelProperties(accounts_.find(entry.key)->base);
    accounts.push_back(nextBaseOf(base, withLastChildren(entry.key, entry.value.properties),
                                  kept ? *kept : std::vector<Value>()));
  }
  // A child that has gone elsewhere in theirs is there: of two places the last counts.
  accounts.insert(accounts.begin(), keptAccounts.begin(), keptAccounts.end());
  return accounts;
}

/// Theirs as memory will have it: of children with one identifier only the last is left.
Dictionary Merge::withLastChildren(const String& identifier, const Dictionary& account) const {
  std::vector<Value> children;
  std::size_t position = 0;
  for (const Value& element : storedChildren(account)) {
    const String childID = storedChildIdentifier(element);
    const Place* last = childID ? child(childID)->theirs : nullptr;
    if (last == nullptr || (last->parentID == identifier && last->position == position))
      children.push_back(element);
    ++position;
  }
  return children.size() == position ? account : withChildren(account, Array(std::move(children)));
}

}  // namespace

String storedIdentifier(const Dictionary& account) { return account.find(kAccountIdentifier).string(); }

Array storedChildren(const Dictionary& account) {
  return account.find(kAccountChildAccounts).array().value_or(Array());
}

String storedChildIdentifier(const Value& element) {
  const std::optional<Dictionary> child = element.dictionary();
  return child ? storedIdentifier(*child) : String();
}

MergedRegistry mergeRegistries(const RegistryVersions& versions) { return Merge(versions).result(); }

}  // namespace roster
