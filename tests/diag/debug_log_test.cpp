#include "roster/diag/debug_log.h"

#include "tests/store/store_test.h"
#include "tests/support/own_process.h"

namespace roster::testing {
namespace {

class DebugLog : public OwnProcessTest {};

TEST_F(DebugLog, FollowsThePreferenceAsItWasAtTheFirstMessageUntilTheProcessStartsAnew) {
  for (const Value& value : {Value(true), Value(2), Value("no")}) {
    const bool isOn = value.booleanValue();
    EXPECT_TRUE(endsWell(startProcess([&] {
      const Lines expected = {"Inserting account:", "Mail:{Type = \"Mail\"}",
                              "Merging inmem 1 orig two onDisk (null)"};
      for (const Value& preference : {value, Value(!isOn)}) {
        device.writePropertyList("home/user/Library/Preferences/GlobalPreferences.plist",
                                 Dictionary{{"RSLoggingEnabled", preference}});
        log.clear();
        RSLog("Inserting account:", "surplus");
        RSLog("%@:%@", "Mail", Dictionary{{"Type", "Mail"}});
        const std::array list = {LogArgument(1), LogArgument("two"), LogArgument(Value())};
        RSLog("Merging inmem %@ orig %@ onDisk %@", std::span<const LogArgument>(list));
        EXPECT_EQ(log.lines(), isOn ? expected : Lines());
        EXPECT_EQ(getRSLoggingEnabled(), isOn);
      }
      return !HasFailure();
    })));
  }
}

}  // namespace
}  // namespace roster::testing
