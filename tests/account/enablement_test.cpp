#include <gtest/gtest.h>

#include "roster/account/basic_account.h"
#include "roster/value/value_description.h"
#include "tests/support/own_process.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

class Enablement : public OwnProcessTest {
 protected:
  Enablement() {
    useOwnResources();
    const StringList& all = BasicAccount::allSupportedDataclasses();
    const Value backwards = arrayValue({all.rbegin(), all.rend()});
    writeResource(
        "AccountTypesProperties",
        Dictionary{{"All", Dictionary{{"Supported Dataclasses", backwards}}},
                   {"Some", Dictionary{{"Supported Dataclasses", dataclassArray("Calendars Mail Backup")}}},
                   {"None", Dictionary()}});
  }

  static AccountPtr account(const char* type, const Value& provisioned = {}, const Value& enabled = {}) {
    const auto made = BasicAccount::accountWithTypeClass(type, "X");
    made->setAccountPropertyForKey(provisioned, "Provisioned Dataclasses");
    made->setAccountPropertyForKey(enabled, "Enabled Dataclasses");
    return made;
  }
};

TEST_F(Enablement, ListsAreInCanonicalOrderWithUnknownNamesBehindAsGiven) {
  const StringList given = dataclasses("x.b SharedStreams x.a Mail x.b SharedStreams");
  EXPECT_EQ(shortNames(account("None")->_orderedDataclasses(given)), "Mail SharedStreams x.b x.a x.b");
  EXPECT_EQ(
      shortNames(account("All")->supportedDataclasses()),
      "Mail Contacts Calendars Reminders Bookmarks Notes MediaStream DeviceLocator ContactsSearch Backup "
      "Ubiquity KeyValue Satchel SharedStreams");
}

TEST_F(Enablement, ProvisionedLiesWithinSupportedAndEnabledWithinProvisioned) {
  struct Case {
    const char* name;
    Value provisioned, enabled;
    const char* isProvisioned;
    const char* isEnabled;
  };
  const Value mailAndNumber = array(5, dataclass("Mail"), dataclassArray("Backup"));
  const Case cases[] = {{"nothing stored", {}, {}, "Mail Calendars Backup", "nil"},
                        {"empty list enabled", {}, Array(), "Mail Calendars Backup", ""},
                        {"empty list provisioned", Array(), dataclassArray("Mail"), "", ""},
                        {"unsupported", dataclassArray("Backup Notes x.y Mail Backup"),
                         dataclassArray("Calendars Backup"), "Mail Backup", "Backup"},
                        {"elements of other types", mailAndNumber, mailAndNumber, "Mail", "Mail"},
                        {"no lists", "Mail", Dictionary{{"Mail", true}}, "Mail Calendars Backup", "nil"}};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    const auto made = account("Some", row.provisioned, row.enabled);
    EXPECT_EQ(shortNames(made->provisionedDataclasses()), row.isProvisioned);
    EXPECT_EQ(shortNames(made->enabledDataclasses()), row.isEnabled);
    EXPECT_EQ(made->isEnabledForDataclass(dataclass("Mail")), std::string(row.isEnabled).starts_with("Mail"));
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

TEST_F(Enablement, SwitchingStoresASetAndLeavesWhatIsNoDataclass) {
  struct Case {
    const char* name;
    Value before;
    bool isEnabled;
    const char* dataclass;
    Value after;
  };
  const Value odd = array(5, dataclass("Mail"), dataclass("Mail"), "x.y", 5.5);
  const Case cases[] = {
      {"on without a list", {}, true, "Mail", dataclassArray("Mail")},
      {"off without a list", {}, false, "Mail", Array()},
      {"unsupported", dataclassArray("Notes"), false, "Notes", dataclassArray("Notes")},
      {"on already, twice", dataclassArray("Mail Mail Backup"), true, "Mail", dataclassArray("Mail Backup")},
      {"on beside odd elements", odd, true, "Calendars",
       array(5, dataclass("Mail"), "x.y", 5.5, dataclass("Calendars"))},
      {"off beside odd elements", odd, false, "Mail", array(5, "x.y", 5.5)}};
  for (const Case& row : cases) {
    const auto made = account("Some", Array(), row.before);
    made->setEnabledForDataclass(row.isEnabled, dataclass(row.dataclass));
    EXPECT_EQ(made->properties().find("Enabled Dataclasses"), row.after) << row.name;
  }
}

TEST_F(Enablement, SwitchingManyReplacesTheListAndForcingAsksForNoSupport) {
  const auto made = account("Some", {}, dataclassArray("Backup x.y"));
  made->setEnabledForDataclasses(dataclasses("Notes Mail Calendars Mail"));
  made->_forcedSetEnabledForDataclass(true, dataclass("Notes"));
  EXPECT_EQ(made->properties().find("Enabled Dataclasses"), dataclassArray("Mail Calendars Notes"));
  EXPECT_FALSE(made->isEnabledForDataclass(dataclass("Notes")));
}

TEST_F(Enablement, RestrictionsTakeDataclassesAwayFromOneQueryToTheNext) {
  const char* all = "Mail MediaStream Backup Ubiquity KeyValue Satchel SharedStreams";
  const std::pair<Dictionary, const char*> cases[] = {
      {{{"PhotoStream", false}, {"CardsWhileLocked", 1}},
       "Mail Backup Ubiquity KeyValue Satchel SharedStreams"},
      {{{"CloudBackup", false}, {"SharedPhotoStreams", 2}}, "Mail MediaStream Ubiquity KeyValue Satchel"},
      {{{"CloudDocumentSync", 2}, {"CardsWhileLocked", 2}}, "Mail MediaStream Backup SharedStreams"},
      {{}, all}};
  const auto made = account("All", {}, dataclassArray(all));
  for (const auto& [restrictions, left] : cases) {
    device.writePropertyList("etc/roster/restrictions.plist", restrictions);
    EXPECT_EQ(shortNames(made->enabledDataclasses()), left) << describe(restrictions);
  }
}

}  // namespace
}  // namespace roster::testing
