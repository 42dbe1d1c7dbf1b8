#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>

#include "roster/platform/bus_signals.h"
#include "roster/platform/linux/system_bus.h"
#include "tests/store/store_test.h"
#include "tests/support/private_bus.h"

namespace roster::testing {
namespace {

class Broadcast : public StoreTest {};

TEST_F(Broadcast, IsGivenUpWithTheSystemsTextWhenTheBusIsMissingOrDoesNotAnswer) {
  broadcastPreferencesChanged("com.nimbal.inkwell", "MailAccounts");
  EXPECT_EQ(log.lines(), Lines{"Could not tell com.nimbal.inkwell that its preference MailAccounts changed: "
                               "could not open the system bus: No such file or directory"});
  std::filesystem::create_directory(device.path("run"));
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  device.busSocket().copy(address.sun_path, sizeof address.sun_path - 1);
  const int mute = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(mute, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(mute, 1), 0);
  broadcastPreferencesChanged("com.nimbal.inkwell", "MailAccounts");
  close(mute);
  EXPECT_TRUE(log.lines().back().ends_with("the system bus does not answer: Connection timed out"));
}

TEST_F(Broadcast, ReachesAnyListenerInOrderAndRefusesWhatNoMessageCanCarry) {
  const PrivateBus daemon(device);
  SignalListener listener("com.nimbal.roster.Preferences");
  broadcastPreferencesChanged("com.nimbal.inkwell", "MailAccounts");
  Result<SystemBus> bus = SystemBus::open();
  const auto send = [&](std::string_view text) {
    return errorOf(bus->send({"/x", "com.nimbal.roster.Preferences", "Said"}, [&](BusArguments& arguments) {
      arguments.array("s", [&] { arguments.text(text); });
      arguments.text("behind it");
    }));
  };
  EXPECT_EQ(send(std::string_view("zero\0byte", 9)), "could not make the signal: Invalid argument");
  EXPECT_EQ(send("not UTF-8: \xFF"), "could not make the signal: Invalid argument");
  EXPECT_EQ(send(std::string(65 << 20, 'x')), "could not make the signal: Message too long");
  broadcastPreferencesChanged("org.example.other", "Schlüssel");
  EXPECT_EQ(listener.next(), (Lines{"/com/nimbal/roster", "Changed", "com.nimbal.inkwell", "MailAccounts"}));
  EXPECT_EQ(listener.next(), (Lines{"/com/nimbal/roster", "Changed", "org.example.other", "Schlüssel"}));
  EXPECT_EQ(log.lines(), Lines());
  EXPECT_EQ(send("fine"), "none");
}

}  // namespace
}  // namespace roster::testing
