#include "tests/store/store_test.h"
#include "tests/support/creators_table.h"

namespace roster::testing {
namespace {

Dictionary of(std::string_view type, std::string_view identifier, const Value& children = {}) {
  return stored(identifier, {{"Type", type}, {"ChildAccounts", children}});
}

class FullAccountsTest : public CreatorsTableTest {
 protected:
  FullAccountsTest() {
    registerCreator("None", {.accountWithBasicAccount = [](const AccountPtr&) { return nullptr; }});
    registerCreator("Actor", {.accountWithBasicAccount = [this](const AccountPtr& account) {
                      act(account->identifier().str());
                      return account;
                    }});
    MutableDictionary table;
    table.set("Broken", array(full("None")));
    for (const char* type :
         {"Acting", "T", "U", "V", "Yahoo", "IMAPNotes", "Mail", "Nuvola", "Exchange", "Gmail"})
      table.set(type, array(full("Actor")));
    writeCreators(table);
  }
  /// The identifiers of the full accounts of the types, which are the records themselves.
  std::string list(const TypeSet& types, AccountLoaderProtocol* loader = nullptr) const {
    std::vector<AccountPtr> records;
    for (const auto& account : store->accountsWithTypesWithLoader(types, loader))
      records.push_back(std::dynamic_pointer_cast<BasicAccount>(account));
    return identifiers(records);
  }
  AccountPtr child(const char* identifier) const { return store->childAccountWithIdentifier(identifier); }
  AccountPtr parent(const char* identifier) const { return store->accountWithIdentifier(identifier); }

  Store store = storeOf(array());
  /// What the creator does before it answers the record with the identifier.
  std::function<void(const std::string&)> act = [](const std::string&) {};
};

TEST_F(FullAccountsTest, AreListedWithTheMatchingChildrenBehindWhereTheParentStands) {
  store = storeOf(array(of("T", "p", array(of("U", "p1"), of("T", "p2"), of("Broken", "p3"))),
                        of("V", "q", array(of("U", "q1"))), of("T", "r"), of("Broken", "s")));
  ScriptedLoader loader(true);
  EXPECT_EQ(list({"T"}, &loader), "p p2 r");
  EXPECT_EQ(loader.asked.size(), 3U);
  EXPECT_EQ(list({"U", "T"}), "p p1 p2 q1 r");
  EXPECT_EQ(assertions, Lines());
  EXPECT_THROW(list({"T", "Broken"}), std::invalid_argument);
  EXPECT_EQ(assertions.size(), 2U) << "the child's is left out, the top-level account's is a fault";
  store->deleteAccountWithIdentifier("s");
  EXPECT_EQ(list({"T", "Broken"}), "p p2 r");
  for (const char* type : {"Yahoo", "IMAPNotes", "Mail", "Nuvola", "Exchange", "Gmail"})
    store->insertAccount(record(type, {{"Type", type}}));
  EXPECT_EQ(store->allMailAccounts(), store->accountsWithTypes({"Yahoo", "Mail", "Nuvola", "Gmail"}));
}

TEST_F(FullAccountsTest, OfChildrenStandBehindTheParentThatTheyHaveWhenItIsItsTurn) {
  const auto adopt = [this](const char* id, const char* by) { child(id)->setParentAccount(parent(by)); };
  const auto add = [this](const char* id, const char* to) {
    store->addChildToAccount(record(id, {{"Type", "Acting"}}), parent(to));
  };
  const auto orphan = [this] {
    child("d")->setParentAccount(child("d")->parentAccount() ? nullptr : parent("q"));
  };
  const std::tuple<std::string, std::function<void()>, std::string> rows[] = {
      {"", [] {}, "p c q d e"},
      {"p", [&] { adopt("c", "q"); }, "p q c d e"},
      {"p", [&] { adopt("d", "p"); }, "p c d q e"},
      {"c", [&] { adopt("e", "p"); }, "p c e q d"},
      {"c", orphan, "p c q e"},
      {"p c", orphan, "p c q d e"},
      {"p", [&] { add("c", "q"); }, "p q c d e"},
      {"c", [&] { add("n", "p"); }, "p c q d e"},
      {"c", [&] { add("n", "r"); }, "p c q d e n"},
  };
  for (const auto& [actors, move, expected] : rows) {
    SCOPED_TRACE(expected + " after acts of " + actors);
    store =
        storeOf(array(of("Acting", "p", array(of("Acting", "c"))),
                      of("Acting", "q", array(of("Acting", "d"))), of("V", "r", array(of("Acting", "e")))));
    act = [&, &doIt = move, &who = actors](const std::string& id) {
      if (who.find(id) != std::string::npos) doIt();
    };
    EXPECT_EQ(list({"Acting"}), expected);
  }
  act = [this](const std::string&) { store->insertAccount(record("inserted", {{"Type", "V"}})); };
  store = storeOf(array(of("Acting", "p", array(of("Acting", "c")))));
  EXPECT_THROW(list({"Acting"}), EnumerationMutation) << "a top-level account must not come meanwhile";
  EXPECT_EQ(list({"Acting"}), "p c") << "it is made by now";
}

class FullDeviceLocalAccountTest : public StoreTest {};

TEST_F(FullDeviceLocalAccountTest, IsAddedToAStoreThatLacksIt) {
  writeRegistry();
  const Store store = AccountsManager::init();
  const auto made = store->fullDeviceLocalAccount();
  EXPECT_NE(std::dynamic_pointer_cast<DeviceLocalAccount>(made), nullptr);
  EXPECT_EQ(store->fullDeviceLocalAccount(), made);
  EXPECT_EQ(log.lines(), Lines{"DeviceLocalAccount missing. Creating..."});
  EXPECT_EQ(root().find("Accounts"), array()) << "only a save writes it";
  store->saveAllAccounts();
  EXPECT_EQ(storedAccount(0), DeviceLocalAccount::basicAccountProperties());

  const Store complete = storeOf(array(stored("x"), stored("own", {{"Type", "OnMyDevice"}})));
  const auto found = std::dynamic_pointer_cast<BasicAccount>(complete->fullDeviceLocalAccount());
  EXPECT_EQ(found->properties(), complete->accountWithIdentifier("own")->properties());
}

}  // namespace
}  // namespace roster::testing
