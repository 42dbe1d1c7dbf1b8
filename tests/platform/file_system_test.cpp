#include "platform/file_system.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "platform/limits.h"
#include "platform/linux/file_calls.h"

namespace roster {
namespace {

namespace fs = std::filesystem;

/// What the calls under test did, and which of them is to fail. Plain functions cannot carry state of their
/// own.
struct Script {
  std::map<std::string, int> counts{};
  std::string failing{};
  int failingOccurrence = 1;
  int failure = EIO;
};
Script script;

template <class Call>
auto scripted(const char* name, Call&& call) -> decltype(call()) {
  const int occurrence = ++script.counts[name];
  if (script.failing == name && occurrence == script.failingOccurrence) {
    errno = script.failure;
    return -1;
  }
  return call();
}

FileCalls scriptedCalls() {
  static const FileCalls real = fileCalls();
  FileCalls calls = real;
  calls.openat = [](int folder, const char* path, int flags, mode_t mode) {
    return scripted("openat", [&] { return real.openat(folder, path, flags, mode); });
  };
  calls.close = [](int file) {
    const int result = scripted("close", [] { return 0; });
    const int number = errno;
    real.close(file);
    errno = number;
    return result;
  };
  calls.fstat = [](int file, struct stat* status) {
    return scripted("fstat", [&] { return real.fstat(file, status); });
  };
  calls.fstatat = [](int folder, const char* path, struct stat* status, int flags) {
    return scripted("fstatat", [&] { return real.fstatat(folder, path, status, flags); });
  };
  calls.read = [](int file, void* buffer, std::size_t size) {
    return scripted("read", [&] { return real.read(file, buffer, size); });
  };
  // A few bytes at a time, so that the rest has to be written too.
  calls.write = [](int file, const void* buffer, std::size_t size) {
    return scripted("write", [&] { return real.write(file, buffer, std::min<std::size_t>(size, 3)); });
  };
  calls.fchown = [](int file, uid_t owner, gid_t group) {
    return scripted("fchown", [&] { return real.fchown(file, owner, group); });
  };
  calls.fchmod = [](int file, mode_t mode) {
    return scripted("fchmod", [&] { return real.fchmod(file, mode); });
  };
  calls.fsync = [](int file) { return scripted("fsync", [&] { return real.fsync(file); }); };
  calls.mkdir = [](const char* path, mode_t mode) {
    return scripted("mkdir", [&] { return real.mkdir(path, mode); });
  };
  calls.linkat = [](int from, const char* path, int to, const char* copy, int flags) {
    return scripted("linkat", [&] { return real.linkat(from, path, to, copy, flags); });
  };
  calls.renameat = [](int from, const char* path, int to, const char* target) {
    return scripted("renameat", [&] { return real.renameat(from, path, to, target); });
  };
  return calls;
}

class FileSystem : public testing::Test {
 protected:
  FileSystem() {
    std::string name = (fs::temp_directory_path() / "roster-files-XXXXXX").string();
    folder_ = mkdtemp(name.data());
    script = {};
  }
  ~FileSystem() override { fs::remove_all(folder_); }

  std::string in(std::string_view name) const { return joinPath(folder_.string(), name); }

  static void put(const std::string& path, std::string_view text) { std::ofstream(path) << text; }
  static std::string contents(const std::string& path) { return std::string(readFile(path).bytes.text()); }
  static std::optional<Error> replace(const std::string& path, std::string_view text) {
    return replaceFile(path, std::as_bytes(std::span(text)));
  }
  static unsigned modeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder_)) found.push_back(entry.path().filename());
    std::sort(found.begin(), found.end());
    return found;
  }

  fs::path folder_;
};

TEST_F(FileSystem, ReplacesAFileWithTwoSyncsAndKeepsItsMode) {
  put(in("f"), "old");
  ASSERT_EQ(chmod(in("f").c_str(), 0640), 0);
  const FileCallsOverride calls(scriptedCalls());
  ASSERT_FALSE(replace(in("f"), "new contents"));
  EXPECT_EQ(contents(in("f")), "new contents");
  EXPECT_EQ(modeOf(in("f")), 0640U);
  EXPECT_EQ(script.counts["fsync"], 2);
  EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(FileSystem, MakesAPrivateFileAndTheFoldersOnItsWay) {
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
  ASSERT_FALSE(replace(in("link to link"), "new"));
  ASSERT_FALSE(replace(in("dangling"), "made"));
  EXPECT_TRUE(fs::is_symlink(in("link")) && fs::is_symlink(in("link to link")));
  EXPECT_EQ(contents(in("d/f")), "new");
  EXPECT_EQ(contents(in("missing")), "made");

  fs::create_symlink("loop", in("loop"));
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
    const bool isReplaced = std::string_view(action) == "sync the folder";
    {
      const FileCallsOverride calls(scriptedCalls());
      const std::optional<Error> error = replace(in("f"), "new contents");
      ASSERT_TRUE(error) << action;
      EXPECT_TRUE(error->message.starts_with("could not " + std::string(action) + " " + folder_.string()))
          << error->message;
      EXPECT_TRUE(error->message.ends_with(": No space left on device")) << error->message;
    }
    EXPECT_EQ(contents(in("f")), isReplaced ? "new contents" : "old") << action;
    EXPECT_EQ(names(), std::vector<std::string>{"f"}) << action;
  }
}

TEST_F(FileSystem, TriesAgainAfterAnInterruption) {
  put(in("f"), "old");
  for (const char* call : {"openat", "write", "fsync", "read"}) {
    script = {.failing = call, .failure = EINTR};
    const FileCallsOverride calls(scriptedCalls());
    EXPECT_FALSE(replace(in("f"), call)) << call;
    EXPECT_EQ(contents(in("f")), call);
  }
}

TEST_F(FileSystem, NeverWidensAccessWhenTheOwnerCannotBeKept) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a file of somebody else";
  const std::tuple<int, int, unsigned> cases[] = {{1, EPERM, 0640}, {2, EPERM, 0600}, {1, EIO, 0640}};
  for (const auto& [failures, failure, mode] : cases) {
    put(in("f"), "old");
    ASSERT_EQ(chown(in("f").c_str(), 1, 1), 0);
    ASSERT_EQ(chmod(in("f").c_str(), 0640), 0);
    static int remaining = 0;
    static int number = 0;
    remaining = failures;
    number = failure;
    FileCalls calls = fileCalls();
    calls.fchown = [](int file, uid_t owner, gid_t group) {
      if (remaining-- <= 0) return ::fchown(file, owner, group);
      errno = number;
      return -1;
    };
    const FileCallsOverride override(calls);
    EXPECT_EQ(replace(in("f"), "new").has_value(), failure == EIO);
    EXPECT_EQ(modeOf(in("f")), mode);
    fs::remove(in("f"));
  }
}

TEST_F(FileSystem, RefusesToReplaceWhatIsNoFile) {
  fs::create_directory(in("d"));
  ASSERT_EQ(mkfifo(in("pipe").c_str(), 0600), 0);
  put(in("f"), "");
  EXPECT_EQ(replace(in("d"), "")->message, "could not write " + in("d") + ": it is not a regular file");
  EXPECT_EQ(replace(in("pipe"), "")->message, "could not write " + in("pipe") + ": it is not a regular file");
  EXPECT_EQ(replace(in("d/"), "")->message, "could not write " + in("d/") + ": it does not name a file");
  EXPECT_EQ(replace(in("f/x"), "")->message, "could not open the folder " + in("f") + ": Not a directory");
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
  for (const off_t claimed : {off_t{0}, off_t{3}, off_t{9999}, off_t{10000}, off_t{50000}}) {
    static off_t size = 0;
    size = claimed;
    FileCalls calls = fileCalls();
    calls.fstat = [](int file, struct stat* status) {
      const int result = ::fstat(file, status);
      status->st_size = size;
      return result;
    };
    const FileCallsOverride override(calls);
    EXPECT_EQ(contents(in("f")), text) << claimed;
  }
}

TEST_F(FileSystem, KeepsAFileUnderASecondName) {
  put(in("f"), "old");
  ASSERT_EQ(chmod(in("f").c_str(), 0640), 0);
  EXPECT_FALSE(keepFileAs(in("f"), in("linked")));
  ASSERT_FALSE(replace(in("f"), "new"));
  EXPECT_EQ(contents(in("linked")), "old");
  EXPECT_EQ(keepFileAs(in("f"), in("linked"))->message,
            "could not keep " + in("f") + " as " + in("linked") + ": File exists");

  for (const char* failing : {"", "write", "fsync"}) {
    script = {.failing = failing};
    FileCalls calls = scriptedCalls();
    calls.linkat = [](int, const char*, int, const char*, int) {
      errno = EXDEV;
      return -1;
    };
    const FileCallsOverride override(calls);
    const bool works = std::string_view(failing).empty();
    EXPECT_EQ(keepFileAs(in("f"), in("copied")).has_value(), !works) << failing;
    EXPECT_EQ(fileExists(in("copied")), works);
    if (works) {
      EXPECT_EQ(contents(in("copied")), "new");
      EXPECT_EQ(modeOf(in("copied")), 0640U);
      EXPECT_TRUE(keepFileAs(in("f"), in("copied"))) << "a copy overwrote a file";
      fs::remove(in("copied"));
    }
  }
}

TEST(JoinPath, PutsOneSeparatorBetween) {
  const std::tuple<const char*, const char*, const char*> cases[] = {{"/a", "b", "/a/b"},
                                                                     {"/a/", "/b", "/a/b"},
                                                                     {"/", "b", "/b"},
                                                                     {"", "var/lib", "/var/lib"},
                                                                     {"a", "b/", "a/b/"}};
  for (const auto& [folder, component, path] : cases) EXPECT_EQ(joinPath(folder, component), path);
}

}  // namespace
}  // namespace roster
