#include "platform/system_notification.h"

#include <algorithm>
#include <string>

#include "platform/linux/system_bus.h"
#include "platform/system_log.h"

namespace roster {

namespace {

std::optional<Error> sendNotification(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos) return Error{"it is not a name of the form Subject.Event"};
  const std::string interface = name.substr(0, dot);
  const std::string member = name.substr(dot + 1);
  std::string path = "/" + interface;
  std::replace(path.begin(), path.end(), '.', '/');
  Result<SystemBus> bus = SystemBus::open();
  if (!bus) return Error{bus.error()};
  return bus->send({path.c_str(), interface.c_str(), member.c_str()}, [](BusArguments& /*none*/) {});
}

}  // namespace

void postSystemNotification(std::string_view name) {
  if (const std::optional<Error> error = sendNotification(std::string(name))) {
    systemLog("Could not post the notification %@: %@", name, error->message);
  }
}

}  // namespace roster
