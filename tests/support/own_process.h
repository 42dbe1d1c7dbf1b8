#pragma once

#include <gtest/gtest.h>

#include "tests/support/temporary_device.h"

namespace roster::testing {

/// The base of tests about what a process settles once and for all: the type and dataclass tables, the switch
/// of the debug log. ctest runs every test in a process of its own; a run of several in one process skips
/// these.
class OwnProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::testing::UnitTest::GetInstance()->test_to_run_count() > 1)
      GTEST_SKIP() << "needs a process of its own";
  }

  /// From now on resources are read from the device, which has none at first.
  void useOwnResources() { device.setEnvironment("ROSTER_RESOURCES", device.path("resources")); }
  void writeResource(const std::string& name, const Value& contents) const {
    device.writePropertyList("resources/" + name + ".plist", contents);
  }

  TemporaryDevice device;
  CapturedLog log;
};

}  // namespace roster::testing
