#include "roster/store/settings_file.h"

#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "roster/platform/file_system.h"
#include "roster/platform/linux/file_calls.h"
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

/// What another program does right after the new file has been written, which is the first thing that is
/// synced.
std::function<void()> meanwhile;
unsigned examinations = 0;

FileCalls callsWithAnotherProgram() {
  FileCalls calls = fileCalls();
  calls.fsync = [](int) {
    if (const auto act = std::exchange(meanwhile, nullptr)) act();
    return 0;
  };
  // The kernel's clock stands still for all that is written here.
  calls.write = [](int fd, const void* bytes, std::size_t size) {
    const ssize_t count = ::write(fd, bytes, size);
    const struct timespec times[2] = {};
    return futimens(fd, times) == 0 ? count : -1;
  };
  calls.fstatat = [](int folder, const char* path, struct stat* status, int flags) {
    ++examinations;
    return ::fstatat(folder, path, status, flags);
  };
  return calls;
}

TEST_F(StoreTest, ReplacesOnlyTheFileThatWasReadAndTellsWhyNot) {
  const std::string path = device.path("folder/registry");
  const std::string other = device.writeFile("other", "mine");
  const auto write = [&](std::string_view text) { device.writeFile(path, text); };
  const auto putOther = [&] { fs::rename(other, path); };
  struct Case {
    const char* name;
    bool isThereBefore;
    std::function<void()> change;
    bool isReplaced;
    const char* left;
  };
  const Case cases[] = {{"nothing", true, [] {}, true, "new"},
                        {"nothing, and there is no file", false, [] {}, true, "new"},
                        {"another file is in its place", true, putOther, false, "mine"},
                        {"a file appears", false, putOther, false, "mine"},
                        {"it is removed", true, [&] { fs::remove(path); }, false, nullptr},
                        {"it is written in place and its time set back", true,
                         [&] {
                           const fs::file_time_type time = fs::last_write_time(path);
                           write("OLD");
                           fs::last_write_time(path, time);
                         },
                         false, "OLD"},
                        {"its mode changes, which the new file would not have", true,
                         [&] { fs::permissions(path, fs::perms(0640)); }, false, "old"},
                        {"a link leads elsewhere", true,
                         [&] {
                           fs::remove(path);
                           fs::create_symlink(other, path);
                         },
                         false, "mine"},
                        {"its folder is another one", true,
                         [&] {
                           fs::rename(device.path("folder"), device.path("former"));
                           write("old");
                         },
                         false, "old"}};
  for (const Case& row : cases) {
    for (const bool isDamaged : {false, true}) {
      SCOPED_TRACE(std::string(row.name) + (isDamaged ? ", to a damaged file" : ""));
      fs::remove_all(device.path("folder"));
      fs::remove_all(device.path("former"));
      device.writeFile(other, "mine");
      fs::create_directory(device.path("folder"));
      if (row.isThereBefore) write("old");
      const SettingsFile file(path);
      const Registry read = file.read();
      ASSERT_TRUE(read.stamp);
      EXPECT_EQ(read.stamp->exists, row.isThereBefore);
      const FileCallsOverride override(callsWithAnotherProgram());
      meanwhile = row.change;
      std::optional<FileStamp> written;
      const Result<> done = file.replace("new", isDamaged ? read.damage : std::nullopt, read.stamp, &written);
      EXPECT_EQ(bool(done), row.isReplaced);
      EXPECT_EQ(!done && isChangedMeanwhile(done.error()), !row.isReplaced);
      EXPECT_EQ(written.has_value(), row.isReplaced);
      EXPECT_EQ(fs::exists(path) ? device.readFile(path) : "", row.left == nullptr ? "" : row.left);
      for (const std::string& name : device.fileNames("folder")) EXPECT_FALSE(name.ends_with(".tmp")) << name;
    }
  }
}

TEST_F(StoreTest, KnowsItsOwnWriteWhateverTheClocksTickAndAlsoWhenTheFolderIsNotSynced) {
  const SettingsFile file(device.path("registry"));
  const FileCallsOverride override(callsWithAnotherProgram());
  std::set<std::int64_t> times;
  unsigned plain = 0;
  for (int save = 0; save < 20; ++save) {
    const std::optional<FileStamp> before = file.read().stamp;
    std::optional<FileStamp> written;
    examinations = 0;
    ASSERT_TRUE(file.replace("text", std::nullopt, before, &written));
    const unsigned checked = std::exchange(examinations, 0);
    EXPECT_EQ(written, file.read().stamp);
    EXPECT_NE(written, before);
    times.insert(written->modificationTime);
    ASSERT_TRUE(file.replace("text", std::nullopt));
    plain = examinations;
    EXPECT_EQ(checked, plain + 2) << "one look before the file is renamed, one after";
  }
  EXPECT_EQ(times.size(), 20U) << "a file's number may be that of one that is gone";

  FileCalls calls = fileCalls();
  calls.fsync = [](int fd) {
    struct stat status {};
    errno = EIO;
    return fstat(fd, &status) == 0 && S_ISDIR(status.st_mode) ? -1 : 0;
  };
  const FileCallsOverride failing(calls);
  std::optional<FileStamp> written;
  EXPECT_EQ(file.replace("text", std::nullopt, {}, &written).error().code, std::errc::io_error);
  EXPECT_EQ(written, file.read().stamp);
}

}  // namespace
}  // namespace roster::testing
