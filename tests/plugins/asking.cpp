#include "roster/platform/plugin.h"
#include "roster/store/accounts_manager.h"

/// Looks at the device's accounts before it can serve them.
static void registerClasses(roster::PluginClasses& classes) {
  static_cast<void>(roster::AccountsManager::init()->accountsWithTypes({"T"}));
  classes.add(roster::ClassObject("Asking"));
}
ROSTER_PLUGIN(registerClasses)
