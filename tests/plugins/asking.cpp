#include "roster/platform/plugin.h"
#include "roster/store/accounts_manager.h"

namespace {

/// Looks at the device's accounts before it can serve them.
void registerClasses(roster::PluginClasses& classes) {
  const auto store = roster::AccountsManager::init();
  static_cast<void>(store->accountsWithTypes({"T"}));
  classes.add(roster::ClassObject("Asking"));
}

}  // namespace

ROSTER_PLUGIN(registerClasses)
