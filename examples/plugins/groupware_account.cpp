#include <roster/roster.h>

#include <memory>
#include <utility>

/// A plug-in that makes full accounts and sync accounts, for a server with mail, contacts and calendars. What
/// would talk to that server is left out.

namespace {

constexpr std::int32_t renewed = 0;
constexpr std::int32_t userUnknown = 1;

/// The full account: a record that knows more than a plain one. It is made of the properties that the record
/// has when it is first asked for, and does not follow the record's later changes.
class GroupwareAccount : public roster::AccountSubclass<GroupwareAccount> {
 public:
  using AccountSubclass::AccountSubclass;

  /// With the user's name, because several people of a household may use one server.
  roster::String displayName() const override {
    const roster::String name = AccountSubclass::displayName();
    const roster::String user = accountPropertyForKey(roster::kAccountUsername).string();
    return user.isEmpty() ? name : roster::String(name.str() + " (" + user.str() + ")");
  }

  /// The handler may be called later and from elsewhere, once the server has answered; here it is at once.
  void renewAccountCredentialsWithHandler(const roster::CredentialRenewalHandler& handler) override {
    const bool isUserKnown = !accountPropertyForKey(roster::kAccountUsername).string().isEmpty();
    handler(isUserKnown ? renewed : userUnknown);
  }
};

/// The sync account. The record keeps it, so it must not keep the record.
class GroupwareSync : public roster::AccountRefreshProtocol {
 public:
  explicit GroupwareSync(std::weak_ptr<const roster::BasicAccount> account) : account_(std::move(account)) {}

  bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view /*identifier*/,
                                                                 std::string_view dataclass,
                                                                 bool /*isUserRequested*/) override {
    return isRefreshWanted(dataclass);
  }
  bool refreshContainerListForDataclassIsUserRequested(std::string_view dataclass,
                                                       bool /*isUserRequested*/) override {
    return isRefreshWanted(dataclass);
  }
  bool refreshContainersForDataclassIsUserRequested(std::string_view dataclass,
                                                    bool /*isUserRequested*/) override {
    return isRefreshWanted(dataclass);
  }

 private:
  bool isRefreshWanted(std::string_view dataclass) const {
    const auto account = account_.lock();
    return account && account->isEnabledForDataclass(dataclass);
  }

  std::weak_ptr<const roster::BasicAccount> account_;
};

const roster::ClassObject* classForAccountType(std::string_view /*type*/) {
  return roster::findClass("GroupwareAccount");
}

std::shared_ptr<roster::AccountRefreshProtocol> accountToRefresh(
    const std::shared_ptr<roster::BasicAccount>& account) {
  return std::make_shared<GroupwareSync>(account);
}

/// Class names are shared by the whole process, so give yours a prefix of their own.
void registerClasses(roster::PluginClasses& classes) {
  classes.add(roster::ClassObject("GroupwareAccount")
                  .answering(roster::AccountInstantiationProtocol::of<GroupwareAccount>()));
  classes.add(roster::ClassObject("GroupwareCreator")
                  .answering(roster::AccountCreationProtocol{.classForAccountType = &classForAccountType})
                  .answering(roster::SyncAccountCreationProtocol{.accountToRefreshForBasicAccount =
                                                                     &accountToRefresh}));
}

}  // namespace

ROSTER_PLUGIN(registerClasses)
