#include <sys/utsname.h>

#include <array>

#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/linux/machine_info.h"
#include "roster/platform/property_list_file.h"

namespace roster {

namespace {

String processorArchitecture() {
  utsname system{};
  if (uname(&system) != 0) return {};
  const std::string_view machine = system.machine;
  // The kernel appends the byte order ("armv6l", "armv7b"), which is not part of the architecture's name.
  for (const std::string_view family : std::array<std::string_view, 2>{"armv6", "armv7"}) {
    if (machine.starts_with(family)) return family;
  }
  return machine;
}

String chassis() {
  const Result<Bytes> file = readFile(deviceRoot() + "/etc/machine-info");
  if (!file) return {};
  const std::string value = machineInfoValue(file->text(), "CHASSIS");
  return value.empty() ? String() : String(value);
}

}  // namespace

String deviceInformation(std::string_view key) {
  String described = currentDictionary(deviceRoot() + "/etc/roster/device.plist").find(key).string();
  if (described) return described;
  if (key == "CPUArchitecture") return processorArchitecture();
  if (key == "DeviceClass") return chassis();
  return {};
}

}  // namespace roster
