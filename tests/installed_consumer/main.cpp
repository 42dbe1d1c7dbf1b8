#include <roster/roster.h>

#include <iostream>

/// Uses what only an installed library shows to be right: data, code, templates and type information that
/// program and library share. Keeps an account on the device that ROSTER_ROOT names.

namespace {

using roster::AccountsManager;

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

}  // namespace

int main() {
  static_assert(ROSTER_VERSION_MAJOR + ROSTER_VERSION_MINOR + ROSTER_VERSION_PATCH > 0);
  roster::registerClass(roster::ClassObject("ConsumersAccount")
                            .answering(roster::AccountInstantiationProtocol::of<ConsumersAccount>()));
  const auto account = ConsumersAccount::accountWithProperties(
      {{"Type", "Exchange"}, {"Class", "ConsumersAccount"}, {"Identifier", "A"}, {"DisplayName", "account"}});
  const auto store = AccountsManager::init();
  store->insertAccount(account);
  store->saveAllAccounts();
  roster::MutableDictionary dictionary;
  dictionary.set("a", roster::Array({1, "two"}));
  const auto changeDuringWalk = [&] {
    for (const roster::DictionaryEntry& entry : dictionary) dictionary.set(entry.key.str() + "b", 1);
  };
  const auto ask = [] {
    AccountsManager::shouldMigrateOldMailAccountsOldTSAccountsNewRoster(nullptr, nullptr, nullptr);
  };
  const std::pair<const char*, bool> facts[] = {
      {"the vocabulary is the library's", roster::Value(roster::kMailAccountType) == "Mail"},
      {"the account is in the file", AccountsManager::init()->accountWithIdentifier("A") != nullptr},
      {"the subclass's operation is called", account->displayName() == "my account"},
      {"a change ends a walk", throws<roster::EnumerationMutation>(changeDuringWalk)},
      {"a programming error is thrown", throws<roster::AssertionFailure>(ask)}};
  for (const auto& [fact, isSo] : facts) {
    if (!isSo) std::cout << "not so: " << fact << '\n';
  }
  std::cout << "consumer works\n";
}
