#include "platform/linux/system_bus.h"

#include <gtest/gtest.h>

#include "tests/support/private_bus.h"
#include "tests/support/temporary_device.h"

namespace roster::testing {
namespace {

using Lines = std::vector<std::string>;

TEST(SystemBus, RefusesWhatNoMessageCanCarryAndGoesOnWithTheNextSignal) {
  const TemporaryDevice device;
  const PrivateBus daemon(device);
  SignalListener listener("com.example.Test");
  Result<SystemBus> bus = SystemBus::open();
  ASSERT_TRUE(bus) << bus.error();
  const auto errorOf = [&](std::string_view text) {
    const auto error = bus->send({"/test", "com.example.Test", "Said"}, [&](BusArguments& arguments) {
      arguments.array("s", [&] { arguments.text(text); });
      arguments.text("behind it");
    });
    return error ? error->message : "";
  };
  EXPECT_EQ(errorOf(std::string_view("zero\0byte", 9)), "could not make the signal: Invalid argument");
  EXPECT_EQ(errorOf("not UTF-8: \xFF"), "could not make the signal: Invalid argument");
  EXPECT_EQ(errorOf(std::string(65 << 20, 'x')), "could not make the signal: Message too long");
  EXPECT_FALSE(bus->send({"/test", "com.example.Test", "Said"},
                         [](BusArguments& arguments) { arguments.text("fine"); }));
  EXPECT_EQ(listener.next(), (Lines{"/test", "Said", "fine"}));
}

}  // namespace
}  // namespace roster::testing
