#include "tests/store/store_model.h"

#include <cstdlib>
#include <random>

#include "roster/value/value_description.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

const std::string enabledKey = "Enabled Dataclasses";
const std::string childrenKey = "ChildAccounts";
/// What is drawn; accounts mostly have the first identifiers, children the last.
const StringList ids = {"A", "B", "C", "x", "y", "z"};
const StringList types = {"CalDAV", "Exchange"};
const StringList words = {"k", "l", "m"};
/// Any of the first four is set and removed.
const StringList keys = {"DisplayName", "Username", "Class", "Type", "Identifier", enabledKey, childrenKey};
/// Both types support them.
const StringList dataclassNames = {dataclass("Calendars"), dataclass("Reminders")};

void require(bool isRight, const std::string& text) {
  if (!isRight) throw std::runtime_error(text);
}

Value valueOf(const Property& property) {
  if (const auto* text = std::get_if<std::string>(&property)) return Value(*text);
  if (const auto* list = std::get_if<StringList>(&property)) return arrayValue(*list);
  std::vector<Value> elements;
  for (const PlainPtr& element : std::get<PlainList>(property)) {
    auto properties = MutableDictionary::copyOf(Dictionary());
    for (const auto& [key, value] : element->entries) properties.set(key, valueOf(value));
    elements.push_back(Value(properties).deepCopy());
  }
  return Array(std::move(elements));
}
Dictionary valueOf(const PlainPtr& plain) {
  return *valueOf(Property(PlainList{plain})).array()->at(0).dictionary();
}

/// Whether the one dictionary is the other or holds it.
bool reaches(const Plain& plain, const PlainPtr& other) {
  const Property* list = plain.find(childrenKey);
  const PlainList children = list == nullptr ? PlainList() : std::get<PlainList>(*list);
  return &plain == other.get() || std::any_of(children.begin(), children.end(),
                                              [&](const auto& each) { return reaches(*each, other); });
}

/// Whether a list of the record's own would hold the record: the list that it lacks is its parent's.
bool wouldHoldItself(const RecordPtr& record) {
  const PlainList list = record->children();
  return std::any_of(list.begin(), list.end(),
                     [&](const auto& each) { return reaches(*each, record->properties); });
}

/// The library's record that is first seen beside one of the model is the only right one from then on.
void requireTwins(const RecordPtr& plain, const AccountPtr& real) {
  require(!plain == !real, plain ? plain->id() + " is missing" : "there should be no such record");
  if (plain && !plain->real) plain->real = real;
  require(!plain || plain->real == real, "it is not the record that it should be");
}

template <class Reals>
void requireTwins(const std::vector<RecordPtr>& plain, const Reals& reals) {
  require(plain.size() == reals.size(), "there are " + std::to_string(reals.size()) + " records");
  for (std::size_t index = 0; index < plain.size(); ++index) requireTwins(plain[index], reals[index]);
}

void compare(const Record& plain) {
  for (const std::string& key : keys) {
    const Property* property = plain.find(key);
    const Value right = property == nullptr ? Value() : valueOf(*property);
    const Value value = plain.real->accountPropertyForKey(key);
    if (value == right) continue;
    require(false, plain.id() + " has " + key + "=" + describe(value) + ", not " + describe(right));
  }
  require(plain.real->parentAccount() == (plain.parent ? plain.parent->real : nullptr), "another parent");
  require(plain.real->originalProperties() == valueOf(plain.original), "other original properties");
}

void compare(const PlainStore& store) {
  requireTwins(store.ordered, *store.real->allBasicAccounts());
  for (const std::string& id : ids) {
    requireTwins(store.account(id), store.real->accountWithIdentifier(id));
    requireTwins(store.child(id), store.real->childAccountWithIdentifier(id));
  }
  for (const RecordPtr& child : store.children) compare(*child);
  // Whose child a record is that the program has given another parent, a query need not know.
  const bool areAllAtHome = std::all_of(store.children.begin(), store.children.end(), [&](const auto& child) {
    return store.parentIDOf(child->id()) == child->parent->id();
  });
  for (const RecordPtr& account : store.ordered) {
    compare(*account);
    std::vector<RecordPtr> children = store.children;
    std::erase_if(children, [&](const RecordPtr& child) { return child->parent != account; });
    if (areAllAtHome) requireTwins(children, store.real->childrenOfAccount(account->real));
  }
}

/// Steps over three stores of one registry, done by the library and by the model.
class Sequence {
 public:
  explicit Sequence(const TemporaryDevice& device) : device_(device) {}

  /// One step for each seed, which decides all that is drawn for it, so that the sequence can be played
  /// without some of its steps. The result is what was done and what differs then, or empty.
  std::string play(const std::vector<unsigned>& seeds) {
    std::filesystem::remove(device_.registryPath());
    for (const unsigned seed : seeds) {
      lots_.seed(seed);
      say("\n  ");
      try {
        step();
        for (const PlainStore& store : stores_) {
          if (store.real) compare(store);
        }
        for (const RecordPtr& record : held_) compare(*record);
      } catch (const std::exception& error) {
        return said_ + "\nthen: " + error.what();
      }
    }
    return {};
  }

 private:
  std::size_t below(std::size_t count) { return (lots_() >> 8U) % count; }
  const std::string& oneOf(const StringList& list) { return list[below(list.size())]; }
  std::string nameOf(const RecordPtr& record) const {
    const auto found = std::find(held_.begin(), held_.end(), record);
    return record->id() + "#" + std::to_string(found - held_.begin());
  }
  void say(const std::string& text) { said_ += text; }

  PlainPtr newAccount(std::size_t firstID) {
    PlainPtr account(Plain{{{"Type", oneOf(types)},
                            {"Class", "X"},
                            {"Identifier", ids[firstID + below(4)]},
                            {"DisplayName", oneOf(words)}}});
    if (below(2) == 0) account->entries[enabledKey] = StringList{oneOf(dataclassNames)};
    return account;
  }

  PlainList newChildren() {
    PlainList children;
    for (std::size_t count = below(4); count > 0; --count) {
      children.push_back(newAccount(below(3)));
      if (below(8) == 0) children.back()->entries.erase("Class");
    }
    return children;
  }

  /// A record of the store, one that the program holds, or a new one.
  RecordPtr pick(const PlainStore& store) {
    std::vector<RecordPtr> all = held_;
    all.insert(all.end(), store.ordered.begin(), store.ordered.end());
    all.insert(all.end(), store.children.begin(), store.children.end());
    all.push_back(std::make_shared<Record>(*newAccount(0)));
    const RecordPtr picked = all[below(all.size())];
    if (!picked->real) picked->real = BasicAccount::accountWithProperties(valueOf(picked->properties));
    if (std::find(held_.begin(), held_.end(), picked) != held_.end()) return picked;
    held_.push_back(picked);
    say("(" + nameOf(picked) + " is " + describe(valueOf(picked->properties)) + ") ");
    return picked;
  }

  Dictionary registry() const { return {{"Accounts", valueOf(Property(file_))}, {"Version", 12}}; }
  void addByHand() {
    file_.push_back(newAccount(0));
    if (below(3) != 0) file_.back()->entries[childrenKey] = newChildren();
    say("another program adds " + describe(valueOf(file_.back())));
    device_.writePropertyList(device_.registryPath(), registry());
  }

  void save(PlainStore& store) {
    say("save");
    store.save(file_);
    store.real->saveAllAccounts();
    const Result<Dictionary> root = readDictionaryFile(device_.registryPath());
    if (root && *root == registry()) return;
    require(false, (root ? describe(*root) : root.error().message) + " is no " + describe(registry()));
  }

  void changeRecord(const RecordPtr& record, const RecordPtr& other) {
    const std::string& key = keys[below(4)];
    const std::string& word = oneOf(words);
    switch (below(6)) {
      case 0:
        say("remove " + key + " of " + nameOf(record));
        if (key == "Type") return;  // a record without one is of no more use
        record->real->removeAccountPropertyForKey(key);
        record->properties->entries.erase(key);
        return;
      case 1:
      case 2:
        for (const Record* ancestor = other.get(); ancestor != nullptr; ancestor = ancestor->parent.get()) {
          if (ancestor == record.get()) return;
        }
        say(nameOf(record) + " gets the parent " + nameOf(other));
        record->real->setParentAccount(other->real);
        record->parent = other;
        return;
      case 3:
        return changeList(record);
      default:
        say("set " + key + " of " + nameOf(record) + " to " + word);
        record->real->setAccountPropertyForKey(word, key);
        if (key != "Class" && key != "Type") record->properties->entries[key] = word;
    }
  }

  void changeList(const RecordPtr& record) {
    auto& entries = record->properties->entries;
    if (below(2) == 0) {
      const Property list = newChildren();
      say("set the children of " + nameOf(record) + " to " + describe(valueOf(list)));
      record->real->setAccountPropertyForKey(valueOf(list), childrenKey);
      entries[childrenKey] = list;
      return;
    }
    const std::string& name = oneOf(dataclassNames);
    const bool isOn = below(2) == 0;
    say((isOn ? "enable " : "disable ") + name + " of " + nameOf(record));
    record->real->setEnabledForDataclass(isOn, name);
    auto& list = std::get<StringList>(entries.try_emplace(enabledKey, StringList()).first->second);
    if (!isOn) std::erase(list, name);
    if (isOn && !contains(list, name)) list.push_back(name);
  }

  void changeStore(PlainStore& store, const RecordPtr& record, const RecordPtr& other) {
    switch (below(5)) {
      case 0:
        say("insert " + nameOf(record));
        store.insert(record);
        return store.real->insertAccount(record->real);
      case 1:
        say("update " + nameOf(record));
        store.update(record);
        return store.real->updateAccount(record->real);
      case 2:
        say("delete " + nameOf(record));
        store.remove(record);
        return store.real->deleteAccount(record->real);
      case 3:
        say("delete by the identifier of " + nameOf(record));
        if (store.byID.contains(record->id())) store.remove(record);
        return store.real->deleteAccountWithIdentifier(record->id());
      default:
        say("replace " + nameOf(record) + " by " + nameOf(other));
        const bool isThere = store.replace(record, other);
        try {
          store.real->replaceAccountWithAccount(record->real, other->real);
          require(isThere, "what is not there was replaced");
        } catch (const std::out_of_range&) {
          require(!isThere, "what is there was not found");
        }
    }
  }

  void changeChildren(PlainStore& store, const RecordPtr& child, const RecordPtr& parent) {
    if (wouldHoldItself(parent)) return;
    if (below(2) == 0) {
      say("take " + child->id() + " out of " + nameOf(parent));
      store.removeChild(child->id(), parent);
      store.real->removeChildWithIdentifierFromAccount(child->id(), parent->real);
    } else if (!reaches(*child->properties, parent->properties)) {
      say("add " + nameOf(child) + " to " + nameOf(parent));
      store.addChild(child, parent);
      store.real->addChildToAccount(child->real, parent->real);
    }
  }

  void replaceType(PlainStore& store) {
    std::vector<RecordPtr> given;
    for (std::size_t count = below(8); count > 0; --count) given.push_back(pick(store));
    std::vector<RecordPtr> all = store.ordered;
    all.insert(all.end(), given.begin(), given.end());
    if (std::any_of(all.begin(), all.end(), wouldHoldItself)) return;
    // Nobody must get a child that holds its new parent.
    std::erase_if(given, [&](const RecordPtr& child) {
      return child->parent && std::any_of(all.begin(), all.end(), [&](const RecordPtr& each) {
               return each != child && reaches(*child->properties, each->properties);
             });
    });
    const std::string& type = oneOf(types);
    std::vector<AccountPtr> realGiven;
    say("replace the accounts of type " + type + " by");
    for (const RecordPtr& account : given) {
      say(" " + nameOf(account));
      realGiven.push_back(account->real);
    }
    store.replaceType(type, given);
    store.real->replaceAccountsWithTypesWithAccounts({type}, realGiven);
  }

  void step() {
    if (below(file_.size() < 3 ? 3 : 12) == 0) return addByHand();
    const std::size_t number = below(stores_.size());
    PlainStore& store = stores_[number];
    say("store " + std::to_string(number) + ": ");
    const std::size_t operation = below(12);
    if (!store.real || operation == 0) {
      say("load");
      store.load(file_);
      store.real = AccountsManager::init();
      return;
    }
    if (operation < 3) return save(store);
    if (operation < 6) return replaceType(store);
    const RecordPtr record = pick(store);
    const RecordPtr other = pick(store);
    if (operation < 8) return changeRecord(record, other);
    if (operation < 10) return changeChildren(store, record, other);
    changeStore(store, record, other);
  }

  const TemporaryDevice& device_;
  std::minstd_rand lots_;
  PlainList file_;
  std::vector<PlainStore> stores_{3};
  /// The records that the program holds, in stores or in none.
  std::vector<RecordPtr> held_;
  std::string said_;
};

class StoreModelTest : public StoreTest {};

TEST_F(StoreModelTest, DoesWhatThePlainModelDoes) {
  const char* chosen = std::getenv("ROSTER_MODEL_SEED");  // NOLINT(concurrency-mt-unsafe): one thread
  const unsigned first = chosen == nullptr ? 1 : static_cast<unsigned>(std::stoul(chosen));
  for (unsigned seed = first; seed < first + (chosen == nullptr ? ROSTER_TEST_SEQUENCES : 1); ++seed) {
    log.clear();
    std::mt19937 lots(seed);
    std::vector<unsigned> steps(4 + lots() % 24);
    std::generate(steps.begin(), steps.end(), lots);
    if (Sequence(device).play(steps).empty()) continue;
    for (std::size_t index = 0; index < steps.size();) {
      std::vector<unsigned> fewer = steps;
      fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(index));
      const bool isNeeded = Sequence(device).play(fewer).empty();
      if (!isNeeded) steps = fewer;
      index += isNeeded ? 1 : 0;
    }
    FAIL() << "ROSTER_MODEL_SEED=" << seed << Sequence(device).play(steps);
  }
}

}  // namespace
}  // namespace roster::testing
