#include "roster/platform/bus_signals.h"

#include <algorithm>
#include <string>

#include "roster/platform/linux/system_bus.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

constexpr BusSignal preferencesChanged = {"/com/nimbal/roster", "com.nimbal.roster.Preferences", "Changed"};

Result<> sendPreferencesChanged(std::string_view applicationIdentifier, std::string_view key) {
  Result<SystemBus> bus = SystemBus::open();
  if (!bus) return bus.error();
  return bus->send(preferencesChanged, [&](BusArguments& arguments) {
    arguments.text(applicationIdentifier);
    arguments.text(key);
  });
}

}  // namespace

void broadcastPreferencesChanged(std::string_view applicationIdentifier, std::string_view key) {
  if (const Result<> sent = sendPreferencesChanged(applicationIdentifier, key); !sent) {
    systemLog("Could not tell %@ that its preference %@ changed: %@", applicationIdentifier, key,
              sent.error().message);
  }
}

namespace {

Result<> sendNotification(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos)
    return Error(std::errc::invalid_argument, "it is not a name of the form Subject.Event");
  const std::string interface = name.substr(0, dot);
  const std::string member = name.substr(dot + 1);
  std::string path = "/" + interface;
  std::replace(path.begin(), path.end(), '.', '/');
  Result<SystemBus> bus = SystemBus::open();
  if (!bus) return bus.error();
  return bus->send({path.c_str(), interface.c_str(), member.c_str()}, [](BusArguments& /*none*/) {});
}

}  // namespace

void postSystemNotification(std::string_view name) {
  if (const Result<> sent = sendNotification(std::string(name)); !sent) {
    systemLog("Could not post the notification %@: %@", name, sent.error().message);
  }
}

}  // namespace roster
