#include <array>
#include <map>
#include <random>
#include <set>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

// Replacing many accounts and children at once, against the same done one step after the other on the
// plainest structures. Every record has a tag of its own to be known by.

std::string text(const Value& properties, std::string_view key) {
  return properties.dictionary()->find(key).string().str();
}
std::string tagOf(const Account& account) { return account ? text(account->properties(), "Tag") : "nobody"; }

struct Plain {
  explicit Plain(const Value& properties)
      : id(text(properties, "Identifier")), type(text(properties, "Type")), tag(text(properties, "Tag")) {
    const std::optional<Array> stored = properties.dictionary()->find("ChildAccounts").array();
    hasChildren = stored.has_value();
    for (const Value& child : stored.value_or(Array())) children.push_back(std::make_shared<Plain>(child));
  }
  std::string childTags() const {
    std::string tags = hasChildren ? "" : "none";
    for (const auto& child : children) tags += child->tag + ",";
    return tags;
  }
  std::string id, type, tag, parentID{};
  std::vector<std::shared_ptr<Plain>> children{};
  bool hasChildren = false;
};
using PlainRecord = std::shared_ptr<Plain>;

struct PlainStore {
  struct Child {
    std::string seen;  // its tag and its own children at the moment when it was indexed
    std::string parentTag;
    std::string parentID;
  };
  std::vector<PlainRecord> ordered{};
  std::map<std::string, PlainRecord> byID{};
  std::map<std::string, Child> children{};

  void removeChildrenOf(const std::string& parentID) {
    std::erase_if(children, [&](const auto& child) { return child.second.parentID == parentID; });
  }
  void loadChildren(const PlainRecord& parent) {
    removeChildrenOf(parent->id);
    for (const PlainRecord& child : parent->children) {
      children[child->id] = {child->tag + ":" + child->childTags(), parent->tag, parent->id};
    }
  }
  PlainRecord find(const std::string& id) const {
    if (byID.contains(id)) return byID.at(id);
    const auto child = children.find(id);
    if (child == children.end() || !byID.contains(child->second.parentID)) return nullptr;
    return byID.at(child->second.parentID);
  }
  void removeChild(const std::string& id, const PlainRecord& parent) {
    if (!parent) return;
    std::erase_if(parent->children, [&](const PlainRecord& child) { return child->id == id; });
    loadChildren(parent);
  }
  void addChild(const PlainRecord& child, const PlainRecord& parent) {
    if (!parent) return;
    parent->children.push_back(child);
    parent->hasChildren = true;
    loadChildren(parent);
  }

  void replace(const std::set<std::string>& types, const std::vector<PlainRecord>& given) {
    std::map<std::string, PlainRecord> givenByID, newByID;
    for (const PlainRecord& record : given) givenByID[record->id] = record;
    std::vector<PlainRecord> list = ordered;
    std::vector<PlainRecord> left = given;
    for (std::size_t i = list.size(); i-- > 0;) {
      const PlainRecord old = list[i];
      if (givenByID.contains(old->id)) {
        list[i] = newByID[old->id] = givenByID[old->id];
        std::erase(left, list[i]);
        loadChildren(list[i]);
      } else if (types.contains(old->type)) {
        removeChildrenOf(old->id);
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
      } else {
        newByID[old->id] = old;
      }
    }
    for (const PlainRecord& record : left) {
      if (record->parentID.empty()) {
        list.push_back(record);
        newByID[record->id] = record;
        loadChildren(record);
        continue;
      }
      const PlainRecord parent = newByID.contains(record->parentID) ? newByID[record->parentID] : nullptr;
      const std::string former = children.contains(record->id) ? children[record->id].parentID : "";
      const bool isAtHome = parent && former == parent->id;
      removeChild(record->id, isAtHome ? parent : former.empty() ? nullptr : find(former));
      addChild(record, parent);
    }
    byID = newByID;
    ordered = list;
  }
};

/// A record: its tag, its identifier, its children by one letter each or a dash for no list, and its parent.
struct Description {
  std::string tag, id, type, children, parentID{};

  Dictionary properties() const {
    std::vector<Value> elements;
    for (const char child : children)
      elements.emplace_back(stored(std::string(1, child), {{"Tag", tag + child}}));
    const Value list = children == "-" ? Value() : Value(Array(std::move(elements)));
    return stored(id, {{"Type", type}, {"Tag", tag}, {"ChildAccounts", list}});
  }
};

/// The same store and the same records twice, real and plain.
class Pair {
 public:
  explicit Pair(const std::vector<Description>& descriptions) {
    std::vector<Value> accounts;
    for (const Description& description : descriptions) accounts.emplace_back(description.properties());
    real_ = AccountsManager::initWithAccounsInfoArray(Array(accounts));
    for (const Account& account : *real_->allBasicAccounts()) {
      note(account);
      plain_.ordered.push_back(plainRecords_.back());
      plain_.byID[plainRecords_.back()->id] = plainRecords_.back();
      plain_.loadChildren(plainRecords_.back());
    }
  }

  /// One record more, or the store's own one when it has no type and is there.
  std::size_t add(const Description& description) {
    const bool isOwn = description.type.empty();
    for (std::size_t index = plain_.ordered.size(); isOwn && index-- > 0;) {
      if (plainRecords_[index]->id == description.id) return adopt(index, description.parentID);
    }
    Description fresh = description;
    if (isOwn) fresh.type = "CalDAV";
    note(BasicAccount::accountWithProperties(fresh.properties()));
    return adopt(records_.size() - 1, description.parentID);
  }

  void replace(const std::set<std::string>& types, const std::vector<std::size_t>& given) {
    std::vector<Account> accounts;
    std::vector<PlainRecord> plainAccounts;
    for (const std::size_t index : given) {
      accounts.push_back(records_[index]);
      plainAccounts.push_back(plainRecords_[index]);
    }
    real_->replaceAccountsWithTypesWithAccounts(TypeSet(types), accounts);
    plain_.replace(types, plainAccounts);
  }

  std::string realState() const {
    std::string state;
    for (const Account& account : *real_->allBasicAccounts()) state += tagOf(account) + " ";
    for (const char* id : ids) state += tagOf(real_->accountWithIdentifier(id)) + " ";
    std::map<std::string, std::string> children;
    const std::vector<Account> all = real_->allBasicSyncableAccounts();
    for (const Account& child : std::span(all).subspan(real_->count())) {
      const Plain seen(child->properties());
      children[seen.id] = seen.tag + ":" + seen.childTags() + "<" + tagOf(child->parentAccount());
    }
    for (const auto& child : children) state += child.first + "=" + child.second + " ";
    for (const Account& account : records_) state += Plain(account->properties()).childTags() + ";";
    return state;
  }
  std::string plainState() const {
    std::string state;
    for (const PlainRecord& record : plain_.ordered) state += record->tag + " ";
    for (const char* id : ids) state += (plain_.find(id) ? plain_.find(id)->tag : "nobody") + " ";
    for (const auto& [id, child] : plain_.children)
      state += id + "=" + child.seen + "<" + child.parentTag + " ";
    for (const PlainRecord& record : plainRecords_) state += record->childTags() + ";";
    return state;
  }

 private:
  static constexpr std::array ids = {"A", "B", "N", "x", "y", "z"};

  void note(const Account& account) {
    records_.push_back(account);
    plainRecords_.push_back(std::make_shared<Plain>(account->properties()));
  }
  std::size_t adopt(std::size_t index, const std::string& parentID) {
    if (!parentID.empty()) records_[index]->setParentAccount(record(parentID));
    plainRecords_[index]->parentID = parentID;
    return index;
  }

  Store real_;
  PlainStore plain_;
  std::vector<Account> records_;
  std::vector<PlainRecord> plainRecords_;
};

class ReplaceAccountsTest : public StoreTest {
 protected:
  static ::testing::AssertionResult endsAlike(std::size_t start, const std::set<std::string>& types,
                                              const std::vector<std::size_t>& given) {
    Pair pair(starts[start]);
    std::map<std::size_t, std::size_t> added;
    std::vector<std::size_t> indexes;
    std::string names;
    for (const std::size_t candidate : given) {
      if (!added.contains(candidate)) added[candidate] = pair.add(candidates[candidate]);
      indexes.push_back(added[candidate]);
      names += candidates[candidate].tag + " ";
    }
    pair.replace(types, indexes);
    if (pair.realState() == pair.plainState()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "start " << start << ", given " << names << "\n  is        "
                                         << pair.realState() << "\n  should be " << pair.plainState();
  }

  // Among them children that several parents dispute, and records that are top-level and somebody's child at
  // once.
  static inline const std::vector<std::vector<Description>> starts = {
      {},
      {{"a", "A", "CalDAV", "x"}, {"b", "B", "Exchange", "-"}},
      {{"a", "A", "CalDAV", "xy"}, {"b", "B", "Exchange", "yxx"}},
      {{"a", "A", "CalDAV", "x"}, {"b", "B", "Exchange", "y"}, {"a2", "A", "Exchange", "xyz"}},
      {{"a", "A", "CalDAV", "B"}, {"b", "B", "CalDAV", "A"}},
  };
  static inline const std::vector<Description> candidates = {
      {"newA", "A", "Exchange", "xz"},  {"newB", "B", "CalDAV", "-"},     {"n", "N", "CalDAV", "-"},
      {"n2", "N", "Exchange", "y"},     {"x>A", "x", "CalDAV", "-", "A"}, {"x>B", "x", "CalDAV", "z", "B"},
      {"y>A", "y", "CalDAV", "-", "A"}, {"x>N", "x", "CalDAV", "-", "N"}, {"y>Q", "y", "CalDAV", "-", "Q"},
      {"B>A", "B", "CalDAV", "x", "A"}, {"ownB>A", "B", "", "-", "A"},    {"z>B", "z", "CalDAV", "-", "B"},
  };
};

TEST_F(ReplaceAccountsTest, EndsAsIfDoneStepByStepForAllSmallInputs) {
  const std::size_t digits = candidates.size() + 1;
  for (std::size_t start = 0; start < starts.size(); ++start) {
    for (std::size_t number = 0; number < digits * digits * digits; ++number) {
      std::vector<std::size_t> given;
      for (std::size_t rest = number; rest != 0; rest /= digits) {
        if (rest % digits != 0) given.push_back(rest % digits - 1);
      }
      ASSERT_TRUE(endsAlike(start, {}, given));
      ASSERT_TRUE(endsAlike(start, {"CalDAV"}, given));
    }
  }
}

TEST_F(ReplaceAccountsTest, EndsAsIfDoneStepByStepForManyRecordsDrawnByLot) {
  std::mt19937 lot(7);  // NOLINT: the same draw in every run
  for (int round = 0; round < 5000; ++round) {
    std::vector<std::size_t> given(4 + lot() % 6);
    for (std::size_t& candidate : given) candidate = lot() % candidates.size();
    ASSERT_TRUE(endsAlike(lot() % starts.size(), {}, given));
  }
}

}  // namespace
}  // namespace roster::testing
