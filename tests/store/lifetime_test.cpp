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
  const auto grow = [&] {
    for (int i = 0; i < 40; ++i) store->insertAccount(hooked("n" + std::to_string(i)));
  };
  const std::function<void()> acts[] = {[&] { store->deleteAccountWithIdentifier("a"); },
                                        [&] { store->replaceAccountsWithTypesWithAccounts({"T"}, {}); },
                                        [&] { store.reset(); }, [&] { store = load(); }, grow};
  const auto replaceMany = [&] {
    child->setParentAccount(account);
    store->replaceAccountsWithTypesWithAccounts({"U"}, {account, child});
  };
  const auto endFullAccount = [&] {
    store->fullAccountWithIdentifierLoader("a1", nullptr);
    dropHandles();
    store->deleteAccountWithIdentifier("a");
  };
  const auto willChange = &AccountsManager::accountWillChangeForDataclass;
  const auto didChange = &AccountsManager::accountDidChangeForDataclass;
  const StringList changing{"ChildAccounts", "set", "identifier"};
  const std::pair<std::function<void()>, StringList> calls[] = {
      {[&] { account->fullAccountUsingLoader(this); }, {"loader", "creator", "parent"}},
      {[&] { store->fullAccountWithIdentifierLoader("a", this); }, {"loader", "creator"}},
      {[&] { static_cast<void>(store->accountsWithTypes({"T"})); },
       {"Type", "identifier", "creator", "parent"}},
      {[&] { account->refreshContainersForDataclass("d"); }, {"creator", "refresh"}},
      {[&] { willChange(account, *dataclassName); }, {"identifier", "notifier"}},
      {[&] { didChange(account, *dataclassName); }, {"notifier"}},
      {[&] { store->saveAllAccounts(); }, {"fixer", "identifier", "to save", "saved", "notifier"}},
      {[&] { store->_sendNotificationsForChangedAccounts(); }, {"to save", "notifier"}},
      {[&] { store->displayAccountWithSyncIdentifier("b2"); }, {"sync"}},
      {[&] { static_cast<void>(store->countOfBasicAccountsWithTypes({"T"})); }, {"Type"}},
      {[&] { static_cast<void>(store->childrenOfAccount(account)); }, {"identifier"}},
      {[&] { store->updateAccount(account); }, {"identifier", "ChildAccounts"}},
      {[&] { store->insertAccount(account); }, {"identifier"}},
      {[&] { store->deleteAccount(account); }, {"identifier"}},
      {[&] { store->replaceAccountWithAccount(account, account); }, {"identifier", "ChildAccounts"}},
      {replaceMany, {"Identifier", "Type", "identifier", "ChildAccounts", "set"}},
      {[&] { store->addChildToAccount(child, account); }, changing},
      {[&] { store->removeChildWithIdentifierFromAccount("a1", account); }, changing},
      {endFullAccount, {"end"}}};
  for (std::size_t call = 0; call < std::size(calls); ++call) {
    for (const std::string& point : calls[call].second) {
      for (std::size_t act = 0; act < std::size(acts); ++act) {
        SCOPED_TRACE("call " + std::to_string(call) + ", " + point + ": act " + std::to_string(act));
        start();
        const std::weak_ptr<AccountsManager> oldStore = store;
        const std::weak_ptr<BasicAccount> oldAccount = account;
        reach = {point, [&] { dropHandles(), acts[act](); }};
        try {
          calls[call].first();
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
