#include <gtest/gtest.h>

#include "roster/account/basic_account.h"
#include "roster/value/value_description.h"
#include "tests/support/own_process.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

constexpr const char* everything =
    "Mail Contacts Calendars Reminders Bookmarks Notes MediaStream DeviceLocator ContactsSearch Backup "
    "Ubiquity KeyValue Satchel SharedStreams";

class Enablement : public OwnProcessTest {
 protected:
  Enablement() {
    useOwnResources();
    const auto type = [](const Value& supported) { return Dictionary{{"Supported Dataclasses", supported}}; };
    const StringList& all = BasicAccount::allSupportedDataclasses();
    writeResource("AccountTypesProperties",
                  Dictionary{{"All", type(arrayValue({all.rbegin(), all.rend()}))},
                             {"Some", type(dataclassArray("Calendars Mail Backup"))},
                             {"None", Dictionary()}});
  }
  template <class Account = BasicAccount>
  static std::shared_ptr<Account> account(const char* type, const Value& provisioned = {},
                                          const Value& enabled = {}) {
    return Account::accountWithProperties({{"Type", type},
                                           {"Class", "X"},
                                           {"Provisioned Dataclasses", provisioned},
                                           {"Enabled Dataclasses", enabled}});
  }
};

TEST_F(Enablement, ListsAreInCanonicalOrderWithUnknownNamesBehindAsGiven) {
  const StringList given = dataclasses("x.b SharedStreams x.a Mail x.b SharedStreams");
  EXPECT_EQ(shortNames(account("None")->_orderedDataclasses(given)), "Mail SharedStreams x.b x.a x.b");
  EXPECT_EQ(shortNames(account("All")->supportedDataclasses()), everything);
}

TEST_F(Enablement, ProvisionedLiesWithinSupportedAndEnabledWithinProvisioned) {
  const Value odd = array(5, dataclass("Mail"), dataclassArray("Backup"));
  const std::tuple<Value, Value, const char*, const char*> rows[] = {
      {{}, {}, "Mail Calendars Backup", "nil"},
      {{}, Array(), "Mail Calendars Backup", ""},
      {Array(), dataclassArray("Mail"), "", ""},
      {dataclassArray("Backup Notes x.y Mail Backup"), dataclassArray("Calendars Backup"), "Mail Backup",
       "Backup"},
      {odd, odd, "Mail", "Mail"},
      {"Mail", Dictionary{{"Mail", true}}, "Mail Calendars Backup", "nil"}};
  for (const auto& [provisioned, enabled, isProvisioned, isEnabled] : rows) {
    SCOPED_TRACE(formatted("%@ and %@", provisioned, enabled));
    const auto made = account("Some", provisioned, enabled);
    EXPECT_EQ(shortNames(made->provisionedDataclasses()), isProvisioned);
    EXPECT_EQ(shortNames(made->enabledDataclasses()), isEnabled);
    EXPECT_EQ(made->isEnabledForDataclass(dataclass("Mail")), std::string(isEnabled).starts_with("Mail"));
  }
}

TEST_F(Enablement, AChildFollowsItsParentWhileThatHasAnythingEnabled) {
  const auto parent = account("All", dataclassArray("Mail Notes"), dataclassArray("Notes Mail Backup"));
  const auto child = account("Some", {}, dataclassArray("Calendars Mail"));
  const auto bareChild = account("Some");
  for (const auto& each : {child, bareChild}) each->setParentAccount(parent);
  EXPECT_EQ(shortNames(child->enabledDataclasses()), "Mail Notes") << "though the child's type has no Notes";
  EXPECT_EQ(shortNames(child->provisionedDataclasses()), "Mail");

  child->setAccountPropertyForKey("Calendars", "Provisioned Dataclasses");
  EXPECT_EQ(shortNames(child->provisionedDataclasses()), "Mail") << "a text does not hide the parent's list";
  parent->setAccountPropertyForKey(dataclassArray("Backup"), "Enabled Dataclasses");
  EXPECT_EQ(shortNames(parent->enabledDataclasses()), "");
  EXPECT_EQ(shortNames(child->enabledDataclasses()), "Mail") << "an empty list does not lead";
  EXPECT_EQ(shortNames(bareChild->enabledDataclasses()), "") << "stored by the parent, provisioned by nobody";
  bareChild->setEnabledForDataclass(true, dataclass("Mail"));
  EXPECT_EQ(bareChild->properties().find("Enabled Dataclasses"), dataclassArray("Mail"))
      << "the child's own list starts empty, not with its parent's";
}

/// A record whose class answers for itself what it is asked to.
class Overriding : public AccountSubclass<Overriding> {
 public:
  using AccountSubclass::AccountSubclass;
  StringList supportedDataclasses() const override { return dataclasses("Backup x.y"); }
  StringList provisionedDataclasses() const override {
    return provisioned ? *provisioned : BasicAccount::provisionedDataclasses();
  }
  std::optional<StringList> enabledDataclasses() const override {
    return enabled ? enabled : BasicAccount::enabledDataclasses();
  }
  std::optional<StringList> provisioned{}, enabled{};
};

TEST_F(Enablement, FollowsTheListsThatAClassOverrides) {
  const auto made = account<Overriding>("Some", {}, dataclassArray("Mail Backup"));
  EXPECT_EQ(shortNames(made->provisionedDataclasses()), "Backup x.y");
  for (const char* name : {"x.y", "com.nimbal.Dataclass.Calendars"}) made->setEnabledForDataclass(true, name);
  EXPECT_EQ(shortNames(made->enabledDataclasses()), "Backup x.y");
  EXPECT_EQ(made->properties().find("Enabled Dataclasses"), dataclassArray("Mail Backup x.y"));
  made->provisioned = dataclasses("Mail");
  EXPECT_EQ(shortNames(made->enabledDataclasses()), "Mail");
  made->enabled = dataclasses("Notes");
  const auto child = account("None");
  child->setParentAccount(made);
  EXPECT_EQ(shortNames(child->enabledDataclasses()), "Notes");
  EXPECT_TRUE(made->isEnabledForDataclass(dataclass("Notes")));
}

TEST_F(Enablement, SwitchingStoresASetAndLeavesWhatIsNoDataclass) {
  const Value odd = array(5, dataclass("Mail"), dataclass("Mail"), "x.y", 5.5);
  const std::tuple<Value, bool, const char*, Value> rows[] = {
      {{}, false, "Mail", Array()},
      {dataclassArray("Notes"), false, "Notes", dataclassArray("Notes")},
      {dataclassArray("Mail Mail Backup"), true, "Mail", dataclassArray("Mail Backup")},
      {odd, true, "Calendars", array(5, dataclass("Mail"), "x.y", 5.5, dataclass("Calendars"))},
      {odd, false, "Mail", array(5, "x.y", 5.5)}};
  for (const auto& [before, isEnabled, of, after] : rows) {
    const auto made = account("Some", Array(), before);
    made->setEnabledForDataclass(isEnabled, dataclass(of));
    EXPECT_EQ(made->properties().find("Enabled Dataclasses"), after) << describe(before);
  }
}

TEST_F(Enablement, SwitchingManyReplacesTheListAndForcingAsksForNoSupport) {
  const auto made = account("Some", {}, dataclassArray("Backup x.y"));
  const auto isStored = [&] { return made->properties().find("Enabled Dataclasses"); };
  for (const char* none : {"Notes x.y", ""}) {
    made->setEnabledForDataclasses(dataclasses(none));
    EXPECT_TRUE(isStored().isNil()) << none;
  }
  made->setEnabledForDataclasses(dataclasses("Notes Mail Calendars Mail"));
  made->_forcedSetEnabledForDataclass(true, dataclass("Notes"));
  EXPECT_EQ(isStored(), dataclassArray("Mail Calendars Notes"));
  EXPECT_FALSE(made->isEnabledForDataclass(dataclass("Notes")));
}

TEST_F(Enablement, RestrictionsTakeDataclassesAwayFromOneQueryToTheNext) {
  const char* all = "Mail MediaStream Backup Ubiquity KeyValue Satchel SharedStreams";
  const std::pair<Dictionary, const char*> rows[] = {
      {{{"PhotoStream", false}, {"CardsWhileLocked", 1}},
       "Mail Backup Ubiquity KeyValue Satchel SharedStreams"},
      {{{"CloudBackup", false}, {"SharedPhotoStreams", 2}}, "Mail MediaStream Ubiquity KeyValue Satchel"},
      {{{"CloudDocumentSync", 2}, {"CardsWhileLocked", 2}}, "Mail MediaStream Backup SharedStreams"},
      {{{"PhotoStream", 3}, {"CloudBackup", 0}}, all},
      {{}, all}};
  for (const auto& made : {account("All", {}, dataclassArray(all)),
                           account("All", dataclassArray(all), dataclassArray(everything))}) {
    for (const auto& [restrictions, left] : rows) {
      device.writePropertyList("etc/roster/restrictions.plist", restrictions);
      EXPECT_EQ(shortNames(made->enabledDataclasses()), left) << describe(restrictions);
    }
  }
}

}  // namespace
}  // namespace roster::testing
