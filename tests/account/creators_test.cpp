#include "tests/support/creators_table.h"

namespace roster::testing {
namespace {

using Lines = std::vector<std::string>;
using FullAccount = std::shared_ptr<AccountFullAccountProtocol>;

const std::string lookUp =
    "-[BasicAccount _creatorClassNameForAccountType:creatorType:loader:] BasicAccount: ";
const std::string notFound = lookUp + malformed;
const std::string make = "-[BasicAccount fullAccountUsingLoader:] BasicAccount: ";

Dictionary sync(const Value& className, const Value& framework = thisLibrary) {
  return creatorEntry("SyncAccount", className, framework);
}
template <class Account = BasicAccount>
std::shared_ptr<Account> record(std::string_view type) {
  return Account::accountWithProperties({{"Type", type}, {"Class", "X"}, {"Identifier", "id"}});
}

class CreatorsTest : public CreatorsTableTest {};

TEST_F(CreatorsTest, AreFoundInACompleteTableAndMakeSomething) {
  const std::string noPath = notFound + "the path to the framework for the FullAccount with type %@";
  const std::string noName = notFound + "the name of the class that creates FullAccount with the type %@";
  const std::string notLoaded = make + "The framework/bundle where %s is defined has not been loaded";
  std::vector<std::pair<Value, std::string>> rows{
      {"text", notFound + "the information for the type %@"},
      {array(Dictionary{{"Type", "FullAccount"}, {"Description", "text"}}),
       notFound + "the description for the FullAccount with type %@"},
      {array(full("Self", 7)), noPath},
      {array(full("Self", "/no.so"), full("Self")), lookUp + noFile},
      {array(full("Self"), full("Self", "/no.so")), lookUp + noFile},
      {array(full("")), noName},
      {array(full(array("Self"))), noName},
      {array(full("Nobody")), formatted(notLoaded, "Nobody")},
      {array(7, creatorEntry("fullaccount", "Self", {})), formatted(notLoaded, String())}};
  const auto fail = [](const AccountPtr&) -> FullAccount { throw std::runtime_error("no wire"); };
  registerClass(ClassObject("Mute"));
  registerCreator("Idle", {});
  registerCreator("Nil class", {[](std::string_view) { return findClass("Nobody"); }});
  registerCreator("Unmade", {[](std::string_view) { return findClass("Mute"); }});
  registerCreator("Broken", {.accountWithBasicAccount = fail});
  for (const std::string name : {"Mute", "Idle", "Nil class", "Unmade", "Broken"}) {
    rows.emplace_back(array(full(name)),
                      make + "Could not create the account with class " + name + " and id id");
  }
  MutableDictionary table;
  for (const auto& row : rows) table.set("T" + std::to_string(table.size()), row.first);
  writeCreators(table);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string type = "T" + std::to_string(i);
    assertions.clear();
    EXPECT_EQ(record(type)->fullAccountUsingLoader(nullptr), nullptr) << rows[i].second;
    EXPECT_EQ(assertions.at(0), formatted(rows[i].second, type));
  }
  const std::string failed = "ERROR: The account creator ";
  EXPECT_EQ(log.lines(), (Lines{failed + "Unmade failed: the class Mute does not answer initWithProperties:",
                                failed + "Broken failed: no wire"}));
}

TEST_F(CreatorsTest, AreAllLoadedAndTheLastIsUsed) {
  writeCreators({{"T", array(full("PluginCreator", plugin("good")), sync("S", "/no.so"), full("Self"))},
                 {"P", array(full("Self"), full("PluginCreator", plugin("good")))}});
  const AccountPtr account = record("T");
  EXPECT_EQ(account->fullAccountUsingLoader(nullptr), account);
  EXPECT_NE(findClass("PluginCreator"), nullptr);
  const AccountPtr parent = record("P");
  const AccountPtr child = record("P");
  child->setParentAccount(parent);
  child->setDisplayName("child");
  const auto made = std::dynamic_pointer_cast<BasicAccount>(child->fullAccountUsingLoader(nullptr));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->parentAccount(), parent);
  EXPECT_EQ(made->properties(), child->properties());
  std::vector<std::int32_t> results;
  const auto handler = [&](std::int32_t result) { results.push_back(result); };
  for (const AccountPtr& each : {child, made}) each->renewAccountCredentialsWithHandler(handler);
  EXPECT_EQ(results, (std::vector{3, 42}));
}

TEST_F(CreatorsTest, NeedNoLibraryWhenALoaderHasMadeThemAvailable) {
  writeCreators({{"T", array(full("Nobody", "/no.so"), full("Self", {}), sync("Self", {}))}});
  ScriptedLoader loader(true);
  ScriptedLoader refusing(false);
  const AccountPtr account = record("T");
  EXPECT_EQ(account->fullAccountUsingLoader(&refusing), nullptr);
  EXPECT_NE(assertions.at(0).find("/no.so"), std::string::npos);
  EXPECT_EQ(account->fullAccountUsingLoader(&loader), account) << "a failure is not kept";
  EXPECT_EQ(loader.asked, (std::vector<Dictionary>(2, account->properties()))) << "once for each entry";
  assertions.clear();
  account->_creatorClassNameForAccountTypeCreatorTypeLoader("T", "SyncAccount", &loader);
  EXPECT_EQ(assertions, Lines{notFound + "the path to the framework for the SyncAccount with type T"});
  EXPECT_EQ(loader.asked.size(), 2U) << "it has no part in sync accounts";
}

TEST_F(CreatorsTest, AreAskedAgainUntilThereIsAFullAccountWhichDiesWithItsRecord) {
  const Dictionary table{{"T", array(full("Fickle"))}};
  writeTypes(table);
  int calls = 0;
  const auto second = [&](const AccountPtr& account) { return ++calls == 1 ? nullptr : account; };
  registerCreator("Fickle", {.accountWithBasicAccount = second});
  AccountPtr account = record("T");
  EXPECT_EQ(account->fullAccountUsingLoader(nullptr), nullptr);
  EXPECT_EQ(assertions.at(0), notFound + "the information for the type T");
  writeCreators(table);
  EXPECT_EQ(account->fullAccountUsingLoader(nullptr), nullptr);
  writeCreators({});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(account->fullAccountUsingLoader(nullptr), account) << i;
  EXPECT_EQ(calls, 2) << "neither is the table read again, nor the full account made again";
  const std::weak_ptr<BasicAccount> watched = account;
  account.reset();
  EXPECT_TRUE(watched.expired()) << "also when it is the record itself";
}

TEST_F(CreatorsTest, AreToldThatTheyAskForTheVeryAccountThatTheyMake) {
  writeCreators({{"T", array(full("Curious"), sync("Curious"))}});
  const auto askTwice = [](const AccountPtr& account) -> FullAccount {
    EXPECT_EQ(account->fullAccountUsingLoader(nullptr), nullptr);
    return account;
  };
  const auto refresh = [](const AccountPtr& account) -> std::shared_ptr<AccountRefreshProtocol> {
    EXPECT_FALSE(account->refreshContainerListForDataclass("d"));
    return nullptr;
  };
  registerClass(ClassObject("Curious")
                    .answering(AccountCreationProtocol{.accountWithBasicAccount = askTwice})
                    .answering(SyncAccountCreationProtocol{refresh}));
  const AccountPtr account = record("T");
  EXPECT_EQ(account->fullAccountUsingLoader(nullptr), account);
  EXPECT_EQ(assertions, Lines{make + "The creator of the account with id id asks for that account"});
  EXPECT_FALSE(account->refreshContainerListForDataclass("d"));
  EXPECT_EQ(log.lines(), (Lines{"ERROR: The creator of the sync account with id id asks for that account",
                                "ERROR: Could not create the account with class Curious and id id"}));
}

/// A sync account that begins a refresh of the dataclass "d", and notes what it is asked.
class SyncAccount : public AccountSubclass<SyncAccount>, public AccountRefreshProtocol {
 public:
  using AccountSubclass::AccountSubclass;
  bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view id, std::string_view of,
                                                                 bool isAsked) override {
    asked.append(id).append(isAsked ? "! " : " ");
    return of == "d";
  }
  bool refreshContainerListForDataclassIsUserRequested(std::string_view of, bool isAsked) override {
    return SyncAccount::refreshContainerWithIdentifierForDataclassIsUserRequested("list", of, isAsked);
  }
  bool refreshContainersForDataclassIsUserRequested(std::string_view of, bool isAsked) override {
    return SyncAccount::refreshContainerWithIdentifierForDataclassIsUserRequested("all", of, isAsked);
  }
  std::string asked{};
};

TEST_F(CreatorsTest, OfSyncAccountsServeRefreshes) {
  writeCreators({{"T", array(sync("Late"))}, {"None", array(full("Self"))}, {"Lost", array(sync("Nobody"))}});
  int made = 0;
  const auto server = record<SyncAccount>("T");
  const auto second = [&](const AccountPtr&) { return ++made == 1 ? nullptr : server; };
  registerClass(ClassObject("Late").answering(SyncAccountCreationProtocol{second}));
  const auto begun = [](const AccountPtr& account, std::string_view of) {
    return account->refreshContainerWithIdentifierForDataclassIsUserRequested("c", of, true) +
           account->refreshContainerListForDataclassIsUserRequested(of, true) +
           account->refreshContainersForDataclassIsUserRequested(of, true) +
           account->refreshContainerWithIdentifierForDataclass("c", of) +
           account->refreshContainerListForDataclass(of) + account->refreshContainersForDataclass(of);
  };
  EXPECT_EQ(begun(record("None"), "d"), 0);
  EXPECT_EQ(log.lines(), Lines()) << "an account without a sync account is no fault";
  const AccountPtr account = record("T");
  EXPECT_EQ(account->_cachedSyncAccount(), nullptr);
  EXPECT_EQ(begun(account, "d"), 6);
  EXPECT_EQ(server->asked, "c! list! all! c list all ");
  EXPECT_EQ(begun(account, "e"), 0);
  EXPECT_EQ(made, 2) << "a failure is not kept, a sync account is";

  EXPECT_EQ(record("Lost")->_cachedSyncAccount(), nullptr);
  const std::string lost =
      "ERROR: The framework/bundle where Nobody is defined has not been loaded, so there is no syncable "
      "account "
      "for basic account with properties ";
  EXPECT_EQ(log.lines(), (Lines{"ERROR: Could not create the account with class Late and id id",
                                formatted("%@%@", lost, record("Lost")->properties())}));
  EXPECT_EQ(assertions, Lines());
}

}  // namespace
}  // namespace roster::testing
