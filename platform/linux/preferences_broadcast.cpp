#include "platform/device.h"
#include "platform/linux/system_bus.h"
#include "platform/system_log.h"

namespace roster {

namespace {

constexpr BusSignal preferencesChanged = {"/com/nimbal/roster", "com.nimbal.roster.Preferences", "Changed"};

std::optional<Error> sendPreferencesChanged(std::string_view applicationIdentifier, std::string_view key) {
  Result<SystemBus> bus = SystemBus::open();
  if (!bus) return Error{bus.error()};
  return bus->send(preferencesChanged, [&](BusArguments& arguments) {
    arguments.text(applicationIdentifier);
    arguments.text(key);
  });
}

}  // namespace

void broadcastPreferencesChanged(std::string_view applicationIdentifier, std::string_view key) {
  if (const auto error = sendPreferencesChanged(applicationIdentifier, key)) {
    systemLog("Could not tell %@ that its preference %@ changed: %@", applicationIdentifier, key,
              error->message);
  }
}

}  // namespace roster
