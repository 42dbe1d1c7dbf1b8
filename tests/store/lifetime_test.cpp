#include "tests/store/store_test.h"
#include "tests/support/creators_table.h"

namespace roster::testing {
namespace {

/// Every piece of foreign code calls this with its name; the one that a row is about then acts, once.
struct {
  std::string_view point{};
  std::function<void()> act{};
  void operator()(std::string_view reached) {
    if (reached == std::exchange(point, reached == point ? "" : point)) act();
  }
} reach;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): records have no other way to it

/// A record whose class overrides what the library calls. It needs itself afterwards.
class Hooked : public AccountSubclass<Hooked> {
 public:
  using AccountSubclass::AccountSubclass;
  String identifier() const override { return reach("identifier"), BasicAccount::identifier(); }
  String syncStoreIdentifier() const override { return reach("sync"), BasicAccount::syncStoreIdentifier(); }
  Dictionary propertiesToSave() const override { return reach("to save"), BasicAccount::propertiesToSave(); }
  Value accountPropertyForKey(std::string_view key) const override {
    return reach(key), BasicAccount::accountPropertyForKey(key);
  }
  void setAccountPropertyForKey(const Value& value, std::string_view key) override {
    return reach("set"), BasicAccount::setAccountPropertyForKey(value, key);
  }
};

/// A full account and a sync account.
class Companion : public AccountSubclass<Companion>, public AccountRefreshProtocol {
 public:
  using AccountSubclass::AccountSubclass;
  Companion(const Companion&) = delete;
  Companion& operator=(const Companion&) = delete;
  ~Companion() override { reach("end"); }
  void setParentAccount(AccountPtr parent) override {
    return reach("parent"), BasicAccount::setParentAccount(std::move(parent));
  }
  bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view, std::string_view,
                                                                 bool) override {
    return false;
  }
  bool refreshContainerListForDataclassIsUserRequested(std::string_view, bool) override { return false; }
  bool refreshContainersForDataclassIsUserRequested(std::string_view, bool) override {
    return reach("refresh"), type().isNil();
  }
};

class LifetimeTest : public CreatorsTableTest, public AccountLoaderProtocol {
 protected:
  LifetimeTest() {
    const auto make = [](const AccountPtr& of) {
      return reach("creator"), Companion::accountWithProperties(of->originalProperties());
    };
    const auto hear = [](const auto&...) { reach("notifier"); };
    registerClass(ClassObject("Actor")
                      .answering(AccountCreationProtocol{.accountWithBasicAccount = make})
                      .answering(SyncAccountCreationProtocol{make})
                      .answering(AccountNotifierProtocol{hear, hear, hear}));
    std::vector<Value> entries;
    for (const char* kind :
         {"FullAccount", "FullAccount", "SyncAccount", "NotifierAccount", "NotifierAccount"})
      entries.emplace_back(creatorEntry(kind, "Actor", thisLibrary, dataclassArray("Mail")));
    writeCreators({{"T", Array(entries)}});
  }
  ~LifetimeTest() override { reach = {}; }
  bool loadBundleForAccountWithProperties(const Dictionary&) override { return reach("loader"), true; }

  static AccountPtr hooked(const std::string& id) {
    const Value children = array(stored(id + "1", {{"Type", "T"}}), stored(id + "2", {{"Type", "T"}}));
    return Hooked::accountWithProperties(stored(id, {{"Type", "T"},
                                                     {"Sync Identifier", id},
                                                     {"Enabled Dataclasses", dataclassArray("Mail")},
                                                     {"ChildAccounts", children}}));
  }
  static Store load() {
    const ScriptedFixer fixer([](const auto&) { return reach("fixer"), FixResult::repaired; },
                              std::ref(reach));
    return CustomStore::load({fixer, fixer});
  }
  /// A store of three accounts, whose notifiers have something to hear.
  void start() {
    std::filesystem::remove_all(device.path("var"));
    store = load();
    for (const char* id : {"a", "b", "c"}) store->insertAccount(hooked(id));
    account = store->accountWithIdentifier("a");
    child = store->childAccountWithIdentifier("b1");
    dataclassName = std::make_unique<std::string>(dataclass("Mail"));
  }
  void dropHandles() {
    account.reset();
    child.reset();
    dataclassName.reset();
  }

  // What the program holds.
  Store store;
  AccountPtr account, child;
  std::unique_ptr<std::string> dataclassName;
};

TEST_F(LifetimeTest, OfStoreAndRecordsLastsThroughEveryCallWhateverForeignCodeDropsMeanwhile) {
  const std::pair<const char*, std::function<void()>> acts[] = {
      {"deletes the account", [&] { store->deleteAccountWithIdentifier("a"); }},
      {"deletes all accounts", [&] { store->replaceAccountsWithTypesWithAccounts({"T"}, {}); }},
      {"drops the store", [&] { store.reset(); }},
      {"replaces the store", [&] { store = load(); }},
      {"makes the lists grow",
       [&] {
         for (int i = 0; i < 40; ++i) store->insertAccount(hooked("n" + std::to_string(i)));
       }},
  };
  const auto willChange = &AccountsManager::accountWillChangeForDataclass;
  const auto didChange = &AccountsManager::accountDidChangeForDataclass;
  struct Call {
    const char* name;
    std::function<void()> make;
    std::vector<const char*> points;
  };
  const Call calls[] = {
      {"full account", [&] { account->fullAccountUsingLoader(this); }, {"loader", "creator", "parent"}},
      {"full account of", [&] { store->fullAccountWithIdentifierLoader("a", this); }, {"loader", "creator"}},
      {"full accounts",
       [&] { static_cast<void>(store->accountsWithTypes({"T"})); },
       {"Type", "identifier", "creator", "parent"}},
      {"refresh", [&] { account->refreshContainersForDataclass("d"); }, {"creator", "refresh"}},
      {"will change", [&] { willChange(account, *dataclassName); }, {"identifier", "notifier"}},
      {"did change", [&] { didChange(account, *dataclassName); }, {"notifier"}},
      {"save", [&] { store->saveAllAccounts(); }, {"fixer", "identifier", "to save", "saved", "notifier"}},
      {"announce", [&] { store->_sendNotificationsForChangedAccounts(); }, {"to save", "notifier"}},
      {"find", [&] { store->displayAccountWithSyncIdentifier("b2"); }, {"sync"}},
      {"of types", [&] { static_cast<void>(store->countOfBasicAccountsWithTypes({"T"})); }, {"Type"}},
      {"children", [&] { static_cast<void>(store->childrenOfAccount(account)); }, {"identifier"}},
      {"update", [&] { store->updateAccount(account); }, {"identifier", "ChildAccounts"}},
      {"insert", [&] { store->insertAccount(account); }, {"identifier"}},
      {"delete", [&] { store->deleteAccount(account); }, {"identifier"}},
      {"replace",
       [&] { store->replaceAccountWithAccount(account, account); },
       {"identifier", "ChildAccounts"}},
      {"replace many",
       [&] {
         child->setParentAccount(account);
         store->replaceAccountsWithTypesWithAccounts({"U"}, {account, child});
       },
       {"Identifier", "Type", "identifier", "ChildAccounts", "set"}},
      {"add a child",
       [&] { store->addChildToAccount(child, account); },
       {"ChildAccounts", "set", "identifier"}},
      {"remove a child",
       [&] { store->removeChildWithIdentifierFromAccount("a1", account); },
       {"ChildAccounts", "set", "identifier"}},
      {"end of a full account",
       [&] {
         store->fullAccountWithIdentifierLoader("a1", nullptr);
         dropHandles();
         store->deleteAccountWithIdentifier("a");
       },
       {"end"}},
  };
  for (const Call& call : calls) {
    for (const char* point : call.points) {
      for (const auto& [name, hostile] : acts) {
        SCOPED_TRACE(formatted("%s: \"%s\" %s", call.name, point, name));
        start();
        const std::weak_ptr<AccountsManager> oldStore = store;
        const std::weak_ptr<BasicAccount> oldAccount = account;
        reach = {point, [&, &act = hostile] { dropHandles(), act(); }};
        try {
          call.make();
        } catch (const EnumerationMutation&) {    // of a walk
        } catch (const std::out_of_range&) {      // the record to replace is not there any more
        } catch (const std::invalid_argument&) {  // nor is the record of a full account
        }
        EXPECT_EQ(reach.point, "") << "nothing happened";
        dropHandles();
        store.reset();
        EXPECT_TRUE(oldStore.expired() && oldAccount.expired());
      }
    }
  }
}

}  // namespace
}  // namespace roster::testing
