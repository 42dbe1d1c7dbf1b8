#include <dlfcn.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace roster::testing {
namespace {

// The constants whose text neither a shipped table nor a file shows in any other test.
constexpr const char* constants = R"(
kAccountUsername=Username; kAccountPreventRecentsSyncing=Prevent Recents Syncing;
kCalendarsAccountSubscribedCalendars=Subscribed Calendars; kAccountsFilename=com.nimbal.roster.plist;
kAccountCalendarsWereMigrated=CalendarsWereMigrated; kDataclassToggleActionNone=None;
kDataclassToggleActionKeepLocalData=Keep Local Data; kDataclassToggleActionMergeLocalData=Merge Local Data;
kDataclassToggleActionDeleteLocalData=Delete Local Data;
kDataclassToggleActionMergeSyncData=Merge Sync Data; kDataclassToggleActionDeleteSyncData=Delete Sync Data;
kAccountDeleteActionMergeData=Merge Data; kAccountDeleteActionDeleteData=Delete Data;
)";

TEST(Vocabulary, IsExportedFromTheLibraryUnderExactlyItsNames) {
  if (dlsym(RTLD_DEFAULT, "__asan_init") != nullptr) {
    GTEST_SKIP() << "this program has constants of the same names, which the sanitizer takes for a mistake";
  }
  void* library = dlopen(ROSTER_TEST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  std::istringstream table(constants);
  for (std::string name, text; std::getline(table >> std::ws, name, '=') && std::getline(table, text, ';');) {
    const auto* constant = static_cast<const std::string_view*>(dlsym(library, name.c_str()));
    ASSERT_NE(constant, nullptr) << dlerror();
    EXPECT_EQ(*constant, text) << name;
  }
  EXPECT_STREQ(static_cast<const char*>(dlsym(library, "kAccountMigrationLockFilename")),
               "/tmp/AccountMigrationInProgress");
}

}  // namespace
}  // namespace roster::testing
