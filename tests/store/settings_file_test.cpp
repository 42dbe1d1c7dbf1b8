#include "roster/store/settings_file.h"

#include <filesystem>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

namespace fs = std::filesystem;

TEST_F(StoreTest, SavesNothingAndSaysWhyWhenTheRegistryOrItsFolderCannotBeLookedAt) {
  const std::string link = device.path("loop");
  fs::create_symlink(link, link);
  const std::string locked = device.path("locked");
  fs::create_directory(locked);
  fs::permissions(locked, fs::perms(0700));
  fs::permissions(device.root(), fs::perms(0755));
  struct Case {
    const char* name;
    std::string path;
    const char* cause;
  };
  const Case cases[] = {
      {"a folder that is a link to itself", link + "/registry", "Too many levels of symbolic links"},
      {"a name that is too long", device.path(std::string(300, 'x')), "File name too long"},
      {"a folder of another user", locked + "/registry", "Permission denied"}};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    const bool isOfAnother = row.path.starts_with(locked);
    if (isOfAnother && geteuid() != 0) continue;
    EXPECT_TRUE(endsWell(startProcess([&] {
      alarm(20);  // a save that never ends is a failure of its own
      EXPECT_TRUE(!isOfAnother || setuid(65534) == 0);
      const SettingsFile file(row.path);
      const Registry registry = file.read();
      EXPECT_TRUE(registry.damage);
      const std::string error = errorOf(file.replace("new", registry.damage));
      EXPECT_TRUE(error.starts_with("could not keep " + row.path + " as ") && error.ends_with(row.cause))
          << error;
      return !HasFailure();
    })));
  }
}

}  // namespace
}  // namespace roster::testing
