#include "roster/store/settings_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "roster/platform/file_system.h"
#include "roster/platform/linux/file_calls.h"
#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

namespace fs = std::filesystem;

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

/// A process that stops in the middle of a save, when it calls what a test names, until it is told to go on.
class StoppedWriter {
 public:
  StoppedWriter(const std::string& path, std::string_view call) {
    EXPECT_EQ(pipe2(goOn, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(isThere, O_CLOEXEC), 0);
    process_ = startProcess([&] {
      FileCalls calls = fileCalls();
      if (call == "write") {
        calls.write = [](int fd, const void* bytes, std::size_t size) {
          stop();
          return ::write(fd, bytes, size);
        };
      } else {
        calls.renameat = [](int oldFolder, const char* oldPath, int newFolder, const char* newPath) {
          stop();
          return ::renameat(oldFolder, oldPath, newFolder, newPath);
        };
      }
      const FileCallsOverride override(calls);
      return bool(SettingsFile(path).replace("its own", std::nullopt));
    });
    char byte = 0;
    EXPECT_EQ(read(isThere[0], &byte, 1), 1);
  }
  StoppedWriter(const StoppedWriter&) = delete;
  StoppedWriter& operator=(const StoppedWriter&) = delete;
  ~StoppedWriter() {
    for (const int end : {goOn[0], goOn[1], isThere[0], isThere[1]}) close(end);
  }

  bool goesOnWell() const { return ::write(goOn[1], "", 1) == 1 && endsWell(process_); }
  bool diesWell() const { return kill(process_, SIGKILL) == 0 && !endsWell(process_); }

 private:
  static void stop() {
    char byte = 0;
    EXPECT_TRUE(::write(isThere[1], &byte, 1) == 1 && read(goOn[0], &byte, 1) == 1);
  }

  static inline int goOn[2];
  static inline int isThere[2];
  pid_t process_ = -1;
};

TEST_F(StoreTest, RemovesWhatDeadWritersHaveLeftAndNothingThatIsBeingWritten) {
  const std::string path = device.writeFile("folder/registry", "old");
  const auto temporaries = [&] {
    std::vector<std::string> names = device.fileNames("folder");
    std::erase_if(names, [](const std::string& name) { return !name.starts_with(".roster-"); });
    return names;
  };
  const auto save = [&] { return bool(SettingsFile(path).replace("new", std::nullopt)); };
  for (const char* call : {"write", "rename"}) {
    SCOPED_TRACE(call);
    const StoppedWriter writer(path, call);
    EXPECT_TRUE(save());
    EXPECT_EQ(temporaries().size(), 1U) << "a living writer's file was taken";
    EXPECT_TRUE(writer.goesOnWell());
    EXPECT_EQ(device.readFile(path), "its own");

    const StoppedWriter dying(path, call);
    EXPECT_TRUE(dying.diesWell());
    EXPECT_EQ(temporaries().size(), 1U);
    EXPECT_TRUE(save());
    EXPECT_EQ(temporaries(), std::vector<std::string>());
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
  EXPECT_TRUE(save());
  close(thief);
  EXPECT_EQ(temporaries(), std::vector<std::string>());

  const std::string in = device.path("folder/");
  const std::vector<std::string> others = {".roster-0000000000000001.tmp",  // a link
                                           ".roster-0000000000000002.tmp",  // a folder
                                           ".roster-0000000000000003.tmp",  // a pipe
                                           ".roster-000000000000000.tmp",  ".roster-000000000000000G.tmp",
                                           ".roster-0000000000000005.tmp~"};
  fs::create_symlink(device.writeFile("target", ""), in + others[0]);
  fs::create_directory(in + others[1]);
  ASSERT_EQ(mkfifo((in + others[2]).c_str(), 0600), 0);
  for (const std::string& name :
       {others[3], others[4], others[5], std::string(".roster-0123456789abcdef.tmp")})
    device.writeFile(in + name, "");
  EXPECT_TRUE(save());
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
    EXPECT_TRUE(file.replace("new", Error(std::errc::bad_message, "why"), stamp));
    std::vector<std::string> copies = device.fileNames("folder");
    std::erase(copies, "registry");
    return copies;
  };
  const std::vector<std::string> first = saveOver("damaged 1");
  ASSERT_EQ(first.size(), 1U);
  const std::string copy = device.path("folder/" + first[0]);
  EXPECT_EQ(saveOver("damaged 1"), first);
  EXPECT_EQ(log.lines(), Lines{"Kept the damaged registry " + path + " as " + copy +
                               ", which held the same already: why"});
  EXPECT_EQ(saveOver("damaged 2").size(), 2U) << "of the same size";
  fs::remove_all(device.path("folder"));

  const std::vector<std::string> foreign = {"other.damaged-20200101T000000Z", "registry.damaged-2020",
                                            "registry.damaged-20200101T000000Z-x",
                                            "registry.damaged-20200101T000000Z-", "registry.damaged-by-me"};
  for (const std::string& name : foreign) device.writeFile("folder/" + name, "");
  // These come first, whatever the date is now: the clock was wrong.
  const std::string future = "registry.damaged-99990101T000000Z";
  for (const char* number : {"", "-2", "-3", "-4", "-5", "-6", "-7", "-8", "-9", "-10"})
    device.writeFile("folder/" + future + number, number);
  const std::vector<std::string> left = saveOver("damaged 3");
  EXPECT_EQ(left.size(), foreign.size() + 8);
  EXPECT_THAT(left, ::testing::IsSupersetOf(foreign));
  for (const char* number : {"", "-2", "-3"})
    EXPECT_THAT(left, ::testing::Not(::testing::Contains(future + number)));
  EXPECT_THAT(left, ::testing::Contains(future + "-10"));
  EXPECT_EQ(linesWith(log.lines(), "Kept the damaged registry "), 1U);
}

}  // namespace
}  // namespace roster::testing
