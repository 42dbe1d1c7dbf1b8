#include "roster/platform/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <memory>
#include <new>

#include "roster/base/limits.h"
#include "roster/platform/linux/file_replacement.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

struct CloseFolder {
  void operator()(DIR* stream) const { static_cast<void>(closedir(stream)); }
};

Error unreadable(std::errc code, const std::string& path, const std::string& reason) {
  return {code, "could not read " + path + ": " + reason};
}

/// The size the file had a moment ago, plus one: the read that finds nothing more needs no further room.
std::size_t roomFor(const struct stat& status) { return static_cast<std::size_t>(status.st_size) + 1; }

Bytes copyWithRoom(const Bytes& bytes, std::size_t room) {
  Bytes larger(room);
  std::copy_n(bytes.data(), bytes.size(), larger.data());
  return larger;
}

/// Asks for large pages under a large file: making small ones, one fault each, takes longer than reading into
/// them. The kernel need not do it, and nothing depends on it.
void preferLargePages(Bytes& bytes) {
  constexpr std::size_t pageSize = 4096;
  constexpr std::size_t worthwhile = std::size_t{4} << 20U;
  if (bytes.size() < worthwhile) return;
  void* begin = bytes.data();
  std::size_t space = bytes.size();
  if (std::align(pageSize, worthwhile / 2, begin, space) == nullptr) return;
  static_cast<void>(madvise(begin, space - space % pageSize, MADV_HUGEPAGE));
}

/// Reads to the end, wherever that is by now: another process may be writing the file.
Result<Bytes> readAll(const FileDescriptor& file, const std::string& path, std::size_t room) {
  Bytes bytes(room);
  preferLargePages(bytes);
  std::size_t filled = 0;
  while (true) {
    const ssize_t count =
        retrying([&] { return fileCalls().read(file.fd(), bytes.data() + filled, bytes.size() - filled); });
    if (count < 0) return systemError("read", path, errno);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
    if (filled > limits::maximumFileSize)
      return unreadable(std::errc::file_too_large, path, "it is too large");
    if (filled == bytes.size()) bytes = copyWithRoom(bytes, 2 * bytes.size());
  }
  bytes.shrinkTo(filled);
  return bytes;
}

/// Whether hard links are out of the question here, while a copy may still be made.
bool mayCopyInstead(int errorNumber) {
  return errorNumber == EPERM || errorNumber == EXDEV || errorNumber == EMLINK || errorNumber == EOPNOTSUPP ||
         errorNumber == ENOSYS;
}

Result<> copyFile(const std::string& path, const std::string& copy) {
  const Result<Bytes> contents = readFile(path);
  if (!contents) return contents.error();
  struct stat model {};
  if (fileCalls().fstatat(AT_FDCWD, path.c_str(), &model, 0) == -1)
    return systemError("examine", path, errno);
  Result<NewFile> file = NewFile::create(AT_FDCWD, copy, copy);
  if (!file) return file.error();
  if (Result<> done = file->write(contents->span()); !done) return done;
  if (Result<> done = file->adoptAccess(model); !done) return done;
  if (Result<> done = file->sync(); !done) return done;
  if (Result<> done = file->close(); !done) return done;
  file->keep();
  return {};
}

}  // namespace

Result<Bytes> readFile(const std::string& path, std::optional<FileStamp>* stamp) {
  if (stamp != nullptr) stamp->reset();
  // Without O_NONBLOCK, opening a pipe would wait for a writer.
  constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  const FileDescriptor file(retrying([&] { return fileCalls().openat(AT_FDCWD, path.c_str(), flags, 0); }));
  if (!file) {
    const Error error = systemError("open", path, errno);
    if (stamp != nullptr && isMissingFile(error)) *stamp = FileStamp();
    return error;
  }
  struct stat status {};
  if (fileCalls().fstat(file.fd(), &status) == -1) return systemError("examine", path, errno);
  if (stamp != nullptr) *stamp = stampOf(status);
  if (!S_ISREG(status.st_mode)) {
    return unreadable(std::errc::invalid_argument, path, "it is not a regular file");
  }
  if (static_cast<std::uint64_t>(status.st_size) > limits::maximumFileSize) {
    return unreadable(std::errc::file_too_large, path, "it is too large");
  }
  try {
    return readAll(file, path, roomFor(status));
  } catch (const std::bad_alloc&) {
    return unreadable(std::errc::not_enough_memory, path, "there is not enough memory");
  }
}

Result<> replaceFile(const std::string& path, const ByteSource& content, const ReplacementTerms& terms,
                     std::optional<FileStamp>* written) {
  if (written != nullptr) written->reset();
  Result<FileReplacement> replacement = FileReplacement::create(path);
  if (!replacement) return replacement.error();
  struct stat model {};
  if (!terms.modelPath.empty() &&
      fileCalls().fstatat(AT_FDCWD, terms.modelPath.c_str(), &model, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISREG(model.st_mode)) {
    replacement->adoptAccessWhenNew(model);
  }
  Result<> done = content([&](std::span<const std::byte> bytes) { return replacement->write(bytes); });
  if (!done) return done;
  if (terms.expected) replacement->expect(*terms.expected);
  return replacement->commit(written);
}

Result<FileStamp> fileStamp(const std::string& path) {
  struct stat status {};
  if (fileCalls().fstatat(AT_FDCWD, path.c_str(), &status, 0) == 0) return stampOf(status);
  Error error = systemError("examine", path, errno);
  return isMissingFile(error) ? Result<FileStamp>(FileStamp()) : std::move(error);
}

FileType fileType(const std::string& path) {
  struct stat status {};
  if (fileCalls().fstatat(AT_FDCWD, path.c_str(), &status, 0) == -1)
    return errno == ENOENT || errno == ENOTDIR ? FileType::missing : FileType::unknown;
  if (S_ISREG(status.st_mode)) return FileType::regular;
  return S_ISDIR(status.st_mode) ? FileType::folder : FileType::other;
}

Result<> removeFile(const std::string& path) {
  if (fileCalls().unlinkat(AT_FDCWD, path.c_str(), 0) == 0) return {};
  return systemError("remove", path, errno);
}

Result<> makeMarker(const std::string& path) {
  constexpr mode_t readable = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
  Result<NewFile> file = NewFile::create(AT_FDCWD, path, path);
  if (!file) return file.error();
  if (Result<> done = file->setMode(readable); !done) return done;
  file->keep();
  return {};
}

Result<> keepFileAs(const std::string& path, const std::string& copy) {
  if (fileCalls().linkat(AT_FDCWD, path.c_str(), AT_FDCWD, copy.c_str(), AT_SYMLINK_FOLLOW) == 0) {
    return {};
  }
  const int errorNumber = errno;
  if (mayCopyInstead(errorNumber)) return copyFile(path, copy);
  return systemError("keep " + path + " as", copy, errorNumber);
}

Result<std::vector<std::string>> namesIn(const std::string& folder) {
  // Not an iterator of the standard library: it ends the process when it runs out of memory.
  const std::unique_ptr<DIR, CloseFolder> stream(opendir(folder.c_str()));
  if (!stream) return systemError("open the folder", folder, errno);
  std::vector<std::string> names;
  while (true) {
    errno = 0;
    const dirent* entry =
        readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): nobody else has this stream
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return systemError("read the folder", folder, errno);
  return names;
}

std::string joinPath(std::string_view folder, std::string_view component) {
  while (folder.ends_with('/')) folder.remove_suffix(1);
  while (component.starts_with('/')) component.remove_prefix(1);
  std::string path;
  path.reserve(folder.size() + 1 + component.size());
  return path.append(folder).append("/").append(component);
}

std::string folderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  return std::string(slash == 0 ? "/" : path.substr(0, slash));
}

}  // namespace roster
