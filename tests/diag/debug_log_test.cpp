#include "roster/diag/debug_log.h"

#include <array>

#include "tests/support/own_process.h"

namespace roster::testing {
namespace {

using Lines = std::vector<std::string>;
using Row = std::tuple<std::string, std::string, bool>;

class DebugLog : public OwnProcessTest, public ::testing::WithParamInterface<Row> {
 protected:
  void setPreference(const std::string& value) const {
    device.writeFile("home/user/Library/Preferences/GlobalPreferences.plist",
                     "<plist><dict><key>RSLoggingEnabled</key>" + value + "</dict></plist>");
  }
  Lines write() {
    log.clear();
    RSLog("Inserting account:", "surplus");
    RSLog("%@:%@", "Mail", Dictionary{{"Type", "Mail"}});
    const std::array list = {LogArgument(1), LogArgument("two"), LogArgument(Value())};
    RSLog("Merging inmem %@ orig %@ onDisk %@", std::span<const LogArgument>(list));
    systemLog("an error");
    return log.lines();
  }
};

TEST_P(DebugLog, FollowsThePreferenceAsItWasAtTheFirstMessage) {
  const auto& [name, value, isOn] = GetParam();
  const Lines all = {"Inserting account:", "Mail:{Type = \"Mail\"}", "Merging inmem 1 orig two onDisk (null)",
                     "an error"};
  const Lines expected = isOn ? all : Lines{"an error"};
  setPreference(value);
  EXPECT_EQ(write(), expected);
  setPreference(isOn ? "<false/>" : "<true/>");
  EXPECT_EQ(getRSLoggingEnabled(), isOn);
  EXPECT_EQ(write(), expected) << "until the process starts anew";
}

INSTANTIATE_TEST_SUITE_P(Preferences, DebugLog,
                         ::testing::Values(Row{"True", "<true/>", true},
                                           Row{"Two", "<integer>2</integer>", true},
                                           Row{"No", "<string>no</string>", false}),
                         [](const auto& row) { return std::get<0>(row.param); });

}  // namespace
}  // namespace roster::testing
