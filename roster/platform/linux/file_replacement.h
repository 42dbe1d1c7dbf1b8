#pragma once

#include <optional>
#include <span>
#include <string>

#include "roster/base/result.h"
#include "roster/platform/linux/file_calls.h"
#include "roster/platform/linux/new_file.h"

namespace roster {

/// The folder, made with those above it when there is none: for everybody to enter (0755, less the process's
/// umask).
Result<FileDescriptor> openOrMakeFolder(const std::string& path);

/// Replaces a file in one step: writes beside it and, at `commit`, takes its place. Destroyed without a
/// commit it leaves no trace.
///
/// Atomic: whoever opens the path finds the old file or the new one, whole, also after a power cut. Durable:
/// once `commit` has succeeded the new one is found. Not promised: that hard links, extended attributes or
/// access lists of the old file carry over, and that a folder made on the way survives a power cut on file
/// systems that do not record it together with the file in it.
///
/// A symbolic link at the path is followed, so that the link stays and the file it stands for is replaced.
/// Missing folders are made for everybody to enter (0755, less the process's umask); the file's own mode
/// keeps it private.
class FileReplacement {
 public:
  /// Makes the temporary file. Fails when the path does not name a regular file or a missing one, and when
  /// its folder cannot be opened, made or written to.
  static Result<FileReplacement> create(const std::string& path);

  /// Appends the bytes to the temporary file. The replacement is of no use any more after a failure.
  Result<> write(std::span<const std::byte> bytes) const { return temporary_.write(bytes); }

  /// Has a file that replaces none take over the owner, group and mode of another one, as far as this process
  /// may set them. Without it, it is private to its owner.
  void adoptAccessWhenNew(const struct stat& model) {
    if (!oldFile_) model_ = model;
  }

  /// Has the commit replace only a file in this state, compared right before it is replaced.
  void expect(const FileStamp& stamp) { expected_ = stamp; }

  /// To be called once. When only its last step fails, the syncing of the folder, the new file is in place
  /// but may not survive a power cut; after any other failure the old one is untouched. `written` is set to
  /// the new file's state once that is in place.
  Result<> commit(std::optional<FileStamp>* written = nullptr);

 private:
  Result<> requireExpected() const;
  Result<> takePlace(std::optional<FileStamp>* written);

  FileReplacement(std::string givenPath, std::string path, FileDescriptor folder,
                  std::optional<struct stat> oldFile, NewFile temporary);

  /// As the caller knows it, and behind all links.
  std::string givenPath_;
  std::string path_;
  FileDescriptor folder_;
  std::optional<struct stat> oldFile_;
  /// Whose access the new file gets.
  std::optional<struct stat> model_;
  std::optional<FileStamp> expected_;
  NewFile temporary_;
};

}  // namespace roster
