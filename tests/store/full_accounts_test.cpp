#include "tests/store/store_test.h"
#include "tests/support/creators_table.h"

namespace roster::testing {
namespace {

Dictionary of(std::string_view type, std::string_view identifier, const Value& children = {}) {
  return stored(identifier, {{"Type", type}, {"ChildAccounts", children}});
}
/// The identifiers of full accounts that are the records themselves.
std::string names(const std::vector<AccountsManager::FullAccount>& accounts) {
  std::vector<AccountPtr> records;
  for (const auto& account : accounts) records.push_back(std::dynamic_pointer_cast<BasicAccount>(account));
  return identifiers(records);
}

class FullAccountsTest : public CreatorsTableTest {
 protected:
  FullAccountsTest() {
    const auto none = [](const AccountPtr&) { return nullptr; };
    const auto meddle = [this](const AccountPtr& account) {
      store->insertAccount(record("inserted", {{"Type", "V"}}));
      return account;
    };
    const auto adopt = [this](const AccountPtr& account) {
      store->addChildToAccount(record("adopted", {{"Type", "U"}}), store->accountWithIdentifier("q"));
      return account;
    };
    const auto perform = [this](const AccountPtr& account) {
      act(account);
      return account;
    };
    registerCreator("Actor", {.accountWithBasicAccount = perform});
    registerCreator("Adopter", {.accountWithBasicAccount = adopt});
    registerCreator("None", {.accountWithBasicAccount = none});
    registerCreator("Meddler", {.accountWithBasicAccount = meddle});
    auto table = MutableDictionary::copyOf(Dictionary{{"Broken", array(full("None"))},
                                                      {"Meddling", array(full("Meddler"))},
                                                      {"Acting", array(full("Actor"))},
                                                      {"Adopting", array(full("Adopter"))}});
    for (const std::string_view type : selfMade) table.set(type, array(full("Self")));
    writeCreators(table);
  }
  static constexpr std::string_view selfMade[] = {
      "T", "U", "V", "Yahoo", "IMAPNotes", "Mail", "FjordIMAP", "Nuvola", "Exchange", "Gmail", "SMTP"};
  Store store = storeOf(array());
  /// What the creator "Actor" does before it answers the record itself.
  std::function<void(const AccountPtr&)> act;
};

TEST_F(FullAccountsTest, AreListedWithTheMatchingChildrenBehindWhereTheParentStands) {
  store = storeOf(array(of("T", "p", array(of("U", "p1"), of("T", "p2"), of("Broken", "p3"))),
                        of("V", "q", array(of("U", "q1"))), of("T", "r"), of("Broken", "s")));
  EXPECT_EQ(names(store->accountsWithTypes({"T"})), "p p2 r");
  EXPECT_EQ(names(store->accountsWithTypes({"U", "T"})), "p p1 p2 q1 r");
  EXPECT_EQ(assertions, Lines());
  EXPECT_THROW(store->accountsWithTypes({"T", "Broken"}), std::invalid_argument);
  EXPECT_EQ(assertions.size(), 2U) << "the child's is left out, the top-level account's is a fault";
  store->deleteAccountWithIdentifier("s");
  EXPECT_EQ(names(store->accountsWithTypes({"T", "Broken"})), "p p2 r");
}

TEST_F(FullAccountsTest, MustNotChangeTheStoreWhileTheyAreListed) {
  store = storeOf(array(of("T", "p", array(of("Meddling", "p1")))));
  EXPECT_THROW(store->accountsWithTypes({"Meddling"}), EnumerationMutation);
  EXPECT_EQ(names(store->accountsWithTypes({"Meddling"})), "p1") << "it is made by now";
  EXPECT_EQ(store->count(), 2U);
  store = storeOf(array(of("Adopting", "p"), of("V", "q")));
  EXPECT_EQ(names(store->accountsWithTypes({"Adopting", "U"})), "p adopted") << "children are looked up anew";
}

TEST_F(FullAccountsTest, OfChildrenStandBehindTheParentThatTheyHaveWhenItIsItsTurn) {
  const auto child = [this](const char* identifier) { return store->childAccountWithIdentifier(identifier); };
  const auto parent = [this](const char* identifier) { return store->accountWithIdentifier(identifier); };
  struct Row {
    const char* name;
    const char* actor;
    std::function<void()> act;
    std::string expected;
  };
  const Row rows[] = {
      {"nothing moves", "", [] {}, "p c q d e"},
      {"a child goes", "p", [&] { child("c")->setParentAccount(parent("q")); }, "p q c d e"},
      {"a child comes", "p", [&] { child("d")->setParentAccount(parent("p")); }, "p c d q e"},
      {"a child comes late", "c", [&] { child("e")->setParentAccount(parent("p")); }, "p c e q d"},
      {"a child stands alone", "c", [&] { child("d")->setParentAccount(nullptr); }, "p c q e"},
      {"a child stands alone for a while", "p c",
       [&] { child("d")->setParentAccount(child("d")->parentAccount() ? nullptr : parent("q")); },
       "p c q d e"},
      {"another takes a child's place", "p",
       [&] {
         store->addChildToAccount(record("c", {{"Type", "Acting"}}), parent("q"));
       },
       "p q c d e"},
      {"a child is added late", "c",
       [&] {
         store->addChildToAccount(record("n", {{"Type", "Acting"}}), parent("p"));
       },
       "p c q d e"},
  };
  for (const Row& row : rows) {
    store =
        storeOf(array(of("Acting", "p", array(of("Acting", "c"))),
                      of("Acting", "q", array(of("Acting", "d"))), of("V", "r", array(of("Acting", "e")))));
    act = [&row](const AccountPtr& account) {
      if (std::string(row.actor).find(account->identifier().view()) != std::string::npos) row.act();
    };
    EXPECT_EQ(names(store->accountsWithTypes({"Acting"})), row.expected) << row.name;
  }
}

TEST_F(FullAccountsTest, AreMadeOfTheVeryRecordWithTheLoaderHandedOn) {
  store = storeOf(array(of("T", "p", array(of("U", "p1")))));
  ScriptedLoader loader(true);
  EXPECT_EQ(names(store->accountsWithTypesWithLoader({"T"}, &loader)), "p");
  EXPECT_EQ(names({store->fullAccountWithIdentifierLoader("p1", &loader)}), "p1");
  EXPECT_EQ(loader.asked.size(), 2U);
}

TEST_F(FullAccountsTest, OfMailAreThoseOfFourTypes) {
  for (const std::string_view type : selfMade) store->insertAccount(record(type, {{"Type", type}}));
  EXPECT_EQ(names(store->allMailAccounts()), "Yahoo Mail Nuvola Gmail");
}

class FullDeviceLocalAccountTest : public StoreTest {};

TEST_F(FullDeviceLocalAccountTest, IsAddedToAStoreThatLacksItInEveryLanguage) {
  std::set<std::string> words;
  for (const std::string language : {"en", "de", "es", "fr", "ja"}) {
    SCOPED_TRACE(language);
    device.setEnvironment("LC_ALL", language + ".UTF-8");
    log.clear();
    writeRegistry();
    const Store store = AccountsManager::init();
    const auto made = store->fullDeviceLocalAccount();
    EXPECT_NE(std::dynamic_pointer_cast<DeviceLocalAccount>(made), nullptr);
    EXPECT_EQ(store->fullDeviceLocalAccount(), made);
    EXPECT_EQ(log.lines(), Lines{"DeviceLocalAccount missing. Creating..."});
    EXPECT_EQ(root().find("Accounts"), array()) << "only a save writes it";
    store->saveAllAccounts();
    EXPECT_EQ(storedAccount(0), DeviceLocalAccount::basicAccountProperties());
    words.insert(storedAccount(0).find("Type String").string().str());
  }
  EXPECT_EQ(words.size(), 5U);

  const Store complete = storeOf(array(stored("x"), stored("own", {{"Type", "OnMyDevice"}})));
  const auto found = std::dynamic_pointer_cast<BasicAccount>(complete->fullDeviceLocalAccount());
  EXPECT_EQ(found->properties(), complete->accountWithIdentifier("own")->properties());
}

}  // namespace
}  // namespace roster::testing
