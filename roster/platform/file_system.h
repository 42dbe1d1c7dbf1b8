#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "roster/base/byte_sink.h"
#include "roster/base/bytes.h"
#include "roster/base/result.h"
#include "roster/platform/file_stamp.h"

namespace roster {

/// Reads a whole regular file into memory of its own. The error, "could not open PATH: REASON", is one for
/// which `isMissingFile` holds when there is no such file. Anything but a regular file (a folder, a pipe, a
/// device) is an error and is not waited for; so is a file beyond `limits::maximumFileSize`.
///
/// With a `stamp`, the state of the very file that was read goes there, as it was before the first byte: when
/// the file has that stamp later, these are its bytes. Nothing goes there when the file could not be opened
/// or examined, unless that is because it is missing; after other failures the stamp is there.
Result<Bytes> readFile(const std::string& path, std::optional<FileStamp>* stamp = nullptr);

/// The state of the file at the path, symbolic links followed. Fails when it cannot be looked at.
Result<FileStamp> fileStamp(const std::string& path);

/// What a replacement depends on.
struct ReplacementTerms {
  /// Whose owner, group and mode a file gets that replaces none.
  std::string modelPath{};
  /// Only the file in this state is replaced; nothing: whatever is there.
  std::optional<FileStamp> expected{};
};

/// Puts the content at the path in one step: a reader finds the old file or the new one, never part of one,
/// and after success the new one survives a power cut. Missing folders on the way are made. The old file's
/// mode and owner are kept. A new file takes over those of the regular file at the terms' `modelPath`, as far
/// as this process may set them; without such a file it is private to its owner (0600).
///
/// When the file is expected in a state, what the path leads to is compared as the last thing before the new
/// file takes its place, and another state is an error for which `isChangedMeanwhile` holds. A moment is left
/// in which others may replace the file unnoticed: the time between two system calls.
///
/// Temporary files that earlier writers have left in the folder because they were killed are removed first.
///
/// On failure the error names what failed, with path and system text; the old file is whole and no temporary
/// file is left. One failure comes too late for that: when only the syncing of the folder fails, the new file
/// is in place, whole, but may not survive a power cut. Exactly two syncs are made: of the file, and of its
/// folder. A symbolic link at the path stays, and the file it stands for is replaced.
///
/// `written` is set as soon as the new file is in its place, also when something fails after that: to the
/// state in which `fileStamp` and `readFile` find it, until somebody changes it.
Result<> replaceFile(const std::string& path, const ByteSource& content, const ReplacementTerms& terms = {},
                     std::optional<FileStamp>* written = nullptr);

enum class FileType {
  missing,  ///< Neither the file nor, perhaps, a folder for it.
  regular,
  folder,
  other,    ///< A pipe, a device and their like.
  unknown,  ///< It cannot be looked at, as in a folder that this process may not enter.
};

/// What is found at the path, symbolic links followed.
FileType fileType(const std::string& path);

/// Whether something is at the path, or may be: only a file that is known to be missing counts as none.
inline bool fileExists(const std::string& path) { return fileType(path) != FileType::missing; }

/// Removes the file, or the symbolic link; not a folder. Fails when there is none.
Result<> removeFile(const std::string& path);

/// Makes an empty file that everybody may read. Fails when anything stands at the path, a symbolic link that
/// leads nowhere too.
Result<> makeMarker(const std::string& path);

/// Makes `copy` hold the same file as `path`, sharing or copying its contents, without a moment at which
/// `path` is missing. Fails when `copy` exists.
Result<> keepFileAs(const std::string& path, const std::string& copy);

/// The names of all that is in the folder, in no order, without "." and "..". Fails when it cannot be opened
/// or read.
Result<std::vector<std::string>> namesIn(const std::string& folder);

/// The path with one component appended, with one separator between them.
std::string joinPath(std::string_view folder, std::string_view component);

/// The path without its last component; "." when it has only one.
std::string folderOf(std::string_view path);

}  // namespace roster
