#include <roster/roster.h>

#include <iostream>
#include <stdexcept>

/// Uses what only an installed library shows to be right: data, code, templates and type information that
/// program and library share. Keeps an account on the device that ROSTER_ROOT names.

namespace {

void require(bool isSo, const std::string& what) {
  if (!isSo) throw std::runtime_error("not so: " + what);
}

/// The library makes it and calls it, knowing nothing of it but its base.
class ConsumersAccount : public roster::AccountSubclass<ConsumersAccount> {
 public:
  using AccountSubclass::AccountSubclass;
  roster::String displayName() const override { return "my " + AccountSubclass::displayName().str(); }
};

template <class Exception, class Call>
bool throws(const Call& call) {
  try {
    call();
  } catch (const Exception&) {
    return true;
  }
  return false;
}

void useValues() {
  static_assert(ROSTER_VERSION_MAJOR + ROSTER_VERSION_MINOR + ROSTER_VERSION_PATCH > 0);
  require(roster::Value(roster::kMailAccountType) == "Mail", "the vocabulary is the library's");
  roster::MutableDictionary dictionary;
  dictionary.set("a", roster::Array({1, "two"}));
  const auto changeDuringWalk = [&] {
    for (const roster::DictionaryEntry& entry : dictionary) dictionary.set(entry.key.str() + "b", 1);
  };
  require(throws<roster::EnumerationMutation>(changeDuringWalk), "a change ends a walk");
  const roster::Result<std::string> bytes = roster::binaryPropertyList(dictionary);
  require(bytes && *roster::parsePropertyList(roster::Bytes(*bytes)) == roster::Value(dictionary),
          "a property list is read as it was written");
}

void keepAnAccount() {
  roster::registerClass(roster::ClassObject("ConsumersAccount")
                            .answering(roster::AccountInstantiationProtocol::of<ConsumersAccount>()));
  const auto account = ConsumersAccount::accountWithProperties(
      {{"Type", "Exchange"}, {"Class", "ConsumersAccount"}, {"Identifier", "A"}, {"DisplayName", "account"}});
  const auto store = roster::AccountsManager::init();
  store->insertAccount(account);
  store->saveAllAccounts();
  require(roster::AccountsManager::init()->accountWithIdentifier("A") != nullptr, "it is in the file");
  require(account->displayName() == "my account", "the subclass's operation is called");
  using roster::AccountsManager;
  const auto ask = &AccountsManager::shouldMigrateOldMailAccountsOldTSAccountsNewRoster;
  require(throws<roster::AssertionFailure>([&] { ask(nullptr, nullptr, nullptr); }), "errors are thrown");
}

}  // namespace

int main() {
  try {
    useValues();
    keepAnAccount();
    std::cout << "consumer works\n";
  } catch (const std::exception& exception) {
    std::cout << exception.what() << '\n';
    return 1;
  }
}
