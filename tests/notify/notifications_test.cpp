#include "roster/notify/change_detection.h"
#include "roster/notify/notifier_dispatch.h"
#include "tests/store/store_test.h"
#include "tests/support/creators_table.h"

namespace roster::testing {
namespace {

Dictionary with(const Dictionary& properties, std::string_view key, const Value& value) {
  auto copy = MutableDictionary::copyOf(properties);
  copy.set(key, value);
  return copy;
}
/// The dataclasses for which the number has a bit; nil for -1.
Value dataclassesOf(int bits) {
  std::vector<Value> list;
  for (int i = 0; i < 3; ++i) {
    if ((bits >> i & 1) != 0) list.emplace_back("d" + std::to_string(i));
  }
  return bits < 0 ? Value() : Array(list);
}
Value concerned(RSAccountChangeType type, const Dictionary& original, const Dictionary& current) {
  StringList list = concernedDataclasses({type, original, current});
  std::sort(list.begin(), list.end());
  return arrayValue(list);
}

TEST(ChangeDetection, ConcernsWhatWasSwitchedAndWithOtherChangesAllThatIsEnabled) {
  const Dictionary plain{{"Type", "T"}, {"Port", 1}};
  const std::pair<Dictionary, bool> others[] = {
      {with(plain, "Port", 1.0), false},      {with(plain, "ChildAccounts", array(plain)), false},
      {with(plain, "IsActive", true), false}, {with(plain, "isActive", true), true},
      {with(plain, "Port", 2), true},         {with(plain, "Port", {}), true}};
  for (int before = -1; before < 8; ++before) {
    for (int now = -1; now < 8; ++now) {
      for (const auto& [other, isChange] : others) {
        const Dictionary original = with(plain, "Enabled Dataclasses", dataclassesOf(before));
        const Dictionary current = with(other, "Enabled Dataclasses", dataclassesOf(now));
        const int was = std::max(before, 0);
        const int is = std::max(now, 0);
        SCOPED_TRACE(formatted("%@ and %@", original, current));
        EXPECT_EQ(concerned(RSAccountChangeTypeModified, original, current),
                  dataclassesOf((was ^ is) | (isChange ? is : 0)));
        EXPECT_EQ(concerned(RSAccountChangeTypeAdded, {}, current), dataclassesOf(is));
        EXPECT_EQ(concerned(RSAccountChangeTypeRemoved, original, {}), dataclassesOf(was));
      }
    }
  }
}

TEST(ChildChanges, TellWhatHappenedToEachChild) {
  const auto parent = [](const Value& children) { return stored("P", {{"ChildAccounts", children}}); };
  const AccountChange change{RSAccountChangeTypeModified, parent(array(stored("1"), stored("2"), "odd")),
                             parent(array(stored("2", {{"x", 1}}), stored("3")))};
  std::string text;
  for (const AccountChange& each : childChanges(change))
    text += std::to_string(each.type) + each.identifier().str() + " ";
  EXPECT_EQ(text, "21 03 12 ");
}

Dictionary notifier(const Value& className, const std::string& names, const Value& framework = thisLibrary) {
  return creatorEntry("NotifierAccount", className, framework, dataclassArray(names));
}
Dictionary account(std::string_view identifier, const std::string& names, std::string_view type = "T") {
  return stored(identifier, {{"Type", type}, {"Enabled Dataclasses", dataclassArray(names)}});
}

class NotifierTest : public CreatorsTableTest {
 protected:
  static void registerNotifier(const std::string& name, const AccountNotifierProtocol& answers) {
    registerClass(ClassObject(name).answering(answers));
  }
  /// Registers a notifier whose calls become texts in `heard`.
  void registerListener(const std::string& name) {
    const auto note = [this, name](std::string_view identifier, std::string_view dataclass) {
      heard.push_back(formatted("%@ %@ %@", name, identifier, dataclass));
    };
    const auto noteChanges = [this, name](const Array& changes) {
      std::string text = name;
      for (const Value& change : changes) {
        const Dictionary told = *change.dictionary();
        text += formatted("; %@ %@ %@ [%@]", told.find("ChangeType"), told.find("AccountType"),
                          told.find("AccountID"), shortNames(stringList(told.find("OriginalDataclasses"))));
      }
      heard.push_back(text);
    };
    registerNotifier(name, {noteChanges, note});
  }
  /// Makes these the notifiers of the type "T", with A listening, and a store of the accounts.
  template <class... Accounts>
  Store start(const Value& notifiers, const Accounts&... accounts) {
    writeCreators({{"T", notifiers}});
    registerListener("A");
    return storeOf(array(accounts...));
  }
  static void rename(const Store& store, const String& name) {
    for (const AccountPtr& each : *store->allBasicAccounts())
      each->setAccountPropertyForKey(name, "DisplayName");
  }
  /// What the notifiers hear of a save.
  Lines save(const Store& store) {
    heard.clear();
    store->saveAllAccounts();
    return heard;
  }

  Lines heard;
};

TEST_F(NotifierTest, AreFoundInACompleteTable) {
  const Dictionary other = creatorEntry("FullAccount", "A", {}, dataclassArray("Mail"));
  const Dictionary text = creatorEntry("NotifierAccount", "A", {}, dataclass("Mail"));
  const std::string unnamed = malformed + "the name of the class for notificatinos with the type %@";
  const std::string unplaced = malformed + "the path to the framework for the notifier with type %@";
  const std::string unlisted = malformed + "the information for the type %@";
  const std::tuple<Value, std::string, StringList> rows[] = {
      {Value(), unlisted, {}},
      {"text", unlisted, {}},
      {array(notifier("A", "Mail", {})), unplaced, {}},
      {array(notifier("A", "Mail", "/no.so")), noFile, {}},
      {array(notifier("A", "Mail"), notifier("", "Notes Mail")), unnamed, {}},
      {array(7, other, text, notifier("A", "Notes", {})), "", {}},
      {array(notifier("B", "Notes Mail"), notifier("A", "Mail"), notifier("B", "Mail")),
       "",
       {"B", "A", "B"}}};
  MutableDictionary table;
  for (std::size_t i = 1; i < std::size(rows); ++i) table.set("T" + std::to_string(i), std::get<0>(rows[i]));
  writeCreators(table);
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const auto& [entries, message, names] = rows[i];
    const String type = i == 0 ? String() : "T" + std::to_string(i);
    assertions.clear();
    EXPECT_EQ(AccountsManager::_notifierClassNamesForAccountTypeDataclass(type, dataclass("Mail")), names);
    const std::string finding =
        "+[AccountsManager _notifierClassNamesForAccountType:dataclass:] AccountsManager: ";
    EXPECT_EQ(assertions, message.empty() ? Lines() : Lines{formatted(finding + message, type)}) << i;
  }
}

TEST_F(NotifierTest, HearOnceWhateverTheOrderOfAccountsThoughAnotherLibraryIsMissing) {
  setAssertionHandler({});
  const Dictionary both = account("both", "Mail Contacts"), one = account("one", "Contacts");
  const std::string ofBoth = "; 1 T both [Mail Contacts]", ofOne = "; 1 T one [Contacts]";
  for (const bool isBothFirst : {true, false}) {
    const Store store = start(array(notifier("Lost", "Mail", "/no.so"), notifier("A", "Contacts")),
                              isBothFirst ? both : one, isBothFirst ? one : both);
    rename(store, "new");
    log.clear();
    EXPECT_THROW(save(store), AssertionFailure);
    EXPECT_EQ(heard, Lines{isBothFirst ? "A" + ofBoth + ofOne : "A" + ofOne + ofBoth});
    EXPECT_EQ(linesWith(log.lines(), "/no.so"), 1U) << "one failure, however many accounts have it";
    EXPECT_EQ(save(store), Lines()) << "nobody hears it twice, and there is nothing left to fail";
  }
}

/// Saves everything but its secret.
class SecretiveAccount : public AccountSubclass<SecretiveAccount> {
 public:
  using AccountSubclass::AccountSubclass;
  Dictionary propertiesToSave() const override { return with(properties().deepCopy(), "Secret", {}); }
};

TEST_F(NotifierTest, HearOnceOfASaveWhatConcernsThem) {
  static_cast<void>(
      start(array(notifier("A", "Mail"), notifier("A", "Mail Contacts"), notifier("B", "Contacts"),
                  notifier("PluginNotifier", "Notes", plugin("good")))));
  registerListener("B");
  const Value accounts = array(account("a", "Mail Contacts"), account("b", "Mail"), account("c", "Mail"));
  device.writePropertyList(device.registryPath(), Dictionary{{"Accounts", accounts}});
  String rejected;
  const auto store = CustomStore::load({ScriptedFixer([&](const AccountPtr& each) {
    return each->identifier() == rejected ? FixResult::unrepairable : FixResult::nothingDone;
  })});
  const AccountPtr secretive = SecretiveAccount::accountWithProperties(account("s", "Contacts"));
  store->insertAccount(secretive);
  EXPECT_EQ(save(store), (Lines{"A; 0 T s []", "B; 0 T s []"}));
  secretive->setAccountPropertyForKey("1", "Secret");
  EXPECT_EQ(save(store), Lines()) << "what is not saved is no change";
  EXPECT_EQ(AccountsManager::init()->accountWithIdentifier("s")->properties(), account("s", "Contacts"));
  const AccountPtr a = store->accountWithIdentifier("a");
  a->setEnabledForDataclass(false, dataclass("Contacts"));
  EXPECT_EQ(save(store), (Lines{"A; 1 T a [Mail Contacts]", "B; 1 T a [Mail Contacts]"}));
  EXPECT_EQ(save(store), Lines()) << "a change is told once";

  a->setDisplayName("new");
  store->deleteAccountWithIdentifier("b");
  store->insertAccount(BasicAccount::accountWithProperties(account("d", "Notes Contacts")));
  rejected = "c";
  EXPECT_EQ(save(store), (Lines{"A; 2 T b [Mail]; 2 T c [Mail]; 0 T d []; 1 T a [Mail]", "B; 0 T d []"}));
  EXPECT_EQ(log.lines(), Lines{"The plug-in hears of 1"});

  heard.clear();
  for (const char* name : {"Mail", "Notes"})
    AccountsManager::accountWillChangeForDataclass(a, dataclass(name));
  EXPECT_EQ(heard, Lines(2, "A a com.nimbal.Dataclass.Mail")) << "as often as the table names it";
}

TEST_F(NotifierTest, HearTogetherOfAllThatWasSavedSilentlyOrNotAtAll) {
  const Store store = start(array(notifier("A", "Mail Notes")), account("a", "Mail"), account("b", "Mail"));
  const AccountPtr a = store->accountWithIdentifier("a");
  rename(store, "silent");
  AccountsManager::_setShouldSkipNotifications(true);
  EXPECT_EQ(save(store), Lines());
  rename(store, {});
  a->setEnabledForDataclasses({dataclass("Notes")});
  EXPECT_EQ(save(store), Lines());
  AccountsManager::_setShouldSkipNotifications(false);

  const auto saveSilently = [&] {
    const NotificationPause pause;
    rename(store, "silent");
    EXPECT_EQ(save(store), Lines());
    std::thread([this] {
      const Store other = storeOf(array(account("other", "Mail")));
      rename(other, "new");
      EXPECT_EQ(save(other), Lines{"A; 1 T other [Mail]"}) << "another thread goes on telling";
    }).join();
    throw std::runtime_error("the scope ends");
  };
  EXPECT_THROW(saveSilently(), std::runtime_error);
  rename(store, {});
  a->setDisplayName("\xFF");
  EXPECT_EQ(save(store), Lines()) << "such a name cannot be written";
  a->setDisplayName("new");
  EXPECT_EQ(save(store), Lines{"A; 1 T a [Mail]"}) << "b is as it was when somebody last heard of it";
}

TEST_F(NotifierTest, AreToldWhateverTheOthersDo) {
  const auto fail = [](const auto&...) { throw std::runtime_error("no wire"); };
  registerNotifier("Broken", {fail, fail, fail});
  registerClass(ClassObject("Mute"));
  const Store store = start(array(notifier("Gone", "Mail"), notifier("Broken", "Mail"),
                                  notifier("Mute", "Mail"), notifier("A", "Mail")),
                            account("u", "Mail", "Unlisted"), account("a", "Mail"));
  const AccountPtr a = store->accountWithIdentifier("a");
  a->setDisplayName("new");
  EXPECT_EQ(save(store), Lines{"A; 1 T a [Mail]"});
  AccountsManager::accountWillChangeForDataclass(a, dataclass("Mail"));
  AccountsManager::accountDidChangeForDataclass(a, dataclass("Mail"));
  EXPECT_EQ(heard.back(), "A a com.nimbal.Dataclass.Mail");
  const std::string broken = "ERROR: The notifier Broken failed: no wire";
  const std::string mute = "ERROR: The notifier Mute failed: the class Mute does not answer ";
  EXPECT_EQ(log.lines(), (Lines{broken, mute + "noteAccountChanges:", broken, broken}));
  const std::string gone = " AccountsManager: Could not find a class for class name Gone";
  EXPECT_EQ(assertions, (Lines{"-[AccountsManager _sendNotificationsForChangedAccounts]" + gone,
                               "+[AccountsManager accountWillChange:forDataclass:]" + gone,
                               "+[AccountsManager accountDidChange:forDataclass:]" + gone}));
  setAssertionHandler({});
  rename(store, "newer");
  EXPECT_THROW(save(store), AssertionFailure);
  EXPECT_EQ(heard, Lines{"A; 1 T a [Mail]"}) << "a fault of one is thrown only when all have heard";
}

TEST_F(NotifierTest, AreToldThatTheyCannotSaveTheStoreThatTellsThem) {
  const Store store = start(array(notifier("Saving", "Mail"), notifier("A", "Mail")), account("a", "Mail"));
  registerNotifier("Saving", {[&](const Array&) {
                     store->saveAllAccounts();
                     EXPECT_TRUE(store->lastSaveError());
                     store->_sendNotificationsForChangedAccounts();
                   }});
  rename(store, "new");
  EXPECT_EQ(save(store), Lines{"A; 1 T a [Mail]"});
  EXPECT_FALSE(store->lastSaveError());
  const std::string saving = "-[AccountsManager saveAllAccounts]";
  const std::string telling = "-[AccountsManager _sendNotificationsForChangedAccounts]";
  const std::string why = " was called by what a save of the same store calls";
  EXPECT_EQ(assertions, (Lines{saving + " AccountsManager: " + saving + why,
                               telling + " AccountsManager: " + telling + why}));
  rename(store, "newer");
  store->_sendNotificationsForChangedAccounts();
  EXPECT_EQ(heard.size(), 2U) << "an announcement without a save is one as well";
}

}  // namespace
}  // namespace roster::testing
