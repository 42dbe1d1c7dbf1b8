#include "platform/file_system.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "platform/limits.h"
#include "platform/linux/file_calls.h"
#include "tests/support/temporary_device.h"

namespace roster::testing {
namespace {

namespace fs = std::filesystem;

/// What the calls under test did, and which of them is to fail. Plain functions have no state of their own.
struct Script {
  std::map<std::string, int> counts{};
  std::string failing{};
  int failingOccurrence = 1;
  int failure = EIO;
};
Script script;

/// Counts the call from now on, and fails it when the script says so.
template <auto member, class Result, class... Arguments>
void watch(FileCalls& calls, const char* name, Result (*call)(Arguments...)) {
  static const std::pair watched(name, call);
  calls.*member = [](Arguments... arguments) -> Result {
    const int occurrence = ++script.counts[watched.first];
    if (script.failing != watched.first || occurrence != script.failingOccurrence)
      return watched.second(arguments...);
    errno = script.failure;
    return -1;
  };
}

FileCalls scriptedCalls() {
  FileCalls calls = fileCalls();
  // A few bytes at a time, so that the rest has to be written too.
  calls.write = [](int file, const void* buffer, std::size_t size) {
    return ::write(file, buffer, std::min<std::size_t>(size, 3));
  };
  watch<&FileCalls::openat>(calls, "openat", calls.openat);
  watch<&FileCalls::close>(calls, "close", calls.close);
  watch<&FileCalls::fstat>(calls, "fstat", calls.fstat);
  watch<&FileCalls::fstatat>(calls, "fstatat", calls.fstatat);
  watch<&FileCalls::read>(calls, "read", calls.read);
  watch<&FileCalls::write>(calls, "write", calls.write);
  watch<&FileCalls::fchmod>(calls, "fchmod", calls.fchmod);
  watch<&FileCalls::fsync>(calls, "fsync", calls.fsync);
  watch<&FileCalls::renameat>(calls, "renameat", calls.renameat);
  return calls;
}

class FileSystem : public ::testing::Test {
 protected:
  FileSystem() {
    script = {};
    fs::create_directory(folder_);
  }

  std::string in(std::string_view name) const { return joinPath(folder_, name); }
  void put(const std::string& path, std::string_view text) const { device_.writeFile(path, text); }
  std::vector<std::string> names() const { return device_.fileNames(folder_); }
  static std::string contents(const std::string& path) { return std::string(readFile(path).bytes.text()); }
  static std::optional<Error> replace(const std::string& path, std::string_view text) {
    return replaceFile(path, std::as_bytes(std::span(text)));
  }
  static unsigned modeOf(const std::string& path) {
    return static_cast<unsigned>(fs::status(path).permissions());
  }

  const TemporaryDevice device_;
  const std::string folder_ = device_.path("files");
};

TEST_F(FileSystem, ReplacesAFileWithTwoSyncsAndKeepsItsMode) {
  put(in("f"), "old");
  fs::permissions(in("f"), fs::perms{0640});
  const FileCallsOverride calls(scriptedCalls());
  ASSERT_FALSE(replace(in("f"), "new contents"));
  EXPECT_EQ(contents(in("f")), "new contents");
  EXPECT_EQ(modeOf(in("f")), 0640U);
  EXPECT_EQ(script.counts["fsync"], 2);
  EXPECT_EQ(names(), std::vector<std::string>{"f"});

  ASSERT_FALSE(replace(in("a/b//c/f"), ""));
  EXPECT_TRUE(fs::is_empty(in("a/b/c/f")));
  EXPECT_EQ(modeOf(in("a/b/c/f")), 0600U);
}

TEST_F(FileSystem, ReplacesWhatALinkStandsFor) {
  fs::create_directory(in("d"));
  put(in("d/f"), "old");
  fs::create_symlink("d/f", in("link"));
  fs::create_symlink(in("link"), in("link to link"));
  fs::create_symlink("missing", in("dangling"));
  fs::create_symlink("loop", in("loop"));
  ASSERT_FALSE(replace(in("link to link"), "new"));
  ASSERT_FALSE(replace(in("dangling"), "made"));
  EXPECT_TRUE(fs::is_symlink(in("link")) && fs::is_symlink(in("link to link")));
  EXPECT_EQ(contents(in("d/f")), "new");
  EXPECT_EQ(contents(in("missing")), "made");
  EXPECT_EQ(replace(in("loop"), "x")->message,
            "could not follow the link " + in("loop") + ": Too many levels of symbolic links");
}

TEST_F(FileSystem, LeavesTheOldFileWholeWhicheverStepFails) {
  const std::tuple<const char*, int, const char*> steps[] = {
      {"openat", 1, "open the folder"},
      {"fstatat", 1, "examine"},
      {"openat", 2, "create a temporary file in"},
      {"write", 1, "write a temporary file beside"},
      {"write", 2, "write a temporary file beside"},
      {"fstat", 1, "set owner and mode of a temporary file beside"},
      {"fchmod", 1, "set owner and mode of a temporary file beside"},
      {"fsync", 1, "sync a temporary file beside"},
      {"close", 1, "close a temporary file beside"},
      {"renameat", 1, "replace"},
      {"fsync", 2, "sync the folder"},
  };
  for (const auto& [call, occurrence, action] : steps) {
    put(in("f"), "old");
    script = {.failing = call, .failingOccurrence = occurrence, .failure = ENOSPC};
    std::optional<Error> error;
    {
      const FileCallsOverride calls(scriptedCalls());
      error = replace(in("f"), "new contents");
    }
    ASSERT_TRUE(error) << action;
    EXPECT_TRUE(error->message.starts_with("could not " + std::string(action) + " " + folder_))
        << error->message;
    EXPECT_TRUE(error->message.ends_with(": No space left on device")) << error->message;
    const bool isReplaced = std::string_view(action) == "sync the folder";
    EXPECT_EQ(contents(in("f")), isReplaced ? "new contents" : "old") << action;
    EXPECT_EQ(names(), std::vector<std::string>{"f"}) << action;
  }
}

TEST_F(FileSystem, TriesAgainAfterAnInterruption) {
  const FileCallsOverride calls(scriptedCalls());
  for (const char* call : {"openat", "write", "fsync", "read"}) {
    script = {.failing = call, .failure = EINTR};
    EXPECT_FALSE(replace(in("f"), call)) << call;
    EXPECT_EQ(contents(in("f")), call);
  }
}

TEST_F(FileSystem, NeverWidensAccessWhenTheOwnerCannotBeKept) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a file of somebody else";
  static int failures;
  static int failure;
  FileCalls calls = fileCalls();
  calls.fchown = [](int file, uid_t owner, gid_t group) {
    if (failures-- <= 0) return ::fchown(file, owner, group);
    errno = failure;
    return -1;
  };
  const FileCallsOverride override(calls);
  const std::tuple<int, int, unsigned> cases[] = {{1, EPERM, 0640}, {2, EPERM, 0600}, {1, EIO, 0640}};
  for (const auto& [count, number, mode] : cases) {
    fs::remove(in("f"));
    put(in("f"), "old");
    ASSERT_EQ(chown(in("f").c_str(), 1, 1), 0);
    fs::permissions(in("f"), fs::perms{0640});
    failures = count;
    failure = number;
    EXPECT_EQ(replace(in("f"), "new").has_value(), failure == EIO);
    EXPECT_EQ(modeOf(in("f")), mode);
  }
}

TEST_F(FileSystem, RefusesToReplaceWhatIsNoFile) {
  fs::create_directory(in("d"));
  ASSERT_EQ(mkfifo(in("pipe").c_str(), 0600), 0);
  put(in("f"), "");
  const std::pair<std::string, std::string> cases[] = {
      {"d", "could not write " + in("d") + ": it is not a regular file"},
      {"pipe", "could not write " + in("pipe") + ": it is not a regular file"},
      {"d/", "could not write " + in("d/") + ": it does not name a file"},
      {"f/x", "could not open the folder " + in("f") + ": Not a directory"},
  };
  for (const auto& [name, error] : cases) EXPECT_EQ(replace(in(name), "")->message, error);
}

TEST_F(FileSystem, SaysWhyAFileCannotBeRead) {
  using Status = FileContents::Status;
  ASSERT_EQ(mkfifo(in("pipe").c_str(), 0600), 0);
  put(in("large"), "");
  fs::resize_file(in("large"), limits::maximumFileSize + 1);
  const std::tuple<std::string, Status, std::string> cases[] = {
      {"none", Status::missing, "could not open " + in("none") + ": No such file or directory"},
      {"large/none", Status::missing, "could not open " + in("large/none") + ": Not a directory"},
      {"", Status::unreadable, "could not read " + in("") + ": it is not a regular file"},
      {"pipe", Status::unreadable, "could not read " + in("pipe") + ": it is not a regular file"},
      {"large", Status::unreadable, "could not read " + in("large") + ": it is too large"},
  };
  for (const auto& [name, status, error] : cases) {
    const FileContents contents = readFile(in(name));
    EXPECT_EQ(contents.status, status) << name;
    EXPECT_EQ(contents.error, error);
  }
}

TEST_F(FileSystem, ReadsAFileThatChangesItsSizeMeanwhile) {
  const std::string text(10000, 'x');
  put(in("f"), text);
  static off_t size;
  FileCalls calls = fileCalls();
  calls.fstat = [](int file, struct stat* status) {
    const int result = ::fstat(file, status);
    status->st_size = size;
    return result;
  };
  const FileCallsOverride override(calls);
  for (const off_t claimed : {0, 3, 9999, 10000, 50000}) {
    size = claimed;
    EXPECT_EQ(contents(in("f")), text) << claimed;
  }
}

TEST_F(FileSystem, KeepsAFileUnderASecondName) {
  put(in("f"), "old");
  fs::permissions(in("f"), fs::perms{0640});
  EXPECT_FALSE(keepFileAs(in("f"), in("linked")));
  ASSERT_FALSE(replace(in("f"), "new"));
  EXPECT_EQ(contents(in("linked")), "old");
  EXPECT_EQ(keepFileAs(in("f"), in("linked"))->message,
            "could not keep " + in("f") + " as " + in("linked") + ": File exists");

  FileCalls calls = scriptedCalls();
  calls.linkat = [](int, const char*, int, const char*, int) {
    errno = EXDEV;
    return -1;
  };
  const FileCallsOverride override(calls);
  for (const char* failing : {"write", "fsync"}) {
    script = {.failing = failing};
    EXPECT_TRUE(keepFileAs(in("f"), in("copied"))) << failing;
    EXPECT_FALSE(fileExists(in("copied"))) << failing;
  }
  script = {};
  EXPECT_FALSE(keepFileAs(in("f"), in("copied")));
  EXPECT_EQ(contents(in("copied")), "new");
  EXPECT_EQ(modeOf(in("copied")), 0640U);
  EXPECT_TRUE(keepFileAs(in("f"), in("copied"))) << "a copy overwrote a file";
}

TEST(JoinPath, PutsOneSeparatorBetween) {
  for (const char* folder : {"/a", "/a/"}) {
    for (const char* name : {"b", "/b"}) EXPECT_EQ(joinPath(folder, name), "/a/b");
  }
  EXPECT_EQ(joinPath("/", "b"), "/b");
  EXPECT_EQ(joinPath("", "var/lib"), "/var/lib");
}

}  // namespace
}  // namespace roster::testing
