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
  roster::String displayName() const override {
    return roster::String("my " + AccountSubclass::displayName().str());
  }
};

template <class Exception, class Call>
void requireThrown(const Call& call, const std::string& what) {
  try {
    call();
  } catch (const Exception&) {
    return;  // NOLINT(bugprone-empty-catch): this is what is wanted
  }
  throw std::runtime_error("not thrown: " + what);
}

void useValues() {
  static_assert(ROSTER_VERSION_MAJOR + ROSTER_VERSION_MINOR + ROSTER_VERSION_PATCH > 0);
  require(roster::Value(roster::kMailAccountType) == roster::Value("Mail"),
          "the vocabulary is the library's");
  const roster::Array array({1, "two"});
  requireThrown<std::out_of_range>([&] { static_cast<void>(array.at(2)); }, "an index out of range");
  roster::MutableDictionary dictionary;
  dictionary.set("a", array);
  requireThrown<roster::EnumerationMutation>(
      [&] {
        for (const roster::DictionaryEntry& entry : dictionary) dictionary.set(entry.key.str() + "b", 1);
      },
      "a change during a walk");
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
  const auto loaded = roster::AccountsManager::init()->accountWithIdentifier("A");
  require(loaded != nullptr, "the account is in the file");
  require(account->displayName().str() == "my account", "the subclass's operation is called");
  requireThrown<roster::AssertionFailure>(
      [] {
        roster::AccountsManager::shouldMigrateOldMailAccountsOldTSAccountsNewRoster(nullptr, nullptr,
                                                                                    nullptr);
      },
      "a programming error");
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
