#include "tests/support/creators_table.h"

namespace roster::testing {
namespace {

using Lines = std::vector<std::string>;
using Record = std::shared_ptr<BasicAccount>;
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
  const auto described = [](const Value& text) {
    return array(Dictionary{{"Type", "FullAccount"}, {"Description", text}});
  };
  const std::string noDescription = notFound + "the description for the FullAccount with type %@";
  const std::string noPath = notFound + "the path to the framework for the FullAccount with type %@";
  const std::string noName = notFound + "the name of the class that creates FullAccount with the type %@";
  const std::string notLoaded = make + "The framework/bundle where %s is defined has not been loaded";
  std::vector<std::pair<Value, std::string>> cases{
      {"text", notFound + "the information for the type %@"},
      {described({}), noDescription},
      {described("text"), noDescription},
      {array(full("Self", {})), noPath},
      {array(full("Self", 7)), noPath},
      {array(full("Self", "/no.so"), full("Self")), lookUp + noFile},
      {array(full("Self"), full("Self", "/no.so")), lookUp + noFile},
      {array(full({})), noName},
      {array(full("")), noName},
      {array(full(array("Self"))), noName},
      {array(full("Nobody")), formatted(notLoaded, "Nobody")},
      {array(), formatted(notLoaded, String())},
      {array(7, creatorEntry("fullaccount", "Self", {})), formatted(notLoaded, String())}};
  const auto classNamed = [](const char* name) { return [=](std::string_view) { return findClass(name); }; };
  const auto self = [](const Record& account) { return account; };
  const auto fail = [](const Record&) -> FullAccount { throw std::runtime_error("no wire"); };
  registerClass(ClassObject("Mute"));
  registerCreator("Idle", {});
  registerCreator("Nil class", {classNamed("Nobody"), self});
  registerCreator("Unmade", {classNamed("Mute"), self});
  registerCreator("Broken", {.accountWithBasicAccount = fail});
  for (const std::string name : {"Mute", "Idle", "Nil class", "Unmade", "Broken"}) {
    cases.emplace_back(array(full(name)),
                       make + "Could not create the account with class " + name + " and id id");
  }
  MutableDictionary table;
  for (const auto& [entries, message] : cases) table.set("T" + std::to_string(table.size()), entries);
  writeCreators(table);
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const std::string type = "T" + std::to_string(i);
    assertions.clear();
    EXPECT_EQ(record(type)->fullAccountUsingLoader(nullptr), nullptr) << i;
    EXPECT_EQ(assertions.at(0), formatted(cases[i].second, type)) << i;
  }
  const std::string failed = "ERROR: The account creator ";
  EXPECT_EQ(log.lines(), (Lines{failed + "Unmade failed: the class Mute does not answer initWithProperties:",
                                failed + "Broken failed: no wire"}));
}

TEST_F(CreatorsTest, AreAllLoadedAndTheLastIsUsed) {
  writeCreators({{"T", array(full("PluginCreator", plugin("good")), sync("S", "/no.so"), full("Self"))},
                 {"P", array(full("Self"), full("PluginCreator", plugin("good")))}});
  const Record account = record("T");
  EXPECT_EQ(account->fullAccountUsingLoader(nullptr), account);
  EXPECT_NE(findClass("PluginCreator"), nullptr);
  const Record parent = record("P");
  EXPECT_NE(parent->fullAccountUsingLoader(nullptr), parent);
  const Record child = record("P");
  child->setParentAccount(parent);
  child->setDisplayName("child");
  const auto made = std::dynamic_pointer_cast<BasicAccount>(child->fullAccountUsingLoader(nullptr));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->parentAccount(), parent);
  EXPECT_EQ(made->properties(), child->properties());
  EXPECT_EQ(child->fullAccountUsingLoader(nullptr), made);
  std::vector<std::int32_t> results;
  const auto handler = [&](std::int32_t result) { results.push_back(result); };
  for (const Record& each : {child, made}) each->renewAccountCredentialsWithHandler(handler);
  EXPECT_EQ(results, (std::vector{3, 42}));
}

TEST_F(CreatorsTest, NeedNoLibraryWhenALoaderHasMadeThemAvailable) {
  writeCreators({{"T", array(full("Nobody", "/no.so"), full("Self", {}), sync("Self", {}))},
                 {"Nameless", array(full({}, {}))}});
  ScriptedLoader loader(true);
  ScriptedLoader refusing(false);
  const Record account = record("T");
  EXPECT_EQ(account->fullAccountUsingLoader(&refusing), nullptr);
  EXPECT_NE(assertions.at(0).find("/no.so"), std::string::npos);
  EXPECT_EQ(account->fullAccountUsingLoader(&loader), account) << "a failure is not kept";
  EXPECT_EQ(loader.asked, (std::vector<Dictionary>(2, account->properties()))) << "once for each entry";
  EXPECT_EQ(account->fullAccountUsingLoader(&refusing), account);
  EXPECT_EQ(refusing.asked.size(), 1U) << "a full account is kept";

  assertions.clear();
  account->_creatorClassNameForAccountTypeCreatorTypeLoader("T", "SyncAccount", &loader);
  account->fullAccountCreatorClassNameForAccountTypeLoader("Nameless", &loader);
  EXPECT_EQ(assertions,
            (Lines{notFound + "the path to the framework for the SyncAccount with type T",
                   notFound + "the name of the class that creates FullAccount with the type Nameless"}));
  EXPECT_EQ(loader.asked.size(), 3U) << "it has no part in sync accounts";
}

TEST_F(CreatorsTest, AreAskedAgainUntilThereIsAFullAccountWhichDiesWithItsRecord) {
  const Dictionary table{{"T", array(full("Fickle"))}};
  writeTypes(table);
  int calls = 0;
  const auto second = [&](const Record& account) { return ++calls == 1 ? nullptr : account; };
  registerCreator("Fickle", {.accountWithBasicAccount = second});
  Record account = record("T");
  EXPECT_EQ(account->fullAccountUsingLoader(nullptr), nullptr);
  EXPECT_EQ(assertions.at(0), notFound + "the information for the type T");
  writeCreators(table);
  EXPECT_EQ(account->fullAccountUsingLoader(nullptr), nullptr);
  writeCreators({});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(account->fullAccountUsingLoader(nullptr), account);
  EXPECT_EQ(calls, 2) << "neither is the table read again, nor the full account made again";
  const std::weak_ptr<BasicAccount> watched = account;
  account.reset();
  EXPECT_TRUE(watched.expired()) << "also when it is the record itself";
}

Lines calls;

/// An account of its own way to refresh, which is also a sync account. It begins what a user asks for.
class Recorder : public AccountSubclass<Recorder>, public AccountRefreshProtocol {
 public:
  using AccountSubclass::AccountSubclass;
  bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view id, std::string_view of,
                                                                 bool isAsked) override {
    return note("one", formatted("%@ of %@", id, of), isAsked);
  }
  bool refreshContainerListForDataclassIsUserRequested(std::string_view dataclass, bool isAsked) override {
    return note("list", dataclass, isAsked);
  }
  bool refreshContainersForDataclassIsUserRequested(std::string_view dataclass, bool isAsked) override {
    return note("all", dataclass, isAsked);
  }

 private:
  static bool note(const char* what, std::string_view of, bool isAsked) {
    calls.push_back(formatted("%s %@%s", what, of, isAsked ? " now" : ""));
    return isAsked;
  }
};

/// How many of all refreshes are begun.
int refreshed(BasicAccount& account) {
  int begun = account.refreshContainerWithIdentifierForDataclassIsUserRequested("c", "d", true) ? 1 : 0;
  begun += account.refreshContainerListForDataclassIsUserRequested("d", true) ? 1 : 0;
  begun += account.refreshContainersForDataclassIsUserRequested("d", true) ? 1 : 0;
  begun += account.refreshContainerWithIdentifierForDataclass("c", "d") ? 1 : 0;
  begun += account.refreshContainerListForDataclass("d") ? 1 : 0;
  return begun + (account.refreshContainersForDataclass("d") ? 1 : 0);
}

TEST_F(CreatorsTest, OfSyncAccountsServeRefreshes) {
  int made = 0;
  const auto second = [&](const Record&) { return ++made == 1 ? nullptr : record<Recorder>("T"); };
  registerClass(ClassObject("Late").answering(SyncAccountCreationProtocol{second}));
  writeCreators({{"T", array(sync("Late"))}, {"None", array(full("Self"))}, {"Lost", array(sync("Nobody"))}});
  const Lines all{"one c of d now", "list d now", "all d now", "one c of d", "list d", "all d"};
  EXPECT_EQ(refreshed(*record("None")), 0);
  EXPECT_EQ(refreshed(*record<Recorder>("None")), 3);
  EXPECT_EQ(std::exchange(calls, {}), all) << "a short form asks the account's own long one";
  EXPECT_EQ(log.lines(), Lines()) << "no sync account is nothing to tell of";

  const Record account = record("T");
  EXPECT_EQ(account->_cachedSyncAccount(), nullptr);
  EXPECT_EQ(refreshed(*account), 3);
  EXPECT_EQ(calls, all);
  EXPECT_EQ(made, 2) << "a failure is not kept, a sync account is";

  EXPECT_EQ(record("Lost")->_cachedSyncAccount(), nullptr);
  const std::string lost =
      "ERROR: The framework/bundle where Nobody is defined has not been loaded, so there is no "
      "syncable account for basic account with properties ";
  EXPECT_EQ(log.lines(), (Lines{"ERROR: Could not create the account with class Late and id id",
                                formatted("%@%@", lost, record("Lost")->properties())}));
  EXPECT_EQ(assertions, Lines());
}

}  // namespace
}  // namespace roster::testing
