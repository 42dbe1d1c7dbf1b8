#include "tests/store/model_world.h"

namespace roster::testing::model {

static constexpr const char* accountIDs[] = {"A", "B", "C", "1", "2"};
static constexpr const char* childIDs[] = {"1", "2", "3", "A"};
static constexpr const char* lists[] = {"Mail",     "Mail Notes",   "",
                                        "z.z Mail", "Contacts y.y", "Notes Contacts Mail z.z"};

void World::addChildOutside(Account& account, const Step& step) {
  const std::string id = childIDs[step.b % 4];
  for (const Account& each : file_.accounts) {
    for (const Account& child : each.childList()) {
      if (child.id == id) return;
    }
  }
  if (!account.children) account.children.emplace();
  const bool isText = step.n % 6 == 0;
  const bool isNameless = step.n % 6 == 1;
  account.children->push_back({isText || isNameless ? "" : id, {{isText ? "text" : "x", "o" + id}}, {}});
  if (step.n % 6 == 2) account.children->back().properties["Type"] = "lost";
}

void World::damage(const Step& step) {
  Registry& accounts = file_.accounts;
  accounts = withoutDuplicates(accounts);
  if (!accounts.empty() && step.b % 2 == 0)
    accounts.erase(accounts.begin() + static_cast<std::ptrdiff_t>(step.a % accounts.size()));
  for (Account& account : accounts) {
    if (step.n % 3 == 0) account.properties.erase("x");
    if (step.n % 3 == 1) account.children.reset();
  }
  accounts.push_back({"", {{std::string(notADictionary), "damage"}}, {}});
}

void World::performOutside(const Step& step) {
  if (file_.isMissing || file_.isGarbage) file_ = {false, false, {}};
  Registry& accounts = file_.accounts;
  const std::string id = accountIDs[step.a % 5];
  const std::string value = "o" + std::to_string(++values_);
  Account* chosen = accounts.empty() ? nullptr : &accounts[step.a % accounts.size()];
  const bool isNamed = chosen != nullptr && !chosen->id.empty();
  if (step.op == Op::outsideAdd) {
    if (step.n % 16 != 0 && find(accounts, id) != nullptr) return;
    accounts.push_back({id, {{"x", value}, {"enabled", lists[step.b % 6]}}, {}});
    if (step.n % 8 == 0) accounts.back().properties["state"] = "broken";
  } else if (step.op == Op::outsideAddNameless) {
    accounts.push_back({"", {{"x", "n" + std::to_string(step.a % 2)}, {"enabled", "Mail"}}, {}});
  } else if (step.op == Op::outsideAddUnusable) {
    accounts.push_back({"U" + value, {{step.a % 2 == 0 ? "Type" : "state", "lost"}}, {}});
  } else if (step.op == Op::outsideRemove) {
    if (chosen != nullptr) accounts.erase(accounts.begin() + (chosen - accounts.data()));
  } else if (step.op == Op::outsideSet) {
    if (isNamed)
      chosen->properties[step.b % 2 == 0 ? "x" : "enabled"] = step.b % 2 == 0 ? value : lists[step.n % 6];
  } else if (step.op == Op::outsideChild) {
    if (isNamed) addChildOutside(*chosen, step);
  } else if (step.op == Op::damage) {
    damage(step);
  } else {
    accounts.clear();
    file_.isGarbage = step.op == Op::garbage;
    file_.isMissing = step.op == Op::remove;
  }
  tell("somebody writes" + std::string(file_.isMissing   ? " no file"
                                       : file_.isGarbage ? " garbage"
                                                         : "\n" + textOf(accounts)));
  writeFile();
}

AccountPtr World::made(const std::string& id) {
  const Account account{id, {{"x", "v" + std::to_string(++values_)}, {"enabled", "Mail"}}, {}};
  return BasicAccount::accountWithProperties(*valueOf(account, names_).dictionary());
}

void World::eraseAll(Program& program, const String& id) const {
  const auto records = program.store->allBasicAccounts()->span();
  for (const AccountPtr& each : std::vector<AccountPtr>(records.begin(), records.end())) {
    if (each->identifier() == id) program.store->deleteAccount(each);
  }
}

void World::note(const std::string& what, const std::string& by, const std::string& value) {
  set_[what][by] = value;
}

/// What a program does with its own records; the model takes it from memory. Returns what was done.
std::string World::changeAccount(Program& program, const AccountPtr& account, const Step& step) {
  if (step.op == Op::insert) {
    const std::string id = accountIDs[step.a % 5];
    note(id, "", "");
    for (const char* inserted : {"here", "there"}) note(id + " x", inserted, "");  // as any of them has it
    program.store->insertAccount(made(id));
    return "inserts " + id;
  }
  if (!account) return {};
  const std::string name = names_.named(account->identifier().str());
  if (step.op == Op::erase) {
    eraseAll(program, account->identifier());
    return "deletes " + name;
  }
  if (step.op == Op::lists) {
    const Value list = step.n % 7 == 6 ? Value() : dataclassArray(lists[step.n % 6]);
    const auto key = step.b % 2 == 0 ? kAccountEnabledDataclasses : kAccountProvisionedDataclasses;
    account->setAccountPropertyForKey(list, key);
    return "sets a list of " + name;
  }
  const std::string key = step.b % 2 == 0 ? "x" : "y";
  const std::string value = step.n % 8 == 0 ? "same" : "v" + std::to_string(++values_);
  account->setAccountPropertyForKey(step.op == Op::set ? Value(value) : Value(), key);
  if (step.op == Op::set) note(name + " " + key, nameOf(program), value);
  return (step.op == Op::set ? "sets " : "unsets ") + key + " of " + name;
}

std::string World::move(Program& program, const AccountPtr& account, const AccountPtr& child,
                        const Step& step) {
  const Store& store = program.store;
  const AccountPtr other =
      store->accountWithIdentifier(store->allBasicAccounts()->at(step.b % store->count())->identifier());
  const AccountPtr moved = child ? child : account;
  if (!child && account == other) return {};
  for (const Account& each : memoryOf(program).accounts) {
    for (const Account& known : each.childList()) {
      if (!child && known.id == names_.named(moved->identifier().str())) return {};
    }
  }
  const bool isUp = child && step.b % 3 == 0;
  const AccountPtr record =
      BasicAccount::accountWithProperties(*Value(moved->properties()).deepCopy().dictionary());
  if (child)
    store->removeChildWithIdentifierFromAccount(child->identifier(), account);
  else
    eraseAll(program, account->identifier());
  if (isUp)
    store->insertAccount(record);
  else
    store->addChildToAccount(record, other);
  return "moves " + names_.named(moved->identifier().str()) +
         (isUp ? " to the top" : " below another account");
}

std::string World::changeChildren(Program& program, const AccountPtr& account, const Step& step) {
  if (!account) return {};
  const Store& store = program.store;
  const std::string parent = names_.named(account->identifier().str());
  if (step.op == Op::addChild) {
    const std::string id = childIDs[step.b % 4];
    for (const Account& each : memoryOf(program).accounts) {
      for (const Account& child : each.childList()) {
        if (child.id == id) return {};
      }
    }
    note(id, "", "");
    store->addChildToAccount(made(id), account);
    return "adds " + id + " to " + parent;
  }
  std::vector<AccountPtr> children = store->childrenOfAccount(account);
  std::erase_if(children, [](const AccountPtr& each) { return each->identifier().str().size() == 36; });
  const AccountPtr child = children.empty() ? nullptr : children[step.n % children.size()];
  if (step.op == Op::move) return move(program, account, child, step);
  if (!child) return {};
  if (step.op == Op::removeChild) {
    store->removeChildWithIdentifierFromAccount(child->identifier(), account);
    return "removes " + child->identifier().str() + " from " + parent;
  }
  std::vector<Value> elements;
  for (const Value& element : elementsOf(account->accountPropertyForKey(kAccountChildAccounts))) {
    elements.push_back(element);
    const std::optional<Dictionary> properties = element.dictionary();
    if (!properties || !(properties->find(kAccountIdentifier).string() == child->identifier())) continue;
    auto changed = MutableDictionary::copyOf(*properties);
    changed.set(step.b % 2 == 0 ? "x" : "y", "v" + std::to_string(++values_));
    elements.back() = Value(changed).deepCopy();
  }
  account->setAccountPropertyForKey(Array(std::move(elements)), kAccountChildAccounts);
  store->updateAccount(account);
  return "changes " + child->identifier().str() + " of " + parent;
}

void World::performInside(Program& program, const Step& step) {
  const Store& store = program.store;
  // Of several with one identifier the one that is found.
  const AccountPtr any =
      store->count() == 0 ? nullptr : store->allBasicAccounts()->at(step.a % store->count());
  const AccountPtr account = any ? store->accountWithIdentifier(any->identifier()) : nullptr;
  const bool isAboutChildren = step.op >= Op::addChild;
  const std::string what =
      isAboutChildren ? changeChildren(program, account, step) : changeAccount(program, account, step);
  if (!what.empty()) tell(nameOf(program) + " " + what + "\n" + textOf(memoryOf(program).accounts));
}

void World::perform(const Step& step) {
  constexpr Op harmless[] = {Op::insert, Op::set, Op::lists, Op::addChild, Op::refresh, Op::sync, Op::rest};
  const bool isAnyLoaded = programs_[0].store || programs_[1].store || programs_[2].store;
  if (std::find(std::begin(harmless), std::end(harmless), step.op) == std::end(harmless) &&
      (isAnyLoaded || step.op > Op::outsideAdd))
    isAnythingTakenAway_ = true;
  Program& program = programs_[step.program];
  if (step.op < Op::load) return performOutside(step);
  if (step.op == Op::rest) return comeToRest();
  if (!program.store || step.op == Op::load) load(program);
  Program& other = programs_[(step.program + 1 + step.b % 2) % programs_.size()];
  constexpr Trouble troubles[] = {Trouble::beforeRename, Trouble::afterRename, Trouble::meddler};
  const Trouble trouble = step.n % 8 < 3 ? troubles[step.n % 8] : Trouble::none;
  if (step.op == Op::refresh) {
    refresh(program);
  } else if (step.op == Op::sync) {
    if (trouble == Trouble::meddler) isAnythingTakenAway_ = true;
    if (trouble == Trouble::meddler && !other.store) load(other);
    sync(program, trouble, step.a % 8 == 0, &other);
  } else if (step.op == Op::save) {
    save(program, trouble == Trouble::meddler ? Trouble::none : trouble);
  } else if (step.op != Op::load) {
    performInside(program, step);
  }
}

/// When all have synced twice, all have the same, and nothing is left to do.
void World::comeToRest() {
  for (int round = 0; round < 3; ++round) {
    for (Program& program : programs_) {
      if (!program.store) load(program);
      const bool isAnythingDone = sync(program, Trouble::none, true, nullptr);
      if (round == 2) {
        require(!isAnythingDone || hasDuplicates(file_.accounts), "they do not come to rest");
        Registry usable = file_.accounts;
        std::erase_if(usable, [](const Account& account) { return !File::isUsable(account); });
        Registry memory = memoryOf(program).accounts;
        for (Registry* each : {&usable, &memory}) {
          for (Account& account : *each) {
            if (account.id.starts_with("?")) account.id.clear();
            if (account.find("state")) account.properties["state"] = "mended";
          }
        }
        compare(usable, memory, "at rest, the memory of " + nameOf(program));
      }
    }
  }
  if (!isAnythingTakenAway_) checkNothingIsLost();
}

/// Asks no model: what was added and what one program alone has set is there.
void World::checkNothingIsLost() const {
  const Places places = placesOf(file_.accounts);
  for (const auto& [what, values] : set_) {
    const std::string id = what.substr(0, what.find(' '));
    const auto place =
        std::find_if(places.begin(), places.end(), [&](const Place& each) { return each.account.id == id; });
    require(place != places.end(), id + " is lost");
    if (id == what || values.size() > 1 || !place->parent.empty()) continue;
    require(place->account.find(what.substr(id.size() + 1)) == values.begin()->second, what + " is lost");
  }
}

}  // namespace roster::testing::model
