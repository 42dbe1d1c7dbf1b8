#include <map>
#include <random>
#include <set>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

// Replacing many accounts and children at once, against the same done one step after the other. Every record
// has a tag of its own to be known by.

std::string tagOf(const AccountPtr& account) {
  return account ? account->properties().find("Tag").string().str() : "nobody";
}
std::vector<Value> childrenOf(const AccountPtr& account) {
  const auto span = account->properties().find("ChildAccounts").array().value_or(Array());
  return {span.begin(), span.end()};
}
std::string childTags(const AccountPtr& account) {
  std::string tags = account->properties().contains("ChildAccounts") ? "" : "none";
  for (const Value& child : childrenOf(account)) tags += child.dictionary()->find("Tag").string().str() + ",";
  return tags;
}

struct PlainStore {
  std::vector<AccountPtr> ordered{};
  std::map<std::string, AccountPtr> byID{};
  std::map<std::string, AccountPtr> children{};

  std::string formerParent(const std::string& id) const {
    return children.contains(id) ? children.at(id)->parentAccountIdentifier().str() : "";
  }
  AccountPtr find(const std::string& id) const {
    const std::string& key = byID.contains(id) ? id : formerParent(id);
    return byID.contains(key) ? byID.at(key) : nullptr;
  }
  void removeChildrenOf(const AccountPtr& parent) {
    std::erase_if(children, [&](const auto& child) {
      return formerParent(child.first) == parent->identifier().view();
    });
  }
  void loadChildren(const AccountPtr& parent) {
    removeChildrenOf(parent);
    for (const Value& properties : childrenOf(parent)) {
      const AccountPtr child = BasicAccount::accountWithProperties(*properties.dictionary());
      child->setParentAccount(parent);
      children[child->identifier().str()] = child;
    }
  }
  void add(const AccountPtr& account) {
    ordered.push_back(account);
    byID[account->identifier().str()] = account;
    loadChildren(account);
  }
  void move(const AccountPtr& child, const AccountPtr& parent) {
    const std::string id = child->identifier().str();
    const std::string former = formerParent(id);
    const bool isAtHome = parent && parent->identifier().view() == former;
    if (const AccountPtr left = isAtHome ? parent : former.empty() ? nullptr : find(former)) {
      std::vector<Value> list = childrenOf(left);
      std::erase_if(list,
                    [&](const Value& each) { return each.dictionary()->find("Identifier") == Value(id); });
      if (left->properties().contains("ChildAccounts"))
        left->setAccountPropertyForKey(Array(list), "ChildAccounts");
      loadChildren(left);
    }
    if (!parent) return;
    std::vector<Value> list = childrenOf(parent);
    list.emplace_back(child->properties());
    parent->setAccountPropertyForKey(Array(list), "ChildAccounts");
    loadChildren(parent);
  }

  void replace(const std::set<std::string>& types, const std::vector<AccountPtr>& given) {
    std::map<std::string, AccountPtr> givenByID, newByID;
    for (const AccountPtr& account : given) givenByID[account->identifier().str()] = account;
    std::vector<AccountPtr> left = given;
    for (std::size_t i = ordered.size(); i-- > 0;) {
      const AccountPtr old = ordered[i];
      const std::string id = old->identifier().str();
      if (givenByID.contains(id)) {
        ordered[i] = newByID[id] = givenByID[id];
        std::erase(left, ordered[i]);
        loadChildren(ordered[i]);
      } else if (types.contains(old->type().str())) {
        removeChildrenOf(old);
        ordered.erase(ordered.begin() + static_cast<std::ptrdiff_t>(i));
      } else {
        newByID[id] = old;
      }
    }
    for (const AccountPtr& account : left) {
      const String parentID = account->parentAccountIdentifier();
      if (!parentID.isNil()) {
        move(account, newByID.contains(parentID.str()) ? newByID[parentID.str()] : nullptr);
        continue;
      }
      ordered.push_back(account);
      newByID[account->identifier().str()] = account;
      loadChildren(account);
    }
    byID = newByID;
  }
};

/// A record: its tag, its identifier, its children by one letter each or a dash for no list, and its parent.
/// One without a type is the store's own record, if it is there. One that holds another candidate has its
/// live properties among its children.
struct Description {
  std::string tag, id, type, children, parentID{}, held{};

  AccountPtr make() const {
    std::vector<Value> elements;
    for (const char child : children)
      elements.emplace_back(stored(std::string(1, child), {{"Tag", tag + child}}));
    const Value list = children == "-" ? Value() : Value(Array(std::move(elements)));
    const std::string realType = type.empty() ? "CalDAV" : type;
    return record(id, {{"Type", realType}, {"Tag", tag}, {"ChildAccounts", list}});
  }
};

// Among them children that several parents dispute, and records that are top-level and somebody's child.
const std::vector<std::vector<Description>> starts = {
    {},
    {{"a", "A", "CalDAV", "xy"}, {"b", "B", "Exchange", "yxx"}},
    {{"a", "A", "CalDAV", "x"}, {"b", "B", "Exchange", "-"}, {"a2", "A", "Exchange", "xyz"}},
    {{"a", "A", "CalDAV", "B"}, {"b", "B", "CalDAV", "A"}},
};
const std::vector<Description> candidates = {
    {"newA", "A", "Exchange", "xz"},    {"newB", "B", "CalDAV", "-"},
    {"n", "N", "CalDAV", "-"},          {"n2", "N", "Exchange", "y"},
    {"x>A", "x", "CalDAV", "-", "A"},   {"x>B", "x", "CalDAV", "z", "B"},
    {"y>A", "y", "CalDAV", "-", "A"},   {"x>N", "x", "CalDAV", "-", "N"},
    {"y>Q", "y", "CalDAV", "-", "Q"},   {"B>A", "B", "CalDAV", "x", "A"},
    {"ownB>A", "B", "", "-", "A"},      {"z>B", "z", "CalDAV", "-", "B"},
    {"h", "H", "CalDAV", "y", "", "n"}, {"h2", "H", "Exchange", "x", "", "newA"},
    {"x>H", "x", "Exchange", "-", "H"},
};

/// The records of one run, each made when it is first given.
class Records {
 public:
  std::vector<AccountPtr> given(const std::vector<std::size_t>& numbers, const std::vector<AccountPtr>& own) {
    std::vector<AccountPtr> records;
    for (const std::size_t number : numbers) records.push_back(record(candidates[number], own));
    return records;
  }
  std::vector<AccountPtr> all() const {
    std::vector<AccountPtr> records;
    for (const auto& entry : made_) records.push_back(entry.second);
    return records;
  }

 private:
  AccountPtr record(const Description& description, const std::vector<AccountPtr>& own) {
    AccountPtr& account = made_[description.tag];
    if (account) return account;
    account = description.make();
    for (const AccountPtr& each : own) {
      if (description.type.empty() && each->identifier().view() == description.id) account = each;
    }
    if (!description.parentID.empty()) account->setParentAccount(testing::record(description.parentID));
    for (const Description& other : candidates) {
      if (other.tag != description.held) continue;
      std::vector<Value> list = childrenOf(account);
      list.emplace_back(record(other, own)->properties());
      account->setAccountPropertyForKey(Array(list), "ChildAccounts");
    }
    return account;
  }

  std::map<std::string, AccountPtr> made_;
};

/// All that can be seen of a store, and the children of all records that ever met it.
std::string state(const std::vector<AccountPtr>& all, std::size_t count,
                  const std::function<AccountPtr(const char*)>& find,
                  const std::vector<std::vector<AccountPtr>>& records) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += tagOf(all[i]) + " ";
  std::map<std::string, std::string> children;
  for (std::size_t i = count; i < all.size(); ++i) {
    children[all[i]->identifier().str()] =
        tagOf(all[i]) + ":" + childTags(all[i]) + "<" + tagOf(all[i]->parentAccount());
  }
  for (const auto& [id, child] : children) text += id + "=" + child + " ";
  for (const char* id : {"A", "B", "N", "x", "y", "z"}) text += tagOf(find(id)) + " ";
  for (const auto& list : records) {
    for (const AccountPtr& account : list) text += childTags(account) + ";";
  }
  return text;
}

/// A store, and what it is told to replace one after the other.
struct Draw {
  struct Call {
    std::set<std::string> types{};
    std::vector<std::size_t> given{};
  };
  std::size_t start;
  std::vector<Call> calls;

  std::string text() const {
    std::string text = "start " + std::to_string(start);
    for (const auto& [types, given] : calls) {
      text += "; types " + ::testing::PrintToString(types) + " given";
      for (const std::size_t number : given) text += " " + candidates[number].tag;
    }
    return text;
  }
};

::testing::AssertionResult endsAlike(const Draw& draw) {
  std::vector<Value> info;
  PlainStore plain;
  for (const Description& description : starts[draw.start]) {
    info.emplace_back(description.make()->properties());
    plain.add(description.make());
  }
  const Store real = storeOf(Array(std::move(info)));
  const auto span = real->allBasicAccounts()->span();
  const std::vector<AccountPtr> own(span.begin(), span.end());
  const std::vector<AccountPtr> plainOwn = plain.ordered;
  Records records;
  Records plainRecords;
  for (const auto& [types, given] : draw.calls) {
    real->replaceAccountsWithTypesWithAccounts(TypeSet(types), records.given(given, own));
    plain.replace(types, plainRecords.given(given, plainOwn));
    std::vector<AccountPtr> plainAll = plain.ordered;
    for (const auto& child : plain.children) plainAll.push_back(child.second);
    const std::string is =
        state(real->allBasicSyncableAccounts(), real->count(),
              [&](const char* id) { return real->accountWithIdentifier(id); }, {own, records.all()});
    const std::string expected =
        state(plainAll, plain.ordered.size(), [&](const char* id) { return plain.find(id); },
              {plainOwn, plainRecords.all()});
    if (is != expected) {
      return ::testing::AssertionFailure()
             << draw.text() << "\n  is        " << is << "\n  should be " << expected;
    }
  }
  return ::testing::AssertionSuccess();
}

/// The draw without all those given that it fails without.
Draw smallestFailing(Draw draw) {
  for (std::size_t call = 0; call < draw.calls.size(); ++call) {
    for (std::size_t index = 0; index < draw.calls[call].given.size();) {
      Draw smaller = draw;
      std::vector<std::size_t>& given = smaller.calls[call].given;
      given.erase(given.begin() + static_cast<std::ptrdiff_t>(index));
      const bool isNeeded = static_cast<bool>(endsAlike(smaller));
      index = isNeeded ? index + 1 : 0;
      if (!isNeeded) draw = std::move(smaller);
    }
  }
  return draw;
}

class ReplaceAccountsTest : public StoreTest {};

TEST_F(ReplaceAccountsTest, EndsAsIfDoneStepByStepForRecordsDrawnByLot) {
  std::mt19937 lot(7);  // NOLINT: the same draw in every run
  for (int round = 0; round < 10'000; ++round) {
    Draw draw{.start = lot() % starts.size(), .calls = std::vector<Draw::Call>(1 + lot() % 3)};
    for (Draw::Call& call : draw.calls) {
      call.given.resize(lot() % 8);
      for (std::size_t& candidate : call.given) candidate = lot() % candidates.size();
      if (lot() % 2 == 0) call.types.insert("CalDAV");
    }
    if (!endsAlike(draw)) FAIL() << "round " << round << ": " << endsAlike(smallestFailing(draw)).message();
  }
}

}  // namespace
}  // namespace roster::testing
