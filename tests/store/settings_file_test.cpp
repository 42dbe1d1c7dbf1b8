#include "roster/store/settings_file.h"

#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "tests/store/store_test.h"
#include "tests/store/watched_calls.h"

namespace roster::testing {
namespace {

namespace fs = std::filesystem;

TEST_F(StoreTest, ReplacesOnlyTheFileThatWasReadAndTellsWhyNot) {
  const std::string path = device.path("folder/registry");
  const std::string other = device.path("other");
  const auto write = [&](std::string_view text) { device.writeFile(path, text); };
  const auto putOther = [&] { fs::rename(other, path); };
  const auto writeAtTheSameTime = [&] {
    const fs::file_time_type time = fs::last_write_time(path);
    write("OLD");
    fs::last_write_time(path, time);
  };
  const auto leadElsewhere = [&] {
    fs::remove(path);
    fs::create_symlink(other, path);
  };
  const auto exchangeFolders = [&] {
    fs::rename(device.path("folder"), device.path("former"));
    write("old");
  };
  // What there was, what another program does while the new file is written, and what is there then. Each is
  // done twice: an odd index is a damaged file.
  const std::tuple<std::string, std::function<void()>, std::string> rows[] = {
      {"old", [] {}, "new"},
      {"", [] {}, "new"},
      {"old", putOther, "mine"},
      {"", putOther, "mine"},
      {"old", [&] { fs::remove(path); }, ""},
      {"old", writeAtTheSameTime, "OLD"},
      {"old", [&] { fs::permissions(path, fs::perms(0640)); }, "old"},
      {"old", leadElsewhere, "mine"},
      {"old", exchangeFolders, "old"}};
  for (std::size_t i = 0; i < 2 * std::size(rows); ++i) {
    const auto& [before, change, left] = rows[i / 2];
    SCOPED_TRACE(i);
    const bool isReplaced = left == "new";
    for (const char* name : {"folder", "former"}) fs::remove_all(device.path(name));
    device.writeFile(other, "mine");
    fs::create_directory(device.path("folder"));
    if (!before.empty()) write(before);
    const SettingsFile file(path);
    const Registry read = file.read();
    ASSERT_TRUE(read.stamp);
    EXPECT_EQ(read.stamp->exists, !before.empty());
    const WatchedCalls calls([&, act = change](std::string_view call, auto&) mutable {
      if (call == "fsync") std::exchange(act, [] {})();
      return 0;
    });
    std::optional<FileStamp> written;
    const Result<> done =
        file.replace(textSource("new"), i % 2 == 0 ? std::nullopt : read.damage, read.stamp, &written);
    EXPECT_EQ(bool(done), isReplaced);
    EXPECT_EQ(!done && isChangedMeanwhile(done.error()), !isReplaced);
    EXPECT_EQ(written.has_value(), isReplaced);
    EXPECT_EQ(fs::exists(path) ? device.readFile(path) : "", left);
    for (const std::string& name : device.fileNames("folder")) EXPECT_FALSE(name.ends_with(".tmp")) << name;
  }
}

TEST_F(StoreTest, KnowsItsOwnWriteWhateverTheClocksTickAndAlsoWhenTheFolderIsNotSynced) {
  const SettingsFile file(device.path("registry"));
  FileCalls calls = fileCalls();
  // The kernel's clock stands still for all that is written here.
  calls.write = [](int fd, const void* bytes, std::size_t size) {
    const struct timespec times[2] = {};
    const ssize_t count = ::write(fd, bytes, size);
    return futimens(fd, times) == 0 ? count : -1;
  };
  const FileCallsOverride stopped(calls);
  int examinations = 0;
  std::set<std::int64_t> times;
  std::optional<FileStamp> written;
  std::optional<WatchedCalls> watched(std::in_place, [&](std::string_view call, auto&) {
    examinations += call == "fstatat" ? 1 : 0;
    return 0;
  });
  for (int save = 0; save < 20; ++save) {
    const std::optional<FileStamp> before = file.read().stamp;
    examinations = 0;
    ASSERT_TRUE(file.replace(textSource("text"), std::nullopt, before, &written));
    const int checked = std::exchange(examinations, 0);
    EXPECT_EQ(written, file.read().stamp);
    EXPECT_NE(written, before);
    times.insert(written->modificationTime);
    ASSERT_TRUE(file.replace(textSource("text"), std::nullopt));
    EXPECT_EQ(checked, examinations + 2) << "one look before the file is renamed, one after";
  }
  EXPECT_EQ(times.size(), 20U) << "a file's number may be that of one that is gone";

  watched.emplace(
      [](std::string_view call, auto& path) { return call == "fsync" && fs::is_directory(path) ? EIO : 0; });
  EXPECT_EQ(file.replace(textSource("text"), std::nullopt, {}, &written).error().code, std::errc::io_error);
  EXPECT_EQ(written, file.read().stamp);
}

TEST_F(StoreTest, RemovesWhatDeadWritersHaveLeftAndNothingThatIsBeingWritten) {
  const std::string path = device.writeFile("folder/registry", "old");
  const auto temporaries = [&] {
    std::vector<std::string> names = device.fileNames("folder");
    std::erase_if(names, [](const std::string& name) { return !name.starts_with(".roster-"); });
    return names;
  };
  const auto save = [&](const char* text) {
    return bool(SettingsFile(path).replace(textSource(text), std::nullopt));
  };
  for (const char* point : {"write", "renameat"}) {
    SCOPED_TRACE(point);
    Pipe isThere;
    Pipe goOn;
    const pid_t writer = startProcess([&] {
      const WatchedCalls calls([&](std::string_view call, auto&) {
        return call == point && !(isThere.tell('w') && goOn.hear() == 'g') ? EINTR : 0;
      });
      return save("its own");
    });
    EXPECT_EQ(isThere.hear(), 'w');
    EXPECT_TRUE(save("new"));
    EXPECT_EQ(temporaries().size(), 1U) << "a living writer's file was taken";
    EXPECT_TRUE(goOn.tell('g') && endsWell(writer));
    EXPECT_EQ(device.readFile(path), "its own");
  }

  // Another save takes a file that has just been made for a dead writer's: once it is gone already, once not.
  static int thefts;
  static int thief;
  thefts = 2;
  FileCalls calls = fileCalls();
  calls.openat = [](int folderFd, const char* name, int flags, mode_t mode) {
    const int fd = ::openat(folderFd, name, flags, mode);
    if ((flags & O_CREAT) == 0 || thefts == 0) return fd;
    if (--thefts == 0) {
      thief = ::openat(folderFd, name, O_RDONLY | O_CLOEXEC);
      EXPECT_EQ(flock(thief, LOCK_EX), 0);
    } else {
      EXPECT_EQ(unlinkat(folderFd, name, 0), 0);
    }
    return fd;
  };
  const FileCallsOverride override(calls);
  EXPECT_TRUE(save("new"));
  struct stat taken {};
  EXPECT_TRUE(fstat(thief, &taken) == 0 && taken.st_nlink == 0) << "it was not given up";
  close(thief);
  EXPECT_EQ(temporaries(), std::vector<std::string>());

  // A link, a folder, a pipe, and names that the library does not give.
  const std::string in = device.path("folder/");
  const std::vector<std::string> others = {".roster-0000000000000001.tmp", ".roster-0000000000000002.tmp",
                                           ".roster-0000000000000003.tmp", ".roster-000000000000000.tmp",
                                           ".roster-000000000000000G.tmp", ".roster-0000000000000005.tmp~"};
  fs::create_symlink(device.writeFile("target", ""), in + others[0]);
  fs::create_directory(in + others[1]);
  ASSERT_EQ(mkfifo((in + others[2]).c_str(), 0600), 0);
  for (std::size_t i = 3; i < others.size(); ++i) device.writeFile(in + others[i], "");
  device.writeFile(in + ".roster-0123456789abcdef.tmp", "");
  EXPECT_TRUE(save("new"));
  EXPECT_THAT(temporaries(), ::testing::UnorderedElementsAreArray(others));
  EXPECT_TRUE(fs::exists(device.path("target")));
}

TEST_F(StoreTest, KeepsOneCopyOfEachDamagedRegistryAndTheNewestEight) {
  const std::string path = device.path("folder/registry");
  const SettingsFile file(path);
  const auto saveOver = [&](std::string_view content) {
    log.clear();
    device.writeFile(path, content);
    const std::optional<FileStamp> stamp = file.read().stamp;
    EXPECT_TRUE(file.replace(textSource("new"), Error(std::errc::bad_message, "why"), stamp));
    std::vector<std::string> copies = device.fileNames("folder");
    std::erase(copies, "registry");
    return copies;
  };
  const std::vector<std::string> first = saveOver("damaged 1");
  ASSERT_EQ(first.size(), 1U);
  EXPECT_EQ(saveOver("damaged 1"), first);
  EXPECT_EQ(log.lines(), Lines{"Kept the damaged registry " + path + " as " + device.path("folder/") +
                               first[0] + ", which held the same already: why"});
  EXPECT_EQ(saveOver("damaged 2").size(), 2U) << "of the same size";
  fs::remove_all(device.path("folder"));

  std::vector<std::string> left = {"other.damaged-20200101T000000Z", "registry.damaged-2020",
                                   "registry.damaged-20200101T000000Z-x",
                                   "registry.damaged-20200101T000000Z-", "registry.damaged-by-me"};
  // These come first, whatever the date is now: the clock was wrong.
  const std::string future = "registry.damaged-99990101T000000Z";
  for (const char* number : {"-4", "-5", "-6", "-7", "-8", "-9", "-10"}) left.push_back(future + number);
  for (const std::string& name : left) device.writeFile("folder/" + name, name);
  for (const char* number : {"", "-2", "-3"}) device.writeFile("folder/" + future + number, number);
  const std::vector<std::string> copies = saveOver("damaged 3");
  EXPECT_EQ(copies.size(), left.size() + 1);
  EXPECT_THAT(copies, ::testing::IsSupersetOf(left));
  EXPECT_EQ(linesWith(log.lines(), "Kept the damaged registry "), 1U);
}

}  // namespace
}  // namespace roster::testing
