#include "tests/store/model_world.h"

namespace roster::testing::model {

Memory World::memoryOf(const Program& program) const {
  Memory memory;
  for (const AccountPtr& record : *program.store->allBasicAccounts()) {
    memory.accounts.push_back(accountOf(SavedProperties::of(*record), names_));
    memory.originals[memory.accounts.back().id] = accountOf(record->originalProperties(), names_);
    memory.records.insert(memory.accounts.back().id);
    for (const AccountPtr& child : program.store->childrenOfAccount(record)) {
      memory.records.insert(names_.named(child->identifier().str()));
      memory.originals.emplace(names_.named(child->identifier().str()), Account());
    }
  }
  return memory;
}

/// The file's accounts as a program knows them; `elements` becomes everything that is in the file.
Registry World::read(Program& program, Memory& memory, Registry& elements) {
  std::vector<Nameless> known = program.nameless;
  std::vector<Nameless> nameless;
  Registry theirs;
  elements = file_.isMissing || file_.isGarbage ? Registry() : file_.accounts;
  for (Account& account : elements) {
    if (!File::isUsable(account)) continue;
    if (account.id.empty()) {
      const auto found = std::find_if(known.begin(), known.end(),
                                      [&](const Nameless& each) { return each.stored == account; });
      nameless.push_back({found == known.end() ? names_.draw() : found->name, account});
      if (found != known.end()) known.erase(found);
      account.id = nameless.back().name;
    }
    if (account.find("state") == "broken") account.properties["state"] = "mended";
    theirs.push_back(account);
  }
  // Those that somebody has given a name.
  std::set<std::string> ids;
  for (const Place& place : program.base) {
    if (place.parent.empty()) ids.insert(place.account.id);
  }
  for (const Nameless& each : nameless) ids.insert(each.name);
  for (const Nameless& each : known) {
    const auto named = std::find_if(theirs.begin(), theirs.end(), [&](Account account) {
      if (ids.contains(account.id)) return false;
      account.id.clear();
      return account == each.stored;
    });
    if (named == theirs.end()) continue;
    ids.insert(named->id);
    const auto rename = [&](Account& account) {
      if (account.id == each.name) account.id = named->id;
    };
    for (Account& account : memory.accounts) rename(account);
    for (Account& account : program.told) rename(account);
    for (Place& place : program.base) rename(place.account);
    for (Place& place : program.base) {
      if (place.parent == each.name) place.parent = named->id;
    }
    if (memory.records.contains(each.name)) {
      memory.records.insert(named->id);
      memory.originals[named->id] = memory.originals[each.name];
    }
  }
  program.nameless = nameless;
  return theirs;
}

Refreshed World::bringIn(Program& program, Memory& memory) {
  Registry elements;
  Registry theirs = read(program, memory, elements);
  if (!file_.isWhole()) theirs = completed(program.base, theirs);
  const Merge merge(memory.accounts, program.base, theirs);
  Refreshed result;
  result.memory.accounts = merge.registry();
  const Places base = merge.base();
  result.memory = keepOriginals(memory, result, withoutDuplicates(theirs), program.base, base);
  program.told = Merge(program.told, program.base, theirs).registry();
  program.base = base;

  const Registry file = withoutDuplicates(elements);
  std::set<std::string> written;
  for (const Account& element : file) {
    const Account* account = find(result.memory.accounts, element.id);
    if (File::isUsable(element)) {
      if (account == nullptr) continue;
      result.written.push_back(*account);
      written.insert(account->id);
    } else if (!File::isNoDictionary(element)) {
      result.written.push_back(element);
    }
  }
  for (const Account& account : result.memory.accounts) {
    if (!written.contains(account.id)) result.written.push_back(account);
  }
  // Of a file that is missing the others can only hear what was deleted when there is one again.
  const bool isAnyDeleted = file_.isMissing && !(result.memory.accounts == theirs);
  result.isToBeWritten = file_.isDamaged() || !(result.written == file) || isAnyDeleted;
  return result;
}

/// What is in the file counts as original from then on; what only memory has stays as it was.
Memory World::keepOriginals(const Memory& memory, const Refreshed& result, const Registry& theirs,
                            const Places& formerBase, const Places& base) {
  const auto topLevel = [](const Places& places, const std::string& id) -> const Account* {
    for (const Place& place : places) {
      if (place.parent.empty() && place.account.id == id) return &place.account;
    }
    return nullptr;
  };
  Memory kept = memory;
  kept.accounts = result.memory.accounts;
  for (const Account& account : kept.accounts) {
    const Account* mine = find(memory.accounts, account.id);
    const Account* there = find(theirs, account.id);
    const Account* before = topLevel(formerBase, account.id);
    const bool isSettled = mine && there && before && *mine == *before && *there == *before;
    if (!there && !memory.records.contains(account.id))
      kept.originals[account.id] = account;
    else if (there && isSettled)
      kept.originals.erase(account.id);  // nobody need look at it
    else if (there)
      kept.originals[account.id] = *topLevel(base, account.id);
    kept.records.insert(account.id);
  }
  return kept;
}

/// What a plain save writes: it takes from the file what was not changed since the record was loaded or
/// saved.
Registry World::saved(const Memory& memory) const {
  Registry result;
  for (const Account& mine : memory.accounts) {
    const Account* there = file_.isMissing || file_.isGarbage ? nullptr : find(file_.accounts, mine.id);
    if (there == nullptr || there->find("Type")) {
      result.push_back(mine);
      continue;
    }
    const Account& original = memory.originals.at(mine.id);
    Account merged = *there;
    for (const auto& [key, value] : mine.properties) {
      if (original.find(key) != value) merged.properties[key] = value;
    }
    for (const auto& [key, value] : original.properties) {
      if (!mine.find(key)) merged.properties.erase(key);
    }
    if (!(mine.children == original.children)) merged.children = mine.children;
    result.push_back(merged);
  }
  return result;
}

void World::load(Program& program) {
  program = Program();
  program.store = CustomStore::load({ScriptedFixer([](const AccountPtr& account) {
    const Value state = account->accountPropertyForKey("state");
    if (state == Value("lost")) return FixResult::unrepairable;
    if (!(state == Value("broken"))) return FixResult::nothingDone;
    account->setAccountPropertyForKey("mended", "state");
    return FixResult::repaired;
  })});
  Memory memory;
  Registry elements;
  memory.accounts = read(program, memory, elements);
  program.isUnseen = !file_.isMissing && file_.isDamaged();
  program.told = withoutDuplicates(memory.accounts);
  program.base = placesOf(program.told);
  tell(nameOf(program) + " loads");
  compare(memory.accounts, memoryOf(program).accounts, "memory");
}

std::map<std::string, AccountPtr> World::records(const Program& program) const {
  std::map<std::string, AccountPtr> records;
  for (const AccountPtr& record : *program.store->allBasicAccounts()) {
    records[names_.named(record->identifier().str())] = record;
  }
  // An account and a child may share an identifier: which is which is checked elsewhere.
  for (const AccountPtr& record : *program.store->allBasicAccounts()) {
    for (const Account& child : accountOf(record->properties(), names_).childList()) {
      const auto [known, isNew] =
          records.emplace(child.id, program.store->childAccountWithIdentifier(names_.drawn(child.id)));
      if (!isNew) known->second = nullptr;
    }
  }
  return records;
}

void World::checkIdentity(const Program& program, const std::map<std::string, AccountPtr>& before) const {
  for (const auto& [id, record] : records(program)) {
    const auto known = before.find(id);
    if (known == before.end() || !record || !known->second) continue;
    require(known->second == record, "the record of " + id + " is another one");
  }
}

/// Memory is as it should be, and whatever it is asked by agrees.
void World::check(const Program& program, const Memory& memory) {
  const Store& store = program.store;
  compare(memory.accounts, memoryOf(program).accounts, "memory");
  const Memory now = memoryOf(program);
  if (hasDuplicates(now.accounts)) return;
  std::size_t children = 0;
  for (std::size_t i = 0; i < now.accounts.size(); ++i) {
    const Account& account = now.accounts[i];
    const AccountPtr record = store->allBasicAccounts()->at(i);
    require(store->accountWithIdentifier(names_.drawn(account.id)) == record, account.id + " is not found");
    require(!record->parentAccount(), account.id + " has a parent");
    if (memory.originals.contains(account.id)) {
      Account wanted = memory.originals.at(account.id);
      Account original = now.originals.at(account.id);
      for (Account* each : {&wanted, &original}) {
        each->id.clear();  // it may have come later
        if (each->find("state")) each->properties["state"] = "mended";
      }
      require(wanted == original || hasDuplicates({wanted}),
              "the original of " + account.id + " is " + textOf(original) + " and not " + textOf(wanted));
    }
    const std::vector<AccountPtr> listed = store->childrenOfAccount(record);
    children += listed.size();
    auto next = listed.begin();
    for (const Account& child : account.childList()) {
      if (File::isNoDictionary(child) || child.find("Type")) continue;
      require(next != listed.end(), account.id + " has too few children");
      const AccountPtr found = *next++;
      require(found->parentAccount() == record, child.id + " has another parent");
      if (child.id.empty()) continue;
      require(store->childAccountWithIdentifier(names_.drawn(child.id)) == found, child.id + " is not found");
      require(accountOf(SavedProperties::of(*found), names_) == child, child.id + " has other properties");
    }
    require(next == listed.end(), account.id + " has too many children");
  }
  require(store->allBasicSyncableAccounts().size() == now.accounts.size() + children, "there are others");
}

void World::expectHeard(const Texts& expected) {
  Texts heard = std::exchange(heard_, {});
  for (std::string& each : heard) each = each.substr(0, 2) + names_.named(each.substr(2));
  std::sort(heard.begin(), heard.end());
  Texts wanted = expected;
  std::sort(wanted.begin(), wanted.end());
  require(heard == wanted, "notifiers heard [" + joined(heard) + "] and not [" + joined(wanted) + "]");
}

static Texts textsOf(const std::vector<AccountChange>& changes, const Names& names) {
  Texts texts;
  for (const AccountChange& change : changes) {
    texts.push_back(std::to_string(change.type) + " " + names.named(change.identifier().str()));
  }
  return texts;
}

static void requireChanges(Texts found, Texts expected, bool isOrderCertain) {
  if (!isOrderCertain) {
    std::sort(found.begin(), found.end());
    std::sort(expected.begin(), expected.end());
  }
  require(found == expected, "brought in [" + joined(found) + "] and not [" + joined(expected) + "]");
}

void World::refresh(Program& program) {
  tell(nameOf(program) + " refreshes");
  Memory before = memoryOf(program);
  const auto known = records(program);
  if (file_.isGarbage) {
    require(!program.store->refresh(), "garbage was refreshed from");
    return check(program, before);
  }
  const Refreshed expected = bringIn(program, before);
  const Result<std::vector<AccountChange>> done = program.store->refresh();
  require(bool(done), "failed");
  if (file_.isWhole()) program.isUnseen = false;
  check(program, expected.memory);
  if (!hasDuplicates(before.accounts) && !hasDuplicates(memoryOf(program).accounts))
    requireChanges(textsOf(*done, names_), changes(before.accounts, expected.memory.accounts), true);
  checkIdentity(program, known);
  expectHeard({});
  Memory now = memoryOf(program);
  const Result<std::vector<AccountChange>> again = program.store->refresh();
  require(again && again->empty(), "a second refresh brings something");
  bringIn(program, now);
  check(program, now);
}

/// Returns whether anything was brought in or written.
bool World::sync(Program& program, Trouble wanted, bool isForced, Program* other) {
  const bool isAnyTwice = hasDuplicates(memoryOf(program).accounts) || hasDuplicates(file_.accounts) ||
                          (wanted == Trouble::meddler && hasDuplicates(memoryOf(*other).accounts));
  const bool isAnyNameless = std::any_of(file_.accounts.begin(), file_.accounts.end(),
                                         [](const Account& a) { return a.id.empty(); });
  const bool isPlain = isAnyTwice || (wanted == Trouble::meddler && isAnyNameless);
  const Trouble trouble = isPlain ? Trouble::none : wanted;
  tell(nameOf(program) + " syncs" + (isForced ? " by force" : "") +
       (trouble == Trouble::beforeRename  ? ", and cannot write"
        : trouble == Trouble::afterRename ? ", and cannot sync the folder"
        : trouble == Trouble::meddler     ? ", while " + nameOf(*other) + " saves"
                                          : ""));
  Memory before = memoryOf(program);
  const auto known = records(program);
  Refreshed expected = bringIn(program, before);
  Texts heard;
  bool isRefused = program.isUnseen && !file_.isMissing && file_.isDamaged() && !isForced;
  if (trouble == Trouble::meddler && expected.isToBeWritten && !isRefused) {
    const Memory others = memoryOf(*other);
    file_ = {false, false, saved(others)};
    const Registry now = withoutDuplicates(others.accounts);
    heard = heardOf(other->told, now);
    other->told = now;
    other->base = placesOf(now);
    other->isUnseen = false;
    expected = bringIn(program, expected.memory);
    isRefused = false;
  }
  meddler() = [other] { other->store->saveAllAccounts(); };
  SyncResult result;
  {
    const FileCallsOverride calls(callsWith(trouble));
    result = program.store->sync(std::chrono::seconds(5), {.replacesDamagedRegistry = isForced});
  }
  if (file_.isWhole()) program.isUnseen = false;
  // Duplicates go when somebody looks at their account, which may be now or later.
  const bool isTried = !isRefused && (isAnyTwice ? result.isWritten : expected.isToBeWritten);
  const bool isWritten = isTried && trouble != Trouble::beforeRename;
  if (isWritten) {
    file_ = {false, false, expected.written};
    program.base = placesOf(expected.memory.accounts);
    program.nameless.clear();
    program.isUnseen = false;
    for (const Account& account : expected.memory.accounts) expected.memory.originals[account.id] = account;
  }
  const bool isFailure =
      isRefused || (isTried && (trouble == Trouble::beforeRename || trouble == Trouble::afterRename));
  require(result.error.has_value() == isFailure, result.error ? result.error->message : "did not fail");
  check(program, expected.memory);
  require(result.isWritten == isWritten, isWritten ? "nothing is written" : "written needlessly");
  if (!hasDuplicates(before.accounts) && !hasDuplicates(memoryOf(program).accounts))
    requireChanges(textsOf(result.changes, names_), changes(before.accounts, expected.memory.accounts),
                   trouble != Trouble::meddler);
  if (trouble != Trouble::meddler) checkIdentity(program, known);  // else one may go and come
  checkFile();
  if (isWritten || !isFailure) {
    const Texts own = heardOf(program.told, expected.memory.accounts);
    heard.insert(heard.end(), own.begin(), own.end());
    program.told = expected.memory.accounts;
  }
  expectHeard(heard);
  return result.isWritten || !result.changes.empty();
}

void World::save(Program& program, Trouble trouble) {
  tell(nameOf(program) + " saves" +
       (trouble == Trouble::none           ? ""
        : trouble == Trouble::beforeRename ? ", and cannot write"
                                           : ", and cannot sync the folder"));
  Memory memory = memoryOf(program);
  const Registry accounts = withoutDuplicates(memory.accounts);
  if (trouble != Trouble::beforeRename) {
    file_ = {false, false, saved(memory)};
    program.base = placesOf(accounts);
  }
  {
    const FileCallsOverride calls(callsWith(trouble));
    program.store->saveAllAccounts();
  }
  require(program.store->lastSaveError().has_value() == (trouble != Trouble::none), "not as it should end");
  checkFile();
  if (trouble == Trouble::none) {
    expectHeard(heardOf(program.told, accounts));
    program.told = accounts;
    program.isUnseen = false;
    for (const Account& account : accounts) memory.originals[account.id] = account;
  }
  check(program, memory);
}

}  // namespace roster::testing::model
