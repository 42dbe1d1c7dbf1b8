#include "roster/account/basic_account.h"
#include "roster/notify/account_notifier.h"
#include "roster/platform/plugin.h"
#include "roster/platform/system_log.h"

using namespace roster;

namespace {

class PluginAccount : public AccountSubclass<PluginAccount> {
 public:
  using AccountSubclass::AccountSubclass;
  void renewAccountCredentialsWithHandler(const CredentialRenewalHandler& handler) override { handler(42); }
};

void noteChanges(const Array& changes) { systemLog("The plug-in hears of %u", changes.size()); }

void registerClasses(PluginClasses& classes) {
  const auto classForType = [](std::string_view type) {
    return type == "P" ? findClass("PluginAccount") : nullptr;
  };
  classes.add(ClassObject("PluginAccount").answering(AccountInstantiationProtocol::of<PluginAccount>()));
  classes.add(ClassObject("PluginCreator").answering(AccountCreationProtocol{classForType}));
  classes.add(ClassObject("PluginNotifier").answering(AccountNotifierProtocol{noteChanges}));
}

}  // namespace

ROSTER_PLUGIN(registerClasses)
