#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "roster/store/accounts_manager.h"

namespace roster::testing {

// A store in plain containers: what is promised of its operations, each done in the simplest way there is.

struct Plain;

/// A dictionary, perhaps the live properties of a record. Compared by contents.
struct PlainPtr : std::shared_ptr<Plain> {
  explicit PlainPtr(const Plain& copied);
  bool operator==(const PlainPtr& other) const;
};
using PlainList = std::vector<PlainPtr>;
using Property = std::variant<std::string, StringList, PlainList>;

struct Plain {
  bool operator==(const Plain&) const = default;
  const Property* find(const std::string& key) const {
    const auto found = entries.find(key);
    return found == entries.end() ? nullptr : &found->second;
  }
  std::string text(const std::string& key) const {
    const Property* property = find(key);
    return property == nullptr ? "" : std::get<std::string>(*property);
  }
  /// Without a class nobody makes a record of it; a valid type they all have.
  bool makesRecord() const { return entries.contains("Class"); }

  std::map<std::string, Property> entries{};
};

inline PlainPtr::PlainPtr(const Plain& copied) : shared_ptr(std::make_shared<Plain>(copied)) {}
inline bool PlainPtr::operator==(const PlainPtr& other) const { return **this == *other; }

inline PlainPtr deepCopy(const Plain& plain) {
  PlainPtr copy(plain);
  for (auto& [key, property] : copy->entries) {
    if (auto* list = std::get_if<PlainList>(&property))
      for (PlainPtr& element : *list) element = deepCopy(*element);
  }
  return copy;
}

struct Record;
using RecordPtr = std::shared_ptr<Record>;

struct Record {
  explicit Record(const Plain& from) : properties(from), original(deepCopy(from)) {}
  std::string id() const { return properties->text("Identifier"); }
  /// What the record itself lacks is its parent's.
  const Property* find(const std::string& key) const {
    const Property* own = properties->find(key);
    return own != nullptr || !parent ? own : parent->find(key);
  }
  PlainList children() const {
    const Property* list = find("ChildAccounts");
    return list == nullptr ? PlainList() : std::get<PlainList>(*list);
  }

  PlainPtr properties;
  PlainPtr original;
  RecordPtr parent{};
  /// The library's record, as soon as it has been seen.
  AccountPtr real{};
};

using RecordsByID = std::map<std::string, RecordPtr>;

inline RecordPtr find(const RecordsByID& records, const std::string& id) {
  const auto found = records.find(id);
  return found == records.end() ? nullptr : found->second;
}

struct PlainStore {
  void load(const PlainList& file) {
    *this = {};
    for (const PlainPtr& properties : file) {
      if (properties->makesRecord()) append(std::make_shared<Record>(*properties));
    }
  }

  RecordPtr child(const std::string& id) const {
    for (const RecordPtr& each : children) {
      if (each->id() == id) return each;
    }
    return nullptr;
  }
  std::string parentIDOf(const std::string& childID) const {
    return parentIDs.contains(childID) ? parentIDs.at(childID) : "";
  }
  /// The account itself, or the parent of the child.
  RecordPtr account(const std::string& id) const {
    return find(byID, byID.contains(id) ? id : parentIDOf(id));
  }

  void removeChildrenOf(const std::string& parentID) {
    std::erase_if(children, [&](const auto& child) { return parentIDOf(child->id()) == parentID; });
    std::erase_if(parentIDs, [&](const auto& child) { return child.second == parentID; });
  }
  void loadChildrenOf(const RecordPtr& parent) {
    removeChildrenOf(parent->id());
    for (const PlainPtr& properties : parent->children()) {
      if (!properties->makesRecord()) continue;
      const auto made = std::make_shared<Record>(*properties);
      made->parent = parent;
      std::erase(children, child(made->id()));
      children.push_back(made);
      parentIDs[made->id()] = parent->id();
    }
  }
  void append(const RecordPtr& account) {
    byID[account->id()] = account;
    ordered.push_back(account);
    loadChildrenOf(account);
  }

  void insert(const RecordPtr& account) {
    if (!byID.contains(account->id())) append(account);
  }
  void update(const RecordPtr& account) {
    for (RecordPtr& each : ordered) {
      if (each->id() != account->id()) continue;
      each = byID[account->id()] = account;
      loadChildrenOf(account);
    }
  }
  void remove(const RecordPtr& account) {
    const std::string id = account->id();
    removeChildrenOf(id);
    byID.erase(id);
    RecordPtr last;
    for (const RecordPtr& each : ordered) last = each->id() == id ? each : last;
    std::erase(ordered, last);
  }
  /// Whether the old record was there. The new one is not found by its identifier.
  bool replace(const RecordPtr& old, const RecordPtr& account) {
    removeChildrenOf(old->id());
    byID.erase(old->id());
    const auto found = std::find(ordered.begin(), ordered.end(), old);
    if (found == ordered.end()) return false;
    *found = account;
    loadChildrenOf(account);
    return true;
  }

  void addChild(const RecordPtr& child, const RecordPtr& parent) {
    if (!parent) return;
    PlainList list = parent->children();
    list.push_back(child->properties);
    parent->properties->entries["ChildAccounts"] = list;
    loadChildrenOf(parent);
  }
  void removeChild(const std::string& id, const RecordPtr& parent) {
    if (!parent) return;
    PlainList list = parent->children();
    std::erase_if(list,
                  [&](const auto& child) { return child->makesRecord() && child->text("Identifier") == id; });
    if (parent->find("ChildAccounts") != nullptr) parent->properties->entries["ChildAccounts"] = list;
    loadChildrenOf(parent);
  }

  void replaceType(const std::string& type, const std::vector<RecordPtr>& given) {
    RecordsByID givenByID;
    for (const RecordPtr& account : given) givenByID[account->id()] = account;
    RecordsByID newByID;
    std::vector<RecordPtr> list = ordered;
    std::vector<RecordPtr> left = given;
    for (std::size_t index = list.size(); index-- > 0;) {
      const RecordPtr old = list[index];
      if (const RecordPtr account = find(givenByID, old->id())) {
        list[index] = newByID[old->id()] = account;
        std::erase(left, account);
        loadChildrenOf(account);
      } else if (old->properties->text("Type") == type) {
        removeChildrenOf(old->id());
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
      } else {
        newByID[old->id()] = old;
      }
    }
    for (const RecordPtr& account : left) {
      if (account->parent) {
        const RecordPtr parent = find(newByID, account->parent->id());
        const std::string formerID = parentIDOf(account->id());
        removeChild(account->id(), parent && parent->id() == formerID ? parent : this->account(formerID));
        addChild(account, parent);
        continue;
      }
      list.push_back(account);
      newByID[account->id()] = account;
      loadChildrenOf(account);
    }
    byID = newByID;
    ordered = list;
  }

  /// What this store has changed since it last saw an account wins; in the rest the file has its way.
  static Plain merged(const Plain& memory, const Plain& original, const Plain& file) {
    Plain result = file;
    for (const auto& [key, value] : memory.entries) {
      const Property* old = original.find(key);
      if (old == nullptr || *old != value) result.entries[key] = value;
    }
    for (const auto& [key, value] : original.entries) {
      if (memory.find(key) == nullptr) result.entries.erase(key);
    }
    return result;
  }
  void save(PlainList& file) const {
    PlainStore onDisk;
    onDisk.load(file);
    file.clear();
    for (const RecordPtr& account : ordered) {
      const RecordPtr found = find(onDisk.byID, account->id());
      const Plain& memory = *account->properties;
      file.push_back(deepCopy(found ? merged(memory, *account->original, *found->properties) : memory));
    }
    for (const RecordPtr& account : ordered) account->original = deepCopy(*account->properties);
  }

  std::vector<RecordPtr> ordered{};
  RecordsByID byID{};
  /// In the order in which they were made.
  std::vector<RecordPtr> children{};
  std::map<std::string, std::string> parentIDs{};
  /// The library's store.
  std::shared_ptr<AccountsManager> real{};
};

}  // namespace roster::testing
