#include "roster/account/basic_account.h"

#include <gtest/gtest.h>

#include "roster/platform/assertion.h"
#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

using Lines = std::vector<std::string>;

class BasicAccountTest : public ::testing::Test {
 protected:
  BasicAccountTest() {
    setAssertionHandler([this](const AssertionReport& report) {
      assertions.push_back(report.operation + " " + report.sourceFile + ": " + report.message);
    });
  }
  ~BasicAccountTest() override { setAssertionHandler({}); }
  static AccountPtr account(std::initializer_list<std::pair<std::string_view, Value>> more) {
    auto properties = MutableDictionary::copyOf(Dictionary{{"Type", "Mail"}, {"Class", "IMAPAccount"}});
    for (const auto& [key, value] : more) properties.set(key, value);
    return BasicAccount::accountWithProperties(properties);
  }

  TemporaryDevice device;
  CapturedLog log;
  Lines assertions;
};

TEST_F(BasicAccountTest, AssertsWhatOnlyAProgrammerCanGetWrong) {
  const auto named = account({{"DisplayName", "old"}});
  EXPECT_EQ(BasicAccount::init(), nullptr);
  EXPECT_EQ(BasicAccount::accountWithTypeClass("Fax", ""), nullptr);
  EXPECT_EQ(BasicAccount::accountWithTypeClass("Fax", "X"), nullptr);
  named->setDisplayName(String());
  EXPECT_EQ(named->displayName(), "old");
  for (const char* key : {"Type", "Class", "DisplayName"}) named->setAccountPropertyForKey({}, key);
  EXPECT_EQ(named->type(), "Mail");
  EXPECT_EQ(named->accountClass(), "IMAPAccount");
  EXPECT_TRUE(named->displayName().isNil());
  named->_forcedSetAccountPropertyForKey("Gmail", "Type");
  EXPECT_EQ(named->type(), "Gmail");
  const std::string initWithType = "-[BasicAccount _initWithType:class:] BasicAccount: The account ";
  EXPECT_EQ(assertions,
            (Lines{"-[BasicAccount init] BasicAccount: Don't use this method",
                   initWithType + "class is required.", initWithType + "type (Fax) is not supported",
                   "-[BasicAccount setDisplayName:] BasicAccount: The display name cannot be nil"}));
  setAssertionHandler({});
  EXPECT_THROW(BasicAccount::init(), AssertionFailure);
}

TEST_F(BasicAccountTest, GetsASyncIdentifierOnlyTogetherWithAnIdentifier) {
  const std::tuple<Value, Value, bool, bool> rows[] = {{{}, {}, false, false}, {{}, "S", false, true},
                                                       {"I", {}, true, true},  {"I", "S", true, true},
                                                       {"", {}, true, true},   {3, 4, false, false}};
  for (const auto& [given, givenSync, isKept, isSyncKept] : rows) {
    SCOPED_TRACE(formatted("%@ and %@", given, givenSync));
    const auto made = account({{"Identifier", given}, {"Sync Identifier", givenSync}});
    const Value identifier = made->properties().find("Identifier");
    EXPECT_TRUE(identifier.isString());
    EXPECT_EQ(identifier == given, isKept);
    EXPECT_EQ(made->properties().find("Sync Identifier"), isSyncKept ? givenSync : identifier);
    // The originals are what was given.
    EXPECT_EQ(made->originalProperties().find("Identifier"), given);
    EXPECT_EQ(made->originalProperties().find("Sync Identifier"), givenSync);
  }
  const auto fresh = BasicAccount::accountWithTypeClass("Gmail", "X");
  const String id = fresh->identifier();
  EXPECT_EQ(fresh->originalProperties(),
            (Dictionary{{"Type", "Gmail"}, {"Class", "X"}, {"Identifier", id}, {"Sync Identifier", id}}));
}

TEST_F(BasicAccountTest, AnswersWithTheWholeChainOfParents) {
  auto top = account({{"Identifier", "top"}, {"DisplayName", "Top"}, {"Type String", "T"}});
  const std::weak_ptr<BasicAccount> seenTop = top;
  const auto middle = account({{"Identifier", "middle"}, {"Type String", 5}});
  const auto child = account({});
  middle->setParentAccount(top);
  middle->setParentAccount(std::move(top));
  child->setParentAccount(middle);
  EXPECT_EQ(child->typeString(), "T") << "a number does not hide the parent's text";
  for (const AccountPtr& own : {middle->parentAccount(), middle, child})
    middle->parentAccount()->setParentAccount(own);
  const std::string asserted = "-[BasicAccount setParentAccount:] BasicAccount: ";
  EXPECT_EQ(assertions, Lines(3, asserted + "An account cannot be its own ancestor"));
  EXPECT_EQ(middle->parentAccount()->parentAccount(), nullptr);
  for (const char* key : {"Class", "Type", "Identifier"}) child->removeAccountPropertyForKey(key);
  child->setAccountClass("IMAPAccount");
  EXPECT_EQ(child->properties().size(), 1U) << "no key is protected, and a class that it has is not stored";
  EXPECT_EQ(child->accountClass(), "IMAPAccount");
  child->setDisplayName("Top");
  middle->setParentAccount(nullptr);
  EXPECT_EQ(child->displayName(), "Top") << "the child's own, though it equalled its parent's";
  EXPECT_TRUE(seenTop.expired());
}

/// A record that answers for itself what is asked under two keys, and has nothing under "Hidden".
class Answering : public AccountSubclass<Answering> {
 public:
  using AccountSubclass::AccountSubclass;
  Value accountPropertyForKey(std::string_view key) const override {
    if (key == kAccountTypeString || key == kAccountDisplayName || key == kAccountEnabledDataclasses)
      return {};
    if (key == kAccountShortTypeString) return "short";
    if (key == kAccountProvisionedDataclasses) return dataclassArray("Notes");
    return AccountSubclass::accountPropertyForKey(key);
  }
};

TEST_F(BasicAccountTest, AnswersAsItsOverriddenLookUpDoesAlsoWhenThatAnswersNil) {
  const auto parent = account({{"DisplayName", "Top"},
                               {"Type String", "T"},
                               {"Short Type String", "S"},
                               {"Provisioned Dataclasses", dataclassArray("Mail")},
                               {"Enabled Dataclasses", dataclassArray("x.y")}});
  const auto child =
      Answering::accountWithProperties({{"Type", "Mail"}, {"Class", "X"}, {"DisplayName", "own"}});
  child->setParentAccount(parent);
  EXPECT_TRUE(child->displayName().isNil() && child->typeString().isNil());
  EXPECT_EQ(child->shortTypeString(), "short");
  EXPECT_EQ(shortNames(child->provisionedDataclasses()), "Notes");
  EXPECT_EQ(child->enabledDataclasses(), std::nullopt);
}

TEST_F(BasicAccountTest, SharesWhatItSavesUntilItIsChangedAndNeverTakesItsOriginals) {
  const auto made = account({{"Identifier", "1"}});
  const Dictionary saved = made->propertiesToSave();
  made->setDisplayName("later");
  EXPECT_EQ(saved.find("DisplayName"), Value("later"));
  made->setOriginalProperties(Dictionary{{"Class", "Y"}});
  EXPECT_EQ(made->accountClass(), "IMAPAccount");
  EXPECT_EQ(made->originalProperties(), (Dictionary{{"Class", "Y"}}));
}

}  // namespace
}  // namespace roster::testing
