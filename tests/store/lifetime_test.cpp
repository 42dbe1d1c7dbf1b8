#include "tests/store/store_test.h"
#include "tests/support/creators_table.h"

namespace roster::testing {
namespace {

/// Every piece of foreign code calls this with its name; the one that a test is about does something hostile.
std::function<void(std::string_view)>& reached() {
  static std::function<void(std::string_view)> function;
  return function;
}

/// A record whose class overrides what the library calls. It needs itself after it has told.
class Hooked : public AccountSubclass<Hooked> {
 public:
  using AccountSubclass::AccountSubclass;
  String identifier() const override { return told("identifier"), BasicAccount::identifier(); }
  String syncStoreIdentifier() const override { return told("sync"), BasicAccount::syncStoreIdentifier(); }
  Dictionary propertiesToSave() const override { return told("to save"), BasicAccount::propertiesToSave(); }
  Value accountPropertyForKey(std::string_view key) const override {
    told(key == kAccountType ? "type" : key == kAccountChildAccounts ? "children" : "other");
    return BasicAccount::accountPropertyForKey(key);
  }
  void setAccountPropertyForKey(const Value& value, std::string_view key) override {
    told("set");
    BasicAccount::setAccountPropertyForKey(value, key);
  }

 private:
  static void told(std::string_view point) { reached()(point); }
};

class Full : public AccountFullAccountProtocol, public AccountRefreshProtocol {
 public:
  Full() = default;
  Full(const Full&) = delete;
  Full& operator=(const Full&) = delete;
  ~Full() override { reached()("end"); }
  void renewAccountCredentialsWithHandler(const CredentialRenewalHandler&) override {}
  // NOLINTNEXTLINE(performance-unnecessary-value-param): so it is declared
  void setParentAccount(AccountPtr) override { reached()("parent"); }
  bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view, std::string_view,
                                                                 bool) override {
    return refresh();
  }
  bool refreshContainerListForDataclassIsUserRequested(std::string_view, bool) override { return refresh(); }
  bool refreshContainersForDataclassIsUserRequested(std::string_view, bool) override { return refresh(); }

 private:
  bool refresh() {
    reached()("refresh");
    return ++refreshes_ > 0;
  }
  int refreshes_ = 0;
};

class Fixer : public RSRuntimeFixProtocol {
 public:
  const std::set<std::string, std::less<>>& supportedAccountTypes() const override { return none_; }
  FixResult fixBasicAccountIfNeededLoggingMessage(const AccountPtr& account, std::string_view) override {
    reached()("fixer");
    return account->properties().empty() ? FixResult::nothingDone : FixResult::repaired;
  }
  void accountsHaveBeenSaved(bool) override { reached()("saved"); }

 private:
  std::set<std::string, std::less<>> none_;
};

class FixedStore : public AccountsManager {
 public:
  using AccountsManager::AccountsManager;
  static Store load() { return makeInsideOfMigration<FixedStore>(); }

 protected:
  std::vector<std::shared_ptr<RSRuntimeFixProtocol>> _createRuntimeFixers() const override {
    return {std::make_shared<Fixer>(), std::make_shared<Fixer>()};
  }
};

class LifetimeTest : public CreatorsTableTest, public AccountLoaderProtocol {
 protected:
  LifetimeTest() {
    reached() = [this](std::string_view point) {
      if (point != armed) return;
      armed = "";
      act();
    };
    const auto make = [](const AccountPtr&) {
      reached()("creator");
      return std::make_shared<Full>();
    };
    const auto hear = [](const auto&...) { reached()("notifier"); };
    registerClass(ClassObject("Actor")
                      .answering(AccountCreationProtocol{.accountWithBasicAccount = make})
                      .answering(SyncAccountCreationProtocol{make})
                      .answering(AccountNotifierProtocol{hear, hear, hear}));
    const auto entry = [](std::string_view kind) {
      return creatorEntry(kind, "Actor", thisLibrary, dataclassArray("Mail"));
    };
    writeCreators({{"T", array(entry("FullAccount"), entry("FullAccount"), entry("SyncAccount"),
                               entry("NotifierAccount"), entry("NotifierAccount"))}});
  }
  ~LifetimeTest() override {
    reached() = [](std::string_view) {};
  }
  bool loadBundleForAccountWithProperties(const Dictionary&) override { return reached()("loader"), true; }

  static AccountPtr hooked(const std::string& id) {
    const Value children = array(stored(id + "1", {{"Type", "T"}}), stored(id + "2", {{"Type", "T"}}));
    return Hooked::accountWithProperties(stored(id, {{"Type", "T"},
                                                     {"Sync Identifier", id},
                                                     {"Enabled Dataclasses", dataclassArray("Mail")},
                                                     {"ChildAccounts", children}}));
  }
  /// A store of three accounts, whose notifiers have something to hear.
  void start() {
    armed = "";
    std::filesystem::remove_all(device.path("var"));
    store = FixedStore::load();
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
  // The piece of foreign code that acts, once, and how.
  const char* armed = "";
  std::function<void()> act;
};

TEST_F(LifetimeTest, OfStoreAndRecordsLastsThroughEveryCallWhateverForeignCodeDropsMeanwhile) {
  const std::pair<const char*, std::function<void()>> acts[] = {
      {"deletes the account", [&] { store->deleteAccountWithIdentifier("a"); }},
      {"deletes all accounts", [&] { store->replaceAccountsWithTypesWithAccounts({"T"}, {}); }},
      {"drops the store", [&] { store.reset(); }},
      {"replaces the store", [&] { store = FixedStore::load(); }},
      {"makes the lists grow",
       [&] {
         for (int i = 0; i < 40; ++i) {
           const std::string id = "n" + std::to_string(i);
           store->insertAccount(hooked(id));
           store->accountWithIdentifier(id)->fullAccountUsingLoader(nullptr);
         }
       }},
  };
  const std::function<void()> full = [&] { static_cast<void>(account->fullAccountUsingLoader(this)); };
  const std::function<void()> list = [&] { static_cast<void>(store->accountsWithTypes({"T"})); };
  const std::function<void()> refresh = [&] { account->refreshContainersForDataclass("d"); };
  const std::function<void()> save = [&] { store->saveAllAccounts(); };
  const std::function<void()> remove = [&] { store->deleteAccount(account); };
  const std::function<void()> update = [&] { store->updateAccount(account); };
  const std::function<void()> replace = [&] { store->replaceAccountWithAccount(account, account); };
  const std::function<void()> replaceMany = [&] {
    child->setParentAccount(account);
    store->replaceAccountsWithTypesWithAccounts({"U"}, {account, child});
  };
  const std::function<void()> addChild = [&] { store->addChildToAccount(child, account); };
  const std::function<void()> removeChild = [&] {
    store->removeChildWithIdentifierFromAccount("a1", account);
  };
  struct Call {
    const char* name;
    std::function<void()> make;
    std::vector<const char*> points;
  };
  const Call calls[] = {
      {"full account", full, {"loader", "creator", "parent"}},
      {"full account by identifier",
       [&] { static_cast<void>(store->fullAccountWithIdentifierLoader("a", this)); },
       {"loader", "creator"}},
      {"full accounts", list, {"type", "identifier", "creator", "parent"}},
      {"refresh", refresh, {"creator", "refresh"}},
      {"will change",
       [&] { AccountsManager::accountWillChangeForDataclass(account, *dataclassName); },
       {"identifier", "notifier"}},
      {"did change",
       [&] { AccountsManager::accountDidChangeForDataclass(account, *dataclassName); },
       {"notifier"}},
      {"save", save, {"fixer", "identifier", "to save", "saved", "notifier"}},
      {"announce", [&] { store->_sendNotificationsForChangedAccounts(); }, {"to save", "notifier"}},
      {"find", [&] { store->displayAccountWithSyncIdentifier("b2"); }, {"sync"}},
      {"of types", [&] { static_cast<void>(store->countOfBasicAccountsWithTypes({"T"})); }, {"type"}},
      {"children", [&] { static_cast<void>(store->childrenOfAccount(account)); }, {"identifier"}},
      {"update", update, {"identifier", "children"}},
      {"insert", [&] { store->insertAccount(account); }, {"identifier"}},
      {"delete", remove, {"identifier"}},
      {"replace", replace, {"identifier", "children"}},
      {"replace many", replaceMany, {"other", "type", "identifier", "children", "set"}},
      {"add a child", addChild, {"children", "set", "identifier"}},
      {"remove a child", removeChild, {"children", "set", "identifier"}},
      {"end of a full account",
       [&] {
         static_cast<void>(store->fullAccountWithIdentifierLoader("a1", nullptr));
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
        act = [&, &doIt = hostile] {
          dropHandles();
          doIt();
        };
        armed = point;
        try {
          call.make();
        } catch (const EnumerationMutation&) {    // of a walk
        } catch (const std::out_of_range&) {      // the record to replace is not there any more
        } catch (const std::invalid_argument&) {  // nor is the record of a full account
        }
        EXPECT_STREQ(armed, "") << "nothing happened";
        dropHandles();
        store.reset();
        EXPECT_TRUE(oldStore.expired());
        EXPECT_TRUE(oldAccount.expired());
      }
    }
  }
}

}  // namespace
}  // namespace roster::testing
