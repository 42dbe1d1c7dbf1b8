#pragma once

#include "roster/account/basic_account.h"
#include "roster/platform/assertion.h"
#include "tests/support/own_process.h"
#include "tests/support/values.h"

namespace roster::testing {

/// The library itself, always loaded: it serves for classes that a test registers.
inline constexpr std::string_view thisLibrary = "libroster.so.1";
inline std::string plugin(const std::string& name) { return ROSTER_TEST_PLUGINS "/" + name + ".so"; }

// What an assertion says first when the table is incomplete, and when a library that is not there is named.
inline const std::string malformed = "Malformed AccountCreators information. Could not find ";
inline const std::string noFile =
    "Could not load the account creator framework /no.so. Error /no.so: cannot open shared object file: "
    "No such file or directory";

/// An entry of the account-creators table; what is nil is left out of it.
inline Dictionary creatorEntry(std::string_view kind, const Value& className, const Value& framework,
                               const Value& supported = {}) {
  return {{"Type", kind},
          {"Description",
           Dictionary{{"Class", className}, {"Framework", framework}, {"Supported Dataclasses", supported}}}};
}
inline Dictionary full(const Value& className, const Value& framework = thisLibrary) {
  return creatorEntry("FullAccount", className, framework);
}

inline void registerCreator(std::string name, AccountCreationProtocol answers) {
  registerClass(ClassObject(std::move(name)).answering(std::move(answers)));
}

/// Answers what a test says, and remembers the properties it was asked with.
class ScriptedLoader : public AccountLoaderProtocol {
 public:
  explicit ScriptedLoader(bool answer) : answer_(answer) {}
  bool loadBundleForAccountWithProperties(const Dictionary& properties) override {
    asked.push_back(properties);
    return answer_;
  }
  std::vector<Dictionary> asked;

 private:
  bool answer_;
};

/// The base of tests with an account-creators table of their own. A failed assertion is one more text in
/// `assertions`, and returns. The creator "Self" answers the record itself.
class CreatorsTableTest : public OwnProcessTest {
 protected:
  CreatorsTableTest() {
    useOwnResources();
    setAssertionHandler([this](const AssertionReport& report) {
      assertions.push_back(report.operation + " " + report.sourceFile + ": " + report.message);
    });
    registerCreator("Self", {.accountWithBasicAccount = [](const auto& account) { return account; }});
  }
  ~CreatorsTableTest() override { setAssertionHandler({}); }

  /// Makes the types of the table known, and the type "Unlisted".
  void writeTypes(const Dictionary& table) const {
    const Dictionary type{{"Supported Dataclasses", dataclassArray("Mail Contacts Notes")}};
    auto types = MutableDictionary::copyOf(Dictionary{{"Unlisted", type}});
    for (const DictionaryEntry& entry : table) types.set(entry.key, type);
    writeResource("AccountTypesProperties", types);
  }
  void writeCreators(const Dictionary& table) const {
    writeTypes(table);
    writeResource("AccountCreators", table);
  }

  std::vector<std::string> assertions;
};

}  // namespace roster::testing
