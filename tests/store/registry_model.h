#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// What several programs end with when they refresh: the rules as they are told to people, over plain texts,
/// without any thought of speed.
namespace roster::testing::model {

/// An account, a child, or (without an identifier) an element of "ChildAccounts" that is no child. Lists of
/// dataclasses are texts of words.
struct Account {
  std::string id{};
  std::map<std::string, std::string> properties{};
  std::optional<std::vector<Account>> children{};
  friend bool operator==(const Account&, const Account&) = default;

  std::vector<Account> childList() const { return children.value_or(std::vector<Account>()); }
  std::optional<std::string> find(const std::string& key) const {
    const auto found = properties.find(key);
    return found == properties.end() ? std::nullopt : std::optional(found->second);
  }
};
using Registry = std::vector<Account>;

inline std::string textOf(const Account& account) {
  std::string text = account.id.empty() ? "-" : account.id;
  for (const auto& [key, value] : account.properties) text += " " + key + "=" + value;
  if (!account.children) return text;
  text += " [";
  for (const Account& child : *account.children) text += textOf(child) + "; ";
  return text + "]";
}
inline std::string textOf(const Registry& registry) {
  std::string text;
  for (const Account& account : registry) text += "    " + textOf(account) + "\n";
  return text;
}

/// Of several accounts with one identifier the last, and so of children.
inline Registry withoutDuplicates(const Registry& registry) {
  std::map<std::string, std::size_t> last;
  std::map<std::string, std::pair<std::string, std::size_t>> lastChild;
  for (std::size_t i = 0; i < registry.size(); ++i) last[registry[i].id] = i;
  Registry left;
  for (std::size_t i = 0; i < registry.size(); ++i) {
    if (registry[i].id.empty() || last[registry[i].id] == i) left.push_back(registry[i]);
  }
  for (const Account& account : left) {
    const Registry children = account.childList();
    for (std::size_t i = 0; i < children.size(); ++i) lastChild[children[i].id] = {account.id, i};
  }
  for (Account& account : left) {
    Registry children;
    for (std::size_t i = 0; account.children && i < account.children->size(); ++i) {
      const Account& child = account.children->at(i);
      if (child.id.empty() || lastChild[child.id] == std::pair(account.id, i)) children.push_back(child);
    }
    if (account.children) account.children = children;
  }
  return left;
}
inline bool hasDuplicates(const Registry& registry) { return !(withoutDuplicates(registry) == registry); }

/// An account and where it stands; the parent is empty for a top-level one.
struct Place {
  Account account{};
  std::string parent{};
};
using Places = std::vector<Place>;

inline Places placesOf(const Registry& registry) {
  Places places;
  for (const Account& account : registry) places.push_back({account, ""});
  for (const Account& account : registry) {
    for (const Account& child : account.childList()) {
      if (!child.id.empty()) places.push_back({child, account.id});
    }
  }
  return places;
}

/// The identifiers that an account and a child share in one of the versions: there they are two.
inline std::set<std::string> namesakesOf(const std::vector<const Places*>& versions) {
  std::set<std::string> namesakes;
  for (const Places* version : versions) {
    std::set<std::string> accounts;
    for (const Place& place : *version) {
      if (place.parent.empty()) accounts.insert(place.account.id);
    }
    for (const Place& place : *version) {
      if (!place.parent.empty() && accounts.contains(place.account.id)) namesakes.insert(place.account.id);
    }
  }
  return namesakes;
}

// ---- Properties

using Words = std::vector<std::string>;
inline Words wordsOf(const std::string& text) {
  std::istringstream stream(text);
  Words words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}
inline std::string textOf(const Words& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

/// Changed here wins, else as it is there.
template <class T>
T mergedWhole(const T& mine, const T& base, const T& theirs) {
  return mine == base ? theirs : mine;
}

using List = std::optional<std::string>;
inline List mergedSets(const List& mine, const List& base, const List& theirs, bool isAbsentEmpty) {
  if (!isAbsentEmpty && !(mine && base && theirs)) return mergedWhole(mine, base, theirs);
  if (theirs == base) return mine;
  const auto setOf = [](const List& list) {
    const Words words = wordsOf(list.value_or(""));
    return std::set<std::string>(words.begin(), words.end());
  };
  const auto here = setOf(mine);
  const auto before = setOf(base);
  const auto there = setOf(theirs);
  if (here == before) return theirs;
  if (there == before || there == here) return mine;
  Words merged;
  const auto add = [&](const std::string& word) {
    const bool isIn = before.contains(word) ? here.contains(word) && there.contains(word)
                                            : here.contains(word) || there.contains(word);
    if (isIn && std::find(merged.begin(), merged.end(), word) == merged.end()) merged.push_back(word);
  };
  for (const char* known : {"Mail", "Contacts", "Notes"}) add(known);
  for (const List& list : {theirs, mine}) {
    for (const std::string& word : wordsOf(list.value_or(""))) add(word);
  }
  return merged.empty() && isAbsentEmpty ? List() : List(textOf(merged));
}

/// The account's own properties; the children are not among them.
inline Account merged(const Account& mine, const Account& base, const Account& theirs) {
  Account result{mine.id, {}, {}};
  std::set<std::string> keys;
  for (const Account* version : {&mine, &theirs}) {
    for (const auto& property : version->properties) keys.insert(property.first);
  }
  for (const std::string& key : keys) {
    const auto m = mine.find(key);
    const auto b = base.find(key);
    const auto t = theirs.find(key);
    // No text stands for the usual type.
    const bool isList = key == "enabled" || key == "provisioned";
    const auto value = key == "Type" && base.id.empty() ? m
                       : isList                         ? mergedSets(m, b, t, key == "enabled")
                                                        : mergedWhole(m, b, t);
    if (value) result.properties[key] = *value;
  }
  return result;
}

// ---- Registries

class Merge {
 public:
  Merge(const Registry& mine, const Places& base, const Registry& theirs)
      : mine_(withoutDuplicates(mine)), theirs_(withoutDuplicates(theirs)) {
    const Places mineAt = placesOf(mine_);
    const Places theirsAt = placesOf(theirs_);
    namesakes_ = namesakesOf({&mineAt, &base, &theirsAt});
    enter(theirsAt, &Fate::theirs);
    enter(mineAt, &Fate::mine);
    enter(base, &Fate::base);
    decide();
  }

  Registry registry() const {
    Registry result;
    for (const Account& account : theirs_) append(account.id, &Fate::theirs, result);
    for (const Account& account : mine_) append(account.id, &Fate::mine, result);
    for (const std::string& key : order_) {
      const Fate& fate = fates_.at(key);
      if (fate.isAt("") && !isAt(fate.mine, "") && !isAt(fate.theirs, "")) result.push_back(assembled(fate));
    }
    return result;
  }

  /// Theirs, and the former base of what is kept here though it is gone there.
  Places base() const {
    Places result = placesOf(theirs_);
    Places kept;
    for (const std::string& key : order_) {
      const Fate& fate = fates_.at(key);
      // With an account that keeps its base goes what was deleted here of its children.
      const auto parent = fate.base ? fates_.find(fate.base->parent) : fates_.end();
      const bool isOfKept = parent != fates_.end() && !parent->second.theirs && parent->second.isThere;
      if (fate.theirs || !fate.base || !(fate.isThere || (isOfKept && !fate.mine))) continue;
      kept.push_back(*fate.base);
      for (Place& place : result) {
        if (!fate.base->parent.empty() && place.account.id == fate.base->parent && place.parent.empty() &&
            isAt(fates_.at(place.account.id).theirs, "")) {
          if (!place.account.children) place.account.children.emplace();
          place.account.children->push_back(fate.base->account);
        }
      }
    }
    result.insert(result.begin(), kept.begin(), kept.end());
    return result;
  }

 private:
  using Version = std::optional<Place>;
  static bool isAt(const Version& version, const std::string& parent) {
    return version && version->parent == parent;
  }
  /// One account in three versions, and what becomes of it.
  struct Fate {
    Version mine{}, base{}, theirs{};
    bool isThere = false;
    std::string parent{};

    bool isAt(const std::string& id) const { return isThere && parent == id; }
    bool isMovedHere() const { return base && !(mine->parent == base->parent); }
    bool isChangedHere() const { return !base || isMovedHere() || !(mine->account == base->account); }
  };

  std::string childKey(const std::string& id) const { return namesakes_.contains(id) ? id + "/" : id; }
  void enter(const Places& version, Version Fate::*side) {
    for (const Place& place : version) {
      const std::string key = place.parent.empty() ? place.account.id : childKey(place.account.id);
      if (!fates_.contains(key)) order_.push_back(key);
      fates_[key].*side = place;
    }
  }
  bool isTopLevel(const std::string& id) const {
    const auto found = fates_.find(id);
    return found != fates_.end() && found->second.isAt("");
  }

  void decide() {
    for (auto& [key, fate] : fates_) {
      if (fate.mine && fate.theirs) {
        fate.isThere = true;
        fate.parent = fate.base && !fate.isMovedHere() ? fate.theirs->parent : fate.mine->parent;
      } else if (fate.theirs) {
        fate.isThere = !fate.base;  // else it was deleted here
        fate.parent = fate.theirs->parent;
      } else if (fate.mine) {
        fate.isThere = fate.isChangedHere();
        fate.parent = fate.mine->parent;
      }
    }
    // A child stays with a parent that is kept.
    for (auto& [key, fate] : fates_) {
      const auto parent = fate.mine && !fate.theirs ? fates_.find(fate.mine->parent) : fates_.end();
      if (parent != fates_.end() && !parent->second.theirs && parent->second.isThere) fate.isThere = true;
    }
    // Who would stand below what is gone, or is a child itself, goes back to where memory has it, or to where
    // the file has it, or to the top; and who is on one side only goes with the parent.
    const auto isLost = [this](const Fate& fate) {
      return fate.isThere && !fate.parent.empty() && !isTopLevel(fate.parent);
    };
    const auto sendBack = [&](const auto& mayGoTo) {
      for (auto& [key, fate] : fates_) {
        if (!isLost(fate) || !fate.mine || !fate.theirs) continue;
        for (const std::string& place : {fate.mine->parent, fate.theirs->parent, std::string()}) {
          const bool isTop = place.empty() && !key.ends_with("/");
          if (!isLost(fate) || !(isTop || isTopLevel(place))) continue;
          if (mayGoTo(fate, place)) fate.parent = place;
          break;
        }
      }
    };
    sendBack([](const Fate& fate, const std::string&) { return fate.mine->parent.empty(); });
    sendBack([](const Fate& fate, const std::string& place) {
      return place.empty() && fate.theirs->parent.empty();
    });
    sendBack([](const Fate&, const std::string&) { return true; });
    for (auto& [key, fate] : fates_) {
      if (isLost(fate)) fate.isThere = false;
    }
  }

  static Account accountOf(const Version& version) { return version ? version->account : Account(); }
  static std::optional<Registry> childrenAt(const Version& version, bool isAccount) {
    return version && (!isAccount || version->parent.empty()) ? version->account.children : std::nullopt;
  }

  /// Takes from one side what has its place there.
  void append(const std::string& id, Version Fate::*side, Registry& result) const {
    const Fate& fate = fates_.at(id);
    const bool isTheirs = isAt(fate.theirs, "");
    if (fate.isAt("") && isAt(fate.*side, "") && isTheirs == (side == &Fate::theirs))
      result.push_back(assembled(fate));
  }
  Account assembled(const Fate& fate) const {
    Account account = !fate.theirs ? fate.mine->account
                      : !fate.mine ? fate.theirs->account
                                   : merged(fate.mine->account, accountOf(fate.base), fate.theirs->account);
    const bool isAccount = fate.parent.empty();
    const auto mine = childrenAt(fate.mine, isAccount);
    const auto theirs = childrenAt(fate.theirs, isAccount);
    account.children = !fate.theirs ? mine : mergedWhole(mine, childrenAt(fate.base, isAccount), theirs);
    if (!isAccount) return account;
    Registry children;
    const bool isInTheirs = isAt(fate.theirs, "");
    for (const Account& child : theirs.value_or(Registry())) {
      if (child.id.empty() && isInTheirs) children.push_back(child);
      if (!child.id.empty()) appendChild(account.id, child.id, &Fate::theirs, children);
    }
    for (const Account& child : mine.value_or(Registry())) {
      if (child.id.empty() && !isInTheirs) children.push_back(child);
      if (!child.id.empty()) appendChild(account.id, child.id, &Fate::mine, children);
    }
    if (account.children || !children.empty()) account.children = children;
    return account;
  }
  void appendChild(const std::string& parent, const std::string& id, Version Fate::*side,
                   Registry& children) const {
    const Fate& fate = fates_.at(childKey(id));
    const bool isTheirs = isAt(fate.theirs, parent);
    if (fate.isAt(parent) && isAt(fate.*side, parent) && isTheirs == (side == &Fate::theirs))
      children.push_back(assembled(fate));
  }

  Registry mine_;
  Registry theirs_;
  std::set<std::string> namesakes_;
  std::map<std::string, Fate> fates_;
  std::vector<std::string> order_;
};

/// What a file stands for that was not read in full: what it lacks is as it was.
inline Registry completed(const Places& base, const Registry& file) {
  Registry result = withoutDuplicates(file);
  const Places there = placesOf(result);
  const std::set<std::string> namesakes = namesakesOf({&base, &there});
  const auto find = [&](const Places& places, const std::string& id, bool isChild) -> const Account* {
    for (auto place = places.rbegin(); !id.empty() && place != places.rend(); ++place) {
      const bool isSameKind = !place->parent.empty() == isChild;
      if (place->account.id == id && (isSameKind || !namesakes.contains(id))) return &place->account;
    }
    return nullptr;
  };
  const auto complete = [&](Account& account, bool isChild) {
    const Account* known = find(base, account.id, isChild);
    if (known == nullptr) return;
    for (const auto& [key, value] : known->properties) {
      if (key == "Type") continue;  // the file has one, though no text stands for the usual
      const bool isList = key == "enabled" || key == "provisioned";
      const bool isAdded = account.properties.emplace(key, value).second;
      Words words = wordsOf(account.properties[key]);
      for (const std::string& word : isList && !isAdded ? wordsOf(value) : Words()) {
        if (std::find(words.begin(), words.end(), word) == words.end()) words.push_back(word);
      }
      if (isList && !isAdded) account.properties[key] = textOf(words);
    }
  };
  for (Account& account : result) {
    complete(account, false);
    for (std::size_t i = 0; account.children && i < account.children->size(); ++i) {
      complete(account.children->at(i), true);
    }
  }
  for (const Place& place : base) {
    if (!place.parent.empty() || find(there, place.account.id, false) != nullptr) continue;
    result.push_back(place.account);
    if (place.account.children)
      std::erase_if(*result.back().children,
                    [&](const Account& child) { return find(there, child.id, true) != nullptr; });
  }
  for (const Place& place : base) {
    const auto parent = std::find_if(result.begin(), result.end(), [&](const Account& each) {
      return !place.parent.empty() && each.id == place.parent;
    });
    if (parent == result.end() || find(there, place.account.id, true) != nullptr) continue;
    const Registry known = parent->childList();
    if (std::any_of(known.begin(), known.end(),
                    [&](const Account& child) { return child.id == place.account.id; }))
      continue;
    if (!parent->children) parent->children.emplace();
    parent->children->push_back(place.account);
  }
  return result;
}

}  // namespace roster::testing::model
