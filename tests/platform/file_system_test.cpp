#include "roster/platform/file_system.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "roster/base/limits.h"
#include "roster/platform/linux/file_calls.h"
#include "tests/support/temporary_device.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

namespace fs = std::filesystem;

/// The call that fails, counted from now on over all that are watched, and how. Plain functions have no state
/// of their own.
int callsUntilFailure = 0;
int failureErrno = EIO;

template <auto member, class Result, class... Arguments>
void watch(FileCalls& calls, Result (*call)(Arguments...)) {
  static const auto watched = call;
  calls.*member = [](Arguments... arguments) -> Result {
    if (--callsUntilFailure != 0) return watched(arguments...);
    errno = failureErrno;
    return -1;
  };
}
template <auto... members>
void watchAll(FileCalls& calls) {
  (watch<members>(calls, calls.*members), ...);
}

FileCalls scriptedCalls() {
  FileCalls calls = fileCalls();
  // A few bytes at a time, so that the rest has to be written too.
  calls.write = [](int fd, const void* buffer, std::size_t size) {
    return ::write(fd, buffer, std::min<std::size_t>(size, 3));
  };
  watchAll<&FileCalls::write, &FileCalls::openat, &FileCalls::close, &FileCalls::fstat, &FileCalls::fstatat,
           &FileCalls::read, &FileCalls::fchmod, &FileCalls::fsync, &FileCalls::renameat>(calls);
  calls.linkat = [](int, const char*, int, const char*, int) {
    errno = EXDEV;
    return -1;
  };
  return calls;
}

class FileSystem : public ::testing::Test {
 protected:
  FileSystem() { fs::create_directory(folder_); }

  std::string in(std::string_view name) const { return joinPath(folder_, name); }
  static std::string contents(const std::string& path) {
    const Result<Bytes> file = readFile(path);
    return file ? std::string(file->text()) : "";
  }
  static Result<> replace(const std::string& path, std::string_view text) {
    return replaceFile(path, textSource(std::string(text)));
  }
  static unsigned modeOf(const std::string& path) {
    return static_cast<unsigned>(fs::status(path).permissions());
  }

  const TemporaryDevice device_;
  const std::string folder_ = device_.path("files");
};

TEST_F(FileSystem, ReplacesWhatALinkStandsForAndKeepsItsModeOrMakesItsFolders) {
  fs::permissions(device_.writeFile("files/d/f", "old"), fs::perms{0640});
  fs::create_symlink("d/f", in("link"));
  fs::create_symlink(in("link"), in("link to link"));
  fs::create_symlink("loop", in("loop"));
  ASSERT_TRUE(replace(in("link to link"), "new"));
  EXPECT_TRUE(fs::is_symlink(in("link")) && fs::is_symlink(in("link to link")));
  EXPECT_EQ(contents(in("d/f")), "new");
  EXPECT_EQ(modeOf(in("d/f")), 0640U);
  EXPECT_EQ(errorOf(replace(in("loop"), "x")),
            "could not follow the link " + in("loop") + ": Too many levels of symbolic links");
  fs::create_symlink("a/b//c/f", in("dangling"));
  ASSERT_TRUE(replace(in("dangling"), ""));
  EXPECT_TRUE(fs::is_empty(in("a/b/c/f")));
  EXPECT_EQ(modeOf(in("a/b/c/f")), 0600U);
}

TEST_F(FileSystem, LeavesTheOldFileWholeWhicheverStepFailsAndSurvivesInterruptions) {
  // Every call in its order, and whether an interrupted one is tried again.
  const std::string temporary = "a temporary file beside";
  const std::pair<std::string, bool> steps[] = {{"open the folder", true},
                                                {"examine", false},
                                                {"create a temporary file in", true},
                                                {"write " + temporary, true},
                                                {"write " + temporary, true},
                                                {"set owner and mode of " + temporary, false},
                                                {"set owner and mode of " + temporary, false},
                                                {"sync " + temporary, true},
                                                {"close " + temporary, false},
                                                {"replace", false},
                                                {"sync the folder", true}};
  const FileCallsOverride calls(scriptedCalls());
  for (int step = 0; const auto& [action, isTriedAgain] : steps) {
    ++step;
    for (const int errorNumber : {ENOSPC, EINTR}) {
      if (errorNumber == EINTR && !isTriedAgain) continue;
      SCOPED_TRACE(formatted("call %d, to %s, fails with errno %d", step, action, errorNumber));
      device_.writeFile(in("f"), "old");
      callsUntilFailure = step;
      failureErrno = errorNumber;
      const Result<> replaced = replace(in("f"), "latest");
      ASSERT_EQ(!replaced, errorNumber == ENOSPC);
      EXPECT_EQ(contents(in("f")), !replaced && action != "sync the folder" ? "old" : "latest");
      EXPECT_EQ(device_.fileNames(folder_), std::vector<std::string>{"f"});
      if (replaced) continue;
      EXPECT_EQ(replaced.error().code, std::errc::no_space_on_device);
      EXPECT_TRUE(errorOf(replaced).starts_with("could not " + action + " " + folder_)) << errorOf(replaced);
      EXPECT_TRUE(errorOf(replaced).ends_with(": No space left on device")) << errorOf(replaced);
    }
  }
}

TEST_F(FileSystem, NeverWidensAccessWhenTheOwnerCannotBeKept) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a file of somebody else";
  static int failures;
  FileCalls calls = fileCalls();
  calls.fchown = [](int fd, uid_t owner, gid_t group) {
    errno = failureErrno;
    return failures-- > 0 ? -1 : ::fchown(fd, owner, group);
  };
  const FileCallsOverride override(calls);
  const std::tuple<int, int, unsigned> cases[] = {{1, EPERM, 0640}, {2, EPERM, 0600}, {1, EIO, 0640}};
  for (const auto& [count, errorNumber, mode] : cases) {
    fs::remove(in("f"));
    fs::permissions(device_.writeFile(in("f"), "old"), fs::perms{0640});
    ASSERT_EQ(chown(in("f").c_str(), 1, 1), 0);
    failures = count;
    failureErrno = errorNumber;
    EXPECT_EQ(!replace(in("f"), "new"), errorNumber == EIO) << count;
    EXPECT_EQ(modeOf(in("f")), mode) << count << " times " << errorNumber;
  }
}

TEST_F(FileSystem, SaysWhatIsThereAndWhyItCannotBeReplacedOrRead) {
  fs::create_directory(in("d"));
  fs::create_symlink("nowhere", in("dangling"));
  fs::create_symlink("loop", in("loop"));
  ASSERT_EQ(mkfifo(in("pipe").c_str(), 0600), 0);
  device_.writeFile(in("large"), "");
  fs::resize_file(in("large"), limits::maximumFileSize + 1);
  for (const char* name : {"d", "pipe"})
    EXPECT_EQ(errorOf(replace(in(name), "")), "could not write " + in(name) + ": it is not a regular file");
  EXPECT_EQ(errorOf(replace(in("d/"), "")), "could not write " + in("d/") + ": it does not name a file");
  EXPECT_EQ(errorOf(replace(in("large/x"), "")),
            "could not open the folder " + in("large") + ": Not a directory");
  const std::tuple<const char*, FileType, const char*, const char*> cases[] = {
      {"none", FileType::missing, "open", "No such file or directory"},
      {"large/none", FileType::missing, "open", "Not a directory"},
      {"dangling", FileType::missing, "open", "No such file or directory"},
      {"loop", FileType::unknown, "open", "Too many levels of symbolic links"},
      {"d", FileType::folder, "read", "it is not a regular file"},
      {"pipe", FileType::other, "read", "it is not a regular file"},
      {"large", FileType::regular, "read", "it is too large"},
  };
  for (const auto& [name, type, action, reason] : cases) {
    const Result<Bytes> file = readFile(in(name));
    ASSERT_FALSE(file) << name;
    EXPECT_EQ(fileType(in(name)), type) << name;
    EXPECT_EQ(isMissingFile(file.error()), !fileExists(in(name))) << name;
    EXPECT_EQ(file.error().message, formatted("could not %s %s: %s", action, in(name), reason));
  }
}

TEST_F(FileSystem, ReadsAFileThatChangesItsSizeMeanwhileInSpiteOfInterruptions) {
  const std::string text(10000, 'x');
  device_.writeFile(in("f"), text);
  static off_t size;
  FileCalls calls = scriptedCalls();
  calls.fstat = [](int fd, struct stat* status) {
    const int result = ::fstat(fd, status);
    status->st_size = size;
    return result;
  };
  const FileCallsOverride override(calls);
  failureErrno = EINTR;
  for (const off_t claimed : {0, 9999, 50000}) {
    size = claimed;
    callsUntilFailure = claimed == 0 ? 1 : 2;
    EXPECT_EQ(contents(in("f")), text) << claimed;
  }
}

TEST_F(FileSystem, KeepsAFileUnderASecondName) {
  fs::permissions(device_.writeFile("files/f", "old"), fs::perms{0640});
  EXPECT_TRUE(keepFileAs(in("f"), in("linked")));
  ASSERT_TRUE(replace(in("f"), "new"));
  EXPECT_EQ(contents(in("linked")), "old");
  EXPECT_EQ(errorOf(keepFileAs(in("f"), in("linked"))),
            "could not keep " + in("f") + " as " + in("linked") + ": File exists");
  const FileCallsOverride override(scriptedCalls());
  failureErrno = EIO;
  for (int step = 1; step <= 12; ++step) {
    if (step == 5) continue;  // closes the file that was read, which no longer matters
    callsUntilFailure = step;
    EXPECT_FALSE(keepFileAs(in("f"), in("copied")) || fileExists(in("copied"))) << step;
  }
  EXPECT_TRUE(keepFileAs(in("f"), in("copied")));
  EXPECT_EQ(contents(in("copied")), "new");
  EXPECT_EQ(modeOf(in("copied")), 0640U);
}

}  // namespace
}  // namespace roster::testing
